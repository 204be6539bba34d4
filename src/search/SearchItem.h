#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

// The classes of found items, as bits of the filter and found masks.
namespace SearchItemClass {
constexpr uint Regular = 1;
constexpr uint Hidden = 2;
constexpr uint PackageContents = 4;
constexpr uint All = Regular | Hidden | PackageContents;
} // namespace SearchItemClass

class SearchFolder;

// Shared ownership of a SearchFolder: one pointer wide, the count lives in the record.
class SearchFolderPtr
{
public:
    SearchFolderPtr() = default;
    SearchFolderPtr(std::nullptr_t) {}
    SearchFolderPtr(const SearchFolderPtr& other);
    SearchFolderPtr(SearchFolderPtr&& other) noexcept
        : m_record(std::exchange(other.m_record, nullptr))
    {
    }
    SearchFolderPtr& operator=(SearchFolderPtr other) noexcept
    {
        std::swap(m_record, other.m_record);
        return *this;
    }
    ~SearchFolderPtr();

    const SearchFolder* get() const { return m_record; }
    const SearchFolder& operator*() const { return *m_record; }
    const SearchFolder* operator->() const { return m_record; }
    explicit operator bool() const { return m_record != nullptr; }
    friend bool operator==(const SearchFolderPtr& a, const SearchFolderPtr& b) { return a.m_record == b.m_record; }

private:
    friend class SearchFolder;
    explicit SearchFolderPtr(const SearchFolder* adopted)
        : m_record(adopted)
    {
    }
    const SearchFolder* m_record = nullptr;
};

// The facts of one folder a search found items in, shared by all of them. A record keeps only its own
// name and the record of the folder above it: found items in deep trees spread over many folders would
// otherwise hold a long path each. The path is put together when asked for.
class SearchFolder
{
public:
    // A folder below parent (its path is parent's, "/" and name), or, without parent, a folder named by
    // its whole path as the walker reports it (a walk of "/" gives "//usr"), raw bytes.
    static SearchFolderPtr make(SearchFolderPtr parent, std::string_view name, bool inPackage, bool inHidden);
    static SearchFolderPtr make(const QByteArray& path, bool inPackage = false, bool inHidden = false)
    {
        return make({}, std::string_view(path.constData(), static_cast<size_t>(path.size())), inPackage, inHidden);
    }
    SearchFolder(const SearchFolder&) = delete;
    SearchFolder& operator=(const SearchFolder&) = delete;

    QByteArray path() const { return pathFollowedBy({}, false); }
    // The path, "/" and name in one allocation, with runs of slashes made single (see SearchPaths::join).
    QByteArray pathJoinedWith(const QByteArray& name) const;
    // Whether the path, "/" and name show no two slashes in a row as they stand (nothing to collapse).
    bool joinsWithSingleSlashes(std::string_view name) const;
    size_t pathLength() const { return m_pathLength; }
    // Writes the path backwards so that it ends just before end.
    void writePathEndingAt(char* end) const;
    std::string_view name() const { return {reinterpret_cast<const char*>(this + 1), m_nameLength}; }
    const SearchFolder* parent() const { return m_parent.get(); }

    const bool inPackage; // the folder or one above it is a package
    const bool inHidden;  // the folder or one above it is hidden

private:
    friend class SearchFolderPtr;
    SearchFolder(SearchFolderPtr parent, std::string_view name, bool package, bool hidden);
    ~SearchFolder() = default;
    QByteArray pathFollowedBy(std::string_view name, bool withSlash) const;

    // Every item of the folder asks for these when its path is written: known once, from the parent's.
    bool m_singleSlashes;
    mutable std::atomic<quint32> m_refs{1};
    quint32 m_nameLength;
    quint32 m_pathLength;
    SearchFolderPtr m_parent;
    // The name's bytes follow the record in the same block.
};

// Interned MIME type names: items keep a small index instead of a string. Index 0 is the empty name
// (an item that could not be read).
namespace SearchTypes {
quint16 intern(const QString& name);
QString name(quint16 index);
} // namespace SearchTypes

// One found file, kept small since a search may hold millions: the folder's facts are shared, the name
// is kept once as raw bytes (display strings are made when asked for), the type is an index. Built on
// a walker thread, then owned by the search manager's lists on the main thread; only the main thread
// changes it after that (fileSize of a package). Every action on the file uses nativeFullPath().
class SearchItem
{
public:
    static constexpr qint64 kNoDate = INT64_MIN;

    SearchItem() = default;
    SearchItem(QByteArray name, SearchFolderPtr folder)
        : rawFileName(std::move(name))
        , m_folder(std::move(folder))
    {
    }

    qint64 itemID = 0;
    QByteArray rawFileName;
    qint64 fileSize = 0;            // -1 for a plain folder; a package's contents sum once counted
    qint64 modifiedMSecs = kNoDate; // modification time, ms since the epoch
    quint16 typeIndex = 0;          // into SearchTypes
    bool fileHidden = false;
    bool fileInHiddenFolder = false;
    bool filePackage = false;
    bool fileInPackage = false;

    // Names that are not UTF-8 are shown with replacement characters.
    QString fileName() const { return QString::fromUtf8(rawFileName); }
    QString filePath() const { return QString::fromUtf8(rawFilePath()); }
    QByteArray rawFilePath() const { return m_folder ? m_folder->path() : QByteArray(); }
    const SearchFolderPtr& folder() const { return m_folder; }
    // MIME type name; "inode/directory" for a folder; empty when unreadable.
    QString fileType() const { return SearchTypes::name(typeIndex); }
    QDateTime lastUsedDate() const;

    QString fullFileNameWithPath() const;
    QString enclosingFolderName() const;
    QString enclosingFolderForSorting() const { return filePath(); }
    QByteArray nativeFullPath() const;
    // The same appended to out, without a buffer of its own (long listings).
    void appendNativeFullPath(std::string& out) const;

    // The bits this item adds to the search's found mask. It looks only at the item's own hidden
    // flag: a plain file inside a hidden folder counts as regular here, though it is filtered as hidden.
    uint foundMaskBits() const;
    // Whether the item belongs in the filtered list under this mask (the three classes are disjoint).
    bool passesFilter(uint filterMask) const;

private:
    SearchFolderPtr m_folder;
};

using SearchItemPtr = std::shared_ptr<SearchItem>;

namespace SearchPaths {
// Parent + "/" + name with runs of slashes made single (a walk of "/" reports parents like "//usr").
QByteArray join(const QByteArray& parent, const QByteArray& name);
QByteArray collapseSlashes(const QByteArray& path);
// The folder above a path; "/" above "/x"; empty above "/" or a bare name.
QByteArray parentOf(const QByteArray& path);
QByteArray lastComponent(const QByteArray& path);
// The folder a search walks, made from what the user gave: absolute (relative to the working folder),
// repeated slashes and "." parts dropped, no trailing slash. ".." is resolved by the file system
// (realpath), since a link's ".." is not the folder the text names; empty when it cannot be.
QByteArray cleanFolder(const QByteArray& folder);
} // namespace SearchPaths
