#pragma once

#include <QProcessEnvironment>
#include <QString>

// The user's standard folders that the disk-usage scans measure. The home folder is found once;
// tests hand in their own.
class PathsGenerator
{
public:
    static PathsGenerator& GetInstance();

    // HOME as every XDG program reads it; without it, the password-database record of the real
    // user id; without that, /home/<login name>.
    static QString findHomeDirectory();

    // env supplies the XDG variables; tests pass their own (or an empty one for the plain defaults).
    explicit PathsGenerator(QString home = findHomeDirectory(),
                            QProcessEnvironment env = QProcessEnvironment::systemEnvironment());

    QString getHomeDirectory() const { return m_home; }
    QString getCurrentDiskDirectory() const { return QStringLiteral("/"); }
    // $XDG_CACHE_HOME, else ~/.cache.
    QString buildCacheDirectory() const;
    // The XDG download folder (user-dirs.dirs), else ~/Downloads.
    QString buildDownloadsDirectory() const;
    // The freedesktop Trash of the home file system: $XDG_DATA_HOME/Trash, else ~/.local/share/Trash.
    QString buildTrashDirectory() const;
    // Where AppImages are kept by convention.
    QString buildUserApplicationsDirectory() const;

private:
    QString xdgFolder(const QString& variable, const QString& fallback) const;

    QString m_home;
    QProcessEnvironment m_env;
};
