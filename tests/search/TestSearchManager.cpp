#include "core/NotificationCenter.h"
#include "search/SearchManager.h"
#include "search/Walker.h"
#include "support/SearchTreeFixture.h"

#include <QSignalSpy>
#include <QtTest>

#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QThreadPool>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>

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

// Sets a file's access time far into the past, so that any read of it (or listing of a folder, under
// relatime) shows.
void ageAccessTime(const QByteArray& path)
{
    const timespec times[2] = {{946684800, 0}, {0, UTIME_OMIT}}; // 2000-01-01
    QCOMPARE(::utimensat(AT_FDCWD, path.constData(), times, 0), 0);
}

time_t accessTime(const QByteArray& path)
{
    struct stat info
    {
    };
    return ::stat(path.constData(), &info) == 0 ? info.st_atime : 0;
}

// A tree of `folders` folders of one matching file each, with the folders' access times in the past.
void agedWideTree(SearchTreeFixture& tree, int folders)
{
    for (int i = 0; i < folders; ++i)
        tree.wideFolder("f" + QByteArray::number(i), 1, "hit-");
    for (int i = 0; i < folders; ++i)
        ageAccessTime(tree.path("f" + QByteArray::number(i)));
}

// How many of the aged folders a walk has listed since.
int listedFolders(SearchTreeFixture& tree, int folders)
{
    int listed = 0;
    for (int i = 0; i < folders; ++i)
        listed += accessTime(tree.path("f" + QByteArray::number(i))) > 946684800 ? 1 : 0;
    return listed;
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
        QTest::newRow("visible file in a dot-folder") << QByteArray("visible-match") << QByteArrayList{"inHiddenFolder"}
                                                      << 1u << 2u << "application/octet-stream";
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

    // Files whose name tells nothing keep their access times: their contents are never read, even
    // when unreadable or when an extension is unknown.
    void typesComeFromNamesAndAccessTimesStay()
    {
        SearchTreeFixture tree;
        tree.file("plain-probe", "#!/bin/sh\necho text\n");
        tree.file("odd-probe.zzqx", "%PDF-1.4 not really\n");
        tree.file("locked-probe", "secret\n");
        tree.file("named-probe.txt", "text\n");
        QCOMPARE(::chmod(tree.path("locked-probe").constData(), 0), 0);
        for (const char* name : {"plain-probe", "odd-probe.zzqx", "locked-probe", "named-probe.txt"})
            ageAccessTime(tree.path(name));
        SearchManager manager(m_center);
        manager.setFilterMask(SearchItemClass::All);
        search(manager, QStringLiteral("probe"), tree.root());
        QCOMPARE(manager.getSearchResultArray().size(), 4);
        for (const char* name : {"plain-probe", "odd-probe.zzqx", "locked-probe"}) {
            QCOMPARE(itemNamed(manager.getSearchResultArray(), name)->fileType(),
                     QStringLiteral("application/octet-stream"));
            QCOMPARE(accessTime(tree.path(name)), time_t(946684800));
        }
        QCOMPARE(itemNamed(manager.getSearchResultArray(), "named-probe.txt")->fileType(),
                 QStringLiteral("text/plain"));
        QCOMPARE(itemNamed(manager.getSearchResultArray(), "locked-probe")->fileSize, 7);
    }

    // A ".hidden" that is no list (a link to an endless device, a huge file) is not read.
    void hiddenListOnlyFromASmallRegularFile()
    {
        SearchTreeFixture tree;
        tree.file("zero/zero-x");
        tree.symlink("zero/.hidden", "/dev/zero");
        tree.file("huge/huge-x");
        tree.file("huge/.hidden", "huge-x\n");
        QCOMPARE(::truncate(tree.path("huge/.hidden").constData(), 64LL * 1024 * 1024), 0);
        tree.file("small/small-x");
        tree.file("small/.hidden", "small-x\n");
        SearchManager manager(m_center);
        manager.setFilterMask(SearchItemClass::All);
        QElapsedTimer timer;
        timer.start();
        search(manager, QStringLiteral("-x"), tree.root());
        QVERIFY(timer.elapsed() < 10000);
        QVERIFY(!itemNamed(manager.getSearchResultArray(), "zero-x")->fileHidden);
        QVERIFY(!itemNamed(manager.getSearchResultArray(), "huge-x")->fileHidden);
        QVERIFY(itemNamed(manager.getSearchResultArray(), "small-x")->fileHidden);
    }

    // A search replaced by another stops: it lists almost none of its folders, and none of its
    // matches reach the new lists.
    void replacedSearchStopsAndStaysOut()
    {
        SearchTreeFixture big;
        agedWideTree(big, 1000);
        SearchTreeFixture small;
        small.file("only-hit");
        // One busy thread: the first scan is still waiting for it when it is replaced.
        QThreadPool pool;
        pool.setMaxThreadCount(1);
        pool.start([] { QThread::msleep(300); });
        SearchManager manager(m_center, &pool);
        QCOMPARE(manager.performSearchWithTemplate(QStringLiteral("hit"), QString::fromUtf8(big.root())),
                 SearchManager::StartResult::Started);
        search(manager, QStringLiteral("hit"), small.root());
        QTest::qWait(500);
        QCOMPARE(manager.getSearchResultArray().size(), 1);
        QCOMPARE(manager.getSearchResultArray().first()->rawFileName, QByteArray("only-hit"));
        QCOMPARE(listedFolders(big, 1000), 0);
        // The probe itself works: a search that runs lists every folder.
        search(manager, QStringLiteral("hit"), big.root());
        QCOMPARE(listedFolders(big, 1000), 1000);
    }

    // Cancel, then a new search at once: the cancelled one never runs on, even if it had not started.
    void cancelThenRestart()
    {
        SearchTreeFixture big;
        agedWideTree(big, 1000);
        SearchTreeFixture small;
        small.file("only-hit");
        QThreadPool pool;
        pool.setMaxThreadCount(1);
        pool.start([] { QThread::msleep(300); });
        SearchManager manager(m_center, &pool);
        RecordingDialog dialog;
        manager.setSearchResultDialog(&dialog);
        QCOMPARE(manager.performSearchWithTemplate(QStringLiteral("hit"), QString::fromUtf8(big.root())),
                 SearchManager::StartResult::Started);
        manager.cancelSearchByButton();
        search(manager, QStringLiteral("hit"), small.root());
        QTest::qWait(500);
        QCOMPARE(manager.getSearchResultArray().size(), 1);
        QCOMPARE(dialog.completed, 1);
        QCOMPARE(listedFolders(big, 1000), 0);
    }

    // A start that searches nothing still ends the search before it: its late matches and its
    // completion do not land in the new, empty lists.
    void startThatSearchesNothingEndsThePreviousSearch()
    {
        SearchTreeFixture big;
        agedWideTree(big, 50);
        SearchManager manager(m_center);
        RecordingDialog dialog;
        manager.setSearchResultDialog(&dialog);
        QSignalSpy finished(&manager, &SearchManager::searchFinished);
        QSignalSpy refused(&manager, &SearchManager::searchRefused);
        QCOMPARE(manager.performSearchWithTemplate(QStringLiteral("hit"), QString::fromUtf8(big.root())),
                 SearchManager::StartResult::Started);
        QCOMPARE(manager.performSearchWithTemplate(QString(1500, QLatin1Char('a')), QString::fromUtf8(big.root())),
                 SearchManager::StartResult::TemplateTooLong);
        QCOMPARE(refused.size(), 1);
        QVERIFY(refused.first().first().toString().contains(QLatin1String("1500 bytes")));
        QCOMPARE(manager.lastStartMessage(), refused.first().first().toString());
        QTest::qWait(1500);
        QVERIFY(manager.getSearchResultArray().isEmpty());
        QVERIFY(manager.getFilteredSearchResultArray().isEmpty());
        QCOMPARE(finished.size(), 0);
        QCOMPARE(dialog.completed, 0);
        QVERIFY(!manager.isSearching());
    }

    // The folder is cleaned once for every caller: a trailing slash or "." parts give the same paths
    // as the plain folder, and ".." is resolved by the file system.
    void folderIsCleanedForEveryCaller()
    {
        SearchTreeFixture tree;
        tree.file("real/sub/in-x");
        tree.file("other-x");
        tree.symlink("link", "real/sub");
        SearchManager manager(m_center);
        search(manager, QStringLiteral("-x"), tree.root() + "//./");
        QCOMPARE(manager.getSearchResultArray().size(), 2);
        for (const SearchItemPtr& item : manager.getSearchResultArray())
            QVERIFY2(!item->rawFilePath().contains("//") && !item->rawFilePath().endsWith('/'),
                     item->rawFilePath().constData());
        // link/.. is the link target's parent, "real", not the tree's root.
        search(manager, QStringLiteral("-x"), tree.path("link/.."));
        QCOMPARE(manager.getSearchResultArray().size(), 1);
        QCOMPARE(manager.getSearchResultArray().first()->rawFileName, QByteArray("in-x"));
        QCOMPARE(SearchPaths::cleanFolder("/a//b/./c/"), QByteArray("/a/b/c"));
        QCOMPARE(SearchPaths::cleanFolder("/"), QByteArray("/"));
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
        const SearchItem item(name, SearchFolder::make(parent));
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

    // What a finished search keeps per result, as the C library counts the bytes in use: items spread
    // over many deep folders with long names must not each carry their folder's whole path.
    void heldBytesPerResultDoNotGrowWithPathLength()
    {
        const auto bytesInUse = [] {
            const struct mallinfo2 info = mallinfo2();
            return qint64(info.uordblks + info.hblkhd);
        };
        SearchTreeFixture tree;
        const QByteArray longName(80, 'n');
        int made = 0;
        for (int a = 0; a < 16; ++a)
            for (int b = 0; b < 8; ++b)
                for (int c = 0; c < 8; ++c)
                    tree.file(QByteArray::number(a) + longName + '/' + QByteArray::number(b) + longName + '/' +
                              QByteArray::number(c) + longName + "/hit-" + QByteArray::number(made++) + ".txt");
        SearchManager manager(m_center);
        manager.setFilterMask(SearchItemClass::All);
        search(manager, QStringLiteral("hit-"), tree.root()); // the type database and the pools start once
        search(manager, QStringLiteral("no such name"), tree.root());
        QCOMPARE(manager.getSearchResultArray().size(), 0);
        manager.waitForScans();
        const qint64 before = bytesInUse();
        search(manager, QStringLiteral("hit-"), tree.root());
        manager.waitForScans();
        const qint64 after = bytesInUse();
        QCOMPARE(manager.getSearchResultArray().size(), made);
        QCOMPARE(manager.getFilteredSearchResultArray().size(), made);
        if (after <= before)
            QSKIP("the C library's allocator is not the one in use (sanitizer build)");
        const qint64 perResult = (after - before) / made;
        qInfo("%lld bytes held per result, paths of %lld bytes", perResult,
              qint64(manager.getSearchResultArray().first()->rawFilePath().size()));
        // Item and its control block, name, two list slots with growth room, and the folder's own name.
        QVERIFY2(perResult <= 400, QByteArray::number(perResult).constData());
    }
};

QTEST_GUILESS_MAIN(TestSearchManager)
#include "TestSearchManager.moc"
