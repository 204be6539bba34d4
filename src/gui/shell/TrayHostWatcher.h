#pragma once

#include "util/Clock.h"

#include <QDBusConnection>
#include <QObject>

#include <functional>

class QDBusServiceWatcher;

// Waits for a tray host to come: a program started at login often runs before the desktop's panel.
// A StatusNotifierWatcher with a host on the session bus, or an XEmbed tray manager on the X display,
// counts. The bus is watched for the watcher's name and its host signal; the X tray is polled with a
// growing interval. trayHostAppeared() is emitted once.
//
// Qt decides once per process whether to use the bus tray, the first time anything asks it, so
// nothing here asks Qt's own tray availability before a host is known to be there.
class TrayHostWatcher : public QObject
{
    Q_OBJECT
public:
    using Probe = std::function<bool()>;
    static constexpr int kFirstRetryMs = 500;
    static constexpr int kLongestRetryMs = 4000;

    // probe null: look at the bus and the X display.
    TrayHostWatcher(Clock& clock, QDBusConnection bus, Probe probe = nullptr, QObject* parent = nullptr);
    ~TrayHostWatcher() override;

    // Looks now; when no host is there, keeps looking until one comes.
    void start();
    bool isTrayHostPresent() const { return m_present; }

    // The checks the default probe makes.
    static bool statusNotifierHostRegistered(const QDBusConnection& bus);
    static bool xembedTrayPresent();

Q_SIGNALS:
    void trayHostAppeared();

private Q_SLOTS:
    void check();

private:
    bool probe() const;
    void scheduleRetry();

    Clock& m_clock;
    QDBusConnection m_bus;
    Probe m_probe;
    QDBusServiceWatcher* m_serviceWatcher = nullptr;
    Clock::Handle m_retry;
    int m_retryMs = kFirstRetryMs;
    bool m_present = false;
};
