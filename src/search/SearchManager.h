#pragma once

#include "search/SearchItem.h"
#include "search/Walker.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QString>
#include <QThreadPool>

#include <atomic>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

class NameTypes;
class NotificationCenter;

// What the search manager tells the results window.
class SearchResultDialog
{
public:
    virtual ~SearchResultDialog() = default;
    virtual void prepareForNewSearchResults() = 0;
    virtual void searchCompleted() = 0;
};

// The process-wide controller of the file search: runs the walker off the main thread, classifies
// every match into a SearchItem on the walker thread, and keeps two lists on the main thread: every
// match, and the matches passing filterMask. Classification never reads a file's contents (that would
// change its access time): the facts of a folder are worked out once per folder, each match costs one
// stat relative to the open folder, and the type comes from the name. Each search has its own walker
// control: a cancelled or replaced search stops for good, and the next one never waits for it.
class SearchManager : public QObject
{
    Q_OBJECT
public:
    enum class StartResult
    {
        Started,
        EmptyInput,      // empty template or folder: nothing searched, nothing posted
        TemplateTooLong, // longer than the walker takes (1023 bytes of UTF-8 once lower-cased)
    };

    // Scans run on `scanPool` when given (it must outlive the manager), else on a pool of the manager's own.
    explicit SearchManager(NotificationCenter& center, QThreadPool* scanPool = nullptr, QObject* parent = nullptr);
    // Cancels a running search and waits for it.
    ~SearchManager() override;

    static SearchManager* sharedManager();
    static QString SearchManagerDidStartSearchNotification();
    static QString openSearchResultDialogNotification();

    void performSearchWithDefaults();
    StartResult performSearchWithTemplate(const QString& searchText, const QString& folder);
    // The same with the raw bytes of the text and folder (names need not be UTF-8).
    StartResult performSearchWithBytes(const QByteArray& searchText, const QByteArray& folder);
    // Why the last start searched nothing, for the user ("" after a start that ran).
    QString lastStartMessage() const { return m_lastStartMessage; }
    static QString templateTooLongMessage(qsizetype bytes);
    // Runs the walker on the manager's scan pool with a template (ASCII letters are folded); the completion runs
    // on the main thread. A completion of a search that has since been replaced by a newer one is dropped.
    void findFiles(const QByteArray& lowerTemplate, const QByteArray& folder, std::function<void()> completion);
    // Called for each match, from any thread.
    void fileFoundObjCWithFile(std::string_view name, std::string_view path, qint64 totalFilesCount);

    // Shows a list of existing files (a review list of the disk-usage view) as a finished search titled
    // title: the lists are replaced by items classified as a search would, missing paths are skipped, and
    // the results window sees a start and a completion. Runs on the main thread.
    void presentItemsAtPaths(const QString& title, const QList<QByteArray>& paths);

    void cancelSearchByButton();
    void resumeSearchIfStopped();
    void searchInterruptedObjC() {}
    void openSearchResultDialog();
    qint64 totalFiles() const;
    // Folders of the current search that could not be opened for want of descriptors or memory.
    int foldersSkipped() const { return m_control ? m_control->foldersSkipped() : 0; }
    bool isSearching() const { return m_searching; }

    QList<SearchItemPtr>& getSearchResultArray() { return m_searchResultArray; }
    QList<SearchItemPtr>& getFilteredSearchResultArray() { return m_filteredSearchResultArray; }
    // Indexes into the filtered list; a package takes the items found inside it along.
    void removeItemsWithIndexSet(const QList<int>& indexes);
    void clearSearchResultsArray();

    // Per-path queries over native paths. Missing or unreadable items answer empty / NO / 0.
    static bool isFilePackage(const QByteArray& path);
    static bool isFilePackagedAtPath(const QByteArray& path);
    bool isFileInHiddenFolderAtPath(const QByteArray& path);
    static bool isFileInAddressBook(const QString& path);
    static QString getFileType(const QByteArray& path);
    static qint64 getFileSize(const QByteArray& path);
    bool getFileTypeHidden(const QByteArray& path);
    static QDateTime getModificationDate(const QByteArray& path);
    static QDateTime getLastUsedDateForFile(const QByteArray& path);
    // Sums the package's contents on a background thread, then sets fileSize on the main thread.
    void getFolderSizeForSearchItem(const SearchItemPtr& item);
    // Blocks until every started package sum has been stored (tests, the command line).
    void waitForPackageSizes();
    // Blocks until the scans have let go of their trees of folders, which they free after they have
    // reported their end (tests).
    void waitForScans() { m_scanPool->waitForDone(); }

    QString searchTemplate() const { return m_searchTemplate; }
    void setSearchTemplate(const QString& text) { m_searchTemplate = text; }
    QString searchLocation() const { return m_searchLocation; }
    void setSearchLocation(const QString& folder) { m_searchLocation = folder; }
    SearchResultDialog* searchResultDialog() const { return m_searchResultDialog; }
    void setSearchResultDialog(SearchResultDialog* dialog) { m_searchResultDialog = dialog; }
    uint filterMask() const { return m_filterMask; }
    void setFilterMask(uint mask) { m_filterMask = mask; }
    uint foundItemsMask() const { return m_foundItemsMask; }
    void setFoundItemsMask(uint mask) { m_foundItemsMask = mask; }
    double startTime() const { return m_startTime; }

    // True when the bundle extension list names this file name's extension (case-insensitive).
    static bool hasBundleExtension(const QByteArray& name);
    static bool hasBundleExtension(std::string_view name);
    // A scan of folder (cleaned: see SearchPaths::cleanFolder) for a needle that stays out of kernel
    // and automount file systems.
    static WalkerOptions walkerOptions(const QByteArray& folder, const QByteArray& lowerTemplate,
                                       WalkerDelegate* delegate);

Q_SIGNALS:
    // A batch of matches has reached the lists.
    void searchResultsChanged();
    // The running search's walk has returned (after its last batch).
    void searchFinished();
    // A start searched nothing for a reason the user should read (a text longer than the walker takes).
    void searchRefused(const QString& message);

private:
    class ScanSink;
    struct FolderFacts;
    SearchItemPtr makeItem(std::string_view name, std::string_view path);
    // Classifies one entry: statName is the entry's name relative to dirFd (or a full path with
    // AT_FDCWD), name its own name. Reads nothing but the entry's inode.
    SearchItemPtr classify(int dirFd, const char* statName, QByteArray name, SearchFolderPtr folder,
                           const QSet<QByteArray>& hiddenNames);
    void queueItems(std::vector<std::pair<int, SearchItemPtr>>& items);
    void applyPendingItems();
    // Ends the current search for good: its late matches and completion are dropped.
    void startNewGeneration();
    void appendItem(const SearchItemPtr& item);
    bool isHiddenFolder(const QByteArray& folder);
    QSet<QByteArray> hiddenNamesIn(const QByteArray& folder);

    NotificationCenter& m_center;
    double m_startTime = 0;
    std::atomic<qint64> m_itemsCounter{0};
    QString m_searchTemplate;
    QString m_searchLocation;
    SearchResultDialog* m_searchResultDialog = nullptr;
    uint m_filterMask = SearchItemClass::Regular | SearchItemClass::Hidden;
    uint m_foundItemsMask = 0;
    QList<SearchItemPtr> m_searchResultArray;
    QList<SearchItemPtr> m_filteredSearchResultArray;
    bool m_searching = false;

    QString m_lastStartMessage;
    std::atomic<int> m_generation{0};
    std::shared_ptr<WalkerControl> m_control;
    QThreadPool m_ownScanPool;
    QThreadPool* m_scanPool;
    QThreadPool m_sizePool;

    QMutex m_pendingMutex;
    std::vector<std::pair<int, SearchItemPtr>> m_pending;

    // Per-search caches of the hidden-folder climb: the names listed in each folder's ".hidden", and
    // whether a folder is at or below a hidden one.
    QMutex m_hiddenMutex;
    QHash<QByteArray, QSet<QByteArray>> m_hiddenNames;
    QHash<QByteArray, bool> m_inHiddenFolder;

    // Per-search answers of the MIME database by name, in front of it and its global lock.
    std::unique_ptr<NameTypes> m_nameTypes;
    // Package sums of the current search, by path; read and written only on the size pool's thread.
    const std::shared_ptr<QHash<QByteArray, qint64>> m_packageSums;
};
