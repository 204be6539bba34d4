#include "core/Settings.h"
#include "support/SettingsFixture.h"

#include <QTest>

#include <sys/stat.h>

#include <memory>

namespace {
ino_t inodeOf(const QString& path)
{
    struct stat st
    {
    };
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_ino : 0;
}
} // namespace

class TestSettings : public QObject
{
    Q_OBJECT
private:
    std::unique_ptr<SettingsFixture> m_home;
    const MacOSVersion m_anyVersion{std::nullopt};

    // Another Settings over the same domains, as a later start sees them.
    Settings make(const MacOSVersion& version)
    {
        return Settings(m_home->standard, m_home->group, version, m_home->clock);
    }

private Q_SLOTS:
    void init() { m_home = std::make_unique<SettingsFixture>(); }

    void versionDependentDefaults()
    {
        const MacOSVersion mojave(QStringLiteral("10.14"));
        const MacOSVersion highSierra(QStringLiteral("10.13.6"));
        QCOMPARE(make(mojave).shouldCheckHiddenFilesVisibility(), false);
        QCOMPARE(make(highSierra).shouldCheckHiddenFilesVisibility(), true);
        QCOMPARE(make(mojave).shouldShowInformationAboutAccessibilityAlerts(), true);
        QCOMPARE(make(highSierra).shouldShowInformationAboutAccessibilityAlerts(), false);
        // Reading never writes a default.
        QVERIFY(m_home->standard.dictionaryRepresentation().isEmpty());
        make(mojave).setShouldCheckHiddenFilesVisibility(true);
        QCOMPARE(make(mojave).shouldCheckHiddenFilesVisibility(), true);
    }

    void panelLockDefaultsToLockedAndKeepsAStoredFalse()
    {
        QVERIFY(m_home->settings.isWindowLocked());
        m_home->settings.saveWindowLockedState(false);
        QVERIFY(!UserDefaults(m_home->standard.filePath()).boolForKey(SettingsKey::WindowLock));
        QVERIFY(!make(m_anyVersion).isWindowLocked());
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
        const QRect screen(0, 0, 1024, 700);
        QVERIFY(!m_home->settings.restoreWindowFramePosition(saved.size(), screen));
        m_home->settings.saveWindowFramePosition(saved);
        QCOMPARE(make(m_anyVersion).restoreWindowFramePosition(saved.size(), screen), expected);
    }

    void windowPositionIsStoredOnlyWhenItChanges()
    {
        const QString file = m_home->standard.filePath();
        m_home->settings.saveWindowFramePosition(QRect(100, 50, 320, 200));
        const ino_t first = inodeOf(file);
        // The same place (and the same lock state) again leaves the file alone.
        m_home->settings.saveWindowLockedState(true);
        const ino_t withLock = inodeOf(file);
        QVERIFY(withLock != first);
        m_home->settings.saveWindowFramePosition(QRect(100, 50, 320, 200));
        m_home->settings.saveWindowLockedState(true);
        QCOMPARE(inodeOf(file), withLock);
        // Moving only vertically stores both coordinates.
        m_home->settings.saveWindowFramePosition(QRect(100, 80, 320, 200));
        QVERIFY(inodeOf(file) != withLock);
        const UserDefaults stored(file);
        QCOMPARE(stored.doubleForKey(SettingsKey::WindowX), 100.0);
        QCOMPARE(stored.doubleForKey(SettingsKey::WindowY), 80.0);
    }

    void rateScheduleFollowsTheFirstTwoVersionNumbers()
    {
        QCOMPARE(Settings::buildAppVersionWith2Numbers(QStringLiteral("2.4.1")), QStringLiteral("2.4"));
        QCOMPARE(Settings::buildAppVersionWith2Numbers(QStringLiteral("3")), QStringLiteral("3"));

        Settings& s = m_home->settings;
        QVERIFY(s.isTimeToShowRateDialogIsNow()); // nothing stored yet
        s.notifyRateDialogDataThatAppStarted(QStringLiteral("2.4.1"));
        QVERIFY(!s.isTimeToShowRateDialogIsNow());
        m_home->clock.advance(14LL * 24 * 3600 * 1000);
        QVERIFY(s.isTimeToShowRateDialogIsNow());

        s.notifyRateDialogDataThatRateDialogShowedAutomatically(true);
        s.notifyRateDialogDataThatRateDialogShowedAutomatically(false);
        QCOMPARE(s.getCountOfRateDialogAutoShowed(), 1);
        s.notifyRateDialogDataThatUserClickOnStar();

        // A patch release keeps the schedule; a minor release starts it again.
        s.notifyRateDialogDataThatAppStarted(QStringLiteral("2.4.2"));
        QCOMPARE(s.getCountOfRateDialogAutoShowed(), 1);
        QVERIFY(m_home->standard.boolForKey(SettingsKey::RateIsUserSelectStar));
        s.notifyRateDialogDataThatAppStarted(QStringLiteral("2.5"));
        QCOMPARE(s.getCountOfRateDialogAutoShowed(), 0);
        QVERIFY(!m_home->standard.boolForKey(SettingsKey::RateIsUserSelectStar));
        QCOMPARE(m_home->standard.dateForKey(SettingsKey::RateNextShowDate), m_home->clock.now().addSecs(1209600));
    }

    void cleanedSizeKeepsLargeCounts()
    {
        QCOMPARE(m_home->settings.cleanedSize(), 0u);
        m_home->settings.setCleanedSize(6'000'000'000ULL);
        QCOMPARE(make(m_anyVersion).cleanedSize(), 6'000'000'000ULL);
        QVERIFY(m_home->settings.showAutostartPopupAfterPurge());
    }
};

QTEST_GUILESS_MAIN(TestSettings)
#include "TestSettings.moc"
