#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

// One file of a preview, made from its native path.
class FileQLItem
{
public:
    explicit FileQLItem(QByteArray path);

    QUrl previewItemURL() const { return m_fileURL; }
    // The name a file manager shows (the volume's name for a mount root), else the last path component.
    QString previewItemTitle() const;
    const QByteArray& filePath() const { return m_filePath; }

private:
    QUrl m_fileURL;
    QByteArray m_filePath;
};
