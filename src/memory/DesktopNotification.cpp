#include "DesktopNotification.h"

#include "core/Texts.h"
#include "util/VolumeName.h"

#include <QDBusConnection>
#include <QDBusMessage>
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

namespace PurgeNotification {

QString title()
{
    return QStringLiteral("Trovix");
}

QString text(qint64 cleanedSize)
{
    return Texts::format(Texts::platformWords(QStringLiteral("%@ of RAM have been cleaned just now.")),
                         {VolumeName::stringFromSize(cleanedSize)});
}

} // namespace PurgeNotification
