#pragma once

// Files named by their bytes, through plain system calls: Qt's file classes take names as text and
// would change bytes that are not UTF-8.

#include <QByteArray>
#include <QByteArrayList>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

inline QByteArray readBytes(const QByteArray& path)
{
    const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return "<unreadable>";
    QByteArray content;
    char buffer[4096];
    ssize_t got;
    while ((got = ::read(fd, buffer, sizeof buffer)) > 0)
        content.append(buffer, got);
    ::close(fd);
    return content;
}

inline bool writeBytes(const QByteArray& path, const QByteArray& content)
{
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    const bool written = ::write(fd, content.constData(), size_t(content.size())) == content.size();
    return ::close(fd) == 0 && written;
}

inline bool makeFolders(const QByteArray& path)
{
    QByteArray partial;
    for (const QByteArray& part : path.split('/')) {
        partial += part + '/';
        if (!part.isEmpty() && ::mkdir(partial.constData(), 0755) != 0 && errno != EEXIST)
            return false;
    }
    return true;
}

// Links count as there, even when they point nowhere.
inline bool pathExists(const QByteArray& path)
{
    struct stat info
    {
    };
    return ::lstat(path.constData(), &info) == 0;
}

inline QByteArrayList listFolder(const QByteArray& path)
{
    QByteArrayList names;
    if (DIR* dir = ::opendir(path.constData())) {
        while (const dirent* entry = ::readdir(dir)) {
            const QByteArray name(entry->d_name);
            if (name != "." && name != "..")
                names.append(name);
        }
        ::closedir(dir);
    }
    return names;
}

// The user's freedesktop Trash (in the test's own data home).
inline QByteArray trashFolder()
{
    return qgetenv("XDG_DATA_HOME") + "/Trash";
}
