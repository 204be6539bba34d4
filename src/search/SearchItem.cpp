#include "SearchItem.h"

#include <QHash>
#include <QList>
#include <QMutex>

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

SearchFolderPtr::SearchFolderPtr(const SearchFolderPtr& other)
    : m_record(other.m_record)
{
    if (m_record)
        m_record->m_refs.fetch_add(1, std::memory_order_relaxed);
}

SearchFolderPtr::~SearchFolderPtr()
{
    // Up the chain without recursion: the last item of a deep folder may free every record above it.
    const SearchFolder* record = m_record;
    while (record && record->m_refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        auto* doomed = const_cast<SearchFolder*>(record);
        record = std::exchange(doomed->m_parent.m_record, nullptr);
        doomed->~SearchFolder();
        ::operator delete(doomed);
    }
}

SearchFolder::SearchFolder(SearchFolderPtr parent, std::string_view name, bool package, bool hidden)
    : inPackage(package)
    , inHidden(hidden)
    , m_nameLength(static_cast<quint32>(name.size()))
    , m_pathLength(static_cast<quint32>(parent ? parent->m_pathLength + 1 + name.size() : name.size()))
    , m_parent(std::move(parent))
{
    // Joining names that hold no slash puts no two together: only a folder named by a whole path (the
    // searched one: "/", "//usr") or an empty name can.
    if (name.empty() || name.back() == '/')
        m_singleSlashes = false;
    else if (m_parent)
        m_singleSlashes = m_parent->m_singleSlashes && name.find('/') == std::string_view::npos;
    else
        m_singleSlashes = name.find("//") == std::string_view::npos;
}

SearchFolderPtr SearchFolder::make(SearchFolderPtr parent, std::string_view name, bool inPackage, bool inHidden)
{
    void* block = ::operator new(sizeof(SearchFolder) + name.size());
    auto* record = new (block) SearchFolder(std::move(parent), name, inPackage, inHidden);
    if (!name.empty())
        std::memcpy(static_cast<char*>(block) + sizeof(SearchFolder), name.data(), name.size());
    return SearchFolderPtr(record);
}

void SearchFolder::writePathEndingAt(char* end) const
{
    for (const SearchFolder* f = this; f; f = f->parent()) {
        end -= f->m_nameLength;
        if (f->m_nameLength > 0)
            std::memcpy(end, f->name().data(), f->m_nameLength);
        if (f->parent())
            *--end = '/';
    }
}

QByteArray SearchFolder::pathFollowedBy(std::string_view name, bool withSlash) const
{
    const size_t tail = name.size() + (withSlash ? 1 : 0);
    const size_t length = pathLength() + tail;
    QByteArray out(static_cast<qsizetype>(length), Qt::Uninitialized);
    char* end = out.data() + length - tail;
    if (withSlash)
        end[0] = '/';
    if (!name.empty())
        std::memcpy(end + (withSlash ? 1 : 0), name.data(), name.size());
    writePathEndingAt(end);
    return out;
}

bool SearchFolder::joinsWithSingleSlashes(std::string_view name) const
{
    return !name.empty() && name.front() != '/' && m_singleSlashes;
}

QByteArray SearchFolder::pathJoinedWith(const QByteArray& name) const
{
    const std::string_view tail(name.constData(), static_cast<size_t>(name.size()));
    const QByteArray path = pathFollowedBy(tail, true);
    return joinsWithSingleSlashes(tail) ? path : SearchPaths::collapseSlashes(path);
}

namespace SearchPaths {

QByteArray collapseSlashes(const QByteArray& path)
{
    if (!path.contains("//"))
        return path;
    QByteArray out;
    out.reserve(path.size());
    for (char c : path) {
        if (c == '/' && out.endsWith('/'))
            continue;
        out.append(c);
    }
    return out;
}

QByteArray join(const QByteArray& parent, const QByteArray& name)
{
    QByteArray out = parent;
    if (!out.endsWith('/'))
        out.append('/');
    out.append(name);
    return collapseSlashes(out);
}

QByteArray parentOf(const QByteArray& path)
{
    QByteArray p = path;
    while (p.size() > 1 && p.endsWith('/'))
        p.chop(1);
    const qsizetype slash = p.lastIndexOf('/');
    if (slash < 0 || p == "/")
        return {};
    QByteArray parent = p.left(slash);
    while (parent.size() > 1 && parent.endsWith('/'))
        parent.chop(1);
    return parent.isEmpty() ? QByteArray("/") : parent;
}

QByteArray lastComponent(const QByteArray& path)
{
    QByteArray p = path;
    while (p.size() > 1 && p.endsWith('/'))
        p.chop(1);
    if (p == "/")
        return p;
    return p.mid(p.lastIndexOf('/') + 1);
}

QByteArray cleanFolder(const QByteArray& folder)
{
    if (folder.isEmpty())
        return {};
    QByteArray path = folder;
    if (!path.startsWith('/')) {
        char cwd[PATH_MAX];
        if (!getcwd(cwd, sizeof cwd))
            return {};
        path = QByteArray(cwd) + '/' + path;
    }
    QByteArrayList parts;
    bool climbs = false;
    for (const QByteArray& part : path.split('/')) {
        if (part.isEmpty() || part == ".")
            continue;
        climbs = climbs || part == "..";
        parts.append(part);
    }
    const QByteArray cleaned = '/' + parts.join('/');
    if (!climbs)
        return cleaned;
    char* resolved = realpath(cleaned.constData(), nullptr);
    if (!resolved)
        return {};
    const QByteArray result(resolved);
    std::free(resolved);
    return result;
}

} // namespace SearchPaths

namespace SearchTypes {
namespace {

struct Table
{
    QMutex mutex;
    QList<QString> names{QString()};
    QHash<QString, quint16> indexes{{QString(), quint16(0)}};
};

Table& table()
{
    static Table instance;
    return instance;
}

} // namespace

quint16 intern(const QString& name)
{
    Table& t = table();
    QMutexLocker lock(&t.mutex);
    if (auto it = t.indexes.constFind(name); it != t.indexes.constEnd())
        return *it;
    if (t.names.size() > 0xFFFF)
        return 0;
    const auto index = static_cast<quint16>(t.names.size());
    t.names.append(name);
    t.indexes.insert(name, index);
    return index;
}

QString name(quint16 index)
{
    Table& t = table();
    QMutexLocker lock(&t.mutex);
    return index < t.names.size() ? t.names.at(index) : QString();
}

} // namespace SearchTypes

QDateTime SearchItem::lastUsedDate() const
{
    if (modifiedMSecs == kNoDate)
        return {};
    return QDateTime::fromMSecsSinceEpoch(modifiedMSecs, Qt::UTC);
}

QString SearchItem::fullFileNameWithPath() const
{
    return QString::fromUtf8(nativeFullPath());
}

QByteArray SearchItem::nativeFullPath() const
{
    return m_folder ? m_folder->pathJoinedWith(rawFileName) : SearchPaths::join({}, rawFileName);
}

void SearchItem::appendNativeFullPath(std::string& out) const
{
    const std::string_view name(rawFileName.constData(), static_cast<size_t>(rawFileName.size()));
    if (!m_folder || !m_folder->joinsWithSingleSlashes(name)) {
        const QByteArray path = nativeFullPath();
        out.append(path.constData(), static_cast<size_t>(path.size()));
        return;
    }
    const size_t at = out.size();
    out.resize(at + m_folder->pathLength() + 1 + name.size());
    char* end = out.data() + out.size() - name.size();
    std::memcpy(end, name.data(), name.size());
    *--end = '/';
    m_folder->writePathEndingAt(end);
}

QString SearchItem::enclosingFolderName() const
{
    return QString::fromUtf8(SearchPaths::lastComponent(rawFilePath()));
}

uint SearchItem::foundMaskBits() const
{
    uint bits = 0;
    if (!fileHidden && !fileInPackage)
        bits |= SearchItemClass::Regular;
    if (fileHidden)
        bits |= SearchItemClass::Hidden;
    if (fileInPackage)
        bits |= SearchItemClass::PackageContents;
    return bits;
}

bool SearchItem::passesFilter(uint filterMask) const
{
    if ((filterMask & SearchItemClass::Regular) && !fileHidden && !fileInHiddenFolder && !fileInPackage)
        return true;
    if ((filterMask & SearchItemClass::Hidden) && (fileHidden || fileInHiddenFolder) && !fileInPackage)
        return true;
    return (filterMask & SearchItemClass::PackageContents) && fileInPackage;
}
