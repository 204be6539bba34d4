#include "Commands.h"

#include <cstdio>

namespace cli {

bool isCommand(const QString& word)
{
    static const QStringList words = {QStringLiteral("search"), QStringLiteral("hidden"), QStringLiteral("memory"),
                                      QStringLiteral("--help"), QStringLiteral("-h"), QStringLiteral("help"),
                                      QStringLiteral("--version"), QStringLiteral("hide"), QStringLiteral("unhide"),
                                      QStringLiteral("pluginkit"), QStringLiteral("size"),
                                      QStringLiteral("disk"), QStringLiteral("index")};
    return words.contains(word);
}

int run(const QString& command, const QStringList& args)
{
    if (command == QLatin1String("search"))
        return runSearch(args);
    if (command == QLatin1String("hidden"))
        return runHidden(args);
    if (command == QLatin1String("memory"))
        return runMemory(args);
    if (command == QLatin1String("hide") || command == QLatin1String("unhide"))
        return runVisibility(command == QLatin1String("unhide"), args);
    if (command == QLatin1String("pluginkit"))
        return runPluginKit(args);
    if (command == QLatin1String("size"))
        return runSize(args);
    if (command == QLatin1String("disk"))
        return runDisk(args);
    if (command == QLatin1String("index"))
        return runIndex(args);
    if (command == QLatin1String("--version"))
        return printVersion();
    return printHelp();
}

int printVersion()
{
    std::printf("trovix %s\n", TROVIX_VERSION);
    return 0;
}

int printHelp()
{
    std::printf(
        "Trovix: show or hide hidden files, find files by name, watch and free memory.\n"
        "\n"
        "Usage:\n"
        "  trovix                      start the tray program\n"
        "  trovix ShowWindowAfterStart start it with the panel open\n"
        "  trovix search NEEDLE [FOLDER] [--filter regular,hidden,package] [--long] [--count] [-0]\n"
        "                [--sort name|folder|size|date|kind]\n"
        "                              find files whose name contains NEEDLE (case-insensitive)\n"
        "  trovix search --index NEEDLE [FOLDER] [--count] [-0]\n"
        "                              the same, answered at once by the tray program's name index\n"
        "  trovix index                print the name index's state\n"
        "  trovix hidden [show|hide|toggle]\n"
        "                              tell or switch the file manager's display of hidden files\n"
        "  trovix hide FILE...         hide files from the file manager (its .hidden list)\n"
        "  trovix unhide FILE...       show them again, dropping one leading \".\" from a name\n"
        "  trovix memory [--free]      print memory use, or free memory\n"
        "  trovix size PATH...         print each path's space on disk in bytes\n"
        "  trovix disk [--json] [--verify]\n"
        "                              scan for junk, duplicates, large old files, applications\n"
        "  trovix --help | --version\n");
    return 0;
}

} // namespace cli
