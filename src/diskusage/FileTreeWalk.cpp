#include "FileTreeWalk.h"

#include "util/DirectoryListing.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

constexpr std::size_t kBufferSize = 64 * 1024;
constexpr int kMaxThreads = 8;

// No automount: a walk must not wake an autofs trigger; DONT_SYNC: network file systems answer from cache.
constexpr int kStatFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;

bool isDot(const char* name)
{
    return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

} // namespace

// The folders still to read, shared by the threads of one walk. busy counts folders being read: the
// walk ends when the stack is empty and nobody is reading, since only a reader can push more.
struct FileTreeWalk::Shared
{
    std::mutex mutex;
    std::condition_variable wake;
    std::vector<std::string> stack;
    int busy = 0;
    dev_t dev = 0;
    const std::atomic<bool>* cancel = nullptr;
    std::vector<Unreadable> unreadable;
    std::uint64_t unreadableCount = 0;

    bool cancelled() const { return cancel && cancel->load(std::memory_order_relaxed); }

    void noteUnreadable(const std::string& path, int error)
    {
        std::lock_guard lock(mutex);
        ++unreadableCount;
        if (unreadable.size() < kMaxUnreadable)
            unreadable.push_back({path, error});
    }
};

struct FileTreeWalk::Worker
{
    Shared& shared;
    const Visitor& visit;
    const unsigned mask;
    const int index;
    std::vector<std::string> found;
    std::unique_ptr<char[]> buffer{new char[kBufferSize]};

    Worker(Shared& s, const Visitor& v, unsigned m, int i)
        : shared(s)
        , visit(v)
        , mask(m)
        , index(i)
    {
    }

    // Takes folders until the walk is over or cancelled.
    void run()
    {
        std::string path;
        for (;;) {
            {
                std::unique_lock lock(shared.mutex);
                shared.wake.wait(lock, [&] { return !shared.stack.empty() || shared.busy == 0 || shared.cancelled(); });
                if (shared.stack.empty() || shared.cancelled()) {
                    shared.wake.notify_all();
                    return;
                }
                path = std::move(shared.stack.back());
                shared.stack.pop_back();
                ++shared.busy;
            }
            scan(path, false);
            std::lock_guard lock(shared.mutex);
            --shared.busy;
            const bool more = !found.empty();
            for (auto& dir : found)
                shared.stack.push_back(std::move(dir));
            found.clear();
            if (more || shared.busy == 0)
                shared.wake.notify_all();
        }
    }

    void scan(const std::string& path, bool isRoot)
    {
        // Below the root a folder is opened without following: it was a folder when listed, and a
        // symbolic link put in its place since then must not lead the walk elsewhere.
        const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | (isRoot ? 0 : O_NOFOLLOW));
        if (fd < 0) {
            if (errno != ENOENT)
                shared.noteUnreadable(path, errno);
            return;
        }
        const bool slash = !path.empty() && path.back() == '/';
        for (;;) {
            const ssize_t n = ::getdents64(fd, buffer.get(), kBufferSize);
            if (n == 0)
                break;
            if (n < 0) {
                shared.noteUnreadable(path, errno);
                break;
            }
            bool ended = false;
            for (ssize_t offset = 0; offset < n;) {
                const auto* entry = reinterpret_cast<const dirent64*>(buffer.get() + offset);
                offset += entry->d_reclen;
                ended = offset >= n && listingEndsAfter(entry->d_off);
                if (isDot(entry->d_name))
                    continue;
                struct statx st;
                // A folder needs only its type and mount facts.
                if (::statx(fd, entry->d_name, kStatFlags, entry->d_type == DT_DIR ? STATX_TYPE : STATX_TYPE | mask,
                            &st) != 0)
                    continue; // vanished since listed
                if (!S_ISDIR(st.stx_mode)) {
                    visit(index, path, entry->d_name, st);
                    continue;
                }
                const bool mountRoot =
                    (st.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) && (st.stx_attributes & STATX_ATTR_MOUNT_ROOT);
                if (mountRoot || makedev(st.stx_dev_major, st.stx_dev_minor) != shared.dev)
                    continue;
                std::string child;
                child.reserve(path.size() + 1 + std::strlen(entry->d_name));
                child.append(path);
                if (!slash)
                    child.push_back('/');
                child.append(entry->d_name);
                found.push_back(std::move(child));
            }
            if (ended)
                break;
        }
        ::close(fd);
    }
};

FileTreeWalk::FileTreeWalk(std::string root, Options options)
    : m_root(std::move(root))
    , m_options(options)
    , m_threads(options.threads > 0 ? options.threads
                                    : std::clamp(int(std::thread::hardware_concurrency()), 1, kMaxThreads))
{
}

bool FileTreeWalk::run(const Visitor& visit)
{
    struct statx st;
    if (::statx(AT_FDCWD, m_root.c_str(), AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, STATX_TYPE, &st) != 0 ||
        !S_ISDIR(st.stx_mode))
        return false;

    Shared shared;
    shared.dev = makedev(st.stx_dev_major, st.stx_dev_minor);
    shared.cancel = m_options.cancel;

    // The root is read first on this thread: with at most one subfolder, helper threads gain nothing,
    // and small folders are most of the calls.
    Worker first(shared, visit, m_options.statxMask, 0);
    first.scan(m_root, true);
    shared.stack = std::move(first.found);
    first.found.clear();

    std::vector<std::unique_ptr<Worker>> helpers;
    std::vector<std::thread> pool;
    if (shared.stack.size() >= 2) {
        for (int i = 1; i < m_threads; ++i) {
            helpers.push_back(std::make_unique<Worker>(shared, visit, m_options.statxMask, i));
            pool.emplace_back([worker = helpers.back().get()] { worker->run(); });
        }
    }
    first.run();
    for (auto& thread : pool)
        thread.join();

    m_cancelled = shared.cancelled();
    m_unreadable = std::move(shared.unreadable);
    m_unreadableCount = shared.unreadableCount;
    return true;
}
