#pragma once

#include "login/LoginItem.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class DistributedNotificationCenter;

// Start at login through XDG autostart entries ($XDG_CONFIG_HOME/autostart). The current way is an entry
// for the launcher (a small program that starts Trovix and quits when told "TERMINATEHELPER"); the older
// way, an entry that starts Trovix itself, is still found and migrated away. An entry is on unless it is
// missing or says Hidden=true; a user entry of the same name overrides one of the system's.
class RunAtLoginManager
{
public:
    struct Places
    {
        QString configHome;             // where the user's autostart folder is
        QStringList systemConfigDirs;   // $XDG_CONFIG_DIRS
        QString mainBinary;             // this program
        QString launcherBinary;         // the launcher beside it
        static Places current();
    };
    // Whether a program registered under this identifier runs now (its name on the session bus).
    using RunningCheck = std::function<bool(const QString& bundleIdentifier)>;

    RunAtLoginManager(Places places, DistributedNotificationCenter& distributed, RunningCheck isRunning);
    virtual ~RunAtLoginManager() = default;

    static RunAtLoginManager& shared();

    // The legacy entry: the last autostart entry (in name order) that starts this program itself.
    std::optional<QString> itemRefInLoginItems() const;
    bool isLaunchAtStartup() const;
    void addAppToStartup();
    void toggleLaunchAtLoginValue_WithoutHelperApp();

    void setIsEnabled(bool enabled, const QString& bundleIdentifier, const std::function<void()>& failedBlock);
    void setIsEnabledForHelperApp(bool enabled, const std::function<void()>& failedBlock);
    bool isEnabledToAutoLaunchWithHelperApp() const;
    bool isAppWithBundleIdentifierEnabledForAutolaunch(const QString& bundleIdentifier) const;
    QList<LoginItem> loadSandboxedLoginItems() const;
    bool checkWasAutolaunchedWithHelperApp(bool autoTerminateHelper);
    bool wasSomehowAutolaunched();

    bool wasAutolaunchedWithHelperApp() const { return m_wasAutolaunchedWithHelperApp; }

    // The identifier of the launcher; a placeholder here that never matches anything.
    virtual QString launcherAppBundleIdentifier() const { return QStringLiteral("com.quorbel.myapp"); }

protected:
    QString autostartFolder() const;
    // The entry files in effect, by file name: the user's over the system's, disabled ones left out.
    QStringList activeEntries() const;
    bool writeEntry(const QString& fileName, const QString& program, const QString& comment) const;
    bool removeEntry(const QString& fileName) const;

    Places m_places;
    DistributedNotificationCenter& m_distributed;
    RunningCheck m_isRunning;
    bool m_wasAutolaunchedWithHelperApp = false;
};

class TrovixProjectRunAtLoginManager : public RunAtLoginManager
{
public:
    using RunAtLoginManager::RunAtLoginManager;
    static TrovixProjectRunAtLoginManager& shared();
    QString launcherAppBundleIdentifier() const override { return QStringLiteral("com.quorbel.trovix.launcher"); }
};

class UserDefaults;
// At start: a legacy entry is replaced by the launcher's unless the old keys are still stored; then the
// old keys are removed.
void migrateLegacyLoginItem(RunAtLoginManager& manager, UserDefaults& defaults);
