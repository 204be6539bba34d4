#pragma once

#include "platform/BlockAllocator.h"

// Blocks are private anonymous mappings. Touching each page makes it resident, which is what pushes the
// kernel to evict page cache; MADV_FREE marks the pages as free to take back without writing them
// anywhere (Linux's purgeable memory); munmap returns them.
class AnonymousBlockAllocator final : public BlockAllocator
{
public:
    AnonymousBlockAllocator();

    void* allocate(std::size_t size) override;
    void endContentAccess(void* block, std::size_t size) override;
    void release(void* block, std::size_t size) override;

private:
    std::size_t m_pageSize;
};
