#include "core/UserDefaults.h"
#include "diskusage/PathsGenerator.h"
#include "diskusage/SearcherManager.h"
#include "support/DiskUsageFixture.h"
#include "support/ManualClock.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace DiskUsageFixture;

class TestSearcherManager : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<PathsGenerator> m_paths;
    std::unique_ptr<UserDefaults> m_defaults;
    ManualClock m_clock;

    std::unique_ptr<SearcherManager> makeManager()
    {
        SearcherManager::Config config;
        config.paths = m_paths.get();
        config.clock = &m_clock;
        config.defaults = m_defaults.get();
        config.largeAndOldScopes = {m_home->path()};
        config.appSources.appImageFolder = m_paths->buildUserApplicationsDirectory();
        return std::make_unique<SearcherManager>(config);
    }

    // Lets the junk walks start (the zero-delay start and the 0.2-0.6 s stagger) and waits for all four.
    void finish(SearcherManager& manager)
    {
        m_clock.advance(0);
        m_clock.advance(600);
        QTRY_VERIFY_WITH_TIMEOUT(manager.getTotalCalculatedSize() > 0, 20000);
    }

private slots:
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        m_paths = std::make_unique<PathsGenerator>(m_home->path(), QProcessEnvironment());
        m_defaults = std::make_unique<UserDefaults>(m_home->filePath("defaults.json"));
        QVERIFY(writeFile(m_paths->buildCacheDirectory() + "/c", 100000));
        QVERIFY(writeFile(m_paths->buildDownloadsDirectory() + "/d.iso", 200000));
        QVERIFY(writeFile(m_paths->buildTrashDirectory() + "/files/t", 300000));
        QVERIFY(writeFile(m_home->filePath("Music/a.mp3"), 2000000, 's'));
        QVERIFY(writeFile(m_home->filePath("Music/b.mp3"), 2000000, 's'));
        QVERIFY(writeFile(m_paths->buildUserApplicationsDirectory() + "/Tool.AppImage", 400000));
    }

    // Fresh start: nothing totals until all four answered; then the total is the four categories' sum.
    void totalOnlyWhenAllFourAnswered()
    {
        auto manager = makeManager();
        QSignalSpy junk(manager.get(), &SearcherManager::onSpotlightManagerFoundJunkFilesInfo);
        QSignalSpy apps(manager.get(), &SearcherManager::onSpotlightManagerFoundApplicationsInfo);
        QSignalSpy duplicates(manager.get(), &SearcherManager::onSpotlightManagerFoundDuplicatesInfo);
        manager->startSearchForced(false);
        for (quint32 type = 0; type < 4; ++type)
            QVERIFY(manager->isScanning(type));
        QTRY_VERIFY_WITH_TIMEOUT(apps.count() == 1 && duplicates.count() == 1, 20000);
        QCOMPARE(manager->getTotalCalculatedSize(), 0ull); // junk waits for its stagger
        finish(*manager);
        QCOMPARE(junk.count(), 1);
        const auto info = junk.first().first().value<JunkFilesViewInfo>();
        QCOMPARE(info.getTotalSize(), findAllocatedSum(m_paths->buildCacheDirectory())
                                          + findAllocatedSum(m_paths->buildDownloadsDirectory())
                                          + findAllocatedSum(m_paths->buildTrashDirectory()));
        const auto dup = duplicates.first().first().value<DuplicateFilesViewInfo>();
        QCOMPARE(dup.count, 2ull);
        QCOMPARE(manager->getTotalCalculatedSize(),
                 info.getTotalSize() + dup.size + allocated(m_paths->buildUserApplicationsDirectory() + "/Tool.AppImage"));
    }

    // Review lists: nothing before a type answers; then the found files as native paths (junk: what lies
    // directly in its three folders; a name that is not UTF-8 keeps its bytes).
    void reviewPathsAreTheFoundFiles()
    {
        const QByteArray odd = QFile::encodeName(m_paths->buildDownloadsDirectory()) + "/caf\xe9.bin";
        const int fd = ::open(odd.constData(), O_WRONLY | O_CREAT | O_EXCL, 0644);
        QVERIFY(fd >= 0);
        ::close(fd);
        QVERIFY(writeFile(m_home->filePath("Old/backup.tar"), 21000000));
        const QByteArray old = QFile::encodeName(m_home->filePath("Old/backup.tar"));
        const timespec times[2] = {{m_clock.now().toSecsSinceEpoch() - 200 * 86400, 0},
                                   {m_clock.now().toSecsSinceEpoch() - 200 * 86400, 0}};
        QCOMPARE(::utimensat(AT_FDCWD, old.constData(), times, 0), 0);

        auto manager = makeManager();
        for (quint32 type = 0; type < 4; ++type)
            QVERIFY(manager->reviewPaths(type).isEmpty());
        manager->startSearchForced(true);
        finish(*manager);
        QTRY_VERIFY_WITH_TIMEOUT(!manager->isScanning(ScanLargeAndOld), 20000);

        const auto sorted = [](QList<QByteArray> list) {
            std::sort(list.begin(), list.end());
            return list;
        };
        const QByteArray home = QFile::encodeName(m_home->path());
        QCOMPARE(sorted(manager->reviewPaths(ScanJunk)),
                 sorted({QFile::encodeName(m_paths->buildCacheDirectory() + "/c"),
                         QFile::encodeName(m_paths->buildDownloadsDirectory() + "/d.iso"), odd,
                         QFile::encodeName(m_paths->buildTrashDirectory() + "/files/t")}));
        QCOMPARE(sorted(manager->reviewPaths(ScanDuplicates)), sorted({home + "/Music/a.mp3", home + "/Music/b.mp3"}));
        QCOMPARE(manager->reviewPaths(ScanLargeAndOld), QList<QByteArray>{old});
        QCOMPARE(manager->reviewPaths(ScanApplications),
                 QList<QByteArray>{QFile::encodeName(m_paths->buildUserApplicationsDirectory() + "/Tool.AppImage")});
        QVERIFY(manager->reviewPaths(4).isEmpty());
    }

    // Within the interval a second start answers from the kept results at once; one category rescans
    // alone; the daily timer rescans everything.
    void freshnessRescanAndDailyTimer()
    {
        auto manager = makeManager();
        manager->startSearchForced(false);
        finish(*manager);
        const quint64 total = manager->getTotalCalculatedSize();

        m_clock.advance(3600 * 1000);
        QSignalSpy junk(manager.get(), &SearcherManager::onSpotlightManagerFoundJunkFilesInfo);
        QSignalSpy large(manager.get(), &SearcherManager::onSpotlightManagerFoundLargetAndOldFilesInfo);
        manager->startSearchForced(false);
        QCOMPARE(junk.count(), 1); // delivered synchronously from the kept result
        QCOMPARE(large.count(), 1);
        for (quint32 type = 0; type < 4; ++type)
            QVERIFY(!manager->isScanning(type));

        // One more AppImage; only the applications category is asked again.
        QVERIFY(writeFile(m_paths->buildUserApplicationsDirectory() + "/Other.AppImage", 100000));
        manager->startSearchForType(ScanApplications);
        QVERIFY(manager->isScanning(ScanApplications));
        QVERIFY(!manager->isScanning(ScanJunk));
        QTRY_VERIFY_WITH_TIMEOUT(!manager->isScanning(ScanApplications), 10000);
        QCOMPARE(manager->getTotalCalculatedSize(),
                 total + allocated(m_paths->buildUserApplicationsDirectory() + "/Other.AppImage"));

        // A day after the latest full start everything is dropped and started again.
        m_clock.advance(qint64(86400) * 1000 - 1);
        QVERIFY(!manager->isScanning(ScanJunk));
        m_clock.advance(1);
        for (quint32 type = 0; type < 4; ++type)
            QVERIFY(manager->isScanning(type));
        QCOMPARE(manager->getTotalCalculatedSize(), 0ull);
        finish(*manager);
    }

    // The testing override takes a number only.
    void rescanOverride()
    {
        QCOMPARE(makeManager()->rescanInterval(), 86400.0f);
        m_defaults->setObject(QStringLiteral("60"), "ATEST:RESCAN_DISK_JUNK_TIME");
        QCOMPARE(makeManager()->rescanInterval(), 86400.0f);
        m_defaults->setObject(60, "ATEST:RESCAN_DISK_JUNK_TIME");
        auto manager = makeManager();
        QCOMPARE(manager->rescanInterval(), 60.0f);
        manager->startSearchForced(false);
        finish(*manager);
        m_clock.advance(60 * 1000);
        QVERIFY(manager->isScanning(ScanDuplicates));
        finish(*manager);
    }

    // Missing values read as 0; a type past the four does nothing.
    void infoObjects()
    {
        auto manager = makeManager();
        QSignalSpy duplicates(manager.get(), &SearcherManager::onSpotlightManagerFoundDuplicatesInfo);
        QSignalSpy junk(manager.get(), &SearcherManager::onSpotlightManagerFoundJunkFilesInfo);
        manager->notifyDelegatAboutInfo({{"Size", 10ull}}, ScanDuplicates);
        manager->notifyDelegatAboutInfo({{"Size", 10ull}}, 4);
        QCOMPARE(duplicates.count(), 1);
        const auto info = duplicates.first().first().value<DuplicateFilesViewInfo>();
        QCOMPARE(info.size, 10ull);
        QCOMPARE(info.count, 0ull);
        QVERIFY(!info.verified);
        manager->notifyDelegatAboutInfo({{"CachesSize", 1ull}, {"TrashSize", 2ull}}, ScanJunk);
        QCOMPARE(junk.first().first().value<JunkFilesViewInfo>().getTotalSize(), 3ull);
    }
};

QTEST_GUILESS_MAIN(TestSearcherManager)
#include "TestSearcherManager.moc"
