#include "NameIndexKeeper.h"

#include "TWalkerSkipList.h"
#include "Walker.h"
#include "platform/linux/MountTable.h"
#include "util/DirectoryListing.h"

#include <QDateTime>
#include <QFile>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/fanotify.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <map>
#include <utility>

namespace {

constexpr uint32_t kWatchMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF |
                                IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;
// What a mark reports: names added, removed or renamed in the folder, folders among them (FAN_ONDIR),
// and rights changed on a child (FAN_EVENT_ON_CHILD), which may make a child folder listable or not.
// The folder's own deletion or move needs nothing: its parent's events, or its sweep, report it, and
// unmounts come from the mount table.
constexpr uint64_t kMarkMask = FAN_CREATE | FAN_DELETE | FAN_RENAME | FAN_ATTRIB | FAN_ONDIR | FAN_EVENT_ON_CHILD;
// File systems stamp changes from a coarse clock that may lag the one read here by a few ticks.
constexpr int64_t kClockSlackNanos = 50'000'000;
constexpr size_t kListBuffer = 64 * 1024;
// Events about one folder in one read beyond which the folder is read again instead.
constexpr int kManyChanges = 64;

int64_t nowNanos()
{
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

int64_t ctimeOf(const struct statx& info)
{
    return static_cast<int64_t>(info.stx_ctime.tv_sec) * 1'000'000'000 + info.stx_ctime.tv_nsec;
}

struct FolderStat
{
    int64_t ctime = -1; // -1 when it cannot be read or is no folder
    uint64_t dev = 0;
    uint64_t inode = 0;
};

FolderStat statFolder(int dirFd, const char* path, int flags)
{
    struct statx info
    {
    };
    if (statx(dirFd, path, flags | AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE | STATX_CTIME | STATX_INO,
              &info) != 0 ||
        !S_ISDIR(info.stx_mode))
        return {};
    return {ctimeOf(info), makedev(info.stx_dev_major, info.stx_dev_minor), info.stx_ino};
}

// The folder's change time, or -1 when it cannot be read or is no folder.
int64_t folderCtime(int dirFd, const char* path, int flags)
{
    return statFolder(dirFd, path, flags).ctime;
}

bool isFolderAt(int dirFd, const char* name)
{
    struct statx info
    {
    };
    return statx(dirFd, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE, &info) == 0 && S_ISDIR(info.stx_mode);
}

std::string childPath(const std::string& parent, std::string_view name)
{
    std::string path = parent;
    if (path.empty() || path.back() != '/')
        path.push_back('/');
    path.append(name);
    return path;
}

// Three quarters of a per-user kernel limit: the rest is left to the user's other programs.
int defaultBudget(const QString& limitFile)
{
    QFile file(limitFile);
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    bool ok = false;
    const long max = file.readAll().trimmed().toLong(&ok);
    return ok && max > 0 ? static_cast<int>(std::min<long>(max / 4 * 3, INT_MAX)) : 0;
}

uint64_t fsidBits(const void* fsid)
{
    uint64_t bits = 0;
    std::memcpy(&bits, fsid, sizeof bits);
    return bits;
}

// A handle key: the file system's number, the handle's type, its bytes.
bool makeHandleKey(size_t fileSystem, int type, std::string_view bytes, std::string& key)
{
    if (fileSystem > 0xff || type < 0 || type > 0xff)
        return false;
    key.clear();
    key.push_back(static_cast<char>(fileSystem));
    key.push_back(static_cast<char>(type));
    key.append(bytes);
    return true;
}

// The file handle of what dirFd and path name (AT_EMPTY_PATH in flags: dirFd itself): its type and
// bytes; false when the file system gives none.
bool handleOf(int dirFd, const char* path, int flags, int& type, std::string& bytes)
{
    alignas(file_handle) unsigned char storage[sizeof(file_handle) + MAX_HANDLE_SZ] = {};
    auto* handle = reinterpret_cast<file_handle*>(storage);
    handle->handle_bytes = MAX_HANDLE_SZ;
    int mountId = 0;
    if (name_to_handle_at(dirFd, path, handle, &mountId, flags) != 0)
        return false;
    type = handle->handle_type;
    bytes.assign(reinterpret_cast<const char*>(storage + sizeof(file_handle)), handle->handle_bytes);
    return true;
}

// Never 0, which stands for no mark.
uint64_t hashOfKey(const std::string& key)
{
    const uint64_t hash = std::hash<std::string>{}(key);
    return hash != 0 ? hash : 1;
}

} // namespace

// Adds what one walk lists to the index: each folder's names in one batch when its listing is over,
// then hands the folder ids to the child nodes the walker is about to enter.
class NameIndexKeeper::Builder : public WalkerDelegate
{
public:
    Builder(NameIndexKeeper& keeper, NameIndex::Id rootId, WalkerControl& control, int64_t startNanos)
        : m_keeper(keeper)
        , m_rootId(rootId)
        , m_control(control)
    {
        m_listedAfter[rootId] = startNanos;
        m_entered.insert(rootId);
    }

    void walkerEntryFound(const WalkerFolder& folder, std::string_view name, unsigned char type, int) override
    {
        Batch& batch = tBatch;
        if (batch.node != folder.node) {
            batch.node = folder.node;
            batch.items.clear();
        }
        const bool isFolder =
            type == DT_DIR || (type == DT_UNKNOWN && isFolderAt(folder.fd, std::string(name).c_str()));
        batch.items.emplace_back(std::string(name), isFolder ? NameIndex::Folder : 0);
    }

    void walkerFolderDone(const WalkerFolder& folder) override
    {
        Batch& batch = tBatch;
        if (batch.node != folder.node)
            batch.items.clear();
        batch.node = nullptr;
        WalkerNode* node = folder.node;
        const NameIndex::Id id =
            node->parent ? static_cast<NameIndex::Id>(reinterpret_cast<uintptr_t>(node->delegateData.load()) - 1)
                         : m_rootId;
        const std::vector<NameIndex::Id> ids =
            m_keeper.m_index->addMany(id, batch.items, [this](NameIndex::Id gone) { m_keeper.forgetFolder(gone); });
        if (m_keeper.m_index->usage().entries > m_keeper.m_options.maxEntries) {
            m_keeper.m_overLimit = true;
            m_control.cancel();
        }
        const int64_t now = nowNanos();
        int64_t listedAfter = 0;
        {
            std::lock_guard lock(m_mutex);
            listedAfter = m_listedAfter[id];
            m_listedAfter.erase(id);
            m_listed.insert(id);
            size_t j = 0;
            for (WalkerNode* child : node->children) {
                const std::string_view name = child->name();
                while (j < batch.items.size() &&
                       !(batch.items[j].second & NameIndex::Folder && batch.items[j].first == name))
                    ++j;
                if (j == batch.items.size())
                    break;
                if (ids[j] != NameIndex::kNone) {
                    child->delegateData.store(reinterpret_cast<void*>(static_cast<uintptr_t>(ids[j]) + 1));
                    m_listedAfter[ids[j]] = now;
                    m_entered.insert(ids[j]);
                }
                ++j;
            }
        }
        batch.items.clear();
        m_keeper.folderListed(id, folder.fd, listedAfter);
    }

    // Folders the walk meant to enter but could not list (no read right, vanished).
    std::vector<NameIndex::Id> unlisted() const
    {
        std::vector<NameIndex::Id> list;
        for (const NameIndex::Id id : m_entered) {
            if (!m_listed.contains(id))
                list.push_back(id);
        }
        return list;
    }

private:
    struct Batch
    {
        WalkerNode* node = nullptr;
        std::vector<std::pair<std::string, uint8_t>> items;
    };
    // One walk at a time per thread: the walker lists a folder whole before it enters another.
    static thread_local Batch tBatch;

    NameIndexKeeper& m_keeper;
    const NameIndex::Id m_rootId;
    WalkerControl& m_control;
    std::mutex m_mutex;
    std::unordered_map<NameIndex::Id, int64_t> m_listedAfter;
    std::unordered_set<NameIndex::Id> m_entered;
    std::unordered_set<NameIndex::Id> m_listed;
};

thread_local NameIndexKeeper::Builder::Batch NameIndexKeeper::Builder::tBatch;

NameIndexKeeper::NameIndexKeeper(Options options)
    : m_options(std::move(options))
    , m_index(std::make_unique<NameIndex>(m_options.rootPath))
{
    for (const std::string& path : MountTable::virtualMountPoints(MountTable::read()))
        m_unentered.insert(path);
    m_watchBudget = m_options.watchLimit < 0 ? defaultBudget(QStringLiteral("/proc/sys/fs/inotify/max_user_watches"))
                                             : m_options.watchLimit;
    m_markBudget = m_options.markLimit < 0 ? defaultBudget(QStringLiteral("/proc/sys/fs/fanotify/max_user_marks"))
                                           : m_options.markLimit;
}

NameIndexKeeper::~NameIndexKeeper()
{
    stop();
}

void NameIndexKeeper::start()
{
    if (m_thread.joinable())
        return;
    m_stop = false;
    m_wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_watchBudget > 0)
        m_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    openFanotify();
    m_mountInfo = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    m_building = true;
    m_thread = std::thread([this] { run(); });
}

void NameIndexKeeper::stop()
{
    m_stop = true;
    {
        std::lock_guard lock(m_stateMutex);
        if (m_walkControl)
            m_walkControl->cancel();
    }
    wake();
    if (m_thread.joinable())
        m_thread.join();
    for (const int fd : {m_inotify, m_fanotify, m_mountInfo, m_wakeFd}) {
        if (fd >= 0)
            ::close(fd);
    }
    m_inotify = m_fanotify = m_mountInfo = m_wakeFd = -1;
    {
        std::lock_guard lock(m_stateMutex);
        m_ready = false;
    }
    m_stateChanged.notify_all();
}

void NameIndexKeeper::openFanotify()
{
    std::lock_guard lock(m_stateMutex);
    if (m_markBudget <= 0) {
        m_marksProblem = QStringLiteral("fanotify marks turned off");
        return;
    }
    // Only what an ordinary user may ask for (Linux 5.13 on): notification, file handles, inode marks.
    m_fanotify = fanotify_init(FAN_CLASS_NOTIF | FAN_REPORT_DFID_NAME | FAN_CLOEXEC | FAN_NONBLOCK, O_RDONLY);
    if (m_fanotify < 0) {
        m_marksProblem = QStringLiteral("fanotify unavailable: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
        return;
    }
    m_markMask = kMarkMask;
}

void NameIndexKeeper::holdEvents(bool hold)
{
    m_holdEvents = hold;
    wake();
}

void NameIndexKeeper::wake()
{
    if (m_wakeFd >= 0) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(m_wakeFd, &one, sizeof one);
    }
}

bool NameIndexKeeper::waitUntilReady(std::chrono::milliseconds timeout) const
{
    std::unique_lock lock(m_stateMutex);
    return m_stateChanged.wait_for(lock, timeout, [this] { return isReady() || !m_building.load(); }) && isReady();
}

void NameIndexKeeper::simulateOverflow()
{
    m_overflow = true;
    wake();
}

void NameIndexKeeper::sweepNow()
{
    const qint64 before = m_sweepsDone.load();
    ++m_sweepRequests;
    wake();
    std::unique_lock lock(m_stateMutex);
    m_stateChanged.wait_for(lock, std::chrono::seconds(30), [&] { return m_sweepsDone.load() > before || m_stop; });
}

QList<NameIndex::Match> NameIndexKeeper::query(std::string_view needle, std::string_view folder, int limit) const
{
    if (!isReady())
        return {};
    const auto started = std::chrono::steady_clock::now();
    QList<NameIndex::Match> matches = m_index->query(needle, folder, limit);
    m_lastQueryMicros =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started).count();
    return matches;
}

NameIndexKeeper::State NameIndexKeeper::state() const
{
    State s;
    s.ready = isReady();
    s.building = m_building.load();
    const NameIndex::Usage usage = m_index->usage();
    s.entries = usage.entries;
    s.folders = usage.folders;
    s.nameBytes = usage.nameBytes;
    s.watches = m_watches.load();
    s.watchBudget = m_watchBudget;
    s.marks = m_marks.load();
    s.markBudget = m_fanotify >= 0 ? m_markBudget : 0;
    s.sweepIntervalMsecs = m_options.sweepInterval.count();
    qint64 tables = 0;
    {
        std::lock_guard lock(m_folderMutex);
        // A map node is its payload, a next pointer and the allocator's header; a bucket is a pointer.
        tables += static_cast<qint64>(m_folders.size() * (sizeof(std::pair<NameIndex::Id, FolderRecord>) + 24) +
                                      m_folders.bucket_count() * sizeof(void*));
        tables += static_cast<qint64>(m_byWatch.size() * (sizeof(std::pair<int, NameIndex::Id>) + 24) +
                                      m_byWatch.bucket_count() * sizeof(void*));
        tables += static_cast<qint64>(m_byHandle.size() * (sizeof(std::pair<uint64_t, NameIndex::Id>) + 24) +
                                      m_byHandle.bucket_count() * sizeof(void*));
        for (const auto& [id, record] : m_folders)
            s.unwatchedFolders += record.wd < 0 && !record.mark ? 1 : 0;
    }
    s.memoryBytes = usage.memoryBytes + tables;
    std::lock_guard lock(m_stateMutex);
    s.problem = m_problem;
    s.lastSweepMsecs = m_lastSweep;
    s.lastSweepDurationMsecs = m_lastSweepDuration;
    s.lastSweepFolders = m_lastSweepFolders;
    s.marksProblem = m_marks.load() > 0 ? QString() : m_marksProblem;
    s.sweepsKeepUp = s.unwatchedFolders == 0 || s.sweepIntervalMsecs + m_lastSweepDuration <= 2000;
    s.lastSweepRereads = m_lastSweepRereads;
    s.sweeps = m_sweepsDone.load();
    s.overflows = m_overflows;
    s.buildMsecs = m_buildMsecs;
    s.lastQueryMicros = m_lastQueryMicros.load();
    return s;
}

bool NameIndexKeeper::isUnentered(const std::string& path) const
{
    return !m_unentered.empty() && m_unentered.contains(path);
}

void NameIndexKeeper::addWatch(NameIndex::Id id, int fd, uint64_t dev, FolderRecord& record)
{
    // A folder listed again may be another one now at the same path (the old one moved or deleted):
    // then its watch or mark is the other's, and this one needs its own.
    if (record.mark) {
        addMark(id, fd, dev, record);
        return;
    }
    if (record.wd >= 0 || (m_inotify >= 0 && !m_watchesExhausted && m_watches.load() < m_watchBudget)) {
        // Through the open descriptor: the folder listed, not whatever its path names by now.
        char procPath[64];
        std::snprintf(procPath, sizeof procPath, "/proc/self/fd/%d", fd);
        const int wd = inotify_add_watch(m_inotify, procPath, kWatchMask);
        if (wd >= 0 && wd == record.wd)
            return; // the same folder: the kernel gives its watch again
        if (record.wd >= 0) {
            inotify_rm_watch(m_inotify, record.wd);
            m_byWatch.erase(record.wd);
            record.wd = -1;
            --m_watches;
        }
        if (wd >= 0) {
            const auto [it, inserted] = m_byWatch.try_emplace(wd, id);
            if (!inserted && it->second != id)
                return; // the same folder seen twice (a bind mount): the other copy is swept
            record.wd = wd;
            if (inserted)
                ++m_watches;
            return;
        }
        if (errno == ENOSPC)
            m_watchesExhausted = true;
    }
    addMark(id, fd, dev, record);
}

bool NameIndexKeeper::handleKey(int fd, uint64_t dev, std::string& key)
{
    size_t fileSystem = 0;
    while (fileSystem < m_fileSystems.size() && m_fileSystems[fileSystem].dev != dev)
        ++fileSystem;
    if (fileSystem == m_fileSystems.size()) {
        struct statfs info
        {
        };
        if (::fstatfs(fd, &info) != 0)
            return false;
        m_fileSystems.push_back({dev, fsidBits(&info.f_fsid)});
    }
    int type = 0;
    std::string bytes;
    return handleOf(fd, "", AT_EMPTY_PATH, type, bytes) && makeHandleKey(fileSystem, type, bytes, key);
}

bool NameIndexKeeper::addMark(NameIndex::Id id, int fd, uint64_t dev, FolderRecord& record)
{
    if (m_fanotify < 0 || m_marksExhausted || m_marks.load() >= m_markBudget)
        return false;
    std::string key;
    if (!handleKey(fd, dev, key))
        return false; // a file system without file handles: swept
    const uint64_t hash = hashOfKey(key);
    if (record.mark == hash)
        return true;
    // Another folder now at this one's path: the old one's mark names it no more.
    if (record.mark)
        forgetMarkLocked(record);
    const auto [it, inserted] = m_byHandle.try_emplace(hash, id);
    if (!inserted)
        return false; // the same folder seen twice (a bind mount): the other copy is swept
    int result = fanotify_mark(m_fanotify, FAN_MARK_ADD, m_markMask, fd, nullptr);
    if (result != 0 && errno == EINVAL && (m_markMask & FAN_RENAME)) {
        // Before Linux 5.17 a rename comes as two events, each settled on its own.
        m_markMask = (m_markMask & ~uint64_t(FAN_RENAME)) | FAN_MOVED_FROM | FAN_MOVED_TO;
        result = fanotify_mark(m_fanotify, FAN_MARK_ADD, m_markMask, fd, nullptr);
    }
    if (result != 0) {
        if (errno == ENOSPC)
            m_marksExhausted = true;
        m_byHandle.erase(it);
        return false;
    }
    record.mark = hash;
    ++m_marks;
    return true;
}

// The kernel's mark stays until the folder's inode goes (a folder moved out of the index keeps it);
// without a descriptor for the folder it cannot be taken back here. Its events then name no folder.
void NameIndexKeeper::forgetMarkLocked(FolderRecord& record)
{
    m_byHandle.erase(record.mark);
    record.mark = 0;
    --m_marks;
}

void NameIndexKeeper::folderListed(NameIndex::Id id, int fd, int64_t listedAfter)
{
    const uint64_t dev = statFolder(fd, "", AT_EMPTY_PATH).dev;
    std::lock_guard lock(m_folderMutex);
    FolderRecord& record = m_folders[id];
    addWatch(id, fd, dev, record);
    // Read after the watch is taken: a change between the two would otherwise be neither reported nor
    // seen as new.
    const FolderStat stat = statFolder(fd, "", AT_EMPTY_PATH);
    const int64_t ctime = stat.ctime;
    record.ctime = ctime;
    record.inode = stat.inode;
    noteLostLocked(id, record);
    // Changed since just before its listing: what the listing saw may be old, and the watch came later.
    if (ctime < 0 || ctime >= listedAfter - kClockSlackNanos)
        m_changedWhileListing.insert(id);
}

void NameIndexKeeper::folderUnreadable(NameIndex::Id id, const std::string& path)
{
    const int64_t ctime = folderCtime(AT_FDCWD, path.c_str(), 0);
    std::lock_guard lock(m_folderMutex);
    FolderRecord& record = m_folders[id];
    record.ctime = ctime;
    noteLostLocked(id, record);
}

// A watched or marked folder is swept only while its path leads nowhere (it was on the move when
// read): so an idle sweep looks at nothing when every folder is watched or marked.
void NameIndexKeeper::noteLostLocked(NameIndex::Id id, const FolderRecord& record)
{
    if (record.ctime < 0 && (record.wd >= 0 || record.mark))
        m_lostFolders.insert(id);
    else
        m_lostFolders.erase(id);
}

// A folder whose path led nowhere when it was last read (it was being moved): what it holds is not
// known.
bool NameIndexKeeper::wasUnreadable(NameIndex::Id id) const
{
    std::lock_guard lock(m_folderMutex);
    const auto it = m_folders.find(id);
    return it != m_folders.end() && it->second.ctime < 0;
}

void NameIndexKeeper::forgetFolder(NameIndex::Id id)
{
    std::lock_guard lock(m_folderMutex);
    const auto it = m_folders.find(id);
    if (it == m_folders.end())
        return;
    if (it->second.wd >= 0) {
        inotify_rm_watch(m_inotify, it->second.wd);
        m_byWatch.erase(it->second.wd);
        --m_watches;
    }
    if (it->second.mark)
        forgetMarkLocked(it->second);
    m_lostFolders.erase(id);
    m_folders.erase(it);
}

void NameIndexKeeper::walk(NameIndex::Id id, const std::string& path)
{
    auto control = std::make_shared<WalkerControl>();
    Builder builder(*this, id, *control, nowNanos());
    WalkerOptions options;
    options.rootPath = path;
    options.delegate = &builder;
    options.unenteredFolders.assign(m_unentered.begin(), m_unentered.end());
    options.control = control;
    {
        std::lock_guard lock(m_stateMutex);
        if (m_stop)
            return;
        m_walkControl = control;
    }
    walkerScan(options);
    {
        std::lock_guard lock(m_stateMutex);
        m_walkControl.reset();
    }
    for (const NameIndex::Id unlisted : builder.unlisted())
        folderUnreadable(unlisted, m_index->path(unlisted));
}

void NameIndexKeeper::build()
{
    const auto started = std::chrono::steady_clock::now();
    walk(NameIndex::kRoot, m_options.rootPath);
    if (m_overLimit || m_stop) {
        std::lock_guard lock(m_stateMutex);
        m_problem = m_overLimit ? QStringLiteral("more than %1 names: no index kept").arg(m_options.maxEntries)
                                : QStringLiteral("stopped");
        return;
    }
    readChangedWhileListing();
    m_index->compact();
    std::lock_guard lock(m_stateMutex);
    m_buildMsecs =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started).count();
    m_lastSweep = QDateTime::currentMSecsSinceEpoch();
}

// Folders changed while they were listed are read again; reading one may find more.
void NameIndexKeeper::readChangedWhileListing()
{
    for (int round = 0; round < 8 && !m_stop; ++round) {
        std::set<NameIndex::Id> changed;
        {
            std::lock_guard lock(m_folderMutex);
            changed.swap(m_changedWhileListing);
        }
        if (changed.empty())
            break;
        for (const NameIndex::Id id : changed)
            reconcile(id);
    }
}

void NameIndexKeeper::reconcile(NameIndex::Id id)
{
    if (!m_index->isFolder(id))
        return;
    const std::string path = m_index->path(id);
    const auto forget = [this](NameIndex::Id gone) { forgetFolder(gone); };
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        // Unreadable now, or gone (its parent's turn removes it): nothing below it can be listed.
        m_index->clearChildren(id, forget);
        folderUnreadable(id, path);
        return;
    }
    bool replaced = false;
    {
        const FolderStat stat = statFolder(fd, "", AT_EMPTY_PATH);
        std::lock_guard lock(m_folderMutex);
        FolderRecord& record = m_folders[id];
        // Another folder now at this path (the one listed was moved away or deleted, and this one made
        // or moved in): what the index holds under it belongs to the other.
        replaced = record.inode != 0 && stat.inode != 0 && record.inode != stat.inode;
        record.ctime = stat.ctime;
        record.inode = stat.inode;
        // Another folder now at this path (a file system mounted or unmounted over it): mark that one.
        if (std::string key; record.mark && (!handleKey(fd, stat.dev, key) || hashOfKey(key) != record.mark))
            forgetMarkLocked(record);
        addWatch(id, fd, stat.dev, record);
        noteLostLocked(id, record);
    }
    if (replaced) {
        ::close(fd);
        m_index->clearChildren(id, forget);
        walk(id, path);
        return;
    }
    const std::string_view excluded = TWalkerSkipList::shared().excludedNameInFolder(path);
    struct Listed
    {
        bool folder;
        uint64_t inode;
    };
    std::map<std::string, Listed> listed;
    std::vector<char> buffer(kListBuffer);
    for (;;) {
        const ssize_t got = getdents64(fd, buffer.data(), buffer.size());
        if (got <= 0)
            break;
        bool ended = false;
        for (ssize_t pos = 0; pos < got;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + pos);
            pos += entry->d_reclen;
            ended = pos >= got && listingEndsAfter(entry->d_off);
            const char* name = entry->d_name;
            if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
                continue;
            if (!excluded.empty() && excluded == name)
                continue;
            const bool folder = entry->d_type == DT_DIR || (entry->d_type == DT_UNKNOWN && isFolderAt(fd, name));
            listed.emplace(name, Listed{folder, entry->d_ino});
        }
        if (ended)
            break;
    }
    ::close(fd);

    std::vector<NameIndex::Id> readAgain;
    for (const NameIndex::ChildInfo& child : m_index->children(id)) {
        const auto it = listed.find(child.name);
        if (it != listed.end() && it->second.folder == ((child.flags & NameIndex::Folder) != 0)) {
            // A folder replaced by another of the same name: its own reading finds out.
            if (it->second.folder && inodeDiffers(child.id, it->second.inode))
                readAgain.push_back(child.id);
            listed.erase(it);
            continue;
        }
        m_index->remove(child.id, forget);
    }
    std::vector<std::pair<std::string, uint8_t>> fresh;
    fresh.reserve(listed.size());
    for (const auto& [name, entry] : listed) {
        const bool unentered = entry.folder && isUnentered(childPath(path, name));
        fresh.emplace_back(name, static_cast<uint8_t>((entry.folder ? NameIndex::Folder : 0) |
                                                      (unentered ? NameIndex::Unentered : 0)));
    }
    const std::vector<NameIndex::Id> ids = m_index->addMany(id, fresh, forget);
    for (size_t i = 0; i < fresh.size(); ++i) {
        if (fresh[i].second == NameIndex::Folder && ids[i] != NameIndex::kNone)
            walk(ids[i], childPath(path, fresh[i].first));
    }
    for (const NameIndex::Id child : readAgain)
        reconcile(child);
}

// A mount point's entry names the folder beneath the mount, not its root: such a folder is read
// again with its parent, which costs one listing and changes nothing.
bool NameIndexKeeper::inodeDiffers(NameIndex::Id id, uint64_t inode) const
{
    std::lock_guard lock(m_folderMutex);
    const auto it = m_folders.find(id);
    return it != m_folders.end() && it->second.inode != 0 && it->second.inode != inode;
}

// One statx per folder, relative to its parent opened once for all its swept children (siblings come
// together once sorted by parent), so a quiet folder costs no path rebuilt and no allocation.
void NameIndexKeeper::sweep(bool all)
{
    const auto started = std::chrono::steady_clock::now();
    struct Swept
    {
        NameIndex::Id parent;
        NameIndex::Id id;
        int64_t ctime;
    };
    std::vector<Swept> folders;
    {
        std::lock_guard lock(m_folderMutex);
        if (all || m_folders.size() > m_byWatch.size() + m_byHandle.size()) {
            folders.reserve(all ? m_folders.size()
                                : m_folders.size() -
                                      std::min<size_t>(m_byWatch.size() + m_byHandle.size(), m_folders.size()));
            for (const auto& [id, record] : m_folders) {
                if (all || (record.wd < 0 && !record.mark))
                    folders.push_back({NameIndex::kNone, id, record.ctime});
            }
        }
        if (!all) {
            for (const NameIndex::Id id : m_lostFolders)
                folders.push_back({NameIndex::kNone, id, -1});
        }
    }
    for (Swept& folder : folders)
        folder.parent = m_index->parent(folder.id);
    std::sort(folders.begin(), folders.end(),
              [](const Swept& a, const Swept& b) { return a.parent != b.parent ? a.parent < b.parent : a.id < b.id; });

    std::vector<NameIndex::Id> changed;
    std::string name;
    NameIndex::Id openParent = NameIndex::kNone;
    int parentFd = -1;
    for (const Swept& folder : folders) {
        if (m_stop)
            break;
        int64_t ctime = -1;
        if (folder.parent == NameIndex::kNone) {
            // The root, or removed since the list was made (then path is empty and it is skipped).
            const std::string path = m_index->path(folder.id);
            if (path.empty())
                continue;
            ctime = folderCtime(AT_FDCWD, path.c_str(), 0);
        } else {
            if (folder.parent != openParent) {
                if (parentFd >= 0)
                    ::close(parentFd);
                openParent = folder.parent;
                const std::string parentPath = m_index->path(folder.parent);
                parentFd = parentPath.empty() ? -1 : ::open(parentPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
            }
            if (!m_index->nameInto(folder.id, name))
                continue; // removed meanwhile
            // A parent that cannot be opened (gone, moved): its own turn, or its parent's, repairs it.
            ctime = parentFd >= 0 ? folderCtime(parentFd, name.c_str(), 0) : -1;
        }
        if (ctime != folder.ctime || ctime < 0)
            changed.push_back(folder.id);
    }
    if (parentFd >= 0)
        ::close(parentFd);
    // After the pass: reading a folder may remove others from the index and reuse their numbers.
    qint64 reread = 0;
    for (const NameIndex::Id id : changed) {
        if (m_stop)
            break;
        reconcile(id);
        ++reread;
    }
    {
        std::lock_guard lock(m_stateMutex);
        m_lastSweep = QDateTime::currentMSecsSinceEpoch();
        m_lastSweepDuration =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started).count();
        m_lastSweepFolders = static_cast<qint64>(folders.size());
        m_lastSweepRereads = reread;
        ++m_sweepsDone;
    }
    m_stateChanged.notify_all();
}

void NameIndexKeeper::handleEvents()
{
    struct Event
    {
        int wd;
        uint32_t mask;
        uint32_t cookie;
        std::string name;
    };
    std::vector<Event> events;
    const size_t size = m_options.eventBufferBytes > 0
                            ? std::max(m_options.eventBufferBytes, sizeof(inotify_event) + NAME_MAX + 1)
                            : size_t(256 * 1024);
    std::vector<char> buffer(size);
    // Everything queued now, so a rename's two halves are seen together.
    for (;;) {
        const ssize_t got = ::read(m_inotify, buffer.data(), buffer.size());
        if (got <= 0)
            break;
        for (ssize_t pos = 0; pos < got;) {
            const auto* e = reinterpret_cast<const inotify_event*>(buffer.data() + pos);
            pos += static_cast<ssize_t>(sizeof(inotify_event) + e->len);
            events.push_back({e->wd, e->mask, e->cookie, e->len ? std::string(e->name) : std::string()});
        }
    }

    const auto forget = [this](NameIndex::Id gone) { forgetFolder(gone); };
    std::unordered_map<uint32_t, NameIndex::Id> movedAway;
    std::set<NameIndex::Id> toRead;
    // A folder with many names made or removed in one go (a copy, an archive unpacked, a clean-up) is
    // read once instead: each event alone would look through all its names.
    std::unordered_map<int, int> changesPerWatch;
    for (const Event& e : events) {
        if (e.mask & (IN_CREATE | IN_DELETE))
            ++changesPerWatch[e.wd];
    }
    for (const Event& e : events) {
        if (e.mask & IN_Q_OVERFLOW) {
            m_overflow = true;
            continue;
        }
        NameIndex::Id dir = NameIndex::kNone;
        {
            std::lock_guard lock(m_folderMutex);
            const auto it = m_byWatch.find(e.wd);
            if (it == m_byWatch.end())
                continue;
            dir = it->second;
            if (e.mask & IN_IGNORED) {
                // The folder is gone or its file system was unmounted: read its path again.
                m_byWatch.erase(it);
                --m_watches;
                if (auto record = m_folders.find(dir); record != m_folders.end() && record->second.wd == e.wd)
                    record->second.wd = -1;
            }
        }
        if (e.mask & IN_IGNORED) {
            toRead.insert(dir);
            continue;
        }
        if (e.name.empty()) {
            if (e.mask & IN_ATTRIB)
                toRead.insert(dir);
            continue;
        }
        if ((e.mask & (IN_CREATE | IN_DELETE)) && changesPerWatch[e.wd] >= kManyChanges) {
            toRead.insert(dir);
            continue;
        }
        const bool isFolder = (e.mask & IN_ISDIR) != 0;
        if (e.mask & (IN_CREATE | IN_MOVED_TO)) {
            if (e.mask & IN_MOVED_TO) {
                if (const auto it = movedAway.find(e.cookie); it != movedAway.end()) {
                    m_index->move(it->second, dir, e.name, forget);
                    if (wasUnreadable(it->second))
                        toRead.insert(it->second);
                    movedAway.erase(it);
                    continue;
                }
            }
            const std::string parent = m_index->path(dir);
            if (parent.empty() || TWalkerSkipList::shared().isInExcludeListName(e.name, parent))
                continue;
            const std::string full = childPath(parent, e.name);
            const bool unentered = isFolder && isUnentered(full);
            // A folder over one the index holds by that name: read again, so what is not there goes.
            if (isFolder && !unentered) {
                if (const NameIndex::Id known = m_index->child(dir, e.name);
                    known != NameIndex::kNone && m_index->isFolder(known)) {
                    toRead.insert(known);
                    continue;
                }
            }
            const NameIndex::Id added = m_index->add(dir, e.name, isFolder, unentered, forget);
            if (isFolder && !unentered && added != NameIndex::kNone)
                walk(added, full);
        } else if (e.mask & IN_MOVED_FROM) {
            if (const NameIndex::Id id = m_index->child(dir, e.name); id != NameIndex::kNone)
                movedAway[e.cookie] = id;
        } else if (e.mask & IN_DELETE) {
            if (const NameIndex::Id id = m_index->child(dir, e.name); id != NameIndex::kNone)
                m_index->remove(id, forget);
        } else if ((e.mask & IN_ATTRIB) && isFolder) {
            // Rights changed: its contents may have become listable, or not.
            if (const NameIndex::Id id = m_index->child(dir, e.name); id != NameIndex::kNone)
                toRead.insert(id);
        }
    }
    // Moved out of what is indexed, unless something came back by the same name meanwhile (then that
    // is read instead).
    for (const auto& [cookie, id] : movedAway) {
        const std::string path = m_index->path(id);
        struct statx info
        {
        };
        if (!path.empty() &&
            statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE, &info) == 0 &&
            S_ISDIR(info.stx_mode) == m_index->isFolder(id)) {
            if (m_index->isFolder(id))
                toRead.insert(id);
            continue;
        }
        m_index->remove(id, forget);
    }
    for (const NameIndex::Id id : toRead)
        reconcile(id);
}

// A name a fanotify event reports is looked up on disk, not taken from the event: the kernel merges
// a queued event with a later one for the same name (a creation and a deletion become one event
// with both bits), so only the disk says which came last.
void NameIndexKeeper::settle(NameIndex::Id dir, const std::string& name)
{
    const std::string parent = m_index->path(dir);
    if (parent.empty() || TWalkerSkipList::shared().isInExcludeListName(name, parent))
        return;
    const std::string full = childPath(parent, name);
    struct statx info
    {
    };
    const bool exists = statx(AT_FDCWD, full.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE, &info) == 0;
    const bool isFolder = exists && S_ISDIR(info.stx_mode);
    const NameIndex::Id known = m_index->child(dir, name);
    const auto forget = [this](NameIndex::Id gone) { forgetFolder(gone); };
    if (!exists) {
        if (known != NameIndex::kNone)
            m_index->remove(known, forget);
        return;
    }
    const bool unentered = isFolder && isUnentered(full);
    if (known != NameIndex::kNone && m_index->isFolder(known) == isFolder) {
        // Perhaps another folder by the same name by now, or its rights changed: read it again.
        if (isFolder && !unentered)
            reconcile(known);
        return;
    }
    const NameIndex::Id added = m_index->add(dir, name, isFolder, unentered, forget);
    if (isFolder && !unentered && added != NameIndex::kNone)
        walk(added, full);
}

// Whether the folder's path in the index leads to the folder the event names (by its handle).
bool NameIndexKeeper::pathIsCurrent(NameIndex::Id dir, const std::string& key) const
{
    const std::string path = m_index->path(dir);
    int type = 0;
    std::string bytes;
    if (path.empty() || !handleOf(AT_FDCWD, path.c_str(), 0, type, bytes))
        return false;
    // The key's first byte numbers the file system; the rest is the handle's type and bytes.
    return key.size() == 2 + bytes.size() && static_cast<unsigned char>(key[1]) == type &&
           std::string_view(key).substr(2) == bytes;
}

void NameIndexKeeper::handleMarkEvents()
{
    std::vector<MarkEvent> events;
    events.swap(m_laterMarkEvents);
    const size_t size = m_options.eventBufferBytes > 0
                            ? std::max(m_options.eventBufferBytes,
                                       sizeof(fanotify_event_metadata) + 2 * (MAX_HANDLE_SZ + NAME_MAX + 64))
                            : size_t(256 * 1024);
    std::vector<char> buffer(size);
    const auto readName = [&](const char* info, size_t length, MarkedName& out) {
        fanotify_event_info_fid fid{};
        file_handle handle{};
        if (length < sizeof fid + sizeof handle)
            return;
        std::memcpy(&fid, info, sizeof fid);
        std::memcpy(&handle, info + sizeof fid, sizeof handle);
        const char* bytes = info + sizeof fid + sizeof handle;
        if (sizeof fid + sizeof handle + handle.handle_bytes >= length)
            return;
        const uint64_t fsid = fsidBits(&fid.fsid);
        size_t fileSystem = 0;
        while (fileSystem < m_fileSystems.size() && m_fileSystems[fileSystem].fsid != fsid)
            ++fileSystem;
        if (fileSystem == m_fileSystems.size() ||
            !makeHandleKey(fileSystem, handle.handle_type, std::string_view(bytes, handle.handle_bytes), out.key))
            out.key.clear();
        const char* name = bytes + handle.handle_bytes;
        out.name.assign(name, strnlen(name, length - (sizeof fid + sizeof handle + handle.handle_bytes)));
    };
    // Everything queued now.
    while (m_fanotify >= 0 && !m_holdEvents) {
        const ssize_t got = ::read(m_fanotify, buffer.data(), buffer.size());
        if (got <= 0)
            break;
        for (ssize_t pos = 0; pos + static_cast<ssize_t>(sizeof(fanotify_event_metadata)) <= got;) {
            fanotify_event_metadata meta{};
            std::memcpy(&meta, buffer.data() + pos, sizeof meta);
            if (meta.event_len < sizeof meta || pos + static_cast<ssize_t>(meta.event_len) > got)
                break;
            MarkEvent event;
            event.mask = meta.mask;
            for (size_t at = meta.metadata_len; at + sizeof(fanotify_event_info_header) <= meta.event_len;) {
                fanotify_event_info_header header{};
                std::memcpy(&header, buffer.data() + pos + at, sizeof header);
                if (header.len == 0 || at + header.len > meta.event_len)
                    break;
                const char* info = buffer.data() + pos + at;
                if (header.info_type == FAN_EVENT_INFO_TYPE_DFID_NAME ||
                    header.info_type == FAN_EVENT_INFO_TYPE_OLD_DFID_NAME)
                    readName(info, header.len, event.from);
                else if (header.info_type == FAN_EVENT_INFO_TYPE_NEW_DFID_NAME)
                    readName(info, header.len, event.to);
                at += header.len;
            }
            if (meta.fd >= 0)
                ::close(meta.fd);
            events.push_back(std::move(event));
            pos += meta.event_len;
        }
    }

    // Events were lost: the sweep of every folder that follows finds what these say too.
    if (std::any_of(events.begin(), events.end(), [](const MarkEvent& e) { return e.mask & FAN_Q_OVERFLOW; })) {
        m_overflow = true;
        m_laterMarkEvents.clear();
        return;
    }
    const auto folderOf = [this](const MarkedName& name) {
        if (name.key.empty() || name.name.empty())
            return NameIndex::kNone;
        std::lock_guard lock(m_folderMutex);
        const auto it = m_byHandle.find(hashOfKey(name.key));
        return it == m_byHandle.end() ? NameIndex::kNone : it->second;
    };
    // Each folder's path checked once a round, until an entry moves.
    std::unordered_map<NameIndex::Id, bool> current;
    const auto isCurrent = [&](NameIndex::Id dir, const std::string& key) {
        const auto [it, fresh] = current.try_emplace(dir, false);
        if (fresh)
            it->second = pathIsCurrent(dir, key);
        return it->second;
    };
    // An event about a folder the index has at an old path waits a little for that move to be applied;
    // after about a second it is dropped, and a sweep of every folder finds what it said.
    const auto later = [&](MarkEvent& e) {
        if (++e.tries < 50)
            m_laterMarkEvents.push_back(std::move(e));
        else
            m_droppedEvent = true;
    };
    const auto forget = [this](NameIndex::Id gone) { forgetFolder(gone); };
    // As with watches: a folder with many changes in one read is read again once.
    std::unordered_map<std::string, int> changesPerFolder;
    for (const MarkEvent& e : events) {
        if (!(e.mask & FAN_RENAME))
            ++changesPerFolder[e.from.key];
    }
    std::set<NameIndex::Id> readAgain;
    for (MarkEvent& e : events) {
        const NameIndex::Id from = folderOf(e.from);
        if (e.mask & FAN_RENAME) {
            const NameIndex::Id to = folderOf(e.to);
            if ((from != NameIndex::kNone && !isCurrent(from, e.from.key)) ||
                (to != NameIndex::kNone && !isCurrent(to, e.to.key))) {
                later(e);
                continue;
            }
            // Both folders known and the disk agrees: a relink, however much is under the entry.
            if (const NameIndex::Id moved = from != NameIndex::kNone && to != NameIndex::kNone
                                                ? m_index->child(from, e.from.name)
                                                : NameIndex::kNone;
                moved != NameIndex::kNone) {
                const std::string fromPath = childPath(m_index->path(from), e.from.name);
                const std::string toParent = m_index->path(to);
                const std::string toPath = childPath(toParent, e.to.name);
                struct statx info
                {
                };
                if (!toParent.empty() && !TWalkerSkipList::shared().isInExcludeListName(e.to.name, toParent) &&
                    ::access(fromPath.c_str(), F_OK) != 0 &&
                    statx(AT_FDCWD, toPath.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE, &info) == 0 &&
                    S_ISDIR(info.stx_mode) == m_index->isFolder(moved) && !isUnentered(toPath)) {
                    m_index->move(moved, to, e.to.name, forget);
                    if (wasUnreadable(moved))
                        reconcile(moved);
                    current.clear();
                    continue;
                }
            }
            if (from != NameIndex::kNone)
                settle(from, e.from.name);
            if (to != NameIndex::kNone)
                settle(to, e.to.name);
            continue;
        }
        if (from == NameIndex::kNone)
            continue;
        if (!isCurrent(from, e.from.key)) {
            later(e);
            continue;
        }
        if (changesPerFolder[e.from.key] >= kManyChanges)
            readAgain.insert(from);
        else if (e.from.name == ".")
            reconcile(from); // the marked folder itself: its rights changed
        else
            settle(from, e.from.name);
    }
    for (const NameIndex::Id id : readAgain)
        reconcile(id);
}

void NameIndexKeeper::run()
{
    build();
    if (m_overLimit) {
        m_index->clearChildren(NameIndex::kRoot, [this](NameIndex::Id gone) { forgetFolder(gone); });
        m_index->compact();
    }
    const bool built = !m_overLimit && !m_stop;
    {
        // Under the lock, so a waiter between its test and its wait does not miss the news.
        std::lock_guard lock(m_stateMutex);
        m_ready = built;
        m_building = false;
    }
    m_stateChanged.notify_all();
    if (!built)
        return;

    auto nextSweep = std::chrono::steady_clock::now() + m_options.sweepInterval;
    while (!m_stop) {
        const auto now = std::chrono::steady_clock::now();
        int timeout = static_cast<int>(
            std::max<int64_t>(0, std::chrono::duration_cast<std::chrono::milliseconds>(nextSweep - now).count()));
        if (!m_laterMarkEvents.empty())
            timeout = std::min(timeout, 20);
        const bool held = m_holdEvents.load();
        // A negative descriptor is left out by poll.
        pollfd fds[4] = {{m_wakeFd, POLLIN, 0},
                         {held ? -1 : m_inotify, POLLIN, 0},
                         {held ? -1 : m_fanotify, POLLIN, 0},
                         {m_mountInfo, POLLPRI, 0}};
        const int ready = ::poll(fds, 4, timeout);
        if (m_stop)
            break;
        if (ready > 0 && (fds[0].revents & POLLIN)) {
            uint64_t count = 0;
            [[maybe_unused]] const ssize_t got = ::read(m_wakeFd, &count, sizeof count);
        }
        if (ready > 0 && (fds[1].revents & POLLIN))
            handleEvents();
        if ((ready > 0 && (fds[2].revents & POLLIN)) || !m_laterMarkEvents.empty())
            handleMarkEvents();
        // A file system mounted or unmounted: its marks went with it, and no event says so.
        const bool mountsChanged = ready > 0 && (fds[3].revents & (POLLPRI | POLLERR));
        readChangedWhileListing();
        const bool dropped = std::exchange(m_droppedEvent, false);
        if (const bool overflow = m_overflow.exchange(false); overflow || mountsChanged || dropped) {
            if (overflow) {
                std::lock_guard lock(m_stateMutex);
                ++m_overflows;
            }
            sweep(true);
            nextSweep = std::chrono::steady_clock::now() + m_options.sweepInterval;
        } else if (m_sweepRequests.exchange(0) > 0 || std::chrono::steady_clock::now() >= nextSweep) {
            // Sweeps start an interval apart, so a folder is looked at again after about one interval
            // however long a sweep takes; a slow one still leaves the thread some rest.
            const auto sweepStarted = std::chrono::steady_clock::now();
            sweep(false);
            nextSweep = std::max(sweepStarted + m_options.sweepInterval,
                                 std::chrono::steady_clock::now() + m_options.sweepInterval / 4);
        }
    }
}
