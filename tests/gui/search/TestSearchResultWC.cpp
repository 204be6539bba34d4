// The results window against real searches in temporary trees: rows in steps, titles and status texts,
// the filters and the question asked when they hide everything, the new-search question, locations,
// sorting, the cells' texts, and review lists shown as a finished search.
#include "SearchWindowFixture.h"
#include "core/Settings.h"
#include "search/SearchManager.h"
#include "support/SearchTreeFixture.h"

#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QtTest>

class TestSearchResultWC : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QGuiApplication::setApplicationDisplayName(QStringLiteral("Trovix")); }
    void init()
    {
        m_tree = std::make_unique<SearchTreeFixture>();
        m_w = std::make_unique<SearchWindowFixture>();
    }
    void cleanup()
    {
        m_w.reset();
        m_tree.reset();
    }

    void runningSearchShowsRowsOnTheTimerAndEndsWithTitleAndCounts();
    void filterTogglesRefillTheListAndKeepTheSelection();
    void onlyPackageContentsAsksAndYesLeavesOnlyThePackageFilter();
    void answeringNoKeepsTheFilters();
    void searchStoppedForANewOneNeverAsks();
    void newSearchQuestionCancelRestoresAndSuppressionIsStored();
    void missingFolderIsReportedAndNothingStarts();
    void customFolderIsChosenStoredAndSearched();
    void sizeHeaderTwicePutsFoldersAtOneEndThenTheOther();
    void nameSortIsCaseSensitiveAndFlipsPerClick();
    void cellsShowTheirTextsAndDimHiddenTrashAndPackageItems();
    void reviewListIsShownAsAFinishedSearch();

private:
    void buildTree()
    {
        m_tree->file("quasar.txt", "12345");
        m_tree->file(".quasar-hidden");
        m_tree->file("sub/quasar-deep.md", QByteArray(3000, 'x'));
        m_tree->file(".git/quasar-in-hidden.txt");
        m_tree->file("Thing.app/Contents/quasar-pkg");
        m_tree->folder("quasarFolder");
        m_tree->file("other.txt");
    }
    std::unique_ptr<SearchTreeFixture> m_tree;
    std::unique_ptr<SearchWindowFixture> m_w;
};

void TestSearchResultWC::runningSearchShowsRowsOnTheTimerAndEndsWithTitleAndCounts()
{
    buildTree();
    SearchResultWC& w = *m_w->window;
    QSignalSpy finished(&m_w->manager, &SearchManager::searchFinished);
    m_w->manager.performSearchWithTemplate(QStringLiteral("QUASAR"), QFile::decodeName(m_tree->root()));
    // Started: nothing shown yet.
    QVERIFY(w.isSearchOn());
    QCOMPARE(w.windowTitle(), QStringLiteral("Trovix - Searching files"));
    QCOMPARE(w.findChild<QLabel*>(QStringLiteral("searchStatLabel"))->text(), QStringLiteral("Found 0 / 0"));
    QVERIFY(w.findChild<QPushButton*>(QStringLiteral("stopSearchButton"))->isVisibleTo(&w));
    QVERIFY(!w.findChild<QToolButton*>(QStringLiteral("filterShowHiddenButton"))->isEnabled());
    QCOMPARE(SearchResultWC::kRowTimerMs, 1000);
    QCOMPARE(SearchResultWC::kCounterTimerMs, 50);
    const QString folderName = QFileInfo(QFile::decodeName(m_tree->root())).fileName();
    QCOMPARE(m_w->toolTips.last(), QStringLiteral("Trovix\nSearching \"QUASAR\"\nfor \"%1\"").arg(folderName));
    QCOMPARE(w.rowsAdded(), 0);

    // The matches reach the list before the table: rows come with the row timer only.
    QVERIFY(finished.wait(20000));
    QCOMPARE(m_w->manager.getSearchResultArray().size(), 6);
    QCOMPARE(m_w->manager.getFilteredSearchResultArray().size(), 5); // the package contents are filtered out
    QVERIFY(!w.isSearchOn());
    QCOMPARE(w.rowsAdded(), 5);
    QCOMPARE(w.windowTitle(), QStringLiteral("Trovix - Search results for \"QUASAR\", found 6"));
    QVERIFY(w.findChild<QLabel*>(QStringLiteral("searchStatLabel"))->text().startsWith(QStringLiteral("Found 6 / ")));
    QCOMPARE(m_w->toolTips.last(), QStringLiteral("Trovix\n6 files found by \"QUASAR\"\nfor \"%1\"").arg(folderName));
    QVERIFY(!w.findChild<QPushButton*>(QStringLiteral("stopSearchButton"))->isVisibleTo(&w));
    QVERIFY(w.findChild<QToolButton*>(QStringLiteral("filterShowHiddenButton"))->isEnabled());
    QCOMPARE(w.selectedRows(), QList<int>{0}); // the first row is selected for the keyboard
    QVERIFY(m_w->fake.asked.isEmpty());

    // During a search, items appended to the list wait for the row timer.
    w.searchStarted();
    QCOMPARE(w.rowsAdded(), 5);
    auto extra = std::make_shared<SearchItem>("quasar-late", SearchFolder::make(m_tree->root()));
    m_w->manager.getSearchResultArray().append(extra);
    m_w->manager.getFilteredSearchResultArray().append(extra);
    QCOMPARE(w.model()->rowCount(), 5);
    w.addRowAtTableView();
    QCOMPARE(w.model()->rowCount(), 6);
    w.searchCompleted();

    // Nothing found: the label says so and the title counts 0.
    m_w->search(QStringLiteral("no-such-name"), m_tree->root());
    QCOMPARE(w.windowTitle(), QStringLiteral("Trovix - Search results for \"no-such-name\", found 0"));
    auto* nothing = w.findChild<QLabel*>(QStringLiteral("nothingFoundStatLabel"));
    QVERIFY(nothing->isVisibleTo(&w));
    QCOMPARE(nothing->text(), QStringLiteral("Nothing found for \"no-such-name\""));
    QCOMPARE(m_w->toolTips.last(),
             QStringLiteral("Trovix\nNo file found by \"no-such-name\"\nfor \"%1\"").arg(folderName));
    QCOMPARE(w.model()->rowCount(), 0);
}

void TestSearchResultWC::filterTogglesRefillTheListAndKeepTheSelection()
{
    buildTree();
    SearchResultWC& w = *m_w->window;
    m_w->search(QStringLiteral("quasar"), m_tree->root());
    QCOMPARE(m_w->shownNames().size(), 5);
    m_w->select({QStringLiteral("quasar.txt")});

    auto* hidden = w.findChild<QToolButton*>(QStringLiteral("filterShowHiddenButton"));
    auto* packaged = w.findChild<QToolButton*>(QStringLiteral("filterShowPackagedButton"));
    auto* regular = w.findChild<QToolButton*>(QStringLiteral("filterShowRegularButton"));
    QVERIFY(hidden->isChecked() && regular->isChecked() && !packaged->isChecked());
    hidden->click();
    w.waitForListWork();
    QCOMPARE(w.filterMask(), 1u);
    QCOMPARE(m_w->manager.filterMask(), 1u);
    QStringList names = m_w->shownNames();
    names.sort();
    QCOMPARE(names, (QStringList{QStringLiteral("quasar-deep.md"), QStringLiteral("quasar.txt"),
                                 QStringLiteral("quasarFolder")}));
    QCOMPARE(w.selectedItems().size(), 1);
    QCOMPARE(w.selectedItems().first()->fileName(), QStringLiteral("quasar.txt"));

    packaged->click();
    regular->click();
    w.waitForListWork();
    QCOMPARE(w.filterMask(), 4u);
    QCOMPARE(m_w->shownNames(), QStringList{QStringLiteral("quasar-pkg")});

    // The pop-up: only hidden, then everything.
    auto* popup = w.findChild<QComboBox*>(QStringLiteral("filterHiddenPopupButton"));
    popup->setCurrentIndex(1);
    Q_EMIT popup->activated(1);
    w.waitForListWork();
    names = m_w->shownNames();
    names.sort();
    QCOMPARE(names, (QStringList{QStringLiteral(".quasar-hidden"), QStringLiteral("quasar-in-hidden.txt")}));
    QVERIFY(hidden->isChecked() && !regular->isChecked() && !packaged->isChecked());
    Q_EMIT popup->activated(2);
    w.waitForListWork();
    QCOMPARE(m_w->shownNames().size(), 6);
    // The list keeps the order the items arrived in.
    QCOMPARE(m_w->manager.getFilteredSearchResultArray(), m_w->manager.getSearchResultArray());
}

void TestSearchResultWC::onlyPackageContentsAsksAndYesLeavesOnlyThePackageFilter()
{
    m_tree->file("Thing.app/Contents/quasar-a");
    m_tree->file("Thing.app/Contents/.quasar-b");
    SearchResultWC& w = *m_w->window;
    m_w->search(QStringLiteral("quasar"), m_tree->root());
    QCOMPARE(w.model()->rowCount(), 0);
    QCOMPARE(m_w->fake.titles(), QStringList{QStringLiteral("Package contents found only")});
    const auto& q = m_w->fake.asked.first();
    QCOMPARE(q.text, QStringLiteral("Would you like to display package contents files?"));
    QCOMPARE(q.buttons, (QStringList{QStringLiteral("Yes"), QStringLiteral("No")}));
    QVERIFY(q.applicationIcon);
    QTRY_COMPARE(w.filterMask(), 4u);
    w.waitForListWork();
    QCOMPARE(m_w->manager.filterMask(), 4u);
    QCOMPARE(w.model()->rowCount(), 2);
    QVERIFY(w.findChild<QToolButton*>(QStringLiteral("filterShowPackagedButton"))->isChecked());
    QVERIFY(!w.findChild<QToolButton*>(QStringLiteral("filterShowRegularButton"))->isChecked());
    QVERIFY(!w.findChild<QToolButton*>(QStringLiteral("filterShowHiddenButton"))->isChecked());
}

void TestSearchResultWC::answeringNoKeepsTheFilters()
{
    // Regular files found only inside a hidden folder: the filter hides them (they are listed as hidden) and
    // the found mask says "regular", so that is the question.
    m_tree->file(".cache/quasar-visible");
    SearchResultWC& w = *m_w->window;
    w.setFilterMask(SearchItemClass::Regular);
    m_w->fake.answer = [](const auto&) { return FakePrompts::Answer{1, false}; };
    m_w->search(QStringLiteral("quasar"), m_tree->root());
    QCOMPARE(m_w->fake.titles(), QStringList{QStringLiteral("Regular files found")});
    QCOMPARE(m_w->fake.asked.first().text, QStringLiteral("Would you like to display regular files?"));
    QTest::qWait(20);
    w.waitForListWork();
    QCOMPARE(w.filterMask(), 1u);
    QCOMPARE(w.model()->rowCount(), 0);
}

void TestSearchResultWC::searchStoppedForANewOneNeverAsks()
{
    m_tree->file("Thing.app/Contents/quasar-a");
    SearchResultWC& w = *m_w->window;
    m_w->manager.performSearchWithTemplate(QStringLiteral("quasar"), QFile::decodeName(m_tree->root()));
    QVERIFY(w.isSearchOn());
    // Before the first search's end reaches the window, the user starts another from the search bar.
    auto* bar = w.findChild<QLineEdit*>(QStringLiteral("searchBar"));
    QCOMPARE(bar->text(), QStringLiteral("quasar"));
    bar->setText(QStringLiteral("nothing-like-this"));
    QSignalSpy finished(&m_w->manager, &SearchManager::searchFinished);
    QMetaObject::invokeMethod(bar, "returnPressed");
    QCOMPARE(m_w->fake.titles(), QStringList{QStringLiteral("Are you sure you want to start new search?")});
    // The stopped search may still end; then the new one runs and ends with nothing found.
    QTRY_COMPARE_WITH_TIMEOUT(w.windowTitle(),
                              QStringLiteral("Trovix - Search results for \"nothing-like-this\", found 0"), 20000);
    QVERIFY(!w.isSearchOn());
    QTest::qWait(50);
    QCOMPARE(m_w->fake.titles(), QStringList{QStringLiteral("Are you sure you want to start new search?")});
    QCOMPARE(m_w->settings.settings.getSearchLocation().toString(), QFile::decodeName(m_tree->root()));

    // Kept ("Cancel"): the search that ends asks its question, whether it ended before the answer or after.
    m_w->fake.asked.clear();
    m_w->fake.answer = [](const auto&) { return FakePrompts::Answer{1, false}; };
    QSignalSpy second(&m_w->manager, &SearchManager::searchFinished);
    m_w->manager.performSearchWithTemplate(QStringLiteral("quasar"), QFile::decodeName(m_tree->root()));
    QMetaObject::invokeMethod(bar, "returnPressed");
    QTRY_COMPARE_WITH_TIMEOUT(m_w->fake.titles(),
                              (QStringList{QStringLiteral("Are you sure you want to start new search?"),
                                           QStringLiteral("Package contents found only")}),
                              20000);
    QCOMPARE(bar->text(), QStringLiteral("quasar"));
    QCOMPARE(second.size(), 1);
}

void TestSearchResultWC::newSearchQuestionCancelRestoresAndSuppressionIsStored()
{
    SearchResultWC& w = *m_w->window;
    m_w->manager.setSearchTemplate(QStringLiteral("running"));
    w.searchStarted();
    auto* bar = w.findChild<QLineEdit*>(QStringLiteral("searchBar"));
    auto* home = w.findChild<QToolButton*>(QStringLiteral("selectUserFolderForSearchButton"));
    auto* disk = w.findChild<QToolButton*>(QStringLiteral("selectMacForSearchButton"));
    w.updatePathButtonsWithButtonPressedWithTag(1);
    bar->setText(QStringLiteral("typed"));

    bool started = false;
    m_w->fake.answer = [](const auto&) { return FakePrompts::Answer{1, true}; };
    disk->click();
    QVERIFY(disk->isChecked());
    QCOMPARE(m_w->fake.asked.size(), 1);
    const auto& q = m_w->fake.asked.first();
    QCOMPARE(q.text, QStringLiteral("Current search will be cancelled and new search will be started."));
    QCOMPARE(q.buttons, (QStringList{QStringLiteral("Start"), QStringLiteral("Cancel")}));
    QVERIFY(q.suppressionBox);
    // Cancel: the running search's text and location buttons come back.
    QTRY_COMPARE(bar->text(), QStringLiteral("running"));
    QVERIFY(home->isChecked() && !disk->isChecked());
    QVERIFY(!w.lastSearchStoppedForNew());
    // The box ticked on closing is stored whatever the button.
    QVERIFY(m_w->settings.standard.boolForKey(SettingsKey::DontShowNewSearchAlertDialog));

    // Suppressed: no question, the new search goes ahead and marks the running one as stopped for it.
    w.showNewSearchAlertDialogWithCompletion([&started] { started = true; });
    QVERIFY(started);
    QCOMPARE(m_w->fake.asked.size(), 1);
    QVERIFY(w.lastSearchStoppedForNew());

    // Not searching: never asked.
    w.searchCompleted();
    m_w->settings.standard.saveBoolValue(false, SettingsKey::DontShowNewSearchAlertDialog);
    started = false;
    w.showNewSearchAlertDialogWithCompletion([&started] { started = true; });
    QVERIFY(started);
    QCOMPARE(m_w->fake.asked.size(), 1);
}

void TestSearchResultWC::missingFolderIsReportedAndNothingStarts()
{
    SearchResultWC& w = *m_w->window;
    QSignalSpy started(&m_w->manager, &SearchManager::searchFinished);
    w.findChild<QLineEdit*>(QStringLiteral("searchBar"))->setText(QStringLiteral("x"));
    w.performSearchWithSelectedPath(QFile::decodeName(m_tree->path("gone-folder")));
    QCOMPARE(m_w->fake.titles(), QStringList{QStringLiteral("Can't search for desired folder")});
    QCOMPARE(m_w->fake.asked.first().text,
             QStringLiteral("The folder gone-folder is not exist. Choose other folder to start searching."));
    QCOMPARE(m_w->fake.asked.first().buttons, (QStringList{QStringLiteral("OK"), QStringLiteral("Cancel")}));
    QTest::qWait(200);
    QCOMPARE(started.size(), 0);
    QVERIFY(!m_w->manager.isSearching());
}

void TestSearchResultWC::customFolderIsChosenStoredAndSearched()
{
    m_tree->file("picked/quasar-here");
    SearchResultWC& w = *m_w->window;
    auto* custom = w.findChild<QToolButton*>(QStringLiteral("selectCustomFolderForSearchButton"));
    QCOMPARE(custom->text(), QStringLiteral("Custom Folder..."));
    w.findChild<QLineEdit*>(QStringLiteral("searchBar"))->setText(QStringLiteral("quasar"));
    m_w->fake.folder = QFile::decodeName(m_tree->path("picked"));
    QSignalSpy finished(&m_w->manager, &SearchManager::searchFinished);
    custom->click();
    QVERIFY(finished.wait(20000));
    QCOMPARE(m_w->settings.settings.getCustomFolderButtonSearchLocation().toString(), m_w->fake.folder);
    QCOMPARE(custom->text(), QStringLiteral("picked"));
    QVERIFY(custom->isChecked());
    QCOMPARE(m_w->manager.searchLocation(), m_w->fake.folder);
    QCOMPARE(m_w->shownNames(), QStringList{QStringLiteral("quasar-here")});
    QVERIFY(w.findChild<QLabel*>(QStringLiteral("pathControl"))->text().endsWith(QStringLiteral("\u203A picked")));
    // Pressing it again searches the stored folder without asking for one.
    m_w->fake.folder.clear();
    custom->click();
    QVERIFY(custom->isChecked());
    QVERIFY(finished.wait(20000));
    QCOMPARE(m_w->fake.folderPrompts.size(), 1);
}

void TestSearchResultWC::sizeHeaderTwicePutsFoldersAtOneEndThenTheOther()
{
    m_tree->file("quasar-small", "1");
    m_tree->file("quasar-big", QByteArray(5000, 'b'));
    m_tree->folder("quasar-dir");
    m_tree->file("quasar-mid", QByteArray(300, 'm'));
    SearchResultWC& w = *m_w->window;
    m_w->search(QStringLiteral("quasar"), m_tree->root());
    QHeaderView* header = w.tableView()->horizontalHeader();
    const auto clickSize = [&] {
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                          QPoint(header->sectionViewportPosition(SearchResultModel::SizeColumn) + 10, 5));
        w.waitForListWork();
    };
    // First click: ascending by unsigned size, where a folder's -1 is the largest.
    clickSize();
    QCOMPARE(m_w->shownNames(), (QStringList{QStringLiteral("quasar-small"), QStringLiteral("quasar-mid"),
                                             QStringLiteral("quasar-big"), QStringLiteral("quasar-dir")}));
    QCOMPARE(header->sortIndicatorOrder(), Qt::AscendingOrder);
    clickSize();
    QCOMPARE(m_w->shownNames(), (QStringList{QStringLiteral("quasar-dir"), QStringLiteral("quasar-big"),
                                             QStringLiteral("quasar-mid"), QStringLiteral("quasar-small")}));
    QCOMPARE(header->sortIndicatorOrder(), Qt::DescendingOrder);
    // The manager's list itself is in that order (the window shows it, it does not keep a copy).
    QCOMPARE(m_w->manager.getFilteredSearchResultArray().first()->fileName(), QStringLiteral("quasar-dir"));
}

void TestSearchResultWC::nameSortIsCaseSensitiveAndFlipsPerClick()
{
    for (const char* name : {"b-quasar", "B-quasar", "a-quasar", "A-quasar"})
        m_tree->file(name);
    SearchResultWC& w = *m_w->window;
    m_w->search(QStringLiteral("quasar"), m_tree->root());
    m_w->select({QStringLiteral("a-quasar")});
    w.sortDescriptorsDidChange(QStringLiteral("KEY_nameSort"));
    w.waitForListWork();
    QCOMPARE(m_w->shownNames(), (QStringList{QStringLiteral("A-quasar"), QStringLiteral("B-quasar"),
                                             QStringLiteral("a-quasar"), QStringLiteral("b-quasar")}));
    // The selection follows its item.
    QCOMPARE(w.selectedRows(), QList<int>{2});
    w.sortDescriptorsDidChange(QStringLiteral("KEY_nameSort"));
    w.waitForListWork();
    QCOMPARE(m_w->shownNames().first(), QStringLiteral("b-quasar"));
    QCOMPARE(w.selectedRows(), QList<int>{1});
    // An unknown key does nothing.
    const QStringList before = m_w->shownNames();
    w.sortDescriptorsDidChange(QStringLiteral("KEY_colourSort"));
    QVERIFY(!w.isListWorkPending());
    QCOMPARE(m_w->shownNames(), before);
}

void TestSearchResultWC::cellsShowTheirTextsAndDimHiddenTrashAndPackageItems()
{
    SearchResultWC& w = *m_w->window;
    auto rootFolder = SearchFolder::make("//usr/share", false, false);
    auto make = [&](QByteArray name, qint64 size, const char* type) {
        auto item = std::make_shared<SearchItem>(std::move(name), rootFolder);
        item->fileSize = size;
        item->typeIndex = SearchTypes::intern(QString::fromLatin1(type));
        return item;
    };
    QList<SearchItemPtr> items;
    items << make("plain.txt", 1536, "text/plain");
    items << make("", 10, "text/plain");
    items.last()->modifiedMSecs = QDateTime(QDate(2021, 1, 1), QTime(15, 4), Qt::UTC).toMSecsSinceEpoch();
    items << make("folder", -1, "inode/directory");
    items << make(".hidden", 0, "text/plain");
    items.last()->fileHidden = true;
    auto trash = SearchFolder::make(QFile::encodeName(QDir::homePath()) + "/.local/share/Trash/files", false, false);
    items << std::make_shared<SearchItem>("trashed", trash);
    auto package = SearchFolder::make("/opt/X.app/Contents", true, false);
    items << std::make_shared<SearchItem>("inner", package);
    items.last()->fileInPackage = true;
    items << make("unreadable", 0, "");
    for (const SearchItemPtr& item : items) {
        m_w->manager.getSearchResultArray().append(item);
        m_w->manager.getFilteredSearchResultArray().append(item);
    }
    w.addRowAtTableView();
    SearchResultModel* model = w.model();
    QCOMPARE(model->rowCount(), items.size());
    const auto cell = [&](int row, int column, int role = Qt::DisplayRole) {
        return model->index(row, column).data(role);
    };
    // "//" folder paths of a walk of "/" read with one slash.
    QCOMPARE(cell(0, SearchResultModel::NameColumn, Qt::ToolTipRole).toString(), QStringLiteral("/usr/share"));
    QCOMPARE(cell(0, SearchResultModel::FolderColumn).toString(), QStringLiteral("share"));
    QCOMPARE(cell(0, SearchResultModel::SizeColumn).toString(), QStringLiteral("1.5 KB"));
    QCOMPARE(cell(0, SearchResultModel::DateColumn).toString(), QStringLiteral("Unknown"));
    QVERIFY(!cell(0, SearchResultModel::NameColumn, Qt::DecorationRole).value<QIcon>().isNull());
    QCOMPARE(cell(0, SearchResultModel::TypeColumn).toString(), QStringLiteral("Regular file"));
    QCOMPARE(cell(1, SearchResultModel::NameColumn).toString(), QStringLiteral("noname"));
    // The week-based year and the twelve-hour clock of "YYYY-MM-dd hh:mm a".
    QCOMPARE(SearchResultModel::dateText(*items.at(1)).left(4), QStringLiteral("2020"));
    QVERIFY(SearchResultModel::dateText(*items.at(1)).endsWith(QStringLiteral(" PM")));
    QCOMPARE(cell(2, SearchResultModel::SizeColumn).toString(), QStringLiteral("--"));
    QCOMPARE(cell(6, SearchResultModel::SizeColumn).toString(), QStringLiteral("Unknown"));
    QCOMPARE(cell(3, SearchResultModel::TypeColumn).toString(), QStringLiteral("Hidden file"));
    QCOMPARE(cell(5, SearchResultModel::TypeColumn).toString(), QStringLiteral("Package contents"));
    const QList<bool> dimmed{false, false, false, true, true, true, false};
    for (int row = 0; row < items.size(); ++row)
        QCOMPARE(cell(row, 0, SearchResultModel::DimmedRole).toBool(), dimmed.at(row));
}

void TestSearchResultWC::reviewListIsShownAsAFinishedSearch()
{
    m_tree->file("big.iso", QByteArray(4096, 'i'));
    m_tree->file(".old-cache.bin");
    m_tree->file("Thing.app/Contents/inner.bin");
    SearchResultWC& w = *m_w->window;
    QSignalSpy opened(&m_w->manager, &SearchManager::searchFinished);
    int openRequests = 0;
    m_w->settings.center.addObserver(SearchManager::openSearchResultDialogNotification(), nullptr, &w,
                                     [&openRequests](const Notification&) { ++openRequests; });
    m_w->manager.presentItemsAtPaths(QStringLiteral("Large files"),
                                     {m_tree->path("big.iso"), m_tree->path("gone.bin"), m_tree->path(".old-cache.bin"),
                                      m_tree->path("big.iso"), m_tree->path("Thing.app/Contents/inner.bin")});
    QCOMPARE(openRequests, 1);
    QCOMPARE(opened.size(), 1);
    QVERIFY(!w.isSearchOn());
    QCOMPARE(w.windowTitle(), QStringLiteral("Trovix - Search results for \"Large files\", found 3"));
    QCOMPARE(m_w->manager.foundItemsMask(), 7u);
    QStringList names = m_w->shownNames();
    names.sort();
    QCOMPARE(names, (QStringList{QStringLiteral(".old-cache.bin"), QStringLiteral("big.iso")}));
    const SearchItemPtr big = m_w->manager.getSearchResultArray().first();
    QCOMPARE(big->fileSize, 4096);
    QCOMPARE(big->nativeFullPath(), m_tree->path("big.iso"));
    QVERIFY(m_w->manager.getSearchResultArray().at(1)->fileHidden);
    QVERIFY(m_w->manager.getSearchResultArray().at(2)->fileInPackage);
    QVERIFY(m_w->fake.asked.isEmpty());
}

QTEST_MAIN(TestSearchResultWC)
#include "TestSearchResultWC.moc"
