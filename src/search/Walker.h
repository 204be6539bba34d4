#pragma once

// The parallel directory walker under the file search: lists every folder below a root with getdents64,
// spreads sub-folders over a few threads and reports every entry whose name contains a needle. Each
// scan has its own state (WalkerControl): scans never share a flag, so a cancelled or replaced scan
// cannot be brought back to life by the next one, and a new scan never waits for an old one.
//
// Contract:
//  - Matching folds ASCII letters of each name and of the needle to lower case and looks for the
//    needle as a plain substring of raw bytes; bytes of other characters are compared as they are.
//  - Names are reported whole, however long; only the copy matched against is limited (1024 bytes).
//  - Symbolic links are reported when they match and are never entered; every folder is entered, a
//    matching one too, except those the options name as unentered. "." and ".." are neither counted nor reported.
//  - Child paths are the parent's path, "/" and the name, so a root of "/" gives "//usr" one level down.
//  - A walk is counted in the scan's active walkers from its hand-off to its end. A new walk is handed
//    to another thread while at most 5 walks are active; a thread that cannot be created leaves the
//    walk to the threads there are.
//  - Folders whose path is too long to open by name are opened in steps relative to the root, so a low
//    descriptor limit does not lose deep folders. Folders that cannot be opened are reported on
//    standard error, one line each; the walk goes on.
//  - Diagnostics go to standard error, only when asked (walkerSetVerbose or TROVIX_SEARCH_DEBUG=1).

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class TWalkerSkipList;
struct WalkerNode;

// The folder being listed, valid during a delegate call on the walker's thread.
struct WalkerFolder
{
    WalkerNode* node = nullptr;
    int fd = -1; // open on the folder: stat its entries relative to it
    std::string_view path() const;
};

// Receives the matches of a scan, from several walker threads at once; views are valid only during the
// call (raw bytes, not necessarily UTF-8).
class WalkerDelegate
{
public:
    virtual ~WalkerDelegate() = default;
    // One match. The default hands name and parent path to walkerFileFound.
    virtual void walkerEntryFound(const WalkerFolder& folder, std::string_view name, unsigned char direntType,
                                  int filesSeen);
    virtual void walkerFileFound(std::string_view, std::string_view, int) {}
    // A folder's listing is over (on the thread that listed it), whether or not it matched.
    virtual void walkerFolderDone(const WalkerFolder&) {}
    // A walk (a folder and what lies below it that this thread kept) is over, on its thread.
    virtual void walkerWalkEnded() {}
    // Every walker of the scan has stopped and every folder descriptor is closed: no match comes
    // after this. Called on the scanning thread, cancelled or not, before the tree is freed, so the
    // caller can use the results while the scan frees it (walkerScan returns after that).
    virtual void walkerScanEnded() {}
    // The scan is over and its tree is freed: what the delegate hung on a node goes with it.
    virtual void walkerReleaseFolderData(void*) {}
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
    // The listing showed a ".hidden" entry (set once the folder has been listed).
    bool listsDotHidden = false;
    // The delegate's per-folder facts, set once by whichever thread first needs them.
    std::atomic<void*> delegateData{nullptr};

    std::string_view name() const { return std::string_view(path).substr(nameOffset); }
};

// Frees every node below root (not root itself), without recursion; returns how many it freed.
long releaseWalkerTree(WalkerNode* root);

constexpr size_t kSearchNeedleCapacity = 1024; // 1023 bytes and the terminator
constexpr size_t kWalkerMatchCapacity = 1024;  // bytes of a name the needle is looked for in

// The state of one scan. Made by the caller before the scan is queued, so a cancel lands even on a
// scan that has not started yet; shared by the scan and whoever may cancel it.
class WalkerControl
{
public:
    // Sets the stop flag: the scan stops at its next entry, or does not start.
    void cancel() { m_stop.store(true, std::memory_order_relaxed); }
    // Cancels and waits until the scan's walkers have stopped, at most 5 s (5000 polls of 1 ms);
    // false after the time-out ("THREAD waiting timeout error." on standard error).
    bool cancelAndWait();
    bool cancelled() const { return m_stop.load(std::memory_order_relaxed); }
    int32_t filesSeen() const { return m_filesSeen.load(std::memory_order_relaxed); }
    int32_t activeWalkers() const { return m_active.load(std::memory_order_acquire); }
    // Folders that could not be opened for want of descriptors or memory (not for lack of rights).
    int32_t foldersSkipped() const { return m_skipped.load(std::memory_order_relaxed); }
    bool finished() const { return m_finished.load(std::memory_order_acquire); }

private:
    friend struct ScanAccess;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_finished{false};
    std::atomic<int32_t> m_active{0};
    std::atomic<int32_t> m_filesSeen{0};
    std::atomic<int32_t> m_skipped{0};
};

struct WalkerOptions
{
    std::string rootPath;
    std::string needle;                        // raw bytes, at most 1023; ASCII letters are folded here
    WalkerDelegate* delegate = nullptr;        // may be null: the scan only counts
    const TWalkerSkipList* skipList = nullptr; // null: TWalkerSkipList::shared()
    // Folders below the root that are reported when they match but never entered (full paths, without
    // the doubled slash of a "/" root); the root itself is always entered.
    std::vector<std::string> unenteredFolders;
    std::shared_ptr<WalkerControl> control; // null: the scan makes its own
};

enum class WalkerScanResult
{
    Done,          // the scan ran (possibly cancelled, possibly with an unreadable root)
    NeedleTooLong, // refused: nothing searched
};

// Runs a whole scan on the calling thread and returns when every walker has finished.
WalkerScanResult walkerScan(const WalkerOptions& options);
WalkerScanResult walkerScan(const char* rootPath, const char* needle, WalkerDelegate* delegate);

// Cancels every scan running now and waits for them (5 s at most each).
void walkerCancel();
// Kept for its callers: each scan starts with its own cleared flag, so there is nothing to resume.
void walkerResume();
// Entries seen by the latest scan started.
int32_t walkerTotalFiles();

// Whether a name (whole length given) contains the folded needle; only the first
// kWalkerMatchCapacity bytes of the name are looked at.
bool walkerNameMatches(const char* name, size_t length, std::string_view foldedNeedle);
// The needle as names are matched: ASCII letters lower-cased, every other byte as it is.
std::string walkerFoldNeedle(std::string_view needle);

void walkerSetVerbose(bool verbose);
bool walkerIsVerbose();
