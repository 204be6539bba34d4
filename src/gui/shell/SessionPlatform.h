#pragma once

#include <QByteArray>
#include <QProcessEnvironment>

// The Qt platform the tray program runs on. A Wayland client cannot place its own top-level windows, so
// the panel could neither hang under the icon nor keep its place there: where an X display is at hand
// (XWayland) and the user has not chosen a platform, the program runs on X (xcb).
namespace SessionPlatform {

// The platform to ask for; empty leaves Qt's own choice.
QByteArray platformFor(const QProcessEnvironment& environment);

} // namespace SessionPlatform
