#include "memory/PurgeManager.h"
#include "support/MemoryFakes.h"

#include <QFile>
#include <QTest>

#include <algorithm>
#include <memory>

namespace {

constexpr quint64 MiB = 1024 * 1024;
constexpr quint64 GiB = 1024 * MiB;

struct Rig
{
    FakeMemoryInfo info;
    FakeBlockAllocator allocator;
    RecordingSleep sleeps;
    RecordingPurgeDelegate delegate;
    std::unique_ptr<PurgeManager> manager;

    explicit Rig(quint64 physical)
    {
        info.setPhysical(physical);
        // Plenty of room unless a test says otherwise; held blocks use it up.
        info.setAvailable(1024 * GiB, 1024 * GiB, &allocator.held);
        make();
    }
    void make()
    {
        PurgeManager::Collaborators c;
        c.memoryInfo = &info;
        c.allocator = &allocator;
        c.sleep = [this](int ms) { sleeps(ms); };
        manager = std::make_unique<PurgeManager>(c);
        manager->setDelegate(&delegate);
    }
    // Runs one whole purge and waits for its completion on this (main) thread.
    bool purge()
    {
        bool done = false;
        manager->purgeWithCompletion([&done] { done = true; });
        return QTest::qWaitFor([&] { return done; }, 20000);
    }
};

quint64 vmRssKiB()
{
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : f.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toULongLong();
    }
    return 0;
}

} // namespace

class TestPurgeManager : public QObject
{
    Q_OBJECT
private slots:
    void progressThrottle_data()
    {
        // Each row: values sent in order (negative = forced), values the delegate receives.
        QTest::addColumn<QList<float>>("sent");
        QTest::addColumn<QList<float>>("delivered");
        QTest::newRow("small steps dropped")
            << QList<float>{0.005f, 0.01f, 0.011f, 0.02f, 0.0211f} << QList<float>{0.011f, 0.0211f};
        QTest::newRow("forced always passes")
            << QList<float>{-0.0f, -0.0f, -0.5f, -0.5f} << QList<float>{0.0f, 0.0f, 0.5f, 0.5f};
        QTest::newRow("a step back counts too")
            << QList<float>{0.5f, 0.48f, 0.485f, 0.3f} << QList<float>{0.5f, 0.48f, 0.3f};
    }

    void progressThrottle()
    {
        QFETCH(QList<float>, sent);
        Rig rig(8 * GiB);
        for (float v : sent)
            rig.manager->notifyAboutProgress(std::fabs(v), std::signbit(v));
        QCoreApplication::processEvents();
        QTEST(rig.delegate.progress_, "delivered");
    }

    void smallPurgeReportsEveryStep()
    {
        Rig rig(4 * PurgeManager::kBlockSize);
        QVERIFY(rig.purge());
        QCOMPARE(rig.delegate.progress_,
                 (QList<float>{0.0f, 0.125f, 0.25f, 0.375f, 0.5f, 0.625f, 0.75f, 0.875f, 1.0f}));
        QCOMPARE(rig.delegate.starts, 1);
        QCOMPARE(rig.delegate.ends, 1);
        QCOMPARE(rig.allocator.allocations(), 4);
        QCOMPARE(rig.allocator.problems(), QString());
        QVERIFY(!rig.manager->isBusy());
        QVERIFY(!rig.manager->hasPendingCompletion());
        // The blocks are held about a second before they go back.
        QCOMPARE(rig.sleeps.count(100), 10);
    }

    void largePurgeThrottlesProgress()
    {
        Rig rig(8 * GiB);
        QVERIFY(rig.purge());
        const QList<float>& p = rig.delegate.progress_;
        QCOMPARE(rig.allocator.allocations(), 819);
        QCOMPARE(p.first(), 0.0f);
        QCOMPARE(p.last(), 1.0f);
        QVERIFY2(p.size() > 90 && p.size() < 110, qPrintable(QString::number(p.size())));
        const float step = 0.5f / 819.0f;
        for (int i = 1; i < p.size(); ++i) {
            const float gap = p[i] - p[i - 1];
            const bool forced = p[i] == 0.5f || p[i] == 1.0f;
            QVERIFY2(gap >= 0.0f, "progress never goes back within a purge");
            if (!forced) {
                QVERIFY2(gap > 0.01f, qPrintable(QStringLiteral("gap %1 at %2").arg(gap).arg(i)));
                // Passed on as soon as the change is large enough: never later than one step after.
                QVERIFY2(gap <= 0.01f + step + 1e-6f, qPrintable(QStringLiteral("gap %1 at %2").arg(gap).arg(i)));
            }
        }
    }

    void twoQuickRequestsStartOnePurge()
    {
        Rig rig(20 * PurgeManager::kBlockSize);
        int first = 0;
        int second = 0;
        rig.manager->purgeWithCompletion([&] { ++first; });
        rig.manager->purgeWithCompletion([&] { ++second; });
        QVERIFY(rig.manager->hasPendingCompletion());
        QVERIFY(QTest::qWaitFor([&] { return first == 1; }, 20000));
        QTest::qWait(50);
        QCOMPARE(first, 1);
        QCOMPARE(second, 0);
        QCOMPARE(rig.allocator.allocations(), 20);
        QCOMPARE(rig.delegate.starts, 1);
        // Once the completion is delivered the next request is a new purge.
        QVERIFY(rig.purge());
        QCOMPARE(rig.allocator.allocations(), 40);
        QCOMPARE(first, 1);
    }

    void floorStopsTheFill_data()
    {
        QTest::addColumn<quint64>("physical");
        QTest::addColumn<quint64>("available");
        QTest::addColumn<quint64>("total");
        QTest::addColumn<quint64>("floor");
        QTest::newRow("5% of 8 GiB") << 8 * GiB << 2 * GiB << 8 * GiB << (8 * GiB) / 20;
        QTest::newRow("256 MiB on a small machine") << 2 * GiB << 700 * MiB << 2 * GiB << 256 * MiB;
        // A 1 GiB cgroup on a 32 GiB machine: the limit is the total the floor is taken from.
        QTest::newRow("cgroup limit") << 32 * GiB << 900 * MiB << 1 * GiB << 256 * MiB;
        QTest::newRow("already below") << 8 * GiB << 300 * MiB << 8 * GiB << (8 * GiB) / 20;
    }

    void floorStopsTheFill()
    {
        QFETCH(quint64, physical);
        QFETCH(quint64, available);
        QFETCH(quint64, total);
        QFETCH(quint64, floor);
        Rig rig(physical);
        rig.info.setAvailable(available, total, &rig.allocator.held);
        QCOMPARE(PurgeManager::safetyFloor(total), floor);
        QVERIFY(rig.purge());

        const PurgeManager::Report report = rig.manager->lastReport();
        QVERIFY(report.stoppedByFloor);
        QVERIFY(!report.stoppedByFailure);
        QCOMPARE(report.requestedBlocks, int(physical / PurgeManager::kBlockSize));
        QVERIFY(report.heldBlocks < report.requestedBlocks);
        QCOMPARE(report.heldBlocks, rig.allocator.allocations());
        // The fill went as far as it could without crossing the floor.
        const quint64 lowest = available - quint64(report.heldBlocks) * PurgeManager::kBlockSize;
        QVERIFY(*report.lowestAvailable == lowest || report.heldBlocks == 0);
        if (available >= floor)
            QVERIFY(lowest >= floor);
        QVERIFY(lowest < floor + PurgeManager::kBlockSize);
        QCOMPARE(rig.allocator.problems(), QString());
        QCOMPARE(rig.delegate.progress_.last(), 1.0f);
    }

    void failureEndsTheFillAndReleasesAll_data()
    {
        QTest::addColumn<int>("readsBeforeFailure"); // of available memory; -1: never fails
        QTest::addColumn<int>("refusedBlock");       // index of the first block refused; -1: none
        QTest::addColumn<int>("held");
        QTest::newRow("memory unreadable from the start") << 0 << -1 << 0;
        QTest::newRow("memory unreadable during the fill") << 3 << -1 << 3;
        QTest::newRow("block refused") << -1 << 5 << 5;
    }

    void failureEndsTheFillAndReleasesAll()
    {
        QFETCH(int, readsBeforeFailure);
        QFETCH(int, refusedBlock);
        QFETCH(int, held);
        Rig rig(8 * GiB);
        rig.info.setAvailableFailsAfter(readsBeforeFailure);
        rig.allocator.setFailAt(refusedBlock);
        QVERIFY(rig.purge());
        const PurgeManager::Report report = rig.manager->lastReport();
        QVERIFY(report.stoppedByFailure);
        QVERIFY(!report.stoppedByFloor);
        QCOMPARE(report.heldBlocks, held);
        QCOMPARE(rig.allocator.allocations(), held);
        QCOMPARE(rig.allocator.problems(), QString());
        QCOMPARE(rig.delegate.ends, 1);
        // No second of holding when the system is already refusing memory.
        if (refusedBlock >= 0)
            QCOMPARE(rig.sleeps.count(100), 0);
        // The release half still runs over the blocks held, ending at 1.
        const QList<float>& p = rig.delegate.progress_;
        QCOMPARE(p.last(), 1.0f);
        QVERIFY(p.contains(0.5f));
        QCOMPARE(std::any_of(p.begin(), p.end(), [](float v) { return v > 0.5f && v < 1.0f; }), held > 0);
    }

    void waitsForTheGainAtMostTwentyRounds_data()
    {
        QTest::addColumn<int>("gainAtRead"); // 0: never
        QTest::addColumn<int>("rounds");
        QTest::newRow("no gain") << 0 << 20;
        QTest::newRow("gain shows at once") << 2 << 0;
        QTest::newRow("gain after three waits") << 5 << 3;
    }

    void waitsForTheGainAtMostTwentyRounds()
    {
        QFETCH(int, gainAtRead);
        Rig rig(PurgeManager::kBlockSize * 2);
        // Read 1 is the purge's opening sample; later reads come from the rounds.
        rig.info.setStatisticsSequence([gainAtRead](int read) {
            VmStatistics64 s;
            s.active_count = (gainAtRead && read >= gainAtRead) ? 100 : 200;
            return s;
        });
        QVERIFY(rig.purge());
        QTEST(int(rig.sleeps.count(250)), "rounds");
    }

    void destructionCutsAPurgeShort()
    {
        Rig rig(64 * GiB);
        rig.allocator.delayMicroseconds = 1000;
        rig.manager->purgeWithCompletion([] { QFAIL("a destroyed manager delivers no completion"); });
        QTest::qWait(20);
        rig.manager.reset();
        QCoreApplication::processEvents();
        QCOMPARE(rig.allocator.problems(), QString());
        QVERIFY(rig.allocator.allocations() < 6553);
    }

    void realBlocksAreTouchedAndGivenBack()
    {
        // Four real 10 MiB blocks: the budget comes from the injected physical size, while the floor reads
        // the real machine.
        quint64 rssHeld = 0;
        PurgeManager::Collaborators c;
        c.physicalMemory = 4 * PurgeManager::kBlockSize;
        c.sleep = [&rssHeld](int ms) {
            if (ms == 100 && rssHeld == 0)
                rssHeld = vmRssKiB();
            std::this_thread::sleep_for(std::chrono::milliseconds(ms / 20));
        };
        PurgeManager manager(c);
        const auto available = MemoryInfo::system().availableMemory();
        QVERIFY(available);
        if (available->available < PurgeManager::safetyFloor(available->total) + 4 * PurgeManager::kBlockSize)
            QSKIP("this machine is too short of memory for the check");
        const quint64 rssBefore = vmRssKiB();
        bool done = false;
        manager.purgeWithCompletion([&done] { done = true; });
        QVERIFY(QTest::qWaitFor([&] { return done; }, 20000));
        const quint64 rssAfter = vmRssKiB();
        QCOMPARE(manager.lastReport().heldBlocks, 4);
        QVERIFY2(rssHeld >= rssBefore + 38 * 1024,
                 qPrintable(QStringLiteral("RSS %1 -> %2 KiB while held").arg(rssBefore).arg(rssHeld)));
        QVERIFY2(rssAfter < rssHeld - 30 * 1024,
                 qPrintable(QStringLiteral("RSS %1 KiB after, %2 KiB held").arg(rssAfter).arg(rssHeld)));
    }
};

QTEST_GUILESS_MAIN(TestPurgeManager)
#include "TestPurgeManager.moc"
