#include "ExactWindowTitle.h"

#include <QGuiApplication>
#include <QWidget>

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>

namespace {

xcb_atom_t atom(xcb_connection_t* connection, const char* name)
{
    const xcb_intern_atom_cookie_t cookie = xcb_intern_atom(connection, 0, static_cast<uint16_t>(qstrlen(name)), name);
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(connection, cookie, nullptr), &std::free);
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

} // namespace

void applyExactWindowTitle(QWidget* window)
{
    if (!window || !window->testAttribute(Qt::WA_WState_Created) ||
        QGuiApplication::platformName() != QLatin1String("xcb"))
        return;
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t* connection = x11 ? x11->connection() : nullptr;
    if (!connection)
        return;
    const auto id = static_cast<xcb_window_t>(window->winId());
    const QByteArray title = window->windowTitle().toUtf8();
    const xcb_atom_t utf8 = atom(connection, "UTF8_STRING");
    const xcb_atom_t netName = atom(connection, "_NET_WM_NAME");
    if (utf8 != XCB_ATOM_NONE && netName != XCB_ATOM_NONE)
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, netName, utf8, 8,
                            static_cast<uint32_t>(title.size()), title.constData());
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_NAME,
                        utf8 != XCB_ATOM_NONE ? utf8 : xcb_atom_t(XCB_ATOM_STRING), 8,
                        static_cast<uint32_t>(title.size()), title.constData());
    xcb_flush(connection);
}
