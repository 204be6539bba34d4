#pragma once

// The parallel directory walker under the file search: lists every folder below a root with getdents64,
// spreads sub-folders over a few threads and reports every entry whose name contains a lower-case
// needle. A procedural module over process-wide state: one scan runs at a time (a second walkerScan
// waits for the first to return).
//
// Contract:
//  - Matching folds ASCII letters of each name to lower case and looks for the needle as a plain
//    substring; bytes of other characters are compared as they are. The caller lower-cases the needle.
//  - Symbolic links are reported when they match and are never entered; every folder is entered, a
//    matching one too, except those the options name as unentered. "." and ".." are neither counted nor reported.
//  - Child paths are the parent's path, "/" and the name, so a root of "/" gives "//usr" one level down.
//  - A walk is counted in gActiveWalkers from its hand-off to its end. A new walk is handed to another
//    thread while at most 5 walks are active; threads are kept for the scan rather than made per walk.
//  - walkerCancel returns once every walker has stopped, or after 5 s (5000 polls of 1 ms) at most.
//  - Folders that cannot be opened are reported on standard error, one line each; the walk goes on.
//  - Diagnostics go to standard error, only when asked (walkerSetVerbose or TROVIX_SEARCH_DEBUG=1).

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class TWalkerSkipList;

// Receives the matches of a scan. fileFound runs on the walker thread that found the entry, from
// several threads at once; the views are valid only during the call (raw bytes, not necessarily UTF-8).
class WalkerDelegate
{
public:
    virtual ~WalkerDelegate() = default;
    virtual void walkerFileFound(std::string_view name, std::string_view parentPath, int filesSeen) = 0;
    // A cancelled scan has ended.
    virtual void walkerSearchInterrupted() {}
};

// One folder the walk entered. Owned by its parent's children (the root by the scan); the tree stays
// whole until the scan has ended, then releaseWalkerTree frees it.
struct WalkerNode
{
    std::string path;  // no trailing slash, except for a root given as "/"
    uint64_t size = 0; // kept for the record; nothing on Linux fills it
    std::vector<WalkerNode*> children;
    WalkerNode* parent = nullptr;

    // Linux listing state: the descriptor children are opened relative to, kept while some child is
    // still to be opened (pendingOpens), else -1.
    uint32_t nameOffset = 0;
    int fd = -1;
    std::atomic<int> pendingOpens{0};
};

// Frees every node below root (not root itself), without recursion; returns how many it freed.
long releaseWalkerTree(WalkerNode* root);

// Process-wide counters, reset at the start of each scan except gSearchRunning.
extern std::atomic<uint8_t> gSearchRunning;
extern std::atomic<int32_t> gActiveWalkers;
extern std::atomic<int32_t> gFilesSeen;
extern std::atomic<int64_t> gBytesSeen;
extern std::atomic<int64_t> gThreadStartMicros;
extern int64_t gThreadDelay;
constexpr size_t kSearchNeedleCapacity = 1024; // 1023 bytes and the terminator
extern char gSearchNeedle[kSearchNeedleCapacity];

struct WalkerOptions
{
    std::string rootPath;
    std::string needle;                        // lower-case, at most 1023 bytes
    WalkerDelegate* delegate = nullptr;        // may be null: the scan only counts
    const TWalkerSkipList* skipList = nullptr; // null: TWalkerSkipList::shared()
    // Folders below the root that are reported when they match but never entered (full paths, without
    // the doubled slash of a "/" root); the root itself is always entered.
    std::vector<std::string> unenteredFolders;
};

enum class WalkerScanResult
{
    Done,          // the scan ran (possibly cancelled, possibly with an unreadable root)
    NeedleTooLong, // refused: nothing searched
};

// Runs a whole scan on the calling thread and returns when every walker has finished.
WalkerScanResult walkerScan(const WalkerOptions& options);
WalkerScanResult walkerScan(const char* rootPath, const char* needle, WalkerDelegate* delegate);

void walkerCancel();
void walkerResume();
int32_t walkerTotalFiles();

// Passes one match to the scan's delegate (both strings must be non-null).
void walkerFileFound(const char* name, size_t nameLength, const char* parentPath, size_t parentLength, int filesSeen);
// End hook: tells the delegate when the scan was cancelled (running == 0).
void walkerSearchFinished(uint8_t running);

void walkerSetVerbose(bool verbose);
bool walkerIsVerbose();
