#include "diskusage/SizeCalculation.h"
#include "diskusage/SizeCalculationTask.h"
#include "support/DiskUsageFixture.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <sys/mount.h>
#include <unistd.h>

using namespace DiskUsageFixture;

class TestSizeCalculation : public QObject
{
    Q_OBJECT

private:
    QString m_root;
    std::unique_ptr<QTemporaryDir> m_dir;
    QStringList m_mounts;

    QString path(const QString& relative) const { return m_root + QLatin1Char('/') + relative; }

    bool mountTmpfs(const QString& where)
    {
        QDir().mkpath(where);
        if (::mount("tmpfs", QFile::encodeName(where).constData(), "tmpfs", 0, "size=16m") != 0)
            return false;
        m_mounts.prepend(where);
        return true;
    }

    bool bindMount(const QString& from, const QString& where)
    {
        QDir().mkpath(where);
        if (::mount(QFile::encodeName(from).constData(), QFile::encodeName(where).constData(), nullptr, MS_BIND, nullptr)
            != 0)
            return false;
        m_mounts.prepend(where);
        return true;
    }

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_root = m_dir->path();
    }

    void cleanup()
    {
        for (const QString& where : std::as_const(m_mounts))
            ::umount2(QFile::encodeName(where).constData(), MNT_DETACH);
        m_mounts.clear();
        m_dir.reset();
    }

    // Files at several depths, empty folders, hidden entries, "packages" and odd names: the sum is
    // exactly what find adds up, on one thread or many.
    void sumEqualsFindOnAMixedTree()
    {
        int n = 0;
        for (const char* folder : {"a", "a/b/c/d", ".hidden/deep", "Pkg.app/Contents", "wide", "name with spaces",
                                   "empty/also-empty"}) {
            QDir().mkpath(path(QString::fromUtf8(folder)));
            for (int i = 0; i < 7; ++i)
                QVERIFY(writeFile(path(QStringLiteral("%1/f%2.dat").arg(QString::fromUtf8(folder)).arg(i)),
                                  qint64(++n) * 3001));
        }
        for (int i = 0; i < 300; ++i)
            QVERIFY(writeFile(path(QStringLiteral("wide/sub%1/file").arg(i)), i * 97));
        // A folder whose listing takes several reads: the walk must not stop after the first.
        QDir().mkpath(path(QStringLiteral("crowd")));
        for (int i = 0; i < 2500; ++i)
            QVERIFY(writeFile(path(QStringLiteral("crowd/a-name-long-enough-to-fill-reads-%1").arg(i)), 1));
        QVERIFY(writeFile(path(QStringLiteral(".dotfile")), 5000));
        QVERIFY(writeFile(path(QString::fromUtf8("café.txt")), 9000));
        QVERIFY(::mkfifo(QFile::encodeName(path(QStringLiteral("a/fifo"))).constData(), 0600) == 0);

        const quint64 expected = findAllocatedSum(m_root);
        QVERIFY(expected > 0);
        for (int threads : {1, 2, 4, 8}) {
            SizeCalculationTask::Options options;
            options.threads = threads;
            SizeCalculationTask task(m_root, options);
            QCOMPARE(quint64(task.calculate()), expected);
            QCOMPARE(quint64(task.unreadableCount()), quint64(0));
            QCOMPARE(quint64(task.entryCount()), quint64(7 * 7 + 300 + 2500 + 2 + 1));
        }
        QCOMPARE(quint64(SizeCalculation::sharedInstance().fastSizeOfFolderAtPath(m_root + QLatin1Char('/'))), expected);
    }

    // A link to a large folder counts the link only; two hard links count the data twice.
    void symlinksAndHardLinks()
    {
        QTemporaryDir elsewhere;
        QVERIFY(writeFile(elsewhere.filePath(QStringLiteral("big/blob")), 4 << 20));
        QVERIFY(QFile::link(elsewhere.filePath(QStringLiteral("big")), path(QStringLiteral("to-big"))));
        QVERIFY(QFile::link(QStringLiteral("nowhere"), path(QStringLiteral("dangling"))));
        QVERIFY(writeFile(path(QStringLiteral("one")), 40000));
        QVERIFY(QDir().mkpath(path(QStringLiteral("sub"))));
        QVERIFY(::link(QFile::encodeName(path(QStringLiteral("one"))).constData(),
                       QFile::encodeName(path(QStringLiteral("sub/two"))).constData()) == 0);

        const quint64 file = allocated(path(QStringLiteral("one")));
        QVERIFY(file >= 40000);
        const quint64 links = allocated(path(QStringLiteral("to-big"))) + allocated(path(QStringLiteral("dangling")));
        QCOMPARE(quint64(SizeCalculation::sharedInstance().fastSizeOfFolderAtPath(m_root)), 2 * file + links);
        QCOMPARE(quint64(SizeCalculation::sharedInstance().fastSizeOfFolderAtPath(m_root)), findAllocatedSum(m_root));
    }

    // Only the ".DS_Store" directly inside the folder is taken off, and only with the flag.
    void rootDSStoreRule()
    {
        QVERIFY(writeFile(path(QStringLiteral(".DS_Store")), 10000));
        const quint64 own = allocated(path(QStringLiteral(".DS_Store")));
        SizeCalculation& sizes = SizeCalculation::sharedInstance();
        QCOMPARE(quint64(sizes.sizeIgnoreRootDSStoreForFolderAtPath(m_root)), quint64(0));
        QCOMPARE(quint64(sizes.fastSizeOfFolderAtPath(m_root)), own);

        QVERIFY(writeFile(path(QStringLiteral("inner/.DS_Store")), 20000));
        const quint64 inner = allocated(path(QStringLiteral("inner/.DS_Store")));
        QCOMPARE(quint64(sizes.sizeIgnoreRootDSStoreForFolderAtPath(m_root)), inner);
        QCOMPARE(quint64(sizes.fastFolderSizeOfItemWithPath(m_root, false)), own + inner);
    }

    // A file, a missing path or a used task give 0; cancelling before the start reads nothing.
    void rootsThatAreNotFolders()
    {
        QVERIFY(writeFile(path(QStringLiteral("plain")), 50000));
        QCOMPARE(quint64(SizeCalculation::sharedInstance().fastSizeOfFolderAtPath(path(QStringLiteral("plain")))), quint64(0));
        QCOMPARE(quint64(SizeCalculation::sharedInstance().fastSizeOfFolderAtPath(path(QStringLiteral("missing")))), quint64(0));
        QCOMPARE(quint64(SizeCalculation::sharedInstance().sizeIgnoreRootDSStoreForFolderAtPath(
                     path(QStringLiteral("missing")))),
                 quint64(0));

        SizeCalculationTask task(m_root);
        QVERIFY(task.calculate() > 0);
        QCOMPARE(quint64(task.calculate()), quint64(0));

        for (int i = 0; i < 20; ++i)
            QVERIFY(writeFile(path(QStringLiteral("d%1/f").arg(i)), 9000));
        std::atomic<bool> cancel{true};
        SizeCalculationTask::Options options;
        options.cancel = &cancel;
        SizeCalculationTask cancelled(m_root, options);
        QVERIFY(cancelled.calculate() < findAllocatedSum(m_root));
        QVERIFY(cancelled.wasCancelled());
    }

    // A tree deeper than any thread's stack would allow a recursive walk.
    void deepTree()
    {
        QString relative;
        for (int i = 0; i < 1500; ++i)
            relative += QStringLiteral("/d");
        QVERIFY(QDir().mkpath(m_root + relative));
        QVERIFY(writeFile(m_root + relative + QStringLiteral("/leaf"), 7000));
        QCOMPARE(quint64(SizeCalculation::sharedInstance().fastSizeOfFolderAtPath(m_root)),
                 allocated(m_root + relative + QStringLiteral("/leaf")));
    }

    // Another file system mounted inside, and a bind mount of the tree into itself: neither is entered.
    void mountPointsAreNeitherEnteredNorCounted()
    {
        QVERIFY(writeFile(path(QStringLiteral("data/file")), 30000));
        const quint64 before = SizeCalculation::sharedInstance().fastSizeOfFolderAtPath(m_root);
        if (!mountTmpfs(path(QStringLiteral("data/volume"))))
            QSKIP("no permission to mount a tmpfs here");
        QVERIFY(writeFile(path(QStringLiteral("data/volume/inside")), 1 << 20));
        QVERIFY(bindMount(m_root, path(QStringLiteral("data/loop"))));
        QVERIFY(bindMount(path(QStringLiteral("data")), path(QStringLiteral("data2"))));
        // data/loop shows the whole tree again and data2 the same file system: a walk that entered them
        // would count the file at least twice more (or never end).
        QCOMPARE(quint64(SizeCalculation::sharedInstance().fastSizeOfFolderAtPath(m_root)), before);
        // The mounted volume itself, given as the root, is walked.
        QVERIFY(SizeCalculation::sharedInstance().fastSizeOfFolderAtPath(path(QStringLiteral("data/volume")))
                >= quint64(1 << 20));
    }
};

QTEST_GUILESS_MAIN(TestSizeCalculation)
#include "TestSizeCalculation.moc"
