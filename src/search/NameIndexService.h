#pragma once

// The tray program's name index, offered to other processes on the session bus: object "/Index",
// interface com.quorbel.trovix.Index, on the connection that owns com.quorbel.trovix.
//   Query(ay needle, ay folder, i limit) -> aay   paths of names containing needle (the walker's
//       matching) under folder (empty: everything indexed); limit 0 for all. Errors:
//       com.quorbel.trovix.Index.NotReady (no index, or still building),
//       com.quorbel.trovix.Index.NotIndexed (the folder is outside the index).
//   QueryToFd(ay needle, ay folder, i limit, h fd) -> x   the same, written to fd (a pipe or socket
//       the caller reads) as paths each ended by a NUL byte; returns how many. No message size limit:
//       Query refuses answers over kMaxReplyBytes (com.quorbel.trovix.Index.TooLarge).
//   State() -> a{sv}   ready, building, problem, root, entries, folders, nameBytes, memoryBytes,
//       watches and watchBudget (inotify), marks and markBudget (fanotify; marksProblem says why there
//       are none), unwatchedFolders (neither: swept), sweepIntervalMsecs, sweepsKeepUp (false when a
//       change in a swept folder may take over 2 s to show), lastSweep (ms since the epoch), sweepMsecs
//       (its duration), sweeps, overflows, buildMsecs, lastQueryMicros (the latest query's time inside
//       this process; -1 before the first).
//
// Settings (standard domain): "TrovixNameIndexEnabled" (bool, default true) turns the index off;
// "TrovixNameIndexWholeDisk" (bool, default false) indexes "/" instead of the home folder. The index is
// also left off when the system has less than kMinAvailableMemory available at start. For measurements,
// TROVIX_INDEX_WATCHES and TROVIX_INDEX_MARKS set the keeper's watch and mark limits (-1, the default:
// three quarters of the user's limit; 0: none, so the folders beyond are swept).

#include "NameIndexKeeper.h"

#include <QByteArrayList>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <QVariantMap>

#include <memory>

class UserDefaults;

class NameIndexService : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.quorbel.trovix.Index")

public:
    static constexpr quint64 kMinAvailableMemory = 512ull * 1024 * 1024;
    // The bus drops a connection that sends a message over its limit (128 MiB at most): stay well below.
    static constexpr qsizetype kMaxReplyBytes = 32 * 1024 * 1024;
    static QString enabledKey() { return QStringLiteral("TrovixNameIndexEnabled"); }
    static QString wholeDiskKey() { return QStringLiteral("TrovixNameIndexWholeDisk"); }
    static QString objectPath() { return QStringLiteral("/Index"); }
    static QString interfaceName() { return QStringLiteral("com.quorbel.trovix.Index"); }

    // Exports the object; no index until start.
    NameIndexService(QDBusConnection connection, QObject* parent = nullptr);
    ~NameIndexService() override;

    // Starts the index the settings ask for, unless memory is short. False (and why on standard
    // error) when it stays off.
    bool startFromSettings(const UserDefaults& defaults);
    void start(NameIndexKeeper::Options options);
    NameIndexKeeper* keeper() const { return m_keeper.get(); }

public Q_SLOTS:
    QByteArrayList Query(const QByteArray& needle, const QByteArray& folder, int limit);
    qlonglong QueryToFd(const QByteArray& needle, const QByteArray& folder, int limit,
                        const QDBusUnixFileDescriptor& fd);
    QVariantMap State();

private:
    // Checks that a query can be answered (else sends the error) and gives the cleaned folder.
    bool admit(const QByteArray& folder, std::string& cleaned);

    QDBusConnection m_connection;
    std::unique_ptr<NameIndexKeeper> m_keeper;
    QString m_off; // why there is no index
};
