#include "SearchItem.h"

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

} // namespace SearchPaths

QString SearchItem::fullFileNameWithPath() const
{
    return QString::fromUtf8(nativeFullPath());
}

QByteArray SearchItem::nativeFullPath() const
{
    return SearchPaths::join(rawFilePath, rawFileName);
}

QString SearchItem::enclosingFolderName() const
{
    return QString::fromUtf8(SearchPaths::lastComponent(rawFilePath));
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
