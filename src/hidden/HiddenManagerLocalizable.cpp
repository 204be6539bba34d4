#include "HiddenManagerLocalizable.h"

#include "core/Texts.h"

namespace {
constexpr const char* kTable = "HiddenManagerLocalizable";

QString text(const char* key, const char* english)
{
    return Texts::localized(kTable, key, QString::fromUtf8(english));
}
} // namespace

namespace HiddenManagerLocalizable {

QString informationAboutAccessAlertsTitle()
{
    return text("InformationAboutAccessAlerts_Title",
                "The system requires special permissions for Trovix to get access to System Events and Finder");
}

QString informationAboutAccessAlertsMessage()
{
    return text("InformationAboutAccessAlerts_Message",
                "It is necessary for the system to allow Trovix switch the hidden files visibility and to operate "
                "hidden files.\nPlease, allow the permission for the next system messages to make Trovix work "
                "correctly.");
}

QString informationAboutAccessAlertsButtonGrantAccess()
{
    return text("InformationAboutAccessAlerts_Button_GrantAccess", "Grant Access");
}

QString informationAboutAccessAlertsButtonCancel()
{
    return text("InformationAboutAccessAlerts_Button_Cancel", "Cancel");
}

QString informationAboutAccessAlertsButtonReadMore()
{
    return text("InformationAboutAccessAlerts_Button_ReadMore", "Read More");
}

QString accessNotGrantedForFinderAutomationTitle()
{
    return text("AccessNotGrantedForFinderAutomation_Title",
                "Trovix could\u2019t switch hidden files visibility as the system requires a special permission");
}

QString accessNotGrantedForFinderAutomationMessage()
{
    return text("AccessNotGrantedForFinderAutomation_Message",
                "Please, allow Trovix to get access to control Finder to switch hidden files visibility. Open System "
                "Preferences and enable Finder for Trovix in the Automation section.");
}

QString accessNotGrantedForSystemEventsAutomationTitle()
{
    return text("AccessNotGrantedForSystemEventsAutomation_Title",
                "Trovix could\u2019t switch hidden files visibility as the system requires a special permission");
}

QString accessNotGrantedForSystemEventsAutomationMessage()
{
    return text("AccessNotGrantedForSystemEventsAutomation_Message",
                "Please, allow Trovix to get access to control System Events to interact with hidden files and operate "
                "them. Open System Preferences and enable System Events for Trovix in the Automation section");
}

QString accessNotGrantedForAccessibilityTitle()
{
    return text("AccessNotGrantedForAccessibility_Title", "Trovix needs to be switched in the Accessibility section");
}

QString accessNotGrantedForAccessibilityMessage()
{
    return text("AccessNotGrantedForAccessibility_Message",
                "To make Trovix work correctly, open System Preferences, click the Lock icon for further changes and "
                "enable Trovix in the Accessibility section.");
}

QString accessNotGrantedButtonOpenSystemPreferences()
{
    return text("AccessNotGranted_Button_OpenSystemPreferences", "Open System Preferences");
}

QString accessNotGrantedButtonReadMore()
{
    return text("AccessNotGranted_Button_ReadMore", "Read More");
}

} // namespace HiddenManagerLocalizable

std::optional<AccessAlertChoice> chooseAccessAlert(const QString& d)
{
    using namespace HiddenManagerLocalizable;
    if (d.contains(QLatin1String("-1743"))) {
        if (d.contains(QLatin1String("Finder")))
            return AccessAlertChoice{AccessAlertKind::FinderAutomation, accessNotGrantedForFinderAutomationTitle(),
                                     accessNotGrantedForFinderAutomationMessage(), QStringLiteral("finder")};
        if (d.contains(QLatin1String("System Events")))
            return AccessAlertChoice{
                AccessAlertKind::SystemEventsAutomation, accessNotGrantedForSystemEventsAutomationTitle(),
                accessNotGrantedForSystemEventsAutomationMessage(), QStringLiteral("systemevents")};
        return std::nullopt;
    }
    if (d.contains(QLatin1String("1002")))
        return AccessAlertChoice{AccessAlertKind::Accessibility, accessNotGrantedForAccessibilityTitle(),
                                 accessNotGrantedForAccessibilityMessage(), QStringLiteral("accessibility")};
    return std::nullopt;
}

SettingsCommand settingsCommandFor(AccessAlertKind kind, const QString& xdgCurrentDesktop,
                                   const std::function<bool(const QString&)>& programExists)
{
    const bool accessibility = kind == AccessAlertKind::Accessibility;
    struct Candidate
    {
        QStringList desktops;
        SettingsCommand command;
    };
    // Automation has no counterpart on these desktops: its link opens the applications' permissions.
    const std::vector<Candidate> candidates = {
        {{QStringLiteral("GNOME"), QStringLiteral("UNITY"), QStringLiteral("BUDGIE")},
         {QStringLiteral("gnome-control-center"),
          {accessibility ? QStringLiteral("universal-access") : QStringLiteral("applications")}}},
        {{QStringLiteral("KDE")},
         {QStringLiteral("systemsettings"),
          {accessibility ? QStringLiteral("kcm_access") : QStringLiteral("kcm_filetypes")}}},
        {{QStringLiteral("XFCE")},
         {QStringLiteral("xfce4-settings-manager"),
          accessibility ? QStringList{QStringLiteral("--dialog"), QStringLiteral("xfce4-accessibility-settings")}
                        : QStringList{}}},
        {{QStringLiteral("X-CINNAMON"), QStringLiteral("CINNAMON")},
         {QStringLiteral("cinnamon-settings"),
          {accessibility ? QStringLiteral("universal-access") : QStringLiteral("applets")}}},
        {{QStringLiteral("MATE")}, {QStringLiteral("mate-control-center"), {}}},
    };
    const QStringList running = xdgCurrentDesktop.toUpper().split(QLatin1Char(':'), Qt::SkipEmptyParts);
    for (const Candidate& c : candidates) {
        for (const QString& d : running) {
            if (c.desktops.contains(d) && programExists(c.command.program))
                return c.command;
        }
    }
    for (const Candidate& c : candidates) {
        if (programExists(c.command.program))
            return c.command;
    }
    return {};
}
