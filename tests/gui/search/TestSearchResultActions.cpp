// The actions of the results window against real files in temporary folders, through the real
// file-operation scripts: nothing is overwritten, moved and trashed rows leave the table only when the
// file really went, failures are shown and their rows kept; the questions come in their order; reveal,
// properties, open, the clipboard, the preview and the export act on the items' own bytes.
#include "SearchWindowFixture.h"
#include "core/Settings.h"
#include "gui/search/FileInfoDialog.h"
#include "gui/search/QuickLookPanel.h"
#include "hidden/DiskAccessRestoreManager.h"
#include "hidden/HiddenManager.h"
#include "hidden/Preferences.h"
#include "search/FileManagerBus.h"
#include "support/HiddenFakeScriptRunner.h"
#include "support/RawFiles.h"
#include "support/SearchTreeFixture.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QPushButton>
#include <QtTest>

class TestSearchResultActions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QGuiApplication::setApplicationDisplayName(QStringLiteral("Trovix")); }
    void init()
    {
        m_tree = std::make_unique<SearchTreeFixture>();
        m_tree->file("src/quasar-a.txt", "A");
        m_tree->file("src/quasar-b.txt", "B");
        m_tree->file("src/Thing.app/Contents/quasar-pkg.txt", "P");
        m_tree->folder("src/quasar-dir/inner");
        m_tree->file("dest/quasar-b.txt", "keep");
        m_w = std::make_unique<SearchWindowFixture>();
        m_w->window->setFilterMask(SearchItemClass::All);
        m_w->search(QStringLiteral("quasar"), m_tree->path("src"));
        QCOMPARE(m_w->shownNames().size(), 4);
    }
    void cleanup()
    {
        m_w.reset();
        m_tree.reset();
    }

    void moveRemovesOnlyTheRowsReallyMovedAndNeverOverwrites();
    void copyKeepsTheRowsAndNeverOverwrites();
    void copyIntoItselfIsRefused();
    void movingPackageContentsAsksFirstCopyingDoesNot();
    void deleteKeyTrashesAfterTheQuestion();
    void suppressedDeleteQuestionLeavesOnlyThePackageWarning();
    void failedTrashKeepsTheRowAndSaysWhy();
    void aNameThatIsNotUtf8IsTrashedByItsBytes();
    void keysCopyNamesAndPathsToTheClipboard();
    void revealFallsBackToTheParentFolder();
    void revealingAHiddenFileWithoutTheManagerExplainsFirst();
    void revealingAHiddenFileOffersToShowHiddenFilesFirst();
    void propertiesFallBackToTheProgramsOwnDialog();
    void enterOpensTheSelectedItem();
    void spacePreviewsTheSelectionInTableOrder();
    void exportWritesTheShownRows();
    void actionButtonsFollowTheSelection();

private:
    QByteArray src(const QByteArray& name) const { return m_tree->path("src/" + name); }
    QByteArray dest(const QByteArray& name) const { return m_tree->path("dest/" + name); }
    QList<QByteArray> runAction(const std::function<void()>& action)
    {
        QSignalSpy finished(m_w->window.get(), &SearchResultWC::actionFinished);
        action();
        if (finished.isEmpty() && !finished.wait(20000))
            return {"<no end>"};
        return finished.first().at(1).value<QList<QByteArray>>();
    }
    std::unique_ptr<SearchTreeFixture> m_tree;
    std::unique_ptr<SearchWindowFixture> m_w;
};

void TestSearchResultActions::moveRemovesOnlyTheRowsReallyMovedAndNeverOverwrites()
{
    SearchResultWC& w = *m_w->window;
    m_w->select({QStringLiteral("quasar-a.txt"), QStringLiteral("quasar-b.txt")});
    m_w->fake.folder = QFile::decodeName(m_tree->path("dest"));
    const QList<QByteArray> failed = runAction([&] { w.moveToFolderMenuItemPressed(); });
    QCOMPARE(m_w->fake.folderPrompts, QStringList{QStringLiteral("Move")});
    QCOMPARE(failed, QList<QByteArray>{src("quasar-b.txt")});
    QVERIFY(!pathExists(src("quasar-a.txt")));
    QCOMPARE(readBytes(dest("quasar-a.txt")), QByteArray("A"));
    // The clash: neither file was touched.
    QCOMPARE(readBytes(src("quasar-b.txt")), QByteArray("B"));
    QCOMPARE(readBytes(dest("quasar-b.txt")), QByteArray("keep"));
    QVERIFY(!m_w->shownNames().contains(QStringLiteral("quasar-a.txt")));
    QVERIFY(m_w->shownNames().contains(QStringLiteral("quasar-b.txt")));
    QCOMPARE(m_w->manager.getSearchResultArray().size(), 3);
    QCOMPARE(w.windowTitle(), QStringLiteral("Trovix - Search results for \"quasar\", found 3"));
    // The user reads which one failed and why.
    QTRY_COMPARE(m_w->fake.titles().last(), QStringLiteral("Some files could not be moved"));
    QVERIFY2(m_w->fake.asked.last().text.contains(QStringLiteral("quasar-b.txt")),
             qPrintable(m_w->fake.asked.last().text));
    // The row that stayed is still selected.
    QCOMPARE(w.selectedItems().size(), 1);
    QCOMPARE(w.selectedItems().first()->fileName(), QStringLiteral("quasar-b.txt"));
}

void TestSearchResultActions::copyKeepsTheRowsAndNeverOverwrites()
{
    SearchResultWC& w = *m_w->window;
    m_w->select({QStringLiteral("quasar-a.txt"), QStringLiteral("quasar-b.txt")});
    m_w->fake.folder = QFile::decodeName(m_tree->path("dest"));
    const QList<QByteArray> failed = runAction([&] { w.copyActionButtonPressed(); });
    QCOMPARE(m_w->fake.folderPrompts, QStringList{QStringLiteral("Copy")});
    QCOMPARE(failed, QList<QByteArray>{src("quasar-b.txt")});
    QCOMPARE(readBytes(src("quasar-a.txt")), QByteArray("A"));
    QCOMPARE(readBytes(dest("quasar-a.txt")), QByteArray("A"));
    QCOMPARE(readBytes(dest("quasar-b.txt")), QByteArray("keep"));
    QCOMPARE(m_w->shownNames().size(), 4);
    QTRY_COMPARE(m_w->fake.titles().last(), QStringLiteral("Some files could not be copied"));
}

void TestSearchResultActions::copyIntoItselfIsRefused()
{
    SearchResultWC& w = *m_w->window;
    m_w->select({QStringLiteral("quasar-dir")});
    m_w->fake.folder = QFile::decodeName(src("quasar-dir"));
    QSignalSpy finished(&w, &SearchResultWC::actionFinished);
    w.copyToFolderMenuItemPressed();
    QTRY_COMPARE(m_w->fake.asked.size(), 1);
    QCOMPARE(
        m_w->fake.asked.first().title,
        QStringLiteral("You can't copy \"quasar-dir\" at this location because you can't copy an item into itself."));
    QCOMPARE(m_w->fake.asked.first().buttons, QStringList{QStringLiteral("OK")});
    QTest::qWait(100);
    QCOMPARE(finished.size(), 0);
    QVERIFY(!pathExists(src("quasar-dir/quasar-dir")));

    m_w->fake.asked.clear();
    w.moveToFolderMenuItemPressed();
    QTRY_COMPARE(m_w->fake.asked.size(), 1);
    QVERIFY(m_w->fake.asked.first().title.startsWith(QStringLiteral("You can't move \"quasar-dir\"")));
}

void TestSearchResultActions::movingPackageContentsAsksFirstCopyingDoesNot()
{
    SearchResultWC& w = *m_w->window;
    m_w->select({QStringLiteral("quasar-pkg.txt")});
    m_w->fake.answer = [](const auto&) { return FakePrompts::Answer{1, false}; };
    w.moveActionButtonPressed();
    QCOMPARE(m_w->fake.titles(),
             QStringList{QStringLiteral("Are you sure you want to move files from package contents?")});
    QCOMPARE(m_w->fake.asked.first().text, QStringLiteral("Changing package contents may corrupt the packages."));
    QCOMPARE(m_w->fake.asked.first().buttons, (QStringList{QStringLiteral("Move"), QStringLiteral("Cancel")}));
    QTest::qWait(50);
    QVERIFY(m_w->fake.folderPrompts.isEmpty()); // cancelled before the folder choice

    m_w->fake.folder = QFile::decodeName(m_tree->path("dest"));
    const QList<QByteArray> failed = runAction([&] { w.copyToFolderMenuItemPressed(); });
    QVERIFY(failed.isEmpty());
    QCOMPARE(m_w->fake.asked.size(), 1);
    QCOMPARE(readBytes(dest("quasar-pkg.txt")), QByteArray("P"));
}

void TestSearchResultActions::deleteKeyTrashesAfterTheQuestion()
{
    SearchResultWC& w = *m_w->window;
    m_w->select({QStringLiteral("quasar-a.txt")});
    const int row = w.selectedRows().first();
    const QString next = m_w->shownNames().value(row + 1, m_w->shownNames().value(row - 1));
    m_w->fake.answer = [](const auto&) { return FakePrompts::Answer{0, false}; };
    const QList<QByteArray> failed = runAction([&] { QTest::keyClick(w.tableView(), Qt::Key_Delete); });
    QCOMPARE(m_w->fake.titles(), QStringList{QStringLiteral("Are you sure you want to remove selected files?")});
    QCOMPARE(m_w->fake.asked.first().text, QStringLiteral("All selected files will be removed to Trash."));
    QCOMPARE(m_w->fake.asked.first().buttons, (QStringList{QStringLiteral("Yes"), QStringLiteral("No")}));
    QVERIFY(m_w->fake.asked.first().suppressionBox);
    QVERIFY(failed.isEmpty());
    QVERIFY(!pathExists(src("quasar-a.txt")));
    QCOMPARE(readBytes(trashFolder() + "/files/quasar-a.txt"), QByteArray("A"));
    QVERIFY(pathExists(trashFolder() + "/info/quasar-a.txt.trashinfo"));
    QVERIFY(!m_w->shownNames().contains(QStringLiteral("quasar-a.txt")));
    QCOMPARE(m_w->manager.getSearchResultArray().size(), 3);
    QVERIFY(!m_w->settings.standard.boolForKey(SettingsKey::DontShowDeleteAlertDialog));
    // The row that took its place is selected, for the next key press.
    QCOMPARE(w.selectedItems().size(), 1);
    QCOMPARE(w.selectedItems().first()->fileName(), next);

    // "No" leaves everything; Ctrl+Backspace asks the same.
    m_w->select({QStringLiteral("quasar-b.txt")});
    m_w->fake.answer = [](const auto&) { return FakePrompts::Answer{1, true}; };
    QTest::keyClick(w.tableView(), Qt::Key_Backspace, Qt::ControlModifier);
    QCOMPARE(m_w->fake.asked.size(), 2);
    QTest::qWait(100);
    QVERIFY(pathExists(src("quasar-b.txt")));
    QVERIFY(m_w->shownNames().contains(QStringLiteral("quasar-b.txt")));
    QVERIFY(!m_w->settings.standard.boolForKey(SettingsKey::DontShowDeleteAlertDialog));
}

void TestSearchResultActions::suppressedDeleteQuestionLeavesOnlyThePackageWarning()
{
    SearchResultWC& w = *m_w->window;
    m_w->select({QStringLiteral("quasar-a.txt")});
    // "Do not show again" ticked on "Yes" is stored.
    m_w->fake.answer = [](const auto&) { return FakePrompts::Answer{0, true}; };
    QVERIFY(runAction([&] { w.deleteActionButtonPressed(); }).isEmpty());
    QVERIFY(m_w->settings.standard.boolForKey(SettingsKey::DontShowDeleteAlertDialog));

    m_w->fake.asked.clear();
    m_w->select({QStringLiteral("quasar-pkg.txt")});
    QVERIFY(runAction([&] { w.removeMenuItemPressed(); }).isEmpty());
    QCOMPARE(m_w->fake.titles(),
             QStringList{QStringLiteral("Are you sure you want to remove files from package contents?")});
    QCOMPARE(m_w->fake.asked.first().buttons, (QStringList{QStringLiteral("Remove"), QStringLiteral("Cancel")}));
    QVERIFY(!pathExists(src("Thing.app/Contents/quasar-pkg.txt")));
    QVERIFY(pathExists(trashFolder() + "/files/quasar-pkg.txt"));
}

void TestSearchResultActions::failedTrashKeepsTheRowAndSaysWhy()
{
    SearchResultWC& w = *m_w->window;
    m_w->settings.standard.saveBoolValue(true, SettingsKey::DontShowDeleteAlertDialog);
    m_w->select({QStringLiteral("quasar-a.txt"), QStringLiteral("quasar-b.txt")});
    QVERIFY(QFile::remove(QFile::decodeName(src("quasar-a.txt"))));
    const QList<QByteArray> failed = runAction([&] { w.deleteActionButtonPressed(); });
    QCOMPARE(failed, QList<QByteArray>{src("quasar-a.txt")});
    QVERIFY(m_w->shownNames().contains(QStringLiteral("quasar-a.txt")));
    QVERIFY(!m_w->shownNames().contains(QStringLiteral("quasar-b.txt")));
    QTRY_COMPARE(m_w->fake.titles().last(), QStringLiteral("Some files could not be moved to the Trash"));
    QVERIFY(m_w->fake.asked.last().text.contains(QStringLiteral("quasar-a.txt")));
    QVERIFY(m_w->fake.asked.last().text.contains(QStringLiteral("no longer exists")));
}

void TestSearchResultActions::aNameThatIsNotUtf8IsTrashedByItsBytes()
{
    const QByteArray bad = QByteArray("quasar-\xff\xfe.bin");
    m_tree->file("src/" + bad, "bytes");
    m_w->search(QStringLiteral("quasar"), m_tree->path("src"));
    SearchResultWC& w = *m_w->window;
    int row = -1;
    for (int i = 0; i < w.model()->rowCount(); ++i)
        if (w.model()->itemAt(i)->rawFileName == bad)
            row = i;
    QVERIFY(row >= 0);
    QVERIFY(w.model()->index(row, 0).data().toString().contains(QChar(0xFFFD)));
    w.selectRows({row});
    m_w->settings.standard.saveBoolValue(true, SettingsKey::DontShowDeleteAlertDialog);
    QVERIFY(runAction([&] { w.removeMenuItemPressed(); }).isEmpty());
    QVERIFY(!pathExists(src(bad)));
    QCOMPARE(readBytes(trashFolder() + "/files/" + bad), QByteArray("bytes"));
}

void TestSearchResultActions::keysCopyNamesAndPathsToTheClipboard()
{
    SearchResultWC& w = *m_w->window;
    m_w->select({QStringLiteral("quasar-b.txt"), QStringLiteral("quasar-a.txt")});
    const QStringList inRowOrder = [&] {
        QStringList names;
        for (const SearchItemPtr& item : w.selectedItems())
            names.append(item->fileName());
        return names;
    }();
    QTest::keyClick(w.tableView(), Qt::Key_C, Qt::ControlModifier);
    QCOMPARE(QGuiApplication::clipboard()->text(), inRowOrder.join(QLatin1Char('\n')));
    QTest::keyClick(w.tableView(), Qt::Key_C, Qt::ControlModifier | Qt::AltModifier);
    QStringList paths;
    for (const QString& name : inRowOrder)
        paths.append(QFile::decodeName(src(name.toUtf8())));
    QCOMPARE(QGuiApplication::clipboard()->text(), paths.join(QLatin1Char('\n')));
}

void TestSearchResultActions::revealFallsBackToTheParentFolder()
{
    SearchResultWC& w = *m_w->window;
    m_w->select({QStringLiteral("quasar-a.txt")});
    QTest::keyClick(w.tableView(), Qt::Key_Return, Qt::ControlModifier);
    QCOMPARE(m_w->revealed, QList<QList<QByteArray>>{{src("quasar-a.txt")}});
    QVERIFY(m_w->opened.isEmpty());
    m_w->fileManagerAnswers = false;
    w.showInFinderMenuItemPressed();
    QCOMPARE(m_w->opened, QList<QUrl>{QUrl::fromLocalFile(QFile::decodeName(m_tree->path("src")))});
}

void TestSearchResultActions::revealingAHiddenFileWithoutTheManagerExplainsFirst()
{
    m_tree->file("src/.quasar-secret");
    m_w->search(QStringLiteral("quasar"), m_tree->path("src"));
    SearchResultWC& w = *m_w->window;
    m_w->select({QStringLiteral(".quasar-secret")});
    m_w->fake.answer = [](const auto&) { return FakePrompts::Answer{2, false}; };
    w.showInFinderMenuItemPressed();
    QCOMPARE(m_w->fake.asked.size(), 1);
    QVERIFY(m_w->fake.asked.first().title.startsWith(QStringLiteral("You try to reveal a hidden file in ")));
    QCOMPARE(m_w->fake.asked.first().buttons.size(), 3);
    QTRY_COMPARE(m_w->opened, QList<QUrl>{QUrl(SearchResultWC::kInstructionPage)});
    QVERIFY(m_w->revealed.isEmpty());
    m_w->fake.answer = [](const auto&) { return FakePrompts::Answer{0, false}; };
    w.showInFinderMenuItemPressed();
    QTRY_COMPARE(m_w->revealed, QList<QList<QByteArray>>{{src(".quasar-secret")}});
}

void TestSearchResultActions::revealingAHiddenFileOffersToShowHiddenFilesFirst()
{
    m_tree->file("src/.quasar-secret");
    SettingsFixture& s = m_w->settings;
    s.settings.setShouldShowInformationAboutAccessibilityAlerts(false);
    s.settings.setShouldCheckHiddenFilesVisibility(true);
    HiddenFakeScriptRunner runner;
    HiddenFakeAlerts alerts;
    QObject guard;
    Preferences preferences{s.standard};
    DiskAccessRestoreManager diskAccess{s.standard};
    HiddenManager hidden(HiddenManager::Collaborators{
        &s.settings, &s.center, &runner, &s.version, &s.clock, &preferences, &diskAccess, {}});
    hidden.setAlerts(&alerts, &guard);
    m_w->makeWindow(&hidden);
    m_w->search(QStringLiteral("quasar"), m_tree->path("src"));
    SearchResultWC& w = *m_w->window;
    QVERIFY(!hidden.isHiddenShown());

    // "No": nothing is switched and nothing revealed.
    m_w->select({QStringLiteral(".quasar-secret"), QStringLiteral("quasar-a.txt")});
    m_w->fake.answer = [](const auto&) { return FakePrompts::Answer{1, false}; };
    w.showInFinderMenuItemPressed();
    QCOMPARE(m_w->fake.asked.size(), 1);
    const auto& q = m_w->fake.asked.first();
    QVERIFY2(q.title.startsWith(QStringLiteral("Hidden files are not displayed in ")), qPrintable(q.title));
    QVERIFY(q.text.endsWith(QStringLiteral(" will be relaunched if so.")));
    QVERIFY(q.suppressionBox);
    QTest::qWait(20);
    QVERIFY(runner.pending.empty());
    QVERIFY(m_w->revealed.isEmpty());

    // "Yes": the display is switched, and the items are revealed once the switch has ended.
    m_w->fake.answer = [](const auto&) { return FakePrompts::Answer{0, false}; };
    w.showInFinderMenuItemPressed();
    QTRY_COMPARE(runner.nextName(), HiddenManager::kSwitchScript);
    QVERIFY(m_w->revealed.isEmpty());
    runner.finish();
    QTRY_COMPARE(m_w->revealed.size(), 1);
    QCOMPARE(m_w->revealed.first().size(), 2);
    QVERIFY(m_w->revealed.first().contains(src(".quasar-secret")));

    // Hidden files already shown: revealed at once, without a question.
    QVERIFY(hidden.isHiddenShown());
    m_w->fake.asked.clear();
    w.showInFinderMenuItemPressed();
    QVERIFY(m_w->fake.asked.isEmpty());
    QCOMPARE(m_w->revealed.size(), 2);
    m_w->window.reset();
}

void TestSearchResultActions::propertiesFallBackToTheProgramsOwnDialog()
{
    SearchResultWC& w = *m_w->window;
    m_w->select({QStringLiteral("quasar-a.txt"), QStringLiteral("quasar-b.txt")});
    QTest::keyClick(w.tableView(), Qt::Key_I, Qt::ControlModifier);
    QCOMPARE(m_w->properties.size(), 1);
    QCOMPARE(m_w->properties.first().size(), 2);
    QVERIFY(w.findChildren<FileInfoDialog*>().isEmpty());
    m_w->fileManagerAnswers = false;
    w.getInfoMenuItemPressed();
    const auto dialogs = w.findChildren<FileInfoDialog*>();
    QCOMPARE(dialogs.size(), 2);
    QVERIFY(dialogs.first()->windowTitle().startsWith(QStringLiteral("Info: quasar-")));
}

void TestSearchResultActions::enterOpensTheSelectedItem()
{
    SearchResultWC& w = *m_w->window;
    w.selectRows({});
    QTest::keyClick(w.tableView(), Qt::Key_Return);
    QVERIFY(m_w->opened.isEmpty());
    m_w->select({QStringLiteral("quasar-b.txt")});
    QTest::keyClick(w.tableView(), Qt::Key_Return);
    QCOMPARE(m_w->opened.size(), 1);
    QCOMPARE(m_w->opened.first().toLocalFile(), QFile::decodeName(src("quasar-b.txt")));
    QCOMPARE(m_w->opened.first().toEncoded(), FileManagerBus::fileUri(src("quasar-b.txt")));
}

void TestSearchResultActions::spacePreviewsTheSelectionInTableOrder()
{
    SearchResultWC& w = *m_w->window;
    m_w->select({QStringLiteral("quasar-b.txt"), QStringLiteral("quasar-a.txt")});
    const QList<SearchItemPtr> selected = w.selectedItems();
    QTest::keyClick(w.tableView(), Qt::Key_Space);
    QVERIFY(m_w->quickLook.isPanelVisible());
    QuickLookPanel* panel = m_w->quickLook.previewPanel();
    QCOMPARE(m_w->quickLook.numberOfPreviewItemsInPreviewPanel(panel), 2);
    QCOMPARE(m_w->quickLook.currentFilePath(), selected.first()->nativeFullPath());
    QTRY_COMPARE(panel->shownKind(), PreviewContent::Kind::Text);
    // Space again closes it.
    QTest::keyClick(w.tableView(), Qt::Key_Space);
    QVERIFY(!m_w->quickLook.isPanelVisible());
}

void TestSearchResultActions::exportWritesTheShownRows()
{
    SearchResultWC& w = *m_w->window;
    QTemporaryDir out;
    m_w->fake.exportFile = out.filePath(QStringLiteral("results.csv"));
    w.exportButtonPressed();
    QTRY_VERIFY(QFileInfo::exists(m_w->fake.exportFile));
    const QList<QByteArray> lines = readBytes(QFile::encodeName(m_w->fake.exportFile)).trimmed().split('\n');
    for (const QByteArray& line : lines)
        QVERIFY(line.endsWith('\r') || line == lines.last());
    QCOMPARE(lines.size(), 5);
    QCOMPARE(lines.first(), QByteArray("name,folder,size,date,kind,class\r"));

    m_w->fake.exportFile = out.filePath(QStringLiteral("paths.txt"));
    m_w->fake.exportCsv = false;
    w.exportButtonPressed();
    QTRY_VERIFY(QFileInfo::exists(m_w->fake.exportFile));
    QByteArray expected;
    for (const SearchItemPtr& item : m_w->manager.getFilteredSearchResultArray())
        expected += item->nativeFullPath() + '\n';
    QCOMPARE(readBytes(QFile::encodeName(m_w->fake.exportFile)), expected);
}

void TestSearchResultActions::actionButtonsFollowTheSelection()
{
    SearchResultWC& w = *m_w->window;
    auto* trash = w.findChild<QPushButton*>(QStringLiteral("deleteActionButton"));
    m_w->select({QStringLiteral("quasar-a.txt")});
    QVERIFY(trash->isEnabled());
    w.selectRows({});
    QVERIFY(!trash->isEnabled());
    QVERIFY(!w.findChild<QPushButton*>(QStringLiteral("copyActionButton"))->isEnabled());
}

QTEST_MAIN(TestSearchResultActions)
#include "TestSearchResultActions.moc"
