#pragma once

#include <QString>

// A desktop notification through org.freedesktop.Notifications on the session bus.
namespace DesktopNotification {

// Sends it without waiting for the server; false when there is no session bus to send it on.
bool send(const QString& title, const QString& body);

} // namespace DesktopNotification
