#pragma once

#include "AppsSearcher.h"

#include <QDateTime>
#include <QObject>
#include <QVariantMap>

#include <array>
#include <memory>
#include <optional>

class CacheAndDownloadsSearcher;
class Clock;
class DuplicatesSearcher;
class LargeAndOldSearcher;
class PathsGenerator;
class UserDefaults;

// The scan types, in the order they are started.
enum ScanType : quint32 { ScanJunk = 0, ScanApplications = 1, ScanLargeAndOld = 2, ScanDuplicates = 3 };

struct JunkFilesViewInfo {
    quint64 cachesSize = 0;
    quint64 downloadsSize = 0;
    quint64 trashSize = 0;
    quint64 count = 0; // files in the three folders
    quint64 getTotalSize() const { return cachesSize + downloadsSize + trashSize; }
};
struct ApplicationsUnusedViewInfo {
    quint64 count = 0;
    quint64 size = 0;
};
struct LargeAndOldFilesViewInfo {
    quint64 count = 0;
    quint64 size = 0;
};
// verified: whether the content check ran; then verifiedSize/Count are its totals.
struct DuplicateFilesViewInfo {
    quint64 count = 0;
    quint64 size = 0;
    bool verified = false;
    quint64 verifiedSize = 0;
    quint64 verifiedCount = 0;
};

Q_DECLARE_METATYPE(JunkFilesViewInfo)
Q_DECLARE_METATYPE(ApplicationsUnusedViewInfo)
Q_DECLARE_METATYPE(LargeAndOldFilesViewInfo)
Q_DECLARE_METATYPE(DuplicateFilesViewInfo)

// Runs the four disk-usage scans, keeps each one's last result and start time, answers from the kept
// result while it is younger than the rescan interval (a day, or "ATEST:RESCAN_DISK_JUNK_TIME" seconds),
// and rescans everything itself one interval after the latest start. Results go out as the four
// signals; a receiver that is gone is simply not called. Main thread only.
class SearcherManager : public QObject
{
    Q_OBJECT
public:
    struct Config {
        const PathsGenerator* paths = nullptr;
        Clock* clock = nullptr;
        UserDefaults* defaults = nullptr;   // where the testing override is read; may be null
        QStringList largeAndOldScopes = {QStringLiteral("/")};
        AppSources appSources;
        bool verifyDuplicates = false;
    };

    static SearcherManager& sharedManager();
    explicit SearcherManager(Config config, QObject* parent = nullptr);
    ~SearcherManager() override;

    void startSearchForced(bool forced);
    void startSearchForType(quint32 type);
    void restartGentlyAfterDay() { startSearchForced(true); }

    void onCacheAndDownloadsSearcherDoneWithDict(const QVariantMap& dict);
    void onSpotlightAppsSearcherDoneWithApps(const QVariantList& apps);
    void onSpotlightLargeOldSearcherDoneWithFiles(const QVariantList& files);
    void onDuplicatesSearcherDoneWithDict(const QVariantMap& dict);

    void notifyDelegatAboutInfo(const QVariantMap& info, quint32 type);
    // 0 unless all four results are kept; otherwise the sum of the four categories.
    quint64 getTotalCalculatedSize() const;

    float rescanInterval() const { return m_interval; }
    std::optional<QVariantMap> keptResult(quint32 type) const;
    bool isScanning(quint32 type) const;
    // The items found by the last applications, large-and-old and duplicates scans ({"Path"}, with
    // "Size" for the first two), for review lists.
    QVariantList keptItems(quint32 type) const;
    // What a review list of the type shows, as native paths: the found items; for junk, what lies
    // directly in the caches, downloads and Trash folders. Empty until the type has answered.
    QList<QByteArray> reviewPaths(quint32 type) const;

signals:
    void onSpotlightManagerFoundJunkFilesInfo(const JunkFilesViewInfo& info);
    void onSpotlightManagerFoundApplicationsInfo(const ApplicationsUnusedViewInfo& info);
    void onSpotlightManagerFoundLargetAndOldFilesInfo(const LargeAndOldFilesViewInfo& info);
    void onSpotlightManagerFoundDuplicatesInfo(const DuplicateFilesViewInfo& info);

private:
    void keep(quint32 type, const QVariantMap& result);
    static QVariantMap countAndSize(const QVariantList& items);

    Config m_config;
    float m_interval = 86400.0f;
    std::array<std::optional<QVariantMap>, 4> m_results;
    std::array<std::optional<QDateTime>, 4> m_started;
    std::array<QVariantList, 4> m_items;
    std::array<bool, 4> m_scanning{};
    std::unique_ptr<CacheAndDownloadsSearcher> m_junk;
    std::unique_ptr<AppsSearcher> m_apps;
    std::unique_ptr<LargeAndOldSearcher> m_largeOld;
    std::unique_ptr<DuplicatesSearcher> m_duplicates;
    struct Timer;
    std::unique_ptr<Timer> m_timer;
};
