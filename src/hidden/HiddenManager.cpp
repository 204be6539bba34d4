#include "HiddenManager.h"

#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "hidden/DiskAccessRestoreManager.h"
#include "hidden/HiddenManagerAlerts.h"
#include "hidden/Preferences.h"
#include "hidden/ScriptsManager.h"
#include "platform/FileManagers.h"
#include "util/MacOSVersion.h"
#include "util/MainQueue.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QProcess>
#include <QStandardPaths>

#include <csignal>
#include <unistd.h>

namespace {

Q_LOGGING_CATEGORY(lcHidden, "trovix.hidden")

const QString kRateCounterKey = QStringLiteral("RatePreferences::numberOfSuccessFullVisibilitySwitchings");
constexpr int kRelaunchPollMs = 100;
constexpr int kRelaunchTries = 100;

// The check script replies with the names of a folder as the file manager lists it. The reply's
// positions are 1-based: position 0 yields nothing and the last name is never looked at, so a hidden
// name proves the display only when it is not the last one.
bool replyShowsHiddenItems(const QStringList& reply)
{
    for (qsizetype position = 0; position < reply.size(); ++position) {
        if (position == 0)
            continue;
        if (reply.at(position - 1).startsWith(QLatin1Char('.')))
            return true;
    }
    return false;
}

std::vector<qint64> processIdsOf(const QString& executableName)
{
    std::vector<qint64> pids;
    const uint uid = ::getuid();
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString& entry : entries) {
        bool ok = false;
        const qint64 pid = entry.toLongLong(&ok);
        if (!ok || QFileInfo(QStringLiteral("/proc/") + entry).ownerId() != uid)
            continue;
        QFile comm(QStringLiteral("/proc/%1/comm").arg(entry));
        if (comm.open(QIODevice::ReadOnly) && QString::fromUtf8(comm.readAll()).trimmed() == executableName)
            pids.push_back(pid);
    }
    return pids;
}

QStringList commandLineOf(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/cmdline").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList args;
    for (const QByteArray& part : file.readAll().split('\0')) {
        if (!part.isEmpty())
            args << QString::fromLocal8Bit(part);
    }
    return args;
}

} // namespace

HiddenManager::HiddenManager(Collaborators c, QObject* parent)
    : QObject(parent)
    , m_settings(c.settings ? *c.settings : Settings::shared())
    , m_center(c.center ? *c.center : NotificationCenter::defaultCenter())
    , m_runner(c.runner ? *c.runner : static_cast<ScriptRunner&>(ScriptsManager::sharedManager()))
    , m_version(c.version ? *c.version : MacOSVersion::GetInstance())
    , m_clock(c.clock ? *c.clock : Clock::system())
    , m_preferences(c.preferences ? *c.preferences : Preferences::shared())
    , m_diskAccess(c.diskAccess ? *c.diskAccess : DiskAccessRestoreManager::sharedManager())
    , m_assertionHandler(std::move(c.assertionHandler))
{
    m_isUpdating = false;
    m_doScriptsPlacedIntoTheSystemScriptsFolder = areAllNeededScripsPlacedIntoTheScriptsFolder();
    // The windowed program's activations; the core links no GUI module, so the signal is found by name.
    if (QCoreApplication* app = QCoreApplication::instance();
        app && app->metaObject()->indexOfSignal("applicationStateChanged(Qt::ApplicationState)") >= 0) {
        connect(app, SIGNAL(applicationStateChanged(Qt::ApplicationState)), this,
                SLOT(onApplicationStateChanged(Qt::ApplicationState)));
    }
    m_needsLoadVisibilityState = true;
    m_stateLoadingCompletionBlocksArray.reserve(2);
    m_scriptType =
        m_version.is_10_13_orHigher() ? HiddenManagerScriptTypeSingleSwitch : HiddenManagerScriptTypeRelaunchFinder;
}

HiddenManager::~HiddenManager()
{
    m_trackingCall.cancel();
}

HiddenManager& HiddenManager::sharedManager()
{
    // Never destroyed: script completions may still arrive while the program quits.
    static HiddenManager* manager = new HiddenManager(Collaborators{});
    return *manager;
}

QString HiddenManager::stateUpdateNotificationName()
{
    return QStringLiteral("HiddenManager stateUpdateNotificationName");
}

QString HiddenManager::doScriptsPlacedIntoTheSystemScriptsFolderValueChangedNotificationName()
{
    return QStringLiteral("HiddenManager doScriptsPlacedIntoTheSystemScriptsFolder");
}

QString HiddenManager::showHiddenStatusChangedNotificationName()
{
    return QStringLiteral("showHiddenStatusChangedNotification");
}

void HiddenManager::setAlerts(HiddenManagerAlerts* alerts, QObject* guard)
{
    m_alerts = alerts;
    m_alertsGuard = guard;
}

void HiddenManager::setListener(HiddenManagerListener* listener, QObject* listenerObject)
{
    m_listener = listener;
    m_listenerObject = listenerObject;
}

HiddenManagerListener* HiddenManager::listener() const
{
    return m_listenerObject ? m_listener : nullptr;
}

void HiddenManager::assertionFailure(const QString& text) const
{
    if (m_assertionHandler)
        m_assertionHandler(text);
    else
        qCCritical(lcHidden, "%s", qPrintable(text));
}

void HiddenManager::onApplicationStateChanged(Qt::ApplicationState state)
{
    if (state == Qt::ApplicationActive)
        applicationDidBecomeActiveAction();
}

// ---- state ----

void HiddenManager::setCachedIsHiddenShownValue(bool value)
{
    if (value == m_cachedIsHiddenShownValue)
        return;
    m_cachedIsHiddenShownValue = value;
    // The file-manager extensions read this value.
    m_settings.shfGroup().saveBoolValue(value, SettingsKey::AreHiddenFilesVisible);
    m_settings.shfGroup().synchronize();
    if (!m_isUpdating)
        m_center.post(stateUpdateNotificationName(), this);
}

void HiddenManager::setIsUpdating(bool value)
{
    if (value == m_isUpdating)
        return;
    m_isUpdating = value;
    m_center.post(stateUpdateNotificationName(), this);
}

// ---- polling ----

void HiddenManager::startTrackingSystemValue()
{
    if (!m_trackingCall.isPending())
        scheduleTick();
}

void HiddenManager::stopTrackingSystemValue()
{
    m_trackingCall.cancel();
    m_trackingCall = {};
}

void HiddenManager::scheduleTick()
{
    m_trackingCall = m_clock.callAfter(kPollIntervalMs, this, [this] {
        scheduleTick();
        tick();
    });
}

void HiddenManager::tick()
{
    if (m_isUpdating)
        return;
    if (m_needsLoadVisibilityState) {
        loadVisibilityState();
        m_needsLoadVisibilityState = false;
    }
    if (needToCheckScriptsExistance())
        checkDoScriptsPlacedIntoTheSystemScriptsFolder();
}

// ---- loading ----

void HiddenManager::finishLoading(bool success, bool value)
{
    MainQueue::async(this, [this, success, value] {
        m_lastLoadSucceeded = success;
        if (success)
            setCachedIsHiddenShownValue(value);
        setIsUpdating(false);
        // Blocks added while these run wait for the next load.
        std::vector<LoadCompletion> blocks;
        blocks.swap(m_stateLoadingCompletionBlocksArray);
        m_stateLoadingCompletionBlocksArray.reserve(2);
        for (const LoadCompletion& block : blocks) {
            if (block)
                block();
        }
    });
}

void HiddenManager::loadVisibilityState()
{
    setIsUpdating(true);
    if (!m_settings.shouldCheckHiddenFilesVisibility()) {
        finishLoading(false, false);
        return;
    }
    QPointer<HiddenManager> self(this);
    m_runner.executeAppleScript(
        kCheckScript, [self](const QStringList& reply, const std::optional<ScriptError>& error) {
            if (!self)
                return;
            if (error) {
                // One line per distinct failure: a machine without any backend fails the same way each time.
                const QString text = error->localizedDescription();
                if (text != self->m_lastLoadError)
                    qCWarning(lcHidden, "cannot read the hidden-files state: %s", qPrintable(text));
                self->m_lastLoadError = text;
                self->finishLoading(false, false);
                return;
            }
            self->m_lastLoadError.clear();
            self->finishLoading(true, replyShowsHiddenItems(reply));
        });
}

void HiddenManager::loadVisibilityWithCompletion(LoadCompletion completion)
{
    m_stateLoadingCompletionBlocksArray.push_back(std::move(completion));
    loadVisibilityState();
}

// ---- switching ----

void HiddenManager::switchHiddenFilesVisibility()
{
    switchHiddenFilesVisibilityWithCompletion([](const std::optional<ScriptError>&) {});
}

void HiddenManager::tellListener()
{
    if (HiddenManagerListener* l = listener())
        l->hiddenManagerAttemptToChangeVisibilityCompleted(this);
}

void HiddenManager::switchHiddenFilesVisibilityWithCompletion(SwitchCompletion completion)
{
    if (m_isUpdating)
        return;
    const bool oldValue = isHiddenShown();
    const bool newValue = !oldValue;
    setCachedIsHiddenShownValue(newValue);
    m_center.post(showHiddenStatusChangedNotificationName());

    QPointer<HiddenManager> self(this);
    auto done = [self, oldValue, completion](const std::optional<ScriptError>& error) {
        if (!self)
            return;
        // Every failed switch leaves one line in the log: the script's own, naming the setting and why.
        if (error)
            qCWarning(lcHidden, "%s", qPrintable(error->localizedDescription()));
        if (self->m_version.is_10_14_orHigher()) {
            if (error) {
                self->setCachedIsHiddenShownValue(oldValue);
                self->displayInformationAboutAccessError(*error);
            } else {
                self->m_settings.setShouldCheckHiddenFilesVisibility(true);
                self->setNeedsLoadVisibilityState();
            }
        }
        if (!error) {
            UserDefaults& defaults = self->m_settings.defaults();
            defaults.setObject(defaults.integerForKey(kRateCounterKey) + 1, kRateCounterKey);
        }
        if (completion) {
            self->tellListener();
            completion(error);
        }
    };

    if (m_settings.shouldShowInformationAboutAccessibilityAlerts()) {
        displayInformationAboutAccessibilityAlertsWithCompletion([self, oldValue, newValue, completion](bool accepted) {
            if (!self)
                return;
            self->setCachedIsHiddenShownValue(oldValue);
            if (completion) {
                self->tellListener();
                completion(std::nullopt);
            }
            if (accepted) {
                self->m_settings.setShouldShowInformationAboutAccessibilityAlerts(false);
                self->m_settings.setShouldCheckHiddenFilesVisibility(true);
                // Reading the state first is what makes the system ask its own questions; the switch
                // follows only when the display still differs from the wish.
                self->loadVisibilityWithCompletion([self, newValue] {
                    if (self && self->isHiddenShown() != newValue)
                        self->switchHiddenFilesVisibilityWithCompletion(nullptr);
                });
            }
        });
        return;
    }

    QString name = kSwitchScript;
    if (m_scriptType == HiddenManagerScriptTypeRelaunchFinder)
        name = oldValue ? kHideAndRelaunchScript : kShowAndRelaunchScript;
    executeAppleScriptForSwitchingVisibility(name, std::move(done));
}

void HiddenManager::executeAppleScriptForSwitchingVisibility(const QString& name, SwitchCompletion done)
{
    setIsUpdating(true);
    QPointer<HiddenManager> self(this);
    m_runner.executeAppleScript(name, [self, done](const QStringList&, const std::optional<ScriptError>& error) {
        if (!self)
            return;
        self->m_needsLoadVisibilityState = true;
        MainQueue::async(self.data(), [self, done, error] {
            done(error);
            if (self)
                self->setIsUpdating(false);
        });
    });
}

void HiddenManager::setShowHidden(bool shown, SwitchCompletion completion)
{
    QPointer<HiddenManager> self(this);
    m_stateLoadingCompletionBlocksArray.push_back([self, shown, kept = std::move(completion)] {
        (void)kept;
        if (self && shown != self->isHiddenShown())
            self->switchHiddenFilesVisibility();
    });
    m_needsLoadVisibilityState = true;
}

// ---- sheets ----

void HiddenManager::displayInformationAboutAccessibilityAlertsWithCompletion(std::function<void(bool)> completion)
{
    if (m_alerts && m_alertsGuard)
        m_alerts->displayInformationAboutAccessibilityAlertsWithCompletion(std::move(completion));
}

void HiddenManager::displayInformationAboutAccessError(const ScriptError& error)
{
    if (m_alerts && m_alertsGuard)
        m_alerts->displayInformationAboutAccessError(error);
}

// ---- script types and presence ----

void HiddenManager::setScriptType(int type)
{
    if (type == HiddenManagerScriptTypeSingleSwitch && !m_version.is_10_13_orHigher()) {
        assertionFailure(QStringLiteral("Such scripts are not supported for 10.12 and earlier"));
        m_scriptType = HiddenManagerScriptTypeRelaunchFinder;
        return;
    }
    m_scriptType = type;
}

QStringList HiddenManager::scriptsNamesArray() const
{
    if (m_scriptType == HiddenManagerScriptTypeRelaunchFinder)
        return {kShowAndRelaunchScript, kHideAndRelaunchScript, kCheckScript};
    return {kSwitchScript, kCheckScript};
}

bool HiddenManager::areAllNeededScripsPlacedIntoTheScriptsFolder() const
{
    for (const QString& name : scriptsNamesArray()) {
        if (!m_runner.doesScriptWithNameExistInScriptsFolder(name))
            return false;
    }
    return true;
}

bool HiddenManager::areAllNeededScripsExistsInBundleOrScriptsFolder() const
{
    for (const QString& name : scriptsNamesArray()) {
        if (!m_runner.doesScriptWithNameExistInScriptsFolder(name) && !m_runner.doesScriptWithNameExistInBundle(name))
            return false;
    }
    return true;
}

bool HiddenManager::canLaunchAllScripts() const
{
    if (!m_diskAccess.isUserFolderAccessible())
        return false;
    return areAllNeededScripsExistsInBundleOrScriptsFolder();
}

void HiddenManager::checkDoScriptsPlacedIntoTheSystemScriptsFolder()
{
    setDoScriptsPlacedIntoTheSystemScriptsFolder(areAllNeededScripsPlacedIntoTheScriptsFolder());
}

void HiddenManager::setDoScriptsPlacedIntoTheSystemScriptsFolder(bool value)
{
    if (value == m_doScriptsPlacedIntoTheSystemScriptsFolder)
        return;
    m_doScriptsPlacedIntoTheSystemScriptsFolder = value;
    m_center.post(doScriptsPlacedIntoTheSystemScriptsFolderValueChangedNotificationName());
}

bool HiddenManager::doScriptsPlacedIntoTheSystemScriptsFolder() const
{
    if (!needToCheckScriptsExistance())
        return areAllNeededScripsPlacedIntoTheScriptsFolder();
    return m_doScriptsPlacedIntoTheSystemScriptsFolder;
}

// ---- preferences proxy ----

bool HiddenManager::forceSwitchHiddenFilesVisibilityEnableSwitcher() const
{
    return m_version.is_10_13_orHigher();
}

int HiddenManager::forceSwitchHiddenFilesVisibilitySwitcherState() const
{
    if (m_scriptType == HiddenManagerScriptTypeRelaunchFinder)
        return 1;
    if (m_scriptType != HiddenManagerScriptTypeSingleSwitch)
        assertionFailure(QStringLiteral("Invalid parameter not satisfying: %1")
                             .arg(QStringLiteral("self.scriptType == HiddenManagerScriptTypeSingleSwitch")));
    return 0;
}

void HiddenManager::applySwitcherStateForForceSwitchHiddenFilesVisibility(int state)
{
    switch (state) {
    case 0:
        m_preferences.setSwitchHiddenFilesVisibilityOption(SwitchHiddenFilesVisibilityOption::singleSwitch);
        setScriptType(HiddenManagerScriptTypeSingleSwitch);
        break;
    case 1:
        setScriptType(HiddenManagerScriptTypeRelaunchFinder);
        m_preferences.setSwitchHiddenFilesVisibilityOption(SwitchHiddenFilesVisibilityOption::relaunchFinder);
        break;
    default:
        assertionFailure(QStringLiteral("Invalid parameter not satisfying: %1").arg(QStringLiteral("NO")));
        setScriptType(HiddenManagerScriptTypeSingleSwitch);
        break;
    }
}

void HiddenManager::applyStoredValue()
{
    switch (m_preferences.switchHiddenFilesVisibilityOption()) {
    case SwitchHiddenFilesVisibilityOption::systemDefault:
        break;
    case SwitchHiddenFilesVisibilityOption::singleSwitch:
        setScriptType(HiddenManagerScriptTypeSingleSwitch);
        break;
    case SwitchHiddenFilesVisibilityOption::relaunchFinder:
        setScriptType(HiddenManagerScriptTypeRelaunchFinder);
        break;
    default:
        assertionFailure(QStringLiteral("Got an unexpected value"));
        break;
    }
}

// ---- the file manager itself ----

void HiddenManager::relaunchFinder()
{
    if (m_finderApplication)
        return;
    const auto fm = FileManagers::detectPrimary();
    if (!fm)
        return;
    const std::vector<qint64> pids = processIdsOf(fm->id);
    if (pids.empty())
        return;
    const qint64 pid = pids.front();
    QStringList commandLine = commandLineOf(pid);
    if (commandLine.isEmpty())
        commandLine = {fm->id};
    m_finderApplication = pid;
    // Dolphin has no quit option; the others end their running instance with -q.
    if (fm->id == QLatin1String("dolphin") || !QProcess::startDetached(fm->id, {QStringLiteral("-q")}))
        ::kill(static_cast<pid_t>(pid), SIGTERM);
    relaunchWhenEnded(pid, commandLine, kRelaunchTries);
}

void HiddenManager::relaunchWhenEnded(qint64 pid, QStringList commandLine, int triesLeft)
{
    m_clock.callAfter(kRelaunchPollMs, this, [this, pid, commandLine, triesLeft] {
        if (QFileInfo::exists(QStringLiteral("/proc/%1").arg(pid))) {
            if (triesLeft > 0) {
                relaunchWhenEnded(pid, commandLine, triesLeft - 1);
            } else {
                qCWarning(lcHidden, "the file manager did not quit; it is not started again");
                m_finderApplication.reset();
            }
            return;
        }
        QProcess::startDetached(commandLine.constFirst(), commandLine.mid(1));
        m_finderApplication.reset();
    });
}

void HiddenManager::ShowHiddenDel()
{
    QFile script(QStringLiteral(":/scripts/AttachedScript.sh"));
    if (!script.open(QIODevice::ReadOnly))
        return;
    // Fed on standard input, the script has no folder of its own and looks for its library in the
    // Scripts folder.
    if (m_runner.installBackendsLibrary())
        return;
    QProcess process;
    process.setProgram(QStringLiteral("/bin/sh"));
    process.setArguments({QStringLiteral("-s")});
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start();
    if (!process.waitForStarted())
        return;
    process.write(script.readAll());
    process.closeWriteChannel();
    if (!process.waitForFinished(30000))
        process.kill();
    process.waitForFinished();
}

QString HiddenManager::GetPrefPath()
{
    if (!m_prefPath.isEmpty())
        return m_prefPath;
    const auto fm = FileManagers::detectPrimary();
    if (!fm)
        return QString();
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    QString path;
    if (fm->id == QLatin1String("thunar")) {
        path = config + QStringLiteral("/xfce4/xfconf/xfce-perchannel-xml/thunar.xml");
    } else if (fm->id == QLatin1String("dolphin")) {
        path = data + QStringLiteral("/dolphin/view_properties/global/.directory");
    } else if (qEnvironmentVariable("GSETTINGS_BACKEND") == QLatin1String("keyfile")) {
        path = config + QStringLiteral("/glib-2.0/settings/keyfile");
    } else {
        path = config + QStringLiteral("/dconf/user");
    }
    if (!QFileInfo::exists(path))
        return QString();
    m_prefPath = path;
    return path;
}
