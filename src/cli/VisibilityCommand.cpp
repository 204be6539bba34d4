#include "Commands.h"

#include "hidden/DiskAccessRestoreManager.h"
#include "hidden/FileVisibility.h"
#include "hidden/ScriptsManager.h"

#include <QDir>
#include <QEventLoop>
#include <QLoggingCategory>

#include <cstdio>

namespace cli {

// trovix hide|unhide FILE...: what the file managers' "Hide with Trovix" entries ask of the tray program,
// done directly. Relative paths are taken from the working folder; a link is hidden itself, not its target.
int runVisibility(bool visible, const QStringList& args)
{
    if (args.isEmpty()) {
        std::fprintf(stderr, "usage: trovix %s FILE...\n", visible ? "unhide" : "hide");
        return 2;
    }
    QStringList paths;
    for (const QString& arg : args)
        paths.append(QDir::cleanPath(QDir::current().absoluteFilePath(arg)));

    FileVisibility visibility(ScriptsManager::sharedManager(),
                              [] { return DiskAccessRestoreManager::sharedManager().isUserFolderAccessible(); });
    // Each failure is told once, in the terminal's words rather than the log's.
    QLoggingCategory::setFilterRules(QStringLiteral("trovix.visibility.warning=false"));
    QEventLoop loop;
    QStringList errors;
    visibility.setVisibility(visible, paths, [&](const QStringList& failed) {
        errors = failed;
        loop.quit();
    });
    loop.exec();
    for (const QString& error : std::as_const(errors))
        std::fprintf(stderr, "trovix: %s\n", error.toLocal8Bit().constData());
    return errors.isEmpty() ? 0 : 1;
}

} // namespace cli
