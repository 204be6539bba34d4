#pragma once

#include "hidden/HiddenManagerAlerts.h"
#include "hidden/HiddenManagerLocalizable.h"
#include "gui/hidden/InformationAboutAccessAlertsWC.h"

#include <QMessageBox>

#include <QObject>
#include <QPointer>
#include <QUrl>

class QWidget;

// The permission sheets of the windowed program, shown window-modal on the panel. mainWindow returns
// the panel, showing it first when it is closed, or null when there is none: then nothing is shown.
class AccessAlerts : public QObject, public HiddenManagerAlerts
{
    Q_OBJECT
public:
    struct Hooks
    {
        std::function<QWidget*()> mainWindow;
        // Defaults: the desktop's URL handler, and a detached process.
        std::function<void(const QUrl&)> openUrl;
        std::function<bool(const SettingsCommand&)> startProgram;
    };

    static constexpr int kFirstButton = 1000;
    static constexpr int kSecondButton = 1001;

    explicit AccessAlerts(Hooks hooks, QObject* parent = nullptr);
    ~AccessAlerts() override;

    void displayInformationAboutAccessibilityAlertsWithCompletion(std::function<void(bool)> completion) override;
    void displayInformationAboutAccessError(const ScriptError& error) override;

    // The shipped help page (copied out of the resources so a browser can open it), at an anchor.
    static QUrl helpUrl(const QString& anchor);
    // The settings program of this desktop for the section, or empty.
    static SettingsCommand settingsCommand(AccessAlertKind kind);

    InformationAboutAccessAlertsWC* informationSheet() const { return m_informationWC; }
    QMessageBox* accessErrorAlert() const { return m_accessAlert; }

private:
    void openUrl(const QUrl& url);
    void openSettings(AccessAlertKind kind);

    Hooks m_hooks;
    QPointer<InformationAboutAccessAlertsWC> m_informationWC;
    QPointer<QMessageBox> m_accessAlert;
};
