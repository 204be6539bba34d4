#include "DuplicatesSearcher.h"

#include "DuplicateGroups.h"
#include "util/MainQueue.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QThreadPool>

#include <unordered_map>

namespace {

QByteArray contentHash(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    QCryptographicHash hash(QCryptographicHash::Blake2b_256);
    if (!hash.addData(&file))
        return QByteArray();
    return hash.result();
}

} // namespace

DuplicateTotals findDuplicatesInFiles(const std::vector<MetadataItem>& items, bool verify)
{
    DuplicateGroups groups;
    for (int i = 0; i < int(items.size()); ++i) {
        const QString& path = items[std::size_t(i)].path;
        groups.addObject(i, path.mid(path.lastIndexOf(QLatin1Char('/')) + 1), items[std::size_t(i)].size);
    }
    DuplicateTotals totals;
    groups.calculateTotalSizeOfDuplicates(&totals.size, &totals.count);
    const std::vector<DuplicateGroups::Group> found = groups.groups();
    for (const auto& group : found)
        for (int item : group.items)
            totals.paths.append(items[std::size_t(item)].path);
    if (!verify)
        return totals;
    for (const auto& group : found) {
        std::unordered_map<std::string, std::uint64_t> copies;
        for (int item : group.items) {
            const QByteArray hash = contentHash(items[std::size_t(item)].path);
            if (!hash.isEmpty())
                ++copies[hash.toStdString()];
        }
        for (const auto& [hash, n] : copies)
            if (n >= 2) {
                totals.verifiedSize += group.size * n;
                totals.verifiedCount += n;
            }
    }
    return totals;
}

DuplicatesSearcher::DuplicatesSearcher(QString home, QObject* parent)
    : QObject(parent)
    , m_home(std::move(home))
{
}

QStringList DuplicatesSearcher::searchScopes(const QString& home)
{
    static const QStringList skipped = {QStringLiteral("Library"), QStringLiteral(".cache"), QStringLiteral(".local"),
                                        QStringLiteral(".config"), QStringLiteral(".var"), QStringLiteral("snap")};
    QStringList scopes;
    const QDir dir(home);
    for (const QString& name :
         dir.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Unsorted))
        if (!skipped.contains(name))
            scopes << dir.filePath(name);
    return scopes;
}

void DuplicatesSearcher::findDuplicates()
{
    startSearchWithSizeLimil(kFirstPassLimit);
}

void DuplicatesSearcher::startSearchWithSizeLimil(std::uint64_t limit)
{
    m_query = std::make_unique<MetadataQuery>();
    MetadataPredicate predicate;
    predicate.sizeAbove = limit;
    if (limit < kFirstPassLimit)
        predicate.sizeBelow = kFirstPassLimit;
    m_query->setPredicate(predicate);
    m_query->setSearchScopes(searchScopes(m_home));
    connect(m_query.get(), &MetadataQuery::didFinishGathering, this, &DuplicatesSearcher::endSearching);
    if (!m_query->startQuery())
        endSearching();
}

void DuplicatesSearcher::endSearching()
{
    m_query->stopQuery();
    const std::vector<MetadataItem>& found = m_query->results();
    std::vector<MetadataItem> candidates;
    if (!m_firstPass) {
        m_firstPass = found;
        candidates = *m_firstPass;
    } else if (!m_combined) {
        m_combined = *m_firstPass;
        m_combined->insert(m_combined->end(), found.begin(), found.end());
        candidates = *m_combined;
    } else {
        return;
    }
    // Grouping happens off the main thread; only the decision and the report come back to it.
    QThreadPool::globalInstance()->start([candidates = std::move(candidates), self = QPointer(this)] {
        const DuplicateTotals totals = findDuplicatesInFiles(candidates, false);
        MainQueue::async([self, totals] {
            if (self)
                self->onTotals(totals.size, totals.count, totals.paths);
        });
    });
}

void DuplicatesSearcher::onTotals(std::uint64_t size, std::uint64_t count, const QStringList& paths)
{
    if (!m_combined && size < kSecondPassBelow) {
        startSearchWithSizeLimil(kSecondPassLimit);
        return;
    }
    QVariantMap result{{QStringLiteral("Size"), QVariant::fromValue<quint64>(size)},
                       {QStringLiteral("Count"), QVariant::fromValue<quint64>(count)},
                       {QStringLiteral("Paths"), paths}};
    if (!m_verify) {
        report(result);
        return;
    }
    QThreadPool::globalInstance()->start(
        [candidates = m_combined ? *m_combined : *m_firstPass, result, self = QPointer(this)]() mutable {
            const DuplicateTotals totals = findDuplicatesInFiles(candidates, true);
            result.insert(QStringLiteral("VerifiedSize"), QVariant::fromValue<quint64>(totals.verifiedSize));
            result.insert(QStringLiteral("VerifiedCount"), QVariant::fromValue<quint64>(totals.verifiedCount));
            MainQueue::async([self, result] {
                if (self)
                    self->report(result);
            });
        });
}

void DuplicatesSearcher::report(QVariantMap result)
{
    emit onDuplicatesSearcherDoneWithDict(result);
}
