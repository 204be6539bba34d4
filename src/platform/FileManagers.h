#pragma once

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

// The file managers Trovix works with, and which of them is the user's ("primary"): the default handler
// of inode/directory, else the desktop's own, else one that runs, else one that is installed.
struct FileManager
{
    QString id;          // "nautilus", "dolphin", "thunar", "nemo", "caja": also the executable
    QString displayName; // "Files", "Dolphin", ...: the word that stands for "Finder" in texts
};

namespace FileManagers {

const std::vector<FileManager>& known();
std::optional<FileManager> byId(const QString& id);

// "org.gnome.Nautilus.desktop" -> nautilus, "Thunar-folder-handler.desktop" -> thunar, ...
std::optional<FileManager> fromDesktopId(const QString& desktopId);
// "GNOME", "ubuntu:GNOME", "KDE", "XFCE", "X-Cinnamon", "MATE" -> its file manager.
std::optional<FileManager> fromDesktopEnvironment(const QString& xdgCurrentDesktop);
// The first desktop id given for inode/directory in [Default Applications] of mimeapps.list texts,
// read in precedence order; the [Added Associations] group counts only when no default is set.
QString defaultHandlerFromMimeappsLists(const QStringList& contents);
// mimeapps.list paths in precedence order for this user and desktop.
QStringList mimeappsListPaths();

// Known file managers that run now (by /proc/<pid>/comm) and that are installed (in PATH).
std::vector<FileManager> running();
std::vector<FileManager> installed();

// The user's file manager, or nullopt when none is known or present.
std::optional<FileManager> detectPrimary();

} // namespace FileManagers
