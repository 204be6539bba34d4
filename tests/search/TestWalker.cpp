#include "search/TWalkerSkipList.h"
#include "search/Walker.h"
#include "support/SearchTreeFixture.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QtTest>

#include <sys/resource.h>

#include <condition_variable>
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

int openDescriptors()
{
    return static_cast<int>(QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::Files | QDir::System).size());
}

} // namespace

class TestWalker : public QObject
{
    Q_OBJECT
private Q_SLOTS:

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
        auto control = std::make_shared<WalkerControl>();
        std::thread scan([&] {
            WalkerOptions options;
            options.rootPath = "/";
            options.needle = "e";
            options.delegate = &found;
            options.control = control;
            walkerScan(options);
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
        QVERIFY(control->cancelAndWait());
        QVERIFY(cancelTime.elapsed() <= 5500);
        scan.join();
        QVERIFY(found.interrupted || done);
        QCOMPARE(control->activeWalkers(), 0);
        // No parent path ends in a slash except the root itself.
        QVERIFY(!found.sawParent([](const QByteArray& p) { return p.size() > 1 && p.endsWith('/'); }));
    }

    // A scan cancelled before it starts never starts, whatever other scans do meanwhile; the next
    // scan has a flag of its own.
    void cancelledBeforeStartStaysCancelled()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        auto control = std::make_shared<WalkerControl>();
        control->cancel();
        Collector again;
        walkerScan(tree.root().constData(), "match", &again);
        walkerResume();
        Collector found;
        WalkerOptions options;
        options.rootPath = tree.root().toStdString();
        options.needle = "match";
        options.delegate = &found;
        options.control = control;
        walkerScan(options);
        QVERIFY(found.interrupted);
        QCOMPARE(found.count(), 0);
        QCOMPARE(control->filesSeen(), 0);
        QVERIFY(!again.interrupted);
        QCOMPARE(again.count(), 12);
    }

    // A delegate that cancels its own scan after a few matches: the walk stops there.
    void cancelInTheMiddleOfAWalkStopsIt()
    {
        SearchTreeFixture tree;
        for (int i = 0; i < 40; ++i)
            tree.wideFolder("w" + QByteArray::number(i), 150, "entry-");
        class Canceller : public WalkerDelegate
        {
        public:
            void walkerFileFound(std::string_view, std::string_view, int) override
            {
                if (++found == 10)
                    control->cancel();
            }
            std::shared_ptr<WalkerControl> control = std::make_shared<WalkerControl>();
            std::atomic<int> found{0};
        } canceller;
        WalkerOptions options;
        options.rootPath = tree.root().toStdString();
        options.needle = "entry";
        options.delegate = &canceller;
        options.control = canceller.control;
        QElapsedTimer timer;
        timer.start();
        walkerScan(options);
        QVERIFY(timer.elapsed() < 5000);
        // Each walker stops at its next entry: a few matches per thread at most, of 6000.
        QVERIFY2(canceller.found < 200, QByteArray::number(canceller.found.load()).constData());
        QVERIFY(canceller.control->finished());
    }

    // A delegate stuck past the 5 s bound: the cancel gives up waiting, a new scan runs meanwhile
    // without waiting for the stuck one, and the stuck one, once free, does not walk on.
    void blockedDelegatePastTheBoundDoesNotHoldTheNextScan()
    {
        SearchTreeFixture tree;
        tree.wideFolder("a", 300, "entry-");
        class Blocker : public WalkerDelegate
        {
        public:
            void walkerFileFound(std::string_view, std::string_view, int) override
            {
                ++found;
                std::unique_lock lock(mutex);
                entered = true;
                changed.notify_all();
                changed.wait(lock, [this] { return released; });
            }
            std::mutex mutex;
            std::condition_variable changed;
            bool entered = false;
            bool released = false;
            std::atomic<int> found{0};
        } blocker;
        auto control = std::make_shared<WalkerControl>();
        std::thread stuck([&] {
            WalkerOptions options;
            options.rootPath = tree.path("a").toStdString();
            options.needle = "entry";
            options.delegate = &blocker;
            options.control = control;
            walkerScan(options);
        });
        {
            std::unique_lock lock(blocker.mutex);
            QVERIFY(blocker.changed.wait_for(lock, std::chrono::seconds(20), [&] { return blocker.entered; }));
        }
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!control->cancelAndWait());
        QVERIFY(timer.elapsed() >= 4900 && timer.elapsed() < 8000);

        std::atomic<bool> otherDone{false};
        Collector other;
        std::thread next([&] {
            walkerScan(tree.root().constData(), "entry-1", &other);
            otherDone = true;
        });
        QElapsedTimer waited;
        waited.start();
        while (!otherDone && waited.elapsed() < 10000)
            QThread::msleep(5);
        QVERIFY(otherDone);
        QCOMPARE(other.count(), 1 + 10 + 100);
        {
            std::lock_guard lock(blocker.mutex);
            blocker.released = true;
        }
        blocker.changed.notify_all();
        stuck.join();
        next.join();
        QCOMPARE(blocker.found.load(), 1);
    }

    // Under a low descriptor limit, a deep chain (longer than one path may be) with branches is walked
    // whole, and no descriptor is left open after a full or a cancelled scan.
    void lowDescriptorLimitWalksEverythingAndLeaksNothing()
    {
        SearchTreeFixture tree;
        tree.deepChain("deep", 2500, "bottom-leaf");
        for (int i = 0; i < 30; ++i)
            tree.file("br" + QByteArray::number(i % 5) + "/b" + QByteArray::number(i) + "/leaf-" +
                      QByteArray::number(i));
        rlimit saved{};
        QCOMPARE(getrlimit(RLIMIT_NOFILE, &saved), 0);
        rlimit low = saved;
        low.rlim_cur = 64;
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &low), 0);
        const auto restore = qScopeGuard([&] { setrlimit(RLIMIT_NOFILE, &saved); });
        const int before = openDescriptors();

        Collector found;
        walkerScan(tree.root().constData(), "leaf", &found);
        QCOMPARE(found.count(), 31);
        QCOMPARE(openDescriptors(), before);

        class Canceller : public WalkerDelegate
        {
        public:
            void walkerFileFound(std::string_view, std::string_view, int) override { control->cancel(); }
            std::shared_ptr<WalkerControl> control = std::make_shared<WalkerControl>();
        } canceller;
        WalkerOptions options;
        options.rootPath = tree.root().toStdString();
        options.needle = "leaf";
        options.delegate = &canceller;
        options.control = canceller.control;
        walkerScan(options);
        QCOMPARE(openDescriptors(), before);
        QCOMPARE(canceller.control->foldersSkipped(), 0);
    }

    // Only the copy matched against is limited: a needle far into a long name is found.
    void longNamesMatchBeyondTheShortBuffer()
    {
        std::string name(700, 'x');
        name.replace(600, 6, "NEEDLE");
        QVERIFY(walkerNameMatches(name.data(), name.size(), walkerFoldNeedle("needle")));
        QVERIFY(!walkerNameMatches(name.data(), name.size(), walkerFoldNeedle("needles")));
        QCOMPARE(walkerFoldNeedle("\xc3\x89LAN-\xff"), std::string("\xc3\x89lan-\xff"));
    }

    // The matcher folds as it compares; a plain fold of the looked-at part and a find must agree with
    // it on names full of the bytes next to the letters, bytes above 127 and needles at every place.
    void matchingAgreesWithFoldingThenFinding()
    {
        static constexpr char kAlphabet[] = {'a', 'A', 'z', 'Z',    'r',    'R',    '@',    '[',   '`',
                                             '{', '-', '.', '\x80', '\xc3', '\xff', '\xe1', '\xc1'};
        const auto reference = [](std::string_view name, std::string_view foldedNeedle) {
            std::string folded(name.substr(0, kWalkerMatchCapacity));
            for (char& c : folded)
                c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
            return folded.find(foldedNeedle) != std::string::npos;
        };
        QRandomGenerator random(20261124);
        const auto randomText = [&](size_t length) {
            std::string text(length, ' ');
            for (char& c : text)
                c = kAlphabet[random.bounded(static_cast<int>(sizeof kAlphabet))];
            return text;
        };
        int matched = 0;
        for (int i = 0; i < 200000; ++i) {
            const std::string name = randomText(random.bounded(12));
            const std::string needle = walkerFoldNeedle(randomText(1 + random.bounded(3)));
            const bool expected = reference(name, needle);
            matched += expected ? 1 : 0;
            if (walkerNameMatches(name.data(), name.size(), needle) != expected)
                QFAIL(qPrintable(QStringLiteral("\"%1\" in \"%2\"")
                                     .arg(QString::fromLatin1(needle.data(), static_cast<qsizetype>(needle.size())),
                                          QString::fromLatin1(name.data(), static_cast<qsizetype>(name.size())))));
        }
        QVERIFY(matched > 1000); // the draw exercised both answers

        // Around the end of the looked-at part: a needle ending on its last byte counts, one past it not.
        const std::string needle = walkerFoldNeedle("Report");
        for (size_t end = kWalkerMatchCapacity - 2; end <= kWalkerMatchCapacity + 2; ++end) {
            std::string name(end, 'x');
            name.replace(end - 6, 6, "REPORT");
            name += "tail";
            QCOMPARE(walkerNameMatches(name.data(), name.size(), needle), end <= kWalkerMatchCapacity);
            QCOMPARE(walkerNameMatches(name.data(), name.size(), needle), reference(name, needle));
        }
        QVERIFY(walkerNameMatches("anything", 8, ""));
        QVERIFY(!walkerNameMatches("rep", 3, needle));
    }

    // The end of a scan is told once, after its last match, with every folder closed, cancelled or not;
    // a refused scan tells nothing.
    void scanEndIsToldOnceAfterTheLastMatch()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        class EndWatcher : public Collector
        {
        public:
            void walkerScanEnded() override
            {
                ++ends;
                matchesAtEnd = count();
                descriptorsAtEnd = openDescriptors();
            }
            int ends = 0;
            int matchesAtEnd = -1;
            int descriptorsAtEnd = -1;
        };
        const int before = openDescriptors();
        EndWatcher full;
        walkerScan(tree.root().constData(), "match", &full);
        QCOMPARE(full.ends, 1);
        QCOMPARE(full.matchesAtEnd, full.count());
        QVERIFY(full.matchesAtEnd > 0);
        QCOMPARE(full.descriptorsAtEnd, before);

        EndWatcher cancelled;
        WalkerOptions options;
        options.rootPath = tree.root().toStdString();
        options.needle = "match";
        options.delegate = &cancelled;
        options.control = std::make_shared<WalkerControl>();
        options.control->cancel();
        walkerScan(options);
        QCOMPARE(cancelled.ends, 1);
        QCOMPARE(cancelled.matchesAtEnd, 0);

        EndWatcher refused;
        options.delegate = &refused;
        options.control.reset();
        options.needle = std::string(kSearchNeedleCapacity, 'x');
        QCOMPARE(walkerScan(options), WalkerScanResult::NeedleTooLong);
        QCOMPARE(refused.ends, 0);
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
