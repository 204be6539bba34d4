#pragma once

#include <QDBusConnection>
#include <QLockFile>
#include <QString>

#include <chrono>
#include <memory>

// One running copy per user session: the owner of the session-bus name com.quorbel.trovix. Without a
// bus, a lock file in the runtime folder stands in.
// Hand-over to a copy this process starts (the relaunch after a copy into place): the name stays with
// this process until it ends, so that if the new copy fails to start this one still holds it. The new
// copy, marked through its environment, waits for the name instead of giving up at once.
class SingleInstance
{
public:
    static constexpr const char* kServiceName = "com.quorbel.trovix";
    // Set in the environment of copies started after the hand-over began.
    static constexpr const char* kHandOverVariable = "TROVIX_HAND_OVER";

    explicit SingleInstance(QDBusConnection connection,
                            std::chrono::milliseconds handOverWait = std::chrono::seconds(10));
    // Keeps the name (or the lock) until the process ends and marks copies started from now on as the
    // successors.
    ~SingleInstance();

    // True when this process is (now) the only copy. A successor waits up to the hand-over time for
    // the running copy to end.
    bool claim();
    bool usesBus() const { return m_usesBus; }

private:
    bool claimOnBus(bool successor);

    QDBusConnection m_connection;
    std::chrono::milliseconds m_handOverWait;
    bool m_usesBus = false;
    bool m_owned = false;
    std::unique_ptr<QLockFile> m_lock;
};
