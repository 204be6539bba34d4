#include "PathsGenerator.h"

#include <QDir>
#include <QFile>

#include <pwd.h>
#include <unistd.h>

PathsGenerator& PathsGenerator::GetInstance()
{
    static PathsGenerator* instance = new PathsGenerator();
    return *instance;
}

QString PathsGenerator::findHomeDirectory()
{
    const QByteArray env = qgetenv("HOME");
    if (env.startsWith('/'))
        return QDir::cleanPath(QFile::decodeName(env));
    if (const passwd* record = ::getpwuid(::getuid()); record && record->pw_dir && record->pw_dir[0] == '/')
        return QDir::cleanPath(QFile::decodeName(record->pw_dir));
    return QStringLiteral("/home/") + QString::fromLocal8Bit(qgetenv("USER"));
}

PathsGenerator::PathsGenerator(QString home, QProcessEnvironment env)
    : m_home(QDir::cleanPath(home))
    , m_env(std::move(env))
{
}

QString PathsGenerator::xdgFolder(const QString& variable, const QString& fallback) const
{
    // The XDG rules: a relative value is invalid and ignored.
    const QString value = m_env.value(variable);
    if (value.startsWith(QLatin1Char('/')))
        return QDir::cleanPath(value);
    return QDir::cleanPath(m_home + QLatin1Char('/') + fallback);
}

QString PathsGenerator::buildCacheDirectory() const
{
    return xdgFolder(QStringLiteral("XDG_CACHE_HOME"), QStringLiteral(".cache"));
}

QString PathsGenerator::buildDownloadsDirectory() const
{
    // user-dirs.dirs holds shell lines such as XDG_DOWNLOAD_DIR="$HOME/Downloads".
    const QString config = xdgFolder(QStringLiteral("XDG_CONFIG_HOME"), QStringLiteral(".config"));
    QFile file(config + QStringLiteral("/user-dirs.dirs"));
    if (file.open(QIODevice::ReadOnly)) {
        while (!file.atEnd()) {
            const QString line = QString::fromUtf8(file.readLine()).trimmed();
            static const QString key = QStringLiteral("XDG_DOWNLOAD_DIR=");
            if (!line.startsWith(key))
                continue;
            QString value = line.mid(key.size());
            if (value.size() >= 2 && value.startsWith(QLatin1Char('"')) && value.endsWith(QLatin1Char('"')))
                value = value.mid(1, value.size() - 2);
            if (value.startsWith(QStringLiteral("$HOME")))
                value = m_home + value.mid(5);
            // A download folder set to the home folder itself would make junk of the whole home.
            if (value.startsWith(QLatin1Char('/')) && QDir::cleanPath(value) != m_home)
                return QDir::cleanPath(value);
        }
    }
    return QDir::cleanPath(m_home + QStringLiteral("/Downloads"));
}

QString PathsGenerator::buildTrashDirectory() const
{
    const QString data = xdgFolder(QStringLiteral("XDG_DATA_HOME"), QStringLiteral(".local/share"));
    return data + QStringLiteral("/Trash");
}

QString PathsGenerator::buildUserApplicationsDirectory() const
{
    return QDir::cleanPath(m_home + QStringLiteral("/Applications"));
}
