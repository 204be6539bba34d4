#include "core/DistributedNotificationCenter.h"

#include <QDBusConnection>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

// Runs on a private session bus: other programs send with gdbus, as the file-manager extensions do.
class TestDistributedNotificationCenter : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void receivesWhatAnotherProgramEmits()
    {
        DistributedNotificationCenter center(QDBusConnection::sessionBus());
        QVERIFY(center.isAvailable());
        QObject context;
        QStringList seen;
        center.addObserver(QStringLiteral("AppSyncExtensionWantsToSwitchVisibility"), QStringLiteral("n"), &context,
                           [&](const QString& name, const QString& object, const QVariantMap& info) {
                               seen << name + QLatin1Char('/') + object + QLatin1Char('/') +
                                           info.value(QStringLiteral("k")).toString();
                           });
        const auto emitSignal = [](const QString& object, const QString& info) {
            return QProcess::execute(QStringLiteral("gdbus"),
                                     {QStringLiteral("emit"), QStringLiteral("--session"),
                                      QStringLiteral("--object-path"),
                                      QStringLiteral("/com/quorbel/trovix/FinderSyncExt"), QStringLiteral("--signal"),
                                      QStringLiteral("com.quorbel.trovix.DistributedNotification.Notification"),
                                      QStringLiteral("'AppSyncExtensionWantsToSwitchVisibility'"), object, info});
        };
        QCOMPARE(emitSignal(QStringLiteral("'x'"), QStringLiteral("@a{sv} {}")), 0);
        QCOMPARE(emitSignal(QStringLiteral("'n'"), QStringLiteral("{'k': <'v'>}")), 0);
        QTRY_COMPARE(seen.size(), 1);
        QCOMPARE(seen.first(), QStringLiteral("AppSyncExtensionWantsToSwitchVisibility/n/v"));
    }

    void postsReachOtherListeners()
    {
        DistributedNotificationCenter sender(QDBusConnection::sessionBus());
        // A second connection stands for another process.
        QDBusConnection otherBus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("other"));
        DistributedNotificationCenter receiver(otherBus);
        QObject context;
        QString got;
        receiver.addObserver(QStringLiteral("AppCopyHaveJustTriedToLaunchNotificatioName"),
                             QStringLiteral("com.quorbel.trovix"), &context,
                             [&](const QString&, const QString& object, const QVariantMap&) { got = object; });
        QVERIFY(sender.post(QStringLiteral("AppCopyHaveJustTriedToLaunchNotificatioName"),
                            QStringLiteral("com.quorbel.trovix")));
        QTRY_COMPARE(got, QStringLiteral("com.quorbel.trovix"));
        QDBusConnection::disconnectFromBus(QStringLiteral("other"));
    }

    void withoutABusNothingHappens()
    {
        DistributedNotificationCenter center(QDBusConnection(QStringLiteral("never-connected")));
        QVERIFY(!center.isAvailable());
        QVERIFY(!center.post(QStringLiteral("x"), QStringLiteral("y")));
    }
};

QTEST_GUILESS_MAIN(TestDistributedNotificationCenter)
#include "TestDistributedNotificationCenter.moc"
