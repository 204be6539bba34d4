#include "DesktopNotification.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QStringList>
#include <QVariantMap>

namespace DesktopNotification {

bool send(const QString& title, const QString& body)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("/org/freedesktop/Notifications"),
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
    call << QStringLiteral("Trovix") << 0u << QStringLiteral("trovix") << title << body << QStringList()
         << QVariantMap() << -1;
    return bus.send(call);
}

} // namespace DesktopNotification
