#include "core/DesktopNotification.h"

#include <QDBusConnection>
#include <QTest>

// A notification server on the test's private session bus.
class FakeNotificationServer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    QList<QStringList> received; // app, summary, body

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
    void reachesTheServer()
    {
        FakeNotificationServer server;
        QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("server"));
        QVERIFY2(bus.isConnected(), "needs a session bus");
        QVERIFY(bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &server,
                                   QDBusConnection::ExportAllSlots));
        QVERIFY(bus.registerService(QStringLiteral("org.freedesktop.Notifications")));

        QVERIFY(DesktopNotification::send(QStringLiteral("A title"), QStringLiteral("body text")));
        QTRY_COMPARE(server.received.size(), 1);
        QCOMPARE(server.received[0], (QStringList{"Trovix", "A title", "body text"}));
    }
};

QTEST_GUILESS_MAIN(TestDesktopNotification)
#include "TestDesktopNotification.moc"
