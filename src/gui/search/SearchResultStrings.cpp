#include "SearchResultStrings.h"

#include "core/Texts.h"

namespace SearchResultStrings {

QString text(const char* key, const char* englishDefault)
{
    return Texts::localized("SearchResultWC", key, QString::fromUtf8(englishDefault));
}

QString format(const char* key, const char* englishDefault, const QStringList& args)
{
    // Counts are "%ld" in the table as in the original texts; both kinds take the next argument.
    QString pattern = text(key, englishDefault);
    pattern.replace(QStringLiteral("%ld"), QStringLiteral("%@"));
    return Texts::format(pattern, args);
}

} // namespace SearchResultStrings
