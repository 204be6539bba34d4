#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

// Freedesktop desktop entries (.desktop files): the keys of the [Desktop Entry] group, and the quoting
// of an Exec line, both ways.
namespace DesktopEntry {

// The [Desktop Entry] group's keys with their values unescaped; empty when the file cannot be read.
QMap<QString, QString> read(const QString& path);

// One argument as an Exec line must hold it, already escaped for the file.
QString execQuoted(const QString& argument);

// An Exec value (as read(), i.e. unescaped once) split into its arguments; field codes are left in.
QStringList execArguments(const QString& exec);

} // namespace DesktopEntry
