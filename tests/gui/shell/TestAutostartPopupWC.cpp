#include "gui/shell/AutostartPopupWC.h"
#include "support/ControllerFixture.h"

#include <QPushButton>
#include <QTest>

class TestAutostartPopupWC : public QObject
{
    Q_OBJECT
private:
    std::unique_ptr<SettingsFixture> m_home;

private Q_SLOTS:
    void init() { m_home = std::make_unique<SettingsFixture>(); }

    void messageNamesTheSizeInBold()
    {
        AutostartPopupWC popup(m_home->settings, m_home->center);
        popup.setCleanedSize(734003200);
        QCOMPARE(popup.messageText(), QStringLiteral("You have cleaned <b>700 MB</b> of memory."));
    }

    void yesAsksForAutoStartAndAutoFreeNoStopsTheOffer_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<int>("posts");
        QTest::addColumn<bool>("offerStays");
        QTest::newRow("yes") << "btn_Yes" << 1 << true;
        QTest::newRow("no") << "btn_No" << 0 << false;
    }
    void yesAsksForAutoStartAndAutoFreeNoStopsTheOffer()
    {
        QFETCH(QString, button);
        QFETCH(bool, offerStays);
        int posts = 0;
        m_home->center.addObserver(QBPurgeController::TurnOnAutoStartAndAutoFreeNotificationName(), nullptr, this,
                                   [&posts](const Notification&) { ++posts; });
        AutostartPopupWC popup(m_home->settings, m_home->center);
        popup.show();
        popup.findChild<QPushButton*>(button)->click();
        m_home->center.removeObservers(this);
        QTEST(posts, "posts");
        QVERIFY(!popup.isVisible());
        QCOMPARE(UserDefaults(m_home->standard.filePath())
                     .getBoolValueForKey(SettingsKey::ShowAutostartPopupAfterClean, true),
                 offerStays);
    }
};

QTEST_MAIN(TestAutostartPopupWC)
#include "TestAutostartPopupWC.moc"
