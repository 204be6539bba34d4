#pragma once

#include <QString>
#include <QStringList>

// User-visible texts. Tables are JSON objects (key -> text) in the resources, one per table and language
// (":/strings/<lang>/<table>.json"); an absent key gives the English default. Every text then passes the
// platform-word substitution.
namespace Texts {

QString localized(const char* table, const char* key, const QString& englishDefault);

// Fills each "%@" of a format with the next argument, in order.
QString format(const QString& format, const QStringList& args);

// "Finder" becomes the user's file manager ("Files", "Dolphin", ... or "the file manager"),
// "System Preferences" becomes "Settings".
QString platformWords(const QString& text);
QString platformWords(const QString& text, const QString& fileManagerName);

// The name used for "Finder": detected once from the desktop, or set by the program (tests, the CLI).
QString fileManagerName();
void setFileManagerName(const QString& name);

} // namespace Texts

// Menu texts of the status item and the panel's gear menu.
namespace PanelWindowContextualMenuStrings {
QString aboutFormatter();
QString quitFormatter();
QString preferencesWithoutDots();
QString preferences();
QString helpDesk();
QString checkForUpdates();
QString news();
} // namespace PanelWindowContextualMenuStrings
