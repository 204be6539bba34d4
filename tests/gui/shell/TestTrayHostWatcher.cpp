#include "gui/shell/TrayHostWatcher.h"
#include "support/ManualClock.h"

#include <QDBusConnection>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

namespace {

// Plays the desktop's StatusNotifierWatcher, from its own connection and thread as another program would.
class FakeWatcher : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ isHostRegistered)
public:
    bool isHostRegistered() const { return m_host; }
    void setHostRegistered(bool host) { m_host = host; }

Q_SIGNALS:
    void StatusNotifierHostRegistered();

private:
    std::atomic<bool> m_host{false};
};

} // namespace

class TestTrayHostWatcher : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void looksAgainWithAGrowingIntervalUntilAHostComes()
    {
        ManualClock clock;
        int probes = 0;
        bool present = false;
        TrayHostWatcher watcher(clock, QDBusConnection(QStringLiteral("no bus")), [&] {
            ++probes;
            return present;
        });
        QSignalSpy appeared(&watcher, &TrayHostWatcher::trayHostAppeared);
        watcher.start();
        QCOMPARE(probes, 1);
        // 0.5 s, then twice as long each time up to 4 s.
        const QList<int> gaps{500, 1000, 2000, 4000, 4000};
        for (int gap : gaps) {
            const int before = probes;
            clock.advance(gap - 1);
            QCOMPARE(probes, before);
            clock.advance(1);
            QCOMPARE(probes, before + 1);
        }
        QCOMPARE(appeared.size(), 0);
        present = true;
        clock.advance(4000);
        QCOMPARE(appeared.size(), 1);
        QVERIFY(watcher.isTrayHostPresent());
        const int atArrival = probes;
        clock.advance(60000);
        QCOMPARE(probes, atArrival);
        QCOMPARE(appeared.size(), 1);
    }

    void aHostIsPresentFromTheStart()
    {
        ManualClock clock;
        TrayHostWatcher watcher(clock, QDBusConnection(QStringLiteral("no bus")), [] { return true; });
        QSignalSpy appeared(&watcher, &TrayHostWatcher::trayHostAppeared);
        watcher.start();
        QCOMPARE(appeared.size(), 1);
        QCOMPARE(clock.pendingCount(), 0);
    }

    // The bus tells at once: the watcher's name appearing, then its host registering, with no retry
    // timer running (the clock never moves here).
    void aStatusNotifierWatcherOnTheBusIsSeenWhenItsHostRegisters()
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        QVERIFY2(bus.isConnected(), "needs a session bus");
        ManualClock clock;
        TrayHostWatcher watcher(clock, bus);
        QSignalSpy appeared(&watcher, &TrayHostWatcher::trayHostAppeared);
        watcher.start();
        QVERIFY(!watcher.isTrayHostPresent());

        QThread desktop;
        desktop.start();
        auto* fake = new FakeWatcher;
        fake->moveToThread(&desktop);
        connect(&desktop, &QThread::finished, fake, &QObject::deleteLater);
        QDBusConnection other = QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("desktop"));
        // Exported from its own thread: the signal relay lives beside the object.
        bool exported = false;
        QMetaObject::invokeMethod(
            fake,
            [&] {
                exported = other.registerObject(QStringLiteral("/StatusNotifierWatcher"), fake,
                                                QDBusConnection::ExportAllProperties |
                                                    QDBusConnection::ExportAllSignals);
            },
            Qt::BlockingQueuedConnection);
        QVERIFY(exported);
        QVERIFY(other.registerService(QStringLiteral("org.kde.StatusNotifierWatcher")));
        // A watcher without a host is no tray yet.
        QTest::qWait(300);
        QCOMPARE(appeared.size(), 0);
        QVERIFY(!TrayHostWatcher::statusNotifierHostRegistered(bus));

        fake->setHostRegistered(true);
        QMetaObject::invokeMethod(fake, &FakeWatcher::StatusNotifierHostRegistered, Qt::QueuedConnection);
        QVERIFY(appeared.wait(5000));
        QVERIFY(watcher.isTrayHostPresent());

        other.unregisterService(QStringLiteral("org.kde.StatusNotifierWatcher"));
        other.unregisterObject(QStringLiteral("/StatusNotifierWatcher"));
        QDBusConnection::disconnectFromBus(QStringLiteral("desktop"));
        desktop.quit();
        desktop.wait();
    }
};

QTEST_MAIN(TestTrayHostWatcher)
#include "TestTrayHostWatcher.moc"
