// trovix-launcher: what the login autostart entry runs. It starts Trovix and quits when Trovix, once up,
// says "TERMINATEHELPER" (or after a bounded wait), so Trovix knows it was started at login.
#include "core/DistributedNotificationCenter.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTimer>

#include <cstdio>

namespace {

const QString kLauncherIdentifier = QStringLiteral("com.quorbel.trovix.launcher");
const QString kMainIdentifier = QStringLiteral("com.quorbel.trovix");

QString trovixProgram()
{
    const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/trovix");
    if (QFileInfo(beside).isExecutable())
        return beside;
    return QStandardPaths::findExecutable(QStringLiteral("trovix"));
}

int waitMs()
{
    bool ok = false;
    const int ms = qEnvironmentVariableIntValue("TROVIX_LAUNCHER_WAIT_MS", &ok);
    return ok && ms > 0 ? ms : 60000;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        std::fprintf(stderr, "trovix-launcher: no session bus\n");
        return 1;
    }
    // One launcher at a time, and none needed when Trovix already runs.
    if (!bus.registerService(kLauncherIdentifier) || bus.interface()->isServiceRegistered(kMainIdentifier).value())
        return 0;

    DistributedNotificationCenter center(bus);
    center.addObserver(QStringLiteral("TERMINATEHELPER"), kMainIdentifier, &app,
                       [](const QString&, const QString&, const QVariantMap&) { QCoreApplication::quit(); });

    const QString program = trovixProgram();
    if (program.isEmpty() || !QProcess::startDetached(program, {}, QDir::homePath())) {
        std::fprintf(stderr, "trovix-launcher: cannot start trovix%s%s\n", program.isEmpty() ? "" : " at ",
                     program.toLocal8Bit().constData());
        return 1;
    }
    QTimer::singleShot(waitMs(), &app, &QCoreApplication::quit);
    return app.exec();
}
