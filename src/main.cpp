// Trovix: with a command word it is a command-line tool; without, the tray program.
#include "core/DistributedNotificationCenter.h"
#include "core/NotificationCenter.h"
#include "gui/shell/QBAppDelegate.h"
#include "gui/shell/IndexSuggestions.h"
#include "gui/shell/PanelWindow.h"
#include "gui/shell/QBPurgeController.h"
#include "gui/shell/SessionPlatform.h"
#include "core/Settings.h"
#include "core/SingleInstance.h"
#include "search/NameIndexService.h"
#include "cli/Commands.h"

#include <QApplication>
#include <QDBusConnection>
#include <QFile>
#include <QUrl>
#include <QIcon>
#include <QProcessEnvironment>
#include <QTimer>

#include <cstdio>
#include <memory>

namespace {

void describeApplication()
{
    QCoreApplication::setApplicationName(QStringLiteral("trovix"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("quorbel.com"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TROVIX_VERSION));
}

bool hasDisplay()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc > 1 && cli::isCommand(QString::fromLocal8Bit(argv[1]))) {
        QCoreApplication app(argc, argv);
        describeApplication();
        QStringList args = app.arguments();
        const QString command = args.value(1);
        return cli::run(command, args.mid(2));
    }
    if (!hasDisplay()) {
        std::fprintf(stderr, "trovix: no display, so the tray program cannot start; the command line works:\n\n");
        cli::printHelp();
        return 1;
    }

    // Chosen for this process only: programs started from it (file managers) keep the session's own.
    const QByteArray platform = SessionPlatform::platformFor(QProcessEnvironment::systemEnvironment());
    if (!platform.isEmpty())
        qputenv("QT_QPA_PLATFORM", platform);
    QApplication app(argc, argv);
    if (!platform.isEmpty())
        qunsetenv("QT_QPA_PLATFORM");
    describeApplication();
    QGuiApplication::setApplicationDisplayName(QStringLiteral("Trovix"));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.quorbel.trovix"));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/trovix.svg")));
    QApplication::setQuitOnLastWindowClosed(false);

    // One copy per session: a second one asks the first to show its panel and quits.
    auto instance = std::make_unique<SingleInstance>(QDBusConnection::sessionBus());
    DistributedNotificationCenter& distributed = DistributedNotificationCenter::defaultCenter();
    if (!instance->claim()) {
        QBAppDelegate::notifyRunningCopy(distributed);
        std::fprintf(stderr, "trovix: already running; its panel is brought forward\n");
        return 0;
    }

    QBPurgeController controller(QBPurgeController::Collaborators{});
    QBAppDelegate delegate(controller, Settings::shared(), NotificationCenter::defaultCenter(), distributed);
    delegate.setBeforeHandOver([&instance] { instance.reset(); });
    controller.awakeFromNib();
    NameIndexService nameIndex(QDBusConnection::sessionBus());
    nameIndex.startFromSettings(Settings::shared().defaults());
    if (controller.panel())
        new IndexSuggestions(controller.panel()->searchBar(), nameIndex.keeper(), [] {
            const QVariant stored = Settings::shared().getSearchLocation();
            const QString path = stored.typeId() == QMetaType::QUrl ? stored.toUrl().toLocalFile() : stored.toString();
            return QFile::encodeName(path);
        });
    const QStringList arguments = app.arguments();
    QTimer::singleShot(0, &delegate, [&delegate, arguments] { delegate.applicationDidFinishLaunching(arguments); });
    return app.exec();
}
