#pragma once

#include <QObject>
#include <QVariantMap>

#include <memory>

class Clock;
class PathsGenerator;

// Measures the caches, downloads and Trash folders, each on a pool thread, and reports the three sums
// together, once, on the main thread: {"CachesSize", "DownloadsSize", "TrashSize"} in bytes, and
// "Count", the number of files (every non-folder entry) in the three. The walks
// start 0.2, 0.4 and 0.6 s after the call so they do not all hit the disk at the same moment. A folder
// that is missing reads 0. Destroying the searcher cancels the walks still running and drops the result.
class CacheAndDownloadsSearcher : public QObject
{
    Q_OBJECT
public:
    CacheAndDownloadsSearcher(const PathsGenerator& paths, Clock& clock, QObject* parent = nullptr);
    ~CacheAndDownloadsSearcher() override;

    // The three slots are kept between calls (as the one-scan object it is meant to be, it is
    // normally called once): a second call may report as soon as its first new sum arrives.
    void findCacheAndDownloads();

signals:
    void onCacheAndDownloadsSearcherDoneWithDict(const QVariantMap& sizes);

private:
    struct State;
    void measure(int slot, const QString& path);

    const PathsGenerator& m_paths;
    Clock& m_clock;
    std::shared_ptr<State> m_state;
};
