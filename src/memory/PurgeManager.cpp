#include "PurgeManager.h"

#include "platform/BlockAllocator.h"
#include "platform/MemoryInfo.h"
#include "util/MainQueue.h"

#include <QCoreApplication>
#include <QThread>

#include <chrono>
#include <cmath>
#include <deque>

PurgeManager& PurgeManager::GetInstance()
{
    static PurgeManager* instance = new PurgeManager();
    return *instance;
}

PurgeManager::PurgeManager()
    : PurgeManager(Collaborators())
{
}

PurgeManager::PurgeManager(Collaborators collaborators, QObject* parent)
    : QObject(parent)
    , m_memoryInfo(collaborators.memoryInfo ? *collaborators.memoryInfo : MemoryInfo::system())
    , m_allocator(collaborators.allocator ? *collaborators.allocator : BlockAllocator::system())
    , m_physicalMemory(collaborators.physicalMemory ? collaborators.physicalMemory : m_memoryInfo.physicalMemory())
    , m_pageSize(m_memoryInfo.pageSize())
    , m_sleep(std::move(collaborators.sleep))
{
    // Callbacks go to the main thread even when the first user is a worker thread.
    if (!parent && QCoreApplication::instance() && thread() != QCoreApplication::instance()->thread())
        moveToThread(QCoreApplication::instance()->thread());
}

PurgeManager::~PurgeManager()
{
    m_stop.store(true);
    std::thread worker;
    {
        std::lock_guard lock(m_mutex);
        worker = std::move(m_freeThread);
    }
    if (worker.joinable())
        worker.join();
}

void PurgeManager::purgeWithCompletion(Completion handler)
{
    std::lock_guard lock(m_mutex);
    if (m_pending)
        return;
    m_pending = handler ? std::move(handler) : Completion([] {});
    // The previous purge's thread has delivered its completion already; it only has to be reaped.
    if (m_freeThread.joinable())
        m_freeThread.join();
    VmStatistics64 sample;
    if (m_memoryInfo.readStatistics(sample))
        m_vmstat64 = sample;
    m_freeThread = std::thread([this] { freeMemory(); });
}

bool PurgeManager::hasPendingCompletion() const
{
    std::lock_guard lock(m_mutex);
    return bool(m_pending);
}

PurgeManager::Report PurgeManager::lastReport() const
{
    std::lock_guard lock(m_mutex);
    return m_report;
}

void PurgeManager::freeMemory()
{
    m_busy.store(true);
    std::thread allocation([this] { allocatePurgeableData(); });
    while (m_busy.load())
        sleepFor(500);
    allocation.join();
    MainQueue::async(this, [this] {
        Completion handler;
        {
            std::lock_guard lock(m_mutex);
            handler = std::move(m_pending);
            m_pending = nullptr;
        }
        if (handler)
            handler();
    });
}

void PurgeManager::allocatePurgeableData()
{
    notifyAboutProgressStart();
    const quint64 freeBefore = getFreeMemory();
    const quint64 count = getCountOfNeededAllocatedMemoryWithBlockSize(kBlockSize);
    allocatePurgeableDataBlocksCount(int(count), kBlockSize);
    // Give the counters time to show the gain, at most 5 s.
    for (int round = 0; round < 20 && !m_stop.load(); ++round) {
        if (!updateSystemInfo() || getFreeMemory() > freeBefore)
            break;
        sleepFor(250);
    }
    notifyAboutProgressFinish();
    m_busy.store(false);
}

int PurgeManager::allocatePurgeableDataBlocksCount(int count, quint64 size)
{
    {
        std::lock_guard lock(m_mutex);
        m_report = Report();
        m_report.requestedBlocks = count;
    }
    // Fresh anonymous memory reads as zeros already: no template block is needed.
    notifyAboutProgress(0.0f, true);
    std::deque<void*> blocks;
    bool refused = false;
    for (int i = 0; i < count && !m_stop.load(); ++i) {
        notifyAboutProgress(float(i) * 0.5f / float(count), false);
        if (!mayTakeBlock(size))
            break;
        void* block = m_allocator.allocate(size);
        if (!block) {
            refused = true;
            std::lock_guard lock(m_mutex);
            m_report.stoppedByFailure = true;
            break;
        }
        blocks.push_back(block);
    }
    const int held = int(blocks.size());
    {
        std::lock_guard lock(m_mutex);
        m_report.heldBlocks = held;
    }
    notifyAboutProgress(0.5f, true);
    // A refused block means the system is short already: give everything back at once.
    if (!refused)
        holdBlocks(1000);
    // Progress runs over the blocks actually held, so a fill cut short still ends smoothly at 1.
    while (!blocks.empty()) {
        const int k = int(blocks.size());
        notifyAboutProgress(float(held - k) * 0.5f / float(held) + 0.5f, false);
        m_allocator.endContentAccess(blocks.front(), size);
        m_allocator.release(blocks.front(), size);
        blocks.pop_front();
    }
    notifyAboutProgress(1.0f, true);
    return held;
}

quint64 PurgeManager::safetyFloor(quint64 total)
{
    // The fill stops while the kernel still has 5% of memory (at least 256 MiB) to hand out: by then
    // it has dropped nearly all of its caches, which is the point, while other programs keep room to
    // grow in for the second the blocks are held. Going further would only push memory to swap or wake
    // the OOM killer. Inside a cgroup the same rule holds against its limit.
    return std::max(kMinimumFloor, total / 20);
}

bool PurgeManager::mayTakeBlock(quint64 size)
{
    const auto available = m_memoryInfo.availableMemory();
    std::lock_guard lock(m_mutex);
    if (!available) {
        m_report.stoppedByFailure = true;
        return false;
    }
    if (!m_report.lowestAvailable || available->available < *m_report.lowestAvailable)
        m_report.lowestAvailable = available->available;
    if (available->available < safetyFloor(available->total) + size) {
        m_report.stoppedByFloor = true;
        return false;
    }
    return true;
}

void PurgeManager::holdBlocks(int ms)
{
    constexpr int kSlice = 100;
    for (int waited = 0; waited < ms && !m_stop.load(); waited += kSlice) {
        sleepFor(std::min(kSlice, ms - waited));
        const auto available = m_memoryInfo.availableMemory();
        if (!available || available->available < safetyFloor(available->total))
            return;
        std::lock_guard lock(m_mutex);
        if (!m_report.lowestAvailable || available->available < *m_report.lowestAvailable)
            m_report.lowestAvailable = available->available;
    }
}

void PurgeManager::notifyAboutProgressStart()
{
    MainQueue::async(this, [this] {
        if (PurgeManagerDelegate* delegate = m_delegate.load())
            delegate->onPurgeManagerStartPurge();
    });
}

void PurgeManager::notifyAboutProgress(float progress, bool forced)
{
    if (!forced && std::fabs(progress - m_lastProgress.load()) <= 0.01f)
        return;
    m_lastProgress.store(progress);
    MainQueue::async(this, [this, progress] {
        if (PurgeManagerDelegate* delegate = m_delegate.load())
            delegate->onPurgeManagerPurgingProgress(progress);
    });
}

void PurgeManager::notifyAboutProgressFinish()
{
    MainQueue::async(this, [this] {
        if (PurgeManagerDelegate* delegate = m_delegate.load())
            delegate->onPurgeManagerEndPurge();
    });
}

bool PurgeManager::updateSystemInfo()
{
    VmStatistics64 sample;
    if (!m_memoryInfo.readStatistics(sample))
        return false;
    std::lock_guard lock(m_mutex);
    m_vmstat64 = sample;
    return true;
}

quint64 PurgeManager::getFreeMemory() const
{
    std::lock_guard lock(m_mutex);
    const quint64 taken =
        quint64(m_pageSize) * (m_vmstat64.active_count + m_vmstat64.inactive_count + m_vmstat64.wire_count);
    return m_physicalMemory > taken ? m_physicalMemory - taken : 0;
}

quint64 PurgeManager::getCountOfNeededAllocatedMemoryWithBlockSize(quint64 blockSize) const
{
    return blockSize ? m_physicalMemory / blockSize : 0;
}

void PurgeManager::sleepFor(int ms)
{
    if (m_sleep)
        m_sleep(ms);
    else
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}
