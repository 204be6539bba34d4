#include "diskusage/CacheAndDownloadsSearcher.h"
#include "diskusage/PathsGenerator.h"
#include "support/DiskUsageFixture.h"
#include "support/ManualClock.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

using namespace DiskUsageFixture;

class TestCacheAndDownloadsSearcher : public QObject
{
    Q_OBJECT

private slots:
    // Known caches, one download and a trashed file; no Trash folder at all in the second round.
    void reportsTheThreeSumsOnceAfterTheLastWalk()
    {
        QTemporaryDir home;
        const PathsGenerator paths(home.path(), QProcessEnvironment());
        QVERIFY(writeFile(paths.buildCacheDirectory() + QStringLiteral("/app/a"), 120000));
        QVERIFY(writeFile(paths.buildCacheDirectory() + QStringLiteral("/app/b/c"), 5000));
        QVERIFY(writeFile(paths.buildDownloadsDirectory() + QStringLiteral("/song.mp3"), 300000));
        QVERIFY(writeFile(paths.buildDownloadsDirectory() + QStringLiteral("/.DS_Store"), 9000));
        QVERIFY(writeFile(paths.buildTrashDirectory() + QStringLiteral("/files/old.txt"), 70000));
        QVERIFY(writeFile(paths.buildTrashDirectory() + QStringLiteral("/info/old.txt.trashinfo"), 100));

        ManualClock clock;
        CacheAndDownloadsSearcher searcher(paths, clock);
        QSignalSpy done(&searcher, &CacheAndDownloadsSearcher::onCacheAndDownloadsSearcherDoneWithDict);
        searcher.findCacheAndDownloads();

        // Before the third (Trash) walk is due, nothing may be reported, however long we wait.
        clock.advance(599);
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        QCOMPARE(done.count(), 0);

        clock.advance(1);
        QVERIFY(done.wait(5000));
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        QCOMPARE(done.count(), 1);
        const QVariantMap sizes = done.first().first().toMap();
        QCOMPARE(sizes.value(QStringLiteral("CachesSize")).toULongLong(),
                 findAllocatedSum(paths.buildCacheDirectory()));
        QCOMPARE(sizes.value(QStringLiteral("DownloadsSize")).toULongLong(),
                 allocated(paths.buildDownloadsDirectory() + QStringLiteral("/song.mp3")));
        QCOMPARE(sizes.value(QStringLiteral("TrashSize")).toULongLong(), findAllocatedSum(paths.buildTrashDirectory()));
        QCOMPARE(sizes.value(QStringLiteral("Count")).toULongLong(), 6ull); // the root .DS_Store is a file too

        QVERIFY(QDir(paths.buildTrashDirectory()).removeRecursively());
        CacheAndDownloadsSearcher again(paths, clock);
        QSignalSpy doneAgain(&again, &CacheAndDownloadsSearcher::onCacheAndDownloadsSearcherDoneWithDict);
        again.findCacheAndDownloads();
        clock.advance(600);
        QVERIFY(doneAgain.wait(5000));
        QCOMPARE(doneAgain.first().first().toMap().value(QStringLiteral("TrashSize")).toULongLong(), quint64(0));
        QCOMPARE(doneAgain.first().first().toMap().value(QStringLiteral("Count")).toULongLong(), 4ull);
    }

    // A searcher destroyed while its walks run never reports and does not crash.
    void destroyedSearcherStaysSilent()
    {
        QTemporaryDir home;
        const PathsGenerator paths(home.path(), QProcessEnvironment());
        for (int i = 0; i < 200; ++i)
            QVERIFY(writeFile(paths.buildCacheDirectory() + QStringLiteral("/d%1/f").arg(i), 100));
        ManualClock clock;
        bool reported = false;
        {
            CacheAndDownloadsSearcher searcher(paths, clock);
            connect(&searcher, &CacheAndDownloadsSearcher::onCacheAndDownloadsSearcherDoneWithDict, this,
                    [&] { reported = true; });
            searcher.findCacheAndDownloads();
            clock.advance(600);
        }
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        QVERIFY(!reported);
    }

    // The folders: injected home, XDG variables, the download folder from user-dirs.dirs.
    void pathsFollowTheXdgFolders()
    {
        QTemporaryDir home;
        const PathsGenerator plain(home.path() + QStringLiteral("//"), QProcessEnvironment());
        QCOMPARE(plain.getHomeDirectory(), home.path());
        QCOMPARE(plain.getCurrentDiskDirectory(), QStringLiteral("/"));
        QCOMPARE(plain.buildCacheDirectory(), home.path() + QStringLiteral("/.cache"));
        QCOMPARE(plain.buildDownloadsDirectory(), home.path() + QStringLiteral("/Downloads"));
        QCOMPARE(plain.buildTrashDirectory(), home.path() + QStringLiteral("/.local/share/Trash"));
        QCOMPARE(plain.buildUserApplicationsDirectory(), home.path() + QStringLiteral("/Applications"));

        QProcessEnvironment env;
        env.insert(QStringLiteral("XDG_CACHE_HOME"), QStringLiteral("/var/tmp/c/"));
        env.insert(QStringLiteral("XDG_DATA_HOME"), QStringLiteral("relative/ignored"));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path() + QStringLiteral("/conf"));
        const QString dirs = home.path() + QStringLiteral("/conf/user-dirs.dirs");
        QVERIFY(writeFile(dirs, "# written by xdg-user-dirs-update\nXDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
                                "XDG_DOWNLOAD_DIR=\"$HOME/Téléchargements\"\n"));
        const PathsGenerator xdg(home.path(), env);
        QCOMPARE(xdg.buildCacheDirectory(), QStringLiteral("/var/tmp/c"));
        QCOMPARE(xdg.buildTrashDirectory(), home.path() + QStringLiteral("/.local/share/Trash"));
        QCOMPARE(xdg.buildDownloadsDirectory(), home.path() + QString::fromUtf8("/Téléchargements"));

        // A download folder that is the home itself would count the whole home as junk.
        QVERIFY(writeFile(dirs, "XDG_DOWNLOAD_DIR=\"$HOME/\"\n"));
        QCOMPARE(PathsGenerator(home.path(), env).buildDownloadsDirectory(),
                 home.path() + QStringLiteral("/Downloads"));
    }
};

QTEST_GUILESS_MAIN(TestCacheAndDownloadsSearcher)
#include "TestCacheAndDownloadsSearcher.moc"
