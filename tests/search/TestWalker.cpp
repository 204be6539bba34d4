#include "search/TWalkerSkipList.h"
#include "search/Walker.h"
#include "support/SearchTreeFixture.h"

#include <QElapsedTimer>
#include <QtTest>

#include <mutex>
#include <set>
#include <thread>

namespace {

QByteArray bytes(std::string_view s)
{
    return QByteArray(s.data(), static_cast<qsizetype>(s.size()));
}

// Collects matches as full paths ("parent/name" as the walker hands them) and parents; called from
// several walker threads at once.
class Collector : public WalkerDelegate
{
public:
    void walkerFileFound(std::string_view name, std::string_view parent, int filesSeen) override
    {
        std::lock_guard lock(mutex);
        paths.insert(bytes(parent) + '/' + bytes(name));
        parents.insert(bytes(parent));
        maxSeen = std::max(maxSeen, filesSeen);
    }
    void walkerSearchInterrupted() override { interrupted = true; }

    QByteArrayList all()
    {
        std::lock_guard lock(mutex);
        return QByteArrayList(paths.begin(), paths.end());
    }
    int count() { return static_cast<int>(all().size()); }
    bool sawParent(const std::function<bool(const QByteArray&)>& test)
    {
        std::lock_guard lock(mutex);
        return std::any_of(parents.begin(), parents.end(), test);
    }

    std::mutex mutex;
    std::set<QByteArray> paths;
    std::set<QByteArray> parents;
    int maxSeen = 0;
    std::atomic<bool> interrupted{false};
};

} // namespace

class TestWalker : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init() { walkerResume(); }

    void matchesNamesOfTheStandardTree_data()
    {
        QTest::addColumn<QByteArray>("needle");
        QTest::addColumn<QByteArrayList>("expected");
        QTest::newRow("ascii letters fold, every kind is reported")
            << QByteArray("match") << SearchTreeFixture::standardMatches();
        // Only ASCII letters are folded: the capital É of the name does not meet the needle's é.
        QTest::newRow("non-ascii capitals are not folded") << QByteArray("été") << QByteArrayList{};
        QTest::newRow("accented needle as written") << QByteArray("Été-") << QByteArrayList{"Été-match.txt"};
        QTest::newRow("raw bytes of a non-UTF-8 name")
            << QByteArray("\xff\xfe") << QByteArrayList{"bad-\xff\xfe-match.bin"};
        QTest::newRow("last letter of the alphabet folds too")
            << QByteArray("-z.") << QByteArrayList{"docs/Report-MATCH-Z.txt"};
        QTest::newRow("plain substring, no wildcards") << QByteArray("*.txt") << QByteArrayList{};
        QTest::newRow("folders and their contents") << QByteArray("sub") << QByteArrayList{"match-folder/sub"};
    }
    void matchesNamesOfTheStandardTree()
    {
        QFETCH(QByteArray, needle);
        QFETCH(QByteArrayList, expected);
        SearchTreeFixture tree;
        tree.buildStandard();
        Collector found;
        QCOMPARE(walkerScan(tree.root().constData(), needle.constData(), &found), WalkerScanResult::Done);
        QCOMPARE(found.all(), tree.absolute(expected));
    }

    void countsEveryEntryOnceAndFollowsNoLinks()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        Collector found;
        walkerScan(tree.root().constData(), "", &found);
        // An empty needle reports everything: exactly the entries below the root, links not entered
        // (a followed loop would never end, a followed folder link would repeat docs/).
        const QByteArrayList all = found.all();
        QCOMPARE(all.size(), 21);
        QCOMPARE(walkerTotalFiles(), 21);
        QVERIFY(!all.contains(tree.path("link-to-docs-match/notes.md")));
        QVERIFY(!all.contains(tree.path("loop/self-match/loop")));
        QVERIFY(all.contains(tree.path("Tool.app/Contents/.match-inside")));
        QVERIFY(found.maxSeen <= 21);
    }

    void skipListIsExactAndCaseSensitive_data()
    {
        QTest::addColumn<QByteArray>("entry");
        QTest::addColumn<bool>("skipped");
        QTest::newRow("Calendars in Library") << QByteArray("Library/Calendars") << true;
        QTest::newRow("calendars, other case") << QByteArray("Library/calendars") << false;
        QTest::newRow("Calendars elsewhere") << QByteArray("Documents/Calendars") << false;
        QTest::newRow("AddressBook in Application Support")
            << QByteArray("Library/Application Support/AddressBook") << true;
        QTest::newRow("AddressBook in Library") << QByteArray("Library/AddressBook") << false;
        QTest::newRow("address book plist in Preferences")
            << QByteArray("Library/Preferences/com.apple.AddressBook.plist") << true;
    }
    void skipListIsExactAndCaseSensitive()
    {
        QFETCH(QByteArray, entry);
        QFETCH(bool, skipped);
        SearchTreeFixture tree;
        tree.file(entry + "/inside-x");
        const TWalkerSkipList skipList(tree.root().toStdString());
        WalkerOptions options;
        options.rootPath = tree.root().toStdString();
        options.skipList = &skipList;
        Collector found;
        options.delegate = &found;
        walkerScan(options);
        // Neither reported nor entered.
        QCOMPARE(found.all().contains(tree.path(entry)), !skipped);
        QCOMPARE(found.all().contains(tree.path(entry + "/inside-x")), !skipped);
    }

    void unenteredFoldersAreReportedButNotEntered()
    {
        SearchTreeFixture tree;
        tree.file("a/mnt/inside-x");
        tree.file("a/mnt-x/inside-x");
        WalkerOptions options;
        options.rootPath = tree.root().toStdString();
        options.unenteredFolders = {tree.path("a/mnt").toStdString(), tree.root().toStdString()};
        Collector found;
        options.delegate = &found;
        walkerScan(options);
        QCOMPARE(found.all(), tree.absolute({"a", "a/mnt", "a/mnt-x", "a/mnt-x/inside-x"}));

        // Below "/" the folders are named without the doubled slash: naming every top-level folder
        // leaves only the root's own listing.
        WalkerOptions top;
        top.rootPath = "/";
        for (const QString& name :
             QDir::root().entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System))
            top.unenteredFolders.push_back(QDir::root().filePath(name).toStdString());
        Collector root;
        top.delegate = &root;
        walkerScan(top);
        QVERIFY(root.count() > 0);
        QVERIFY(!root.sawParent([](const QByteArray& p) { return p != "/"; }));
    }

    void missingRootAndOverlongNeedleEndAtOnce()
    {
        Collector found;
        // The longest needle the buffer holds is taken; the root cannot be opened.
        QCOMPARE(walkerScan("/nonexistent-root", std::string(1023, 'a').c_str(), &found), WalkerScanResult::Done);
        QCOMPARE(walkerTotalFiles(), 0);
        QVERIFY(!found.interrupted);
        QCOMPARE(walkerScan("/", std::string(1024, 'a').c_str(), &found), WalkerScanResult::NeedleTooLong);
        QCOMPARE(found.count(), 0);
    }

    void deepTreeDoesNotExhaustTheStack()
    {
        SearchTreeFixture tree;
        tree.deepChain("deep", 10000, "bottom-leaf");
        Collector found;
        walkerScan(tree.root().constData(), "bottom-leaf", &found);
        // Opened level by level, the bottom is reached although its path is far longer than PATH_MAX.
        QCOMPARE(found.count(), 1);
        QCOMPARE(walkerTotalFiles(), 10000 + 2);
    }

    void wideFoldersSpreadOverThreadsAndCountExactly()
    {
        SearchTreeFixture tree;
        for (int i = 0; i < 40; ++i)
            tree.wideFolder("w" + QByteArray::number(i), 150, "entry-");
        tree.wideFolder("big", 6000, "Big-Entry-");
        Collector found;
        walkerScan(tree.root().constData(), "entry-1", &found);
        // entry-1, entry-10..19, entry-100..149 per folder; Big-Entry-1, 10-19, 100-199, 1000-1999.
        QCOMPARE(found.count(), 40 * (1 + 10 + 50) + (1 + 10 + 100 + 1000));
        QCOMPARE(walkerTotalFiles(), 41 + 40 * 150 + 6000);
    }

    void rootOfSlashGivesDoubleSlashParentsAndCancelReturnsInTime()
    {
        Collector found;
        std::atomic<bool> done{false};
        std::thread scan([&] {
            walkerScan("/", "e", &found);
            done = true;
        });
        QElapsedTimer waited;
        waited.start();
        const auto sawBoth = [&] {
            return found.sawParent([](const QByteArray& p) { return p == "/"; }) &&
                   found.sawParent([](const QByteArray& p) { return p.startsWith("//") && p.size() > 2; });
        };
        while (!sawBoth() && !done && waited.elapsed() < 60000)
            QThread::msleep(1);
        QVERIFY(sawBoth());
        QElapsedTimer cancelTime;
        cancelTime.start();
        walkerCancel();
        QVERIFY(cancelTime.elapsed() <= 5500);
        scan.join();
        QVERIFY(found.interrupted || done);
        QCOMPARE(gActiveWalkers.load(), 0);
        // No parent path ends in a slash except the root itself.
        QVERIFY(!found.sawParent([](const QByteArray& p) { return p.size() > 1 && p.endsWith('/'); }));
    }

    void cancelledScanRunsTheEndHook()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        Collector found;
        walkerCancel();
        walkerScan(tree.root().constData(), "match", &found);
        QVERIFY(found.interrupted);
        QCOMPARE(found.count(), 0);
        walkerResume();
        Collector again;
        walkerScan(tree.root().constData(), "match", &again);
        QVERIFY(!again.interrupted);
        QCOMPARE(again.count(), 12);
    }

    void releaseWalkerTreeCountsEveryNodeButTheRoot()
    {
        WalkerNode root;
        auto* a = new WalkerNode;
        auto* a1 = new WalkerNode;
        a->children = {a1, new WalkerNode};
        a1->children = {new WalkerNode};
        root.children = {a, new WalkerNode};
        QCOMPARE(releaseWalkerTree(&root), 5L);
        QVERIFY(root.children.empty());
    }
};

QTEST_GUILESS_MAIN(TestWalker)
#include "TestWalker.moc"
