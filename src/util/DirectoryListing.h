#pragma once

#include <cstdint>

// Each entry of a getdents64 listing carries the offset the next read starts from. After the last entry
// of a folder, ext4 (for its hashed folders, which are nearly all) gives INT64_MAX, an offset its hashes
// never take: the listing is then known to be complete without one more read that would return nothing
// (half of a walk's getdents64 calls). Elsewhere, and when ext4 stops short on an error, the reads go on
// until one returns nothing or the error.
inline bool listingEndsAfter(std::int64_t nextOffset)
{
    return nextOffset == INT64_MAX;
}
