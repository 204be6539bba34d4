#include "TrayHostWatcher.h"

#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusServiceWatcher>
#include <QGuiApplication>

#include <xcb/xcb.h>

#include <algorithm>
#include <memory>

namespace {

const QString kWatcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString kWatcherPath = QStringLiteral("/StatusNotifierWatcher");

} // namespace

TrayHostWatcher::TrayHostWatcher(Clock& clock, QDBusConnection bus, Probe probe, QObject* parent)
    : QObject(parent)
    , m_clock(clock)
    , m_bus(std::move(bus))
    , m_probe(std::move(probe))
{
}

TrayHostWatcher::~TrayHostWatcher()
{
    m_retry.cancel();
}

void TrayHostWatcher::start()
{
    if (m_bus.isConnected() && !m_serviceWatcher) {
        m_serviceWatcher =
            new QDBusServiceWatcher(kWatcherService, m_bus, QDBusServiceWatcher::WatchForRegistration, this);
        connect(m_serviceWatcher, &QDBusServiceWatcher::serviceRegistered, this, [this] { check(); });
        // A watcher may own its name before any host has registered with it.
        m_bus.connect(kWatcherService, kWatcherPath, kWatcherService, QStringLiteral("StatusNotifierHostRegistered"),
                      this, SLOT(check()));
    }
    check();
}

bool TrayHostWatcher::probe() const
{
    if (m_probe)
        return m_probe();
    return statusNotifierHostRegistered(m_bus) || xembedTrayPresent();
}

void TrayHostWatcher::check()
{
    if (m_present)
        return;
    m_retry.cancel();
    if (probe()) {
        m_present = true;
        m_bus.disconnect(kWatcherService, kWatcherPath, kWatcherService,
                         QStringLiteral("StatusNotifierHostRegistered"), this, SLOT(check()));
        delete m_serviceWatcher;
        m_serviceWatcher = nullptr;
        Q_EMIT trayHostAppeared();
        return;
    }
    scheduleRetry();
}

void TrayHostWatcher::scheduleRetry()
{
    const int delay = m_retryMs;
    m_retryMs = std::min(m_retryMs * 2, kLongestRetryMs);
    m_retry = m_clock.callAfter(delay, this, [this] { check(); });
}

bool TrayHostWatcher::statusNotifierHostRegistered(const QDBusConnection& bus)
{
    if (!bus.isConnected() || !bus.interface() || !bus.interface()->isServiceRegistered(kWatcherService))
        return false;
    QDBusInterface watcher(kWatcherService, kWatcherPath, kWatcherService, bus);
    return watcher.isValid() && watcher.property("IsStatusNotifierHostRegistered").toBool();
}

bool TrayHostWatcher::xembedTrayPresent()
{
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    xcb_connection_t* connection = x11 ? x11->connection() : nullptr;
    if (!connection)
        return false;
    // The tray manager owns the selection _NET_SYSTEM_TRAY_S<screen> (the freedesktop system tray).
    const QByteArray name = "_NET_SYSTEM_TRAY_S0";
    const xcb_intern_atom_cookie_t atomCookie =
        xcb_intern_atom(connection, 0, static_cast<uint16_t>(name.size()), name.constData());
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> atom(
        xcb_intern_atom_reply(connection, atomCookie, nullptr), &std::free);
    if (!atom)
        return false;
    const std::unique_ptr<xcb_get_selection_owner_reply_t, decltype(&std::free)> owner(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, atom->atom), nullptr),
        &std::free);
    return owner && owner->owner != XCB_NONE;
}
