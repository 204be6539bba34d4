#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <memory>

// The classes of found items, as bits of the filter and found masks.
namespace SearchItemClass {
constexpr uint Regular = 1;
constexpr uint Hidden = 2;
constexpr uint PackageContents = 4;
constexpr uint All = Regular | Hidden | PackageContents;
} // namespace SearchItemClass

// One found file. Built on a walker thread, then owned by the search manager's lists on the main
// thread; only the main thread changes it after that (fileSize of a package). Names that are not
// UTF-8 are shown with replacement characters; rawFileName / rawFilePath keep the real bytes, and every
// action on the file uses nativeFullPath().
struct SearchItem
{
    qint64 itemID = 0;
    QString fileName;
    QString filePath;
    QString fileType;    // MIME type name; "inode/directory" for a folder; empty when unreadable
    qint64 fileSize = 0; // -1 for a plain folder; a package's contents sum once counted
    QDateTime lastUsedDate;
    bool fileHidden = false;
    bool fileInHiddenFolder = false;
    bool filePackage = false;
    bool fileInPackage = false;

    QByteArray rawFileName;
    QByteArray rawFilePath;

    QString fullFileNameWithPath() const;
    QString enclosingFolderName() const;
    QString enclosingFolderForSorting() const { return filePath; }
    QByteArray nativeFullPath() const;

    // The bits this item adds to the search's found mask. It looks only at the item's own hidden
    // flag: a plain file inside a hidden folder counts as regular here, though it is filtered as hidden.
    uint foundMaskBits() const;
    // Whether the item belongs in the filtered list under this mask (the three classes are disjoint).
    bool passesFilter(uint filterMask) const;
};

using SearchItemPtr = std::shared_ptr<SearchItem>;

namespace SearchPaths {
// Parent + "/" + name with runs of slashes made single (a walk of "/" reports parents like "//usr").
QByteArray join(const QByteArray& parent, const QByteArray& name);
QByteArray collapseSlashes(const QByteArray& path);
// The folder above a path; "/" above "/x"; empty above "/" or a bare name.
QByteArray parentOf(const QByteArray& path);
QByteArray lastComponent(const QByteArray& path);
} // namespace SearchPaths
