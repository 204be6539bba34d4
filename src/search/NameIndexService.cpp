#include "NameIndexService.h"

#include "SearchItem.h"
#include "core/UserDefaults.h"
#include "platform/MemoryInfo.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDir>
#include <QFile>
#include <QThreadPool>

#include <cstdio>

NameIndexService::NameIndexService(QDBusConnection connection, QObject* parent)
    : QObject(parent)
    , m_connection(std::move(connection))
    , m_off(QStringLiteral("the index is off"))
{
    qDBusRegisterMetaType<QByteArrayList>();
    if (m_connection.isConnected())
        m_connection.registerObject(objectPath(), this, QDBusConnection::ExportAllSlots);
}

NameIndexService::~NameIndexService()
{
    if (m_connection.isConnected())
        m_connection.unregisterObject(objectPath());
    // Queries in flight hold the keeper through the pool: let them end first.
    QThreadPool::globalInstance()->waitForDone();
}

bool NameIndexService::startFromSettings(const UserDefaults& defaults)
{
    if (!defaults.getBoolValueForKey(enabledKey(), true)) {
        m_off = QStringLiteral("the index is turned off (setting %1)").arg(enabledKey());
        return false;
    }
    if (const auto memory = MemoryInfo::system().availableMemory(); memory && memory->available < kMinAvailableMemory) {
        m_off = QStringLiteral("the index is off: memory is short");
        std::fprintf(stderr, "trovix: %s\n", m_off.toLocal8Bit().constData());
        return false;
    }
    NameIndexKeeper::Options options;
    const QByteArray root =
        defaults.getBoolValueForKey(wholeDiskKey(), false) ? QByteArray("/") : QFile::encodeName(QDir::homePath());
    options.rootPath = SearchPaths::cleanFolder(root).toStdString();
    start(options);
    return true;
}

void NameIndexService::start(NameIndexKeeper::Options options)
{
    m_keeper = std::make_unique<NameIndexKeeper>(std::move(options));
    m_keeper->start();
}

QByteArrayList NameIndexService::Query(const QByteArray& needle, const QByteArray& folder, int limit)
{
    if (!m_keeper || !m_keeper->isReady()) {
        const QString why = m_keeper ? (m_keeper->state().problem.isEmpty() ? QStringLiteral("the index is being built")
                                                                            : m_keeper->state().problem)
                                     : m_off;
        sendErrorReply(QStringLiteral("com.quorbel.trovix.Index.NotReady"), why);
        return {};
    }
    const std::string cleaned = folder.isEmpty() ? std::string() : SearchPaths::cleanFolder(folder).toStdString();
    if (!cleaned.empty() && m_keeper->index().find(cleaned) == NameIndex::kNone) {
        sendErrorReply(QStringLiteral("com.quorbel.trovix.Index.NotIndexed"),
                       QStringLiteral("%1 is not in the index (it holds %2)")
                           .arg(QFile::decodeName(folder),
                                QFile::decodeName(QByteArray::fromStdString(m_keeper->index().rootPath()))));
        return {};
    }
    // Answered from the pool, so the tray's thread goes on while the cores match.
    setDelayedReply(true);
    QThreadPool::globalInstance()->start(
        [keeper = m_keeper.get(), connection = m_connection, call = message(), needle, cleaned, limit] {
            QByteArrayList paths;
            for (const NameIndex::Match& match : keeper->query(needle.toStdString(), cleaned, limit))
                paths.append(match.path);
            connection.send(call.createReply(QVariant::fromValue(paths)));
        });
    return {};
}

QVariantMap NameIndexService::State()
{
    QVariantMap map;
    if (!m_keeper) {
        map.insert(QStringLiteral("ready"), false);
        map.insert(QStringLiteral("building"), false);
        map.insert(QStringLiteral("problem"), m_off);
        return map;
    }
    const NameIndexKeeper::State s = m_keeper->state();
    map.insert(QStringLiteral("ready"), s.ready);
    map.insert(QStringLiteral("building"), s.building);
    map.insert(QStringLiteral("problem"), s.problem);
    map.insert(QStringLiteral("root"), QByteArray::fromStdString(m_keeper->index().rootPath()));
    map.insert(QStringLiteral("entries"), s.entries);
    map.insert(QStringLiteral("folders"), s.folders);
    map.insert(QStringLiteral("nameBytes"), s.nameBytes);
    map.insert(QStringLiteral("memoryBytes"), s.memoryBytes);
    map.insert(QStringLiteral("watches"), s.watches);
    map.insert(QStringLiteral("unwatchedFolders"), s.unwatchedFolders);
    map.insert(QStringLiteral("lastSweep"), s.lastSweepMsecs);
    map.insert(QStringLiteral("sweeps"), s.sweeps);
    map.insert(QStringLiteral("overflows"), s.overflows);
    map.insert(QStringLiteral("buildMsecs"), s.buildMsecs);
    map.insert(QStringLiteral("lastQueryMicros"), s.lastQueryMicros);
    return map;
}
