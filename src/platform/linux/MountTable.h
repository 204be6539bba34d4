#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <string>
#include <vector>

// The mounts this process sees, from /proc/self/mountinfo. Paths stay raw bytes: they go to system
// calls and to the walker, which work in bytes.
struct MountEntry
{
    QByteArray root;       // the mounted folder inside its file system
    QByteArray mountPoint; // where it appears here
    QByteArray fsType;
    QByteArray superOptions;
};

namespace MountTable {

std::vector<MountEntry> parse(QByteArrayView mountinfo);
// procRoot: prefix of /proc ("" for the running system); empty when the file cannot be read.
std::vector<MountEntry> read(const QString& procRoot = QString());
// mountinfo writes blanks, tabs, newlines and backslashes in paths as \ooo.
QByteArray unescape(QByteArrayView field);

// File systems whose entries are not files on a disk (kernel views, automount triggers, per-user
// FUSE bridges to remote places): a whole-disk search lists their mount point but does not go in.
bool isVirtual(QByteArrayView fsType);
std::vector<std::string> virtualMountPoints(const std::vector<MountEntry>& mounts);

} // namespace MountTable
