#include "core/NotificationCenter.h"

#include <QTest>

#include <memory>

class TestNotificationCenter : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void deliversByNameAndObjectFilter()
    {
        NotificationCenter center;
        QObject context, poster, other;
        QStringList seen;
        center.addObserver(QStringLiteral("a"), nullptr, &context, [&](const Notification& n) {
            seen << QStringLiteral("any:") + n.userInfo.value(QStringLiteral("k")).toString();
        });
        center.addObserver(QStringLiteral("a"), &poster, &context,
                           [&](const Notification&) { seen << QStringLiteral("poster"); });
        center.post(QStringLiteral("a"), &other, {{QStringLiteral("k"), QStringLiteral("1")}});
        center.post(QStringLiteral("a"), &poster, {{QStringLiteral("k"), QStringLiteral("2")}});
        center.post(QStringLiteral("b"), &poster);
        QCOMPARE(seen, (QStringList{QStringLiteral("any:1"), QStringLiteral("any:2"), QStringLiteral("poster")}));
    }

    void destroyedContextEndsTheRegistration()
    {
        NotificationCenter center;
        int calls = 0;
        {
            QObject context;
            center.addObserver(QStringLiteral("a"), nullptr, &context, [&](const Notification&) { ++calls; });
            center.post(QStringLiteral("a"));
        }
        center.post(QStringLiteral("a"));
        QCOMPARE(calls, 1);
    }

    void observersMayRemoveThemselvesWhilePosting()
    {
        NotificationCenter center;
        QObject context;
        int calls = 0;
        NotificationCenter::Token token = 0;
        token = center.addObserver(QStringLiteral("a"), nullptr, &context, [&](const Notification&) {
            ++calls;
            center.removeObserver(token);
            center.addObserver(QStringLiteral("a"), nullptr, &context, [&](const Notification&) { calls += 10; });
        });
        center.post(QStringLiteral("a"));
        QCOMPARE(calls, 1);
        center.post(QStringLiteral("a"));
        QCOMPARE(calls, 11);
        center.removeObservers(&context);
        center.post(QStringLiteral("a"));
        QCOMPARE(calls, 11);
    }
};

QTEST_GUILESS_MAIN(TestNotificationCenter)
#include "TestNotificationCenter.moc"
