#include "DiskAccessRestoreManager.h"

#include "core/UserDefaults.h"

#include <QDir>
#include <QFileInfo>

#include <unistd.h>

DiskAccessRestoreManager::DiskAccessRestoreManager(UserDefaults& defaults)
    : m_defaults(defaults)
{
}

DiskAccessRestoreManager& DiskAccessRestoreManager::sharedManager()
{
    static DiskAccessRestoreManager manager(UserDefaults::standardUserDefaults());
    return manager;
}

QString DiskAccessRestoreManager::getUserFolderPath()
{
    return QDir::homePath();
}

QString DiskAccessRestoreManager::getApplicationsFolderPath()
{
    return QStringLiteral("/Applications");
}

bool DiskAccessRestoreManager::isPathAccessible(const QString& path, int mode)
{
    if (path.isEmpty())
        return false;
    return ::access(QFile::encodeName(path).constData(), mode) == 0;
}

bool DiskAccessRestoreManager::isURLAccessible(const std::optional<QString>& path, int mode)
{
    return path && isPathAccessible(*path, mode);
}

bool DiskAccessRestoreManager::isDiskURLAccessible(const std::optional<QString>& path)
{
    return isURLAccessible(path, kReadMode);
}

std::optional<QString> DiskAccessRestoreManager::resolveBookmark(const QString& key) const
{
    const QVariant value = m_defaults.objectForKey(key);
    if (value.typeId() != QMetaType::QByteArray)
        return std::nullopt;
    const QString path = QString::fromUtf8(value.toByteArray());
    // A grant for a folder that was moved or deleted no longer resolves.
    if (path.isEmpty() || !QFileInfo(path).isDir())
        return std::nullopt;
    return path;
}

void DiskAccessRestoreManager::saveBookmark(const QString& path, const QString& key)
{
    if (!QFileInfo(path).isDir())
        return;
    m_defaults.setObject(QDir(path).absolutePath().toUtf8(), key);
    m_defaults.synchronize();
}

std::optional<QString> DiskAccessRestoreManager::restoreAccessToPathIfNeeded(const QString& path)
{
    if (isDiskURLAccessible(path))
        return path;
    const auto resolved = resolveBookmark(path);
    if (resolved && isDiskURLAccessible(resolved))
        return resolved;
    return std::nullopt;
}

std::optional<QString> DiskAccessRestoreManager::restoreAccessToDiskIfNeeded()
{
    const auto resolved = resolveBookmark(QString::fromLatin1(kDiskAccessKey));
    if (resolved && isDiskURLAccessible(resolved))
        return resolved;
    return std::nullopt;
}

bool DiskAccessRestoreManager::isPathAccessible(const QString& path)
{
    return isDiskURLAccessible(restoreAccessToPathIfNeeded(path));
}

bool DiskAccessRestoreManager::isUserFolderAccessible()
{
    return isPathAccessible(getUserFolderPath());
}

bool DiskAccessRestoreManager::isApplicationsFolderAccessible()
{
    return isPathAccessible(getApplicationsFolderPath());
}

bool DiskAccessRestoreManager::isDiskAccessible()
{
    return isApplicationsFolderAccessible() && isUserFolderAccessible();
}

void DiskAccessRestoreManager::saveAccessToDisk()
{
    saveBookmark(QStringLiteral("/"), QString::fromLatin1(kDiskAccessKey));
}

void DiskAccessRestoreManager::saveAccessToPath(const QString& path)
{
    saveBookmark(path, path);
}

void DiskAccessRestoreManager::saveAccessToUserFolder()
{
    saveAccessToPath(getUserFolderPath());
}

void DiskAccessRestoreManager::saveAccessToApplicationsFolder()
{
    saveAccessToPath(getApplicationsFolderPath());
}

void DiskAccessRestoreManager::testAcessToDisk()
{
    isPathAccessible(QStringLiteral("/"), kReadMode);
    isPathAccessible(QStringLiteral("/"), kWriteMode);
}

void DiskAccessRestoreManager::testAcessToApplications()
{
    isPathAccessible(QStringLiteral("/Applications"), kReadMode);
    isPathAccessible(QStringLiteral("/Applications/"), kWriteMode);
}

void DiskAccessRestoreManager::testAcessToFile(const QString& path)
{
    isPathAccessible(path, kReadMode);
    isPathAccessible(path, kWriteMode);
}
