#pragma once

#include "support/Files.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QString>

#include <cstdint>
#include <sys/stat.h>

// Helpers for disk-usage tests on real trees: files of a given length, and find's own view of the
// allocated sum as the independent answer.
namespace DiskUsageFixture {

inline bool writeFile(const QString& path, qint64 length, char fill = 'x')
{
    return ::writeFile(path, QByteArray(length, fill));
}

inline quint64 allocated(const QString& path)
{
    struct stat st;
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
        return 0;
    return quint64(st.st_blocks) * 512;
}

// Sum of find's %b (512-byte blocks) over everything below root that is not a folder, on root's
// file system only.
inline quint64 findAllocatedSum(const QString& root)
{
    QProcess find;
    find.start(QStringLiteral("find"),
               {root, QStringLiteral("-mindepth"), QStringLiteral("1"), QStringLiteral("-xdev"), QStringLiteral("!"),
                QStringLiteral("-type"), QStringLiteral("d"), QStringLiteral("-printf"), QStringLiteral("%b\\n")});
    find.waitForFinished(-1);
    quint64 total = 0;
    for (const QByteArray& line : find.readAllStandardOutput().split('\n'))
        if (!line.isEmpty())
            total += line.toULongLong() * 512;
    return total;
}

} // namespace DiskUsageFixture
