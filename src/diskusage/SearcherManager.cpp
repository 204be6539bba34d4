#include "SearcherManager.h"

#include "CacheAndDownloadsSearcher.h"
#include "DuplicatesSearcher.h"
#include "LargeAndOldSearcher.h"
#include "PathsGenerator.h"
#include "core/UserDefaults.h"
#include "util/Clock.h"

#include <QFile>

#include <algorithm>
#include <dirent.h>

namespace {
const QString kRescanKey = QStringLiteral("ATEST:RESCAN_DISK_JUNK_TIME");

quint64 number(const QVariantMap& map, const QString& key)
{
    return map.value(key).toULongLong(); // missing values read as 0
}
} // namespace

// The pending daily restart, cancelled and scheduled again at each start.
struct SearcherManager::Timer {
    Clock::Handle handle;
};

SearcherManager& SearcherManager::sharedManager()
{
    static SearcherManager* instance = [] {
        Config config;
        config.paths = &PathsGenerator::GetInstance();
        config.clock = &Clock::system();
        config.defaults = &UserDefaults::standardUserDefaults();
        config.appSources = AppSources::forHome(PathsGenerator::GetInstance().getHomeDirectory());
        return new SearcherManager(std::move(config));
    }();
    return *instance;
}

SearcherManager::SearcherManager(Config config, QObject* parent)
    : QObject(parent)
    , m_config(std::move(config))
    , m_timer(std::make_unique<Timer>())
{
    Q_ASSERT(m_config.paths && m_config.clock);
    // Only a number counts as the testing override; any other kind of value is ignored.
    if (m_config.defaults && m_config.defaults->isNumber(kRescanKey))
        m_interval = float(m_config.defaults->doubleForKey(kRescanKey));
}

SearcherManager::~SearcherManager()
{
    m_timer->handle.cancel();
}

void SearcherManager::startSearchForced(bool forced)
{
    if (forced) {
        m_results.fill(std::nullopt);
        m_started.fill(std::nullopt);
        m_scanning.fill(false);
    }
    const QDateTime now = m_config.clock->now();
    for (quint32 type = ScanJunk; type <= ScanDuplicates; ++type) {
        const auto& started = m_started[type];
        if (started && float(started->msecsTo(now)) / 1000.0f <= m_interval) {
            if (m_results[type])
                notifyDelegatAboutInfo(*m_results[type], type);
            continue;
        }
        startSearchForType(type);
    }
    m_timer->handle.cancel();
    m_timer->handle = m_config.clock->callAfter(int(m_interval * 1000.0f), this, [this] { restartGentlyAfterDay(); });
}

void SearcherManager::startSearchForType(quint32 type)
{
    Clock& clock = *m_config.clock;
    switch (type) {
    case ScanJunk:
        m_junk = std::make_unique<CacheAndDownloadsSearcher>(*m_config.paths, clock);
        connect(m_junk.get(), &CacheAndDownloadsSearcher::onCacheAndDownloadsSearcherDoneWithDict, this,
                &SearcherManager::onCacheAndDownloadsSearcherDoneWithDict);
        m_started[type] = clock.now();
        m_scanning[type] = true;
        clock.callAfter(0, m_junk.get(), [searcher = m_junk.get()] { searcher->findCacheAndDownloads(); });
        return;
    case ScanApplications:
        m_apps = std::make_unique<AppsSearcher>(m_config.appSources);
        connect(m_apps.get(), &AppsSearcher::onSpotlightAppsSearcherDoneWithApps, this,
                &SearcherManager::onSpotlightAppsSearcherDoneWithApps);
        m_apps->findApps();
        break;
    case ScanLargeAndOld:
        m_largeOld = std::make_unique<LargeAndOldSearcher>(clock, m_config.largeAndOldScopes);
        connect(m_largeOld.get(), &LargeAndOldSearcher::onSpotlightLargeOldSearcherDoneWithFiles, this,
                &SearcherManager::onSpotlightLargeOldSearcherDoneWithFiles);
        m_largeOld->findLargeOld();
        break;
    case ScanDuplicates:
        m_duplicates = std::make_unique<DuplicatesSearcher>(m_config.paths->getHomeDirectory());
        m_duplicates->setVerifyByContent(m_config.verifyDuplicates);
        connect(m_duplicates.get(), &DuplicatesSearcher::onDuplicatesSearcherDoneWithDict, this,
                &SearcherManager::onDuplicatesSearcherDoneWithDict);
        m_duplicates->findDuplicates();
        break;
    default:
        return;
    }
    m_started[type] = clock.now();
    m_scanning[type] = true;
}

QVariantMap SearcherManager::countAndSize(const QVariantList& items)
{
    quint64 size = 0;
    for (const QVariant& item : items)
        size += number(item.toMap(), QStringLiteral("Size"));
    return {{QStringLiteral("Count"), QVariant::fromValue<quint64>(quint64(items.size()))},
            {QStringLiteral("Size"), QVariant::fromValue<quint64>(size)}};
}

void SearcherManager::keep(quint32 type, const QVariantMap& result)
{
    m_results[type] = result;
    m_scanning[type] = false;
    notifyDelegatAboutInfo(result, type);
}

void SearcherManager::onCacheAndDownloadsSearcherDoneWithDict(const QVariantMap& dict)
{
    keep(ScanJunk, dict);
}

void SearcherManager::onSpotlightAppsSearcherDoneWithApps(const QVariantList& apps)
{
    m_items[ScanApplications] = apps;
    keep(ScanApplications, countAndSize(apps));
}

void SearcherManager::onSpotlightLargeOldSearcherDoneWithFiles(const QVariantList& files)
{
    m_items[ScanLargeAndOld] = files;
    keep(ScanLargeAndOld, countAndSize(files));
}

void SearcherManager::onDuplicatesSearcherDoneWithDict(const QVariantMap& dict)
{
    // The paths are kept as items, not in the result the view is told again and again.
    QVariantMap result = dict;
    QVariantList items;
    for (const QString& path : result.take(QStringLiteral("Paths")).toStringList())
        items.append(QVariantMap{{QStringLiteral("Path"), path}});
    m_items[ScanDuplicates] = items;
    keep(ScanDuplicates, result);
}

void SearcherManager::notifyDelegatAboutInfo(const QVariantMap& info, quint32 type)
{
    const QString size = QStringLiteral("Size");
    const QString count = QStringLiteral("Count");
    switch (type) {
    case ScanJunk:
        emit onSpotlightManagerFoundJunkFilesInfo({number(info, QStringLiteral("CachesSize")),
                                                   number(info, QStringLiteral("DownloadsSize")),
                                                   number(info, QStringLiteral("TrashSize")), number(info, count)});
        break;
    case ScanApplications:
        emit onSpotlightManagerFoundApplicationsInfo({number(info, count), number(info, size)});
        break;
    case ScanLargeAndOld:
        emit onSpotlightManagerFoundLargetAndOldFilesInfo({number(info, count), number(info, size)});
        break;
    case ScanDuplicates:
        emit onSpotlightManagerFoundDuplicatesInfo({number(info, count), number(info, size),
                                                    info.contains(QStringLiteral("VerifiedSize")),
                                                    number(info, QStringLiteral("VerifiedSize")),
                                                    number(info, QStringLiteral("VerifiedCount"))});
        break;
    default:
        break;
    }
}

quint64 SearcherManager::getTotalCalculatedSize() const
{
    for (const auto& result : m_results)
        if (!result)
            return 0;
    const QVariantMap& junk = *m_results[ScanJunk];
    const QString size = QStringLiteral("Size");
    return number(junk, QStringLiteral("CachesSize")) + number(junk, QStringLiteral("DownloadsSize"))
           + number(junk, QStringLiteral("TrashSize")) + number(*m_results[ScanDuplicates], size)
           + number(*m_results[ScanLargeAndOld], size) + number(*m_results[ScanApplications], size);
}

std::optional<QVariantMap> SearcherManager::keptResult(quint32 type) const
{
    return type < m_results.size() ? m_results[type] : std::nullopt;
}

bool SearcherManager::isScanning(quint32 type) const
{
    return type < m_scanning.size() && m_scanning[type];
}

QVariantList SearcherManager::keptItems(quint32 type) const
{
    return type < m_items.size() ? m_items[type] : QVariantList();
}

QList<QByteArray> SearcherManager::reviewPaths(quint32 type) const
{
    QList<QByteArray> paths;
    if (type >= m_results.size() || !m_results[type])
        return paths;
    if (type == ScanJunk) {
        const PathsGenerator& folders = *m_config.paths;
        const QStringList roots = {folders.buildCacheDirectory(), folders.buildDownloadsDirectory(),
                                   folders.buildTrashDirectory() + QStringLiteral("/files")};
        // Read by bytes: a name that is not UTF-8 must reach the list as it is on disk.
        for (const QString& root : roots) {
            const QByteArray folder = QFile::encodeName(root);
            DIR* dir = ::opendir(folder.constData());
            if (!dir)
                continue;
            QList<QByteArray> names;
            while (const dirent* entry = ::readdir(dir)) {
                const QByteArray name(entry->d_name);
                if (name != "." && name != "..")
                    names.append(folder + '/' + name);
            }
            ::closedir(dir);
            std::sort(names.begin(), names.end());
            paths += names;
        }
        return paths;
    }
    for (const QVariant& item : m_items[type])
        paths.append(QFile::encodeName(item.toMap().value(QStringLiteral("Path")).toString()));
    return paths;
}
