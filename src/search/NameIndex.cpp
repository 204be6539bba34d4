#include "NameIndex.h"

#include "Walker.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <thread>
#include <unordered_map>

namespace {

constexpr std::array<unsigned char, 256> makeFold()
{
    std::array<unsigned char, 256> table{};
    for (int c = 0; c < 256; ++c)
        table[static_cast<size_t>(c)] = static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
    return table;
}
constexpr std::array<unsigned char, 256> kFold = makeFold();

// The walker's test (walkerNameMatches) without its copy: names are at most 255 bytes, well inside
// the part of a name the walker looks at.
bool matchesFolded(const char* name, size_t length, const unsigned char* needle, size_t needleLength)
{
    if (needleLength == 0)
        return true;
    if (length < needleLength)
        return false;
    const unsigned char first = needle[0];
    const size_t last = length - needleLength;
    for (size_t i = 0; i <= last; ++i) {
        if (kFold[static_cast<unsigned char>(name[i])] != first)
            continue;
        size_t k = 1;
        while (k < needleLength && kFold[static_cast<unsigned char>(name[i + k])] == needle[k])
            ++k;
        if (k == needleLength)
            return true;
    }
    return false;
}

// Compacting the arena rewrites every offset; it is worth it only once much of it is dead.
constexpr size_t kMinGarbageToCompact = 1 << 20;
constexpr size_t kQueryBlock = 8192;

// Vectors double when full; for an index that lives for hours that is up to half its memory unused.
// Growing by an eighth keeps the slack small at a few more copies.
template <typename Vector> void growGently(Vector& vector, size_t needed)
{
    if (vector.capacity() < needed)
        vector.reserve(std::max(needed, vector.capacity() + vector.capacity() / 8 + 4096));
}

} // namespace

NameIndex::NameIndex(std::string rootPath)
    : m_rootPath(std::move(rootPath))
{
    m_names.assign(m_rootPath.begin(), m_rootPath.end());
    m_entries.push_back(Entry{kNone, kNone, kNone, 0, static_cast<uint16_t>(m_rootPath.size()), Folder, 0});
    m_live = 1;
    m_folders = 1;
}

NameIndex::Id NameIndex::childLocked(Id parent, std::string_view name) const
{
    if (parent >= m_entries.size())
        return kNone;
    for (Id c = m_entries[parent].firstChild; c != kNone; c = m_entries[c].nextSibling) {
        if (nameOf(m_entries[c]) == name)
            return c;
    }
    return kNone;
}

NameIndex::Id NameIndex::child(Id parent, std::string_view name) const
{
    std::shared_lock lock(m_mutex);
    return childLocked(parent, name);
}

NameIndex::Id NameIndex::addLocked(Id parent, std::string_view name, uint8_t flags,
                                   const std::function<void(Id)>& forget)
{
    const Id existing = childLocked(parent, name);
    if (existing != kNone) {
        Entry& e = m_entries[existing];
        if ((e.flags & Folder) == (flags & Folder)) {
            e.flags = flags;
            return existing;
        }
        removeLocked(existing, forget);
    }
    return insertLocked(parent, name, flags);
}

NameIndex::Id NameIndex::insertLocked(Id parent, std::string_view name, uint8_t flags)
{
    growGently(m_names, m_names.size() + name.size());
    if (m_free.empty())
        growGently(m_entries, m_entries.size() + 1);
    const auto offset = static_cast<uint32_t>(m_names.size());
    m_names.insert(m_names.end(), name.begin(), name.end());
    Entry entry{parent, kNone, m_entries[parent].firstChild, offset, static_cast<uint16_t>(name.size()), flags, 0};
    Id id;
    if (!m_free.empty()) {
        id = m_free.back();
        m_free.pop_back();
        m_entries[id] = entry;
    } else {
        id = static_cast<Id>(m_entries.size());
        m_entries.push_back(entry);
    }
    m_entries[parent].firstChild = id;
    ++m_live;
    if (flags & Folder)
        ++m_folders;
    m_liveNameBytes += static_cast<qint64>(name.size());
    return id;
}

NameIndex::Id NameIndex::add(Id parent, std::string_view name, bool folder, bool unentered,
                             const std::function<void(Id)>& forget)
{
    std::unique_lock lock(m_mutex);
    if (!isAlive(parent, lock))
        return kNone;
    return addLocked(parent, name, static_cast<uint8_t>((folder ? Folder : 0) | (unentered ? Unentered : 0)), forget);
}

std::vector<NameIndex::Id> NameIndex::addMany(Id parent, const std::vector<std::pair<std::string, uint8_t>>& names,
                                              const std::function<void(Id)>& forget)
{
    std::vector<Id> ids;
    ids.reserve(names.size());
    std::unique_lock lock(m_mutex);
    if (!isAlive(parent, lock))
        return std::vector<Id>(names.size(), kNone);
    // Names already there are found through one table, not one pass over the siblings per name. Its
    // keys point into the arena, so the arena must not move while it is used: room is made first.
    size_t incoming = 0;
    for (const auto& item : names)
        incoming += item.first.size();
    std::unordered_map<std::string_view, Id> existing;
    const auto makeRoom = [&] {
        growGently(m_names, m_names.size() + incoming);
        growGently(m_entries, m_entries.size() + names.size());
        existing.clear();
        for (Id c = m_entries[parent].firstChild; c != kNone; c = m_entries[c].nextSibling)
            existing.emplace(nameOf(m_entries[c]), c);
    };
    makeRoom();
    for (const auto& [name, flags] : names) {
        if (const auto it = existing.find(name); it != existing.end()) {
            const Id old = it->second;
            existing.erase(it);
            if ((m_entries[old].flags & Folder) == (flags & Folder)) {
                m_entries[old].flags = flags;
                ids.push_back(old);
                continue;
            }
            removeLocked(old, forget);
            makeRoom(); // removing may have compacted the arena
        }
        ids.push_back(insertLocked(parent, name, flags));
    }
    return ids;
}

bool NameIndex::isAlive(Id id, const std::unique_lock<std::shared_mutex>&) const
{
    return id < m_entries.size() && !(m_entries[id].flags & Removed);
}

void NameIndex::unlinkLocked(Id id)
{
    const Id parent = m_entries[id].parent;
    if (parent == kNone)
        return;
    Id* link = &m_entries[parent].firstChild;
    while (*link != kNone && *link != id)
        link = &m_entries[*link].nextSibling;
    if (*link == id)
        *link = m_entries[id].nextSibling;
    m_entries[id].nextSibling = kNone;
}

void NameIndex::removeLocked(Id id, const std::function<void(Id)>& forget)
{
    if (id == kRoot || id >= m_entries.size() || (m_entries[id].flags & Removed))
        return;
    unlinkLocked(id);
    std::vector<Id> stack{id};
    while (!stack.empty()) {
        const Id current = stack.back();
        stack.pop_back();
        Entry& e = m_entries[current];
        for (Id c = e.firstChild; c != kNone; c = m_entries[c].nextSibling)
            stack.push_back(c);
        if ((e.flags & Folder) && forget)
            forget(current);
        --m_live;
        if (e.flags & Folder)
            --m_folders;
        m_liveNameBytes -= e.nameLength;
        e.flags = Removed;
        e.firstChild = kNone;
        e.nextSibling = kNone;
        e.parent = kNone;
        m_free.push_back(current);
    }
    const size_t garbage = m_names.size() - static_cast<size_t>(m_liveNameBytes) - m_rootPath.size();
    if (garbage > kMinGarbageToCompact && garbage > m_names.size() / 2)
        compactNamesLocked();
}

void NameIndex::remove(Id id, const std::function<void(Id)>& forget)
{
    std::unique_lock lock(m_mutex);
    removeLocked(id, forget);
}

void NameIndex::clearChildren(Id folder, const std::function<void(Id)>& forget)
{
    std::unique_lock lock(m_mutex);
    if (!isAlive(folder, lock))
        return;
    while (m_entries[folder].firstChild != kNone)
        removeLocked(m_entries[folder].firstChild, forget);
}

void NameIndex::move(Id id, Id newParent, std::string_view newName, const std::function<void(Id)>& forget)
{
    std::unique_lock lock(m_mutex);
    if (id == kRoot || !isAlive(id, lock) || !isAlive(newParent, lock))
        return;
    // A folder moved into its own subtree cannot happen on disk; refuse rather than make a cycle.
    for (Id up = newParent; up != kNone; up = m_entries[up].parent) {
        if (up == id)
            return;
    }
    const Id clash = childLocked(newParent, newName);
    if (clash == id && nameOf(m_entries[id]) == newName)
        return;
    if (clash != kNone && clash != id)
        removeLocked(clash, forget);
    unlinkLocked(id);
    Entry& e = m_entries[id];
    if (nameOf(e) != newName) {
        m_liveNameBytes -= e.nameLength;
        e.nameOffset = static_cast<uint32_t>(m_names.size());
        e.nameLength = static_cast<uint16_t>(newName.size());
        growGently(m_names, m_names.size() + newName.size());
        m_names.insert(m_names.end(), newName.begin(), newName.end());
        m_liveNameBytes += e.nameLength;
    }
    e.parent = newParent;
    e.nextSibling = m_entries[newParent].firstChild;
    m_entries[newParent].firstChild = id;
}

std::vector<NameIndex::ChildInfo> NameIndex::children(Id folder) const
{
    std::shared_lock lock(m_mutex);
    std::vector<ChildInfo> list;
    if (folder >= m_entries.size() || (m_entries[folder].flags & Removed))
        return list;
    for (Id c = m_entries[folder].firstChild; c != kNone; c = m_entries[c].nextSibling)
        list.push_back({std::string(nameOf(m_entries[c])), c, m_entries[c].flags});
    return list;
}

std::string NameIndex::pathLocked(Id id) const
{
    if (id >= m_entries.size() || (m_entries[id].flags & Removed))
        return {};
    Id chain[4096];
    size_t depth = 0;
    std::vector<Id> deep; // only for trees deeper than the stack array
    for (Id up = id; up != kRoot; up = m_entries[up].parent) {
        if (depth < std::size(chain))
            chain[depth++] = up;
        else
            deep.push_back(up);
    }
    std::string path = m_rootPath;
    const auto append = [&](Id part) {
        if (path.empty() || path.back() != '/')
            path.push_back('/');
        path.append(nameOf(m_entries[part]));
    };
    for (auto it = deep.rbegin(); it != deep.rend(); ++it)
        append(*it);
    while (depth > 0)
        append(chain[--depth]);
    return path;
}

std::string NameIndex::path(Id id) const
{
    std::shared_lock lock(m_mutex);
    return pathLocked(id);
}

NameIndex::Id NameIndex::findLocked(std::string_view path) const
{
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    if (path == m_rootPath)
        return kRoot;
    std::string_view rest;
    if (m_rootPath == "/") {
        if (path.empty() || path[0] != '/')
            return kNone;
        rest = path.substr(1);
    } else {
        if (path.size() <= m_rootPath.size() || path.substr(0, m_rootPath.size()) != m_rootPath ||
            path[m_rootPath.size()] != '/')
            return kNone;
        rest = path.substr(m_rootPath.size() + 1);
    }
    Id current = kRoot;
    while (!rest.empty() && current != kNone) {
        const size_t slash = rest.find('/');
        const std::string_view part = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
        if (part.empty() || part == ".")
            continue;
        current = childLocked(current, part);
    }
    return current;
}

NameIndex::Id NameIndex::find(std::string_view path) const
{
    std::shared_lock lock(m_mutex);
    return findLocked(path);
}

bool NameIndex::isFolder(Id id) const
{
    std::shared_lock lock(m_mutex);
    return id < m_entries.size() && (m_entries[id].flags & (Folder | Removed)) == Folder;
}

NameIndex::Id NameIndex::parent(Id id) const
{
    std::shared_lock lock(m_mutex);
    if (id == kRoot || id >= m_entries.size() || (m_entries[id].flags & Removed))
        return kNone;
    return m_entries[id].parent;
}

bool NameIndex::nameInto(Id id, std::string& name) const
{
    std::shared_lock lock(m_mutex);
    if (id == kRoot || id >= m_entries.size() || (m_entries[id].flags & Removed))
        return false;
    name.assign(nameOf(m_entries[id]));
    return true;
}

bool NameIndex::isAlive(Id id) const
{
    std::shared_lock lock(m_mutex);
    return id < m_entries.size() && !(m_entries[id].flags & Removed);
}

void NameIndex::compactNamesLocked()
{
    std::vector<char> names;
    names.reserve(static_cast<size_t>(m_liveNameBytes) + m_rootPath.size());
    for (Entry& e : m_entries) {
        if (e.flags & Removed)
            continue;
        const auto offset = static_cast<uint32_t>(names.size());
        names.insert(names.end(), m_names.begin() + e.nameOffset, m_names.begin() + e.nameOffset + e.nameLength);
        e.nameOffset = offset;
    }
    m_names = std::move(names);
}

void NameIndex::compact()
{
    std::unique_lock lock(m_mutex);
    compactNamesLocked();
    // Trailing free slots go; the others stay on the free list.
    while (!m_entries.empty() && (m_entries.back().flags & Removed)) {
        m_free.erase(std::remove(m_free.begin(), m_free.end(), static_cast<Id>(m_entries.size() - 1)), m_free.end());
        m_entries.pop_back();
    }
    m_entries.shrink_to_fit();
    m_names.shrink_to_fit();
    m_free.shrink_to_fit();
}

NameIndex::Usage NameIndex::usage() const
{
    std::shared_lock lock(m_mutex);
    Usage u;
    u.entries = m_live - 1; // the root is not one of the names below it
    u.folders = m_folders - 1;
    u.nameBytes = m_liveNameBytes;
    u.memoryBytes = static_cast<qint64>(m_entries.capacity() * sizeof(Entry) + m_names.capacity() +
                                        m_free.capacity() * sizeof(Id) + sizeof(*this));
    u.overheadBytes = u.memoryBytes - u.nameBytes;
    return u;
}

QList<NameIndex::Match> NameIndex::query(std::string_view needle, std::string_view folder, int limit) const
{
    const std::string folded = walkerFoldNeedle(needle);
    const auto* n = reinterpret_cast<const unsigned char*>(folded.data());
    const size_t nl = folded.size();

    std::shared_lock lock(m_mutex);
    const Id scope = folder.empty() ? kRoot : findLocked(folder);
    QList<Match> result;
    if (scope == kNone || (m_entries[scope].flags & Removed))
        return result;

    const size_t count = m_entries.size();
    std::atomic<size_t> nextBlock{0};
    std::atomic<long> found{0};
    const long wanted = limit > 0 ? limit : -1;
    const unsigned workers = std::max(1u, std::min(std::thread::hardware_concurrency(),
                                                   static_cast<unsigned>((count + kQueryBlock - 1) / kQueryBlock)));
    std::vector<std::vector<Id>> hits(workers);

    const auto work = [&](unsigned worker) {
        std::vector<Id>& mine = hits[worker];
        for (;;) {
            if (wanted > 0 && found.load(std::memory_order_relaxed) >= wanted)
                return;
            const size_t begin = nextBlock.fetch_add(1, std::memory_order_relaxed) * kQueryBlock;
            if (begin >= count)
                return;
            const size_t end = std::min(count, begin + kQueryBlock);
            long local = 0;
            for (size_t i = begin; i < end; ++i) {
                const Entry& e = m_entries[i];
                if ((e.flags & Removed) || i == kRoot)
                    continue;
                if (!matchesFolded(m_names.data() + e.nameOffset, e.nameLength, n, nl))
                    continue;
                if (scope != kRoot) {
                    Id up = e.parent;
                    while (up != kNone && up != scope)
                        up = m_entries[up].parent;
                    if (up != scope)
                        continue;
                }
                mine.push_back(static_cast<Id>(i));
                ++local;
            }
            if (local > 0)
                found.fetch_add(local, std::memory_order_relaxed);
        }
    };
    std::vector<std::thread> threads;
    for (unsigned w = 1; w < workers; ++w)
        threads.emplace_back(work, w);
    work(0);
    for (std::thread& t : threads)
        t.join();

    for (const std::vector<Id>& list : hits) {
        for (const Id id : list) {
            if (wanted > 0 && result.size() >= wanted)
                break;
            const std::string p = pathLocked(id);
            result.append(
                Match{QByteArray(p.data(), static_cast<qsizetype>(p.size())), (m_entries[id].flags & Folder) != 0});
        }
    }
    return result;
}
