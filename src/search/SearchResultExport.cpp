#include "SearchResultExport.h"

#include "SearchResultSort.h"

namespace SearchResultExport {
namespace {

// RFC 4180: a field holding a comma, a quote or a line break goes in quotes, its quotes doubled.
void appendField(QByteArray& out, const QByteArray& field)
{
    const bool quote = field.contains(',') || field.contains('"') || field.contains('\n') || field.contains('\r');
    if (!quote) {
        out.append(field);
        return;
    }
    out.append('"');
    for (char c : field) {
        if (c == '"')
            out.append('"');
        out.append(c);
    }
    out.append('"');
}

} // namespace

QByteArray csv(const QList<SearchItemPtr>& items)
{
    // RFC 4180 ends every record with CRLF.
    QByteArray out("name,folder,size,date,kind,class\r\n");
    for (const SearchItemPtr& item : items) {
        appendField(out, item->fileName().toUtf8());
        out.append(',');
        appendField(out, item->filePath().toUtf8());
        out.append(',');
        if (item->fileSize >= 0)
            out.append(QByteArray::number(item->fileSize));
        out.append(',');
        if (const QDateTime date = item->lastUsedDate(); date.isValid()) {
            // Local time with its offset written out: a local QDateTime would print none.
            const QDateTime local = date.toLocalTime();
            out.append(local.toOffsetFromUtc(local.offsetFromUtc()).toString(Qt::ISODateWithMs).toUtf8());
        }
        out.append(',');
        appendField(out, item->fileType().toUtf8());
        out.append(',');
        out.append(SearchResultSort::classLetter(*item).toLatin1());
        out.append("\r\n");
    }
    return out;
}

QByteArray paths(const QList<SearchItemPtr>& items, bool nulSeparated)
{
    QByteArray out;
    const char end = nulSeparated ? '\0' : '\n';
    for (const SearchItemPtr& item : items)
        out.append(item->nativeFullPath()).append(end);
    return out;
}

} // namespace SearchResultExport
