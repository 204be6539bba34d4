#include "QBAppDelegate.h"

#include "core/DistributedNotificationCenter.h"
#include "core/NotificationCenter.h"
#include "QBPurgeController.h"
#include "core/Settings.h"
#include "core/Texts.h"
#include "login/RunAtLoginManager.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QIcon>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QSaveFile>
#include <QStandardPaths>

QBAppDelegate::QBAppDelegate(QBPurgeController& controller, Settings& settings, NotificationCenter& center,
                             DistributedNotificationCenter& distributed, QObject* parent)
    : QObject(parent)
    , m_purgeController(controller)
    , m_settings(settings)
    , m_center(center)
    , m_distributed(distributed)
{
    controller.setAppDelegate(this);
}

QString QBAppDelegate::appCopyHaveJustTriedToLaunchNotificatioName()
{
    return QStringLiteral("AppCopyHaveJustTriedToLaunchNotificatioName");
}

QString QBAppDelegate::bundleIdentifier()
{
    return QStringLiteral("com.quorbel.trovix");
}

void QBAppDelegate::notifyRunningCopy(DistributedNotificationCenter& distributed)
{
    distributed.post(appCopyHaveJustTriedToLaunchNotificatioName(), bundleIdentifier());
}

void QBAppDelegate::applicationDidFinishLaunching(const QStringList& arguments)
{
    // Started at login by the launcher: it can go now.
    loginManager().checkWasAutolaunchedWithHelperApp(true);
    m_distributed.addObserver(
        appCopyHaveJustTriedToLaunchNotificatioName(), bundleIdentifier(), this,
        [this](const QString&, const QString&, const QVariantMap&) { appCopyHaveJustTriedToLaunch(); });

    QString copy;
    if (copyAppToApplications(&copy)) {
        if (m_beforeHandOver)
            m_beforeHandOver();
        if (QProcess::startDetached(copy, arguments.mid(1))) {
            QCoreApplication::exit(0);
            return;
        }
    }
    migrateLegacyLoginItem(loginManager(), m_settings.defaults());

    // The first argument is the program itself and never counts.
    if (arguments.mid(1).contains(QStringLiteral("ShowWindowAfterStart")))
        m_center.post(QStringLiteral("ShowWindowAfterStart"));
}

void QBAppDelegate::appCopyHaveJustTriedToLaunch()
{
    QBPurgeController::ShowMainWindowAndMakeActive(m_center);
}

RunAtLoginManager& QBAppDelegate::loginManager()
{
    return m_loginManager ? *m_loginManager : TrovixProjectRunAtLoginManager::shared();
}

void QBAppDelegate::setIsEnabledForHelperApp(bool enabled)
{
    loginManager().setIsEnabledForHelperApp(enabled, [enabled] {
        QMessageBox alert;
        alert.setObjectName(QStringLiteral("loginItemFailedAlert"));
        alert.setWindowTitle(QGuiApplication::applicationDisplayName());
        alert.setIcon(QMessageBox::Warning);
        alert.setText(Texts::platformWords(QStringLiteral("An error ocurred")));
        alert.setInformativeText(enabled ? QStringLiteral("Couldn't add Helper App to launch at login item list.")
                                         : QStringLiteral("Couldn't remove Helper App from launch at login item list."));
        alert.addButton(QStringLiteral("OK"), QMessageBox::AcceptRole);
        alert.exec();
    });
}

bool QBAppDelegate::isInstalledLocation(const QString& binaryPath, const QString& home)
{
    const QString path = QFileInfo(binaryPath).absoluteFilePath();
    const QStringList prefixes = {QStringLiteral("/usr/"),
                                  QStringLiteral("/opt/"),
                                  QStringLiteral("/app/"),
                                  QStringLiteral("/snap/"),
                                  QStringLiteral("/nix/"),
                                  home + QStringLiteral("/.local/"),
                                  home + QStringLiteral("/Applications/"),
                                  home + QStringLiteral("/bin/")};
    for (const QString& prefix : prefixes) {
        if (path.startsWith(prefix))
            return true;
    }
    // A running AppImage is mounted under /tmp/.mount_*; it manages its own place.
    return path.contains(QStringLiteral("/.mount_")) || !qEnvironmentVariableIsEmpty("APPIMAGE");
}

QBAppDelegate::CopyResult QBAppDelegate::installCopy(const QString& binaryPath, const QString& binDir,
                                                     const QString& dataDir)
{
    CopyResult result;
    const QString destination = binDir + QStringLiteral("/trovix");
    if (!QDir().mkpath(binDir)) {
        result.error = QStringLiteral("Cannot create %1.").arg(binDir);
        return result;
    }
    // Replaces only our own earlier copy: write beside it, then rename over it.
    const QString temporary = destination + QStringLiteral(".new");
    QFile::remove(temporary);
    if (!QFile::copy(binaryPath, temporary)) {
        result.error = QStringLiteral("Cannot copy %1 to %2.").arg(binaryPath, binDir);
        return result;
    }
    QFile::setPermissions(temporary, QFile::permissions(binaryPath) | QFile::ExeOwner | QFile::ReadOwner);
    if (QFile::exists(destination) && !QFile::remove(destination)) {
        QFile::remove(temporary);
        result.error = QStringLiteral("Cannot replace %1.").arg(destination);
        return result;
    }
    if (!QFile::rename(temporary, destination)) {
        result.error = QStringLiteral("Cannot move the copy into %1.").arg(binDir);
        return result;
    }

    const QString iconDir = dataDir + QStringLiteral("/icons/hicolor/scalable/apps");
    QDir().mkpath(iconDir);
    QFile::remove(iconDir + QStringLiteral("/com.quorbel.trovix.svg"));
    QFile::copy(QStringLiteral(":/icons/trovix.svg"), iconDir + QStringLiteral("/com.quorbel.trovix.svg"));
    QFile::setPermissions(iconDir + QStringLiteral("/com.quorbel.trovix.svg"),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther);

    const QString appsDir = dataDir + QStringLiteral("/applications");
    QDir().mkpath(appsDir);
    QFile entryTemplate(QStringLiteral(":/desktop/com.quorbel.trovix.desktop"));
    QSaveFile entry(appsDir + QStringLiteral("/com.quorbel.trovix.desktop"));
    if (entryTemplate.open(QIODevice::ReadOnly) && entry.open(QIODevice::WriteOnly)) {
        QByteArray text = entryTemplate.readAll();
        text.replace("Exec=trovix", "Exec=" + QFile::encodeName(destination));
        entry.write(text);
        entry.commit();
    }
    result.copied = true;
    result.destination = destination;
    return result;
}

bool QBAppDelegate::copyAppToApplications(QString* destination)
{
    const QString binary = QCoreApplication::applicationFilePath();
    const QString home = QDir::homePath();
    if (isInstalledLocation(binary, home))
        return false;
    if (m_settings.defaults().boolForKey(SettingsKey::SuppressAlertMoveToApplications))
        return false;
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        return false;

    QMessageBox box;
    box.setObjectName(QStringLiteral("moveToApplicationsAlert"));
    box.setIcon(QMessageBox::Information);
    box.setIconPixmap(QIcon(QStringLiteral(":/icons/trovix.svg")).pixmap(64, 64));
    box.setText(
        Texts::format(QStringLiteral("Move %@ to Applications folder?"), {QGuiApplication::applicationDisplayName()}));
    box.setInformativeText(QStringLiteral("The best way to locate the application is the Applications folder. "
                                          "I can move myself if you'd like."));
    QPushButton* move = box.addButton(QStringLiteral("Move to Applications Folder"), QMessageBox::AcceptRole);
    box.addButton(QStringLiteral("Do Not Move"), QMessageBox::RejectRole);
    box.setDefaultButton(move);
    auto* suppress = new QCheckBox(QStringLiteral("Do not show this message again"));
    box.setCheckBox(suppress);
    // Launch time, before the main loop: the answer decides whether this process goes on.
    box.exec();
    if (suppress->isChecked())
        m_settings.defaults().setObject(true, SettingsKey::SuppressAlertMoveToApplications);
    if (box.clickedButton() != move)
        return false;

    const CopyResult result = installCopy(binary, home + QStringLiteral("/.local/bin"),
                                          QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation));
    if (!result.copied) {
        QMessageBox::warning(nullptr, QGuiApplication::applicationDisplayName(), result.error);
        return false;
    }
    if (destination)
        *destination = result.destination;
    return true;
}
