#pragma once

#include <cstddef>

// Large blocks of memory that the system may take back. A block is in use (its pages resident, its
// content kept) from allocate() until endContentAccess(); after that the kernel may drop its pages at
// will. Calls may come from any thread.
class BlockAllocator
{
public:
    virtual ~BlockAllocator() = default;

    // A block of size bytes with every page touched (so it is resident); nullptr when the system refuses.
    virtual void* allocate(std::size_t size) = 0;
    // The content is no longer needed: the pages become free for the kernel to reclaim.
    virtual void endContentAccess(void* block, std::size_t size) = 0;
    virtual void release(void* block, std::size_t size) = 0;

    // Anonymous mappings of the running system.
    static BlockAllocator& system();
};
