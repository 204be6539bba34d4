#include "memory/PurgeNotification.h"

#include <QTest>

class TestPurgeNotification : public QObject
{
    Q_OBJECT
private slots:
    void onlyAboveHalfAGigabyte()
    {
        QVERIFY(!PurgeNotification::isWorthShowing(500000000));
        QVERIFY(PurgeNotification::isWorthShowing(500000001));
        QCOMPARE(PurgeNotification::title(), QStringLiteral("Trovix"));
        QCOMPARE(PurgeNotification::text(500000001), QStringLiteral("477 MB of RAM have been cleaned just now."));
    }
};

QTEST_GUILESS_MAIN(TestPurgeNotification)
#include "TestPurgeNotification.moc"
