#pragma once

#include "memory/PurgeManagerDelegate.h"
#include "platform/BlockAllocator.h"
#include "platform/MemoryInfo.h"

#include <QList>
#include <QString>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <thread>

// Memory counters a test sets by hand. Available memory may follow the blocks a FakeBlockAllocator
// holds, so a purge sees the machine fill up. Thread-safe: a purge reads it from its own threads.
class FakeMemoryInfo final : public MemoryInfo
{
public:
    bool readStatistics(VmStatistics64& out) override
    {
        std::lock_guard lock(m_mutex);
        ++m_statisticsReads;
        if (m_statisticsFail)
            return false;
        if (m_nextStatistics)
            m_statistics = m_nextStatistics(m_statisticsReads);
        out = m_statistics;
        return true;
    }
    quint32 pageSize() const override { return m_pageSize; }
    quint64 physicalMemory() const override { return m_physical; }
    std::optional<AvailableMemory> availableMemory() override
    {
        std::lock_guard lock(m_mutex);
        ++m_availableReads;
        if (m_availableFailsAfter >= 0 && m_availableReads > m_availableFailsAfter)
            return std::nullopt;
        const quint64 taken = m_heldBytes ? m_heldBytes->load() : 0;
        return AvailableMemory{m_available > taken ? m_available - taken : 0, m_total};
    }

    void setStatistics(const VmStatistics64& s)
    {
        std::lock_guard lock(m_mutex);
        m_statistics = s;
    }
    // Called with the count of reads so far (1 for the first) to give each sample.
    void setStatisticsSequence(std::function<VmStatistics64(int)> next)
    {
        std::lock_guard lock(m_mutex);
        m_nextStatistics = next;
    }
    void setStatisticsFail(bool fail)
    {
        std::lock_guard lock(m_mutex);
        m_statisticsFail = fail;
    }
    void setPageSize(quint32 size) { m_pageSize = size; }
    void setPhysical(quint64 bytes) { m_physical = bytes; }
    // available minus what *heldBytes says is taken; total is what the floor is a share of.
    void setAvailable(quint64 available, quint64 total, const std::atomic<quint64>* heldBytes = nullptr)
    {
        std::lock_guard lock(m_mutex);
        m_available = available;
        m_total = total;
        m_heldBytes = heldBytes;
    }
    // -1: never fails.
    void setAvailableFailsAfter(int reads)
    {
        std::lock_guard lock(m_mutex);
        m_availableFailsAfter = reads;
    }
    int statisticsReads() const
    {
        std::lock_guard lock(m_mutex);
        return m_statisticsReads;
    }

private:
    mutable std::mutex m_mutex;
    VmStatistics64 m_statistics;
    std::function<VmStatistics64(int)> m_nextStatistics;
    bool m_statisticsFail = false;
    quint32 m_pageSize = 4096;
    quint64 m_physical = quint64(8) << 30;
    quint64 m_available = quint64(8) << 30;
    quint64 m_total = quint64(8) << 30;
    const std::atomic<quint64>* m_heldBytes = nullptr;
    int m_availableFailsAfter = -1;
    int m_availableReads = 0;
    int m_statisticsReads = 0;
};

// Hands out tokens instead of memory, so a test can "allocate" gigabytes; counts what happens to them.
class FakeBlockAllocator final : public BlockAllocator
{
public:
    void* allocate(std::size_t size) override
    {
        if (delayMicroseconds > 0)
            std::this_thread::sleep_for(std::chrono::microseconds(delayMicroseconds));
        std::lock_guard lock(m_mutex);
        if (m_failAt >= 0 && m_allocations >= m_failAt)
            return nullptr;
        void* token = reinterpret_cast<void*>(std::uintptr_t(++m_allocations) << 12);
        m_live.insert(token);
        held += size;
        return token;
    }
    void endContentAccess(void* block, std::size_t) override
    {
        std::lock_guard lock(m_mutex);
        if (m_live.count(block))
            m_ended.insert(block);
    }
    void release(void* block, std::size_t size) override
    {
        std::lock_guard lock(m_mutex);
        if (!m_live.erase(block)) {
            ++m_badReleases;
            return;
        }
        if (!m_ended.erase(block))
            ++m_releasedWithoutEnd;
        held -= size;
    }

    // The allocation with this 0-based index and all later ones fail; -1: none.
    void setFailAt(int index) { m_failAt = index; }
    int allocations() const { return m_allocations; }
    // Empty when every block came back exactly once, after its content access ended.
    QString problems() const
    {
        std::lock_guard lock(m_mutex);
        if (m_live.empty() && !m_badReleases && !m_releasedWithoutEnd)
            return {};
        return QStringLiteral("%1 held, %2 bad releases, %3 released in use")
            .arg(m_live.size())
            .arg(m_badReleases)
            .arg(m_releasedWithoutEnd);
    }

    std::atomic<quint64> held{0};
    std::atomic<int> delayMicroseconds{0}; // time each allocation takes

private:
    mutable std::mutex m_mutex;
    std::set<void*> m_live;
    std::set<void*> m_ended;
    std::atomic<int> m_allocations{0};
    std::atomic<int> m_failAt{-1};
    int m_badReleases = 0;
    int m_releasedWithoutEnd = 0;
};

// Records what a purge tells its delegate (on the main thread).
class RecordingPurgeDelegate final : public PurgeManagerDelegate
{
public:
    void onPurgeManagerStartPurge() override { ++starts; }
    void onPurgeManagerEndPurge() override { ++ends; }
    void onPurgeManagerPurgingProgress(float progress) override { progress_.append(progress); }

    int starts = 0;
    int ends = 0;
    QList<float> progress_;
};

// A sleep that counts what was asked and waits only a token time.
class RecordingSleep
{
public:
    void operator()(int ms)
    {
        {
            std::lock_guard lock(m_mutex);
            m_calls.append(ms);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    int count(int ms) const
    {
        std::lock_guard lock(m_mutex);
        return int(m_calls.count(ms));
    }

private:
    mutable std::mutex m_mutex;
    QList<int> m_calls;
};
