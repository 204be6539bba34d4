#pragma once

#include "platform/VmStatistics.h"

#include <QtGlobal>

#include <optional>

// The memory left before the system starts to struggle, as the kernel estimates it.
struct AvailableMemory
{
    quint64 available = 0; // bytes the system can still hand out without swapping
    quint64 total = 0;     // the memory that figure is a part of: physical, or a lower cgroup limit
};

// The kernel's memory counters, page size and physical size. One implementation per platform, chosen in
// MemoryInfo::system(); tests hand in their own.
class MemoryInfo
{
public:
    virtual ~MemoryInfo() = default;

    // One sample of the counters, in pages. False when they cannot be read (the reason goes to standard
    // error once per reader); the record is then left as it was.
    virtual bool readStatistics(VmStatistics64& out) = 0;
    // Bytes per page; 0 when the system does not tell.
    virtual quint32 pageSize() const = 0;
    virtual quint64 physicalMemory() const = 0;
    // Nullopt when it cannot be read. Safe to call from any thread.
    virtual std::optional<AvailableMemory> availableMemory() = 0;

    // The reader of the running system.
    static MemoryInfo& system();
};
