#include "NameTypes.h"

#include "SearchItem.h"

#include <QFile>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QStandardPaths>

#include <algorithm>
#include <mutex>

namespace {

// Names that no pattern but a whole-name one types are remembered up to this many per search.
constexpr size_t kMaxWholeNames = 65536;

char lowerAscii(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

bool isAscii(char c)
{
    return static_cast<unsigned char>(c) < 0x80;
}

bool isWildcard(char c)
{
    return c == '*' || c == '?' || c == '[' || c == '\\';
}

// The characters outside ASCII that case-insensitive matching may take for an ASCII letter: the
// Kelvin sign (k), the long s (s), the dotted capital I and the dotless small i. No other character
// folds, lower-cases or upper-cases to ASCII.
constexpr std::string_view kFoldsToAscii[] = {"\xE2\x84\xAA", "\xC5\xBF", "\xC4\xB0", "\xC4\xB1"};

bool endsWithFoldingCharacter(std::string_view text)
{
    return std::any_of(std::begin(kFoldsToAscii), std::end(kFoldsToAscii),
                       [text](std::string_view c) { return text.ends_with(c); });
}

// The characters of a name as the database reads it (UTF-16 from UTF-8), lower-cased when ASCII;
// else one of these: a character that may be read as a letter, a unit of any other character, a
// byte of a broken sequence (read as at most one replacement character: one place or none).
enum : int
{
    kFolding = -1,
    kOther = -2,
    kBroken = -3
};

std::vector<int> unitsOf(std::string_view name)
{
    std::vector<int> units;
    units.reserve(name.size());
    const auto byte = [&name](size_t i) { return i < name.size() ? static_cast<unsigned char>(name[i]) : 0u; };
    const auto follows = [&byte](size_t i, unsigned lo, unsigned hi) { return byte(i) >= lo && byte(i) <= hi; };
    for (size_t i = 0; i < name.size();) {
        const unsigned b = byte(i);
        size_t length = 0;
        if (b < 0x80) {
            units.push_back(lowerAscii(name[i]));
            ++i;
            continue;
        }
        if (b >= 0xC2 && b <= 0xDF && follows(i + 1, 0x80, 0xBF)) {
            length = 2;
        } else if (b >= 0xE0 && b <= 0xEF) {
            const unsigned lo = b == 0xE0 ? 0xA0 : 0x80;
            const unsigned hi = b == 0xED ? 0x9F : 0xBF;
            if (follows(i + 1, lo, hi) && follows(i + 2, 0x80, 0xBF))
                length = 3;
        } else if (b >= 0xF0 && b <= 0xF4) {
            const unsigned lo = b == 0xF0 ? 0x90 : 0x80;
            const unsigned hi = b == 0xF4 ? 0x8F : 0xBF;
            if (follows(i + 1, lo, hi) && follows(i + 2, 0x80, 0xBF) && follows(i + 3, 0x80, 0xBF))
                length = 4;
        }
        if (length == 0) {
            units.push_back(kBroken);
            ++i;
        } else if (length == 4) {
            units.insert(units.end(), 2, kOther); // a surrogate pair
            i += length;
        } else {
            units.push_back(endsWithFoldingCharacter(name.substr(0, i + length)) ? kFolding : kOther);
            i += length;
        }
    }
    return units;
}

QStringList readGlobs2(const QString& path, bool& ok)
{
    QStringList patterns;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        ok = false;
        return patterns;
    }
    // weight:type:pattern[:flags]
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        const QList<QByteArray> fields = line.split(':');
        // A colon inside a pattern would cut it short: a line not read with certainty spoils the list.
        if (fields.size() < 3 || fields.size() > 4 || (fields.size() == 4 && fields.at(3) != "cs")) {
            ok = false;
            continue;
        }
        patterns.append(QString::fromUtf8(fields.at(2)));
    }
    return patterns;
}

} // namespace

// Classes are read loosely: one the database could read otherwise (negated, or a range other than of
// digits or of letters) takes every character, so a pattern matches more names than the database's,
// never fewer; a '[' never closed is any one character too.
MimeGlobIndex::Glob MimeGlobIndex::compile(std::string_view p)
{
    Glob glob;
    for (size_t i = 0; i < p.size();) {
        Element e;
        const char c = p[i];
        const size_t close = c == '[' ? p.find(']', i + 2) : std::string_view::npos;
        if (c == '*') {
            e.star = true;
            ++i;
        } else if (c == '?' || (c == '[' && close == std::string_view::npos)) {
            e.ascii.set();
            e.folding = e.other = true;
            ++i;
        } else if (c == '[') {
            const std::string_view inside = p.substr(i + 1, close - i - 1);
            i = close + 1;
            if (inside.front() == '!' || inside.front() == '^') {
                e.ascii.set();
                e.folding = e.other = true;
            }
            for (size_t k = 0; k < inside.size() && !e.other; ++k) {
                if (k + 2 < inside.size() && inside[k + 1] == '-') {
                    const char lo = inside[k];
                    const char hi = inside[k + 2];
                    if (!((lo >= '0' && hi <= '9') || (lo >= 'a' && hi <= 'z')) || lo > hi) {
                        e.ascii.set();
                        e.folding = e.other = true;
                        break;
                    }
                    for (char x = lo; x <= hi; ++x)
                        e.ascii.set(static_cast<size_t>(x));
                    e.folding = e.folding || lo >= 'a';
                    k += 2;
                } else {
                    e.ascii.set(static_cast<size_t>(inside[k]));
                    e.folding = e.folding || (inside[k] >= 'a' && inside[k] <= 'z');
                }
            }
        } else {
            e.ascii.set(static_cast<size_t>(c));
            // Only letters have case: a character outside ASCII is never read as a digit or a mark.
            e.folding = c >= 'a' && c <= 'z';
            ++i;
        }
        glob.places.push_back(e);
    }
    auto& places = glob.places;
    glob.star = std::any_of(places.begin(), places.end(), [](const Element& e) { return e.star; });
    while (glob.head < places.size() && !places[glob.head].star)
        ++glob.head;
    while (glob.star && !places[places.size() - 1 - glob.tail].star)
        ++glob.tail;
    glob.fixed =
        static_cast<size_t>(std::count_if(places.begin(), places.end(), [](const Element& e) { return !e.star; }));
    return glob;
}

namespace {

bool takesUnit(const MimeGlobIndex::Element& e, int u)
{
    if (u >= 0)
        return e.ascii.test(static_cast<size_t>(u));
    return u == kFolding ? e.folding : e.other;
}

// A pattern's parts between stars have fixed lengths: the first and the last are tied to the name's
// ends, the others are taken at their leftmost place (which leaves the most room to the rest).
// takes(k, i): whether place k of the pattern may take unit i of the name, of n.
template <typename Takes> bool matchParts(const MimeGlobIndex::Glob& glob, size_t n, const Takes& takes)
{
    const auto& places = glob.places;
    const auto partAt = [&](size_t from, size_t to, size_t at) {
        for (size_t k = from; k < to; ++k)
            if (!takes(k, at + k - from))
                return false;
        return true;
    };
    if (!glob.star)
        return n == places.size() && partAt(0, places.size(), 0);
    const size_t last = places.size() - glob.tail;
    if (glob.fixed > n || !partAt(0, glob.head, 0) || !partAt(last, places.size(), n - glob.tail))
        return false;
    size_t at = glob.head;
    const size_t end = n - glob.tail;
    for (size_t k = glob.head; k < last;) {
        if (places[k].star) {
            ++k;
            continue;
        }
        size_t partEnd = k;
        while (!places[partEnd].star)
            ++partEnd;
        const size_t length = partEnd - k;
        while (at + length <= end && !partAt(k, partEnd, at))
            ++at;
        if (at + length > end)
            return false;
        at += length;
        k = partEnd;
    }
    return true;
}

} // namespace

bool MimeGlobIndex::matchesAscii(const Glob& glob, std::string_view name)
{
    return matchParts(glob, name.size(), [&](size_t k, size_t i) {
        return glob.places[k].ascii.test(static_cast<size_t>(lowerAscii(name[i])));
    });
}

bool MimeGlobIndex::mayMatchUnits(const Glob& glob, const std::vector<int>& units)
{
    return matchParts(glob, units.size(), [&](size_t k, size_t i) { return takesUnit(glob.places[k], units[i]); });
}

// A broken byte may stand for one unit or none: the parts have no fixed length then.
bool MimeGlobIndex::mayMatchBroken(const Glob& glob, const std::vector<int>& units)
{
    const size_t P = glob.places.size();
    const size_t N = units.size();
    // can[i][j]: the places from i match the units from j. Filled from the end.
    std::vector<char> can((P + 1) * (N + 1), 0);
    const auto at = [&](size_t i, size_t j) -> char& { return can[i * (N + 1) + j]; };
    for (size_t i = P + 1; i-- > 0;) {
        for (size_t j = N + 1; j-- > 0;) {
            bool ok = i == P && j == N;
            const bool star = i < P && glob.places[i].star;
            if (!ok && star)
                ok = at(i + 1, j) || (j < N && at(i, j + 1));
            if (!ok && j < N && units[j] == kBroken)
                ok = at(i, j + 1);
            if (!ok && j < N && i < P && !star)
                ok = takesUnit(glob.places[i], units[j] == kBroken ? kOther : units[j]) && at(i + 1, j + 1);
            at(i, j) = ok ? 1 : 0;
        }
    }
    return at(0, 0) != 0;
}

MimeGlobIndex::MimeGlobIndex(const QStringList& patterns, bool complete)
    : m_complete(complete)
{
    for (const QString& pattern : patterns) {
        const QByteArray bytes = pattern.toUtf8();
        if (bytes.isEmpty())
            continue; // matches no name
        if (std::any_of(bytes.begin(), bytes.end(), [](char c) { return !isAscii(c) || c == '\\'; })) {
            // Letters outside ASCII fold in ways these byte comparisons do not follow; escapes are not read.
            m_complete = false;
            continue;
        }
        std::string lower(bytes.constData(), static_cast<size_t>(bytes.size()));
        std::transform(lower.begin(), lower.end(), lower.begin(), lowerAscii);
        const std::string_view ending = std::string_view(lower).substr(lower.empty() ? 0 : 1);
        if (lower.size() < 2 || lower[0] != '*' || std::any_of(ending.begin(), ending.end(), isWildcard)) {
            Glob glob = compile(lower);
            // Filed by the one character an ASCII name must start with, when the pattern starts with one.
            const Element& first = glob.places.front();
            const bool filed = !first.star && !first.other && first.ascii.count() == 1;
            size_t letter = 0;
            while (filed && !first.ascii.test(letter))
                ++letter;
            auto& list = filed ? m_othersByFirst[letter] : m_othersAnyFirst;
            list.push_back(std::move(glob));
            continue;
        }
        uint32_t node = 0;
        for (auto c = ending.rbegin(); c != ending.rend(); ++c) {
            uint32_t next = child(node, *c);
            if (next == 0) {
                next = static_cast<uint32_t>(m_nodes.size());
                m_nodes[node].next.emplace_back(*c, next);
                m_nodes.emplace_back();
                if (node == 0)
                    m_rootChildren[static_cast<unsigned char>(*c) & 0x7F] = next;
            }
            node = next;
        }
        m_nodes[node].ends = true;
    }
}

MimeGlobIndex MimeGlobIndex::fromFolders(const QStringList& folders)
{
    // The database reads every "mime" data folder: its compiled cache, or else its package files.
    // The list of patterns written beside each cache is read here; package files alone are not.
    bool complete = !folders.isEmpty();
    bool mainPackage = false;
    QStringList patterns;
    for (const QString& folder : folders) {
        mainPackage = mainPackage || QFileInfo::exists(folder + QStringLiteral("/packages/freedesktop.org.xml"));
        if (!QFileInfo::exists(folder + QStringLiteral("/mime.cache"))) {
            if (QFileInfo(folder + QStringLiteral("/packages")).isDir())
                complete = false;
            continue;
        }
        patterns += readGlobs2(folder + QStringLiteral("/globs2"), complete);
    }
    // Without the shared package anywhere, Qt adds the copy built into it, whose patterns are not listed.
    return MimeGlobIndex(patterns, complete && mainPackage);
}

const MimeGlobIndex& MimeGlobIndex::system()
{
    static const MimeGlobIndex index = fromFolders(QStandardPaths::locateAll(
        QStandardPaths::GenericDataLocation, QStringLiteral("mime"), QStandardPaths::LocateDirectory));
    return index;
}

uint32_t MimeGlobIndex::child(uint32_t node, char c) const
{
    if (node == 0)
        return m_rootChildren[static_cast<unsigned char>(c) & 0x7F];
    for (const auto& [letter, next] : m_nodes[node].next)
        if (letter == c)
            return next;
    return 0;
}

bool MimeGlobIndex::otherPatternMayMatch(std::string_view name) const
{
    if (name.empty())
        return true; // no name a folder lists, nothing to type
    if (std::all_of(name.begin(), name.end(), isAscii)) {
        const auto matches = [name](const Glob& glob) { return matchesAscii(glob, name); };
        const std::vector<Glob>& byFirst = m_othersByFirst[static_cast<size_t>(lowerAscii(name.front()))];
        return std::any_of(byFirst.begin(), byFirst.end(), matches) ||
               std::any_of(m_othersAnyFirst.begin(), m_othersAnyFirst.end(), matches);
    }
    const std::vector<int> units = unitsOf(name);
    const bool broken = std::find(units.begin(), units.end(), kBroken) != units.end();
    const auto matches = [&](const Glob& glob) {
        return broken ? mayMatchBroken(glob, units) : mayMatchUnits(glob, units);
    };
    // A first character outside ASCII may stand for a letter: every list.
    return std::any_of(m_othersAnyFirst.begin(), m_othersAnyFirst.end(), matches) ||
           std::any_of(m_othersByFirst.begin(), m_othersByFirst.end(),
                       [&](const std::vector<Glob>& list) { return std::any_of(list.begin(), list.end(), matches); });
}

std::optional<std::string_view> MimeGlobIndex::decidingEnding(std::string_view name) const
{
    if (!m_complete)
        return std::nullopt;
    uint32_t node = 0;
    size_t longest = 0;
    for (size_t i = name.size(); i > 0; --i) {
        const char c = name[i - 1];
        if (!isAscii(c)) {
            if (endsWithFoldingCharacter(name.substr(0, i)) && !m_nodes[node].next.empty())
                return std::nullopt; // might be read as the next letter of a longer ending
            break;
        }
        node = child(node, lowerAscii(c));
        if (node == 0)
            break;
        if (m_nodes[node].ends)
            longest = name.size() - (i - 1);
    }
    if (otherPatternMayMatch(name))
        return std::nullopt;
    return name.substr(name.size() - longest);
}

NameTypes::NameTypes(const MimeGlobIndex& globs)
    : m_globs(globs)
{
}

std::optional<uint16_t> NameTypes::find(const Map& map, std::string_view key)
{
    if (auto it = map.find(key); it != map.end())
        return it->second;
    return std::nullopt;
}

uint16_t NameTypes::typeOf(std::string_view name)
{
    const std::optional<std::string_view> ending = m_globs.decidingEnding(name);
    const std::string_view key = ending ? *ending : name;
    Map& map = ending ? m_byEnding : m_byName;
    {
        std::shared_lock lock(m_mutex);
        if (const auto known = find(map, key))
            return *known;
    }
    static const QMimeDatabase db;
    const QString type = db.mimeTypeForFile(QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size())),
                                            QMimeDatabase::MatchExtension)
                             .name();
    const uint16_t index = SearchTypes::intern(type);
    std::unique_lock lock(m_mutex);
    if (ending || map.size() < kMaxWholeNames)
        map.emplace(std::string(key), index);
    return index;
}

void NameTypes::clear()
{
    std::unique_lock lock(m_mutex);
    m_byEnding.clear();
    m_byName.clear();
}
