#pragma once

// Builds a NameIndex in the background with the walker (same skip list, same unentered mounts) and
// keeps it current on its own thread: inotify watches on folders while the watch budget lasts, then
// fanotify inode marks (a budget of their own, open to ordinary users since Linux 5.13) while that
// lasts, and for the other folders a sweep every 1.5 s that reads again only those whose change time
// moved. A lost event (either queue overflowed) or a change of the mount table starts a sweep of every
// folder, never a silently wrong index. Folders changed while the build listed them are read again
// once it ends.
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
        // fanotify marks for the folders beyond the watches; -1: three quarters of
        // fs.fanotify.max_user_marks; 0: none (also when the kernel refuses fanotify).
        int markLimit = -1;
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
        int watchBudget = 0;
        int marks = 0;
        int markBudget = 0;
        QString marksProblem;     // why no fanotify marks are used, when none are
        int unwatchedFolders = 0; // folders neither watched nor marked: swept
        qint64 sweepIntervalMsecs = 0;
        // A change in a swept folder shows within sweepIntervalMsecs plus a sweep's duration; false when
        // that is above 2 s.
        bool sweepsKeepUp = true;
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
    // While held, kernel events are left queued (tests fill a queue with it).
    void holdEvents(bool hold);

private:
    struct FolderRecord
    {
        int wd = -1;
        int64_t ctime = -1; // nanoseconds; -1 when it could not be read
        uint64_t mark = 0;  // a fanotify-marked folder's key in m_byHandle
        uint64_t inode = 0; // which folder was listed: another may come to stand at its path
    };
    struct MarkedName
    {
        std::string key; // the folder's handle key; empty when its file system is unknown
        std::string name;
    };
    struct MarkEvent
    {
        uint64_t mask = 0;
        MarkedName from; // the name (".": the folder itself), or a rename's old name
        MarkedName to;   // a rename's new name
        int tries = 0;
    };
    class Builder;
    friend class Builder;

    void run();
    void build();
    void walk(NameIndex::Id id, const std::string& path);
    void folderListed(NameIndex::Id id, int fd, int64_t listedAfter);
    void folderUnreadable(NameIndex::Id id, const std::string& path);
    void forgetFolder(NameIndex::Id id);
    bool wasUnreadable(NameIndex::Id id) const;
    bool inodeDiffers(NameIndex::Id id, uint64_t inode) const;
    void noteLostLocked(NameIndex::Id id, const FolderRecord& record);
    void addWatch(NameIndex::Id id, int fd, uint64_t dev, FolderRecord& record);
    bool addMark(NameIndex::Id id, int fd, uint64_t dev, FolderRecord& record);
    bool handleKey(int fd, uint64_t dev, std::string& key);
    void forgetMarkLocked(FolderRecord& record);
    void openFanotify();
    void handleEvents();
    void handleMarkEvents();
    void settle(NameIndex::Id dir, const std::string& name);
    bool pathIsCurrent(NameIndex::Id dir, const std::string& key) const;
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
    bool m_droppedEvent = false; // a fanotify event given up on: the keeper's thread sweeps every folder
    std::atomic<int> m_sweepRequests{0};
    std::atomic<qint64> m_sweepsDone{0};
    mutable std::atomic<qint64> m_lastQueryMicros{-1};
    int m_inotify = -1;
    int m_wakeFd = -1;
    int m_watchBudget = 0;
    std::atomic<int> m_watches{0};
    bool m_watchesExhausted = false;
    int m_fanotify = -1;
    int m_mountInfo = -1; // /proc/self/mountinfo: readable for a priority event when a mount comes or goes
    int m_markBudget = 0;
    uint64_t m_markMask = 0;
    std::atomic<int> m_marks{0};
    bool m_marksExhausted = false;
    QString m_marksProblem;
    std::atomic<bool> m_holdEvents{false};
    // Events about a folder whose path in the index is not yet its path on disk (its move comes through
    // the inotify queue, read later): tried again on the next rounds.
    std::vector<MarkEvent> m_laterMarkEvents;
    // The file systems seen, by device number, with the id events name them by; a handle key starts
    // with the position here.
    struct FileSystem
    {
        uint64_t dev;
        uint64_t fsid;
    };
    std::vector<FileSystem> m_fileSystems;

    mutable std::mutex m_folderMutex; // the folder records and the watch map
    std::unordered_map<NameIndex::Id, FolderRecord> m_folders;
    std::unordered_map<int, NameIndex::Id> m_byWatch;
    // A marked folder's file handle (file system number, handle type, handle bytes), hashed, to its
    // entry. Two handles with one hash do no harm: an event's folder is used only once its path in the
    // index is found to lead to the event's handle (pathIsCurrent), and the second such folder is swept.
    std::unordered_map<uint64_t, NameIndex::Id> m_byHandle;
    std::set<NameIndex::Id> m_changedWhileListing;
    std::set<NameIndex::Id> m_lostFolders; // watched or marked, but their path led nowhere when last read
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
