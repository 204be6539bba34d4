#include "NameIndexKeeper.h"

#include "TWalkerSkipList.h"
#include "Walker.h"
#include "platform/linux/MountTable.h"

#include <QDateTime>
#include <QFile>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <map>

namespace {

constexpr uint32_t kWatchMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF |
                                IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;
// File systems stamp changes from a coarse clock that may lag the one read here by a few ticks.
constexpr int64_t kClockSlackNanos = 50'000'000;
constexpr size_t kListBuffer = 64 * 1024;

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

// The folder's change time, or -1 when it cannot be read or is no folder.
int64_t folderCtime(int dirFd, const char* path, int flags)
{
    struct statx info
    {
    };
    if (statx(dirFd, path, flags | AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE | STATX_CTIME, &info) != 0 ||
        !S_ISDIR(info.stx_mode))
        return -1;
    return ctimeOf(info);
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

int defaultWatchBudget()
{
    QFile file(QStringLiteral("/proc/sys/fs/inotify/max_user_watches"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    bool ok = false;
    const long max = file.readAll().trimmed().toLong(&ok);
    return ok && max > 0 ? static_cast<int>(std::min<long>(max / 4 * 3, INT_MAX)) : 0;
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
        const std::vector<NameIndex::Id> ids = m_keeper.m_index->addMany(id, batch.items);
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
    m_watchBudget = m_options.watchLimit < 0 ? defaultWatchBudget() : m_options.watchLimit;
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
    if (m_inotify >= 0)
        ::close(m_inotify);
    if (m_wakeFd >= 0)
        ::close(m_wakeFd);
    m_inotify = m_wakeFd = -1;
    {
        std::lock_guard lock(m_stateMutex);
        m_ready = false;
    }
    m_stateChanged.notify_all();
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
    qint64 tables = 0;
    {
        std::lock_guard lock(m_folderMutex);
        // A map node is its payload, a next pointer and the allocator's header; a bucket is a pointer.
        tables += static_cast<qint64>(m_folders.size() * (sizeof(std::pair<NameIndex::Id, FolderRecord>) + 24) +
                                      m_folders.bucket_count() * sizeof(void*));
        tables += static_cast<qint64>(m_byWatch.size() * (sizeof(std::pair<int, NameIndex::Id>) + 24) +
                                      m_byWatch.bucket_count() * sizeof(void*));
        for (const auto& [id, record] : m_folders)
            s.unwatchedFolders += record.wd < 0 ? 1 : 0;
    }
    s.memoryBytes = usage.memoryBytes + tables;
    std::lock_guard lock(m_stateMutex);
    s.problem = m_problem;
    s.lastSweepMsecs = m_lastSweep;
    s.lastSweepDurationMsecs = m_lastSweepDuration;
    s.lastSweepFolders = m_lastSweepFolders;
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

void NameIndexKeeper::addWatch(NameIndex::Id id, int fd, FolderRecord& record)
{
    if (record.wd >= 0 || m_inotify < 0 || m_watchesExhausted || m_watches.load() >= m_watchBudget)
        return;
    // Through the open descriptor: the folder listed, not whatever its path names by now.
    char procPath[64];
    std::snprintf(procPath, sizeof procPath, "/proc/self/fd/%d", fd);
    const int wd = inotify_add_watch(m_inotify, procPath, kWatchMask);
    if (wd < 0) {
        if (errno == ENOSPC)
            m_watchesExhausted = true;
        return;
    }
    const auto [it, inserted] = m_byWatch.try_emplace(wd, id);
    if (!inserted && it->second != id)
        return; // the same folder seen twice (a bind mount): the other copy is swept
    record.wd = wd;
    if (inserted)
        ++m_watches;
}

void NameIndexKeeper::folderListed(NameIndex::Id id, int fd, int64_t listedAfter)
{
    const int64_t ctime = folderCtime(fd, "", AT_EMPTY_PATH);
    std::lock_guard lock(m_folderMutex);
    FolderRecord& record = m_folders[id];
    record.ctime = ctime;
    addWatch(id, fd, record);
    // Changed since just before its listing: what the listing saw may be old, and the watch came later.
    if (ctime < 0 || ctime >= listedAfter - kClockSlackNanos)
        m_changedWhileListing.insert(id);
}

void NameIndexKeeper::folderUnreadable(NameIndex::Id id, const std::string& path)
{
    const int64_t ctime = folderCtime(AT_FDCWD, path.c_str(), 0);
    std::lock_guard lock(m_folderMutex);
    m_folders[id].ctime = ctime;
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
    {
        const int64_t ctime = folderCtime(fd, "", AT_EMPTY_PATH);
        std::lock_guard lock(m_folderMutex);
        FolderRecord& record = m_folders[id];
        record.ctime = ctime;
        addWatch(id, fd, record);
    }
    const std::string_view excluded = TWalkerSkipList::shared().excludedNameInFolder(path);
    std::map<std::string, bool> listed;
    std::vector<char> buffer(kListBuffer);
    for (;;) {
        const ssize_t got = getdents64(fd, buffer.data(), buffer.size());
        if (got <= 0)
            break;
        for (ssize_t pos = 0; pos < got;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + pos);
            pos += entry->d_reclen;
            const char* name = entry->d_name;
            if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
                continue;
            if (!excluded.empty() && excluded == name)
                continue;
            const bool folder = entry->d_type == DT_DIR || (entry->d_type == DT_UNKNOWN && isFolderAt(fd, name));
            listed.emplace(name, folder);
        }
    }
    ::close(fd);

    for (const NameIndex::ChildInfo& child : m_index->children(id)) {
        const auto it = listed.find(child.name);
        if (it != listed.end() && it->second == ((child.flags & NameIndex::Folder) != 0)) {
            listed.erase(it);
            continue;
        }
        m_index->remove(child.id, forget);
    }
    std::vector<std::pair<std::string, uint8_t>> fresh;
    fresh.reserve(listed.size());
    for (const auto& [name, folder] : listed) {
        const bool unentered = folder && isUnentered(childPath(path, name));
        fresh.emplace_back(
            name, static_cast<uint8_t>((folder ? NameIndex::Folder : 0) | (unentered ? NameIndex::Unentered : 0)));
    }
    const std::vector<NameIndex::Id> ids = m_index->addMany(id, fresh);
    for (size_t i = 0; i < fresh.size(); ++i) {
        if (fresh[i].second == NameIndex::Folder && ids[i] != NameIndex::kNone)
            walk(ids[i], childPath(path, fresh[i].first));
    }
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
        folders.reserve(all ? m_folders.size()
                            : m_folders.size() - std::min<size_t>(m_byWatch.size(), m_folders.size()));
        for (const auto& [id, record] : m_folders) {
            if (all || record.wd < 0)
                folders.push_back({NameIndex::kNone, id, record.ctime});
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
        const bool isFolder = (e.mask & IN_ISDIR) != 0;
        if (e.mask & (IN_CREATE | IN_MOVED_TO)) {
            if (e.mask & IN_MOVED_TO) {
                if (const auto it = movedAway.find(e.cookie); it != movedAway.end()) {
                    m_index->move(it->second, dir, e.name, forget);
                    movedAway.erase(it);
                    continue;
                }
            }
            const std::string parent = m_index->path(dir);
            if (parent.empty() || TWalkerSkipList::shared().isInExcludeListName(e.name, parent))
                continue;
            const std::string full = childPath(parent, e.name);
            const bool unentered = isFolder && isUnentered(full);
            const NameIndex::Id added = m_index->add(dir, e.name, isFolder, unentered);
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
    // Moved out of what is indexed.
    for (const auto& [cookie, id] : movedAway)
        m_index->remove(id, forget);
    for (const NameIndex::Id id : toRead)
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
        const int timeout = static_cast<int>(
            std::max<int64_t>(0, std::chrono::duration_cast<std::chrono::milliseconds>(nextSweep - now).count()));
        pollfd fds[2] = {{m_wakeFd, POLLIN, 0}, {m_inotify, POLLIN, 0}};
        const int ready = ::poll(fds, m_inotify >= 0 ? 2 : 1, timeout);
        if (m_stop)
            break;
        if (ready > 0 && (fds[0].revents & POLLIN)) {
            uint64_t count = 0;
            [[maybe_unused]] const ssize_t got = ::read(m_wakeFd, &count, sizeof count);
        }
        if (m_inotify >= 0 && ready > 0 && (fds[1].revents & POLLIN))
            handleEvents();
        readChangedWhileListing();
        if (m_overflow.exchange(false)) {
            {
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
