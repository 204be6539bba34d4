#include "HomeFolder.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <cstdio>
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace HomeFolder {

QString ensure(QString* problem)
{
    const QString home = qEnvironmentVariable("HOME");
    if (!home.isEmpty())
        return home;
    const passwd* entry = ::getpwuid(::getuid());
    const QString fromDatabase = entry && entry->pw_dir ? QFile::decodeName(entry->pw_dir) : QString();
    const QFileInfo folder(fromDatabase);
    // "/" and folders that do not exist ("/nonexistent") are what system accounts get instead of a home.
    if (fromDatabase.isEmpty() || !folder.isAbsolute() || folder.isRoot() || !folder.isDir()) {
        if (problem) {
            *problem = entry ? QStringLiteral("HOME is not set and the home folder of user %1 in the password "
                                              "database (\"%2\") cannot be used")
                                   .arg(QString::number(::getuid()), fromDatabase)
                             : QStringLiteral("HOME is not set and user %1 has no entry in the password database")
                                   .arg(::getuid());
        }
        return {};
    }
    qputenv("HOME", QFile::encodeName(fromDatabase));
    return fromDatabase;
}

} // namespace HomeFolder

namespace {

void stopWithoutHome()
{
    QString problem;
    if (!HomeFolder::ensure(&problem).isEmpty())
        return;
    std::fprintf(stderr, "trovix: no home folder (%s); set HOME to your home folder and start again\n",
                 qPrintable(problem));
    std::exit(1);
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(stopWithoutHome)
