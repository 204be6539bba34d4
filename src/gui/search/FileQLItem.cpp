#include "FileQLItem.h"

#include "search/SearchItem.h"
#include "util/VolumeName.h"

#include <QFile>

FileQLItem::FileQLItem(QByteArray path)
    : m_fileURL(QUrl::fromLocalFile(QFile::decodeName(path)))
    , m_filePath(std::move(path))
{
}

QString FileQLItem::previewItemTitle() const
{
    const QString shown = VolumeName::getDisplayNameAtPath(QFile::decodeName(m_filePath));
    return shown.isEmpty() ? QString::fromUtf8(SearchPaths::lastComponent(m_filePath)) : shown;
}
