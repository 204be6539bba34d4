#pragma once

#include "MetadataQuery.h"

#include <QObject>
#include <QVariantList>

#include <memory>

class Clock;

// Lists files over 20,000,000 bytes that have not been used for more than 90 days (the later of access
// and modification time). Reported once, on the main thread, as a list of {"Path", "Size"} maps.
class LargeAndOldSearcher : public QObject
{
    Q_OBJECT
public:
    static constexpr std::uint64_t kSizeLimit = 20000000;
    static constexpr std::int64_t kUnusedSeconds = 7776000; // 90 days

    // scopes: normally just "/" (the start-up disk); tests hand in their own.
    LargeAndOldSearcher(Clock& clock, QStringList scopes = {QStringLiteral("/")}, QObject* parent = nullptr);

    void findLargeOld();

    // The rule itself, for the crawl's results.
    static QVariantList largeAndOld(const std::vector<MetadataItem>& items, std::int64_t now);

signals:
    void onSpotlightLargeOldSearcherDoneWithFiles(const QVariantList& files);

private:
    Clock& m_clock;
    QStringList m_scopes;
    std::unique_ptr<MetadataQuery> m_query;
};
