// Hidden-files side of the controller: the tray icon and tooltip follow HiddenManager's state, the
// panel's switch and the extensions' requests switch it, and its permission sheets open on the panel.
#include "QBPurgeController.h"

#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "PanelWindow.h"
#include "gui/hidden/AccessAlerts.h"
#include "gui/preferences/PreferencesWindow.h"
#include "hidden/DiskAccessRestoreManager.h"
#include "hidden/FileVisibility.h"
#include "hidden/FinderIntegration.h"
#include "hidden/HiddenManager.h"
#include "hidden/ScriptsManager.h"
#include "hidden/VisibilityRestorerAtLaunch.h"

#include <QCheckBox>
#include <QGuiApplication>
#include <QSystemTrayIcon>

namespace {

HiddenManager& hiddenManagerOr(HiddenManager* manager)
{
    return manager ? *manager : HiddenManager::sharedManager();
}

ScriptsManager& scriptsManagerOr(ScriptsManager* manager)
{
    return manager ? *manager : ScriptsManager::sharedManager();
}

} // namespace

void QBPurgeController::startHiddenFilesTracking()
{
    HiddenManager& manager = hiddenManagerOr(m_hiddenManager);
    ScriptsManager& scripts = scriptsManagerOr(m_scriptsManager);

    if (!m_visibilityRestorerAtLaunch)
        m_visibilityRestorerAtLaunch = new VisibilityRestorerAtLaunch(manager, scripts, this);

    // A focus-taking script ends with the program brought back to front when it was there before.
    scripts.setApplicationActivation([] { return QGuiApplication::applicationState() == Qt::ApplicationActive; },
                                     [this] {
                                         if (m_wndInfo && m_wndInfo->isVisible()) {
                                             m_wndInfo->raise();
                                             m_wndInfo->activateWindow();
                                         }
                                     });

    // The permission sheets open on the panel, which is shown first when it is closed.
    auto* alerts = new AccessAlerts(AccessAlerts::Hooks{[this]() -> QWidget* {
                                                            if (!m_wndInfo)
                                                                return nullptr;
                                                            if (!m_wndInfo->isVisible())
                                                                m_wndInfo->processActionOfStatusItem(false);
                                                            return m_wndInfo;
                                                        },
                                                        {},
                                                        {}},
                                    this);
    manager.setAlerts(alerts, alerts);

    updateStatusIconWithImage(statusIcon(manager.isHiddenShown()));
    manager.startTrackingSystemValue();
    manager.applyStoredValue();

    // A tray program is "activated" when its panel takes the focus; the application state alone does
    // not change where no window manager moves the focus away.
    m_center.addObserver(
        PanelWindow::PanelWindowDidBecomeActiveNotification(), nullptr, this,
        [this](const Notification&) { hiddenManagerOr(m_hiddenManager).applicationDidBecomeActiveAction(); });
    m_center.addObserver(HiddenManager::showHiddenStatusChangedNotificationName(), nullptr, this,
                         [this](const Notification&) { prepareUpdateStatusIcon(); });
    m_center.addObserver(HiddenManager::stateUpdateNotificationName(), nullptr, this, [this](const Notification&) {
        updateStatusIcon_Trovix();
        if (m_wndInfo)
            m_wndInfo->updateIsHiddenShown();
    });
}

void QBPurgeController::switchVisibility()
{
    HiddenManager& manager = hiddenManagerOr(m_hiddenManager);
    // The answer does not matter: the scripts check their access themselves.
    (void)DiskAccessRestoreManager::sharedManager().isUserFolderAccessible();
    manager.switchHiddenFilesVisibility();
}

void QBPurgeController::callbackWithNotification(const QVariantMap& userInfo)
{
    hiddenManagerOr(m_hiddenManager).check();
    updateStatusIconWithImage(statusIcon(userInfo.value(QStringLiteral("KEY_showHiddenState")).toBool()));
}

// The file managers' entries are installed by this program's own plug-in tool (`trovix pluginkit`).
FinderIntegration* QBPurgeController::finderIntegrationTool()
{
    if (!m_manageExtensions)
        return nullptr;
    if (!m_finderIntegration) {
        QStringList command = m_pluginKitCommand;
        if (command.isEmpty())
            command = {QCoreApplication::applicationFilePath(), QStringLiteral("pluginkit")};
        m_finderIntegration =
            std::make_unique<FinderIntegration>(m_settings.defaults(), command.value(0), command.mid(1));
        m_finderIntegration->setCheckbox([this](int state) {
            if (m_wndPreferences)
                m_wndPreferences->enableFinderIntegrationButton()->setChecked(state == 1);
        });
    }
    return m_finderIntegration.get();
}

void QBPurgeController::finderIntegration()
{
    if (FinderIntegration* tool = finderIntegrationTool())
        tool->finderIntegration();
}

void QBPurgeController::toggleFinderIntegration(int state)
{
    if (FinderIntegration* tool = finderIntegrationTool())
        tool->toggleFinderIntegration(state);
}

FileVisibility QBPurgeController::fileVisibility()
{
    return FileVisibility(scriptsManagerOr(m_scriptsManager),
                          [] { return DiskAccessRestoreManager::sharedManager().isUserFolderAccessible(); });
}

void QBPurgeController::hideSelectedFilesNotificationHandler(const QString& object)
{
    fileVisibility().hideSelectedFiles(object);
}

void QBPurgeController::showSelectedFilesNotificationHandler(const QString& object)
{
    fileVisibility().showSelectedFiles(object);
}

void QBPurgeController::toggleForceSwitchHiddenVisibility(int state)
{
    hiddenManagerOr(m_hiddenManager).applySwitcherStateForForceSwitchHiddenFilesVisibility(state);
}

bool QBPurgeController::isHiddenShown() const
{
    return hiddenManagerOr(m_hiddenManager).isHiddenShown();
}

bool QBPurgeController::panelIsHiddenShown() const
{
    return isHiddenShown();
}

bool QBPurgeController::panelIsHiddenUpdating() const
{
    return hiddenManagerOr(m_hiddenManager).isUpdating();
}

void QBPurgeController::panelShowHiddenControlChanged()
{
    hiddenManagerOr(m_hiddenManager).switchHiddenFilesVisibility();
}

bool QBPurgeController::panelMightLoseFocusBecauseOfScript() const
{
    return scriptsManagerOr(m_scriptsManager).mightLoseFocusBecauseOfScript();
}

void QBPurgeController::prepareUpdateStatusIcon()
{
    updateStatusIconWithImage(statusIcon(hiddenManagerOr(m_hiddenManager).isHiddenShouldDisplay()));
}

void QBPurgeController::updateStatusIcon_Trovix()
{
    updateStatusIconWithImage(statusIcon(isHiddenShown()));
    if (m_statusItem)
        m_statusItem->setToolTip(statusToolTip());
}
