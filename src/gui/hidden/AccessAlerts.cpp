#include "AccessAlerts.h"

#include "gui/hidden/InformationAboutAccessAlertsWC.h"

#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QSaveFile>
#include <QStandardPaths>

namespace {
Q_LOGGING_CATEGORY(lcAlerts, "trovix.hidden.alerts")
}

AccessAlerts::AccessAlerts(Hooks hooks, QObject* parent)
    : QObject(parent)
    , m_hooks(std::move(hooks))
{
}

AccessAlerts::~AccessAlerts()
{
    delete m_informationWC.data();
    delete m_accessAlert.data();
}

QUrl AccessAlerts::helpUrl(const QString& anchor)
{
    const QString folder =
        QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + QStringLiteral("/trovix/help");
    QDir().mkpath(folder);
    const QString path = folder + QStringLiteral("/getting-started.html");
    QFile source(QStringLiteral(":/help/getting-started.html"));
    if (source.open(QIODevice::ReadOnly)) {
        QSaveFile out(path);
        if (out.open(QIODevice::WriteOnly)) {
            out.write(source.readAll());
            out.commit();
        }
    }
    QUrl url = QUrl::fromLocalFile(path);
    if (!anchor.isEmpty())
        url.setFragment(anchor);
    return url;
}

SettingsCommand AccessAlerts::settingsCommand(AccessAlertKind kind)
{
    return settingsCommandFor(kind, qEnvironmentVariable("XDG_CURRENT_DESKTOP"), [](const QString& program) {
        return !QStandardPaths::findExecutable(program).isEmpty();
    });
}

void AccessAlerts::openUrl(const QUrl& url)
{
    if (m_hooks.openUrl)
        m_hooks.openUrl(url);
    else
        QDesktopServices::openUrl(url);
}

void AccessAlerts::openSettings(AccessAlertKind kind)
{
    const SettingsCommand command = settingsCommand(kind);
    if (command.program.isEmpty()) {
        qCWarning(lcAlerts, "no settings program of a known desktop is installed");
        return;
    }
    const bool started = m_hooks.startProgram ? m_hooks.startProgram(command)
                                              : QProcess::startDetached(command.program, command.arguments);
    if (!started)
        qCWarning(lcAlerts, "cannot start %s", qPrintable(command.program));
}

void AccessAlerts::displayInformationAboutAccessibilityAlertsWithCompletion(std::function<void(bool)> completion)
{
    QWidget* window = m_hooks.mainWindow ? m_hooks.mainWindow() : nullptr;
    if (!window)
        return;
    // One sheet at a time: a second request while it is up is dropped.
    if (m_informationWC) {
        m_informationWC->raise();
        return;
    }
    auto* sheet = new InformationAboutAccessAlertsWC(window, [this] { openUrl(helpUrl(QStringLiteral("finder"))); });
    m_informationWC = sheet;
    connect(sheet, &QDialog::finished, this, [this, sheet, completion](int code) {
        m_informationWC = nullptr;
        sheet->deleteLater();
        if (completion)
            completion(code == InformationAboutAccessAlertsWC::kGrantAccessCode);
    });
    sheet->open();
}

void AccessAlerts::displayInformationAboutAccessError(const ScriptError& error)
{
    QWidget* window = m_hooks.mainWindow ? m_hooks.mainWindow() : nullptr;
    if (!window)
        return;
    const auto choice = chooseAccessAlert(error.localizedDescription());
    if (!choice)
        return;
    delete m_accessAlert.data();
    auto* alert = new QMessageBox(window);
    alert->setObjectName(QStringLiteral("accessErrorAlert"));
    alert->setWindowModality(Qt::WindowModal);
    alert->setIcon(QMessageBox::Warning);
    alert->setText(choice->title);
    alert->setInformativeText(choice->message);
    QPushButton* first = alert->addButton(HiddenManagerLocalizable::accessNotGrantedButtonOpenSystemPreferences(),
                                          QMessageBox::AcceptRole);
    first->setObjectName(QStringLiteral("openSystemPreferencesButton"));
    QPushButton* second =
        alert->addButton(HiddenManagerLocalizable::accessNotGrantedButtonReadMore(), QMessageBox::HelpRole);
    second->setObjectName(QStringLiteral("readMoreButton"));
    alert->setDefaultButton(first);
    m_accessAlert = alert;
    const AccessAlertKind kind = choice->kind;
    const QString anchor = choice->helpAnchor;
    connect(alert, &QMessageBox::buttonClicked, this, [this, alert, first, second, kind, anchor](QAbstractButton* b) {
        const int code = b == first ? kFirstButton : b == second ? kSecondButton : 0;
        alert->deleteLater();
        if (code == kFirstButton)
            openSettings(kind);
        else if (code == kSecondButton)
            openUrl(helpUrl(anchor));
    });
    alert->open();
}
