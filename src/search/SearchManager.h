#pragma once

#include "search/SearchItem.h"
#include "search/Walker.h"

#include <QDateTime>
#include <QFuture>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QString>
#include <QThreadPool>

#include <atomic>
#include <functional>
#include <string_view>
#include <vector>

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
// match, and the matches passing filterMask. Matches reach the lists in batches (one queued call per
// batch, not per match). Only one search runs at a time in the process (the walker's state is global).
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

    explicit SearchManager(NotificationCenter& center, QObject* parent = nullptr);
    // Cancels a running search and waits for it.
    ~SearchManager() override;

    static SearchManager* sharedManager();
    static QString SearchManagerDidStartSearchNotification();
    static QString openSearchResultDialogNotification();

    void performSearchWithDefaults();
    StartResult performSearchWithTemplate(const QString& searchText, const QString& folder);
    // Runs the walker on the global pool with a lower-case template; the completion runs on the main
    // thread. A completion of a search that has since been replaced by a newer one is dropped.
    void findFiles(const QByteArray& lowerTemplate, const QByteArray& folder, std::function<void()> completion);
    // Called for each match, from any thread.
    void fileFoundObjCWithFile(std::string_view name, std::string_view path, qint64 totalFilesCount);

    void cancelSearchByButton();
    void resumeSearchIfStopped();
    void searchInterruptedObjC() {}
    void openSearchResultDialog();
    qint64 totalFiles() const;
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
    // A scan of folder for a lower-case needle that stays out of kernel and automount file systems.
    static WalkerOptions walkerOptions(const QByteArray& folder, const QByteArray& lowerTemplate,
                                       WalkerDelegate* delegate);

Q_SIGNALS:
    // A batch of matches has reached the lists.
    void searchResultsChanged();
    // The running search's walk has returned (after its last batch).
    void searchFinished();

private:
    class ScanSink;
    SearchItemPtr makeItem(std::string_view name, std::string_view path);
    void queueItem(int generation, SearchItemPtr item);
    void applyPendingItems();
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

    std::atomic<int> m_generation{0};
    QFuture<void> m_scan;
    QThreadPool m_sizePool;

    QMutex m_pendingMutex;
    std::vector<std::pair<int, SearchItemPtr>> m_pending;

    // Per-search caches of the hidden-folder climb: the names listed in each folder's ".hidden", and
    // whether a folder is at or below a hidden one.
    QMutex m_hiddenMutex;
    QHash<QByteArray, QSet<QByteArray>> m_hiddenNames;
    QHash<QByteArray, bool> m_inHiddenFolder;
};
