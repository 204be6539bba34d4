#pragma once

#include <QStringList>

// The command-line front end. Each command gets the arguments after its name and returns the process's
// exit status. They run under a QCoreApplication: no display is needed.
namespace cli {

// Whether argv[1] names a command-line use rather than the tray program.
bool isCommand(const QString& word);
int run(const QString& command, const QStringList& args);

int printHelp();
int printVersion();
int runSearch(const QStringList& args);
int runHidden(const QStringList& args);
int runMemory(const QStringList& args);
// hide (visible false) or unhide (true) the files given.
int runVisibility(bool visible, const QStringList& args);
// The file managers' context-menu entries: install, remove, report.
int runPluginKit(const QStringList& args);
int runSize(const QStringList& args);
int runDisk(const QStringList& args);
// The tray program's name index: its state (exit 3 when there is none).
int runIndex(const QStringList& args);

} // namespace cli
