#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// A file's "hidden" flag as the Linux file managers read it: the name begins with "." or is listed in the
// folder's `.hidden` file (one exact name per line, no trimming). Paths are local file paths.
namespace HiddenFlag {

// Largest `.hidden` file read; anything bigger (or not a regular file) is treated as listing nothing.
inline constexpr qint64 kMaxListSize = 1 << 20;

// Whether the name is listed in the folder's `.hidden` file.
bool isListed(const QString& path);

// Lists or unlists the file's name in its folder's `.hidden` file, rewriting it atomically and keeping
// every other line exactly as it was. A file whose name begins with "." is hidden by its name already
// and is never added. Returns an error text, or nullopt on success (also when nothing had to change).
std::optional<QString> setHidden(const QString& path, bool hidden);

// Renames within one folder without ever replacing a file that is already there. Error text, or nullopt.
std::optional<QString> renameNoReplace(const QString& from, const QString& to);

} // namespace HiddenFlag
