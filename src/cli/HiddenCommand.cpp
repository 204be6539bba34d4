#include "Commands.h"

#include "core/Settings.h"
#include "core/Texts.h"
#include "hidden/HiddenManager.h"

#include <QEventLoop>
#include <QLoggingCategory>
#include <QTimer>

#include <cstdio>

namespace cli {

namespace {

void printState(bool shown)
{
    const QString line = Texts::platformWords(shown ? QStringLiteral("Hidden files are visible in Finder")
                                                    : QStringLiteral("Hidden files are invisible in Finder"));
    std::printf("%s\n", line.toLocal8Bit().constData());
}

void printFailure(const QString& text)
{
    std::fprintf(stderr, "trovix: %s\n", text.toLocal8Bit().constData());
}

// Reads the state from the file manager; false when it could not be read.
bool loadState(HiddenManager& manager, QEventLoop& loop)
{
    manager.loadVisibilityWithCompletion([&loop] { loop.quit(); });
    loop.exec();
    return manager.lastLoadSucceeded();
}

int usage()
{
    std::fprintf(stderr, "usage: trovix hidden [show|hide|toggle]\n");
    return 2;
}

} // namespace

int runHidden(const QStringList& args)
{
    if (args.size() > 1)
        return usage();
    const QString action = args.value(0);
    if (!action.isEmpty() && action != QLatin1String("show") && action != QLatin1String("hide") &&
        action != QLatin1String("toggle"))
        return usage();

    // Running the command counts as having read the explanation the panel shows before the first
    // switch: from now on the state is asked of the file manager.
    Settings& settings = Settings::shared();
    settings.setShouldShowInformationAboutAccessibilityAlerts(false);
    settings.setShouldCheckHiddenFilesVisibility(true);

    // The manager logs each failure; here the command's own line says it, once.
    QLoggingCategory::setFilterRules(QStringLiteral("trovix.hidden.warning=false"));
    HiddenManager& manager = HiddenManager::sharedManager();
    manager.applyStoredValue();
    QEventLoop loop;
    if (!loadState(manager, loop)) {
        printFailure(QStringLiteral("cannot read the file manager's hidden-files setting: ") + manager.lastLoadError());
        return 1;
    }

    const bool wanted = action == QLatin1String("show")   ? true
                        : action == QLatin1String("hide") ? false
                                                          : !manager.isHiddenShown();
    if (action.isEmpty() || wanted == manager.isHiddenShown()) {
        printState(manager.isHiddenShown());
        return 0;
    }

    std::optional<ScriptError> failure;
    manager.switchHiddenFilesVisibilityWithCompletion([&](const std::optional<ScriptError>& error) {
        failure = error;
        // The manager ends its update after this returns; the re-read comes next.
        QTimer::singleShot(0, &loop, [&loop] { loop.quit(); });
    });
    loop.exec();
    if (failure) {
        printFailure(failure->localizedDescription());
        return 1;
    }
    if (!loadState(manager, loop)) {
        printFailure(QStringLiteral("switched, but cannot read the setting back: ") + manager.lastLoadError());
        return 1;
    }
    printState(manager.isHiddenShown());
    return manager.isHiddenShown() == wanted ? 0 : 1;
}

} // namespace cli
