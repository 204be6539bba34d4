#include "gui/shell/PanelWindow.h"
#include "gui/shell/PanelWindowDelegate.h"
#include "support/ControllerFixture.h"

#include <QAbstractButton>
#include <QApplication>
#include <QLineEdit>
#include <QScreen>
#include <QTest>

namespace {

// Stands for the controller: records what the panel asks of it.
class RecordingDelegate final : public PanelWindowDelegate
{
public:
    bool shown = false;
    bool updating = false;
    int switchRequests = 0;
    QStringList searches;
    int cleanPresses = 0;
    QRect trayFrame{700, 0, 24, 24};

    bool panelIsHiddenShown() const override { return shown; }
    bool panelIsHiddenUpdating() const override { return updating; }
    void panelShowHiddenControlChanged() override { ++switchRequests; }
    void panelSearchRequested(const QString& text) override { searches << text; }
    void panelCleanButtonPressed() override { ++cleanPresses; }
    bool panelMightLoseFocusBecauseOfScript() const override { return false; }
    QRect statusItemFrame() const override { return trayFrame; }
    void panelPreferencesButtonPressed(const QPoint&) override {}
    void panelDetailedStateChanged(bool) override {}
};

} // namespace

class TestPanelWindow : public QObject
{
    Q_OBJECT
private:
    std::unique_ptr<SettingsFixture> m_home;
    RecordingDelegate m_delegate;

    std::unique_ptr<PanelWindow> makePanel()
    {
        return std::make_unique<PanelWindow>(m_delegate, m_home->settings, m_home->center, m_home->clock);
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<SettingsFixture>();
        m_delegate = RecordingDelegate();
    }

    void withoutStoredLockStartsAttachedAndClosed()
    {
        auto panel = makePanel();
        QVERIFY(panel->isLocked());
        panel->showWindowIfNotLocked();
        QVERIFY(!panel->isVisible());
    }

    void clickOpensBesideTheIconAndAgainCloses_data()
    {
        QTest::addColumn<bool>("atBottom");
        QTest::newRow("icon at the top") << false;
        QTest::newRow("icon at the bottom") << true;
    }
    void clickOpensBesideTheIconAndAgainCloses()
    {
        QFETCH(bool, atBottom);
        const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
        if (atBottom)
            m_delegate.trayFrame = QRect(area.center().x(), area.bottom() - 23, 24, 24);
        auto panel = makePanel();
        panel->processActionOfStatusItem(true);
        QVERIFY(panel->isVisible());
        const QRect frame = panel->geometry();
        QVERIFY(atBottom ? frame.bottom() < m_delegate.trayFrame.top() : frame.top() > m_delegate.trayFrame.bottom());
        QVERIFY(area.contains(frame));
        QVERIFY(qAbs(frame.center().x() - m_delegate.trayFrame.center().x()) <= 1 || frame.right() == area.right());
        panel->processActionOfStatusItem(false); // may not close: stays
        QVERIFY(panel->isVisible());
        panel->processActionOfStatusItem(true);
        QVERIFY(!panel->isVisible());
    }

    void clickOnDetachedPanelReattachesIt()
    {
        m_home->standard.setObject(false, SettingsKey::WindowLock);
        m_home->settings.saveWindowFramePosition(QRect(40, 300, 320, 200));
        auto panel = makePanel();
        QVERIFY(!panel->isLocked());
        panel->showWindowIfNotLocked(); // a detached panel opens at start where it was left
        QVERIFY(panel->isVisible());
        QCOMPARE(panel->pos(), QPoint(40, 300));
        panel->processActionOfStatusItem(true);
        QVERIFY(panel->isVisible());
        QVERIFY(panel->isLocked());
        QVERIFY(m_home->settings.isWindowLocked());
        QVERIFY(panel->geometry().top() > m_delegate.trayFrame.bottom());
    }

    void draggingDetachesAndStoresThePosition()
    {
        auto panel = makePanel();
        panel->processActionOfStatusItem(true);
        QVERIFY(QTest::qWaitForWindowExposed(panel.get()));
        const QPoint grab(150, 6);
        QTest::mousePress(panel.get(), Qt::LeftButton, {}, grab);
        QMouseEvent move(QEvent::MouseMove, QPointF(grab + QPoint(-200, 150)),
                         QPointF(panel->mapToGlobal(grab + QPoint(-200, 150))), Qt::NoButton, Qt::LeftButton, {});
        QApplication::sendEvent(panel.get(), &move);
        QTest::mouseRelease(panel.get(), Qt::LeftButton, {}, grab + QPoint(-200, 150));
        QVERIFY(!panel->isLocked());
        QVERIFY(!m_home->settings.isWindowLocked());
        const auto stored = m_home->settings.restoreWindowFramePosition(panel->size(), QRect());
        QVERIFY(stored.has_value());
        QCOMPARE(*stored, panel->frameGeometry().topLeft());
    }

    void memoryTitleAndSubtitleFormats_data()
    {
        QTest::addColumn<double>("fraction");
        QTest::addColumn<QString>("title");
        QTest::newRow("rounds") << 0.456 << "46%";
        QTest::newRow("pads to two characters") << 0.05 << " 5%";
        QTest::newRow("full") << 1.0 << "100%";
    }
    void memoryTitleAndSubtitleFormats()
    {
        QFETCH(double, fraction);
        QFETCH(QString, title);
        auto panel = makePanel();
        panel->fillInfoPanelWithUsedMemoryPercent(fraction, 1536000, 8LL << 30);
        QCOMPARE(panel->titleText(), title);
        QCOMPARE(panel->subtitleText(), QStringLiteral("1.46 MB used of 8.00 GB"));
    }

    void cleanedLineShowsForThirtySecondsOrUntilAClick()
    {
        auto panel = makePanel();
        panel->fillInfoPanelWithUsedMemoryPercent(0.5, 4LL << 30, 8LL << 30);
        panel->fillLastCleanedLabelWithSize(0, QStringLiteral("3:07PM"));
        QCOMPARE(panel->lastCleanedText(), QString()); // nothing cleaned yet
        panel->fillLastCleanedLabelWithSize(700LL << 20, QStringLiteral("3:07PM"));
        panel->onPurgedMemory();
        QCOMPARE(panel->subtitleTag(), 2);
        QCOMPARE(panel->subtitleText(), QStringLiteral("700 MB cleaned 3:07PM"));
        // A click reverts at once and cancels the timer.
        panel->subtitleLabelClicked();
        QCOMPARE(panel->subtitleTag(), 1);
        QCOMPARE(m_home->clock.pendingCount(), 0);

        panel->onPurgedMemory();
        // New figures arrive while the cleaned line shows: they wait for the revert.
        panel->fillInfoPanelWithUsedMemoryPercent(0.25, 2LL << 30, 8LL << 30);
        QCOMPARE(panel->subtitleText(), QStringLiteral("700 MB cleaned 3:07PM"));
        m_home->clock.advance(29999);
        QCOMPARE(panel->subtitleTag(), 2);
        m_home->clock.advance(1);
        QCOMPARE(panel->subtitleTag(), 1);
        QCOMPARE(panel->subtitleText(), QStringLiteral("2.00 GB used of 8.00 GB"));
    }

    void searchHandOffGivesTheTextAndClosesAnAttachedPanel()
    {
        auto panel = makePanel();
        panel->processActionOfStatusItem(true);
        panel->searchBar()->setText(QStringLiteral("report"));
        QTest::keyClick(panel->searchBar(), Qt::Key_Return);
        QCOMPARE(m_delegate.searches, QStringList{QStringLiteral("report")});
        QVERIFY(!panel->isVisible());
    }

    void switchFollowsTheManagerNotTheClick()
    {
        auto panel = makePanel();
        auto* toggle = panel->findChild<QAbstractButton*>(QStringLiteral("hiddenSwitch"));
        QVERIFY(toggle);
        m_delegate.updating = true;
        panel->updateIsHiddenShown();
        QVERIFY(!toggle->isEnabled());
        m_delegate.updating = false;
        panel->updateIsHiddenShown();
        toggle->click();
        QCOMPARE(m_delegate.switchRequests, 1);
        QVERIFY(!toggle->isChecked()); // the manager has not flipped yet
        m_delegate.shown = true;
        panel->updateIsHiddenShown();
        QVERIFY(toggle->isChecked());
    }

    void disclosureStateIsRememberedAndGatesSampling()
    {
        {
            auto panel = makePanel();
            panel->processActionOfStatusItem(true);
            QVERIFY(!panel->shouldUpdateTrackedSystemInfo());
            const int collapsed = panel->height();
            panel->expandDisclosureButton();
            QVERIFY(panel->shouldUpdateTrackedSystemInfo());
            QVERIFY(panel->height() > collapsed);
            panel->close();
            QVERIFY(!panel->shouldUpdateTrackedSystemInfo());
        }
        auto again = makePanel();
        QVERIFY(again->isDisclosureButtonExpanded());
    }
};

QTEST_MAIN(TestPanelWindow)
#include "TestPanelWindow.moc"
