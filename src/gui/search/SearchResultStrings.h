#pragma once

#include <QString>
#include <QStringList>

// Texts of the results window, its actions and the preview, from the "SearchResultWC" table.
namespace SearchResultStrings {
QString text(const char* key, const char* englishDefault);
// text() with each "%@" and "%ld" filled by the next argument, in order.
QString format(const char* key, const char* englishDefault, const QStringList& args);
} // namespace SearchResultStrings
