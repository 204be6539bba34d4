#include "Commands.h"

#include "hidden/PluginKit.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

namespace cli {

int runPluginKit(const QStringList& args)
{
    QTextStream out(stdout);
    QTextStream err(stderr);
    const PluginKit kit(PluginKit::Places::current(QCoreApplication::applicationFilePath()));
    return kit.run(args, out, err);
}

} // namespace cli
