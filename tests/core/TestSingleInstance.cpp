#include "core/SingleInstance.h"

#include <QDBusConnectionInterface>
#include <QTest>
#include <QTimer>

#include <memory>

using namespace std::chrono_literals;

namespace {
// Each copy of the program has a connection of its own.
QDBusConnection copyConnection(const QString& name)
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
}

QString ownerOfTheName()
{
    return QDBusConnection::sessionBus().interface()->serviceOwner(QString::fromLatin1(SingleInstance::kServiceName));
}
} // namespace

class TestSingleInstance : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus");
        qunsetenv(SingleInstance::kHandOverVariable);
    }
    void cleanup()
    {
        for (const QString& name : {QStringLiteral("old"), QStringLiteral("new"), QStringLiteral("later")})
            QDBusConnection::disconnectFromBus(name);
        qunsetenv(SingleInstance::kHandOverVariable);
    }

    void oneCopyPerSession()
    {
        SingleInstance first(copyConnection(QStringLiteral("old")));
        QVERIFY(first.claim());
        QVERIFY(first.usesBus());
        SingleInstance second(copyConnection(QStringLiteral("new")));
        QVERIFY(!second.claim());
        QCOMPARE(ownerOfTheName(), copyConnection(QStringLiteral("old")).baseService());
    }

    void aFailedHandOverLeavesTheNameWithTheRunningCopy()
    {
        const QString oldCopy = copyConnection(QStringLiteral("old")).baseService();
        auto running = std::make_unique<SingleInstance>(copyConnection(QStringLiteral("old")));
        QVERIFY(running->claim());
        // The hand-over begins; the new copy never comes up.
        running.reset();
        QCOMPARE(ownerOfTheName(), oldCopy);
        QVERIFY(qEnvironmentVariableIsSet(SingleInstance::kHandOverVariable));
        // A later launch by the user (not started by this copy) is a second copy, as it should be.
        qunsetenv(SingleInstance::kHandOverVariable);
        SingleInstance later(copyConnection(QStringLiteral("later")));
        QVERIFY(!later.claim());
        QCOMPARE(ownerOfTheName(), oldCopy);
    }

    void theNewCopyTakesOverWhenTheOldOneEnds()
    {
        auto running = std::make_unique<SingleInstance>(copyConnection(QStringLiteral("old")));
        QVERIFY(running->claim());
        running.reset();
        // The old copy ends a moment after starting the new one.
        QTimer::singleShot(300, this, [] { QDBusConnection::disconnectFromBus(QStringLiteral("old")); });
        SingleInstance successor(copyConnection(QStringLiteral("new")), 5s);
        QVERIFY(successor.claim());
        QCOMPARE(ownerOfTheName(), copyConnection(QStringLiteral("new")).baseService());
        // The mark is used once: what the new copy starts later is no successor.
        QVERIFY(!qEnvironmentVariableIsSet(SingleInstance::kHandOverVariable));
    }

    void aSuccessorThatWaitsInVainIsASecondCopy()
    {
        auto running = std::make_unique<SingleInstance>(copyConnection(QStringLiteral("old")));
        QVERIFY(running->claim());
        running.reset();
        SingleInstance successor(copyConnection(QStringLiteral("new")), 300ms);
        QVERIFY(!successor.claim());
        // It left the queue: when the running copy ends, the name is free for the next launch.
        QDBusConnection::disconnectFromBus(QStringLiteral("old"));
        SingleInstance later(copyConnection(QStringLiteral("later")));
        QTRY_VERIFY(later.claim());
    }
};

QTEST_GUILESS_MAIN(TestSingleInstance)
#include "TestSingleInstance.moc"
