#pragma once

#include <QMutex>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <vector>

// One posted notification: a name, the object that posted it (may be null) and a user-info dictionary.
struct Notification
{
    QString name;
    const QObject* object = nullptr;
    QVariantMap userInfo;
};

// The in-process notification centre. Observers run synchronously on the posting thread, as they are
// called from post(); an observer whose context object is destroyed is dropped.
class NotificationCenter
{
public:
    using Observer = std::function<void(const Notification&)>;
    using Token = quint64;

    NotificationCenter() = default;
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    static NotificationCenter& defaultCenter();

    // objectFilter null: every poster. The context ends the registration when it is destroyed.
    Token addObserver(const QString& name, const QObject* objectFilter, QObject* context, Observer observer);
    void removeObserver(Token token);
    void removeObservers(const QObject* context);
    void post(const QString& name, const QObject* object = nullptr, const QVariantMap& userInfo = {});

private:
    struct Entry
    {
        Token token;
        QString name;
        const QObject* objectFilter;
        QPointer<QObject> context;
        bool hasContext;
        Observer observer;
    };
    QMutex m_mutex;
    std::vector<Entry> m_entries;
    Token m_nextToken = 1;
};
