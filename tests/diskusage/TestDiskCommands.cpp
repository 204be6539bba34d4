// `trovix size` and `trovix disk` run as real processes: this test starts itself with "--run-size ARGS"
// or "--run-disk ARGS" (the commands under a QCoreApplication, as the program runs them).
#include "cli/Commands.h"
#include "support/DiskUsageFixture.h"

#include "support/ProcessRun.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>

using namespace DiskUsageFixture;

namespace {

Run run(const QStringList& args, const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment(),
        const QStringList& prefix = {})
{
    if (prefix.isEmpty())
        return runProcess(QCoreApplication::applicationFilePath(), args, env, 240000);
    return runProcess(prefix.first(), prefix.mid(1) + QStringList{QCoreApplication::applicationFilePath()} + args,
                      env, 240000);
}

bool ageDays(const QString& path, int days)
{
    const qint64 when = QDateTime::currentSecsSinceEpoch() - qint64(days) * 86400;
    const struct timespec times[2] = {{when, 0}, {when, 0}};
    return ::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0) == 0;
}

} // namespace

class TestDiskCommands : public QObject
{
    Q_OBJECT

private slots:
    // Folders walked, files counted by their own blocks, a missing path named and the rest printed.
    void sizePrintsEachPath()
    {
        QTemporaryDir dir;
        for (int i = 0; i < 40; ++i)
            QVERIFY(writeFile(dir.filePath(QStringLiteral("tree/d%1/sub/f%1").arg(i % 7)), 1000 * i + 1));
        QVERIFY(writeFile(dir.filePath("one file.bin"), 70000));
        const Run r = run({"--run-size", dir.filePath("tree"), dir.filePath("missing"), dir.filePath("one file.bin")});
        QCOMPARE(r.status, 1);
        QCOMPARE(r.out, QByteArray::number(findAllocatedSum(dir.filePath("tree"))) + '\t'
                            + QFile::encodeName(dir.filePath("tree")) + '\n'
                            + QByteArray::number(allocated(dir.filePath("one file.bin"))) + '\t'
                            + QFile::encodeName(dir.filePath("one file.bin")) + '\n');
        QVERIFY(r.err.contains("missing: No such file or directory"));
        QCOMPARE(run({"--run-size"}).status, 2);
    }

    // As an ordinary user, a folder that cannot be read is named, the sum of the rest is printed, and
    // the status says the sum is short.
    void sizeNamesUnreadableFolders()
    {
        if (::geteuid() != 0 || QStandardPaths::findExecutable("setpriv").isEmpty())
            QSKIP("needs root to start the command as another user");
        QTemporaryDir dir(QStringLiteral("/tmp/trovix-size-XXXXXX"));
        QVERIFY(::chmod(QFile::encodeName(dir.path()).constData(), 0755) == 0);
        QVERIFY(writeFile(dir.filePath("open/f"), 9000));
        QVERIFY(writeFile(dir.filePath("closed/secret"), 50000));
        QVERIFY(::chmod(QFile::encodeName(dir.filePath("closed")).constData(), 0700) == 0);
        const QStringList nobody = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
        const Run probe = run({"--run-size", "/"}, QProcessEnvironment::systemEnvironment(), nobody + QStringList{"--"});
        if (probe.status < 0 || (probe.err.contains("Permission denied") && probe.out.isEmpty()))
            QSKIP("the test program is not reachable for an ordinary user");
        const Run r = run({"--run-size", dir.path()}, QProcessEnvironment::systemEnvironment(), nobody + QStringList{"--"});
        QCOMPARE(r.status, 1);
        QCOMPARE(r.out.split('\t').first().toULongLong(), allocated(dir.filePath("open/f")));
        QVERIFY2(r.err.contains("cannot read " + QFile::encodeName(dir.filePath("closed")) + ": Permission denied"),
                 r.err.constData());
    }

    // A throw-away home with known caches, a download, a trashed file, a duplicated song and a 25 MB file
    // untouched for 200 days: the JSON has each of them, and the "/" volume.
    void diskJsonInAThrowAwayHome()
    {
        QTemporaryDir top;
        const QString home = top.filePath("home");
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", home);
        env.insert("XDG_CACHE_HOME", home + "/.cache");
        env.insert("XDG_DATA_HOME", home + "/.local/share");
        env.insert("XDG_CONFIG_HOME", home + "/.config");
        QVERIFY(writeFile(home + "/.cache/browser/cache1", 123456));
        QVERIFY(writeFile(home + "/.cache/thumbnails/t.png", 4567));
        QVERIFY(writeFile(home + "/Downloads/setup.iso", 345678));
        QVERIFY(writeFile(home + "/.local/share/Trash/files/old.txt", 23456));
        QVERIFY(writeFile(home + "/.local/share/Trash/info/old.txt.trashinfo", 80));
        QVERIFY(writeFile(home + "/Music/song.mp3", 3000000, 'm'));
        QVERIFY(writeFile(home + "/Documents/song.mp3", 3000000, 'm'));
        QVERIFY(writeFile(home + "/Videos/holiday.mkv", 25000000));
        QVERIFY(ageDays(home + "/Videos/holiday.mkv", 200));

        const Run r = run({"--run-disk", "--json", "--verify"}, env);
        QCOMPARE(r.status, 0);
        QVERIFY2(r.err.isEmpty(), r.err.constData()); // no progress line when not on a terminal
        const QJsonObject root = QJsonDocument::fromJson(r.out).object();
        const QJsonObject categories = root.value("categories").toObject();
        const quint64 junk = findAllocatedSum(home + "/.cache") + findAllocatedSum(home + "/Downloads")
                             + findAllocatedSum(home + "/.local/share/Trash");
        QCOMPARE(quint64(categories.value("junk").toObject().value("bytes").toInteger()), junk);
        QCOMPARE(categories.value("junk").toObject().value("count").toInteger(), 5);
        const QJsonObject duplicates = categories.value("duplicates").toObject();
        QVERIFY(duplicates.value("count").toInteger() >= 2);
        QVERIFY(duplicates.value("bytes").toInteger() >= 6000000);
        QCOMPARE(duplicates.value("verified").toObject().value("count").toInteger(),
                 duplicates.value("count").toInteger());
        const QJsonObject largeOld = categories.value("largeOld").toObject();
        QVERIFY(largeOld.value("count").toInteger() >= 1);
        QVERIFY(largeOld.value("bytes").toInteger() >= 25000000);
        QVERIFY(categories.contains("applications"));
        const QJsonArray volumes = root.value("volumes").toArray();
        QVERIFY(!volumes.isEmpty());
        const QJsonObject startup = volumes.first().toObject();
        QCOMPARE(startup.value("mount").toString(), QStringLiteral("/"));
        QVERIFY(startup.value("total").toInteger() > startup.value("free").toInteger());
        QVERIFY(startup.value("free").toInteger() > 0);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc >= 2 && qstrcmp(argv[1], "--run-size") == 0)
        return cli::runSize(QCoreApplication::arguments().mid(2));
    if (argc >= 2 && qstrcmp(argv[1], "--run-disk") == 0)
        return cli::runDisk(QCoreApplication::arguments().mid(2));
    TestDiskCommands test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "TestDiskCommands.moc"
