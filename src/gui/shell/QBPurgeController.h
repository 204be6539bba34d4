#pragma once

#include "gui/shell/PanelWindowDelegate.h"
#include "platform/VmStatistics.h"
#include "util/Clock.h"

#include <QDateTime>
#include <QHash>
#include <QIcon>
#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>

class AboutWindow;
class AdBasedOnSpotlightVC;
class DistributedNotificationCenter;
class FileVisibility;
class FinderIntegration;
class FreeSpaceWarning;
class HiddenManager;
class MacOSVersion;
class MemoryInfo;
class NotificationCenter;
class PanelWindow;
class PreferencesWindow;
class PromoFreeSpaceChecker;
class QBAppDelegate;
class PurgeManager;
class QAction;
class QMenu;
class QSystemTrayIcon;
class ScriptsManager;
class SearchManager;
class SearcherManager;
class SearchResultWC;
class Settings;
class TrayHostWatcher;
class WelcomeDialog;

// The central controller: owns the tray icon, the panel and the other windows, the memory figures and
// the purge, and wires every notification of the running program. Its code is split by subsystem:
// QBPurgeController.cpp (start-up, tray, menus, windows), QBPurgeController_Hidden.cpp (hidden-files
// state and switch), QBPurgeController_Memory.cpp (memory figures, purge, free-up preferences),
// QBPurgeController_Search.cpp (the panel's search hand-off and the results window),
// QBPurgeController_Preferences.cpp (the preferences window, the gear menu, reset),
// QBPurgeController_DiskUsage.cpp (the disk-usage view, its scans and the low-space warning).
class QBPurgeController : public QObject, public PanelWindowDelegate
{
    Q_OBJECT
public:
    // What the controller works with; tests hand in their own. Null members fall back to the
    // process-wide instances.
    struct Collaborators
    {
        Settings* settings = nullptr;
        NotificationCenter* center = nullptr;
        DistributedNotificationCenter* distributed = nullptr;
        Clock* clock = nullptr;
        const MacOSVersion* version = nullptr;
        HiddenManager* hiddenManager = nullptr;
        ScriptsManager* scriptsManager = nullptr;
        SearchManager* searchManager = nullptr;
        MemoryInfo* memoryInfo = nullptr;
        PurgeManager* purgeManager = nullptr;
        SearcherManager* searcherManager = nullptr; // null: the controller makes its own
        bool useTray = true; // false: no tray icon even where a tray exists (tests)
        bool manageExtensions = true; // false: the file managers' entries are left alone (tests)
        // The plug-in tool that installs those entries; empty: this program's `pluginkit` command.
        QStringList pluginKitCommand;
        // Whether a tray host is there now; null looks at the session bus and the X display.
        std::function<bool()> trayProbe;
    };

    explicit QBPurgeController(Collaborators collaborators, QObject* parent = nullptr);
    ~QBPurgeController() override;

    static QString ShowMainWindowAndMakeActiveNotificationName();
    static QString TurnOnAutoStartAndAutoFreeNotificationName();
    static void ShowMainWindowAndMakeActive(NotificationCenter& center);
    static void TurnOnAutoStartAndAutoFree(NotificationCenter& center);

    // The awake step: settings, tray icon, observers, memory loop, panel, welcome dialog.
    void awakeFromNib();

    PanelWindow* panel() const { return m_wndInfo; }
    QSystemTrayIcon* statusItem() const { return m_statusItem; }
    QMenu* theMenu() const { return m_theMenu; }
    // The start-at-login checkbox goes through the delegate (its failure alert); set by the delegate.
    void setAppDelegate(QBAppDelegate* delegate);

    // Tray icon and tooltip.
    static QString statusIconImageForState(bool shown);
    QIcon statusIcon(bool shown);
    void updateStatusIconWithImage(const QIcon& image);
    void prepareUpdateStatusIcon();
    void updateStatusIcon_Trovix();
    QString statusToolTip() const;
    void updateStatusItem();
    // Memory-level icon names; kept available, unused by the tray.
    static QString getIconWithOcupiedPercent(double usedFraction);
    static QString getIconWhenCleaning();

    // Menu actions.
    void statusItemAction();
    void onTogglePanelInfo();
    void onPreferences();
    void showAboutScreen();
    void onQuitTrovix();
    void openSearchResultDialog();
    SearchResultWC* searchResultDialog() const;
    // Shows a review list ("ShowReviewListNotification": "title", "paths") in the results window.
    void showReviewList(const QVariantMap& userInfo);
    void openWelcomeDialog();
    void showMainWindowAndMakeActive();
    void validateMenu();
    void saveShowInfoState();
    bool isDarkModeOn() const;

    // Preferences window (QBPurgeController_Preferences.cpp).
    PreferencesWindow* preferencesWindow() const;
    void preferencesButtonPressed(const QPoint& globalPos);
    void toggleLaunchAtStartup(bool on);
    void prefVisionComboBoxPressed(int index);
    int getVisionPrefIndex() const;
    void resetUserDefaults();
    QAction* resetUserDefaultsMenuItem() const { return m_pResetUserDefaultsMenuItem; }

    // Hidden files (QBPurgeController_Hidden.cpp).
    void startHiddenFilesTracking();
    void switchVisibility();
    void callbackWithNotification(const QVariantMap& userInfo);
    void hideSelectedFilesNotificationHandler(const QString& object);
    void showSelectedFilesNotificationHandler(const QString& object);
    FileVisibility fileVisibility();
    void finderIntegration();
    void toggleFinderIntegration(int state);
    void toggleForceSwitchHiddenVisibility(int state);
    bool isHiddenShown() const;

    // Memory figures (QBPurgeController_Memory.cpp).
    void initMemoryValues();
    int updateMemoryStatictics();
    quint64 calculateTotalSize() const;
    quint64 calculateTotalPages() const;
    quint64 calculateUsedPages() const;
    quint64 calculateFreePages() const;
    quint64 calculateFreeSize() const;
    void fillInfoPanel();
    void checkMemory(bool repeat);
    void updateLastFreeLabel();

    // Purge and automatic free-up (QBPurgeController_Memory.cpp).
    void onFreeMemory(bool fromButton);
    void onTaskPurge();
    void notifyPurged(bool success);
    void showIfNeededNotificationWithCleanSize(qint64 size);
    void checkAutoPurge();
    void initPurgeFreq();
    void updatePrefDesc();
    QString prefDescription() const;
    void onPrefAutoFree(bool on);
    void onPrefMemUsage(double fraction);
    void onPrefFreq(int index);
    void onPrefPurgeAfterHugeApplicationQuit(bool on);
    void onPrefShowInfo(bool on);
    void turnOnAutoStartAndAutoFree();
    void onPurgeManagerStartPurge();
    void onPurgeManagerEndPurge();
    void onPurgeManagerPurgingProgress(float progress);
    bool isPurging() const { return m_bPurging; }

    // Disk usage (QBPurgeController_DiskUsage.cpp).
    void setUpDiskUsage();
    void checkFreeSpace();
    SearcherManager& searcherManager() const { return *m_searcherManager; }
    AdBasedOnSpotlightVC* diskUsageView() const { return m_diskUsageView; }

    // PanelWindowDelegate
    bool panelIsHiddenShown() const override;
    bool panelIsHiddenUpdating() const override;
    void panelShowHiddenControlChanged() override;
    void panelSearchRequested(const QString& text) override;
    void panelCleanButtonPressed() override;
    bool panelMightLoseFocusBecauseOfScript() const override;
    QRect statusItemFrame() const override;
    void panelPreferencesButtonPressed(const QPoint& globalPos) override;
    void panelDetailedStateChanged(bool expanded) override;

protected:
    // Follows the desktop's palette: the tray icon is drawn in its ink.
    bool eventFilter(QObject* watched, QEvent* event) override;

Q_SIGNALS:
    // Emitted after the quit sequence asked the application to end (tests watch it).
    void quitRequested();

private:
    void initValues();
    void createStatusItem();
    void createTrayIcon();
    void createMenu();
    void registerObservers();
    void registerDistributedObservers();
    void onPanelInfoClosed();
    void createPreferencesWindow();
    FinderIntegration* finderIntegrationTool();

    Settings& m_settings;
    NotificationCenter& m_center;
    DistributedNotificationCenter& m_distributed;
    Clock& m_clock;
    const MacOSVersion& m_version;
    HiddenManager* m_hiddenManager;
    ScriptsManager* m_scriptsManager;
    SearchManager* m_searchManager;
    MemoryInfo* m_memoryInfo;
    PurgeManager* m_purgeManager;
    bool m_useTray;
    bool m_manageExtensions;
    QStringList m_pluginKitCommand;
    QPointer<QBAppDelegate> m_appDelegate;
    std::unique_ptr<FinderIntegration> m_finderIntegration;
    std::function<bool()> m_trayProbe;
    TrayHostWatcher* m_trayWatcher = nullptr;
    bool m_statusItemClicked = false; // the panel opens from a click on the icon

    bool m_bIsHaveNews = false;
    QSystemTrayIcon* m_statusItem = nullptr;
    QMenu* m_theMenu = nullptr;
    QAction* m_miInfo = nullptr;
    QAction* m_miFree = nullptr;
    QAction* m_miPreferences = nullptr;
    QAction* m_miAbout = nullptr;
    QAction* m_miQuit = nullptr;
    QAction* m_pResetUserDefaultsMenuItem = nullptr;
    QAction* m_pResetUserDefaultsMenuItemSeparator = nullptr;
    PanelWindow* m_wndInfo = nullptr; // owned
    QPointer<WelcomeDialog> m_welcomeDialog;
    QPointer<AboutWindow> m_aboutWC;
    QPointer<PreferencesWindow> m_wndPreferences;
    QPointer<SearchResultWC> m_searchResultDialog; // created once, deleted with the controller
    QHash<bool, QIcon> m_statusIcons;

    // Memory statistics.
    quint32 m_npagesize = 4096;
    quint32 m_ncount = 38;
    bool m_bUse64Statictics = true;
    VmStatistics64 m_vmstat64;
    bool m_bChecked = false;
    Clock::Handle m_checkMemoryCall;

    // Purge state.
    bool m_bPurging = false;
    double m_dUsageLimit = 0.8;
    qint64 m_lPurgeFreq = 14400;
    double m_dCPULimit = 0.2;
    bool m_bPrefPurgeAfterHugeAppQuit = true;
    bool m_bShowInfo = true;
    bool m_bAutoFree = false;
    int m_nFreq = 1;
    qint64 m_lTicksFromLastFree = 0;
    double m_tLastFreeTime = 0; // seconds since 2001-01-01
    qint64 m_lLastPurgedSize = 0;
    bool m_bIsOSXMavericksOrHigher = true;
    bool m_showNotificationAfterPurge = false;
    bool m_handPurge = false;
    int m_visionPrefIndex = 1;

    // Disk usage: the one coordinator of the scans (made here unless handed in), the view in the panel,
    // the low-space warning and its next look.
    SearcherManager* m_searcherManager = nullptr;
    std::unique_ptr<SearcherManager> m_ownSearcherManager;
    AdBasedOnSpotlightVC* m_diskUsageView = nullptr; // owned by the panel
    std::unique_ptr<PromoFreeSpaceChecker> m_freeSpaceChecker;
    std::unique_ptr<FreeSpaceWarning> m_freeSpaceWarning;
    Clock::Handle m_freeSpaceCall;

    // Created at start by the hidden-files side, owned as a child of the controller.
    QObject* m_visibilityRestorerAtLaunch = nullptr;
};
