#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

class DistributedNotificationCenter;
class NotificationCenter;
class QBPurgeController;
class Settings;

// Launching: the single running copy, the offer to install a copy run from elsewhere, the legacy login
// keys and the "ShowWindowAfterStart" argument. The controller does the rest.
class RunAtLoginManager;

class QBAppDelegate : public QObject
{
    Q_OBJECT
public:
    QBAppDelegate(QBPurgeController& controller, Settings& settings, NotificationCenter& center,
                  DistributedNotificationCenter& distributed, QObject* parent = nullptr);

    static QString appCopyHaveJustTriedToLaunchNotificatioName();
    static QString bundleIdentifier();

    QBPurgeController& purgeController() { return m_purgeController; }

    // What a second copy does before it quits: tell the first one to show its panel.
    static void notifyRunningCopy(DistributedNotificationCenter& distributed);

    // Observes second copies and runs the rest of the launch; arguments as the process got them.
    void applicationDidFinishLaunching(const QStringList& arguments);
    void appCopyHaveJustTriedToLaunch();

    // Move to Applications: whether the binary runs from outside the installed places, and the copy.
    static bool isInstalledLocation(const QString& binaryPath, const QString& home);
    struct CopyResult
    {
        bool copied = false;
        QString destination;
        QString error;
    };
    // Copies the binary into binDir with its desktop entry and icon under dataDir.
    static CopyResult installCopy(const QString& binaryPath, const QString& binDir, const QString& dataDir);
    bool copyAppToApplications(QString* destination);

    // The preferences' "Launch at system startup": a failure is shown in an alert.
    void toggleLaunchAtStartup(bool enabled) { setIsEnabledForHelperApp(enabled); }
    void setIsEnabledForHelperApp(bool enabled);
    void setLoginManager(RunAtLoginManager* manager) { m_loginManager = manager; }
    RunAtLoginManager& loginManager();

    // Runs before an installed copy is started, so the copy can become the running one.
    void setBeforeHandOver(std::function<void()> fn) { m_beforeHandOver = std::move(fn); }

private:
    QBPurgeController& m_purgeController;
    Settings& m_settings;
    NotificationCenter& m_center;
    DistributedNotificationCenter& m_distributed;
    std::function<void()> m_beforeHandOver;
    RunAtLoginManager* m_loginManager = nullptr;
};
