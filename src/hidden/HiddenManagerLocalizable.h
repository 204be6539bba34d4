#pragma once

#include <QString>

#include <QStringList>

#include <functional>
#include <optional>

// Texts of the permission sheets (table "HiddenManagerLocalizable"), after the platform-word
// substitution ("Finder" is the user's file manager, "System Preferences" is "Settings").
namespace HiddenManagerLocalizable {
QString informationAboutAccessAlertsTitle();
QString informationAboutAccessAlertsMessage();
QString informationAboutAccessAlertsButtonGrantAccess();
QString informationAboutAccessAlertsButtonCancel();
QString informationAboutAccessAlertsButtonReadMore();
QString accessNotGrantedForFinderAutomationTitle();
QString accessNotGrantedForFinderAutomationMessage();
QString accessNotGrantedForSystemEventsAutomationTitle();
QString accessNotGrantedForSystemEventsAutomationMessage();
QString accessNotGrantedForAccessibilityTitle();
QString accessNotGrantedForAccessibilityMessage();
QString accessNotGrantedButtonOpenSystemPreferences();
QString accessNotGrantedButtonReadMore();
} // namespace HiddenManagerLocalizable

// Which access alert an error's description calls for. The tests are plain substring tests, in this
// order: "-1743" with "Finder", "-1743" with "System Events", then "1002"; anything else: no alert.
enum class AccessAlertKind
{
    FinderAutomation,
    SystemEventsAutomation,
    Accessibility
};

struct AccessAlertChoice
{
    AccessAlertKind kind;
    QString title;
    QString message;
    QString helpAnchor; // "finder", "systemevents", "accessibility"
};

std::optional<AccessAlertChoice> chooseAccessAlert(const QString& errorDescription);

// The desktop's settings program for a section: the first of GNOME's, KDE's, Xfce's, Cinnamon's and
// MATE's settings programs that exists (the running desktop's own first). Empty when none exists.
struct SettingsCommand
{
    QString program;
    QStringList arguments;
};
SettingsCommand settingsCommandFor(AccessAlertKind kind, const QString& xdgCurrentDesktop,
                                   const std::function<bool(const QString&)>& programExists);
