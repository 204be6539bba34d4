#include "DesktopEntry.h"

#include <QFile>

namespace DesktopEntry {

namespace {

QString unescapeValue(const QString& value)
{
    QString out;
    for (qsizetype i = 0; i < value.size(); ++i) {
        const QChar c = value.at(i);
        if (c != QLatin1Char('\\') || i + 1 == value.size()) {
            out += c;
            continue;
        }
        const QChar n = value.at(++i);
        switch (n.unicode()) {
        case 's': out += QLatin1Char(' '); break;
        case 'n': out += QLatin1Char('\n'); break;
        case 't': out += QLatin1Char('\t'); break;
        case 'r': out += QLatin1Char('\r'); break;
        default: out += n; // "\\" and "\;"
        }
    }
    return out;
}

} // namespace

QMap<QString, QString> read(const QString& path)
{
    QMap<QString, QString> keys;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return keys;
    bool inGroup = false;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    for (const QString& raw : lines) {
        const QString line = raw.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        if (line.startsWith(QLatin1Char('['))) {
            inGroup = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        if (inGroup && eq > 0)
            keys.insert(line.left(eq).trimmed(), unescapeValue(line.mid(eq + 1).trimmed()));
    }
    return keys;
}

// Quoted with double quotes, escaping " ` $ and \ inside them; then every backslash is doubled once more,
// since the Exec value is itself a string value.
QString execQuoted(const QString& argument)
{
    QString quoted;
    for (const QChar c : argument) {
        if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') || c == QLatin1Char('\\'))
            quoted += QLatin1Char('\\');
        quoted += c;
    }
    quoted.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

QStringList execArguments(const QString& exec)
{
    QStringList args;
    QString current;
    bool quoted = false;
    bool any = false;
    for (qsizetype i = 0; i < exec.size(); ++i) {
        const QChar c = exec.at(i);
        if (quoted && c == QLatin1Char('\\') && i + 1 < exec.size()) {
            current += exec.at(++i);
        } else if (c == QLatin1Char('"')) {
            quoted = !quoted;
            any = true;
        } else if (!quoted && c.isSpace()) {
            if (any || !current.isEmpty())
                args.append(current);
            current.clear();
            any = false;
        } else {
            current += c;
        }
    }
    if (any || !current.isEmpty())
        args.append(current);
    return args;
}

} // namespace DesktopEntry
