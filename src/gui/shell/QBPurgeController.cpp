#include "QBPurgeController.h"

#include "AboutWindow.h"
#include "Controls.h"
#include "core/DistributedNotificationCenter.h"
#include "core/NotificationCenter.h"
#include "PanelWindow.h"
#include "core/Settings.h"
#include "core/Texts.h"
#include "diskusage/FreeSpaceWarning.h"
#include "diskusage/SearcherManager.h"
#include "gui/preferences/PreferencesWindow.h"
#include "hidden/FinderIntegration.h"
#include "TrayHostWatcher.h"
#include "WelcomeDialog.h"
#include "util/MacOSVersion.h"

#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QDBusConnection>
#include <QEvent>
#include <QGuiApplication>
#include <QMenu>
#include <QPalette>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QTimer>

#include <cmath>

namespace {

const QString kBundleIdentifier = QStringLiteral("com.quorbel.trovix");

QString displayName()
{
    return QGuiApplication::applicationDisplayName();
}

} // namespace

QBPurgeController::QBPurgeController(Collaborators c, QObject* parent)
    : QObject(parent)
    , m_settings(c.settings ? *c.settings : Settings::shared())
    , m_center(c.center ? *c.center : NotificationCenter::defaultCenter())
    , m_distributed(c.distributed ? *c.distributed : DistributedNotificationCenter::defaultCenter())
    , m_clock(c.clock ? *c.clock : Clock::system())
    , m_version(c.version ? *c.version : MacOSVersion::GetInstance())
    , m_hiddenManager(c.hiddenManager)
    , m_scriptsManager(c.scriptsManager)
    , m_searchManager(c.searchManager)
    , m_memoryInfo(c.memoryInfo)
    , m_purgeManager(c.purgeManager)
    , m_useTray(c.useTray)
    , m_manageExtensions(c.manageExtensions)
    , m_pluginKitCommand(std::move(c.pluginKitCommand))
    , m_trayProbe(std::move(c.trayProbe))
    , m_searcherManager(c.searcherManager)
{
}

QBPurgeController::~QBPurgeController()
{
    m_center.removeObservers(this);
    m_distributed.removeObservers(this);
    m_checkMemoryCall.cancel();
    m_freeSpaceCall.cancel();
    // The panel's disk-usage view refers to the scans' coordinator, which goes after it.
    delete m_wndInfo;
    delete m_welcomeDialog;
    delete m_aboutWC;
    delete m_wndPreferences;
    delete m_theMenu;
}

QString QBPurgeController::ShowMainWindowAndMakeActiveNotificationName()
{
    return QStringLiteral("ShowMainWindowAndMakeActive");
}

QString QBPurgeController::TurnOnAutoStartAndAutoFreeNotificationName()
{
    return QStringLiteral("TurnOnAutoStartAndAutoFreeNotification");
}

void QBPurgeController::ShowMainWindowAndMakeActive(NotificationCenter& center)
{
    center.post(ShowMainWindowAndMakeActiveNotificationName());
}

void QBPurgeController::TurnOnAutoStartAndAutoFree(NotificationCenter& center)
{
    center.post(TurnOnAutoStartAndAutoFreeNotificationName());
}

void QBPurgeController::awakeFromNib()
{
    initValues();
    createStatusItem();
    createMenu();

    m_wndInfo = new PanelWindow(*this, m_settings, m_center, m_clock);
    connect(m_wndInfo, &PanelWindow::willClose, this, [this] { onPanelInfoClosed(); });
    setUpDiskUsage();

    // The icon follows the hidden-files state; this also starts its polling.
    startHiddenFilesTracking();
    registerObservers();

    m_checkMemoryCall = m_clock.callAfter(0, this, [this] { checkMemory(true); });

    m_wndInfo->updateWindowFrameAndItems();
    m_wndInfo->showWindowIfNotLocked();
    // No tray to click (yet): the panel is the program's only face, so it opens now as a window.
    if (!m_statusItem)
        m_wndInfo->openAsWindow();

    openWelcomeDialog();
    m_visionPrefIndex = getVisionPrefIndex();
    m_showNotificationAfterPurge = false;
    registerDistributedObservers();
    finderIntegration();
}

void QBPurgeController::initValues()
{
    m_bIsOSXMavericksOrHigher = m_version.is_10_9_orHigher();
    m_bUse64Statictics = m_bIsOSXMavericksOrHigher;
    UserDefaults& d = m_settings.defaults();
    // Automatic free-up is off after every launch, before anything reads it.
    d.setObject(false, SettingsKey::AutoFree);
    if (d.boolForKey(SettingsKey::Initialized)) {
        m_bPrefPurgeAfterHugeAppQuit = d.boolForKey(SettingsKey::PurgeAfterHugeAppQuit);
        m_bShowInfo = d.boolForKey(SettingsKey::ShowInfo);
        m_bAutoFree = d.boolForKey(SettingsKey::AutoFree);
        m_nFreq = static_cast<int>(d.integerForKey(SettingsKey::Frequency));
        m_dUsageLimit = d.doubleForKey(SettingsKey::UsageLimit);
    } else {
        m_bPrefPurgeAfterHugeAppQuit = true;
        m_bShowInfo = true;
        m_bAutoFree = false;
        m_nFreq = 1;
        m_dUsageLimit = 0.8;
        d.setObject(m_bPrefPurgeAfterHugeAppQuit, SettingsKey::PurgeAfterHugeAppQuit);
        d.setObject(m_bShowInfo, SettingsKey::ShowInfo);
        d.setObject(m_bAutoFree, SettingsKey::AutoFree);
        d.setObject(m_nFreq, SettingsKey::Frequency);
        d.setObject(m_dUsageLimit, SettingsKey::UsageLimit);
        d.setObject(true, SettingsKey::Initialized);
    }
    initPurgeFreq();
    m_dCPULimit = 0.2;
    m_handPurge = false;
    m_bChecked = false;
    m_tLastFreeTime =
        static_cast<double>(QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC).msecsTo(m_clock.now()) / 1000);
    m_lTicksFromLastFree = 0;
    initMemoryValues();
}

// Tray icon.

void QBPurgeController::createStatusItem()
{
    if (m_useTray) {
        // The desktop's tray may start after this program (an autostart at login often does).
        m_trayWatcher = new TrayHostWatcher(m_clock, QDBusConnection::sessionBus(), m_trayProbe, this);
        connect(m_trayWatcher, &TrayHostWatcher::trayHostAppeared, this, [this] { createTrayIcon(); });
        m_trayWatcher->start();
    }
    if (!m_statusItem)
        std::fprintf(stderr, "trovix: no system tray found; the panel opens as a window until one appears\n");
}

void QBPurgeController::createTrayIcon()
{
    if (m_statusItem)
        return;
    m_statusItem = new QSystemTrayIcon(this);
    m_statusItem->setObjectName(QStringLiteral("statusItem"));
    m_statusItem->setToolTip(displayName());
    m_statusItem->setIcon(statusIcon(m_wndInfo ? isHiddenShown() : false));
    // Left and right clicks both open the panel; the menu lives behind the panel's gear button.
    connect(m_statusItem, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::Context ||
            reason == QSystemTrayIcon::DoubleClick) {
            m_statusItemClicked = true;
            statusItemAction();
            m_statusItemClicked = false;
        }
    });
    if (m_wndInfo)
        std::fprintf(stderr, "trovix: a system tray appeared; the icon is in it now\n");
    // Shown from the event loop: an XEmbed icon shown before it runs may never be docked.
    QTimer::singleShot(0, m_statusItem, [icon = m_statusItem] { icon->show(); });
}

QString QBPurgeController::statusIconImageForState(bool shown)
{
    return shown ? QStringLiteral("offon_91") : QStringLiteral("offon_90");
}

QIcon QBPurgeController::statusIcon(bool shown)
{
    auto cached = m_statusIcons.find(shown);
    if (cached != m_statusIcons.end())
        return *cached;
    // A template image: one colour, taken from the desktop's palette so it reads on light and dark panels.
    const QColor ink = isDarkModeOn() ? QColor(Qt::white) : QGuiApplication::palette().color(QPalette::WindowText);
    QIcon icon = tintedIcon(QStringLiteral(":/icons/%1.svg").arg(statusIconImageForState(shown)), ink);
    icon.setIsMask(true);
    m_statusIcons.insert(shown, icon);
    return icon;
}

void QBPurgeController::updateStatusIconWithImage(const QIcon& image)
{
    if (m_statusItem)
        m_statusItem->setIcon(image);
}

QString QBPurgeController::statusToolTip() const
{
    return Texts::platformWords(isHiddenShown() ? QStringLiteral("Trovix\nHidden files are visible in Finder")
                                                : QStringLiteral("Trovix\nHidden files are invisible in Finder"));
}

void QBPurgeController::updateStatusItem()
{
    if (m_statusItem)
        m_statusItem->setToolTip(statusToolTip());
    if (m_wndInfo && m_wndInfo->isVisible())
        fillInfoPanel();
    updateLastFreeLabel();
}

QString QBPurgeController::getIconWithOcupiedPercent(double p)
{
    const int step = (p >= 0.9 || (p > 0.74 && p < 0.76)) ? 1 : (p >= 0.5 ? 2 : 5);
    const int number = static_cast<int>(std::round(p * 100.0 / step)) * step;
    return QStringLiteral("icon_memory_%1").arg(number);
}

QString QBPurgeController::getIconWhenCleaning()
{
    return QStringLiteral("icon_clear");
}

bool QBPurgeController::isDarkModeOn() const
{
    const QPalette pal = QGuiApplication::palette();
    return pal.color(QPalette::Window).lightness() < pal.color(QPalette::WindowText).lightness();
}

QRect QBPurgeController::statusItemFrame() const
{
    if (m_statusItem) {
        const QRect frame = m_statusItem->geometry();
        if (!frame.isEmpty())
            return frame;
    }
    // A StatusNotifierItem host does not tell where the icon is. After a click on it, a pointer on the
    // screen's top or bottom edge (where panels sit) stands for the icon; anywhere else, and when the
    // panel is asked for without a click (a second launch, the start argument), the top-right corner of
    // the screen that holds the pointer does.
    constexpr int kEdge = 64;
    const QPoint pointer = QCursor::pos();
    QScreen* screen = QGuiApplication::screenAt(pointer);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return QRect();
    const QRect whole = screen->geometry();
    if (m_statusItemClicked && (pointer.y() - whole.top() < kEdge || whole.bottom() - pointer.y() < kEdge))
        return QRect(pointer - QPoint(12, 12), QSize(24, 24));
    const QRect area = screen->availableGeometry();
    return QRect(area.right() - 23, area.top() - 24, 24, 24);
}

// Menu.

void QBPurgeController::createMenu()
{
    m_theMenu = new QMenu;
    m_theMenu->setObjectName(QStringLiteral("theMenu"));
    m_miInfo = m_theMenu->addAction(QString(), this, [this] { onTogglePanelInfo(); });
    m_miFree = m_theMenu->addAction(QStringLiteral("Free Up Memory"), this, [this] { onFreeMemory(false); });
    m_theMenu->addSeparator();
    m_miPreferences = m_theMenu->addAction(QString(), this, [this] { onPreferences(); });
    // Hidden at start; the gear menu shows it while Shift is held.
    m_pResetUserDefaultsMenuItemSeparator = m_theMenu->addSeparator();
    m_pResetUserDefaultsMenuItem = m_theMenu->addAction(QString(), this, [this] { resetUserDefaults(); });
    m_pResetUserDefaultsMenuItem->setObjectName(QStringLiteral("resetUserDefaultsMenuItem"));
    m_pResetUserDefaultsMenuItem->setVisible(false);
    m_pResetUserDefaultsMenuItemSeparator->setVisible(false);
    m_theMenu->addSeparator();
    m_miAbout = m_theMenu->addAction(QString(), this, [this] { showAboutScreen(); });
    m_miQuit = m_theMenu->addAction(QString(), this, [this] { onQuitTrovix(); });
    connect(m_theMenu, &QMenu::aboutToShow, this, [this] { validateMenu(); });
    validateMenu();
}

void QBPurgeController::validateMenu()
{
    const bool panelVisible = m_wndInfo && m_wndInfo->isVisible();
    m_miInfo->setText(panelVisible ? QStringLiteral("Hide Information") : QStringLiteral("Show Information"));
    m_miPreferences->setText(PanelWindowContextualMenuStrings::preferences());
    m_pResetUserDefaultsMenuItem->setText(Texts::localized("PanelWindowContextualMenu", "Contextual_menu_resetDefaults",
                                                           QStringLiteral("Reset Defaults")));
    m_miAbout->setText(Texts::format(PanelWindowContextualMenuStrings::aboutFormatter(), {displayName()}));
    m_miQuit->setText(Texts::format(PanelWindowContextualMenuStrings::quitFormatter(), {displayName()}));
    m_miFree->setEnabled(!m_bPurging);
}

void QBPurgeController::panelPreferencesButtonPressed(const QPoint& globalPos)
{
    preferencesButtonPressed(globalPos);
}

// Windows and actions.

void QBPurgeController::statusItemAction()
{
    if (m_welcomeDialog && m_welcomeDialog->isVisible())
        m_welcomeDialog->accept();
    if (!m_statusItem && !m_wndInfo->isVisible()) {
        m_wndInfo->openAsWindow();
        return;
    }
    m_wndInfo->processActionOfStatusItem(true);
}

void QBPurgeController::showMainWindowAndMakeActive()
{
    if (!m_wndInfo->isVisible()) {
        statusItemAction();
    } else {
        m_wndInfo->raise();
        m_wndInfo->activateWindow();
    }
}

void QBPurgeController::onTogglePanelInfo()
{
    if (m_wndInfo->isVisible())
        m_wndInfo->close();
    else
        statusItemAction();
    m_bShowInfo = m_wndInfo->isVisible();
    saveShowInfoState();
}

void QBPurgeController::onPanelInfoClosed()
{
    m_bShowInfo = false;
    saveShowInfoState();
}

void QBPurgeController::saveShowInfoState()
{
    UserDefaults& d = m_settings.defaults();
    if (!d.contains(SettingsKey::ShowInfo) || d.boolForKey(SettingsKey::ShowInfo) != m_bShowInfo)
        d.setObject(m_bShowInfo, SettingsKey::ShowInfo);
}

void QBPurgeController::panelDetailedStateChanged(bool expanded)
{
    // Figures at once when the memory part opens, rather than at the next tick.
    if (expanded && m_bChecked && !m_bPurging && m_wndInfo)
        fillInfoPanel();
}

void QBPurgeController::showAboutScreen()
{
    if (!m_aboutWC)
        m_aboutWC = new AboutWindow;
    m_aboutWC->show();
    m_aboutWC->raise();
    m_aboutWC->activateWindow();
}

void QBPurgeController::openWelcomeDialog()
{
    if (m_settings.defaults().boolForKey(SettingsKey::WelcomeDialogDisplayed))
        return;
    m_welcomeDialog = new WelcomeDialog;
    m_welcomeDialog->setAttribute(Qt::WA_DeleteOnClose);
    m_welcomeDialog->adjustSize();
    // Under the tray icon when the tray says where it is, else in the middle of the screen; on screen
    // either way (an icon not yet embedded reports a frame at the origin).
    const QRect status = m_statusItem ? m_statusItem->geometry() : QRect();
    QScreen* screen = QGuiApplication::primaryScreen();
    const QRect area = screen ? screen->availableGeometry() : QRect();
    QPoint topLeft = area.center() - m_welcomeDialog->rect().center();
    if (!status.isEmpty() && status.topLeft() != QPoint(0, 0))
        topLeft = QPoint(status.center().x() - m_welcomeDialog->width() / 2, status.bottom() + 6);
    if (area.isValid()) {
        topLeft.setX(
            std::clamp(topLeft.x(), area.left(), std::max(area.left(), area.right() + 1 - m_welcomeDialog->width())));
        topLeft.setY(
            std::clamp(topLeft.y(), area.top(), std::max(area.top(), area.bottom() + 1 - m_welcomeDialog->height())));
    }
    m_welcomeDialog->move(topLeft);
    m_welcomeDialog->setModal(true);
    m_welcomeDialog->show();
    m_settings.defaults().setObject(true, SettingsKey::WelcomeDialogDisplayed);
}

void QBPurgeController::onQuitTrovix()
{
    // The file-manager extensions run inside the file managers and need no stopping here.
    Q_EMIT quitRequested();
    QCoreApplication::quit();
}

// Notifications.

void QBPurgeController::registerObservers()
{
    m_center.addObserver(ShowMainWindowAndMakeActiveNotificationName(), nullptr, this,
                         [this](const Notification&) { showMainWindowAndMakeActive(); });
    m_center.addObserver(TurnOnAutoStartAndAutoFreeNotificationName(), nullptr, this,
                         [this](const Notification&) { turnOnAutoStartAndAutoFree(); });
    m_center.addObserver(QStringLiteral("ShowWindowAfterStart"), nullptr, this,
                         [this](const Notification&) { showMainWindowAndMakeActive(); });
    m_center.addObserver(QStringLiteral("openSearchResultDialogNotification"), nullptr, this,
                         [this](const Notification&) { openSearchResultDialog(); });
    m_center.addObserver(QStringLiteral("ShowReviewListNotification"), nullptr, this,
                         [this](const Notification& note) { showReviewList(note.userInfo); });
    if (QCoreApplication::instance())
        QCoreApplication::instance()->installEventFilter(this);
}

bool QBPurgeController::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == QCoreApplication::instance() && event->type() == QEvent::ApplicationPaletteChange) {
        m_statusIcons.clear();
        prepareUpdateStatusIcon();
    }
    return QObject::eventFilter(watched, event);
}

void QBPurgeController::registerDistributedObservers()
{
    m_distributed.addObserver(QStringLiteral("AppSyncExtensionWantsToSwitchVisibility"), QStringLiteral("n"), this,
                              [this](const QString&, const QString&, const QVariantMap&) { switchVisibility(); });
    m_distributed.addObserver(QStringLiteral("AppSyncExtensionWantsToHideSelectedFiles"), QString(), this,
                              [this](const QString&, const QString& object, const QVariantMap&) {
                                  hideSelectedFilesNotificationHandler(object);
                              });
    m_distributed.addObserver(QStringLiteral("AppSyncExtensionWantsToUnhideSelectedFiles"), QString(), this,
                              [this](const QString&, const QString& object, const QVariantMap&) {
                                  showSelectedFilesNotificationHandler(object);
                              });
    m_distributed.addObserver(
        QStringLiteral("xpcNote"), kBundleIdentifier, this,
        [this](const QString&, const QString&, const QVariantMap& info) { callbackWithNotification(info); });
}
