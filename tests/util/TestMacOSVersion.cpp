#include "support/Files.h"
#include "util/MacOSVersion.h"

#include <QTemporaryDir>
#include <QTest>

class TestMacOSVersion : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void comparesNumerically_data()
    {
        QTest::addColumn<QString>("system");
        QTest::addColumn<QString>("version");
        QTest::addColumn<bool>("orLower");
        QTest::addColumn<bool>("orHigher");
        QTest::addColumn<bool>("expected");
        QTest::newRow("10.10 is above 10.9") << "10.10"
                                             << "10.9" << false << true << true;
        QTest::newRow("10.10 is not at least 10.11") << "10.10"
                                                     << "10.11" << false << true << false;
        QTest::newRow("10.8.4 below 10.8.5: at most") << "10.8.4"
                                                      << "10.8.5" << true << false << true;
        QTest::newRow("10.8.5 not at most 10.8.4") << "10.8.5"
                                                   << "10.8.4" << true << false << false;
        QTest::newRow("equal with trailing zero") << "10.9"
                                                  << "10.9.0" << false << false << true;
        QTest::newRow("neither flag, different") << "10.9.2"
                                                 << "10.9" << false << false << false;
        QTest::newRow("both flags always yes") << "10.9"
                                               << "11.0" << true << true << true;
        QTest::newRow("longer version below") << "10.8.4"
                                              << "10.8.4.9" << false << true << false;
    }
    void comparesNumerically()
    {
        QFETCH(QString, system);
        QFETCH(QString, version);
        QFETCH(bool, orLower);
        QFETCH(bool, orHigher);
        QTEST(MacOSVersion(system).isMacOSHasVersion(version, orLower, orHigher), "expected");
    }

    void missingVersionAnswersYesEverywhere()
    {
        const MacOSVersion v(MacOSVersion::readProductVersion(QStringLiteral("/nonexistent/SystemVersion.plist")));
        QVERIFY(!v.systemVersion());
        QVERIFY(v.is_10_9_orHigher() && v.is_10_14_orHigher());
        QVERIFY(v.isMacOSHasVersion(QStringLiteral("99.0"), false, false));
        QVERIFY(v.isMacOSHasVersion(std::nullopt, false, false));
        // On Linux the file does not exist: the program behaves as on the newest system.
        QVERIFY(MacOSVersion::GetInstance().is_10_14_orHigher());
    }

    void readsProductVersionFromPlist()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("SystemVersion.plist"));
        QVERIFY(writeFile(path, R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
<key>ProductName</key><string>Mac OS X</string>
<key>ProductVersion</key><string>10.13.6</string>
</dict></plist>)"));
        QCOMPARE(MacOSVersion::readProductVersion(path).value_or(QString()), QStringLiteral("10.13.6"));
        const MacOSVersion v(MacOSVersion::readProductVersion(path));
        QVERIFY(v.is_10_9_orHigher() && v.is_10_13_orHigher());
        QVERIFY(!v.is_10_14_orHigher());
    }
};

QTEST_GUILESS_MAIN(TestMacOSVersion)
#include "TestMacOSVersion.moc"
