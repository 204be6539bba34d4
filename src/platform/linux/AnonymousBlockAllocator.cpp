#include "AnonymousBlockAllocator.h"

#include <sys/mman.h>
#include <unistd.h>

AnonymousBlockAllocator::AnonymousBlockAllocator()
{
    const long page = ::sysconf(_SC_PAGESIZE);
    m_pageSize = page > 0 ? std::size_t(page) : 4096;
}

void* AnonymousBlockAllocator::allocate(std::size_t size)
{
    void* block = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED)
        return nullptr;
    // A write, not a read: reading would only map the shared zero page.
    auto* bytes = static_cast<volatile unsigned char*>(block);
    for (std::size_t offset = 0; offset < size; offset += m_pageSize)
        bytes[offset] = 0;
    return block;
}

void AnonymousBlockAllocator::endContentAccess(void* block, std::size_t size)
{
#ifdef MADV_FREE
    if (::madvise(block, size, MADV_FREE) == 0)
        return;
#endif
    // Kernels before 4.5 lack MADV_FREE; dropping the pages at once frees them all the same.
    ::madvise(block, size, MADV_DONTNEED);
}

void AnonymousBlockAllocator::release(void* block, std::size_t size)
{
    ::munmap(block, size);
}

BlockAllocator& BlockAllocator::system()
{
    static AnonymousBlockAllocator allocator;
    return allocator;
}
