#include "AppsSearcher.h"

#include "BundleExcludeList.h"
#include "SizeCalculation.h"
#include "util/MainQueue.h"

#include <QDir>
#include <QFile>
#include <QPointer>
#include <QProcess>
#include <QSet>
#include <QThreadPool>
#include <QVariantMap>

#include <sys/stat.h>

namespace {

QVariantMap item(const QString& path, quint64 size)
{
    return {{QStringLiteral("Path"), path}, {QStringLiteral("Size"), QVariant::fromValue<quint64>(size)}};
}

// Whether a desktop file names an application a user would launch: Type=Application and neither
// NoDisplay nor Hidden.
bool isLaunchable(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    bool inEntry = false;
    bool application = false;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine().trimmed();
        if (line.startsWith('[')) {
            if (inEntry)
                break;
            inEntry = line == "[Desktop Entry]";
            continue;
        }
        if (!inEntry)
            continue;
        if (line == "Type=Application")
            application = true;
        else if (line == "NoDisplay=true" || line == "Hidden=true")
            return false;
    }
    return application;
}

QStringList runDpkgQuery(const QStringList& args)
{
    QProcess process;
    process.start(QStringLiteral("dpkg-query"), args);
    if (!process.waitForFinished(60000))
        return {};
    return QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

} // namespace

AppSources AppSources::forHome(const QString& home, const QProcessEnvironment& env)
{
    AppSources sources;
    QString data = env.value(QStringLiteral("XDG_DATA_HOME"));
    if (!data.startsWith(QLatin1Char('/')))
        data = home + QStringLiteral("/.local/share");
    sources.flatpakFolders = {data + QStringLiteral("/flatpak/app"), QStringLiteral("/var/lib/flatpak/app")};
    sources.appImageFolder = home + QStringLiteral("/Applications");
    QString dirs = env.value(QStringLiteral("XDG_DATA_DIRS"));
    if (dirs.isEmpty())
        dirs = QStringLiteral("/usr/local/share:/usr/share");
    for (const QString& dir : dirs.split(QLatin1Char(':'), Qt::SkipEmptyParts))
        if (dir.startsWith(QLatin1Char('/')) && !dir.contains(QStringLiteral("flatpak/exports")))
            sources.desktopFolders << QDir::cleanPath(dir) + QStringLiteral("/applications");
    sources.desktopFolders.removeDuplicates();
    sources.packageSizes = &AppSources::dpkgPackageSizes;
    return sources;
}

QHash<QString, std::pair<QString, quint64>> AppSources::dpkgPackageSizes(const QStringList& files)
{
    QHash<QString, std::pair<QString, quint64>> result;
    if (files.isEmpty())
        return result;
    // "pkg[:arch][, other]: /path" per owned file.
    QHash<QString, QString> owner;
    for (const QString& line : runDpkgQuery(QStringList{QStringLiteral("-S")} + files)) {
        const qsizetype colon = line.indexOf(QStringLiteral(": /"));
        if (colon <= 0)
            continue;
        const QString package = line.left(colon).split(QStringLiteral(", ")).first().trimmed();
        owner.insert(line.mid(colon + 2), package);
    }
    if (owner.isEmpty())
        return result;
    QStringList packages = owner.values();
    packages.removeDuplicates();
    QHash<QString, quint64> sizes;
    for (const QString& line : runDpkgQuery(QStringList{QStringLiteral("-W"), QStringLiteral("-f"),
                                                        QStringLiteral("${binary:Package}\\t${Installed-Size}\\n")}
                                            + packages)) {
        const QStringList fields = line.split(QLatin1Char('\t'));
        if (fields.size() == 2)
            sizes.insert(fields[0], fields[1].toULongLong() * 1024); // Installed-Size is in KiB
    }
    for (auto it = owner.cbegin(); it != owner.cend(); ++it) {
        // -S may name the package without its architecture while -W adds it, or the other way round.
        QString package = it.value();
        if (!sizes.contains(package))
            for (auto size = sizes.cbegin(); size != sizes.cend(); ++size)
                if (size.key().section(QLatin1Char(':'), 0, 0) == package.section(QLatin1Char(':'), 0, 0))
                    package = size.key();
        if (sizes.contains(package))
            result.insert(it.key(), {package, sizes.value(package)});
    }
    return result;
}

AppsSearcher::AppsSearcher(AppSources sources, QObject* parent)
    : QObject(parent)
    , m_sources(std::move(sources))
{
}

AppsSearcher::~AppsSearcher()
{
    *m_cancel = true;
}

QVariantList AppsSearcher::listApps(const AppSources& sources, const std::atomic<bool>* cancel)
{
    const BundleExcludeList& excluded = BundleExcludeList::GetInstance();
    QVariantList apps;
    for (const QString& folder : sources.flatpakFolders)
        for (const QString& id : QDir(folder).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
            if (excluded.isSystemBundleID(id) || (cancel && *cancel))
                continue;
            const QString path = folder + QLatin1Char('/') + id;
            apps << item(path, SizeCalculation::sharedInstance().fastSizeOfFolderAtPath(path));
        }

    const QDir appImages(sources.appImageFolder);
    for (const QFileInfo& info : appImages.entryInfoList(QDir::Files | QDir::Hidden, QDir::Name))
        if (info.suffix().compare(QStringLiteral("AppImage"), Qt::CaseInsensitive) == 0) {
            struct stat st;
            if (::lstat(QFile::encodeName(info.filePath()).constData(), &st) == 0)
                apps << item(info.filePath(), quint64(st.st_blocks) * 512);
        }

    // Desktop ids seen first win, as in XDG_DATA_DIRS order.
    QSet<QString> seenIds;
    QStringList desktopFiles;
    for (const QString& folder : sources.desktopFolders)
        for (const QString& name : QDir(folder).entryList({QStringLiteral("*.desktop")}, QDir::Files, QDir::Name)) {
            const QString id = name.chopped(8);
            if (seenIds.contains(id))
                continue;
            seenIds.insert(id);
            const QString path = folder + QLatin1Char('/') + name;
            if (!excluded.isSystemBundleID(id) && isLaunchable(path))
                desktopFiles << path;
        }
    if (!sources.packageSizes || (cancel && *cancel))
        return apps;
    const auto owners = sources.packageSizes(desktopFiles);
    QSet<QString> packagesSeen;
    for (const QString& path : std::as_const(desktopFiles)) {
        const auto it = owners.constFind(path);
        if (it == owners.cend() || packagesSeen.contains(it->first))
            continue;
        packagesSeen.insert(it->first);
        apps << item(path, it->second);
    }
    return apps;
}

void AppsSearcher::findApps()
{
    QThreadPool::globalInstance()->start([sources = m_sources, cancel = m_cancel, self = QPointer(this)] {
        const QVariantList apps = listApps(sources, cancel.get());
        if (*cancel)
            return;
        MainQueue::async([self, apps] {
            if (self)
                emit self->onSpotlightAppsSearcherDoneWithApps(apps);
        });
    });
}
