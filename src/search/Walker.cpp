#include "Walker.h"

#include "TWalkerSkipList.h"
#include "util/DirectoryListing.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_set>

namespace {

// A new walk may be handed to another thread while at most this many walks are active.
constexpr int32_t kMaxActiveForNewWalk = 5;
// The starting walk plus five handed-off walks, and six once the starting walk has returned.
constexpr size_t kMaxWalkerThreads = 6;
constexpr size_t kListBufferSize = 64 * 1024;
constexpr int kOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr useconds_t kCancelPollMicros = 1000;
constexpr long kCancelMaxPolls = 5000;
constexpr useconds_t kEndPollMicros = 5000;
// Descriptors run out for a moment while other walkers hold theirs: wait this long before giving up.
constexpr int kOpenRetries = 200;
constexpr useconds_t kOpenRetryMicros = 1000;
// Longest relative path handed to one openat when a folder is opened in steps.
constexpr size_t kStepPathMax = PATH_MAX - 256;

std::atomic<int> gVerbose{-1}; // -1: not decided yet, read the environment

constexpr std::array<char, 256> makeFoldTable()
{
    std::array<char, 256> table{};
    for (int i = 0; i < 256; ++i)
        table[static_cast<size_t>(i)] = static_cast<char>(i >= 'A' && i <= 'Z' ? i + ('a' - 'A') : i);
    return table;
}
constexpr std::array<char, 256> kFold = makeFoldTable();

// Scans running now, for walkerCancel; and the latest one, for walkerTotalFiles.
std::mutex gLiveMutex;
std::vector<std::shared_ptr<WalkerControl>> gLive;
std::shared_ptr<WalkerControl> gLatest;

} // namespace

struct ScanAccess
{
    static std::atomic<bool>& stop(WalkerControl& c) { return c.m_stop; }
    static std::atomic<bool>& finished(WalkerControl& c) { return c.m_finished; }
    static std::atomic<int32_t>& active(WalkerControl& c) { return c.m_active; }
    static std::atomic<int32_t>& files(WalkerControl& c) { return c.m_filesSeen; }
    static std::atomic<int32_t>& skipped(WalkerControl& c) { return c.m_skipped; }
};

namespace {

// What the walkers of one scan share.
struct ScanContext
{
    WalkerControl* control = nullptr;
    WalkerDelegate* delegate = nullptr;
    const TWalkerSkipList* skipList = nullptr;
    std::string needle; // folded
    int rootFd = -1;    // kept for the whole scan: deep folders are opened in steps from it
    size_t rootLength = 0;
    // Folders whose descriptor is kept open for their children; above the budget children are
    // opened by path instead, so a deep or wide tree cannot run out of descriptors.
    int descriptorBudget = 0;
    std::atomic<int> keptDescriptors{0};
    std::unordered_set<std::string_view> unentered;
    // Their lengths: most folders are told apart by length alone, without hashing their path.
    std::vector<size_t> unenteredLengths;

    bool running() const { return !control->cancelled(); }
    std::atomic<int32_t>& active() { return ScanAccess::active(*control); }

    bool isUnentered(std::string_view path) const
    {
        if (unentered.empty())
            return false;
        if (path.starts_with("//")) // below a root of "/"
            path.remove_prefix(1);
        return std::find(unenteredLengths.begin(), unenteredLengths.end(), path.size()) != unenteredLengths.end() &&
               unentered.contains(path);
    }

    std::mutex mutex;
    std::condition_variable wake;
    std::vector<WalkerNode*> queue; // handed-off walks not yet taken by a thread
    size_t idle = 0;
    bool stop = false;
    std::vector<std::thread> threads;
};

int descriptorBudgetFromLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 256;
    // Leave half of the descriptors to the rest of the program, but keep a few even under a low limit:
    // without any, every folder of a deep chain is opened from the root in steps.
    const rlim_t half = limit.rlim_cur / 2;
    return static_cast<int>(std::clamp<rlim_t>(half > 64 ? half - 64 : 0, limit.rlim_cur / 4, 4096));
}

void releaseParentDescriptor(ScanContext& scan, WalkerNode* parent)
{
    if (parent->fd >= 0 && parent->pendingOpens.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        close(parent->fd);
        scan.keptDescriptors.fetch_sub(1, std::memory_order_relaxed);
    }
}

// Opens a folder whose path is too long for one call: relative to the root, a piece of at most
// kStepPathMax bytes at a time, so two descriptors at most are held.
int openInSteps(const ScanContext& scan, const std::string& path)
{
    if (scan.rootFd < 0 || path.size() <= scan.rootLength + 1)
        return -1;
    std::string_view rest = std::string_view(path).substr(scan.rootLength + 1);
    int fd = scan.rootFd;
    while (!rest.empty()) {
        size_t take = rest.size();
        if (take > kStepPathMax) {
            take = rest.rfind('/', kStepPathMax);
            if (take == std::string_view::npos || take == 0) {
                if (fd != scan.rootFd)
                    close(fd);
                errno = ENAMETOOLONG;
                return -1;
            }
        }
        const std::string piece(rest.substr(0, take));
        rest.remove_prefix(std::min(rest.size(), take + 1));
        const int next = openat(fd, piece.c_str(), rest.empty() ? kOpenFlags : (O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        const int savedErrno = errno;
        if (fd != scan.rootFd)
            close(fd);
        if (next < 0) {
            errno = savedErrno;
            return -1;
        }
        fd = next;
    }
    return fd;
}

int openOnce(ScanContext& scan, WalkerNode* node)
{
    WalkerNode* parent = node->parent;
    if (parent->fd >= 0)
        return openat(parent->fd, node->path.c_str() + node->nameOffset, kOpenFlags);
    if (node->path.size() < PATH_MAX) {
        const int fd = open(node->path.c_str(), kOpenFlags);
        if (fd >= 0 || errno != ENAMETOOLONG)
            return fd;
    }
    return openInSteps(scan, node->path);
}

int openNode(ScanContext& scan, WalkerNode* node)
{
    WalkerNode* parent = node->parent;
    if (!parent) // the root the user named may itself be a link to a folder
        return open(node->path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    int fd = openOnce(scan, node);
    for (int retry = 0; fd < 0 && (errno == EMFILE || errno == ENFILE) && retry < kOpenRetries && scan.running();
         ++retry) {
        usleep(kOpenRetryMicros);
        fd = openOnce(scan, node);
    }
    const int savedErrno = errno;
    releaseParentDescriptor(scan, parent);
    errno = savedErrno;
    return fd;
}

bool isDirectoryByStat(int dirFd, const char* name)
{
    struct statx info
    {
    };
    if (statx(dirFd, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE, &info) != 0)
        return false;
    return S_ISDIR(info.stx_mode);
}

// Folds as it compares, with no copy: the needle is already folded, so its first byte matches a name
// byte equal to it or, for a letter, its capital.
bool nameMatches(const char* name, size_t length, const char* needle, size_t needleLength)
{
    if (needleLength == 0)
        return true;
    length = std::min(length, kWalkerMatchCapacity);
    if (length < needleLength)
        return false;
    const auto* bytes = reinterpret_cast<const unsigned char*>(name);
    const auto* folded = reinterpret_cast<const unsigned char*>(needle);
    const unsigned char first = folded[0];
    const unsigned char firstCapital =
        first >= 'a' && first <= 'z' ? static_cast<unsigned char>(first - ('a' - 'A')) : first;
    const unsigned char* const last = bytes + (length - needleLength);
    for (const unsigned char* at = bytes; at <= last; ++at) {
        if (*at != first && *at != firstCapital)
            continue;
        size_t k = 1;
        while (k < needleLength && static_cast<unsigned char>(kFold[at[k]]) == folded[k])
            ++k;
        if (k == needleLength)
            return true;
    }
    return false;
}

// Lists one folder: counts and matches every entry, and pushes the sub-folders onto the walker's
// stack, first found on top.
void walkDirectory(WalkerNode* node, ScanContext& scan, std::deque<WalkerNode*>& stack, char* buffer)
{
    // Sub-folders are gathered here and given to the node in one allocation of the right size.
    thread_local std::vector<WalkerNode*> found;
    found.clear();
    const int fd = openNode(scan, node);
    if (fd < 0) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENAMETOOLONG)
            ScanAccess::skipped(*scan.control).fetch_add(1, std::memory_order_relaxed);
        std::fprintf(stderr, "Could not open directory \"%s\". Error was : %s\n", node->path.c_str(),
                     std::strerror(errno));
        return;
    }
    if (!scan.running()) {
        close(fd);
        return;
    }
    const std::string_view excluded = scan.skipList->excludedNameInFolder(node->path);
    const char* needle = scan.needle.data();
    const size_t needleLength = scan.needle.size();
    std::atomic<int32_t>& filesSeen = ScanAccess::files(*scan.control);
    const WalkerFolder folder{node, fd};

    for (;;) {
        const ssize_t got = getdents64(fd, buffer, kListBufferSize);
        if (got <= 0) {
            if (got < 0)
                std::fprintf(stderr, "Error returned:: %s (%s)\n", std::strerror(errno), node->path.c_str());
            break;
        }
        if (!scan.running())
            break;
        int32_t seen = 0;
        bool ended = false;
        for (ssize_t pos = 0; pos < got;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer + pos);
            pos += entry->d_reclen;
            ended = pos >= got && listingEndsAfter(entry->d_off);
            const char* name = entry->d_name;
            if (name[0] == '.') {
                if (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))
                    continue;
                if (std::strcmp(name, ".hidden") == 0)
                    node->listsDotHidden = true;
            }
            if (!scan.running())
                break;
            ++seen;
            const size_t length = std::strlen(name);
            if (!excluded.empty() && excluded == std::string_view(name, length))
                continue;
            unsigned char type = entry->d_type;
            if (nameMatches(name, length, needle, needleLength)) {
                const int32_t total = filesSeen.fetch_add(seen, std::memory_order_relaxed) + seen;
                seen = 0;
                if (scan.delegate)
                    scan.delegate->walkerEntryFound(folder, std::string_view(name, length), type, total);
            }
            if (type == DT_UNKNOWN && isDirectoryByStat(fd, name))
                type = DT_DIR;
            if (type == DT_DIR) {
                std::string path;
                path.reserve(node->path.size() + 1 + length);
                path.append(node->path).append(1, '/').append(name, length);
                if (scan.isUnentered(path))
                    continue;
                auto* child = new WalkerNode;
                child->path = std::move(path);
                child->nameOffset = static_cast<uint32_t>(node->path.size() + 1);
                child->parent = node;
                found.push_back(child);
            }
        }
        filesSeen.fetch_add(seen, std::memory_order_relaxed);
        if (ended)
            break;
    }
    node->children.assign(found.begin(), found.end());
    if (scan.delegate)
        scan.delegate->walkerFolderDone(folder);

    const auto childCount = static_cast<int>(node->children.size());
    if (childCount == 0 || !scan.running()) {
        close(fd);
        return;
    }
    if (scan.keptDescriptors.load(std::memory_order_relaxed) < scan.descriptorBudget) {
        scan.keptDescriptors.fetch_add(1, std::memory_order_relaxed);
        node->pendingOpens.store(childCount, std::memory_order_relaxed);
        node->fd = fd;
    } else {
        close(fd);
    }
    for (auto it = node->children.rbegin(); it != node->children.rend(); ++it)
        stack.push_back(*it);
}

void workerMain(ScanContext* scan);

// Gives a folder to another thread as a walk of its own. Counted before it is queued, so the scan
// cannot end while a walk waits for a thread. False when no thread can take it (the system refused a
// new one and none is idle): the caller keeps the folder.
bool handOff(ScanContext& scan, WalkerNode* node)
{
    scan.active().fetch_add(1, std::memory_order_acq_rel);
    std::unique_lock lock(scan.mutex);
    scan.queue.push_back(node);
    if (scan.queue.size() > scan.idle && scan.threads.size() < kMaxWalkerThreads) {
        try {
            scan.threads.emplace_back(workerMain, &scan);
            return true;
        } catch (const std::system_error&) {
            if (scan.idle == 0 || scan.queue.size() > scan.idle) {
                scan.queue.pop_back();
                lock.unlock();
                scan.active().fetch_sub(1, std::memory_order_acq_rel);
                return false;
            }
        }
    }
    lock.unlock();
    scan.wake.notify_one();
    return true;
}

// One walk: a folder and everything below it that is not handed off. Iterative, so the depth of the
// tree never reaches the thread's stack.
void walkSubtree(WalkerNode* start, ScanContext& scan)
{
    thread_local std::unique_ptr<char[]> buffer;
    if (!buffer)
        buffer = std::make_unique<char[]>(kListBufferSize);
    std::deque<WalkerNode*> stack{start};
    while (!stack.empty()) {
        WalkerNode* node = stack.back();
        stack.pop_back();
        if (!scan.running()) {
            // Not opened at all: only give back the parent's descriptor share.
            if (node->parent)
                releaseParentDescriptor(scan, node->parent);
            continue;
        }
        walkDirectory(node, scan, stack, buffer.get());
        // The shallowest pending folder is likely the largest piece of work to give away.
        while (stack.size() >= 2 && scan.active().load(std::memory_order_relaxed) <= kMaxActiveForNewWalk) {
            WalkerNode* shared = stack.front();
            stack.pop_front();
            if (!handOff(scan, shared)) {
                stack.push_front(shared);
                break;
            }
        }
    }
    if (scan.delegate)
        scan.delegate->walkerWalkEnded();
}

void workerMain(ScanContext* scan)
{
    for (;;) {
        std::unique_lock lock(scan->mutex);
        ++scan->idle;
        scan->wake.wait(lock, [scan] { return !scan->queue.empty() || scan->stop; });
        --scan->idle;
        if (scan->queue.empty())
            return;
        WalkerNode* node = scan->queue.back();
        scan->queue.pop_back();
        lock.unlock();
        walkSubtree(node, *scan);
        scan->active().fetch_sub(1, std::memory_order_acq_rel);
    }
}

int64_t microsSince(const timeval& start)
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return (static_cast<int64_t>(now.tv_sec) - start.tv_sec) * 1000000 + (now.tv_usec - start.tv_usec);
}

void releaseDelegateData(WalkerNode* node, WalkerDelegate* delegate)
{
    if (void* data = node->delegateData.exchange(nullptr); data && delegate)
        delegate->walkerReleaseFolderData(data);
}

// Frees every node below root; with a delegate, first gives back what it hung on each node, the
// root's too. One pass: the tree of a large scan is worth visiting only once.
long releaseTree(WalkerNode* root, WalkerDelegate* delegate)
{
    if (delegate)
        releaseDelegateData(root, delegate);
    long count = 0;
    std::vector<WalkerNode*> pending(root->children.begin(), root->children.end());
    root->children.clear();
    while (!pending.empty()) {
        WalkerNode* node = pending.back();
        pending.pop_back();
        pending.insert(pending.end(), node->children.begin(), node->children.end());
        if (delegate)
            releaseDelegateData(node, delegate);
        delete node;
        ++count;
    }
    return count;
}

} // namespace

std::string_view WalkerFolder::path() const
{
    return node ? std::string_view(node->path) : std::string_view();
}

void WalkerDelegate::walkerEntryFound(const WalkerFolder& folder, std::string_view name, unsigned char, int filesSeen)
{
    walkerFileFound(name, folder.path(), filesSeen);
}

long releaseWalkerTree(WalkerNode* root)
{
    return releaseTree(root, nullptr);
}

bool walkerNameMatches(const char* name, size_t length, std::string_view foldedNeedle)
{
    return nameMatches(name, length, foldedNeedle.data(), foldedNeedle.size());
}

std::string walkerFoldNeedle(std::string_view needle)
{
    std::string folded(needle);
    for (char& c : folded)
        c = kFold[static_cast<unsigned char>(c)];
    return folded;
}

void walkerSetVerbose(bool verbose)
{
    gVerbose.store(verbose ? 1 : 0);
}

bool walkerIsVerbose()
{
    int verbose = gVerbose.load();
    if (verbose < 0) {
        const char* env = std::getenv("TROVIX_SEARCH_DEBUG");
        verbose = env && *env && std::strcmp(env, "0") != 0 ? 1 : 0;
        gVerbose.store(verbose);
    }
    return verbose == 1;
}

WalkerScanResult walkerScan(const char* rootPath, const char* needle, WalkerDelegate* delegate)
{
    WalkerOptions options;
    options.rootPath = rootPath ? rootPath : "";
    options.needle = needle ? needle : "";
    options.delegate = delegate;
    return walkerScan(options);
}

WalkerScanResult walkerScan(const WalkerOptions& options)
{
    if (options.needle.size() >= kSearchNeedleCapacity)
        return WalkerScanResult::NeedleTooLong;
    const std::shared_ptr<WalkerControl> control =
        options.control ? options.control : std::make_shared<WalkerControl>();
    {
        std::lock_guard lock(gLiveMutex);
        gLive.push_back(control);
        gLatest = control;
    }
    const bool verbose = walkerIsVerbose();
    if (verbose)
        std::fputs("cpp scan\n", stderr);

    ScanContext scan;
    scan.control = control.get();
    scan.delegate = options.delegate;
    scan.skipList = options.skipList ? options.skipList : &TWalkerSkipList::shared();
    scan.needle = walkerFoldNeedle(options.needle);
    scan.descriptorBudget = descriptorBudgetFromLimit();
    scan.unentered.insert(options.unenteredFolders.begin(), options.unenteredFolders.end());
    for (const std::string_view path : scan.unentered)
        if (std::find(scan.unenteredLengths.begin(), scan.unenteredLengths.end(), path.size()) ==
            scan.unenteredLengths.end())
            scan.unenteredLengths.push_back(path.size());

    auto* root = new WalkerNode;
    root->path = options.rootPath;
    scan.rootLength = root->path.size();
    timeval start{};
    gettimeofday(&start, nullptr);

    std::atomic<int32_t>& active = scan.active();
    active.fetch_add(1, std::memory_order_acq_rel);
    if (scan.running()) {
        scan.rootFd = open(root->path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        walkSubtree(root, scan);
    }
    active.fetch_sub(1, std::memory_order_acq_rel);
    while (active.load(std::memory_order_acquire) >= 1)
        usleep(kEndPollMicros);
    {
        std::lock_guard lock(scan.mutex);
        scan.stop = true;
    }
    scan.wake.notify_all();
    for (std::thread& thread : scan.threads)
        thread.join();
    if (scan.rootFd >= 0)
        close(scan.rootFd);
    if (scan.delegate)
        scan.delegate->walkerScanEnded();

    const long freed = releaseTree(root, scan.delegate);
    const int64_t elapsed = microsSince(start);
    if (verbose) {
        std::fprintf(stderr, "\nfiles = %d checked = %ld\n", control->filesSeen(), freed);
        std::fprintf(stderr, "seconds elapsed = %lld.%03lld\n", static_cast<long long>(elapsed / 1000000),
                     static_cast<long long>(elapsed % 1000000 / 1000));
        std::fprintf(stderr, "walker threads = %zu\n", scan.threads.size());
    }
    if (control->cancelled() && scan.delegate)
        scan.delegate->walkerSearchInterrupted();
    delete root;
    ScanAccess::finished(*control).store(true, std::memory_order_release);
    {
        std::lock_guard lock(gLiveMutex);
        std::erase(gLive, control);
    }
    return WalkerScanResult::Done;
}

bool WalkerControl::cancelAndWait()
{
    cancel();
    long waits = 0;
    while (activeWalkers() > 0 && waits < kCancelMaxPolls) {
        usleep(kCancelPollMicros);
        ++waits;
    }
    if (waits == kCancelMaxPolls)
        std::fputs("THREAD waiting timeout error.", stderr);
    if (walkerIsVerbose() || waits == kCancelMaxPolls)
        std::fprintf(stderr, "\nSEARCH CANCELLED - %ld waits\n", waits);
    return waits < kCancelMaxPolls;
}

void walkerCancel()
{
    std::vector<std::shared_ptr<WalkerControl>> live;
    {
        std::lock_guard lock(gLiveMutex);
        live = gLive;
    }
    for (const auto& control : live)
        control->cancel();
    for (const auto& control : live)
        control->cancelAndWait();
}

void walkerResume()
{
    if (walkerIsVerbose())
        std::fputs("\nSEARCH RESUMED\n", stderr);
}

int32_t walkerTotalFiles()
{
    std::lock_guard lock(gLiveMutex);
    return gLatest ? gLatest->filesSeen() : 0;
}
