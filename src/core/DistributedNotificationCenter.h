#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <vector>

// Notifications between processes: a broadcast signal on the session bus (interface
// com.quorbel.trovix.DistributedNotification, member Notification, arguments name, object, user info).
// File-manager extensions and the launcher send it with `gdbus emit`. Without a session bus the
// centre is unavailable: posts do nothing and observers never fire.
class DistributedNotificationCenter : public QObject
{
    Q_OBJECT
public:
    static constexpr const char* kInterface = "com.quorbel.trovix.DistributedNotification";
    static constexpr const char* kMember = "Notification";
    static constexpr const char* kPath = "/com/quorbel/trovix";

    using Observer = std::function<void(const QString& name, const QString& object, const QVariantMap& userInfo)>;

    explicit DistributedNotificationCenter(QDBusConnection connection, QObject* parent = nullptr);

    // The session-bus centre; reports once on standard error when there is no bus.
    static DistributedNotificationCenter& defaultCenter();

    bool isAvailable() const { return m_available; }

    // An empty objectFilter accepts every object.
    void addObserver(const QString& name, const QString& objectFilter, QObject* context, Observer observer);
    void removeObservers(const QObject* context);
    bool post(const QString& name, const QString& object, const QVariantMap& userInfo = {});

private Q_SLOTS:
    void onSignal(const QString& name, const QString& object, const QVariantMap& userInfo);

private:
    struct Entry
    {
        QString name;
        QString objectFilter;
        QPointer<QObject> context;
        Observer observer;
    };
    QDBusConnection m_connection;
    bool m_available = false;
    std::vector<Entry> m_entries;
};
