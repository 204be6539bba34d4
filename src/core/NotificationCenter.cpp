#include "NotificationCenter.h"

#include <algorithm>

NotificationCenter& NotificationCenter::defaultCenter()
{
    static NotificationCenter center;
    return center;
}

NotificationCenter::Token NotificationCenter::addObserver(const QString& name, const QObject* objectFilter,
                                                          QObject* context, Observer observer)
{
    QMutexLocker lock(&m_mutex);
    const Token token = m_nextToken++;
    m_entries.push_back({token, name, objectFilter, QPointer<QObject>(context), context != nullptr, std::move(observer)});
    return token;
}

void NotificationCenter::removeObserver(Token token)
{
    QMutexLocker lock(&m_mutex);
    std::erase_if(m_entries, [token](const Entry& e) { return e.token == token; });
}

void NotificationCenter::removeObservers(const QObject* context)
{
    QMutexLocker lock(&m_mutex);
    std::erase_if(m_entries, [context](const Entry& e) { return e.hasContext && e.context == context; });
}

void NotificationCenter::post(const QString& name, const QObject* object, const QVariantMap& userInfo)
{
    // Observers may add or remove observers, so they are called from a copy, outside the lock.
    std::vector<Observer> matching;
    {
        QMutexLocker lock(&m_mutex);
        std::erase_if(m_entries, [](const Entry& e) { return e.hasContext && e.context.isNull(); });
        for (const Entry& e : m_entries) {
            if (e.name == name && (!e.objectFilter || e.objectFilter == object))
                matching.push_back(e.observer);
        }
    }
    const Notification note{name, object, userInfo};
    for (const Observer& observer : matching)
        observer(note);
}
