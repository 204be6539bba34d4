// `trovix search` run as a real process: this test starts itself with "--run-search ARGS" (which runs
// the command under a QCoreApplication, as the program does) and checks output and exit status.
#include "cli/Commands.h"
#include "support/SearchTreeFixture.h"
#include "util/VolumeName.h"

#include "support/ProcessRun.h"

#include <QProcess>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>

#include <csignal>

namespace {

QByteArrayList sortedLines(const QByteArray& out, char separator = '\n')
{
    QByteArrayList lines = out.split(separator);
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    std::sort(lines.begin(), lines.end());
    return lines;
}

} // namespace

class TestSearchCommand : public QObject
{
    Q_OBJECT
private:
    Run run(const QStringList& args, const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment(),
            const QString& program = QCoreApplication::applicationFilePath(), QStringList prefix = {})
    {
        return runProcess(program, prefix + QStringList{QStringLiteral("--run-search")} + args, env, 60000);
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
        const QByteArrayList all = SearchTreeFixture::standardMatches();
        const QByteArrayList hidden = {"docs/.match-dotfile", "docs/listed-match", ".git/objects/visible-match"};
        QByteArrayList notHidden = all;
        notHidden.removeIf([&](const QByteArray& entry) { return hidden.contains(entry); });
        QTest::newRow("default: every class") << QStringList() << all;
        QTest::newRow("hidden") << args({"--filter=hidden"}) << hidden;
        QTest::newRow("package") << args({"--filter", "package"})
                                 << QByteArrayList{"Tool.app/Contents/.match-inside",
                                                   "Tool.app/Contents/Info-match.plist"};
        QTest::newRow("regular and package") << args({"--filter", "regular,package"}) << notHidden;
    }
    void printsWhatItFinds()
    {
        QFETCH(QStringList, options);
        QFETCH(QByteArrayList, expected);
        SearchTreeFixture tree;
        tree.buildStandard();
        const Run result = run(QStringList{QStringLiteral("MATCH"), QString::fromUtf8(tree.root())} + options);
        QCOMPARE(result.status, 0);
        QCOMPARE(sortedLines(result.out), tree.absolute(expected));
        QCOMPARE(result.err, QByteArray());

        const Run nul =
            run(QStringList{QStringLiteral("-0"), QStringLiteral("match"), QString::fromUtf8(tree.root())} + options);
        QCOMPARE(sortedLines(nul.out, '\0'), tree.absolute(expected));
    }

    void longColumns()
    {
        SearchTreeFixture tree;
        tree.file("Sized.app/Contents/blob-long", QByteArray(2048, 'x'));
        // One line of five tab-separated columns: type, size, date, class, path.
        const QByteArrayList blob = run(args({"--long", "--", "-long", tree.root()})).out.split('\t');
        QCOMPARE(blob.size(), 5);
        // Without an extension the type is not guessed from the contents (which are never read).
        QCOMPARE(blob.at(0), QByteArray("application/octet-stream"));
        QCOMPARE(blob.at(1), VolumeName::convertToStringFromFileSize(2048).toUtf8());
        QVERIFY(!blob.at(2).isEmpty() && blob.at(2) != "-");
        QCOMPARE(blob.at(3), QByteArray("package"));
        QCOMPARE(blob.at(4), tree.path("Sized.app/Contents/blob-long") + '\n');

        // A package's size column is the sum of its contents, once counted.
        const QByteArrayList package = run(args({"--long", "sized.app", tree.root()})).out.split('\t');
        QCOMPARE(package.size(), 5);
        QCOMPARE(package.at(0), QByteArray("inode/directory"));
        QVERIFY2(package.at(1).endsWith("KB"), package.at(1).constData());
        QCOMPARE(package.at(3), QByteArray("regular"));

        // Lines go out as matches come, but the package's waits for its sum: every match still has
        // exactly one line, the package's with its sum.
        for (int i = 0; i < 300; ++i)
            tree.file("many/m" + QByteArray::number(i) + "-sized");
        QByteArrayList paths;
        for (const QByteArray& line : run(args({"--long", "sized", tree.root()})).out.split('\n')) {
            if (line.isEmpty())
                continue;
            const QByteArrayList columns = line.split('\t');
            QCOMPARE(columns.size(), 5);
            if (columns.at(4).endsWith(".app"))
                QCOMPARE(columns.at(1), package.at(1));
            paths << columns.at(4) + '\n';
        }
        QCOMPARE(sortedLines(paths.join()), sortedLines(run(args({"sized", tree.root()})).out));
        QCOMPARE(paths.size(), 301);
    }

    // --sort prints everything at the end in the results window's order, with every other option.
    void sortedOutput()
    {
        SearchTreeFixture tree;
        tree.file("b/Zeta-hit", QByteArray(300, 'x'));
        tree.file("a/alpha-hit.txt", QByteArray(20, 'x'));
        tree.file(".h/\xff-hit", QByteArray(7000, 'x')); // hidden folder, a name that is not UTF-8
        tree.folder("c/hit-folder");
        tree.file("Tool.app/Contents/hit-inside", QByteArray(1, 'x'));
        const QByteArray zeta = tree.path("b/Zeta-hit");
        const QByteArray alpha = tree.path("a/alpha-hit.txt");
        const QByteArray bad = tree.path(".h/\xff-hit");
        // Qt's removal of the tree cannot name this file.
        const auto removeBad = qScopeGuard([&] { ::unlink(bad.constData()); });
        const QByteArray folder = tree.path("c/hit-folder");
        const QByteArray inside = tree.path("Tool.app/Contents/hit-inside");

        const auto lines = [&](const QStringList& arguments, char end = '\n') {
            const Run result = run(arguments + QStringList{QString::fromUtf8(tree.root())});
            if (result.status != 0)
                qWarning("exit status %d: %s", result.status, result.err.constData());
            QByteArrayList out = result.out.split(end);
            if (!out.isEmpty() && out.last().isEmpty())
                out.removeLast();
            return out;
        };
        // Size: folders (-1) last.
        QCOMPARE(lines(args({"hit", "--sort", "size"})), (QByteArrayList{inside, alpha, zeta, bad, folder}));
        QCOMPARE(lines(args({"-0", "--sort=size", "hit"}), '\0'), (QByteArrayList{inside, alpha, zeta, bad, folder}));
        // Name: capitals before small letters, U+FFFD (the byte 0xFF) after both.
        QCOMPARE(lines(args({"--sort", "name", "hit"})), (QByteArrayList{zeta, alpha, folder, inside, bad}));
        QCOMPARE(lines(args({"--sort", "folder", "hit"})), (QByteArrayList{bad, inside, alpha, zeta, folder}));
        // Kind: hidden, package contents, regular; ties in the order found, so only the classes are fixed.
        const QByteArrayList kinds = lines(args({"--sort", "kind", "--long", "hit"}));
        QCOMPARE(kinds.size(), 5);
        QVERIFY(kinds.at(0).contains("\thidden\t") && kinds.at(0).endsWith(bad));
        QVERIFY(kinds.at(1).contains("\tpackage\t") && kinds.at(1).endsWith(inside));
        for (int i = 2; i < 5; ++i)
            QVERIFY(kinds.at(i).contains("\tregular\t"));
        // With a filter, only that class, still sorted.
        QCOMPARE(lines(args({"--sort", "size", "--filter", "regular", "hit"})), (QByteArrayList{alpha, zeta, folder}));
        // Date: the oldest first.
        const timespec old[2] = {{0, UTIME_OMIT}, {1'000'000'000, 0}};
        QCOMPARE(::utimensat(AT_FDCWD, zeta.constData(), old, 0), 0);
        QCOMPARE(lines(args({"--sort", "date", "hit"})).first(), zeta);
    }

    void exitStatusAndOutput_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("out");
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("count") << args({"match", "TREE", "--count"}) << 0 << QByteArray("Found 12 / 21\n")
                               << QByteArray();
        QTest::newRow("count of a class") << args({"match", "TREE", "--count", "--filter", "hidden"}) << 0
                                          << QByteArray("Found 3 / 21\n") << QByteArray();
        QTest::newRow("dash needle after --")
            << args({"--", "-dotfile", "TREE"}) << 0 << QByteArray("TREE/docs/.match-dotfile\n") << QByteArray();
        QTest::newRow("nothing found") << args({"no-such-name-anywhere", "TREE"}) << 1 << QByteArray() << QByteArray();
        QTest::newRow("empty needle") << args({"", "TREE"}) << 2 << QByteArray() << QByteArray("empty");
        QTest::newRow("no needle") << QStringList() << 2 << QByteArray() << QByteArray("no search text");
        QTest::newRow("missing folder") << args({"x", "TREE/missing"}) << 2 << QByteArray()
                                        << QByteArray("No such file or directory");
        QTest::newRow("file as folder") << args({"x", "TREE/docs/notes.md"}) << 2 << QByteArray()
                                        << QByteArray("not a folder");
        QTest::newRow("needle too long") << QStringList{QString(1024, QLatin1Char('n')), QStringLiteral("TREE")} << 2
                                         << QByteArray() << QByteArray("at most 1023");
        QTest::newRow("two-byte letters count as bytes")
            << QStringList{QString(512, QChar(0xE9)), QStringLiteral("TREE")} << 2 << QByteArray()
            << QByteArray("1024 bytes");
        QTest::newRow("unknown filter") << args({"x", "TREE", "--filter", "odd"}) << 2 << QByteArray()
                                        << QByteArray("unknown filter");
        QTest::newRow("unknown sort") << args({"x", "TREE", "--sort", "kinds"}) << 2 << QByteArray()
                                      << QByteArray("unknown sort \"kinds\"");
        QTest::newRow("sort without a word")
            << args({"x", "TREE", "--sort"}) << 2 << QByteArray() << QByteArray("--sort needs a value");
        QTest::newRow("sorted count") << args({"match", "TREE", "--count", "--sort=size"}) << 0
                                      << QByteArray("Found 12 / 21\n") << QByteArray();
    }
    void exitStatusAndOutput()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, out);
        QFETCH(QByteArray, message);
        SearchTreeFixture tree;
        tree.buildStandard();
        arguments.replaceInStrings(QStringLiteral("TREE"), QString::fromUtf8(tree.root()));
        const Run result = run(arguments);
        QTEST(result.status, "status");
        QCOMPARE(result.out, out.replace("TREE", tree.root()));
        QVERIFY2(result.err.contains(message), result.err.constData());
    }

    // Needle and names fold the same way, ASCII letters only; the needle's and the folder's own bytes
    // are used, UTF-8 or not.
    void needleAndFolderAreTheArgumentsBytes()
    {
        SearchTreeFixture tree;
        tree.file("\xc3\x89LAN/\xc3\x89lan.txt");
        tree.file("\xc3\xa9lan-lower.txt");
        QCOMPARE(sortedLines(run(args({"\xc3\x89lan", tree.root()})).out),
                 tree.absolute({"\xc3\x89LAN", "\xc3\x89LAN/\xc3\x89lan.txt"}));

        tree.folder("dir-\xff");
        tree.file("dir-\xff/x-\xfe-y");
        tree.file("dir-\xff/x-\xfd-y");
        tree.file("dir-\xff/x-\xef\xbf\xbd-y"); // what a lossy decoding of the needle would find
        // Bytes that are not UTF-8 cannot pass through QProcess's arguments: the shell makes them.
        QProcess process;
        process.start(QStringLiteral("/bin/sh"),
                      {QStringLiteral("-c"),
                       QStringLiteral("exec \"$0\" --run-search \"$(printf 'x-\\376')\" \"$1/$(printf 'dir-\\377')\""),
                       QCoreApplication::applicationFilePath(), QString::fromUtf8(tree.root())});
        QVERIFY(process.waitForFinished(60000));
        QCOMPARE(process.exitCode(), 0);
        QCOMPARE(process.readAllStandardOutput(), tree.path("dir-\xff/x-\xfe-y") + '\n');
        QCOMPARE(::unlink(tree.path("dir-\xff/x-\xfe-y").constData()), 0);
        QCOMPARE(::unlink(tree.path("dir-\xff/x-\xfd-y").constData()), 0);
        QCOMPARE(::unlink(tree.path("dir-\xff/x-\xef\xbf\xbd-y").constData()), 0);
        QCOMPARE(::rmdir(tree.path("dir-\xff").constData()), 0);
    }

    // Output that cannot be written ends the command with a message and a failing status.
    void writeErrorsFail_data()
    {
        QTest::addColumn<QStringList>("extra");
        QTest::newRow("paths") << QStringList();
        QTest::newRow("long") << QStringList{QStringLiteral("--long")};
        QTest::newRow("count") << QStringList{QStringLiteral("--count")};
        QTest::newRow("filtered") << QStringList{QStringLiteral("--filter"), QStringLiteral("hidden")};
    }
    void writeErrorsFail()
    {
        QFETCH(QStringList, extra);
        SearchTreeFixture tree;
        tree.buildStandard();
        QProcess process;
        process.setStandardOutputFile(QStringLiteral("/dev/full"));
        process.start(
            QCoreApplication::applicationFilePath(),
            QStringList{QStringLiteral("--run-search"), QStringLiteral("match"), QString::fromUtf8(tree.root())} +
                extra);
        QVERIFY(process.waitForFinished(60000));
        QCOMPARE(process.exitCode(), 2);
        QVERIFY(process.readAllStandardError().contains("could not write the results: No space left on device"));
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
        QCOMPARE(run({QStringLiteral("in-")}, env).out, tree.path("home/in-home-x") + '\n');

        tree.file("config/trovix/com.quorbel.trovix.json", "{\"KEY_SearchLocation\": \"" + tree.path("stored") + "\"}");
        QCOMPARE(run({QStringLiteral("in-")}, env).out, tree.path("stored/in-stored-x") + '\n');
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
        const Run result =
            run(args({"--", "-x", tree.root()}), QProcessEnvironment::systemEnvironment(), program, prefix);
        if (result.status == -1 && ::geteuid() == 0)
            QSKIP("cannot run as an unprivileged user here");
        QCOMPARE(result.status, 0);
        QCOMPARE(sortedLines(result.out), tree.absolute({"a/before-x", "a/zz/after-x"}));
        QCOMPARE(result.err,
                 "Could not open directory \"" + tree.path("a/locked") + "\". Error was : Permission denied\n");
    }

    // Not "/": that walk would list other tests' trees, whose access times some of them check.
    void interruptCancelsTheWalk()
    {
        QProcess process;
        process.start(QCoreApplication::applicationFilePath(),
                      args({"--run-search", "e", "/usr", "--count", "--verbose"}));
        QVERIFY(process.waitForStarted());
        process.setReadChannel(QProcess::StandardError);
        // The walk has started once it says so.
        QByteArray err;
        while (!err.contains("cpp scan") && process.waitForReadyRead(10000))
            err += process.readAllStandardError();
        QVERIFY(err.contains("cpp scan"));
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
    QCoreApplication app(argc, argv);
    if (argc >= 2 && qstrcmp(argv[1], "--run-search") == 0)
        return cli::runSearch(QCoreApplication::arguments().mid(2));
    TestSearchCommand test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "TestSearchCommand.moc"
