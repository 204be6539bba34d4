#pragma once

#include "MetadataQuery.h"

#include <QObject>
#include <QVariantMap>

#include <memory>
#include <optional>
#include <vector>

// Estimates the space duplicate files take in the home folder: files of the same extension and exactly
// the same length count as copies of each other. A first pass looks at files over 1 MiB; when those
// duplicates come to less than 100 MiB, a second pass adds the files between 50,000 bytes and 1 MiB and
// the totals are made over both. A file of exactly 1,048,576 bytes falls in neither pass (kept so).
//
// Reported once, on the main thread: {"Size", "Count", "Paths"} (Paths: the counted copies, a string
// list); with verifyByContent also {"VerifiedSize", "VerifiedCount"}, the same totals over files whose
// contents really are equal (hashed), for the view to show beside the estimate.
class DuplicatesSearcher : public QObject
{
    Q_OBJECT
public:
    static constexpr std::uint64_t kFirstPassLimit = 1048576;
    static constexpr std::uint64_t kSecondPassLimit = 50000;
    static constexpr std::uint64_t kSecondPassBelow = 104857600; // 100 MiB

    explicit DuplicatesSearcher(QString home, QObject* parent = nullptr);

    // Every entry directly inside home, hidden ones too, except "Library" and its counterparts here:
    // caches, programs' data and settings, Flatpak's and Snap's own trees.
    static QStringList searchScopes(const QString& home);

    void setVerifyByContent(bool verify) { m_verify = verify; }
    void findDuplicates();
    void startSearchWithSizeLimil(std::uint64_t limit);

signals:
    void onDuplicatesSearcherDoneWithDict(const QVariantMap& result);

private:
    void endSearching();
    void onTotals(std::uint64_t size, std::uint64_t count, const QStringList& paths);
    void report(QVariantMap result);

    QString m_home;
    bool m_verify = false;
    std::unique_ptr<MetadataQuery> m_query;
    std::optional<std::vector<MetadataItem>> m_firstPass;
    std::optional<std::vector<MetadataItem>> m_combined;
};

// Totals of duplicates in items (the grouping above). With verify, the groups are split further by a
// hash of the contents and the verified totals are filled in as well.
struct DuplicateTotals {
    std::uint64_t size = 0;
    std::uint64_t count = 0;
    std::uint64_t verifiedSize = 0;
    std::uint64_t verifiedCount = 0;
    QStringList paths; // every counted copy, group by group
};
DuplicateTotals findDuplicatesInFiles(const std::vector<MetadataItem>& items, bool verify);
