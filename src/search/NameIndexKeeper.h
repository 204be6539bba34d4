#pragma once

// Builds a NameIndex in the background with the walker (same skip list, same unentered mounts) and
// keeps it current on its own thread: inotify watches on folders while the watch budget lasts, and
// for the other folders a sweep every 1.5 s that reads again only those whose change time
// moved. A lost event (the queue overflowed) starts a sweep of every folder, never a silently wrong
// index. Folders changed while the build listed them are read again once it ends.
//
// Limits: at most maxEntries names (beyond it the index gives up and reports itself unavailable);
// names are raw bytes. Queries answer only once the build is over (isReady).

#include "NameIndex.h"

class WalkerControl;

#include <QList>
#include <QString>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

class NameIndexKeeper
{
public:
    struct Options
    {
        std::string rootPath;
        // Watches this keeper may add; -1: three quarters of fs.inotify.max_user_watches (the rest is
        // left to the user's other programs); 0: no watches, sweeps only.
        int watchLimit = -1;
        // From the start of one sweep to the next: a change beyond the watches shows within about this.
        std::chrono::milliseconds sweepInterval{1500};
        qint64 maxEntries = 30'000'000;
        // Kernel queue size is a system setting; tests shrink what one read takes instead (0: a full buffer).
        size_t eventBufferBytes = 0;
    };

    struct State
    {
        bool ready = false;
        bool building = false;
        QString problem; // why there is no index, when there is none
        qint64 entries = 0;
        qint64 folders = 0;
        qint64 nameBytes = 0;
        qint64 memoryBytes = 0;
        int watches = 0;
        int unwatchedFolders = 0;
        qint64 lastSweepMsecs = 0; // since the epoch; 0 before the first
        qint64 sweeps = 0;
        qint64 lastSweepDurationMsecs = 0; // how long the latest sweep took (the folders beyond the watches)
        qint64 lastSweepFolders = 0;       // folders it looked at
        qint64 lastSweepRereads = 0;       // folders it read again (their change time moved)
        qint64 overflows = 0;
        qint64 buildMsecs = 0;
        qint64 lastQueryMicros = -1; // how long the latest query took inside this process
    };

    explicit NameIndexKeeper(Options options);
    ~NameIndexKeeper();
    NameIndexKeeper(const NameIndexKeeper&) = delete;
    NameIndexKeeper& operator=(const NameIndexKeeper&) = delete;

    // Starts building, then watching, on the keeper's thread.
    void start();
    // Stops the thread (waits for a build to notice, at most one folder's listing).
    void stop();

    bool isReady() const { return m_ready.load(std::memory_order_acquire); }
    bool waitUntilReady(std::chrono::milliseconds timeout) const;
    State state() const;
    // Empty when not ready (see isReady).
    QList<NameIndex::Match> query(std::string_view needle, std::string_view folder = {}, int limit = 0) const;
    const NameIndex& index() const { return *m_index; }

    // Acts as if the kernel had dropped events: the next round sweeps every folder.
    void simulateOverflow();
    // Runs the next sweep now, not at its time (waits for it).
    void sweepNow();

private:
    struct FolderRecord
    {
        int wd = -1;
        int64_t ctime = -1; // nanoseconds; -1 when it could not be read
    };
    class Builder;
    friend class Builder;

    void run();
    void build();
    void walk(NameIndex::Id id, const std::string& path);
    void folderListed(NameIndex::Id id, int fd, int64_t listedAfter);
    void folderUnreadable(NameIndex::Id id, const std::string& path);
    void forgetFolder(NameIndex::Id id);
    void addWatch(NameIndex::Id id, int fd, FolderRecord& record);
    void handleEvents();
    void reconcile(NameIndex::Id id);
    void sweep(bool all);
    bool isUnentered(const std::string& path) const;
    void wake();

    const Options m_options;
    std::unique_ptr<NameIndex> m_index;
    std::unordered_set<std::string> m_unentered;
    std::thread m_thread;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_ready{false};
    std::atomic<bool> m_building{false};
    std::atomic<bool> m_overflow{false};
    std::atomic<int> m_sweepRequests{0};
    std::atomic<qint64> m_sweepsDone{0};
    mutable std::atomic<qint64> m_lastQueryMicros{-1};
    int m_inotify = -1;
    int m_wakeFd = -1;
    int m_watchBudget = 0;
    std::atomic<int> m_watches{0};
    bool m_watchesExhausted = false;

    mutable std::mutex m_folderMutex; // the folder records and the watch map
    std::unordered_map<NameIndex::Id, FolderRecord> m_folders;
    std::unordered_map<int, NameIndex::Id> m_byWatch;
    std::set<NameIndex::Id> m_changedWhileListing;
    std::atomic<qint64> m_entriesAdded{0};
    std::atomic<bool> m_overLimit{false};
    std::shared_ptr<WalkerControl> m_walkControl; // the walk under way, for stop (under m_stateMutex)
    void readChangedWhileListing();

    mutable std::mutex m_stateMutex;
    mutable std::condition_variable m_stateChanged;
    QString m_problem;
    qint64 m_lastSweep = 0;
    qint64 m_lastSweepDuration = 0;
    qint64 m_lastSweepFolders = 0;
    qint64 m_lastSweepRereads = 0;
    qint64 m_overflows = 0;
    qint64 m_buildMsecs = 0;
};
