#include "Walker.h"

#include "TWalkerSkipList.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_set>

std::atomic<uint8_t> gSearchRunning{1};
std::atomic<int32_t> gActiveWalkers{0};
std::atomic<int32_t> gFilesSeen{0};
std::atomic<int64_t> gBytesSeen{0};
std::atomic<int64_t> gThreadStartMicros{0};
int64_t gThreadDelay = 0;
char gSearchNeedle[kSearchNeedleCapacity];

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

std::atomic<int> gVerbose{-1}; // -1: not decided yet, read the environment

constexpr std::array<char, 256> makeFoldTable()
{
    std::array<char, 256> table{};
    for (int i = 0; i < 256; ++i)
        table[static_cast<size_t>(i)] = static_cast<char>(i >= 'A' && i <= 'Z' ? i + ('a' - 'A') : i);
    return table;
}
constexpr std::array<char, 256> kFold = makeFoldTable();

bool running()
{
    return gSearchRunning.load(std::memory_order_relaxed) != 0;
}

// What the walkers of one scan share besides the counters.
struct ScanContext
{
    WalkerDelegate* delegate = nullptr;
    const TWalkerSkipList* skipList = nullptr;
    size_t needleLength = 0;
    // Folders whose descriptor is kept open for their children; above the budget children are
    // opened by full path instead, so a deep or wide tree cannot run out of descriptors.
    int descriptorBudget = 0;
    std::atomic<int> keptDescriptors{0};
    std::unordered_set<std::string_view> unentered;

    bool isUnentered(std::string_view path) const
    {
        if (unentered.empty())
            return false;
        if (path.starts_with("//")) // below a root of "/"
            path.remove_prefix(1);
        return unentered.contains(path);
    }

    std::mutex mutex;
    std::condition_variable wake;
    std::vector<WalkerNode*> queue; // handed-off walks not yet taken by a thread
    size_t idle = 0;
    bool stop = false;
    std::vector<std::thread> threads;
};

ScanContext* gScan = nullptr;
std::mutex gScanMutex; // one scan at a time

int descriptorBudgetFromLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 256;
    // Leave half of the descriptors to the rest of the program.
    const rlim_t half = limit.rlim_cur / 2;
    return static_cast<int>(std::clamp<rlim_t>(half > 64 ? half - 64 : 0, 0, 4096));
}

void releaseParentDescriptor(WalkerNode* parent)
{
    if (parent->fd >= 0 && parent->pendingOpens.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        close(parent->fd);
        gScan->keptDescriptors.fetch_sub(1, std::memory_order_relaxed);
    }
}

int openNode(WalkerNode* node)
{
    WalkerNode* parent = node->parent;
    if (!parent) // the root the user named may itself be a link to a folder
        return open(node->path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    int fd;
    if (parent->fd >= 0)
        fd = openat(parent->fd, node->path.c_str() + node->nameOffset, kOpenFlags);
    else
        fd = open(node->path.c_str(), kOpenFlags);
    const int savedErrno = errno;
    releaseParentDescriptor(parent);
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

// Lists one folder: counts and matches every entry, and pushes the sub-folders onto the walker's
// stack, first found on top.
void walkDirectory(WalkerNode* node, ScanContext& scan, std::deque<WalkerNode*>& stack, char* buffer)
{
    const int fd = openNode(node);
    if (fd < 0) {
        std::fprintf(stderr, "Could not open directory \"%s\". Error was : %s\n", node->path.c_str(),
                     std::strerror(errno));
        return;
    }
    if (!running()) {
        close(fd);
        return;
    }
    const std::string_view excluded = scan.skipList->excludedNameInFolder(node->path);
    const char* needle = gSearchNeedle;
    const size_t needleLength = scan.needleLength;
    char folded[256];

    for (;;) {
        const ssize_t got = getdents64(fd, buffer, kListBufferSize);
        if (got <= 0) {
            if (got < 0)
                std::fprintf(stderr, "Error returned:: %s (%s)\n", std::strerror(errno), node->path.c_str());
            break;
        }
        if (!running())
            break;
        int32_t seen = 0;
        for (ssize_t pos = 0; pos < got;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer + pos);
            pos += entry->d_reclen;
            const char* name = entry->d_name;
            if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
                continue;
            if (!running())
                break;
            ++seen;
            size_t length = 0;
            while (length < sizeof folded && name[length] != '\0') {
                folded[length] = kFold[static_cast<unsigned char>(name[length])];
                ++length;
            }
            if (!excluded.empty() && excluded == std::string_view(name, length))
                continue;
            if (needleLength == 0 || memmem(folded, length, needle, needleLength) != nullptr) {
                gFilesSeen.fetch_add(seen, std::memory_order_relaxed);
                seen = 0;
                walkerFileFound(name, length, node->path.data(), node->path.size(),
                                gFilesSeen.load(std::memory_order_relaxed));
            }
            unsigned char type = entry->d_type;
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
                node->children.push_back(child);
            }
        }
        gFilesSeen.fetch_add(seen, std::memory_order_relaxed);
    }

    const auto childCount = static_cast<int>(node->children.size());
    if (childCount == 0 || !running()) {
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
// cannot end while a walk waits for a thread.
void handOff(ScanContext& scan, WalkerNode* node)
{
    gActiveWalkers.fetch_add(1, std::memory_order_acq_rel);
    std::unique_lock lock(scan.mutex);
    scan.queue.push_back(node);
    if (scan.queue.size() > scan.idle && scan.threads.size() < kMaxWalkerThreads) {
        timeval before{}, after{};
        gettimeofday(&before, nullptr);
        scan.threads.emplace_back(workerMain, &scan);
        gettimeofday(&after, nullptr);
        gThreadStartMicros.fetch_add(after.tv_usec - before.tv_usec, std::memory_order_relaxed);
        return;
    }
    lock.unlock();
    scan.wake.notify_one();
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
        if (!running()) {
            // Not opened at all: only give back the parent's descriptor share.
            if (node->parent)
                releaseParentDescriptor(node->parent);
            continue;
        }
        walkDirectory(node, scan, stack, buffer.get());
        // The shallowest pending folder is likely the largest piece of work to give away.
        while (stack.size() >= 2 && gActiveWalkers.load(std::memory_order_relaxed) <= kMaxActiveForNewWalk) {
            WalkerNode* shared = stack.front();
            stack.pop_front();
            handOff(scan, shared);
        }
    }
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
        gActiveWalkers.fetch_sub(1, std::memory_order_acq_rel);
    }
}

int64_t microsSince(const timeval& start)
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return (static_cast<int64_t>(now.tv_sec) - start.tv_sec) * 1000000 + (now.tv_usec - start.tv_usec);
}

} // namespace

long releaseWalkerTree(WalkerNode* root)
{
    long count = 0;
    std::vector<WalkerNode*> pending(root->children.begin(), root->children.end());
    root->children.clear();
    while (!pending.empty()) {
        WalkerNode* node = pending.back();
        pending.pop_back();
        pending.insert(pending.end(), node->children.begin(), node->children.end());
        delete node;
        ++count;
    }
    return count;
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

    std::lock_guard scanLock(gScanMutex);
    const bool verbose = walkerIsVerbose();
    gBytesSeen = 0;
    gActiveWalkers = 0;
    gFilesSeen = 0;
    gThreadDelay = 0;
    gThreadStartMicros = 0;
    std::memset(gSearchNeedle, 0, sizeof gSearchNeedle);
    std::memcpy(gSearchNeedle, options.needle.data(), options.needle.size());
    if (verbose)
        std::fputs("cpp scan\n", stderr);

    ScanContext scan;
    scan.delegate = options.delegate;
    scan.skipList = options.skipList ? options.skipList : &TWalkerSkipList::shared();
    scan.needleLength = options.needle.size();
    scan.descriptorBudget = descriptorBudgetFromLimit();
    scan.unentered.insert(options.unenteredFolders.begin(), options.unenteredFolders.end());
    gScan = &scan;

    auto* root = new WalkerNode;
    root->path = options.rootPath;
    timeval start{};
    gettimeofday(&start, nullptr);

    gActiveWalkers.fetch_add(1, std::memory_order_acq_rel);
    walkSubtree(root, scan);
    gActiveWalkers.fetch_sub(1, std::memory_order_acq_rel);
    while (gActiveWalkers.load(std::memory_order_acquire) >= 1)
        usleep(kEndPollMicros);
    {
        std::lock_guard lock(scan.mutex);
        scan.stop = true;
    }
    scan.wake.notify_all();
    for (std::thread& thread : scan.threads)
        thread.join();

    const long freed = releaseWalkerTree(root);
    const int64_t elapsed = microsSince(start);
    if (verbose) {
        std::fprintf(stderr, "\nfiles = %d checked = %ld\n", gFilesSeen.load(), freed);
        std::fprintf(stderr, "grand total = %lld checked = %lld\n", static_cast<long long>(root->size),
                     static_cast<long long>(gBytesSeen.load()));
        std::fprintf(stderr, "seconds elapsed = %lld.%03lld\n", static_cast<long long>(elapsed / 1000000),
                     static_cast<long long>(elapsed % 1000000 / 1000));
        std::fprintf(stderr, "total dealy for created threads = %lld\n", static_cast<long long>(gThreadDelay));
        std::fprintf(stderr, "seconds elapsed for THREADS= %lld microseconds\n",
                     static_cast<long long>(gThreadStartMicros.load()));
    }
    walkerSearchFinished(gSearchRunning.load());
    gScan = nullptr;
    delete root;
    return WalkerScanResult::Done;
}

void walkerCancel()
{
    gSearchRunning.store(0);
    long waits = 0;
    while (gActiveWalkers.load(std::memory_order_acquire) > 0 && waits < kCancelMaxPolls) {
        usleep(kCancelPollMicros);
        ++waits;
    }
    if (waits == kCancelMaxPolls)
        std::fputs("THREAD waiting timeout error.", stderr);
    if (walkerIsVerbose() || waits == kCancelMaxPolls)
        std::fprintf(stderr, "\nSEARCH CANCELLED - %ld waits\n", waits);
}

void walkerResume()
{
    gSearchRunning.store(1);
    if (walkerIsVerbose())
        std::fputs("\nSEARCH RESUMED\n", stderr);
}

int32_t walkerTotalFiles()
{
    return gFilesSeen.load(std::memory_order_relaxed);
}

void walkerFileFound(const char* name, size_t nameLength, const char* parentPath, size_t parentLength, int filesSeen)
{
    if (name && parentPath && gScan && gScan->delegate)
        gScan->delegate->walkerFileFound(std::string_view(name, nameLength), std::string_view(parentPath, parentLength),
                                         filesSeen);
}

void walkerSearchFinished(uint8_t running)
{
    if (running == 0 && gScan && gScan->delegate)
        gScan->delegate->walkerSearchInterrupted();
}
