#include "app/NotificationCenter.h"
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
        QTest::addColumn<bool>("hidden");
        QTest::addColumn<bool>("inHiddenFolder");
        QTest::addColumn<bool>("package");
        QTest::addColumn<bool>("inPackage");
        QTest::addColumn<uint>("foundBits");
        QTest::addColumn<uint>("passingFilter");
        QTest::addColumn<QString>("type");

        QTest::newRow("plain file") << QByteArray("Report-MATCH.txt") << false << false << false << false << 1u << 1u
                                    << QStringLiteral("text/plain");
        QTest::newRow("dot-file") << QByteArray(".match-dotfile") << true << false << false << false << 2u << 2u
                                  << QStringLiteral("application/x-zerosize");
        QTest::newRow("listed in .hidden") << QByteArray("listed-match") << true << false << false << false << 2u << 2u
                                           << QStringLiteral("application/x-zerosize");
        // Counts as regular in the found mask, yet is filtered as hidden.
        QTest::newRow("visible file in a dot-folder") << QByteArray("visible-match") << false << true << false << false
                                                      << 1u << 2u << QStringLiteral("text/plain");
        // Package contents are never hidden, whatever their name.
        QTest::newRow("dot-file inside a bundle") << QByteArray(".match-inside") << false << false << false << true
                                                  << 4u << 4u << QStringLiteral("text/plain");
        QTest::newRow("folder") << QByteArray("match-folder") << false << false << false << false << 1u << 1u
                                << QStringLiteral("inode/directory");
        QTest::newRow("link to a folder") << QByteArray("link-to-docs-match") << false << false << false << false << 1u
                                          << 1u << QStringLiteral("inode/directory");
        QTest::newRow("link loop") << QByteArray("self-match") << false << false << false << false << 1u << 1u
                                   << QStringLiteral("inode/directory");
    }
    void classifiesEachMatch()
    {
        QFETCH(QByteArray, name);
        QFETCH(bool, hidden);
        QFETCH(bool, inHiddenFolder);
        QFETCH(bool, package);
        QFETCH(bool, inPackage);
        QFETCH(uint, foundBits);
        QFETCH(uint, passingFilter);
        QFETCH(QString, type);

        SearchTreeFixture tree;
        tree.buildStandard();
        NotificationCenter center;
        SearchManager manager(center);
        search(manager, QStringLiteral("match"), tree.root());
        QCOMPARE(manager.getSearchResultArray().size(), 12);
        const SearchItemPtr item = itemNamed(manager.getSearchResultArray(), name);
        QVERIFY(item);
        QCOMPARE(item->fileHidden, hidden);
        QCOMPARE(item->fileInHiddenFolder, inHiddenFolder);
        QCOMPARE(item->filePackage, package);
        QCOMPARE(item->fileInPackage, inPackage);
        QCOMPARE(item->foundMaskBits(), foundBits);
        for (uint mask : {1u, 2u, 4u})
            QCOMPARE(item->passesFilter(mask), mask == passingFilter);
        QCOMPARE(item->fileType, type);
        QVERIFY(item->lastUsedDate.isValid());
    }

    void listsFollowTheMasks()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        NotificationCenter center;
        SearchManager manager(center);
        manager.setFilterMask(SearchItemClass::Hidden);
        search(manager, QStringLiteral("MATCH"), tree.root());
        QByteArrayList filtered;
        for (const SearchItemPtr& item : manager.getFilteredSearchResultArray())
            filtered.append(item->rawFileName);
        std::sort(filtered.begin(), filtered.end());
        QCOMPARE(filtered, QByteArrayList({".match-dotfile", "listed-match", "visible-match"}));
        QCOMPARE(manager.foundItemsMask(), 7u);

        // Only a file in a dot-folder: its class is hidden, its found bit regular.
        SearchManager second(center);
        second.setFilterMask(SearchItemClass::Regular);
        search(second, QStringLiteral("visible-match"), tree.root());
        QCOMPARE(second.getSearchResultArray().size(), 1);
        QCOMPARE(second.getFilteredSearchResultArray().size(), 0);
        QCOMPARE(second.foundItemsMask(), 1u);
    }

    void sizesOfFoldersFilesAndPackages()
    {
        SearchTreeFixture tree;
        tree.file("Big.bundle/Contents/a.dat", QByteArray(1000, 'a'));
        tree.file("Big.bundle/Contents/Sub/b.dat", QByteArray(234, 'b'));
        tree.folder("plain-x");
        tree.file("file-x.dat", QByteArray(77, 'c'));
        NotificationCenter center;
        SearchManager manager(center);
        manager.setFilterMask(SearchItemClass::All);
        search(manager, QStringLiteral("x"), tree.root());
        const QList<SearchItemPtr>& items = manager.getSearchResultArray();
        QCOMPARE(itemNamed(items, "plain-x")->fileSize, -1);
        QCOMPARE(itemNamed(items, "file-x.dat")->fileSize, 77);

        SearchManager packages(center);
        search(packages, QStringLiteral("big.bundle"), tree.root());
        const SearchItemPtr package = itemNamed(packages.getSearchResultArray(), "Big.bundle");
        QVERIFY(package && package->filePackage);
        packages.waitForPackageSizes();
        // Every entry inside counts with its own size, folders included.
        const qint64 expected =
            1000 + 234 + lstatSize(tree.path("Big.bundle/Contents")) + lstatSize(tree.path("Big.bundle/Contents/Sub"));
        QCOMPARE(package->fileSize, expected);
    }

    void packageStartsAtZero()
    {
        SearchTreeFixture tree;
        tree.file("Z.app/Contents/payload", QByteArray(500, 'z'));
        NotificationCenter center;
        SearchManager manager(center);
        // Built on a plain thread: the sum can only land through the main thread's queue.
        std::thread([&] { manager.fileFoundObjCWithFile("Z.app", tree.root().toStdString(), 0); }).join();
        QCoreApplication::sendPostedEvents(&manager, QEvent::MetaCall);
        QCOMPARE(manager.getSearchResultArray().size(), 1);
        const SearchItemPtr package = manager.getSearchResultArray().first();
        QVERIFY(package->fileSize == 0 || package->fileSize >= 500);
        manager.waitForPackageSizes();
        QVERIFY(package->fileSize >= 500);
    }

    void removingAPackageRemovesItsContents()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        NotificationCenter center;
        SearchManager manager(center);
        manager.setFilterMask(SearchItemClass::All);
        search(manager, QStringLiteral("o"), tree.root());
        const int before = static_cast<int>(manager.getSearchResultArray().size());
        const QList<SearchItemPtr>& filtered = manager.getFilteredSearchResultArray();
        int packageIndex = -1;
        int inside = 0;
        for (int i = 0; i < filtered.size(); ++i) {
            if (filtered.at(i)->rawFileName == "Tool.app")
                packageIndex = i;
            if (filtered.at(i)->fileInPackage)
                ++inside;
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
        NotificationCenter center;
        QObject context;
        QStringList posted;
        for (const QString& name : {SearchManager::openSearchResultDialogNotification(),
                                    SearchManager::SearchManagerDidStartSearchNotification()})
            center.addObserver(name, nullptr, &context, [&posted](const Notification& n) { posted.append(n.name); });
        SearchManager manager(center);
        RecordingDialog dialog;
        manager.setSearchResultDialog(&dialog);

        QCOMPARE(manager.performSearchWithTemplate(QString(), QString::fromUtf8(tree.root())),
                 SearchManager::StartResult::EmptyInput);
        QCOMPARE(manager.performSearchWithTemplate(QStringLiteral("x"), QString()),
                 SearchManager::StartResult::EmptyInput);
        QCOMPARE(manager.performSearchWithTemplate(QString(1024, QLatin1Char('a')), QString::fromUtf8(tree.root())),
                 SearchManager::StartResult::TemplateTooLong);
        QVERIFY(posted.isEmpty());
        QVERIFY(!manager.isSearching());

        search(manager, QStringLiteral("match"), tree.root());
        QCOMPARE(posted, QStringList({SearchManager::openSearchResultDialogNotification(),
                                      SearchManager::SearchManagerDidStartSearchNotification()}));
        QCOMPARE(dialog.prepared, 4);
        QCOMPARE(dialog.completed, 1);
        QCOMPARE(manager.totalFiles(), 21);
        QCOMPARE(manager.searchTemplate(), QStringLiteral("match"));
    }

    void matchesArriveInBatches()
    {
        SearchTreeFixture tree;
        NotificationCenter center;
        SearchManager manager(center);
        QSignalSpy changed(&manager, &SearchManager::searchResultsChanged);
        // A thousand matches queued while the main thread is busy reach the lists in one go.
        std::thread([&] {
            for (int i = 0; i < 1000; ++i)
                manager.fileFoundObjCWithFile("gone-" + std::to_string(i), tree.root().toStdString(), i);
        }).join();
        QCOMPARE(manager.getSearchResultArray().size(), 0);
        QCoreApplication::sendPostedEvents(&manager, QEvent::MetaCall);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(manager.getSearchResultArray().size(), 1000);
        // Vanished before classification: kept, with empty attributes.
        const SearchItemPtr item = manager.getSearchResultArray().first();
        QVERIFY(item->fileType.isEmpty());
        QCOMPARE(item->fileSize, 0);
        QVERIFY(!item->lastUsedDate.isValid());
        QVERIFY(!item->fileHidden && !item->filePackage && !item->fileInPackage);
    }

    void nonUtf8NamesKeepTheirBytes()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        NotificationCenter center;
        SearchManager manager(center);
        search(manager, QStringLiteral(".bin"), tree.root());
        QCOMPARE(manager.getSearchResultArray().size(), 1);
        const SearchItemPtr item = manager.getSearchResultArray().first();
        QVERIFY(item->fileName.contains(QChar(0xFFFD)));
        QCOMPARE(item->rawFileName, QByteArray("bad-\xff\xfe-match.bin"));
        QCOMPARE(::access(item->nativeFullPath().constData(), F_OK), 0);
    }

    void pathHelpers_data()
    {
        QTest::addColumn<QByteArray>("parent");
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("full");
        QTest::addColumn<QByteArray>("enclosing");
        QTest::newRow("under root") << QByteArray("/") << QByteArray("etc") << QByteArray("/etc") << QByteArray("/");
        QTest::newRow("double slash of a root walk")
            << QByteArray("//usr") << QByteArray("bin") << QByteArray("/usr/bin") << QByteArray("usr");
        QTest::newRow("ordinary") << QByteArray("/a/b") << QByteArray("c d") << QByteArray("/a/b/c d")
                                  << QByteArray("b");
    }
    void pathHelpers()
    {
        QFETCH(QByteArray, parent);
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, full);
        QFETCH(QByteArray, enclosing);
        SearchItem item;
        item.rawFilePath = parent;
        item.rawFileName = name;
        item.filePath = QString::fromUtf8(parent);
        item.fileName = QString::fromUtf8(name);
        QCOMPARE(item.nativeFullPath(), full);
        QCOMPARE(item.fullFileNameWithPath(), QString::fromUtf8(full));
        QCOMPARE(item.enclosingFolderName(), QString::fromUtf8(enclosing));
        QCOMPARE(item.enclosingFolderForSorting(), QString::fromUtf8(parent));
    }

    void hiddenFolderClimbStopsAtVolumesRoot()
    {
        SearchTreeFixture tree;
        tree.file(".cache/x/file");
        tree.file("listed/y/file");
        tree.file("listed/.hidden", "y");
        NotificationCenter center;
        SearchManager manager(center);
        QVERIFY(!manager.isFileInHiddenFolderAtPath("/Volumes/file"));
        QVERIFY(!manager.isFileInHiddenFolderAtPath("/file"));
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
