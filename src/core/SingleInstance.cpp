#include "SingleInstance.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QDir>
#include <QStandardPaths>
#include <QThread>

#include <unistd.h>

SingleInstance::SingleInstance(QDBusConnection connection, std::chrono::milliseconds handOverWait)
    : m_connection(std::move(connection))
    , m_handOverWait(handOverWait)
{
}

SingleInstance::~SingleInstance()
{
    if (!m_owned)
        return;
    // The bus drops the name when this process ends, and QLockFile's owner check sees a lock of a dead
    // process as stale: neither needs releasing by hand, and releasing early would leave the session
    // without an owner should the new copy not come up.
    qputenv(kHandOverVariable, QByteArray::number(::getpid()));
    if (m_lock)
        (void)m_lock.release();
}

bool SingleInstance::claim()
{
    const bool successor = qEnvironmentVariableIsSet(kHandOverVariable);
    // Only this copy waits; whatever it starts later is not a successor.
    qunsetenv(kHandOverVariable);
    if (m_connection.isConnected()) {
        m_usesBus = true;
        m_owned = claimOnBus(successor);
        return m_owned;
    }
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty())
        dir = QDir::tempPath();
    m_lock = std::make_unique<QLockFile>(dir + QStringLiteral("/com.quorbel.trovix.lock"));
    m_lock->setStaleLockTime(0);
    m_owned = m_lock->tryLock(successor ? int(m_handOverWait.count()) : 100);
    return m_owned;
}

bool SingleInstance::claimOnBus(bool successor)
{
    const QString name = QString::fromLatin1(kServiceName);
    QDBusConnectionInterface* bus = m_connection.interface();
    // Name ownership is atomic on the bus: of two copies started together exactly one wins.
    const auto reply = bus->registerService(
        name, successor ? QDBusConnectionInterface::QueueService : QDBusConnectionInterface::DontQueueService,
        QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid())
        return false;
    if (reply.value() == QDBusConnectionInterface::ServiceRegistered)
        return true;
    if (reply.value() != QDBusConnectionInterface::ServiceQueued)
        return false;
    // Queued behind the copy that started this one: the name comes when that copy ends.
    const QDeadlineTimer deadline(m_handOverWait);
    while (!deadline.hasExpired()) {
        if (bus->serviceOwner(name).value() == m_connection.baseService())
            return true;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        QThread::msleep(50);
    }
    if (bus->serviceOwner(name).value() == m_connection.baseService())
        return true;
    // It did not end: leave the queue and act as a second copy.
    bus->unregisterService(name);
    return false;
}
