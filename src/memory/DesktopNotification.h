#pragma once

#include <QString>

// A desktop notification through org.freedesktop.Notifications on the session bus.
namespace DesktopNotification {

// Sends it without waiting for the server; false when there is no session bus to send it on.
bool send(const QString& title, const QString& body);

} // namespace DesktopNotification

// The notice after a purge.
namespace PurgeNotification {

// Only sizes above this are worth a notice.
constexpr qint64 kThreshold = 500000000;
inline bool isWorthShowing(qint64 cleanedSize)
{
    return cleanedSize > kThreshold;
}
QString title();
QString text(qint64 cleanedSize);

} // namespace PurgeNotification
