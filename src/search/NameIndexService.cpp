#include "NameIndexService.h"

#include "SearchItem.h"
#include "core/UserDefaults.h"
#include "platform/MemoryInfo.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDir>
#include <QFile>
#include <QThreadPool>

#include <csignal>
#include <cstdio>

#include <pthread.h>
#include <unistd.h>

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
    // For measurements (bench/index.sh): how many inotify watches and fanotify marks the index may use.
    if (qEnvironmentVariableIsSet("TROVIX_INDEX_WATCHES"))
        options.watchLimit = qEnvironmentVariableIntValue("TROVIX_INDEX_WATCHES");
    if (qEnvironmentVariableIsSet("TROVIX_INDEX_MARKS"))
        options.markLimit = qEnvironmentVariableIntValue("TROVIX_INDEX_MARKS");
    start(options);
    return true;
}

void NameIndexService::start(NameIndexKeeper::Options options)
{
    m_keeper = std::make_unique<NameIndexKeeper>(std::move(options));
    m_keeper->start();
}

bool NameIndexService::admit(const QByteArray& folder, std::string& cleaned)
{
    if (!m_keeper || !m_keeper->isReady()) {
        QString why = m_off;
        if (m_keeper)
            why = m_keeper->state().problem.isEmpty() ? QStringLiteral("the index is being built")
                                                      : m_keeper->state().problem;
        sendErrorReply(QStringLiteral("com.quorbel.trovix.Index.NotReady"), why);
        return false;
    }
    cleaned = folder.isEmpty() ? std::string() : SearchPaths::cleanFolder(folder).toStdString();
    if (!cleaned.empty() && m_keeper->index().find(cleaned) == NameIndex::kNone) {
        sendErrorReply(QStringLiteral("com.quorbel.trovix.Index.NotIndexed"),
                       QStringLiteral("%1 is not in the index (it holds %2)")
                           .arg(QFile::decodeName(folder),
                                QFile::decodeName(QByteArray::fromStdString(m_keeper->index().rootPath()))));
        return false;
    }
    return true;
}

QByteArrayList NameIndexService::Query(const QByteArray& needle, const QByteArray& folder, int limit)
{
    std::string cleaned;
    if (!admit(folder, cleaned))
        return {};
    // Answered from the pool, so the tray's thread goes on while the cores match.
    setDelayedReply(true);
    QThreadPool::globalInstance()->start(
        [keeper = m_keeper.get(), connection = m_connection, call = message(), needle, cleaned, limit] {
            QByteArrayList paths;
            qsizetype bytes = 0;
            for (const NameIndex::Match& match : keeper->query(needle.toStdString(), cleaned, limit)) {
                bytes += match.path.size() + 8;
                if (bytes > kMaxReplyBytes) {
                    connection.send(
                        call.createErrorReply(QStringLiteral("com.quorbel.trovix.Index.TooLarge"),
                                              QStringLiteral("too many matches for one message: use QueryToFd")));
                    return;
                }
                paths.append(match.path);
            }
            connection.send(call.createReply(QVariant::fromValue(paths)));
        });
    return {};
}

qlonglong NameIndexService::QueryToFd(const QByteArray& needle, const QByteArray& folder, int limit,
                                      const QDBusUnixFileDescriptor& fd)
{
    std::string cleaned;
    if (!admit(folder, cleaned))
        return 0;
    if (!fd.isValid()) {
        sendErrorReply(QDBusError::InvalidArgs, QStringLiteral("no file descriptor"));
        return 0;
    }
    setDelayedReply(true);
    QThreadPool::globalInstance()->start(
        [keeper = m_keeper.get(), connection = m_connection, call = message(), needle, cleaned, limit, fd] {
            // A reader that went away must not end the tray program: its pipe gives EPIPE, not a signal.
            sigset_t pipe;
            sigset_t previous;
            sigemptyset(&pipe);
            sigaddset(&pipe, SIGPIPE);
            pthread_sigmask(SIG_BLOCK, &pipe, &previous);
            const QList<NameIndex::Match> matches = keeper->query(needle.toStdString(), cleaned, limit);
            QByteArray out;
            bool broken = false;
            const auto flush = [&] {
                const char* data = out.constData();
                qsizetype left = out.size();
                while (left > 0 && !broken) {
                    const ssize_t done = ::write(fd.fileDescriptor(), data, static_cast<size_t>(left));
                    if (done < 0 && errno == EINTR)
                        continue;
                    if (done <= 0) {
                        broken = true;
                        break;
                    }
                    data += done;
                    left -= done;
                }
                out.clear();
            };
            for (const NameIndex::Match& match : matches) {
                out.append(match.path).append('\0');
                if (out.size() >= 256 * 1024)
                    flush();
                if (broken)
                    break;
            }
            flush();
            // A blocked SIGPIPE raised meanwhile is pending: take it before unblocking.
            timespec none{};
            while (sigtimedwait(&pipe, nullptr, &none) == SIGPIPE) {
            }
            pthread_sigmask(SIG_SETMASK, &previous, nullptr);
            connection.send(call.createReply(QVariant::fromValue(static_cast<qlonglong>(matches.size()))));
        });
    return 0;
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
    map.insert(QStringLiteral("watchBudget"), s.watchBudget);
    map.insert(QStringLiteral("marks"), s.marks);
    map.insert(QStringLiteral("markBudget"), s.markBudget);
    map.insert(QStringLiteral("marksProblem"), s.marksProblem);
    map.insert(QStringLiteral("unwatchedFolders"), s.unwatchedFolders);
    map.insert(QStringLiteral("sweepIntervalMsecs"), s.sweepIntervalMsecs);
    map.insert(QStringLiteral("sweepsKeepUp"), s.sweepsKeepUp);
    map.insert(QStringLiteral("lastSweep"), s.lastSweepMsecs);
    map.insert(QStringLiteral("sweeps"), s.sweeps);
    map.insert(QStringLiteral("sweepMsecs"), s.lastSweepDurationMsecs);
    map.insert(QStringLiteral("sweepRereads"), s.lastSweepRereads);
    map.insert(QStringLiteral("overflows"), s.overflows);
    map.insert(QStringLiteral("buildMsecs"), s.buildMsecs);
    map.insert(QStringLiteral("lastQueryMicros"), s.lastQueryMicros);
    return map;
}
