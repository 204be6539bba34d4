#include "core/Settings.h"
#include "core/UserDefaults.h"
#include "memory/PurgeFrequency.h"

#include <QTemporaryDir>
#include <QTest>

class TestPurgeFrequency : public QObject
{
    Q_OBJECT
private slots:
    void intervals_data()
    {
        QTest::addColumn<QString>("key"); // empty: no override stored
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<int>("index");
        QTest::addColumn<qint64>("interval");
        const QString often = SettingsKey::PurgeFregOften;
        QTest::newRow("rarely") << QString() << QVariant() << 0 << qint64(28800);
        QTest::newRow("normally") << QString() << QVariant() << 1 << qint64(14400);
        QTest::newRow("often") << QString() << QVariant() << 2 << qint64(7200);
        QTest::newRow("out of range keeps the current") << QString() << QVariant() << 3 << qint64(-1);
        QTest::newRow("often as the number 60") << often << QVariant(60) << 2 << qint64(60);
        QTest::newRow("often as the string 60") << often << QVariant(QStringLiteral("60")) << 2 << qint64(7200);
        QTest::newRow("often as a boolean") << often << QVariant(true) << 2 << qint64(7200);
        QTest::newRow("often override leaves normally") << often << QVariant(60) << 1 << qint64(14400);
        // Numbers come back from the stored file as doubles.
        QTest::newRow("rarely as a double") << SettingsKey::PurgeFregRarely << QVariant(90.0) << 0 << qint64(90);
        QTest::newRow("normally overridden") << SettingsKey::PurgeFregNormally << QVariant(5) << 1 << qint64(5);
    }
    void intervals()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, stored);
        QFETCH(int, index);
        QTemporaryDir dir;
        UserDefaults defaults(dir.filePath(QStringLiteral("d.json")));
        if (!key.isEmpty())
            defaults.setObject(stored, key);
        QTEST(PurgeFrequency::interval(defaults, index, -1), "interval");
    }
};

QTEST_GUILESS_MAIN(TestPurgeFrequency)
#include "TestPurgeFrequency.moc"
