#include "SearchResultSort.h"

#include <QHash>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

namespace SearchResultSort {
namespace {

struct Descriptor
{
    SearchSortKey key;
    const char* descriptor;
    const char* word;
};

constexpr std::array<Descriptor, 5> kDescriptors{{
    {SearchSortKey::Name, "KEY_nameSort", "name"},
    {SearchSortKey::EnclosingFolder, "KEY_encFolderSort", "folder"},
    {SearchSortKey::Size, "KEY_sizeSort", "size"},
    {SearchSortKey::Date, "KEY_dateSort", "date"},
    {SearchSortKey::Type, "KEY_typeSort", "kind"},
}};

int sign(int v)
{
    return (v > 0) - (v < 0);
}

template <typename T> int threeWay(T a, T b)
{
    return (a > b) - (a < b);
}

bool isContinuation(unsigned char c)
{
    return (c & 0xC0) == 0x80;
}

// One code point of well-formed UTF-8 at p (no overlongs, no surrogates, at most U+10FFFF), or -1.
// `length` receives its byte count.
int decodeOne(const unsigned char* p, qsizetype left, int& length)
{
    const unsigned char c = p[0];
    if (c < 0x80) {
        length = 1;
        return c;
    }
    int need;
    int cp;
    int min;
    if ((c & 0xE0) == 0xC0) {
        need = 1, cp = c & 0x1F, min = 0x80;
    } else if ((c & 0xF0) == 0xE0) {
        need = 2, cp = c & 0x0F, min = 0x800;
    } else if ((c & 0xF8) == 0xF0) {
        need = 3, cp = c & 0x07, min = 0x10000;
    } else {
        return -1;
    }
    if (left <= need)
        return -1;
    for (int i = 1; i <= need; ++i) {
        if (!isContinuation(p[i]))
            return -1;
        cp = (cp << 6) | (p[i] & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
        return -1;
    length = need + 1;
    return cp;
}

bool isWellFormed(const unsigned char* p, qsizetype size)
{
    qsizetype i = 0;
    while (i < size) {
        if (p[i] < 0x80) {
            ++i;
            continue;
        }
        int length = 0;
        if (decodeOne(p + i, size - i, length) < 0)
            return false;
        i += length;
    }
    return true;
}

// UTF-8 bytes sort by code point; UTF-16 code units differ only in putting U+E000..U+FFFF after
// everything beyond U+FFFF (whose first unit is a surrogate, 0xD800..0xDBFF).
int utf16Rank(int cp)
{
    return cp >= 0xE000 && cp <= 0xFFFF ? cp + 0x110000 : cp;
}

// Text comparison in UTF-16 code-unit order of the names as shown (bytes that are not UTF-8 become
// replacement characters), done on the UTF-8 bytes: sorting a million names must not convert each
// name twenty times. Only a difference next to ill-formed bytes takes the slow way.
int compareText(const QByteArray& a, const QByteArray& b)
{
    const auto* pa = reinterpret_cast<const unsigned char*>(a.constData());
    const auto* pb = reinterpret_cast<const unsigned char*>(b.constData());
    const qsizetype common = std::min(a.size(), b.size());
    qsizetype i = 0;
    // Word-sized steps over the shared prefix, then bytes.
    while (i + 8 <= common && std::memcmp(pa + i, pb + i, 8) == 0)
        i += 8;
    while (i < common && pa[i] == pb[i])
        ++i;
    if (i == a.size() && i == b.size())
        return 0;
    // Back to the start of the code point the difference falls in.
    // Below i both strings hold the same bytes; at i only the longer one has a byte.
    const unsigned char* longer = i < a.size() ? pa : pb;
    qsizetype start = i;
    while (start > 0 && start > i - 3 && isContinuation(longer[start]))
        --start;
    bool prefixAscii = true;
    for (qsizetype k = 0; k < start && prefixAscii; ++k)
        prefixAscii = pa[k] < 0x80;
    if (prefixAscii || isWellFormed(pa, start)) {
        int lengthA = 0;
        int lengthB = 0;
        const int cpA = start < a.size() ? decodeOne(pa + start, a.size() - start, lengthA) : -2;
        const int cpB = start < b.size() ? decodeOne(pb + start, b.size() - start, lengthB) : -2;
        if (cpA == -2)
            return -1; // a is a prefix of b
        if (cpB == -2)
            return 1;
        if (cpA >= 0 && cpB >= 0 && cpA != cpB)
            return threeWay(utf16Rank(cpA), utf16Rank(cpB));
    }
    return sign(QString::fromUtf8(a).compare(QString::fromUtf8(b), Qt::CaseSensitive));
}

char classByte(const SearchItem& item)
{
    if (item.fileInPackage)
        return 'p';
    if (item.fileHidden || item.fileInHiddenFolder)
        return 'h';
    return 'r';
}

int compareFolders(const SearchItem& a, const SearchItem& b)
{
    // Items of one folder share its record: no need to look at the text.
    if (a.folder() == b.folder())
        return 0;
    return compareText(a.rawFilePath(), b.rawFilePath());
}

// Moves the items into the order the sorted entries give (each entry names an item's old position), along
// the permutation's cycles: no second list of a million pointers.
template <typename Entry> void applyOrder(QList<SearchItemPtr>& items, std::vector<Entry>& entries)
{
    for (quint32 p = 0; p < entries.size(); ++p) {
        if (entries[p].index == p)
            continue;
        SearchItemPtr held = std::move(items[p]);
        quint32 q = p;
        for (;;) {
            const quint32 from = entries[q].index;
            entries[q].index = q;
            if (from == p) {
                items[q] = std::move(held);
                break;
            }
            items[q] = std::move(items[from]);
            q = from;
        }
    }
}

// Keys next to their positions sort without touching the items again; ties keep their order.
template <typename Key> void sortByNumber(QList<SearchItemPtr>& items, bool ascending, Key key)
{
    struct Entry
    {
        quint64 key;
        quint32 index;
    };
    std::vector<Entry> entries;
    entries.reserve(static_cast<size_t>(items.size()));
    for (qsizetype i = 0; i < items.size(); ++i)
        entries.push_back({key(*items.at(i)), static_cast<quint32>(i)});
    std::sort(entries.begin(), entries.end(), [ascending](const Entry& x, const Entry& y) {
        if (x.key != y.key)
            return ascending ? x.key < y.key : x.key > y.key;
        return x.index < y.index;
    });
    applyOrder(items, entries);
}

// Names: the first sixteen bytes, big-endian, decide whenever they differ and one of the two is plain
// ASCII (the first differing byte is then ASCII on one side, which sorts below every other character
// and every replacement character). Only the rest goes to the full comparison through the item, which
// costs cache misses; sixteen bytes tell apart most names that share a common start ("changelog-").
void sortByName(QList<SearchItemPtr>& items, bool ascending)
{
    struct Entry
    {
        quint64 high;
        quint64 low;
        quint32 index;
        bool ascii;
    };
    std::vector<Entry> entries;
    entries.reserve(static_cast<size_t>(items.size()));
    for (qsizetype i = 0; i < items.size(); ++i) {
        const QByteArray& name = items.at(i)->rawFileName;
        quint64 words[2] = {0, 0};
        bool ascii = true;
        for (qsizetype k = 0; k < 16; ++k) {
            const auto byte = k < name.size() ? static_cast<unsigned char>(name.at(k)) : 0;
            words[k / 8] = (words[k / 8] << 8) | byte;
            ascii = ascii && byte < 0x80;
        }
        entries.push_back({words[0], words[1], static_cast<quint32>(i), ascii});
    }
    std::sort(entries.begin(), entries.end(), [&items, ascending](const Entry& x, const Entry& y) {
        int c;
        if ((x.high != y.high || x.low != y.low) && (x.ascii || y.ascii))
            c = x.high != y.high ? (x.high < y.high ? -1 : 1) : (x.low < y.low ? -1 : 1);
        else
            c = compareText(items.at(x.index)->rawFileName, items.at(y.index)->rawFileName);
        if (c != 0)
            return ascending ? c < 0 : c > 0;
        return x.index < y.index;
    });
    applyOrder(items, entries);
}

// Folders: the items of one folder share its record, so the far fewer records are ordered once and
// the items sort by their folder's rank.
void sortByFolder(QList<SearchItemPtr>& items, bool ascending)
{
    QHash<const SearchFolder*, quint32> ranks;
    // One entry per record, its path put together once.
    std::vector<std::pair<QByteArray, const SearchFolder*>> firsts;
    for (const SearchItemPtr& item : std::as_const(items)) {
        const SearchFolder* record = item->folder().get();
        if (!ranks.contains(record)) {
            ranks.insert(record, 0);
            firsts.emplace_back(item->rawFilePath(), record);
        }
    }
    std::sort(firsts.begin(), firsts.end(),
              [](const auto& x, const auto& y) { return compareText(x.first, y.first) < 0; });
    quint32 rank = 0;
    for (size_t i = 0; i < firsts.size(); ++i) {
        // Two records of the same text rank alike.
        if (i > 0 && compareText(firsts[i - 1].first, firsts[i].first) != 0)
            ++rank;
        ranks[firsts[i].second] = rank;
    }
    sortByNumber(items, ascending, [&ranks](const SearchItem& i) { return quint64(ranks.value(i.folder().get())); });
}

} // namespace

QString descriptorKey(SearchSortKey key)
{
    for (const Descriptor& d : kDescriptors) {
        if (d.key == key)
            return QString::fromLatin1(d.descriptor);
    }
    return {};
}

std::optional<SearchSortKey> keyFromDescriptor(QStringView descriptor)
{
    for (const Descriptor& d : kDescriptors) {
        if (descriptor == QLatin1StringView(d.descriptor))
            return d.key;
    }
    return std::nullopt;
}

std::optional<SearchSortKey> keyFromWord(QStringView word)
{
    for (const Descriptor& d : kDescriptors) {
        if (word == QLatin1StringView(d.word))
            return d.key;
    }
    return std::nullopt;
}

QChar classLetter(const SearchItem& item)
{
    return QLatin1Char(classByte(item));
}

int compare(const SearchItem& a, const SearchItem& b, SearchSortKey key)
{
    switch (key) {
    case SearchSortKey::Name:
        return compareText(a.rawFileName, b.rawFileName);
    case SearchSortKey::EnclosingFolder:
        return compareFolders(a, b);
    case SearchSortKey::Size:
        return threeWay(static_cast<quint64>(a.fileSize), static_cast<quint64>(b.fileSize));
    case SearchSortKey::Date:
        return threeWay(a.modifiedMSecs, b.modifiedMSecs);
    case SearchSortKey::Type:
        return threeWay(classByte(a), classByte(b));
    }
    return 0;
}

void sort(QList<SearchItemPtr>& items, SearchSortKey key, bool ascending)
{
    switch (key) {
    case SearchSortKey::Size:
        return sortByNumber(items, ascending, [](const SearchItem& i) { return static_cast<quint64>(i.fileSize); });
    case SearchSortKey::Date:
        // Shifted so that the signed order survives the unsigned key; no date (the smallest) stays first.
        return sortByNumber(items, ascending, [](const SearchItem& i) {
            return static_cast<quint64>(i.modifiedMSecs) ^ (quint64(1) << 63);
        });
    case SearchSortKey::Type:
        return sortByNumber(items, ascending, [](const SearchItem& i) { return quint64(classByte(i)); });
    case SearchSortKey::Name:
        return sortByName(items, ascending);
    case SearchSortKey::EnclosingFolder:
        return sortByFolder(items, ascending);
    }
}

} // namespace SearchResultSort
