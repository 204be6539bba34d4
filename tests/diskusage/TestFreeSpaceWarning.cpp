#include "core/UserDefaults.h"
#include "diskusage/FreeSpaceWarning.h"
#include "support/ManualClock.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {
constexpr quint64 GB = 1000000000ULL;

VolumeInfo volume(quint64 size, quint64 free, const char* type = "ext4", const char* path = "/data",
                  const char* name = "Data")
{
    return {path, name, type, size, free, true};
}
} // namespace

// The warning goes out through a notification service on the test's own session bus: a separate
// process that records every Notify call it receives.
class TestFreeSpaceWarning : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QProcess m_server;

    QList<QJsonObject> received()
    {
        QList<QJsonObject> calls;
        QFile log(m_dir.filePath("notify.log"));
        if (log.open(QIODevice::ReadOnly))
            for (const QByteArray& line : log.readAll().split('\n'))
                if (!line.isEmpty())
                    calls.append(QJsonDocument::fromJson(line).object());
        return calls;
    }

private slots:
    void initTestCase()
    {
        m_server.start(QStringLiteral("/usr/bin/python3"),
                       {QStringLiteral(TROVIX_SOURCE_DIR "/tests/support/fake-notification-server.py"),
                        m_dir.filePath("notify.log")});
        QVERIFY(m_server.waitForReadyRead(20000));
        QCOMPARE(m_server.readLine().trimmed(), QByteArray("ready"));
    }

    void cleanupTestCase()
    {
        m_server.kill();
        m_server.waitForFinished();
    }

    // Once per gap at most; only local disks; the text names the volume and its figures.
    void warnsOncePerGapForLocalDisksOnly()
    {
        UserDefaults defaults(m_dir.filePath("defaults.json"));
        ManualClock clock;
        std::vector<VolumeInfo> volumes = {volume(1000 * GB, 1 * GB)};
        PromoFreeSpaceChecker checker(defaults, clock, FreeSpaceWarning::TIME_BETWEEN_REAL_DISK_CHECKS,
                                      [&] { return volumes; });
        FreeSpaceWarning warning(checker);

        QVERIFY(warning.check());
        QTRY_COMPARE(received().size(), 1);
        QCOMPARE(received()[0].value("app").toString(), QStringLiteral("Trovix"));
        QCOMPARE(received()[0].value("summary").toString(), QStringLiteral("Your disk is almost full"));
        QCOMPARE(received()[0].value("body").toString(), QStringLiteral("Only 954 MB of 931 GB is free on Data."));

        // Within the gap nothing more goes out, however low the disk.
        clock.advance((FreeSpaceWarning::TIME_BETWEEN_REAL_DISK_CHECKS - 1) * 1000);
        QVERIFY(!warning.check());

        // A network disk and a memory file system never warn; a healthy local disk does not either.
        volumes = {volume(1000 * GB, 1 * GB, "nfs4", "/net/share"), volume(1000 * GB, 1 * GB, "tmpfs", "/run/x"),
                   volume(200 * GB, 12 * GB)};
        clock.advance(2000);
        QVERIFY(!warning.check());

        // The start-up disk, low under the 10 GB rule, a gap later.
        volumes = {volume(200 * GB, 9 * GB, "ext4", "/", "")};
        QVERIFY(!warning.check()); // the last look was just now
        clock.advance(FreeSpaceWarning::TIME_BETWEEN_REAL_DISK_CHECKS * 1000);
        QVERIFY(warning.check());
        QTRY_COMPARE(received().size(), 2);
        QCOMPARE(received()[1].value("body").toString(),
                 QStringLiteral("Only 8.38 GB of 186 GB is free on the start-up disk."));

        // The gap holds across a restart: the last look is kept in the settings.
        UserDefaults reread(m_dir.filePath("defaults.json"));
        PromoFreeSpaceChecker again(reread, clock, FreeSpaceWarning::TIME_BETWEEN_REAL_DISK_CHECKS,
                                    [&] { return volumes; });
        QVERIFY(!FreeSpaceWarning(again).check());
        QTest::qWait(200);
        QCOMPARE(received().size(), 2);
    }

    // A volume without a label is named by where it is mounted.
    void unnamedVolumeByItsMountPoint()
    {
        QVERIFY(FreeSpaceWarning::text(volume(100 * GB, 1 * GB, "ext4", "/mnt/backup", ""))
                    .endsWith(QStringLiteral(" is free on /mnt/backup.")));
    }
};

QTEST_GUILESS_MAIN(TestFreeSpaceWarning)
#include "TestFreeSpaceWarning.moc"
