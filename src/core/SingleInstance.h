#pragma once

#include <QDBusConnection>
#include <QLockFile>
#include <QString>

#include <memory>

// One running copy per user session: the owner of the session-bus name com.quorbel.trovix. Without a
// bus, a lock file in the runtime folder stands in.
class SingleInstance
{
public:
    static constexpr const char* kServiceName = "com.quorbel.trovix";

    explicit SingleInstance(QDBusConnection connection);
    ~SingleInstance();

    // True when this process is (now) the only copy.
    bool claim();
    bool usesBus() const { return m_usesBus; }

private:
    QDBusConnection m_connection;
    bool m_usesBus = false;
    bool m_owned = false;
    std::unique_ptr<QLockFile> m_lock;
};
