#include "Settings.h"

#include "util/Clock.h"
#include "util/MacOSVersion.h"

#include <QStringList>

#include <algorithm>

namespace {
constexpr qint64 kFirstRateDelay = 1209600; // 14 days
constexpr qint64 kNextRateDelay = 2592000;  // 30 days
} // namespace

Settings::Settings(UserDefaults& standard, UserDefaults& group, const MacOSVersion& version, Clock& clock)
    : m_defaults(standard)
    , m_group(group)
    , m_version(version)
    , m_clock(clock)
{
}

Settings& Settings::shared()
{
    static Settings settings(UserDefaults::standardUserDefaults(), UserDefaults::suite(shfGroupName()),
                             MacOSVersion::GetInstance(), Clock::system());
    return settings;
}

QString Settings::shfGroupName()
{
    return QStringLiteral("Q7K2M9X4TB.group.com.quorbel.trovix");
}

quint64 Settings::cleanedSize() const
{
    return m_defaults.getUnsignedLongLongValueForKey(SettingsKey::CleanedSize, 0);
}

void Settings::setCleanedSize(quint64 bytes)
{
    m_defaults.saveUnsignedLongLongValue(bytes, SettingsKey::CleanedSize);
}

bool Settings::showAutostartPopupAfterPurge() const
{
    return m_defaults.getBoolValueForKey(SettingsKey::ShowAutostartPopupAfterClean, true);
}

void Settings::setShowAutostartPopupAfterPurge(bool value)
{
    m_defaults.saveBoolValue(value, SettingsKey::ShowAutostartPopupAfterClean);
}

bool Settings::shouldCheckHiddenFilesVisibility() const
{
    return m_defaults.getBoolValueForKey(SettingsKey::CheckHiddenFilesVisibility, !m_version.is_10_14_orHigher());
}

void Settings::setShouldCheckHiddenFilesVisibility(bool value)
{
    m_defaults.saveBoolValue(value, SettingsKey::CheckHiddenFilesVisibility);
}

bool Settings::shouldShowInformationAboutAccessibilityAlerts() const
{
    return m_defaults.getBoolValueForKey(SettingsKey::ShowInformationAboutAccessibilityAlerts,
                                         m_version.is_10_14_orHigher());
}

void Settings::setShouldShowInformationAboutAccessibilityAlerts(bool value)
{
    m_defaults.saveBoolValue(value, SettingsKey::ShowInformationAboutAccessibilityAlerts);
}

bool Settings::isWindowLocked() const
{
    return m_defaults.getBoolValueForKey(SettingsKey::WindowLock, true);
}

void Settings::saveWindowLockedState(bool locked)
{
    m_defaults.saveBoolValue(locked, SettingsKey::WindowLock);
}

bool Settings::isWindowDetailed() const
{
    return m_defaults.getBoolValueForKey(SettingsKey::WindowDetailed, false);
}

void Settings::saveWindowDetailedState(bool detailed)
{
    m_defaults.saveBoolValue(detailed, SettingsKey::WindowDetailed);
}

void Settings::saveWindowFramePosition(const QRect& frame)
{
    // Single-precision numbers, like the platform's float frame values; both in one write.
    m_defaults.setValues({{SettingsKey::WindowX, static_cast<double>(static_cast<float>(frame.x()))},
                          {SettingsKey::WindowY, static_cast<double>(static_cast<float>(frame.y()))}});
}

std::optional<QPoint> Settings::restoreWindowFramePosition(const QSize& windowSize, const QRect& screen) const
{
    if (!m_defaults.contains(SettingsKey::WindowX) || !m_defaults.contains(SettingsKey::WindowY))
        return std::nullopt;
    int x = static_cast<int>(m_defaults.doubleForKey(SettingsKey::WindowX));
    int y = static_cast<int>(m_defaults.doubleForKey(SettingsKey::WindowY));
    if (screen.isValid()) {
        // Keep the whole window on the screen; a window larger than the screen sticks to its top-left.
        x = std::max(screen.left(), std::min(x, screen.right() + 1 - windowSize.width()));
        y = std::max(screen.top(), std::min(y, screen.bottom() + 1 - windowSize.height()));
    }
    return QPoint(x, y);
}

QVariant Settings::getSearchLocation() const
{
    return m_defaults.objectForKey(SettingsKey::SearchLocation);
}

void Settings::saveSearchLocation(const QVariant& location)
{
    m_defaults.setObject(location, SettingsKey::SearchLocation);
}

QVariant Settings::getCustomFolderButtonSearchLocation() const
{
    return m_defaults.objectForKey(SettingsKey::CustomFolderButtonSearchLocation);
}

void Settings::saveCustomFolderButtonSearchLocation(const QVariant& location)
{
    m_defaults.setObject(location, SettingsKey::CustomFolderButtonSearchLocation);
}

QString Settings::buildAppVersionWith2Numbers(const QString& version)
{
    return version.split(QLatin1Char('.')).mid(0, 2).join(QLatin1Char('.'));
}

void Settings::notifyRateDialogDataThatAppStarted(const QString& appVersion)
{
    const QString built = buildAppVersionWith2Numbers(appVersion);
    const QString stored = m_defaults.stringForKey(SettingsKey::RateCurrentAppVersion);
    if (!m_defaults.contains(SettingsKey::RateCurrentAppVersion) || (!built.isEmpty() && built != stored))
        onFirstStartOrVersionChangedTo(built);
}

void Settings::onFirstStartOrVersionChangedTo(const QString& version)
{
    m_defaults.setValues({{SettingsKey::RateNextShowDate, m_clock.now().addSecs(kFirstRateDelay)},
                          {SettingsKey::RateIsUserSelectStar, false},
                          {SettingsKey::RateCurrentAppVersion, version},
                          {SettingsKey::RateCountOfAutoShow, QVariant::fromValue<qint64>(0)}});
}

void Settings::notifyRateDialogDataThatRateDialogShowedAutomatically(bool showed)
{
    if (!showed)
        return;
    m_defaults.setValues(
        {{SettingsKey::RateCountOfAutoShow, QVariant::fromValue<qint64>(getCountOfRateDialogAutoShowed() + 1)},
         {SettingsKey::RateNextShowDate, m_clock.now().addSecs(kNextRateDelay)}});
}

void Settings::notifyRateDialogDataThatUserClickOnStar()
{
    m_defaults.setObject(true, SettingsKey::RateIsUserSelectStar);
}

qint64 Settings::getCountOfRateDialogAutoShowed() const
{
    return m_defaults.integerForKey(SettingsKey::RateCountOfAutoShow);
}

bool Settings::isTimeToShowRateDialogIsNow() const
{
    const QDateTime next = m_defaults.dateForKey(SettingsKey::RateNextShowDate);
    return !next.isValid() || next <= m_clock.now();
}
