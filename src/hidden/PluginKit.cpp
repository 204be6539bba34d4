#include "PluginKit.h"

#include "util/DesktopEntry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTextStream>

namespace {

const QString kMarker = QStringLiteral("com.quorbel.trovix.");

QString shellQuoted(const QString& text)
{
    QString quoted = text;
    quoted.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

QString pythonQuoted(const QString& text)
{
    QString quoted = text;
    quoted.replace(QLatin1Char('\\'), QLatin1String("\\\\")).replace(QLatin1Char('\''), QLatin1String("\\'"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

QString xmlEscaped(const QString& text)
{
    return text.toHtmlEscaped();
}

QByteArray resourceText(const QString& name)
{
    QFile file(QStringLiteral(":/extensions/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

std::optional<QString> writeFile(const QString& path, const QByteArray& content, bool executable)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return QStringLiteral("cannot make the folder of %1").arg(path);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return QStringLiteral("%1: %2").arg(path, file.errorString());
    file.write(content);
    if (!file.commit())
        return QStringLiteral("%1: %2").arg(path, file.errorString());
    QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;
    if (executable)
        permissions |= QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
    if (!QFile::setPermissions(path, permissions))
        return QStringLiteral("%1: cannot set its permissions").arg(path);
    return std::nullopt;
}

// Thunar's own actions when the user has none of their own yet, so that adding ours never hides them.
QByteArray thunarStartingActions()
{
    const QString system = QStandardPaths::locate(QStandardPaths::GenericConfigLocation, QStringLiteral("Thunar/uca.xml"));
    QFile file(system.isEmpty() ? QStringLiteral("/etc/xdg/Thunar/uca.xml") : system);
    if (file.open(QIODevice::ReadOnly)) {
        const QByteArray content = file.readAll();
        if (content.contains("</actions>"))
            return content;
    }
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<actions>\n</actions>\n";
}

} // namespace

PluginKit::Places PluginKit::Places::current(const QString& trovixBinary)
{
    return {QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation),
            QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation), trovixBinary};
}

PluginKit::PluginKit(Places places) : m_places(std::move(places)) {}

QString PluginKit::senderPath() const
{
    return m_places.dataHome + QStringLiteral("/trovix/trovix-selection");
}

QString PluginKit::thunarActionsPath() const
{
    return m_places.configHome + QStringLiteral("/Thunar/uca.xml");
}

QList<PluginKit::Entry> PluginKit::entries() const
{
    const QString data = m_places.dataHome;
    const QString sender = senderPath();
    return {
        {QStringLiteral("trovix-selection.sh"), sender, shellQuoted(m_places.trovixBinary), true},
        {QStringLiteral("trovix.py"), data + QStringLiteral("/nautilus-python/extensions/trovix.py"),
         pythonQuoted(sender), false},
        // Dolphin runs service menus only with the run bit set.
        {QStringLiteral("trovix-dolphin.desktop"), data + QStringLiteral("/kio/servicemenus/trovix.desktop"),
         DesktopEntry::execQuoted(sender), true},
        {QStringLiteral("trovix-hide.nemo_action"), data + QStringLiteral("/nemo/actions/trovix-hide.nemo_action"),
         shellQuoted(sender), false},
        {QStringLiteral("trovix-unhide.nemo_action"),
         data + QStringLiteral("/nemo/actions/trovix-unhide.nemo_action"), shellQuoted(sender), false},
    };
}

std::optional<QString> PluginKit::use() const
{
    for (const Entry& entry : entries()) {
        QByteArray text = resourceText(entry.resource);
        if (text.isEmpty())
            return QStringLiteral("%1 is missing from the program").arg(entry.resource);
        const QByteArray placeholder = entry.resource.endsWith(QLatin1String(".sh")) ? "@TROVIX@" : "@SENDER@";
        text.replace(placeholder, entry.senderText.toUtf8());
        if (auto error = writeFile(entry.path, text, entry.executable))
            return error;
    }
    return mergeThunarActions(true);
}

std::optional<QString> PluginKit::ignore() const
{
    for (const Entry& entry : entries()) {
        if (QFileInfo::exists(entry.path) && !QFile::remove(entry.path))
            return QStringLiteral("cannot remove %1").arg(entry.path);
    }
    return mergeThunarActions(false);
}

bool PluginKit::isInstalled() const
{
    for (const Entry& entry : entries()) {
        if (!QFileInfo::exists(entry.path))
            return false;
    }
    QFile thunar(thunarActionsPath());
    return thunar.open(QIODevice::ReadOnly) && thunar.readAll().contains(kMarker.toUtf8());
}

// Our actions are taken out of the user's list (found by their unique ids) and, when installing, put back
// once before its end; every other action stays exactly as it was.
std::optional<QString> PluginKit::mergeThunarActions(bool install) const
{
    const QString path = thunarActionsPath();
    QFile file(path);
    QByteArray content;
    if (file.exists()) {
        if (!file.open(QIODevice::ReadOnly))
            return QStringLiteral("%1: %2").arg(path, file.errorString());
        content = file.readAll();
        file.close();
    } else if (!install) {
        return std::nullopt;
    } else {
        content = thunarStartingActions();
    }

    QString text = QString::fromUtf8(content);
    static const QRegularExpression ours(
        QStringLiteral(R"(<action>(?:(?!</action>).)*?<unique-id>com\.quorbel\.trovix\.[^<]*</unique-id>.*?</action>\s*)"),
        QRegularExpression::DotMatchesEverythingOption);
    const QString without = QString(text).remove(ours);
    if (!install && without == text)
        return std::nullopt;
    text = without;
    if (install) {
        const qsizetype end = text.lastIndexOf(QLatin1String("</actions>"));
        if (end < 0)
            return QStringLiteral("%1: not a list of actions; left as it is").arg(path);
        QString actions = QString::fromUtf8(resourceText(QStringLiteral("thunar-actions.xml")));
        actions.replace(QLatin1String("@SENDER@"), xmlEscaped(shellQuoted(senderPath())));
        text.insert(end, actions);
    }
    return writeFile(path, text.toUtf8(), false);
}

int PluginKit::run(const QStringList& args, QTextStream& out, QTextStream& err) const
{
    const QString id = args.value(args.indexOf(QStringLiteral("-i")) + 1);
    const bool known = args.contains(QStringLiteral("-i")) && id == QLatin1String(kExtensionId);
    if (args.value(0) == QLatin1String("-m")) {
        if (known)
            out << (isInstalled() ? "+" : "-") << "    " << id << "(" << TROVIX_VERSION << ")\n";
        return 0;
    }
    if (args.value(0) == QLatin1String("-e") && known &&
        (args.value(1) == QLatin1String("use") || args.value(1) == QLatin1String("ignore"))) {
        const auto error = args.value(1) == QLatin1String("use") ? use() : ignore();
        if (error) {
            err << "trovix pluginkit: " << *error << "\n";
            return 1;
        }
        return 0;
    }
    err << "usage: trovix pluginkit -m -A -i ID | -e use|ignore -i ID\n";
    return 2;
}
