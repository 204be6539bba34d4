#pragma once

// Whole files for tests that lay their own out: written at once (their folder made first) and read back.

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

// False when the file could not be written whole or given the permissions asked for.
inline bool writeFile(const QString& path, const QByteArray& content, QFile::Permissions permissions = {})
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(content) != content.size())
        return false;
    f.close();
    return !permissions || f.setPermissions(permissions);
}

// A shell script its owner may run.
inline bool writeScript(const QString& path, const QByteArray& text)
{
    return writeFile(path, text, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// Empty when the file cannot be read.
inline QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}
