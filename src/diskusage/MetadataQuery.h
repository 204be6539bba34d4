#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

// One file that matched a query: its path, its length in bytes and its last-used time (the later of
// its access and modification times, seconds since the epoch).
struct MetadataItem {
    QString path;
    std::uint64_t size = 0;
    std::int64_t lastUsed = 0;
};

// The two predicates the scanners ask: length bounds (both exclusive, as "kMDItemFSSize > %ld" and
// "kMDItemFSSize < %ld") and an optional name suffix.
struct MetadataPredicate {
    std::uint64_t sizeAbove = 0;
    std::optional<std::uint64_t> sizeBelow;
    QString nameSuffix;

    bool matches(std::uint64_t size, const char* name) const;
};

// Answers a predicate over a set of scopes with our own crawl (FileTreeWalk with statx), since no
// metadata index on this desktop covers hidden files. A scope that is a file is tested itself; a
// folder is walked on its own file system. Only entries that are not folders are results.
//
// startQuery() gathers on a pool thread and emits didFinishGathering() on this object's thread;
// stopQuery() (or destroying the query) cancels a crawl still running. gather() is the blocking form.
class MetadataQuery : public QObject
{
    Q_OBJECT
public:
    explicit MetadataQuery(QObject* parent = nullptr);
    ~MetadataQuery() override;

    void setPredicate(const MetadataPredicate& predicate) { m_predicate = predicate; }
    void setSearchScopes(const QStringList& scopes) { m_scopes = scopes; }

    // False when a query is already running or there is no scope.
    bool startQuery();
    void stopQuery();
    bool isGathering() const { return m_gathering; }
    const std::vector<MetadataItem>& results() const { return m_results; }
    // Folders the crawl could not read (a count; their files are missing from the results).
    std::uint64_t unreadableCount() const { return m_unreadable; }

    static std::vector<MetadataItem> gather(const MetadataPredicate& predicate, const QStringList& scopes,
                                            const std::atomic<bool>* cancel = nullptr,
                                            std::uint64_t* unreadable = nullptr);

signals:
    void didFinishGathering();

private:
    MetadataPredicate m_predicate;
    QStringList m_scopes;
    bool m_gathering = false;
    std::vector<MetadataItem> m_results;
    std::uint64_t m_unreadable = 0;
    std::shared_ptr<std::atomic<bool>> m_cancel;
};
