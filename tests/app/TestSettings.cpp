#include "app/Settings.h"
#include "support/ManualClock.h"
#include "util/MacOSVersion.h"

#include <QTemporaryDir>
#include <QTest>

#include <memory>

class TestSettings : public QObject
{
    Q_OBJECT
private:
    QTemporaryDir m_dir;
    std::unique_ptr<UserDefaults> m_standard;
    std::unique_ptr<UserDefaults> m_group;
    ManualClock m_clock;

    Settings make(const MacOSVersion& version) { return Settings(*m_standard, *m_group, version, m_clock); }

private Q_SLOTS:
    void init()
    {
        QFile::remove(m_dir.filePath(QStringLiteral("s.json")));
        QFile::remove(m_dir.filePath(QStringLiteral("g.json")));
        m_standard = std::make_unique<UserDefaults>(m_dir.filePath(QStringLiteral("s.json")));
        m_group = std::make_unique<UserDefaults>(m_dir.filePath(QStringLiteral("g.json")));
    }

    void versionDependentDefaults()
    {
        const MacOSVersion mojave(QStringLiteral("10.14"));
        const MacOSVersion highSierra(QStringLiteral("10.13.6"));
        QCOMPARE(make(mojave).shouldCheckHiddenFilesVisibility(), false);
        QCOMPARE(make(highSierra).shouldCheckHiddenFilesVisibility(), true);
        QCOMPARE(make(mojave).shouldShowInformationAboutAccessibilityAlerts(), true);
        QCOMPARE(make(highSierra).shouldShowInformationAboutAccessibilityAlerts(), false);
        // Reading never writes a default.
        QVERIFY(m_standard->dictionaryRepresentation().isEmpty());
        Settings s = make(mojave);
        s.setShouldCheckHiddenFilesVisibility(true);
        QCOMPARE(make(mojave).shouldCheckHiddenFilesVisibility(), true);
    }

    void panelLockDefaultsToLockedAndKeepsAStoredFalse()
    {
        const MacOSVersion v(std::nullopt);
        Settings s = make(v);
        QVERIFY(s.isWindowLocked());
        s.saveWindowLockedState(false);
        QVERIFY(!UserDefaults(m_standard->filePath()).boolForKey(SettingsKey::WindowLock));
        QVERIFY(!make(v).isWindowLocked());
    }

    void windowPositionIsStoredAndKeptOnScreen_data()
    {
        QTest::addColumn<QRect>("saved");
        QTest::addColumn<QPoint>("expected");
        QTest::newRow("inside") << QRect(100, 50, 320, 200) << QPoint(100, 50);
        QTest::newRow("off the right edge") << QRect(900, 50, 320, 200) << QPoint(1024 - 320, 50);
        QTest::newRow("below the bottom") << QRect(100, 650, 320, 200) << QPoint(100, 500);
        QTest::newRow("left and above") << QRect(-50, -20, 320, 200) << QPoint(0, 0);
    }
    void windowPositionIsStoredAndKeptOnScreen()
    {
        QFETCH(QRect, saved);
        QFETCH(QPoint, expected);
        const MacOSVersion v(std::nullopt);
        Settings s = make(v);
        QVERIFY(!s.restoreWindowFramePosition(saved.size(), QRect(0, 0, 1024, 700)));
        s.saveWindowFramePosition(saved);
        QCOMPARE(make(v).restoreWindowFramePosition(saved.size(), QRect(0, 0, 1024, 700)), expected);
    }

    void rateScheduleFollowsTheFirstTwoVersionNumbers()
    {
        QCOMPARE(Settings::buildAppVersionWith2Numbers(QStringLiteral("2.4.1")), QStringLiteral("2.4"));
        QCOMPARE(Settings::buildAppVersionWith2Numbers(QStringLiteral("3")), QStringLiteral("3"));

        const MacOSVersion v(std::nullopt);
        Settings s = make(v);
        QVERIFY(s.isTimeToShowRateDialogIsNow()); // nothing stored yet
        s.notifyRateDialogDataThatAppStarted(QStringLiteral("2.4.1"));
        QVERIFY(!s.isTimeToShowRateDialogIsNow());
        m_clock.advance(14LL * 24 * 3600 * 1000);
        QVERIFY(s.isTimeToShowRateDialogIsNow());

        s.notifyRateDialogDataThatRateDialogShowedAutomatically(true);
        s.notifyRateDialogDataThatRateDialogShowedAutomatically(false);
        QCOMPARE(s.getCountOfRateDialogAutoShowed(), 1);
        s.notifyRateDialogDataThatUserClickOnStar();

        // A patch release keeps the schedule; a minor release starts it again.
        s.notifyRateDialogDataThatAppStarted(QStringLiteral("2.4.2"));
        QCOMPARE(s.getCountOfRateDialogAutoShowed(), 1);
        QVERIFY(m_standard->boolForKey(SettingsKey::RateIsUserSelectStar));
        s.notifyRateDialogDataThatAppStarted(QStringLiteral("2.5"));
        QCOMPARE(s.getCountOfRateDialogAutoShowed(), 0);
        QVERIFY(!m_standard->boolForKey(SettingsKey::RateIsUserSelectStar));
        QCOMPARE(m_standard->dateForKey(SettingsKey::RateNextShowDate), m_clock.now().addSecs(1209600));
    }

    void cleanedSizeKeepsLargeCounts()
    {
        const MacOSVersion v(std::nullopt);
        Settings s = make(v);
        QCOMPARE(s.cleanedSize(), 0u);
        s.setCleanedSize(6'000'000'000ULL);
        QCOMPARE(make(v).cleanedSize(), 6'000'000'000ULL);
        QVERIFY(s.showAutostartPopupAfterPurge());
    }
};

QTEST_GUILESS_MAIN(TestSettings)
#include "TestSettings.moc"
