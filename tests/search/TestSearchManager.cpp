#include "core/NotificationCenter.h"
#include "search/SearchManager.h"
#include "search/Walker.h"
#include "support/SearchTreeFixture.h"

#include <QSignalSpy>
#include <QtTest>

#include <sys/stat.h>

#include <thread>

namespace {

class RecordingDialog : public SearchResultDialog
{
public:
    void prepareForNewSearchResults() override { ++prepared; }
    void searchCompleted() override { ++completed; }
    int prepared = 0;
    int completed = 0;
};

SearchItemPtr itemNamed(const QList<SearchItemPtr>& items, const QByteArray& name)
{
    for (const SearchItemPtr& item : items)
        if (item->rawFileName == name)
            return item;
    return nullptr;
}

qint64 lstatSize(const QByteArray& path)
{
    struct stat info
    {
    };
    return ::lstat(path.constData(), &info) == 0 ? info.st_size : 0;
}

} // namespace

class TestSearchManager : public QObject
{
    Q_OBJECT
private:
    NotificationCenter m_center;

    // Runs one search over the tree and waits for its completion.
    void search(SearchManager& manager, const QString& text, const QByteArray& folder)
    {
        QSignalSpy finished(&manager, &SearchManager::searchFinished);
        QCOMPARE(manager.performSearchWithTemplate(text, QString::fromUtf8(folder)),
                 SearchManager::StartResult::Started);
        QVERIFY(finished.wait(20000));
    }

private Q_SLOTS:
    void init() { walkerResume(); }

    void classifiesEachMatch_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArrayList>("flags");
        QTest::addColumn<uint>("foundBits");
        QTest::addColumn<uint>("passingFilter");
        QTest::addColumn<QString>("type");
        const QByteArrayList none;
        QTest::newRow("plain file") << QByteArray("Report-MATCH-Z.txt") << none << 1u << 1u << "text/plain";
        // No telling extension: the name says nothing and the contents are never read.
        QTest::newRow("dot-file") << QByteArray(".match-dotfile") << QByteArrayList{"hidden"} << 2u << 2u
                                  << "application/octet-stream";
        QTest::newRow("listed in .hidden")
            << QByteArray("listed-match") << QByteArrayList{"hidden"} << 2u << 2u << "application/octet-stream";
        // Counts as regular in the found mask, yet is filtered as hidden.
        QTest::newRow("visible file in a dot-folder")
            << QByteArray("visible-match") << QByteArrayList{"inHiddenFolder"} << 1u << 2u
            << "application/octet-stream";
        // Package contents are never hidden, whatever their name.
        QTest::newRow("dot-file inside a bundle")
            << QByteArray(".match-inside") << QByteArrayList{"inPackage"} << 4u << 4u << "application/octet-stream";
        QTest::newRow("folder") << QByteArray("match-folder") << none << 1u << 1u << "inode/directory";
        QTest::newRow("link to a folder") << QByteArray("link-to-docs-match") << none << 1u << 1u << "inode/directory";
    }
    void classifiesEachMatch()
    {
        QFETCH(QByteArray, name);
        QFETCH(QByteArrayList, flags);
        QFETCH(uint, foundBits);
        QFETCH(uint, passingFilter);
        SearchTreeFixture tree;
        tree.buildStandard();
        SearchManager manager(m_center);
        search(manager, QStringLiteral("match"), tree.root());
        QCOMPARE(manager.getSearchResultArray().size(), 12);
        const SearchItemPtr item = itemNamed(manager.getSearchResultArray(), name);
        QVERIFY(item);
        QCOMPARE(item->fileHidden, flags.contains("hidden"));
        QCOMPARE(item->fileInHiddenFolder, flags.contains("inHiddenFolder"));
        QCOMPARE(item->fileInPackage, flags.contains("inPackage"));
        QVERIFY(!item->filePackage);
        QCOMPARE(item->foundMaskBits(), foundBits);
        for (uint mask : {1u, 2u, 4u})
            QCOMPARE(item->passesFilter(mask), mask == passingFilter);
        QTEST(item->fileType(), "type");
        QVERIFY(item->lastUsedDate().isValid());
    }

    void listsFollowTheMasks()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        SearchManager manager(m_center);
        manager.setFilterMask(SearchItemClass::Hidden);
        search(manager, QStringLiteral("MATCH"), tree.root());
        QByteArrayList filtered;
        for (const SearchItemPtr& item : manager.getFilteredSearchResultArray())
            filtered.append(item->rawFileName);
        std::sort(filtered.begin(), filtered.end());
        QCOMPARE(filtered, QByteArrayList({".match-dotfile", "listed-match", "visible-match"}));
        QCOMPARE(manager.foundItemsMask(), 7u);

        // Only a file in a dot-folder: its class is hidden, its found bit regular.
        manager.setFilterMask(SearchItemClass::Regular);
        search(manager, QStringLiteral("visible-match"), tree.root());
        QCOMPARE(manager.getSearchResultArray().size(), 1);
        QCOMPARE(manager.getFilteredSearchResultArray().size(), 0);
        QCOMPARE(manager.foundItemsMask(), 1u);
    }

    void sizesOfFoldersFilesAndPackages()
    {
        SearchTreeFixture tree;
        tree.file("Big.bundle/Contents/a.dat", QByteArray(1000, 'a'));
        tree.file("Big.bundle/Contents/Sub/b.dat", QByteArray(234, 'b'));
        tree.folder("plain-x");
        tree.file("file-x.dat", QByteArray(77, 'c'));
        SearchManager manager(m_center);
        manager.setFilterMask(SearchItemClass::All);
        search(manager, QStringLiteral("x"), tree.root());
        QCOMPARE(itemNamed(manager.getSearchResultArray(), "plain-x")->fileSize, -1);
        QCOMPARE(itemNamed(manager.getSearchResultArray(), "file-x.dat")->fileSize, 77);

        search(manager, QStringLiteral("big.bundle"), tree.root());
        const SearchItemPtr package = itemNamed(manager.getSearchResultArray(), "Big.bundle");
        QVERIFY(package && package->filePackage);
        manager.waitForPackageSizes();
        // Every entry inside counts with its own size, folders included.
        const qint64 expected =
            1000 + 234 + lstatSize(tree.path("Big.bundle/Contents")) + lstatSize(tree.path("Big.bundle/Contents/Sub"));
        QCOMPARE(package->fileSize, expected);
    }

    void removingAPackageRemovesItsContents()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        SearchManager manager(m_center);
        manager.setFilterMask(SearchItemClass::All);
        search(manager, QStringLiteral("o"), tree.root());
        const int before = static_cast<int>(manager.getSearchResultArray().size());
        const QList<SearchItemPtr>& filtered = manager.getFilteredSearchResultArray();
        int packageIndex = -1;
        int inside = 0;
        for (int i = 0; i < filtered.size(); ++i) {
            if (filtered.at(i)->rawFileName == "Tool.app")
                packageIndex = i;
            inside += filtered.at(i)->fileInPackage ? 1 : 0;
        }
        QVERIFY(packageIndex >= 0);
        QVERIFY(inside >= 2);
        manager.removeItemsWithIndexSet({packageIndex});
        QCOMPARE(manager.getSearchResultArray().size(), before - 1 - inside);
        for (const SearchItemPtr& item : manager.getSearchResultArray())
            QVERIFY(!item->fileInPackage && item->rawFileName != "Tool.app");
        QCOMPARE(manager.getFilteredSearchResultArray().size(), manager.getSearchResultArray().size());
    }

    void startPostsInOrderAndEmptyTextDoesNothing()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        QStringList posted;
        for (const QString& name : {SearchManager::openSearchResultDialogNotification(),
                                    SearchManager::SearchManagerDidStartSearchNotification()})
            m_center.addObserver(name, nullptr, this, [&posted](const Notification& n) { posted.append(n.name); });
        SearchManager manager(m_center);
        RecordingDialog dialog;
        manager.setSearchResultDialog(&dialog);

        const QString root = QString::fromUtf8(tree.root());
        QCOMPARE(manager.performSearchWithTemplate(QString(), root), SearchManager::StartResult::EmptyInput);
        QCOMPARE(manager.performSearchWithTemplate(QStringLiteral("x"), QString()),
                 SearchManager::StartResult::EmptyInput);
        QCOMPARE(manager.performSearchWithTemplate(QString(1024, QLatin1Char('a')), root),
                 SearchManager::StartResult::TemplateTooLong);
        QVERIFY(posted.isEmpty());
        QVERIFY(!manager.isSearching());

        search(manager, QStringLiteral("match"), tree.root());
        m_center.removeObservers(this);
        QCOMPARE(posted, QStringList({SearchManager::openSearchResultDialogNotification(),
                                      SearchManager::SearchManagerDidStartSearchNotification()}));
        QCOMPARE(dialog.prepared, 4);
        QCOMPARE(dialog.completed, 1);
        QCOMPARE(manager.totalFiles(), 21);
        QCOMPARE(manager.searchTemplate(), QStringLiteral("match"));
    }

    void matchesArriveInBatchesAndPackagesAreSizedLater()
    {
        SearchTreeFixture tree;
        tree.file("Z.app/Contents/payload", QByteArray(500, 'z'));
        SearchManager manager(m_center);
        QSignalSpy changed(&manager, &SearchManager::searchResultsChanged);
        // Matches found on a plain thread reach the lists only through the main thread's queue.
        std::thread([&] {
            for (int i = 0; i < 1000; ++i)
                manager.fileFoundObjCWithFile("gone-" + std::to_string(i), tree.root().toStdString(), i);
            manager.fileFoundObjCWithFile("Z.app", tree.root().toStdString(), 1000);
        }).join();
        QCOMPARE(manager.getSearchResultArray().size(), 0);
        QCoreApplication::sendPostedEvents(&manager, QEvent::MetaCall);
        QVERIFY(!changed.isEmpty());
        QCOMPARE(manager.getSearchResultArray().size(), 1001);
        // Vanished before classification: kept, with empty attributes.
        const SearchItemPtr item = itemNamed(manager.getSearchResultArray(), "gone-0");
        QVERIFY(item->fileType().isEmpty());
        QCOMPARE(item->fileSize, 0);
        QVERIFY(!item->lastUsedDate().isValid());
        QVERIFY(!item->fileHidden && !item->filePackage && !item->fileInPackage);
        // A package starts at zero; its sum can only land through the main thread's queue.
        const SearchItemPtr package = itemNamed(manager.getSearchResultArray(), "Z.app");
        QVERIFY(package->fileSize == 0 || package->fileSize >= 500);
        manager.waitForPackageSizes();
        QVERIFY(package->fileSize >= 500);
    }

    void nonUtf8NamesKeepTheirBytes()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        SearchManager manager(m_center);
        search(manager, QStringLiteral(".bin"), tree.root());
        QCOMPARE(manager.getSearchResultArray().size(), 1);
        const SearchItemPtr item = manager.getSearchResultArray().first();
        QVERIFY(item->fileName().contains(QChar(0xFFFD)));
        QCOMPARE(item->rawFileName, QByteArray("bad-\xff\xfe-match.bin"));
        QCOMPARE(::access(item->nativeFullPath().constData(), F_OK), 0);
    }

    void pathHelpers_data()
    {
        QTest::addColumn<QByteArray>("parent");
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("full");
        QTest::addColumn<QString>("enclosing");
        QTest::newRow("under root") << QByteArray("/") << QByteArray("etc") << QByteArray("/etc") << "/";
        QTest::newRow("double slash of a root walk")
            << QByteArray("//usr") << QByteArray("bin") << QByteArray("/usr/bin") << "usr";
        QTest::newRow("ordinary") << QByteArray("/a/b") << QByteArray("c d") << QByteArray("/a/b/c d") << "b";
    }
    void pathHelpers()
    {
        QFETCH(QByteArray, parent);
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, full);
        auto folder = std::make_shared<SearchFolder>();
        folder->path = parent;
        const SearchItem item(name, folder);
        QCOMPARE(item.nativeFullPath(), full);
        QCOMPARE(item.fullFileNameWithPath(), QString::fromUtf8(full));
        QTEST(item.enclosingFolderName(), "enclosing");
        QCOMPARE(item.enclosingFolderForSorting(), QString::fromUtf8(parent));
    }

    void hiddenFolderClimbAndPackageNames()
    {
        SearchTreeFixture tree;
        tree.file(".cache/x/file");
        tree.file("listed/y/file");
        tree.file("listed/.hidden", "y");
        SearchManager manager(m_center);
        QVERIFY(manager.isFileInHiddenFolderAtPath(tree.path(".cache/x/file")));
        QVERIFY(manager.isFileInHiddenFolderAtPath(tree.path("listed/y/file")));
        QVERIFY(!manager.isFileInHiddenFolderAtPath(tree.path("listed/file")));
        QVERIFY(SearchManager::isFilePackagedAtPath("/a/B.APP/c/file"));
        QVERIFY(!SearchManager::isFilePackagedAtPath("/a/app/file"));
        QVERIFY(SearchManager::isFileInAddressBook(QStringLiteral("/h/Library/Application Support/AddressBook/x")));
    }
};

QTEST_GUILESS_MAIN(TestSearchManager)
#include "TestSearchManager.moc"
