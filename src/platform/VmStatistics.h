#pragma once

#include <cstdint>

// The kernel's virtual-memory counters the program needs, in pages. On Linux they are read from
// /proc/meminfo (see MemoryInfo); the names are those of the counters they stand for.
struct VmStatistics64
{
    uint64_t free_count = 0;
    uint64_t active_count = 0;
    uint64_t inactive_count = 0;
    uint64_t wire_count = 0;
    uint64_t purgeable_count = 0;
    uint64_t compressor_page_count = 0;
    uint64_t internal_page_count = 0;
};
