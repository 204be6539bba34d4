#include "cli/Commands.h"
#include "core/UserDefaults.h"
#include "search/NameIndexService.h"
#include "support/SearchTreeFixture.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusReply>
#include <QProcess>
#include <QtTest>

namespace {

struct Run
{
    int status = -1;
    QByteArray out;
    QByteArray err;
};

// The command in a child process, while this process's event loop answers its bus calls.
Run runCommand(const QStringList& args)
{
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), QStringList{QStringLiteral("--run")} + args);
    if (!process.waitForStarted())
        return {};
    bool ended = false;
    QObject::connect(&process, &QProcess::finished, [&] { ended = true; });
    if (!QTest::qWaitFor([&] { return ended; }, 60000))
        return {};
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, process.readAllStandardOutput(),
            process.readAllStandardError()};
}

QByteArrayList sortedLines(const QByteArray& text, char separator = '\n')
{
    QByteArrayList lines = text.split(separator);
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    std::sort(lines.begin(), lines.end());
    return lines;
}

} // namespace

class TestNameIndexService : public QObject
{
    Q_OBJECT
private Q_SLOTS:

    void initTestCase()
    {
        QVERIFY(QDBusConnection::sessionBus().isConnected());
        QVERIFY(QDBusConnection::sessionBus().registerService(QStringLiteral("com.quorbel.trovix")));
    }

    void withoutAnIndexTheCommandSaysSoWithStatus3()
    {
        SearchTreeFixture tree;
        tree.file("a/conf-x");
        {
            NameIndexService service(QDBusConnection::sessionBus()); // exported, never started
            const Run search = runCommand({QStringLiteral("search"), QStringLiteral("--index"), QStringLiteral("conf"),
                                           QFile::decodeName(tree.root())});
            QCOMPARE(search.status, 3);
            QVERIFY2(search.err.contains("no index available: the index is off"), search.err.constData());
            QCOMPARE(runCommand({QStringLiteral("index")}).status, 3);
        }
        // Nobody serves the object at all.
        const Run none = runCommand({QStringLiteral("search"), QStringLiteral("--index"), QStringLiteral("conf"),
                                     QFile::decodeName(tree.root())});
        QCOMPARE(none.status, 3);
        QVERIFY2(none.err.contains("not running"), none.err.constData());
    }

    void searchFromTheIndexPrintsWhatTheWalkPrints()
    {
        SearchTreeFixture tree;
        tree.buildStandard();
        tree.wideFolder("many", 3000, "Match-many-");
        NameIndexService service(QDBusConnection::sessionBus());
        NameIndexKeeper::Options options;
        options.rootPath = tree.root().toStdString();
        service.start(options);
        QVERIFY(service.keeper()->waitUntilReady(std::chrono::seconds(30)));

        const QStringList where{QStringLiteral("match"), QFile::decodeName(tree.root())};
        const Run walk = runCommand(QStringList{QStringLiteral("search")} + where);
        const Run indexed = runCommand(QStringList{QStringLiteral("search"), QStringLiteral("--index")} + where);
        QCOMPARE(indexed.status, 0);
        QCOMPARE(sortedLines(indexed.out), sortedLines(walk.out));
        QCOMPARE(sortedLines(indexed.out).size(), 3012);

        const Run nul =
            runCommand(QStringList{QStringLiteral("search"), QStringLiteral("--index"), QStringLiteral("-0")} + where);
        QCOMPARE(sortedLines(nul.out, '\0'), sortedLines(walk.out));
        const Run count = runCommand(
            QStringList{QStringLiteral("search"), QStringLiteral("--index"), QStringLiteral("--count")} + where);
        QCOMPARE(count.out, QByteArray("Found 3012 / 3012\n"));

        const Run sub = runCommand({QStringLiteral("search"), QStringLiteral("--index"), QStringLiteral("match"),
                                    QFile::decodeName(tree.path("docs"))});
        QCOMPARE(sortedLines(sub.out),
                 tree.absolute({"docs/Report-MATCH-Z.txt", "docs/.match-dotfile", "docs/listed-match"}));
        const Run nothing = runCommand({QStringLiteral("search"), QStringLiteral("--index"), QStringLiteral("zzqq"),
                                        QFile::decodeName(tree.root())});
        QCOMPARE(nothing.status, 1);
        const Run outside = runCommand(
            {QStringLiteral("search"), QStringLiteral("--index"), QStringLiteral("match"), QStringLiteral("/tmp")});
        QCOMPARE(outside.status, 3);
        QVERIFY2(outside.err.contains("not in the index"), outside.err.constData());
        const Run refused = runCommand(
            QStringList{QStringLiteral("search"), QStringLiteral("--index"), QStringLiteral("--long")} + where);
        QCOMPARE(refused.status, 2);

        const Run state = runCommand({QStringLiteral("index")});
        QCOMPARE(state.status, 0);
        QVERIFY2(state.out.contains("state: ready\nroot: " + tree.root() + '\n'), state.out.constData());
        QVERIFY(state.out.contains("last query: "));

        // The small-answer method, as another program would call it.
        const Run query = runCommand({QStringLiteral("--query"), QStringLiteral("match-many-1"),
                                      QFile::decodeName(tree.root()), QStringLiteral("5")});
        QCOMPARE(query.status, 0);
        const QByteArrayList five = sortedLines(query.out);
        QCOMPARE(five.size(), 5);
        for (const QByteArray& path : five)
            QVERIFY(path.startsWith(tree.path("many/Match-many-1")));
    }

    void theSettingTurnsTheIndexOff()
    {
        QTemporaryDir dir;
        UserDefaults defaults(dir.filePath(QStringLiteral("settings.json")));
        defaults.saveBoolValue(false, NameIndexService::enabledKey());
        NameIndexService service(QDBusConnection::sessionBus());
        QVERIFY(!service.startFromSettings(defaults));
        QVERIFY(!service.keeper());
        QCOMPARE(service.State().value(QStringLiteral("ready")).toBool(), false);
        QVERIFY(service.State().value(QStringLiteral("problem")).toString().contains(NameIndexService::enabledKey()));
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc >= 5 && qstrcmp(argv[1], "--run") == 0 && qstrcmp(argv[2], "--query") == 0) {
        qDBusRegisterMetaType<QByteArrayList>();
        QDBusMessage call =
            QDBusMessage::createMethodCall(QStringLiteral("com.quorbel.trovix"), QStringLiteral("/Index"),
                                           QStringLiteral("com.quorbel.trovix.Index"), QStringLiteral("Query"));
        call << QByteArray(argv[3]) << QByteArray(argv[4]) << QByteArray(argv[5]).toInt();
        const QDBusReply<QByteArrayList> reply = QDBusConnection::sessionBus().call(call);
        if (!reply.isValid()) {
            std::fprintf(stderr, "%s\n", qPrintable(reply.error().message()));
            return 3;
        }
        for (const QByteArray& path : reply.value())
            std::printf("%s\n", path.constData());
        return 0;
    }
    if (argc >= 3 && qstrcmp(argv[1], "--run") == 0) {
        const QStringList args = QCoreApplication::arguments().mid(3);
        return cli::run(QCoreApplication::arguments().at(2), args);
    }
    TestNameIndexService test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "TestNameIndexService.moc"
