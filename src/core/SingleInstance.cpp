#include "SingleInstance.h"

#include <QDBusConnectionInterface>
#include <QDir>
#include <QStandardPaths>

SingleInstance::SingleInstance(QDBusConnection connection)
    : m_connection(std::move(connection))
{
}

SingleInstance::~SingleInstance()
{
    if (m_owned && m_usesBus)
        m_connection.unregisterService(QString::fromLatin1(kServiceName));
}

bool SingleInstance::claim()
{
    if (m_connection.isConnected()) {
        m_usesBus = true;
        // Name ownership is atomic on the bus: of two copies started together exactly one wins.
        m_owned = m_connection.registerService(QString::fromLatin1(kServiceName));
        return m_owned;
    }
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty())
        dir = QDir::tempPath();
    m_lock = std::make_unique<QLockFile>(dir + QStringLiteral("/com.quorbel.trovix.lock"));
    m_lock->setStaleLockTime(0);
    m_owned = m_lock->tryLock(100);
    return m_owned;
}
