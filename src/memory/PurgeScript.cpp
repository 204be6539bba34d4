#include "PurgeScript.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryFile>

#include <cstdio>

namespace PurgeScript {

bool run(const QString& resource)
{
    QFile source(resource);
    if (!source.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "trovix: the purge script %s is missing\n", qPrintable(resource));
        return false;
    }
    // The shell needs a real file; the copy goes when the run is over.
    QTemporaryFile script(QDir::tempPath() + QStringLiteral("/trovix-purge-XXXXXX.sh"));
    if (!script.open() || script.write(source.readAll()) < 0 || !script.flush()) {
        std::fprintf(stderr, "trovix: cannot write the purge script: %s\n", qPrintable(script.errorString()));
        return false;
    }
    QProcess shell;
    shell.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    shell.setStandardOutputFile(QProcess::nullDevice());
    shell.start(QStringLiteral("/bin/sh"), {script.fileName()});
    if (!shell.waitForStarted(-1)) {
        std::fprintf(stderr, "trovix: cannot run /bin/sh: %s\n", qPrintable(shell.errorString()));
        return false;
    }
    shell.waitForFinished(-1);
    return shell.exitStatus() == QProcess::NormalExit;
}

} // namespace PurgeScript
