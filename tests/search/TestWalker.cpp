#include "search/TWalkerSkipList.h"
#include "search/Walker.h"
#include "support/SearchTreeFixture.h"

#include <QElapsedTimer>
#include <QTemporaryFile>
#include <QtTest>

#include <mutex>
#include <set>
#include <thread>

namespace {

// Collects matches as full paths ("parent/name" as the walker hands them) and parents.
class Collector : public WalkerDelegate
{
public:
    void walkerFileFound(std::string_view name, std::string_view parent, int filesSeen) override
    {
        std::lock_guard lock(mutex);
        paths.insert(QByteArray(parent.data(), static_cast<qsizetype>(parent.size())) + '/' +
                     QByteArray(name.data(), static_cast<qsizetype>(name.size())));
        parents.insert(QByteArray(parent.data(), static_cast<qsizetype>(parent.size())));
        maxSeen = std::max(maxSeen, filesSeen);
    }
    void walkerSearchInterrupted() override { interrupted = true; }

    QByteArrayList relative(const QByteArray& root)
    {
        std::lock_guard lock(mutex);
        QByteArrayList out;
        for (const QByteArray& p : paths)
            out.append(p.startsWith(root + '/') ? p.mid(root.size() + 1) : p);
        std::sort(out.begin(), out.end());
        return out;
    }
    size_t count()
    {
        std::lock_guard lock(mutex);
        return paths.size();
    }
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

// Captures what the walker writes on standard error during its lifetime.
class StderrCapture
{
public:
    StderrCapture()
    {
        QVERIFY(m_file.open());
        std::fflush(stderr);
        m_saved = ::dup(STDERR_FILENO);
        ::dup2(m_file.handle(), STDERR_FILENO);
    }
    QByteArray finish()
    {
        std::fflush(stderr);
        ::dup2(m_saved, STDERR_FILENO);
        ::close(m_saved);
        m_file.seek(0);
        return m_file.readAll();
    }

private:
    QTemporaryFile m_file;
    int m_saved = -1;
};

QByteArrayList sorted(QByteArrayList list)
{
    std::sort(list.begin(), list.end());
    return list;
}

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
            << QByteArray("match")
            << sorted({"docs/Report-MATCH.txt", "docs/.match-dotfile", "docs/listed-match",
                       ".git/objects/visible-match", "Tool.app/Contents/.match-inside",
                       "Tool.app/Contents/Info-match.plist", "match-folder", "match-folder/sub/inner-match.c",
                       "Été-match.txt", QByteArray("bad-\xff\xfe-match.bin"), "loop/self-match", "link-to-docs-match"});
        // Only ASCII letters are folded: the capital É of the name does not meet the needle's é.
        QTest::newRow("non-ascii capitals are not folded") << QByteArray("été") << QByteArrayList{};
        QTest::newRow("accented needle as written") << QByteArray("Été-") << sorted({"Été-match.txt"});
        QTest::newRow("raw bytes of a non-UTF-8 name") << QByteArray("\xff\xfe") << sorted({"bad-\xff\xfe-match.bin"});
        QTest::newRow("plain substring, no wildcards") << QByteArray("*.txt") << QByteArrayList{};
        QTest::newRow("folders and their contents") << QByteArray("sub") << sorted({"match-folder/sub"});
    }
    void matchesNamesOfTheStandardTree()
    {
        QFETCH(QByteArray, needle);
        QFETCH(QByteArrayList, expected);
        SearchTreeFixture tree;
        tree.buildStandard();
        Collector found;
        QCOMPARE(walkerScan(tree.root().constData(), needle.constData(), &found), WalkerScanResult::Done);
        QCOMPARE(found.relative(tree.root()), expected);
    }

    void countsEveryEntryOnceAndFollowsNoLinks()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        Collector found;
        walkerScan(tree.root().constData(), "", &found);
        // An empty needle reports everything: exactly the entries below the root, links not entered
        // (a followed loop would never end, a followed folder link would repeat docs/).
        const QByteArrayList all = found.relative(tree.root());
        QCOMPARE(all.size(), 21);
        QCOMPARE(walkerTotalFiles(), 21);
        QVERIFY(!all.contains("link-to-docs-match/notes.md"));
        QVERIFY(!all.contains("loop/self-match/loop"));
        QVERIFY(all.contains("Tool.app/Contents/.match-inside"));
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
        QCOMPARE(skipList.isInExcludeListName(entry.mid(entry.lastIndexOf('/') + 1).toStdString(),
                                              tree.path(entry.left(entry.lastIndexOf('/'))).toStdString()),
                 skipped);

        WalkerOptions options;
        options.rootPath = tree.root().toStdString();
        options.needle = "";
        options.skipList = &skipList;
        Collector found;
        options.delegate = &found;
        walkerScan(options);
        const QByteArrayList all = found.relative(tree.root());
        // Neither reported nor entered, nor counted inside.
        QCOMPARE(all.contains(entry), !skipped);
        QCOMPARE(all.contains(entry + "/inside-x"), !skipped);
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
        QCOMPARE(found.relative(tree.root()), sorted({"a", "a/mnt", "a/mnt-x", "a/mnt-x/inside-x"}));

        // Below "/" the folders are named without the doubled slash: naming every top-level folder
        // leaves only the root's own listing.
        WalkerOptions top;
        top.rootPath = "/";
        for (const QString& name : QDir::root().entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System))
            top.unenteredFolders.push_back("/" + name.toStdString());
        Collector root;
        top.delegate = &root;
        walkerScan(top);
        QVERIFY(root.count() > 0);
        QVERIFY(!root.sawParent([](const QByteArray& p) { return p != "/"; }));
    }

    void unreadableFolderIsReportedAndTheWalkGoesOn()
    {
        SearchTreeFixture tree;
        tree.file("a/before-x");
        tree.unreadableFolder("a/locked");
        tree.file("a/zz/after-x");
        SearchPermissionsEnforced enforced;
        if (!enforced.active())
            QSKIP("cannot take the permission override away from this root user");
        Collector found;
        StderrCapture capture;
        walkerScan(tree.root().constData(), "-x", &found);
        const QByteArray errors = capture.finish();
        QCOMPARE(found.relative(tree.root()), sorted({"a/before-x", "a/zz/after-x"}));
        QCOMPARE(errors, "Could not open directory \"" + tree.path("a/locked") + "\". Error was : Permission denied\n");
    }

    void unreadableRootEndsAtOnce()
    {
        SearchTreeFixture tree;
        Collector found;
        StderrCapture capture;
        walkerScan(tree.path("missing").constData(), "x", &found);
        const QByteArray errors = capture.finish();
        QCOMPARE(walkerTotalFiles(), 0);
        QCOMPARE(found.count(), size_t(0));
        QVERIFY(errors.startsWith("Could not open directory"));
        QVERIFY(!found.interrupted);
    }

    void deepTreeDoesNotExhaustTheStack()
    {
        SearchTreeFixture tree;
        tree.deepChain("deep", 10000, "bottom-leaf");
        Collector found;
        StderrCapture capture;
        walkerScan(tree.root().constData(), "bottom-leaf", &found);
        capture.finish();
        // Opened level by level, the bottom is reached although its path is far longer than PATH_MAX.
        QCOMPARE(found.count(), size_t(1));
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
        QCOMPARE(found.count(), size_t(40 * (1 + 10 + 50) + (1 + 10 + 100 + 1000)));
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
        QCOMPARE(found.count(), size_t(0));
        walkerResume();
        Collector again;
        walkerScan(tree.root().constData(), "match", &again);
        QVERIFY(!again.interrupted);
        QCOMPARE(again.count(), size_t(12));
    }

    void needleLongerThanTheBufferIsRefused()
    {
        Collector found;
        const std::string longest(1023, 'a');
        QCOMPARE(walkerScan("/nonexistent-root", longest.c_str(), &found), WalkerScanResult::Done);
        const std::string tooLong(1024, 'a');
        QCOMPARE(walkerScan("/", tooLong.c_str(), &found), WalkerScanResult::NeedleTooLong);
        QCOMPARE(found.count(), size_t(0));
    }

    void releaseWalkerTreeCountsEveryNodeButTheRoot()
    {
        WalkerNode root;
        auto* a = new WalkerNode;
        auto* b = new WalkerNode;
        auto* a1 = new WalkerNode;
        auto* a2 = new WalkerNode;
        a->children = {a1, a2};
        a1->children = {new WalkerNode};
        root.children = {a, b};
        QCOMPARE(releaseWalkerTree(&root), 5L);
        QVERIFY(root.children.empty());
    }
};

QTEST_GUILESS_MAIN(TestWalker)
#include "TestWalker.moc"
