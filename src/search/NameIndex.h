#pragma once

// The names below one folder, kept in memory so a search by name answers without walking the disk.
// Each name is stored once, as raw bytes, in one arena; an entry holds its parent's number and its
// first child and next sibling, so a path is rebuilt on demand by climbing and a folder renamed with
// everything under it is one relink. Matching is the walker's: ASCII letters folded, plain substring.
//
// Thread safety: every public method locks; queries share the lock, changes take it alone. Numbers
// of removed entries are reused, so a number is only meaningful under one lock.

#include <QByteArray>
#include <QList>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

class NameIndex
{
public:
    using Id = uint32_t;
    static constexpr Id kNone = 0xffffffffu;
    static constexpr Id kRoot = 0;

    enum Flag : uint8_t
    {
        Folder = 1,    // a real folder (symbolic links to folders are not)
        Unentered = 2, // a folder listed but never entered (kernel or automount file systems)
        Removed = 4,
    };

    struct Match
    {
        QByteArray path;
        bool folder = false;
    };

    struct Usage
    {
        qint64 entries = 0;
        qint64 folders = 0;
        qint64 nameBytes = 0;     // bytes of the live names
        qint64 memoryBytes = 0;   // everything the index holds, names included
        qint64 overheadBytes = 0; // memoryBytes less the live names
    };

    // rootPath: the indexed folder as the walker is given it (no trailing slash except "/").
    explicit NameIndex(std::string rootPath);

    const std::string& rootPath() const { return m_rootPath; }

    // Finds names containing needle (ASCII letters folded) under folder (a path inside the index; empty
    // for the whole index), spread over the cores. limit > 0 stops once that many are found; which
    // ones is then not defined. Empty when folder is not in the index.
    QList<Match> query(std::string_view needle, std::string_view folder = {}, int limit = 0) const;
    Usage usage() const;

    // Changes. Paths and names are raw bytes.
    // The child called name of parent; kNone when none.
    Id child(Id parent, std::string_view name) const;
    // Adds (or finds) name under parent; a same-named entry of the other kind is replaced, and forget is
    // called for each folder that goes with it, as by remove.
    Id add(Id parent, std::string_view name, bool folder, bool unentered = false,
           const std::function<void(Id)>& forget = {});
    // Adds many names under one parent at once (the build): one lock for the lot. Returns their ids.
    std::vector<Id> addMany(Id parent, const std::vector<std::pair<std::string, uint8_t>>& names,
                            const std::function<void(Id)>& forget = {});
    // Removes an entry with everything under it; calls forget for each folder removed (under the lock:
    // it must not call back into the index).
    void remove(Id id, const std::function<void(Id)>& forget = {});
    // Removes every child of a folder (it became unreadable, or is read again).
    void clearChildren(Id folder, const std::function<void(Id)>& forget = {});
    // Moves an entry (and what is under it) to another parent, under a new name, replacing a
    // same-named entry there.
    void move(Id id, Id newParent, std::string_view newName, const std::function<void(Id)>& forget = {});
    // The children of a folder as (name, id, flags).
    struct ChildInfo
    {
        std::string name;
        Id id;
        uint8_t flags;
    };
    std::vector<ChildInfo> children(Id folder) const;
    // The entry's full path (the root's path for kRoot); empty for a removed or unknown entry.
    std::string path(Id id) const;
    // The entry for a full path (no trailing slash); kNone when not indexed.
    Id find(std::string_view path) const;
    bool isFolder(Id id) const;
    // The entry's parent (kNone for the root, a removed or unknown entry).
    Id parent(Id id) const;
    // Copies the entry's name into name, reusing its room; false for the root, a removed or unknown entry.
    bool nameInto(Id id, std::string& name) const;
    bool isAlive(Id id) const;
    // Releases spare capacity (after the build).
    void compact();

private:
    struct Entry
    {
        Id parent;
        Id firstChild;
        Id nextSibling;
        uint32_t nameOffset;
        uint16_t nameLength;
        uint8_t flags;
        uint8_t spare;
    };

    std::string_view nameOf(const Entry& e) const { return {m_names.data() + e.nameOffset, e.nameLength}; }
    Id childLocked(Id parent, std::string_view name) const;
    bool isAlive(Id id, const std::unique_lock<std::shared_mutex>&) const;
    Id addLocked(Id parent, std::string_view name, uint8_t flags, const std::function<void(Id)>& forget);
    Id insertLocked(Id parent, std::string_view name, uint8_t flags); // no check for a same-named entry
    void unlinkLocked(Id id);
    void removeLocked(Id id, const std::function<void(Id)>& forget);
    std::string pathLocked(Id id) const;
    Id findLocked(std::string_view path) const;
    void compactNamesLocked();

    const std::string m_rootPath;
    mutable std::shared_mutex m_mutex;
    std::vector<Entry> m_entries;
    std::vector<char> m_names;
    std::vector<Id> m_free;
    qint64 m_live = 0;
    qint64 m_folders = 0;
    qint64 m_liveNameBytes = 0;
};
