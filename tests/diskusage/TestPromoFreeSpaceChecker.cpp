#include "core/UserDefaults.h"
#include "diskusage/PromoFreeSpaceChecker.h"
#include "support/ManualClock.h"

#include <QTemporaryDir>
#include <QTest>

#include <sys/statvfs.h>

namespace {
constexpr quint64 GB = 1000000000ULL;

VolumeInfo volume(quint64 size, quint64 free, const char* type = "ext4", const char* path = "/data")
{
    return {path, "Data", type, size, free, true};
}
} // namespace

class TestPromoFreeSpaceChecker : public QObject
{
    Q_OBJECT

private slots:
    void thresholds_data()
    {
        QTest::addColumn<quint64>("size");
        QTest::addColumn<quint64>("free");
        QTest::addColumn<bool>("low");
        QTest::newRow("1 TB, 40 GB free: under 5%") << 1000 * GB << 40 * GB << true;
        QTest::newRow("200 GB, 12 GB free") << 200 * GB << 12 * GB << false;
        QTest::newRow("200 GB, 9 GB free: under 10 GB") << 200 * GB << 9 * GB << true;
        QTest::newRow("90 GB, 5 GB free (5.6%)") << 90 * GB << 5 * GB << false;
        QTest::newRow("90 GB, 4 GB free (4.4%)") << 90 * GB << 4 * GB << true;
        QTest::newRow("100 GB exactly, 9 GB free (9%)") << 100 * GB << 9 * GB << false;
        QTest::newRow("empty size") << 0ull << 0ull << false;
    }

    void thresholds()
    {
        QFETCH(quint64, size);
        QFETCH(quint64, free);
        QFETCH(bool, low);
        QCOMPARE(PromoFreeSpaceChecker::isLowOnSpace(volume(size, free)), low);
    }

    // At most once per gap; network, pseudo and read-only volumes never warn.
    void gapAndKindsOfVolume()
    {
        QTemporaryDir dir;
        UserDefaults defaults(dir.filePath("defaults.json"));
        ManualClock clock;
        std::vector<VolumeInfo> volumes = {volume(1000 * GB, 1 * GB, "nfs4", "/net"),
                                           volume(1000 * GB, 1 * GB, "tmpfs", "/run/x"),
                                           volume(1000 * GB, 500 * GB)};
        VolumeInfo readOnly = volume(1000 * GB, 1 * GB);
        readOnly.writable = false;
        volumes.push_back(readOnly);
        PromoFreeSpaceChecker checker(defaults, clock, 3600, [&] { return volumes; });
        QVERIFY(!checker.isNeedShowLackOfMemoryWarning());
        QCOMPARE(checker.getLastLackOfSpaceWarningDate(), clock.now());

        volumes.push_back(volume(1000 * GB, 1 * GB));
        clock.advance(3599 * 1000);
        QVERIFY(!checker.isNeedShowLackOfMemoryWarning()); // within the gap
        clock.advance(1000);
        QVERIFY(checker.isNeedShowLackOfMemoryWarning());
        QVERIFY(!checker.isNeedShowLackOfMemoryWarning());
        // The date is kept in the settings file: a new checker waits too.
        UserDefaults reread(dir.filePath("defaults.json"));
        PromoFreeSpaceChecker again(reread, clock, 3600, [&] { return volumes; });
        QVERIFY(!again.isNeedShowLackOfMemoryWarning());
    }

    // The machine's own volumes: "/" first, its free space from the script, the same as statvfs says.
    void localVolumesOfThisMachine()
    {
        const auto volumes = PromoFreeSpaceChecker::localVolumes();
        QVERIFY(!volumes.empty());
        QCOMPARE(volumes.front().path, QStringLiteral("/"));
        const auto scripted = PromoFreeSpaceChecker::startupDiskFreeFromScript();
        QVERIFY(scripted.has_value());
        struct statvfs st;
        QVERIFY(::statvfs("/", &st) == 0);
        const quint64 available = quint64(st.f_bavail) * st.f_frsize;
        // The disk is in use by others: allow what a busy machine writes between the two reads.
        QVERIFY(qAbs(qint64(*scripted) - qint64(available)) < qint64(512) * 1024 * 1024);
        QVERIFY(volumes.front().size > 0);
        for (const VolumeInfo& v : volumes)
            if (v.path != QLatin1String("/"))
                QVERIFY(PromoFreeSpaceChecker::isLocalDiskFileSystem(v.fsType));
    }
};

QTEST_GUILESS_MAIN(TestPromoFreeSpaceChecker)
#include "TestPromoFreeSpaceChecker.moc"
