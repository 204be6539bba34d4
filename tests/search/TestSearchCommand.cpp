// `trovix search` run as a real process: this test starts itself with "--run-search ARGS" (which runs
// the command under a QCoreApplication, as the program does) and checks output and exit status.
#include "cli/Commands.h"
#include "support/SearchTreeFixture.h"
#include "util/VolumeName.h"

#include <QProcess>
#include <QtTest>

#include <csignal>

namespace {

struct Run
{
    int status = -1;
    QByteArray out;
    QByteArray err;
};

QByteArrayList sortedLines(const QByteArray& out, char separator = '\n')
{
    QByteArrayList lines = out.split(separator);
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    std::sort(lines.begin(), lines.end());
    return lines;
}

QByteArrayList under(const QByteArray& root, QByteArrayList relative)
{
    for (QByteArray& line : relative)
        line = root + '/' + line;
    std::sort(relative.begin(), relative.end());
    return relative;
}

} // namespace

class TestSearchCommand : public QObject
{
    Q_OBJECT
private:
    Run run(const QStringList& args, const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment(),
            const QString& program = QCoreApplication::applicationFilePath(), QStringList prefix = {})
    {
        QProcess process;
        process.setProcessEnvironment(env);
        process.start(program, prefix + QStringList{QStringLiteral("--run-search")} + args);
        Run result;
        if (!process.waitForFinished(60000)) {
            process.kill();
            process.waitForFinished();
            return result;
        }
        result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        result.out = process.readAllStandardOutput();
        result.err = process.readAllStandardError();
        return result;
    }
    static QStringList args(std::initializer_list<QByteArray> items)
    {
        QStringList out;
        for (const QByteArray& item : items)
            out.append(QString::fromUtf8(item));
        return out;
    }

private Q_SLOTS:
    void printsWhatItFinds_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QByteArrayList>("expected");
        const QByteArrayList all = {"docs/Report-MATCH.txt",
                                    "docs/.match-dotfile",
                                    "docs/listed-match",
                                    ".git/objects/visible-match",
                                    "Tool.app/Contents/.match-inside",
                                    "Tool.app/Contents/Info-match.plist",
                                    "match-folder",
                                    "match-folder/sub/inner-match.c",
                                    "Été-match.txt",
                                    QByteArray("bad-\xff\xfe-match.bin"),
                                    "loop/self-match",
                                    "link-to-docs-match"};
        QTest::newRow("default: every class") << QStringList() << all;
        QTest::newRow("all classes named") << args({"--filter", "regular,hidden,package"}) << all;
        QTest::newRow("hidden") << args({"--filter=hidden"})
                                << QByteArrayList{"docs/.match-dotfile", "docs/listed-match",
                                                  ".git/objects/visible-match"};
        QTest::newRow("package") << args({"--filter", "package"})
                                 << QByteArrayList{"Tool.app/Contents/.match-inside",
                                                   "Tool.app/Contents/Info-match.plist"};
        QTest::newRow("regular and package") << args({"--filter", "regular,package"})
                                             << QByteArrayList{"docs/Report-MATCH.txt",
                                                               "Tool.app/Contents/.match-inside",
                                                               "Tool.app/Contents/Info-match.plist",
                                                               "match-folder",
                                                               "match-folder/sub/inner-match.c",
                                                               "Été-match.txt",
                                                               QByteArray("bad-\xff\xfe-match.bin"),
                                                               "loop/self-match",
                                                               "link-to-docs-match"};
    }
    void printsWhatItFinds()
    {
        QFETCH(QStringList, options);
        QFETCH(QByteArrayList, expected);
        SearchTreeFixture tree;
        tree.buildStandard();
        const Run result = run(QStringList{QStringLiteral("MATCH"), QString::fromUtf8(tree.root())} + options);
        QCOMPARE(result.status, 0);
        QCOMPARE(sortedLines(result.out), under(tree.root(), expected));
        QCOMPARE(result.err, QByteArray());

        const Run nul =
            run(QStringList{QStringLiteral("-0"), QStringLiteral("match"), QString::fromUtf8(tree.root())} + options);
        QCOMPARE(sortedLines(nul.out, '\0'), under(tree.root(), expected));
    }

    void countAndLongColumns()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        const Run count = run({QStringLiteral("match"), QString::fromUtf8(tree.root()), QStringLiteral("--count")});
        QCOMPARE(count.status, 0);
        QCOMPARE(count.out, QByteArray("Found 12 / 21\n"));
        const Run hiddenCount = run({QStringLiteral("match"), QString::fromUtf8(tree.root()), QStringLiteral("--count"),
                                     QStringLiteral("--filter"), QStringLiteral("hidden")});
        QCOMPARE(hiddenCount.out, QByteArray("Found 3 / 21\n"));

        tree.file("Sized.app/Contents/blob-long", QByteArray(2048, 'x'));
        const Run longRun = run(
            {QStringLiteral("--long"), QStringLiteral("--"), QStringLiteral("-long"), QString::fromUtf8(tree.root())});
        QCOMPARE(longRun.status, 0);
        QHash<QByteArray, QByteArrayList> byName;
        for (const QByteArray& line : sortedLines(longRun.out)) {
            const QByteArrayList columns = line.split('\t');
            QCOMPARE(columns.size(), 5);
            byName.insert(columns.last().mid(columns.last().lastIndexOf('/') + 1), columns);
        }
        QCOMPARE(byName.size(), 1);
        const QByteArrayList blob = byName.value("blob-long");
        QCOMPARE(blob.at(0), QByteArray("text/plain"));
        QCOMPARE(blob.at(1), VolumeName::convertToStringFromFileSize(2048).toUtf8());
        QVERIFY(!blob.at(2).isEmpty() && blob.at(2) != "-");
        QCOMPARE(blob.at(3), QByteArray("package"));

        // A package's size column is the sum of its contents, once counted.
        const Run package =
            run({QStringLiteral("--long"), QStringLiteral("sized.app"), QString::fromUtf8(tree.root())});
        const QByteArrayList columns = package.out.trimmed().split('\t');
        QCOMPARE(columns.size(), 5);
        QCOMPARE(columns.at(0), QByteArray("inode/directory"));
        QVERIFY2(columns.at(1).endsWith("KB"), columns.at(1).constData());
        QCOMPARE(columns.at(3), QByteArray("regular"));
    }

    void exitStatusAndErrors_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("nothing found") << args({"no-such-name-anywhere", "TREE"}) << 1 << QByteArray();
        QTest::newRow("empty needle") << args({"", "TREE"}) << 2 << QByteArray("empty");
        QTest::newRow("no needle") << QStringList() << 2 << QByteArray("no search text");
        QTest::newRow("missing folder") << args({"x", "TREE/missing"}) << 2 << QByteArray("No such file or directory");
        QTest::newRow("file as folder") << args({"x", "TREE/docs/notes.md"}) << 2 << QByteArray("not a folder");
        QTest::newRow("needle too long") << QStringList{QString(1024, QLatin1Char('n')), QStringLiteral("TREE")} << 2
                                         << QByteArray("at most 1023");
        QTest::newRow("two-byte letters count as bytes")
            << QStringList{QString(512, QChar(0xE9)), QStringLiteral("TREE")} << 2 << QByteArray("1024 bytes");
        QTest::newRow("unknown filter") << args({"x", "TREE", "--filter", "odd"}) << 2 << QByteArray("unknown filter");
        QTest::newRow("dash needle after --") << args({"--", "-dotfile", "TREE"}) << 0 << QByteArray();
    }
    void exitStatusAndErrors()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, status);
        QFETCH(QByteArray, message);
        SearchTreeFixture tree;
        tree.buildStandard();
        arguments.replaceInStrings(QStringLiteral("TREE"), QString::fromUtf8(tree.root()));
        const Run result = run(arguments);
        QCOMPARE(result.status, status);
        if (status == 2)
            QCOMPARE(result.out, QByteArray());
        QVERIFY2(result.err.contains(message), result.err.constData());
    }

    void folderDefaultsToStoredLocationThenHome()
    {
        SearchTreeFixture tree;
        tree.file("stored/in-stored-x");
        tree.file("home/in-home-x");
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), QString::fromUtf8(tree.path("home")));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), QString::fromUtf8(tree.path("config")));
        tree.folder("config/trovix");
        const Run home = run({QStringLiteral("in-")}, env);
        QCOMPARE(sortedLines(home.out), QByteArrayList{tree.path("home/in-home-x")});

        tree.file("config/trovix/com.quorbel.trovix.json", "{\"KEY_SearchLocation\": \"" + tree.path("stored") + "\"}");
        const Run stored = run({QStringLiteral("in-")}, env);
        QCOMPARE(sortedLines(stored.out), QByteArrayList{tree.path("stored/in-stored-x")});
    }

    void unreadableFolderIsReportedOnStandardError()
    {
        SearchTreeFixture tree;
        tree.file("a/before-x");
        tree.unreadableFolder("a/locked");
        tree.file("a/zz/after-x");
        // Root reads everything; run the command as an unprivileged user where possible.
        QStringList prefix;
        QString program = QCoreApplication::applicationFilePath();
        if (::geteuid() == 0) {
            prefix = {QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                      QStringLiteral("--clear-groups"), program};
            program = QStringLiteral("setpriv");
        }
        const Run result = run({QStringLiteral("--"), QStringLiteral("-x"), QString::fromUtf8(tree.root())},
                               QProcessEnvironment::systemEnvironment(), program, prefix);
        if (result.status == -1 && ::geteuid() == 0)
            QSKIP("cannot run as an unprivileged user here");
        QCOMPARE(result.status, 0);
        QCOMPARE(sortedLines(result.out), under(tree.root(), {"a/before-x", "a/zz/after-x"}));
        QCOMPARE(result.err,
                 "Could not open directory \"" + tree.path("a/locked") + "\". Error was : Permission denied\n");
    }

    void interruptCancelsTheWalk()
    {
        QProcess process;
        process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--run-search"), QStringLiteral("e"),
                                                                QStringLiteral("/"), QStringLiteral("--count")});
        QVERIFY(process.waitForStarted());
        QTest::qWait(300);
        QElapsedTimer timer;
        timer.start();
        ::kill(static_cast<pid_t>(process.processId()), SIGINT);
        QVERIFY(process.waitForFinished(10000));
        QVERIFY(timer.elapsed() < 6000);
        QCOMPARE(process.exitCode(), 130);
        QVERIFY(process.readAllStandardOutput().startsWith("Found "));
    }
};

int main(int argc, char** argv)
{
    if (argc >= 2 && qstrcmp(argv[1], "--run-search") == 0) {
        QCoreApplication app(argc, argv);
        return cli::runSearch(QCoreApplication::arguments().mid(2));
    }
    QCoreApplication app(argc, argv);
    TestSearchCommand test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "TestSearchCommand.moc"
