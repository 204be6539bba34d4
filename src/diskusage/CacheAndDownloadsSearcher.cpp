#include "CacheAndDownloadsSearcher.h"

#include "PathsGenerator.h"
#include "SizeCalculation.h"
#include "util/Clock.h"
#include "util/MainQueue.h"

#include <QDir>
#include <QMutex>
#include <QPointer>
#include <QThreadPool>

#include <atomic>
#include <cstdint>
#include <optional>

namespace {
const char* const kKeys[3] = {"CachesSize", "DownloadsSize", "TrashSize"};
}

// Outlives the searcher while a walk still runs; the walks write the slots under the mutex, and the
// completeness test is made under it too, so exactly one walk (the last) posts the result.
struct CacheAndDownloadsSearcher::State {
    QMutex mutex;
    std::optional<quint64> sizes[3];
    quint64 entries[3] = {};
    std::atomic<bool> cancel{false};
};

CacheAndDownloadsSearcher::CacheAndDownloadsSearcher(const PathsGenerator& paths, Clock& clock, QObject* parent)
    : QObject(parent)
    , m_paths(paths)
    , m_clock(clock)
    , m_state(std::make_shared<State>())
{
}

CacheAndDownloadsSearcher::~CacheAndDownloadsSearcher()
{
    m_state->cancel = true;
}

void CacheAndDownloadsSearcher::findCacheAndDownloads()
{
    const QString folders[3] = {m_paths.buildCacheDirectory(), m_paths.buildDownloadsDirectory(),
                                m_paths.buildTrashDirectory()};
    for (int slot = 0; slot < 3; ++slot)
        m_clock.callAfter(200 * (slot + 1), this, [this, slot, path = folders[slot]] { measure(slot, path); });
}

void CacheAndDownloadsSearcher::measure(int slot, const QString& path)
{
    QThreadPool::globalInstance()->start([state = m_state, slot, path, self = QPointer(this)] {
        std::uint64_t entries = 0;
        const quint64 size =
            SizeCalculation::sharedInstance().sizeIgnoreRootDSStoreForFolderAtPath(path, &state->cancel, &entries);
        QVariantMap result;
        {
            QMutexLocker lock(&state->mutex);
            state->sizes[slot] = size;
            state->entries[slot] = entries;
            for (const auto& known : state->sizes)
                if (!known)
                    return;
            for (int i = 0; i < 3; ++i)
                result.insert(QLatin1String(kKeys[i]), QVariant::fromValue<quint64>(*state->sizes[i]));
            result.insert(QStringLiteral("Count"),
                          QVariant::fromValue<quint64>(state->entries[0] + state->entries[1] + state->entries[2]));
        }
        if (state->cancel)
            return;
        // The pointer is only read on the main thread, where the searcher lives and dies.
        MainQueue::async([self, result] {
            if (self)
                emit self->onCacheAndDownloadsSearcherDoneWithDict(result);
        });
    });
}
