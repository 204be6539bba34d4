#pragma once

#include "platform/VmStatistics.h"

#include <QString>

// The panel's memory figures from one sample of the counters: used pages are internal (anonymous)
// pages less purgeable ones plus wired and compressed pages; the rest of physical memory counts as free.
struct MemoryFigures
{
    quint64 totalPages = 0;
    quint64 usedPages = 0;
    quint64 freePages = 0;
    quint32 pageSize = 0;

    static MemoryFigures from(const VmStatistics64& stats, quint64 physicalMemory, quint32 pageSize);
    // Done in unsigned 32-bit arithmetic, then widened, as the counters were defined.
    static quint64 usedPagesOf(const VmStatistics64& stats);

    quint64 usedSize() const { return usedPages * pageSize; }
    quint64 freeSize() const { return freePages * pageSize; }
    double usedFraction() const { return totalPages ? double(usedPages) / double(totalPages) : 0.0; }

    // What a purge gave back: the increase of the kernel's free pages (MemFree) between two samples, in
    // bytes; 0 when there is none. The dropped page cache never counted as used, so "used" hardly moves.
    static quint64 cleanedSize(const VmStatistics64& before, const VmStatistics64& after, quint32 pageSize);

    // "46%": the used fraction as a number padded to two characters, then the percent sign.
    static QString percentTitle(double fraction);
};
