// The file manager's bus calls against a stand-in for org.freedesktop.FileManager1 on a private
// session bus of the test's own: what arrives there, and what the caller hears back. The bus knows no
// service files, so a call nobody answers never starts a real file manager installed on the machine.
#include "search/FileManagerBus.h"
#include "support/Files.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusContext>
#include <QDBusError>
#include <QDBusMessage>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <optional>

namespace {

// Records each call; answers with an error for a URI list holding "file:///refuse".
class FakeFileManager : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    struct Call
    {
        QString method;
        QStringList uris;
        QString startupId;
    };
    QList<Call> calls;

public Q_SLOTS:
    void ShowItems(const QStringList& uris, const QString& startupId)
    {
        record(QStringLiteral("ShowItems"), uris, startupId);
    }
    void ShowItemProperties(const QStringList& uris, const QString& startupId)
    {
        record(QStringLiteral("ShowItemProperties"), uris, startupId);
    }
    void ShowFolders(const QStringList& uris, const QString& startupId)
    {
        record(QStringLiteral("ShowFolders"), uris, startupId);
    }

private:
    void record(const QString& method, const QStringList& uris, const QString& startupId)
    {
        calls.append({method, uris, startupId});
        if (uris.contains(QStringLiteral("file:///refuse")))
            sendErrorReply(QDBusError::Failed, QStringLiteral("refused"));
    }
};

const QString kService = QStringLiteral("org.freedesktop.FileManager1");

std::optional<bool> await(void (*call)(const QList<QByteArray>&, FileManagerBus::Answered),
                          const QList<QByteArray>& paths)
{
    std::optional<bool> answer;
    int calls = 0;
    call(paths, [&](bool answered) {
        answer = answered;
        ++calls;
    });
    if (answer) // must come later, from the event loop
        return std::nullopt;
    if (!QTest::qWaitFor([&] { return answer.has_value(); }, 30000))
        return std::nullopt;
    QTest::qWait(20);
    return calls == 1 ? answer : std::nullopt;
}

} // namespace

class TestFileManagerBus : public QObject
{
    Q_OBJECT

private:
    // The stand-in has a connection of its own, as a separate file manager process would.
    std::optional<QDBusConnection> m_serviceBus;
    std::unique_ptr<FakeFileManager> m_fake;

    void startFake()
    {
        m_serviceBus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("fake-file-manager"));
        QVERIFY(m_serviceBus->isConnected());
        m_fake = std::make_unique<FakeFileManager>();
        QVERIFY(m_serviceBus->registerObject(QStringLiteral("/org/freedesktop/FileManager1"), m_fake.get(),
                                             QDBusConnection::ExportAllSlots));
        QVERIFY(m_serviceBus->registerService(kService));
    }

    QTemporaryDir m_busDir;
    QProcess m_daemon;

private slots:
    void initTestCase()
    {
        QVERIFY(m_busDir.isValid());
        const QString config = m_busDir.filePath(QStringLiteral("bus.conf"));
        QVERIFY(writeFile(
            config, "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                    " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                    "<busconfig><type>session</type><listen>unix:dir=" +
                        QFile::encodeName(m_busDir.path()) +
                        "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination=\"*\" "
                        "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n"));
        m_daemon.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--nofork"), QStringLiteral("--print-address=1"),
                                                       QStringLiteral("--config-file=") + config});
        QVERIFY2(m_daemon.waitForStarted(10000), "dbus-daemon is needed");
        QVERIFY(m_daemon.waitForReadyRead(10000));
        const QByteArray address = m_daemon.readLine().trimmed();
        QVERIFY(!address.isEmpty());
        // Read when the session bus is first used, which is after this.
        qputenv("DBUS_SESSION_BUS_ADDRESS", address);
        QVERIFY(QDBusConnection::sessionBus().isConnected());
    }
    void cleanupTestCase()
    {
        m_daemon.terminate();
        if (!m_daemon.waitForFinished(5000))
            m_daemon.kill();
        m_daemon.waitForFinished();
    }
    void cleanup()
    {
        if (m_serviceBus) {
            m_serviceBus->unregisterService(kService);
            m_serviceBus->unregisterObject(QStringLiteral("/org/freedesktop/FileManager1"));
            QDBusConnection::disconnectFromBus(QStringLiteral("fake-file-manager"));
            m_serviceBus.reset();
        }
        m_fake.reset();
    }

    void fileUris_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QByteArray>("uri");
        QTest::newRow("plain") << QByteArray("/home/u/a.txt") << QByteArray("file:///home/u/a.txt");
        QTest::newRow("not UTF-8") << QByteArray("/tmp/bad-\xff\xfe") << QByteArray("file:///tmp/bad-%FF%FE");
        QTest::newRow("UTF-8 by its bytes") << QByteArray("/tmp/\xc3\xa9") << QByteArray("file:///tmp/%C3%A9");
        QTest::newRow("reserved characters")
            << QByteArray("/a b/#?%&:;\n\"'") << QByteArray("file:///a%20b/%23%3F%25%26%3A%3B%0A%22%27");
        QTest::newRow("root") << QByteArray("/") << QByteArray("file:///");
    }
    void fileUris()
    {
        QFETCH(QByteArray, path);
        QFETCH(QByteArray, uri);
        QCOMPARE(FileManagerBus::fileUri(path), uri);
        // What a file manager makes of it is the same bytes again.
        QCOMPARE(QByteArray::fromPercentEncoding(uri.mid(7)), path);
    }

    void callsReachTheFileManager()
    {
        startFake();
        const QList<QByteArray> paths{"/tmp/one", "/tmp/name \xff\xfe-bad"};
        QCOMPARE(await(&FileManagerBus::showItems, paths), std::optional<bool>(true));
        QCOMPARE(await(&FileManagerBus::showItemProperties, {"/tmp/one"}), std::optional<bool>(true));
        QCOMPARE(await(&FileManagerBus::showFolders, {"/tmp"}), std::optional<bool>(true));
        QCOMPARE(m_fake->calls.size(), 3);
        QCOMPARE(m_fake->calls.at(0).method, QStringLiteral("ShowItems"));
        QCOMPARE(m_fake->calls.at(0).uris,
                 (QStringList{QStringLiteral("file:///tmp/one"), QStringLiteral("file:///tmp/name%20%FF%FE-bad")}));
        QCOMPARE(m_fake->calls.at(0).startupId, QString());
        QCOMPARE(m_fake->calls.at(1).method, QStringLiteral("ShowItemProperties"));
        QCOMPARE(m_fake->calls.at(1).uris, QStringList{QStringLiteral("file:///tmp/one")});
        QCOMPARE(m_fake->calls.at(2).method, QStringLiteral("ShowFolders"));
        QCOMPARE(m_fake->calls.at(2).uris, QStringList{QStringLiteral("file:///tmp")});
    }

    void anErrorIsNoAnswer()
    {
        startFake();
        QCOMPARE(await(&FileManagerBus::showItems, {"/refuse"}), std::optional<bool>(false));
        QCOMPARE(m_fake->calls.size(), 1);
    }

    void noFileManagerIsNoAnswer()
    {
        QVERIFY(!QDBusConnection::sessionBus().interface()->isServiceRegistered(kService));
        QCOMPARE(await(&FileManagerBus::showItems, {"/tmp/x"}), std::optional<bool>(false));
        QCOMPARE(await(&FileManagerBus::showItemProperties, {"/tmp/x"}), std::optional<bool>(false));
    }
};

QTEST_GUILESS_MAIN(TestFileManagerBus)
#include "TestFileManagerBus.moc"
