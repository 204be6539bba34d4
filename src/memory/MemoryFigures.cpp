#include "MemoryFigures.h"

quint64 MemoryFigures::usedPagesOf(const VmStatistics64& s)
{
    const quint32 used = quint32(s.internal_page_count) - quint32(s.purgeable_count) + quint32(s.wire_count) +
                         quint32(s.compressor_page_count);
    return used;
}

MemoryFigures MemoryFigures::from(const VmStatistics64& stats, quint64 physicalMemory, quint32 pageSize)
{
    MemoryFigures f;
    f.pageSize = pageSize;
    f.totalPages = pageSize ? physicalMemory / pageSize : 0;
    f.usedPages = usedPagesOf(stats);
    // Linux's counters can add up to a little more than the total (pages counted twice): never below 0.
    f.freePages = f.totalPages > f.usedPages ? f.totalPages - f.usedPages : 0;
    return f;
}

quint64 MemoryFigures::cleanedSize(const VmStatistics64& before, const VmStatistics64& after, quint32 pageSize)
{
    return after.free_count > before.free_count ? (after.free_count - before.free_count) * pageSize : 0;
}

QString MemoryFigures::percentTitle(double fraction)
{
    return QString::asprintf("%2.0f%c", fraction * 100.0, '%');
}
