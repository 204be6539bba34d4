#pragma once

#include "app/DistributedNotificationCenter.h"
#include "app/NotificationCenter.h"
#include "app/QBPurgeController.h"
#include "app/Settings.h"
#include "support/ManualClock.h"
#include "util/MacOSVersion.h"

#include <QDBusConnection>
#include <QTemporaryDir>

#include <optional>

// Settings over two throw-away domain files, a clock the test advances, and the notification centres a
// controller needs (the distributed one without a bus). Build a fresh one in each test's init().
struct SettingsFixture
{
    explicit SettingsFixture(std::optional<QString> systemVersion = std::nullopt)
        : version(std::move(systemVersion))
    {
    }

    // The controller's collaborators, with no tray; tests add their own fakes.
    QBPurgeController::Collaborators collaborators()
    {
        QBPurgeController::Collaborators c;
        c.settings = &settings;
        c.center = &center;
        c.distributed = &distributed;
        c.clock = &clock;
        c.version = &version;
        c.useTray = false;
        return c;
    }

    QTemporaryDir dir;
    ManualClock clock;
    MacOSVersion version;
    UserDefaults standard{dir.filePath(QStringLiteral("com.quorbel.trovix.json"))};
    UserDefaults group{dir.filePath(QStringLiteral("group.json"))};
    Settings settings{standard, group, version, clock};
    NotificationCenter center;
    DistributedNotificationCenter distributed{QDBusConnection(QStringLiteral("no bus"))};
};
