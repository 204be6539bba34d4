#pragma once

#include <dirent.h>

#include <cstdint>

// An entry of a getdents64 listing carries the offset the next read starts from. ext4 (its hashed
// folders, which are nearly all) and btrfs put the end of the folder there after the last entry, as
// INT64_MAX, an offset no entry can have: the listing is then known complete without one more read
// that would return nothing (a quarter of a walk's system calls). Elsewhere, and when ext4 stops
// short on an error, the reads go on until one returns nothing or the error.
inline bool listingEndsAfter(const dirent64& last)
{
    return last.d_off == INT64_MAX;
}
