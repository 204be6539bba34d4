#pragma once

#include "memory/PurgeManagerDelegate.h"
#include "platform/VmStatistics.h"

#include <QObject>

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

class BlockAllocator;
class MemoryInfo;

// Frees memory by filling it: blocks as large as physical memory in total are taken and touched, which
// makes the kernel evict its caches, then handed back. One purge at a time; it runs on threads of its own
// and reports to its delegate and its completion on the main thread.
//
// The fill never goes below a safety floor of available memory (see safetyFloor), so a purge cannot push
// the machine into swapping or the OOM killer.
class PurgeManager : public QObject
{
    Q_OBJECT
public:
    static constexpr quint64 kBlockSize = 10485760;
    static constexpr quint64 kMinimumFloor = quint64(256) * 1024 * 1024;

    using Completion = std::function<void()>;
    // Waits on the purge's own threads; tests make it quick.
    using Sleep = std::function<void(int milliseconds)>;

    struct Collaborators
    {
        MemoryInfo* memoryInfo = nullptr;    // null: the running system's
        BlockAllocator* allocator = nullptr; // null: the running system's
        quint64 physicalMemory = 0;          // 0: as memoryInfo tells
        Sleep sleep;                         // null: really sleeps
    };

    // How the last purge went.
    struct Report
    {
        int requestedBlocks = 0;
        int heldBlocks = 0; // blocks held at the peak
        bool stoppedByFloor = false;
        bool stoppedByFailure = false; // the system refused a block, or memory could not be read
        std::optional<quint64> lowestAvailable;
    };

    // The process-wide instance, over the running system.
    static PurgeManager& GetInstance();

    PurgeManager();
    explicit PurgeManager(Collaborators collaborators, QObject* parent = nullptr);
    // Cuts a running purge short and waits for its threads; the completion is then not delivered.
    ~PurgeManager() override;

    void setDelegate(PurgeManagerDelegate* delegate) { m_delegate.store(delegate); }
    // Forgets the delegate if it is still this one (a delegate going away calls it).
    void clearDelegate(PurgeManagerDelegate* delegate) { m_delegate.compare_exchange_strong(delegate, nullptr); }

    // Starts a purge; handler runs on the main thread when it is over. While one completion is pending a
    // new request is dropped. Any thread.
    void purgeWithCompletion(Completion handler);
    bool hasPendingCompletion() const;
    bool isBusy() const { return m_busy.load(); }
    Report lastReport() const;

    // The steps of a purge; purgeWithCompletion runs them on the purge's threads.
    void freeMemory();
    void allocatePurgeableData();
    // Takes up to count blocks of size bytes, holds them a second, gives them back; the blocks held.
    int allocatePurgeableDataBlocksCount(int count, quint64 size);
    void notifyAboutProgressStart();
    void notifyAboutProgress(float progress, bool forced);
    void notifyAboutProgressFinish();

    // The purge's own reading of the counters.
    bool updateSystemInfo();
    // Physical memory less active, inactive and wired pages.
    quint64 getFreeMemory() const;
    quint64 getCountOfNeededAllocatedMemoryWithBlockSize(quint64 blockSize) const;
    quint64 physicalMemory() const { return m_physicalMemory; }
    quint32 pageSize() const { return m_pageSize; }

    // Available memory below which nothing more is taken, for a system (or cgroup) of total bytes.
    static quint64 safetyFloor(quint64 total);

private:
    // Whether one more block of size bytes may be taken; records why not.
    bool mayTakeBlock(quint64 size);
    // Holds the blocks for about ms, ending early when the system runs short.
    void holdBlocks(int ms);
    void sleepFor(int ms);

    MemoryInfo& m_memoryInfo;
    BlockAllocator& m_allocator;
    quint64 m_physicalMemory;
    quint32 m_pageSize;
    Sleep m_sleep;

    std::atomic<PurgeManagerDelegate*> m_delegate{nullptr};
    std::atomic<bool> m_busy{false};
    std::atomic<bool> m_stop{false};
    std::atomic<float> m_lastProgress{0.0f};

    mutable std::mutex m_mutex; // guards everything below
    Completion m_pending;
    std::thread m_freeThread;
    VmStatistics64 m_vmstat64;
    Report m_report;
};
