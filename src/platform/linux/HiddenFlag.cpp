#include "platform/HiddenFlag.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace HiddenFlag {

namespace {

QString errnoText(const QString& path)
{
    return QStringLiteral("%1: %2").arg(path, QString::fromLocal8Bit(std::strerror(errno)));
}

// The folder's list as raw lines (names are bytes; a name that is not UTF-8 must survive untouched).
// A missing list is empty; a list that cannot be used is an error, so that it is never overwritten.
std::optional<QString> readList(const QString& listPath, QList<QByteArray>& lines)
{
    lines.clear();
    struct stat st{};
    if (::lstat(QFile::encodeName(listPath).constData(), &st) != 0)
        return errno == ENOENT ? std::nullopt : std::optional(errnoText(listPath));
    if (!S_ISREG(st.st_mode) || st.st_size > kMaxListSize)
        return QStringLiteral("%1: not a regular file of at most %2 bytes").arg(listPath).arg(kMaxListSize);
    QFile file(listPath);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("%1: %2").arg(listPath, file.errorString());
    const QByteArray content = file.read(kMaxListSize + 1);
    if (content.isEmpty())
        return std::nullopt;
    lines = content.split('\n');
    if (content.endsWith('\n'))
        lines.removeLast();
    return std::nullopt;
}

} // namespace

bool isListed(const QString& path)
{
    const QFileInfo info(path);
    QList<QByteArray> lines;
    if (readList(info.dir().filePath(QStringLiteral(".hidden")), lines))
        return false;
    return lines.contains(QFile::encodeName(info.fileName()));
}

std::optional<QString> setHidden(const QString& path, bool hidden)
{
    const QByteArray nativePath = QFile::encodeName(path);
    struct stat st{};
    if (path.isEmpty() || ::lstat(nativePath.constData(), &st) != 0)
        return errnoText(path.isEmpty() ? QStringLiteral("\"\"") : path);

    const QFileInfo info(path);
    const QByteArray name = QFile::encodeName(info.fileName());
    if (hidden && name.startsWith('.'))
        return std::nullopt;

    const QString listPath = info.dir().filePath(QStringLiteral(".hidden"));
    QList<QByteArray> lines;
    if (auto error = readList(listPath, lines))
        return error;
    if (lines.contains(name) == hidden)
        return std::nullopt;
    if (hidden)
        lines.append(name);
    else
        lines.removeAll(name);

    QSaveFile file(listPath);
    if (!file.open(QIODevice::WriteOnly))
        return QStringLiteral("%1: %2").arg(listPath, file.errorString());
    for (const QByteArray& line : std::as_const(lines))
        file.write(line + '\n');
    if (!file.commit())
        return QStringLiteral("%1: %2").arg(listPath, file.errorString());
    return std::nullopt;
}

std::optional<QString> renameNoReplace(const QString& from, const QString& to)
{
    if (::renameat2(AT_FDCWD, QFile::encodeName(from).constData(), AT_FDCWD, QFile::encodeName(to).constData(),
                    RENAME_NOREPLACE) != 0)
        return QStringLiteral("%1 -> %2: %3").arg(from, to, QString::fromLocal8Bit(std::strerror(errno)));
    return std::nullopt;
}

} // namespace HiddenFlag
