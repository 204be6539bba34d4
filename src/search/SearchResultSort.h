#pragma once

#include "search/SearchItem.h"

#include <QList>
#include <QString>
#include <QStringView>

#include <optional>

// The results table's sort rules, shared by the results window and `trovix search --sort`.
// Each column has its own comparison (name as text, case-sensitive; the folder's whole path; size as
// unsigned 64-bit, so a folder's -1 sorts as the largest; last-used date; class letter "p" / "h" / "r").
enum class SearchSortKey
{
    Name,            // "KEY_nameSort"
    EnclosingFolder, // "KEY_encFolderSort"
    Size,            // "KEY_sizeSort"
    Date,            // "KEY_dateSort"
    Type,            // "KEY_typeSort"
};

namespace SearchResultSort {
// The column's sort-descriptor key ("KEY_nameSort", ...), and back; an unknown key gives nothing.
QString descriptorKey(SearchSortKey key);
std::optional<SearchSortKey> keyFromDescriptor(QStringView descriptor);
// The command line's words: name, folder, size, date, kind.
std::optional<SearchSortKey> keyFromWord(QStringView word);

// "p" for package contents, else "h" for hidden or in a hidden folder, else "r".
QChar classLetter(const SearchItem& item);

// Three-way comparison of a against b by the column's rule: negative, zero or positive.
int compare(const SearchItem& a, const SearchItem& b, SearchSortKey key);

// Sorts items by the column; ascending compares a against b, descending b against a. Stable, and safe to
// run on a worker thread over a copy of the list (it reads the items only).
void sort(QList<SearchItemPtr>& items, SearchSortKey key, bool ascending);
} // namespace SearchResultSort
