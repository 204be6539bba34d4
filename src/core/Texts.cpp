#include "Texts.h"

#include "platform/FileManagers.h"

#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QMutex>

namespace {

QMutex g_mutex;
QHash<QString, QJsonObject> g_tables;
QString g_fileManagerName;

QJsonObject loadTable(const QString& table)
{
    const QString language = QLocale().name().section(QLatin1Char('_'), 0, 0);
    for (const QString& lang : {language, QStringLiteral("en")}) {
        QFile file(QStringLiteral(":/strings/%1/%2.json").arg(lang, table));
        if (file.open(QIODevice::ReadOnly))
            return QJsonDocument::fromJson(file.readAll()).object();
    }
    return {};
}

} // namespace

namespace Texts {

QString localized(const char* table, const char* key, const QString& englishDefault)
{
    QString text;
    {
        QMutexLocker lock(&g_mutex);
        const QString name = QString::fromLatin1(table);
        auto it = g_tables.find(name);
        if (it == g_tables.end())
            it = g_tables.insert(name, loadTable(name));
        text = it->value(QLatin1String(key)).toString(englishDefault);
    }
    return platformWords(text);
}

QString format(const QString& format, const QStringList& args)
{
    QString out;
    qsizetype next = 0;
    qsizetype from = 0;
    for (qsizetype at = format.indexOf(QLatin1String("%@")); at >= 0; at = format.indexOf(QLatin1String("%@"), from)) {
        out += QStringView(format).mid(from, at - from);
        out += args.value(next++);
        from = at + 2;
    }
    out += QStringView(format).mid(from);
    return out;
}

QString platformWords(const QString& text, const QString& fileManagerName)
{
    QString out = text;
    out.replace(QLatin1String("System Preferences"), QLatin1String("Settings"));
    out.replace(QLatin1String("Finder"), fileManagerName);
    return out;
}

QString platformWords(const QString& text)
{
    return platformWords(text, fileManagerName());
}

QString fileManagerName()
{
    QMutexLocker lock(&g_mutex);
    if (g_fileManagerName.isEmpty()) {
        const auto fm = FileManagers::detectPrimary();
        g_fileManagerName = fm ? fm->displayName : QStringLiteral("the file manager");
    }
    return g_fileManagerName;
}

void setFileManagerName(const QString& name)
{
    QMutexLocker lock(&g_mutex);
    g_fileManagerName = name;
}

} // namespace Texts

namespace PanelWindowContextualMenuStrings {

namespace {
QString menuText(const char* key, const char* english)
{
    return Texts::localized("PanelWindowContextualMenu", key, QString::fromLatin1(english));
}
const QString kDots = QStringLiteral("...");
} // namespace

QString aboutFormatter() { return menuText("Contextual_menu_about_formatter", "About %@"); }
QString quitFormatter() { return menuText("Contextual_menu_quit_formatter", "Quit %@"); }
QString preferencesWithoutDots() { return menuText("Contextual_menu_preferences", "Preferences"); }
QString preferences() { return preferencesWithoutDots() + kDots; }
QString helpDesk() { return menuText("Contextual_menu_helpDesk", "Help Desk") + kDots; }
QString checkForUpdates() { return menuText("Contextual_menu_CheckForUpdates", "Check for Updates") + kDots; }
QString news() { return menuText("Contextual_menu_news", "News") + kDots; }

} // namespace PanelWindowContextualMenuStrings
