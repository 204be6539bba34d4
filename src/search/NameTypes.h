#pragma once

#include <QString>
#include <QStringList>

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// The MIME database's file-name patterns, sorted by what a name must have to match them: "*ending"
// patterns in a tree of their endings read backwards, every other pattern ("README*", "core",
// "*.[1-9]") in a list. Tells which names the database is bound to type alike.
class MimeGlobIndex
{
public:
    // Patterns as the database lists them (globs: '*', '?', "[...]"). Without `complete`, the list may
    // miss some of the database's patterns and decidingEnding never answers.
    explicit MimeGlobIndex(const QStringList& patterns, bool complete = true);
    // The patterns of the MIME directories the database reads, read once; incomplete when a directory
    // has no pattern list of its own, or when the database would fall back to a copy built into Qt.
    static const MimeGlobIndex& system();
    // The same for the given "mime" folders.
    static MimeGlobIndex fromFolders(const QStringList& folders);

    // The ending of name that alone decides its type: the longest ending some "*ending" pattern matches
    // (letters compared without case; "" when none does). Nothing when another kind of pattern could
    // match the name, or when a byte outside ASCII could change which ending matches: then only the
    // whole name tells.
    std::optional<std::string_view> decidingEnding(std::string_view name) const;

    // One place of a pattern: '*', or the characters it takes (ASCII ones lower-cased).
    struct Element
    {
        bool star = false;
        std::bitset<128> ascii;
        bool folding = false; // a character outside ASCII that may be read as a letter
        bool other = false;   // any other character outside ASCII
    };
    struct Glob
    {
        std::vector<Element> places;
        size_t head = 0;  // places before the first star (all of them without a star)
        size_t tail = 0;  // places after the last star
        size_t fixed = 0; // places that are not stars: the shortest name it matches
        bool star = false;
    };

private:
    static Glob compile(std::string_view lowerPattern);
    static bool matchesAscii(const Glob& glob, std::string_view name);
    // Over the name's UTF-16 units, as unitsOf in the source file gives them.
    static bool mayMatchUnits(const Glob& glob, const std::vector<int>& units);
    static bool mayMatchBroken(const Glob& glob, const std::vector<int>& units);

    struct Node
    {
        std::vector<std::pair<char, uint32_t>> next;
        bool ends = false; // an ending of a pattern ends here
    };
    uint32_t child(uint32_t node, char c) const;
    bool otherPatternMayMatch(std::string_view name) const;

    bool m_complete;
    std::vector<Node> m_nodes{Node{}};
    std::array<uint32_t, 128> m_rootChildren{}; // every name's walk starts there: looked up directly
    // The other patterns: those a name must start with a given letter for, and the rest.
    std::array<std::vector<Glob>, 128> m_othersByFirst;
    std::vector<Glob> m_othersAnyFirst;
};

// The type of regular files by name alone (the database's answer matching file names only, never
// contents), as an index into SearchTypes. The database is asked once per deciding ending, and once
// per name only for names some other pattern could match. Safe from any thread.
class NameTypes
{
public:
    explicit NameTypes(const MimeGlobIndex& globs = MimeGlobIndex::system());
    uint16_t typeOf(std::string_view name);
    // Forgets every answer (a new search: the database may have changed).
    void clear();

private:
    struct Hash
    {
        using is_transparent = void;
        size_t operator()(std::string_view key) const { return std::hash<std::string_view>{}(key); }
    };
    using Map = std::unordered_map<std::string, uint16_t, Hash, std::equal_to<>>;
    static std::optional<uint16_t> find(const Map& map, std::string_view key);

    const MimeGlobIndex& m_globs;
    std::shared_mutex m_mutex;
    Map m_byEnding;
    Map m_byName;
};
