#include "RunAtLoginManager.h"

#include "core/DistributedNotificationCenter.h"
#include "core/Settings.h"
#include "core/UserDefaults.h"
#include "util/DesktopEntry.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace {

const QString kMainBundleIdentifier = QStringLiteral("com.quorbel.trovix");
const QString kLegacyEntry = QStringLiteral("com.quorbel.trovix.desktop");

bool isDisabled(const QString& path)
{
    return DesktopEntry::read(path).value(QStringLiteral("Hidden")).compare(QLatin1String("true"), Qt::CaseInsensitive) == 0;
}

bool sameFile(const QString& a, const QString& b)
{
    const QString ca = QFileInfo(a).canonicalFilePath();
    return !ca.isEmpty() && ca == QFileInfo(b).canonicalFilePath();
}

} // namespace

RunAtLoginManager::Places RunAtLoginManager::Places::current()
{
    QStringList system = qEnvironmentVariable("XDG_CONFIG_DIRS").split(QLatin1Char(':'), Qt::SkipEmptyParts);
    if (system.isEmpty())
        system = {QStringLiteral("/etc/xdg")};
    const QString binary = QCoreApplication::applicationFilePath();
    return {QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation), system, binary,
            QFileInfo(binary).absolutePath() + QStringLiteral("/trovix-launcher")};
}

RunAtLoginManager::RunAtLoginManager(Places places, DistributedNotificationCenter& distributed, RunningCheck isRunning)
    : m_places(std::move(places)), m_distributed(distributed), m_isRunning(std::move(isRunning))
{
}

namespace {

bool ownsBusName(const QString& name)
{
    QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
    return bus && bus->isServiceRegistered(name).value();
}

} // namespace

RunAtLoginManager& RunAtLoginManager::shared()
{
    static RunAtLoginManager manager(Places::current(), DistributedNotificationCenter::defaultCenter(), ownsBusName);
    return manager;
}

TrovixProjectRunAtLoginManager& TrovixProjectRunAtLoginManager::shared()
{
    static TrovixProjectRunAtLoginManager manager(Places::current(), DistributedNotificationCenter::defaultCenter(),
                                                  ownsBusName);
    return manager;
}

QString RunAtLoginManager::autostartFolder() const
{
    return m_places.configHome + QStringLiteral("/autostart");
}

QStringList RunAtLoginManager::activeEntries() const
{
    QMap<QString, QString> byName;
    QStringList folders;
    for (const QString& dir : m_places.systemConfigDirs)
        folders.prepend(dir + QStringLiteral("/autostart")); // earlier system folders win over later ones
    folders.append(autostartFolder());
    for (const QString& folder : std::as_const(folders)) {
        const QStringList names = QDir(folder).entryList({QStringLiteral("*.desktop")}, QDir::Files, QDir::Name);
        for (const QString& name : names)
            byName.insert(name, folder + QLatin1Char('/') + name);
    }
    QStringList active;
    for (const QString& path : std::as_const(byName)) {
        if (!isDisabled(path))
            active.append(path);
    }
    return active;
}

bool RunAtLoginManager::writeEntry(const QString& fileName, const QString& program, const QString& comment) const
{
    if (!QDir().mkpath(autostartFolder()))
        return false;
    QSaveFile file(autostartFolder() + QLatin1Char('/') + fileName);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    const QString text = QStringLiteral("[Desktop Entry]\nType=Application\nName=Trovix\nComment=%1\nExec=%2\n"
                                        "Icon=com.quorbel.trovix\nNoDisplay=true\nX-GNOME-Autostart-enabled=true\n")
                             .arg(comment, DesktopEntry::execQuoted(program));
    file.write(text.toUtf8());
    return file.commit();
}

// A system entry of that name stays in effect unless the user's own entry hides it.
bool RunAtLoginManager::removeEntry(const QString& fileName) const
{
    const QString path = autostartFolder() + QLatin1Char('/') + fileName;
    if (QFileInfo::exists(path) && !QFile::remove(path))
        return false;
    for (const QString& dir : m_places.systemConfigDirs) {
        if (QFileInfo::exists(dir + QStringLiteral("/autostart/") + fileName)) {
            QSaveFile file(path);
            if (!QDir().mkpath(autostartFolder()) || !file.open(QIODevice::WriteOnly))
                return false;
            file.write("[Desktop Entry]\nType=Application\nName=Trovix\nHidden=true\n");
            return file.commit();
        }
    }
    return true;
}

std::optional<QString> RunAtLoginManager::itemRefInLoginItems() const
{
    std::optional<QString> found;
    for (const QString& path : activeEntries()) {
        const QString program = LoginItem::jobFromAutostartEntry(path).value(QStringLiteral("Program")).toString();
        if (!program.isEmpty() && sameFile(program, m_places.mainBinary))
            found = path;
    }
    return found;
}

bool RunAtLoginManager::isLaunchAtStartup() const
{
    return itemRefInLoginItems().has_value();
}

void RunAtLoginManager::addAppToStartup()
{
    (void)writeEntry(kLegacyEntry, m_places.mainBinary, QStringLiteral("Starts Trovix at login"));
}

void RunAtLoginManager::toggleLaunchAtLoginValue_WithoutHelperApp()
{
    if (const auto entry = itemRefInLoginItems())
        (void)removeEntry(QFileInfo(*entry).fileName());
    else
        addAppToStartup();
}

void RunAtLoginManager::setIsEnabled(bool enabled, const QString& bundleIdentifier,
                                     const std::function<void()>& failedBlock)
{
    const QString fileName = bundleIdentifier + QStringLiteral(".desktop");
    bool done = false;
    if (!enabled)
        done = removeEntry(fileName);
    else if (bundleIdentifier == launcherAppBundleIdentifier() && QFileInfo(m_places.launcherBinary).isExecutable())
        done = writeEntry(fileName, m_places.launcherBinary, QStringLiteral("Starts Trovix at login"));
    if (!done && failedBlock)
        failedBlock();
}

void RunAtLoginManager::setIsEnabledForHelperApp(bool enabled, const std::function<void()>& failedBlock)
{
    setIsEnabled(enabled, launcherAppBundleIdentifier(), failedBlock);
}

QList<LoginItem> RunAtLoginManager::loadSandboxedLoginItems() const
{
    QList<LoginItem> items;
    for (const QString& path : activeEntries()) {
        const QVariantMap job = LoginItem::jobFromAutostartEntry(path);
        if (job.isEmpty() || job.value(QStringLiteral("Label")).toString().startsWith(QLatin1String("com.apple.")))
            continue;
        if (LoginItem::jobIsSandboxed(job))
            items.append(LoginItem::itemFromServiceManagementDictionary(job));
    }
    return items;
}

bool RunAtLoginManager::isAppWithBundleIdentifierEnabledForAutolaunch(const QString& bundleIdentifier) const
{
    const QList<LoginItem> items = loadSandboxedLoginItems();
    return std::any_of(items.begin(), items.end(),
                       [&](const LoginItem& item) { return item.bundleIdentifier() == bundleIdentifier; });
}

bool RunAtLoginManager::isEnabledToAutoLaunchWithHelperApp() const
{
    return isAppWithBundleIdentifierEnabledForAutolaunch(launcherAppBundleIdentifier());
}

bool RunAtLoginManager::checkWasAutolaunchedWithHelperApp(bool autoTerminateHelper)
{
    const bool found = m_isRunning && m_isRunning(launcherAppBundleIdentifier());
    m_wasAutolaunchedWithHelperApp = found;
    if (autoTerminateHelper && found)
        m_distributed.post(QStringLiteral("TERMINATEHELPER"), kMainBundleIdentifier);
    return found;
}

bool RunAtLoginManager::wasSomehowAutolaunched()
{
    return isLaunchAtStartup() || m_wasAutolaunchedWithHelperApp || checkWasAutolaunchedWithHelperApp(false);
}

void migrateLegacyLoginItem(RunAtLoginManager& manager, UserDefaults& defaults)
{
    if (!defaults.contains(SettingsKey::AutoStartToggledByUser) && !defaults.contains(SettingsKey::AutoStart) &&
        manager.isLaunchAtStartup()) {
        manager.toggleLaunchAtLoginValue_WithoutHelperApp();
        manager.setIsEnabledForHelperApp(true, {});
    }
    for (const QString& key : {SettingsKey::AutoStartToggledByUser, SettingsKey::AutoStart}) {
        if (defaults.contains(key))
            defaults.removeObjectForKey(key);
    }
}
