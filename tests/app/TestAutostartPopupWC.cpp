#include "app/AutostartPopupWC.h"
#include "app/NotificationCenter.h"
#include "app/QBPurgeController.h"
#include "app/Settings.h"
#include "support/ManualClock.h"
#include "util/MacOSVersion.h"

#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

class TestAutostartPopupWC : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void messageNamesTheSizeInBold();
    void yesAsksForAutoStartAndAutoFree();
    void noStopsTheOffer();

private:
    QTemporaryDir m_dir;
    std::unique_ptr<UserDefaults> m_standard;
    std::unique_ptr<UserDefaults> m_group;
    MacOSVersion m_version{std::nullopt};
    ManualClock m_clock;
    std::unique_ptr<Settings> m_settings;
    NotificationCenter m_center;
    int m_run = 0;
};

void TestAutostartPopupWC::init()
{
    ++m_run;
    m_standard = std::make_unique<UserDefaults>(m_dir.filePath(QStringLiteral("s%1.json").arg(m_run)));
    m_group = std::make_unique<UserDefaults>(m_dir.filePath(QStringLiteral("g%1.json").arg(m_run)));
    m_settings = std::make_unique<Settings>(*m_standard, *m_group, m_version, m_clock);
}

void TestAutostartPopupWC::messageNamesTheSizeInBold()
{
    AutostartPopupWC popup(*m_settings, m_center);
    popup.setCleanedSize(734003200);
    QCOMPARE(popup.messageText(), QStringLiteral("You have cleaned <b>700 MB</b> of memory."));
}

void TestAutostartPopupWC::yesAsksForAutoStartAndAutoFree()
{
    int posted = 0;
    m_center.addObserver(QBPurgeController::TurnOnAutoStartAndAutoFreeNotificationName(), nullptr, this,
                         [&posted](const Notification&) { ++posted; });
    AutostartPopupWC popup(*m_settings, m_center);
    popup.show();
    popup.findChild<QPushButton*>(QStringLiteral("btn_Yes"))->click();
    QCOMPARE(posted, 1);
    QVERIFY(!popup.isVisible());
    QVERIFY(m_settings->showAutostartPopupAfterPurge());
    m_center.removeObservers(this);
}

void TestAutostartPopupWC::noStopsTheOffer()
{
    AutostartPopupWC popup(*m_settings, m_center);
    popup.show();
    QVERIFY(m_settings->showAutostartPopupAfterPurge());
    popup.findChild<QPushButton*>(QStringLiteral("btn_No"))->click();
    QVERIFY(!popup.isVisible());
    QCOMPARE(UserDefaults(m_standard->filePath()).objectForKey(SettingsKey::ShowAutostartPopupAfterClean),
             QVariant(false));
}

QTEST_MAIN(TestAutostartPopupWC)
#include "TestAutostartPopupWC.moc"
