#include "FileManagers.h"

#include <QDir>
#include <QFile>
#include <QProcessEnvironment>
#include <QStandardPaths>

#include <algorithm>

namespace FileManagers {

const std::vector<FileManager>& known()
{
    static const std::vector<FileManager> list = {
        {QStringLiteral("nautilus"), QStringLiteral("Files")},
        {QStringLiteral("dolphin"), QStringLiteral("Dolphin")},
        {QStringLiteral("thunar"), QStringLiteral("Thunar")},
        {QStringLiteral("nemo"), QStringLiteral("Nemo")},
        {QStringLiteral("caja"), QStringLiteral("Caja")},
    };
    return list;
}

std::optional<FileManager> byId(const QString& id)
{
    for (const FileManager& fm : known()) {
        if (fm.id == id)
            return fm;
    }
    return std::nullopt;
}

std::optional<FileManager> fromDesktopId(const QString& desktopId)
{
    const QString lower = desktopId.toLower();
    for (const FileManager& fm : known()) {
        if (lower.contains(fm.id))
            return fm;
    }
    return std::nullopt;
}

std::optional<FileManager> fromDesktopEnvironment(const QString& xdgCurrentDesktop)
{
    for (const QString& part : xdgCurrentDesktop.split(QLatin1Char(':'), Qt::SkipEmptyParts)) {
        const QString d = part.toUpper();
        if (d == QLatin1String("GNOME") || d == QLatin1String("UNITY") || d == QLatin1String("BUDGIE"))
            return byId(QStringLiteral("nautilus"));
        if (d == QLatin1String("KDE"))
            return byId(QStringLiteral("dolphin"));
        if (d == QLatin1String("XFCE"))
            return byId(QStringLiteral("thunar"));
        if (d == QLatin1String("X-CINNAMON") || d == QLatin1String("CINNAMON"))
            return byId(QStringLiteral("nemo"));
        if (d == QLatin1String("MATE"))
            return byId(QStringLiteral("caja"));
    }
    return std::nullopt;
}

QString defaultHandlerFromMimeappsLists(const QStringList& contents)
{
    const auto find = [&contents](QLatin1String wantedGroup) {
        for (const QString& text : contents) {
            QString group;
            for (const QString& raw : text.split(QLatin1Char('\n'))) {
                const QString line = raw.trimmed();
                if (line.startsWith(QLatin1Char('['))) {
                    group = line;
                } else if (group == wantedGroup &&
                           line.section(QLatin1Char('='), 0, 0).trimmed() == QLatin1String("inode/directory")) {
                    // Blanks around "=" are allowed, as in any desktop-entry file.
                    const QString first = line.section(QLatin1Char('='), 1)
                                              .split(QLatin1Char(';'), Qt::SkipEmptyParts)
                                              .value(0)
                                              .trimmed();
                    if (!first.isEmpty())
                        return first;
                }
            }
        }
        return QString();
    };
    const QString def = find(QLatin1String("[Default Applications]"));
    return def.isEmpty() ? find(QLatin1String("[Added Associations]")) : def;
}

QStringList mimeappsListPaths()
{
    QStringList desktops;
    for (const QString& d : qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(QLatin1Char(':'), Qt::SkipEmptyParts))
        desktops << d.toLower();
    QStringList paths;
    const auto addDir = [&](const QString& dir) {
        for (const QString& d : desktops)
            paths << dir + QLatin1Char('/') + d + QStringLiteral("-mimeapps.list");
        paths << dir + QStringLiteral("/mimeapps.list");
    };
    addDir(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation));
    for (const QString& dir : QStandardPaths::standardLocations(QStandardPaths::GenericConfigLocation).mid(1))
        addDir(dir);
    for (const QString& dir : QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation))
        addDir(dir + QStringLiteral("/applications"));
    return paths;
}

std::vector<FileManager> running()
{
    std::vector<FileManager> found;
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& pid : pids) {
        if (!pid.at(0).isDigit())
            continue;
        QFile comm(QStringLiteral("/proc/") + pid + QStringLiteral("/comm"));
        if (!comm.open(QIODevice::ReadOnly))
            continue;
        const QString name = QString::fromUtf8(comm.readAll()).trimmed().toLower();
        if (auto fm = byId(name); fm && std::none_of(found.begin(), found.end(), [&](const FileManager& f) {
                return f.id == fm->id;
            }))
            found.push_back(*fm);
    }
    return found;
}

std::vector<FileManager> installed()
{
    std::vector<FileManager> found;
    for (const FileManager& fm : known()) {
        if (!QStandardPaths::findExecutable(fm.id).isEmpty())
            found.push_back(fm);
    }
    return found;
}

std::optional<FileManager> detectPrimary()
{
    QStringList contents;
    for (const QString& path : mimeappsListPaths()) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            contents << QString::fromUtf8(file.readAll());
    }
    if (auto fm = fromDesktopId(defaultHandlerFromMimeappsLists(contents)))
        return fm;
    if (auto fm = fromDesktopEnvironment(qEnvironmentVariable("XDG_CURRENT_DESKTOP")))
        return fm;
    if (auto list = running(); !list.empty())
        return list.front();
    if (auto list = installed(); !list.empty())
        return list.front();
    return std::nullopt;
}

} // namespace FileManagers
