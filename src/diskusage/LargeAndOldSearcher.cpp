#include "LargeAndOldSearcher.h"

#include "util/Clock.h"

#include <QVariantMap>

LargeAndOldSearcher::LargeAndOldSearcher(Clock& clock, QStringList scopes, QObject* parent)
    : QObject(parent)
    , m_clock(clock)
    , m_scopes(std::move(scopes))
{
}

QVariantList LargeAndOldSearcher::largeAndOld(const std::vector<MetadataItem>& items, std::int64_t now)
{
    QVariantList files;
    for (const MetadataItem& item : items)
        if (item.size > kSizeLimit && now - item.lastUsed > kUnusedSeconds)
            files.append(QVariantMap{{QStringLiteral("Path"), item.path},
                                     {QStringLiteral("Size"), QVariant::fromValue<quint64>(item.size)}});
    return files;
}

void LargeAndOldSearcher::findLargeOld()
{
    m_query = std::make_unique<MetadataQuery>();
    MetadataPredicate predicate;
    predicate.sizeAbove = kSizeLimit;
    m_query->setPredicate(predicate);
    m_query->setSearchScopes(m_scopes);
    // Only large files reach the main thread, so the age test is cheap enough to make there.
    connect(m_query.get(), &MetadataQuery::didFinishGathering, this, [this] {
        m_query->stopQuery();
        emit onSpotlightLargeOldSearcherDoneWithFiles(largeAndOld(m_query->results(), m_clock.now().toSecsSinceEpoch()));
    });
    if (!m_query->startQuery())
        emit onSpotlightLargeOldSearcherDoneWithFiles({});
}
