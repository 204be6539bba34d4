#pragma once

#include "search/SearchItem.h"

#include <QByteArray>
#include <QList>

// The results window's "Export...": the shown rows as CSV or as plain paths.
namespace SearchResultExport {
// Header "name,folder,size,date,kind,class", then one RFC 4180 row per item: name and folder as UTF-8
// (replacement characters for other bytes), size in bytes (empty for a folder), the last-used date in
// ISO 8601 with the offset, the MIME type, the class letter. Ends with a line break.
QByteArray csv(const QList<SearchItemPtr>& items);
// Each item's full path (native bytes), ending in "\n" (or "\0" with nulSeparated).
QByteArray paths(const QList<SearchItemPtr>& items, bool nulSeparated);
} // namespace SearchResultExport
