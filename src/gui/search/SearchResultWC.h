#pragma once

#include "SearchResultPrompts.h"
#include "search/SearchItem.h"
#include "search/SearchManager.h"

#include <QFutureWatcher>
#include <QList>
#include <QPointer>
#include <QTimer>
#include <QUrl>
#include <QWidget>

#include <array>
#include <deque>
#include <functional>
#include <optional>

class FinderCommunicator;
class HiddenManager;
class NotificationCenter;
class QComboBox;
class QLabel;
class QLineEdit;
class QMenu;
class QProgressBar;
class QPushButton;
class QTableView;
class QToolButton;
class QuickLookController;
class SearchResultModel;
class Settings;
struct FileOperationResult;

// The search results window: a search bar, three location buttons, three filter toggles, the searched
// folder, a progress indicator with the found / examined counter and a stop button, the table of the
// search manager's filtered list (its very list, never a copy) and the actions on selected rows. While a
// search runs, rows are inserted once a second and the counter redrawn twenty times a second. Sorting and
// re-filtering work on a copy on a worker thread and swap the result in, so a million rows never hold
// the GUI thread for long.
class SearchResultWC : public QWidget, public SearchResultDialog
{
    Q_OBJECT
public:
    struct Collaborators
    {
        SearchManager* searchManager = nullptr;
        Settings* settings = nullptr;
        NotificationCenter* center = nullptr;
        HiddenManager* hiddenManager = nullptr;
        FinderCommunicator* communicator = nullptr;
        QuickLookController* quickLook = nullptr;
        // Null: real dialogs.
        std::optional<SearchResultPrompts> prompts;
        // The status item's tool tip; null: none.
        std::function<void(const QString&)> setStatusToolTip;
        // Opens a URL in its default application; null: QDesktopServices.
        std::function<bool(const QUrl&)> openUrl;
        // Reveals items in the file manager and shows their properties (answered: a file manager did it);
        // null: the file manager over the session bus.
        std::function<void(const QList<QByteArray>&, std::function<void(bool)>)> showItems;
        std::function<void(const QList<QByteArray>&, std::function<void(bool)>)> showItemProperties;
    };

    enum Action
    {
        CopyAction = 0,
        MoveAction = 1,
        RemoveAction = 2
    };
    static constexpr int kRowTimerMs = 1000;
    static constexpr int kCounterTimerMs = 50;
    static inline const QString kInstructionPage =
        QStringLiteral("https://help.gnome.org/users/gnome-help/stable/files-hidden.html");
    // The suppression of the hidden-files question of the reveal action.
    static inline const QString kDontShowRevealHiddenKey = QStringLiteral("KEY_dontShowRevealHiddenAlertDialog");

    explicit SearchResultWC(Collaborators collaborators, QWidget* parent = nullptr);
    ~SearchResultWC() override;

    // SearchResultDialog
    void prepareForNewSearchResults() override;
    void searchCompleted() override;

    void searchStarted();
    void updateSearchResults();
    void addRowAtTableView();
    void searchLabelUpdateTimer() { updateSearchResults(); }
    void updateWindowTitle();
    void ifFilteredNotFound();
    void performSearchResultsFiltering();
    void performAutomaticSearchResultsFilteringWithFilterMask();
    void enableAllFilteringButtons(bool enabled);
    void updateAllFilteringButtons();
    void updateActionButtonsWithEnableState(bool enabled);
    // cancelled runs when the user keeps the running search.
    void showNewSearchAlertDialogWithCompletion(std::function<void()> completion, std::function<void()> cancelled = {});
    void performSearchWithSelectedPath(const QString& path);
    // Empties both lists before a new search starts, letting go of the old items on a worker: a million of
    // them take a good part of a second to free.
    void releaseResultsInBackground();
    void updatePathButtonsWithButtonPressedWithTag(int tag);
    void updateCustomFolderForSearchButtonTitleWithPath(const QString& path);
    void checkCustomFolderAndUpdateButtons();
    void resetSearchBar();
    void searchBarReturnPressed();

    void filterShowRegularButtonPressed();
    void filterShowHiddenButtonPressed();
    void filterShowPackagedButtonPressed();
    void filterHiddenPopupChanged(int index);
    void selectMacForSearchButtonPressed();
    void selectUserFolderForSearchButtonPressed();
    void selectCustomFolderForSearchButtonPressed();
    void chooseCustomFolderPressed();

    // Sorts by the column's rule in its current direction, then flips the direction.
    void sortDescriptorsDidChange(const QString& key);
    static void resetSortDirections();

    // Actions on the selected rows.
    void copyActionButtonPressed() { copyToFolderMenuItemPressed(); }
    void moveActionButtonPressed() { moveToFolderMenuItemPressed(); }
    void deleteActionButtonPressed() { removeMenuItemPressed(); }
    void copyToFolderMenuItemPressed() { doCopyOrMoveAction(CopyAction, selectedItems()); }
    void moveToFolderMenuItemPressed() { doCopyOrMoveAction(MoveAction, selectedItems()); }
    void removeMenuItemPressed();
    void openMenuItemPressed();
    void showInFinderMenuItemPressed();
    void getInfoMenuItemPressed();
    void copyNameMenuItemPressed();
    void copyPathnameMenuItemPressed();
    void quickLookMenuItemPressed();
    void exportButtonPressed();
    void doCopyOrMoveAction(int code, const QList<SearchItemPtr>& items);
    void doRemoveAction(int code, const QList<SearchItemPtr>& items);
    // Removes the moved or trashed items (those done) from the lists and the table.
    void updateSearchResultsAfterAction(int code, const QByteArray& destination, const QList<SearchItemPtr>& done);
    void tryToShowHiddenFile(const QList<QByteArray>& paths);
    void showInformationAlert(const QList<QByteArray>& paths);
    void revealItems(const QList<QByteArray>& paths);

    // State, for the controller and the tests.
    bool isSearchOn() const { return m_isSearchOn; }
    bool lastSearchStoppedForNew() const { return m_lastSearchStoppedForNew; }
    uint filterMask() const { return m_filterMask; }
    void setFilterMask(uint mask);
    int rowsAdded() const;
    QTableView* tableView() const { return m_table; }
    SearchResultModel* model() const { return m_model; }
    QList<SearchItemPtr> selectedItems() const;
    QList<int> selectedRows() const;
    void selectRows(const QList<int>& rows);
    // True while a sort or re-filter runs on the worker; waitForListWork() finishes it (tests, shutdown).
    bool isListWorkPending() const;
    void waitForListWork();
    // The longest time one list change held the GUI thread, in ms (kept for measuring).
    qint64 longestListStallMs() const { return m_longestStallMs; }

Q_SIGNALS:
    // A sort or re-filter has been swapped in.
    void listWorkDone();
    // An action on files has ended (after its rows were removed); failed: the items not done.
    void actionFinished(int code, const QList<QByteArray>& failed);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    bool event(QEvent* event) override;

private:
    struct ListJob
    {
        std::function<QList<SearchItemPtr>()> work;        // on a worker
        std::function<void(QList<SearchItemPtr>&&)> apply; // on the GUI thread
    };
    void buildWindow();
    void buildMenu();
    QToolButton* makeToolButton(const QString& name, const QString& text, bool checkable);
    QPushButton* makeActionButton(const QString& name, const QString& text);
    void runListJob(std::function<ListJob()> job);
    void startNextListJob();
    void onListJobFinished();
    // Replaces the filtered list's contents inside a model reset, keeping the selected items selected.
    void swapFilteredList(QList<SearchItemPtr>&& list);
    void restoreSelection(const QList<SearchItemPtr>& items, int scrollRow);
    void noteStall(qint64 ms);
    // A location button: asks before replacing a running search; Cancel gives the buttons back.
    void searchLocationButtonPressed(int tag, const QString& folder);
    void startTimers();
    void stopTimers();
    void showPathControl(const QString& path);
    void selectFirstRowIfNone();
    void selectionChanged();
    void runFileOperation(int code, const QList<SearchItemPtr>& items, const QByteArray& destination);
    void fileOperationEnded(int code, const QList<SearchItemPtr>& items, const QByteArray& destination,
                            const FileOperationResult& result);
    void alert(const QString& title, const QString& text);
    void showOwnInformation(const QList<QByteArray>& paths);
    void updateStatusToolTip(bool completed);
    QString folderDisplayName(const QString& folder) const;
    QString currentLocation() const;
    int tagForLocation(const QString& path) const;
    bool openUrl(const QUrl& url);
    SearchResultPrompts::Question question(const QString& title, const QString& text, const QStringList& buttons,
                                           bool suppressionBox = false) const;

    SearchManager& m_searchManager;
    Settings& m_settings;
    NotificationCenter& m_center;
    HiddenManager* m_hiddenManager;
    FinderCommunicator* m_communicator;
    QuickLookController* m_quickLook;
    SearchResultPrompts m_prompts;
    std::function<void(const QString&)> m_setStatusToolTip;
    std::function<bool(const QUrl&)> m_openUrl;
    std::function<void(const QList<QByteArray>&, std::function<void(bool)>)> m_showItems;
    std::function<void(const QList<QByteArray>&, std::function<void(bool)>)> m_showItemProperties;

    QList<SearchItemPtr>& m_searchResultArray;
    QList<SearchItemPtr>& m_filteredSearchResultArray;
    bool m_isSearchOn = false;
    bool m_lastSearchStoppedForNew = false;
    // The new-search question is open; a search ending meanwhile asks its filter question only if the user
    // keeps it.
    bool m_newSearchQuestionOpen = false;
    bool m_filteredQuestionDeferred = false;
    uint m_filterMask = SearchItemClass::Regular | SearchItemClass::Hidden;
    int m_selectedLocationTag = -1;
    QString m_customFolderButtonSearchLocation;
    QByteArray m_trashFolder;

    SearchResultModel* m_model = nullptr;
    QTableView* m_table = nullptr;
    QMenu* m_contextMenu = nullptr;
    QLineEdit* m_searchBar = nullptr;
    QLabel* m_pathControl = nullptr;
    QLabel* m_searchStatLabel = nullptr;
    QLabel* m_nothingFoundStatLabel = nullptr;
    QProgressBar* m_searchIndicator = nullptr;
    QPushButton* m_stopSearchButton = nullptr;
    std::array<QToolButton*, 3> m_locationButtons{};
    QToolButton* m_chooseCustomFolderButton = nullptr;
    QToolButton* m_filterShowRegularButton = nullptr;
    QToolButton* m_filterShowHiddenButton = nullptr;
    QToolButton* m_filterShowPackagedButton = nullptr;
    QComboBox* m_filterHiddenPopupButton = nullptr;
    QPushButton* m_copyActionButton = nullptr;
    QPushButton* m_moveActionButton = nullptr;
    QPushButton* m_deleteActionButton = nullptr;
    QPushButton* m_exportButton = nullptr;
    QTimer m_timer;
    QTimer m_timerForFoundLabel;
    // The search a location button or the search bar starts a moment after the running one was cancelled;
    // dropped when another search starts first.
    QTimer m_startTimer;
    QString m_pendingTemplate;
    QString m_pendingFolder;

    std::deque<std::function<ListJob()>> m_listJobs;
    QFutureWatcher<QList<SearchItemPtr>> m_listWatcher;
    std::function<void(QList<SearchItemPtr>&&)> m_listApply;
    quint64 m_listEpoch = 0; // bumped by every change of the filtered list other than an append
    quint64 m_jobEpoch = 0;
    qint64 m_longestStallMs = 0;
};
