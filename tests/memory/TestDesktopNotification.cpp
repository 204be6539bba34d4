#include "memory/DesktopNotification.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QTest>

// A notification server on the test's private session bus.
class FakeNotificationServer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Received
    {
        QString app;
        QString summary;
        QString body;
    };
    QList<Received> received;

public slots:
    uint Notify(const QString& app, uint, const QString&, const QString& summary, const QString& body,
                const QStringList&, const QVariantMap&, int)
    {
        received.append({app, summary, body});
        return uint(received.size());
    }
};

class TestDesktopNotification : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void threshold_data();
    void threshold();
    void textNamesTheSize();
    void reachesTheServer();

private:
    FakeNotificationServer m_server;
};

void TestDesktopNotification::initTestCase()
{
    QDBusConnection server = QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("server"));
    QVERIFY2(server.isConnected(), "needs a session bus");
    QVERIFY(server.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &m_server,
                                  QDBusConnection::ExportAllSlots));
    QVERIFY(server.registerService(QStringLiteral("org.freedesktop.Notifications")));
}

void TestDesktopNotification::threshold_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<bool>("shown");
    QTest::newRow("500,000,000 exactly") << qint64(500000000) << false;
    QTest::newRow("one byte more") << qint64(500000001) << true;
    QTest::newRow("nothing") << qint64(0) << false;
    QTest::newRow("gigabytes") << qint64(4000000000) << true;
}

void TestDesktopNotification::threshold()
{
    QFETCH(qint64, size);
    QTEST(PurgeNotification::isWorthShowing(size), "shown");
}

void TestDesktopNotification::textNamesTheSize()
{
    QCOMPARE(PurgeNotification::title(), QStringLiteral("Trovix"));
    QCOMPARE(PurgeNotification::text(500000001), QStringLiteral("477 MB of RAM have been cleaned just now."));
}

void TestDesktopNotification::reachesTheServer()
{
    QVERIFY(DesktopNotification::send(QStringLiteral("Trovix"), QStringLiteral("body text")));
    QTRY_COMPARE(m_server.received.size(), 1);
    QCOMPARE(m_server.received[0].app, QStringLiteral("Trovix"));
    QCOMPARE(m_server.received[0].summary, QStringLiteral("Trovix"));
    QCOMPARE(m_server.received[0].body, QStringLiteral("body text"));
}

QTEST_GUILESS_MAIN(TestDesktopNotification)
#include "TestDesktopNotification.moc"
