#pragma once

#include "core/DistributedNotificationCenter.h"
#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "support/ManualClock.h"
#include "util/MacOSVersion.h"

#include <QDBusConnection>
#include <QTemporaryDir>

#include <optional>

// Settings over two throw-away domain files, a clock the test advances, and the notification centres
// (the distributed one without a bus). Build a fresh one in each test's init().
struct SettingsFixture
{
    explicit SettingsFixture(std::optional<QString> systemVersion = std::nullopt)
        : version(std::move(systemVersion))
    {
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
