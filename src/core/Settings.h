#pragma once

#include "UserDefaults.h"

#include <QPoint>
#include <QRect>
#include <QString>
#include <QVariant>

#include <optional>

class Clock;
class MacOSVersion;

// The catalogue of the program's settings: each key with its type and its default, over the standard
// domain, plus the suite shared with the file-manager extensions. Defaults are never written on reading.
class Settings
{
public:
    Settings(UserDefaults& standard, UserDefaults& group, const MacOSVersion& version, Clock& clock);

    // Over the real domains of this user.
    static Settings& shared();

    UserDefaults& defaults() { return m_defaults; }
    // The suite "Q7K2M9X4TB.group.com.quorbel.trovix".
    UserDefaults& shfGroup() { return m_group; }
    static QString shfGroupName();

    quint64 cleanedSize() const;
    void setCleanedSize(quint64 bytes);
    bool showAutostartPopupAfterPurge() const;
    void setShowAutostartPopupAfterPurge(bool value);
    bool shouldCheckHiddenFilesVisibility() const;
    void setShouldCheckHiddenFilesVisibility(bool value);
    bool shouldShowInformationAboutAccessibilityAlerts() const;
    void setShouldShowInformationAboutAccessibilityAlerts(bool value);
    bool isWindowLocked() const;
    void saveWindowLockedState(bool locked);
    bool isWindowDetailed() const;
    void saveWindowDetailedState(bool detailed);

    // Stores the frame's x and its top edge (y + height in the platform's bottom-up coordinates; here
    // the top-left y) as "main_window:state:x" / "main_window:state:y".
    void saveWindowFramePosition(const QRect& frame);
    // The stored top-left point for a window of this size, kept inside screen; none when not stored.
    std::optional<QPoint> restoreWindowFramePosition(const QSize& windowSize, const QRect& screen) const;

    QVariant getSearchLocation() const;
    void saveSearchLocation(const QVariant& location);
    QVariant getCustomFolderButtonSearchLocation() const;
    void saveCustomFolderButtonSearchLocation(const QVariant& location);

    // The rate-prompt schedule.
    static QString buildAppVersionWith2Numbers(const QString& version);
    void notifyRateDialogDataThatAppStarted(const QString& appVersion);
    void onFirstStartOrVersionChangedTo(const QString& version);
    void notifyRateDialogDataThatRateDialogShowedAutomatically(bool showed);
    void notifyRateDialogDataThatUserClickOnStar();
    qint64 getCountOfRateDialogAutoShowed() const;
    bool isTimeToShowRateDialogIsNow() const;

private:
    UserDefaults& m_defaults;
    UserDefaults& m_group;
    const MacOSVersion& m_version;
    Clock& m_clock;
};

// Keys of the standard domain.
namespace SettingsKey {
inline const QString Initialized = QStringLiteral("Initialized");
inline const QString AutoFree = QStringLiteral("AutoFree");
inline const QString PurgeAfterHugeAppQuit = QStringLiteral("PurgeAfterHugeAppQuit");
inline const QString ShowInfo = QStringLiteral("ShowInfo");
inline const QString Frequency = QStringLiteral("Frequency");
inline const QString UsageLimit = QStringLiteral("UsageLimit");
inline const QString PurgeFregOften = QStringLiteral("ATEST:PURGE_FREG_OFTEN");
inline const QString PurgeFregNormally = QStringLiteral("ATEST:PURGE_FREG_NORMALLY");
inline const QString PurgeFregRarely = QStringLiteral("ATEST:PURGE_FREG_RARELY");
inline const QString VisionPrefIndex = QStringLiteral("VisionPrefIndex");
inline const QString CleanedSize = QStringLiteral("KEY_cleanedSize");
inline const QString ShowAutostartPopupAfterClean = QStringLiteral("KEY_showAutostartPopupAfterClean");
inline const QString WelcomeDialogDisplayed = QStringLiteral("KEY_welcomeDialogDisplayed");
inline const QString IsNotFirstLaunch = QStringLiteral("KEY_IsNotFirstLaunch");
inline const QString FinderIntegration = QStringLiteral("KEY_FinderIntegration");
inline const QString CheckHiddenFilesVisibility = QStringLiteral("CheckHiddenFilesVisibility");
inline const QString ShowInformationAboutAccessibilityAlerts = QStringLiteral("ShowInformationAboutAccessibilityAlerts");
inline const QString WindowLock = QStringLiteral("main_window:state:lock");
inline const QString WindowDetailed = QStringLiteral("main_window:state:detailed");
inline const QString WindowX = QStringLiteral("main_window:state:x");
inline const QString WindowY = QStringLiteral("main_window:state:y");
inline const QString PanelWindowSateIsDetailed = QStringLiteral("PanelWindowSateIsDetailed");
inline const QString SearchLocation = QStringLiteral("KEY_SearchLocation");
inline const QString CustomFolderButtonSearchLocation = QStringLiteral("KEY_CustomFolderButtonSearchLocation");
inline const QString DontShowNewSearchAlertDialog = QStringLiteral("KEY_dontShowNewSearchAlertDialog");
inline const QString DontShowDeleteAlertDialog = QStringLiteral("KEY_dontShowDeleteAlertDialog");
inline const QString SuppressAlertMoveToApplications = QStringLiteral("suppressAlertMoveHalvexToApplications");
inline const QString AutoStart = QStringLiteral("AutoStart");
inline const QString AutoStartToggledByUser = QStringLiteral("AutoStartToggledByUser");
inline const QString RescanDiskJunkTime = QStringLiteral("ATEST:RESCAN_DISK_JUNK_TIME");
inline const QString IsNeedShowCalculationLog = QStringLiteral("ATEST:IS_NEED_SHOW_CALCULATION_LOG");
inline const QString AdsDialogBeenClosed = QStringLiteral("KEY_adsDialogBeenClosed");
inline const QString AdsBannerBeenClosed = QStringLiteral("KEY_adsBannerBeenClosed");
inline const QString RateCurrentAppVersion = QStringLiteral("RATE_DIALOG_DATA:current_app_version");
inline const QString RateNextShowDate = QStringLiteral("RATE_DIALOG_DATA:next_show_date");
inline const QString RateIsUserSelectStar = QStringLiteral("RATE_DIALOG_DATA:is_user_select_star");
inline const QString RateCountOfAutoShow = QStringLiteral("RATE_DIALOG_DATA:count_of_auto_show");
// Shared suite.
inline const QString AreHiddenFilesVisible = QStringLiteral("AreHiddenFilesVisibleKey");
} // namespace SettingsKey
