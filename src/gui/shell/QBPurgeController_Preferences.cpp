// Preferences side of the controller: the preferences window (filled from the controller's state and
// the subsystems that own each switch), the gear menu that opens it, and the reset of all settings.
#include "QBPurgeController.h"

#include "PanelWindow.h"
#include "QBAppDelegate.h"
#include "core/Settings.h"
#include "gui/preferences/PreferencesWindow.h"
#include "hidden/FinderIntegration.h"
#include "hidden/HiddenManager.h"
#include "login/RunAtLoginManager.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QCursor>
#include <QGuiApplication>
#include <QMenu>
#include <QScreen>
#include <QSlider>

#include <algorithm>

namespace {

RunAtLoginManager& loginManagerOf(QBAppDelegate* delegate)
{
    return delegate ? delegate->loginManager() : TrovixProjectRunAtLoginManager::shared();
}

} // namespace

void QBPurgeController::setAppDelegate(QBAppDelegate* delegate)
{
    m_appDelegate = delegate;
}

PreferencesWindow* QBPurgeController::preferencesWindow() const
{
    return m_wndPreferences;
}

void QBPurgeController::createPreferencesWindow()
{
    auto* window = new PreferencesWindow;
    m_wndPreferences = window;
    connect(window, &PreferencesWindow::launchAtStartupClicked, this, [this](bool on) { toggleLaunchAtStartup(on); });
    connect(window, &PreferencesWindow::finderIntegrationClicked, this,
            [this](bool on) { toggleFinderIntegration(on ? 1 : 0); });
    connect(window, &PreferencesWindow::forceSwitchHiddenVisibilityClicked, this,
            [this](bool on) { toggleForceSwitchHiddenVisibility(on ? 1 : 0); });
    connect(window, &PreferencesWindow::showInfoClicked, this, [this](bool on) { onPrefShowInfo(on); });
    connect(window, &PreferencesWindow::purgeAfterHugeApplicationQuitClicked, this,
            [this](bool on) { onPrefPurgeAfterHugeApplicationQuit(on); });
    connect(window, &PreferencesWindow::autoFreeClicked, this, [this](bool on) { onPrefAutoFree(on); });
    connect(window, &PreferencesWindow::memoryUsageChanged, this, [this](double f) { onPrefMemUsage(f); });
    connect(window, &PreferencesWindow::frequencyChosen, this, [this](int index) { onPrefFreq(index); });
    connect(window, &PreferencesWindow::visionChosen, this, [this](int index) { prefVisionComboBoxPressed(index); });

    // First shown in the middle of the screen the user is working on.
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (screen)
        window->move(screen->availableGeometry().center() - window->rect().center());
}

// Filled afresh on every opening, in a fixed order: the file-manager entries (asked of the plug-in
// tool), the switching method, start at login, then the controller's own free-up state.
void QBPurgeController::onPreferences()
{
    if (!m_wndPreferences)
        createPreferencesWindow();
    PreferencesWindow& w = *m_wndPreferences;

    QCheckBox* integration = w.enableFinderIntegrationButton();
    integration->setVisible(true);
    FinderIntegration* tool = finderIntegrationTool();
    integration->setEnabled(tool != nullptr);
    if (tool)
        tool->getHinderIntegrationEnabledWithCompletion(
            [integration](bool enabled, const QString&) { integration->setChecked(enabled); });

    const HiddenManager& hidden = m_hiddenManager ? *m_hiddenManager : HiddenManager::sharedManager();
    w.enableForceSwitchHiddenVisibilityButton()->setChecked(hidden.forceSwitchHiddenFilesVisibilitySwitcherState() ==
                                                            1);
    w.enableForceSwitchHiddenVisibilityButton()->setEnabled(hidden.forceSwitchHiddenFilesVisibilityEnableSwitcher());

    w.btnPrefAutoStart()->setChecked(loginManagerOf(m_appDelegate).isEnabledToAutoLaunchWithHelperApp());
    w.btnPrefAutoStart()->setText(
        PreferencesWindowStrings::launchAtSystemStartup(QGuiApplication::applicationDisplayName()));

    integration->setText(PreferencesWindowStrings::enableFinderIntegration());

    w.btnPrefPurgeAfterHugeAppQuit()->setChecked(m_bPrefPurgeAfterHugeAppQuit);
    w.btnPrefShowInfo()->setChecked(m_bShowInfo);
    w.btnPrefAutoFree()->setChecked(m_bAutoFree);
    w.setMemoryUsageFraction(m_dUsageLimit);
    w.pupPrefFreq()->setCurrentIndex(std::clamp(m_nFreq, 0, w.pupPrefFreq()->count() - 1));
    w.sldPrefMemUsage()->setEnabled(m_bAutoFree);
    w.pupPrefFreq()->setEnabled(m_bAutoFree);
    updatePrefDesc();
    w.visionComboBox()->setCurrentIndex(m_visionPrefIndex);

    if (w.isVisible())
        w.setWindowOpacity(1.0);
    w.show();
    w.raise();
    w.activateWindow();
}

void QBPurgeController::preferencesButtonPressed(const QPoint& globalPos)
{
    // Reset is for support cases: offered only when the menu is opened with Shift held.
    const bool reset = QGuiApplication::queryKeyboardModifiers().testFlag(Qt::ShiftModifier);
    m_pResetUserDefaultsMenuItem->setVisible(reset);
    m_pResetUserDefaultsMenuItemSeparator->setVisible(reset);
    m_theMenu->popup(globalPos);
}

void QBPurgeController::toggleLaunchAtStartup(bool on)
{
    if (m_appDelegate)
        m_appDelegate->toggleLaunchAtStartup(on);
    else
        loginManagerOf(nullptr).setIsEnabledForHelperApp(on, {});
    // After a failure (its alert has been answered) the box shows what is really in effect.
    if (m_wndPreferences)
        m_wndPreferences->btnPrefAutoStart()->setChecked(
            loginManagerOf(m_appDelegate).isEnabledToAutoLaunchWithHelperApp());
}

void QBPurgeController::prefVisionComboBoxPressed(int index)
{
    m_visionPrefIndex = index;
    m_settings.defaults().setObject(index, SettingsKey::VisionPrefIndex);
    m_settings.defaults().synchronize();
}

int QBPurgeController::getVisionPrefIndex() const
{
    const UserDefaults& d = m_settings.defaults();
    return d.contains(SettingsKey::VisionPrefIndex) ? static_cast<int>(d.integerForKey(SettingsKey::VisionPrefIndex))
                                                    : 1;
}

void QBPurgeController::resetUserDefaults()
{
    m_settings.defaults().removePersistentDomain();
    m_settings.defaults().synchronize();
    if (m_wndInfo)
        m_wndInfo->updateWindowFrameAndItems();
}
