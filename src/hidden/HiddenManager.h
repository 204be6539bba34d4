#pragma once

#include "hidden/ScriptRunner.h"
#include "util/Clock.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <optional>
#include <vector>

class DiskAccessRestoreManager;
class HiddenManager;
class HiddenManagerAlerts;
class MacOSVersion;
class NotificationCenter;
class Preferences;
class Settings;

// Told when a switch that was given a completion has ended, before that completion runs.
class HiddenManagerListener
{
public:
    virtual ~HiddenManagerListener() = default;
    virtual void hiddenManagerAttemptToChangeVisibilityCompleted(HiddenManager* manager) = 0;
};

// The one object that knows whether the file manager shows hidden files, and the one that switches
// that display. The state is asked of the file manager through the check script, cached, mirrored into
// the shared suite ("AreHiddenFilesVisibleKey") for the extensions, and announced by notification.
// Switching runs one of the switching scripts; the cached value flips at once and is undone when the
// script fails. Everything happens on the main thread; script completions are forwarded there.
class HiddenManager : public QObject
{
    Q_OBJECT
public:
    enum ScriptType : int
    {
        HiddenManagerScriptTypeSingleSwitch = 0,
        HiddenManagerScriptTypeRelaunchFinder = 1,
    };

    using LoadCompletion = std::function<void()>;
    // An empty function stands for "no completion".
    using SwitchCompletion = std::function<void(const std::optional<ScriptError>& error)>;
    using AssertionHandler = std::function<void(const QString& text)>;

    struct Collaborators
    {
        Settings* settings = nullptr;
        NotificationCenter* center = nullptr;
        ScriptRunner* runner = nullptr;
        const MacOSVersion* version = nullptr;
        Clock* clock = nullptr;
        Preferences* preferences = nullptr;
        DiskAccessRestoreManager* diskAccess = nullptr;
        // Argument faults; default: logged as critical messages.
        AssertionHandler assertionHandler;
    };

    static constexpr int kPollIntervalMs = 1000;
    static inline const QString kCheckScript = QStringLiteral("CheckHiddenFilesFisibilityByAskingFinder");
    static inline const QString kSwitchScript = QStringLiteral("SwitchHiddenFilesVisibility2");
    static inline const QString kShowAndRelaunchScript = QStringLiteral("ShowHiddensAndRelaunchFinder");
    static inline const QString kHideAndRelaunchScript = QStringLiteral("HideHiddensAndRelaunchFinder");

    // Null collaborators fall back to the process-wide instances.
    explicit HiddenManager(Collaborators collaborators, QObject* parent = nullptr);
    ~HiddenManager() override;

    static HiddenManager& sharedManager();

    static QString stateUpdateNotificationName();
    static QString doScriptsPlacedIntoTheSystemScriptsFolderValueChangedNotificationName();
    static QString showHiddenStatusChangedNotificationName();

    // The sheets of the windowed program; guard ends the registration when it is destroyed.
    void setAlerts(HiddenManagerAlerts* alerts, QObject* guard);
    // Held weakly through its QObject.
    void setListener(HiddenManagerListener* listener, QObject* listenerObject);
    HiddenManagerListener* listener() const;

    bool isHiddenShown() const { return m_cachedIsHiddenShownValue; }
    bool isHiddenShouldDisplay() const { return m_cachedIsHiddenShownValue; }
    void check() { (void)isHiddenShown(); }
    bool isUpdating() const { return m_isUpdating; }
    bool needsLoadVisibilityState() const { return m_needsLoadVisibilityState; }
    // Whether the last state load got an answer from the file manager (the command line reports it).
    bool lastLoadSucceeded() const { return m_lastLoadSucceeded; }
    // Why the last state load failed; empty after a success.
    QString lastLoadError() const { return m_lastLoadError; }

    void startTrackingSystemValue();
    void stopTrackingSystemValue();
    bool isTracking() const { return m_trackingCall.isPending(); }
    void setNeedsLoadVisibilityState() { m_needsLoadVisibilityState = true; }
    // Every activation of the program re-reads the state at the next poll.
    void applicationDidBecomeActiveAction() { m_needsLoadVisibilityState = true; }

    void loadVisibilityState();
    void loadVisibilityWithCompletion(LoadCompletion completion);

    void switchHiddenFilesVisibility();
    void switchHiddenFilesVisibilityWithCompletion(SwitchCompletion completion);
    // Brings the display to the wanted state after the next load. The completion is kept but never
    // called: callers must not wait for it.
    void setShowHidden(bool shown, SwitchCompletion completion);

    // Quits the primary file manager when it runs and starts it again once it has ended.
    void relaunchFinder();
    // Runs the shipped "AttachedScript" synchronously; its result is ignored.
    void ShowHiddenDel();
    // The primary file manager's settings file, when it exists.
    QString GetPrefPath();

    int scriptType() const { return m_scriptType; }
    void setScriptType(int type);
    QStringList scriptsNamesArray() const;
    bool areAllNeededScripsPlacedIntoTheScriptsFolder() const;
    bool areAllNeededScripsExistsInBundleOrScriptsFolder() const;
    bool canLaunchAllScripts() const;
    void checkDoScriptsPlacedIntoTheSystemScriptsFolder();
    bool doScriptsPlacedIntoTheSystemScriptsFolder() const;
    bool needToCheckScriptsExistance() const { return false; }
    bool isAllowedToWorkWithHiddenFiles() const { return true; }
    void launchSetUp() {}

    // The preferences window's force-switch checkbox.
    bool forceSwitchHiddenFilesVisibilityEnableSwitcher() const;
    int forceSwitchHiddenFilesVisibilitySwitcherState() const;
    void applySwitcherStateForForceSwitchHiddenFilesVisibility(int state);
    void applyStoredValue();

    // The sheets (through the registered alerts; nothing without them).
    void displayInformationAboutAccessibilityAlertsWithCompletion(std::function<void(bool)> completion);
    void displayInformationAboutAccessError(const ScriptError& error);

private Q_SLOTS:
    void onApplicationStateChanged(Qt::ApplicationState state);

private:
    void tick();
    void scheduleTick();
    void setCachedIsHiddenShownValue(bool value);
    void setIsUpdating(bool value);
    void setDoScriptsPlacedIntoTheSystemScriptsFolder(bool value);
    void executeAppleScriptForSwitchingVisibility(const QString& name, SwitchCompletion done);
    void finishLoading(bool success, bool value);
    void tellListener();
    void assertionFailure(const QString& text) const;
    void relaunchWhenEnded(qint64 pid, QStringList commandLine, int triesLeft);

    Settings& m_settings;
    NotificationCenter& m_center;
    ScriptRunner& m_runner;
    const MacOSVersion& m_version;
    Clock& m_clock;
    Preferences& m_preferences;
    DiskAccessRestoreManager& m_diskAccess;
    AssertionHandler m_assertionHandler;

    int m_scriptType = HiddenManagerScriptTypeSingleSwitch;
    bool m_doScriptsPlacedIntoTheSystemScriptsFolder = false;
    bool m_isUpdating = false;
    bool m_cachedIsHiddenShownValue = false;
    bool m_needsLoadVisibilityState = true;
    bool m_lastLoadSucceeded = false;
    QString m_lastLoadError;
    Clock::Handle m_trackingCall;
    std::optional<qint64> m_finderApplication;
    QString m_prefPath;
    HiddenManagerListener* m_listener = nullptr;
    QPointer<QObject> m_listenerObject;
    HiddenManagerAlerts* m_alerts = nullptr;
    QPointer<QObject> m_alertsGuard;
    std::vector<LoadCompletion> m_stateLoadingCompletionBlocksArray;
};
