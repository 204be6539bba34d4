#include "DistributedNotificationCenter.h"

#include <QDBusMessage>
#include <QPointer>

#include <cstdio>

DistributedNotificationCenter::DistributedNotificationCenter(QDBusConnection connection, QObject* parent)
    : QObject(parent)
    , m_connection(std::move(connection))
{
    if (!m_connection.isConnected())
        return;
    // An empty path listens on every object path, so senders may pick any path.
    m_available = m_connection.connect(QString(), QString(), QString::fromLatin1(kInterface),
                                       QString::fromLatin1(kMember), this,
                                       SLOT(onSignal(QString, QString, QVariantMap)));
}

DistributedNotificationCenter& DistributedNotificationCenter::defaultCenter()
{
    static DistributedNotificationCenter* center = [] {
        auto* c = new DistributedNotificationCenter(QDBusConnection::sessionBus());
        if (!c->isAvailable())
            std::fprintf(stderr, "trovix: no D-Bus session bus; notifications from other programs are off\n");
        return c;
    }();
    return *center;
}

void DistributedNotificationCenter::addObserver(const QString& name, const QString& objectFilter, QObject* context,
                                                Observer observer)
{
    m_entries.push_back({name, objectFilter, QPointer<QObject>(context), std::move(observer)});
}

void DistributedNotificationCenter::removeObservers(const QObject* context)
{
    std::erase_if(m_entries, [context](const Entry& e) { return e.context == context || e.context.isNull(); });
}

bool DistributedNotificationCenter::post(const QString& name, const QString& object, const QVariantMap& userInfo)
{
    if (!m_available)
        return false;
    QDBusMessage signal = QDBusMessage::createSignal(QString::fromLatin1(kPath), QString::fromLatin1(kInterface),
                                                     QString::fromLatin1(kMember));
    signal << name << object << userInfo;
    return m_connection.send(signal);
}

void DistributedNotificationCenter::onSignal(const QString& name, const QString& object, const QVariantMap& userInfo)
{
    std::erase_if(m_entries, [](const Entry& e) { return e.context.isNull(); });
    std::vector<Observer> matching;
    for (const Entry& e : m_entries) {
        if (e.name == name && (e.objectFilter.isEmpty() || e.objectFilter == object))
            matching.push_back(e.observer);
    }
    for (const Observer& observer : matching)
        observer(name, object, userInfo);
}
