#include "gui/shell/PanelWindow.h"
#include "gui/shell/PanelWindowDelegate.h"
#include "gui/shell/CleanMemoryButton.h"
#include "gui/shell/Controls.h"
#include "support/ControllerFixture.h"
#include "support/WriteCounter.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFile>
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

    void draggingDetachesAndStoresThePositionOnceAtTheEnd()
    {
        auto panel = makePanel();
        panel->processActionOfStatusItem(true);
        QVERIFY(QTest::qWaitForWindowExposed(panel.get()));
        WriteCounter writes(m_home->standard.filePath());
        QVERIFY(writes.isValid());
        const QPoint grab(150, 6);
        QTest::mousePress(panel.get(), Qt::LeftButton, {}, grab);
        const QPoint start = panel->mapToGlobal(grab);
        QPoint global = start;
        const auto dragBy = [&](QPoint delta) {
            global += delta;
            QMouseEvent move(QEvent::MouseMove, QPointF(panel->mapFromGlobal(global)), QPointF(global), Qt::NoButton,
                             Qt::LeftButton, {});
            QApplication::sendEvent(panel.get(), &move);
        };
        dragBy(QPoint(-40, 30));
        const int detached = writes.count(); // the lock state, once
        QCOMPARE(detached, 1);
        for (int step = 2; step <= 8; ++step)
            dragBy(QPoint(-20, 15));
        QCOMPARE(writes.count(), detached); // nothing while the panel moves
        QTest::mouseRelease(panel.get(), Qt::LeftButton, {}, panel->mapFromGlobal(global));
        QCOMPARE(writes.count(), detached + 1); // both coordinates in one write
        QVERIFY(!panel->isLocked());
        QVERIFY(!m_home->settings.isWindowLocked());
        const UserDefaults reread(m_home->standard.filePath());
        QCOMPARE(reread.doubleForKey(SettingsKey::WindowX), double(panel->frameGeometry().x()));
        QCOMPARE(reread.doubleForKey(SettingsKey::WindowY), double(panel->frameGeometry().y()));
        QVERIFY(panel->frameGeometry().y() > m_delegate.trayFrame.bottom() + 100);
    }

    void startsWithoutWritingAndTheWindowFallbackStoresNoLockChange()
    {
        {
            auto panel = makePanel();
            panel->openAsWindow(); // no tray
            QVERIFY(panel->isVisible());
            QVERIFY(!panel->isLocked());
            QVERIFY(panel->isOpenAsWindow());
            // Moved about by the user: nothing is stored either.
            panel->move(panel->pos() + QPoint(30, 30));
            panel->closeAndMakeItLocked();
        }
        QVERIFY(!QFile::exists(m_home->standard.filePath()));
        auto next = makePanel(); // the next start, with a tray, finds it attached
        QVERIFY(next->isLocked());
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

    // Under a dark palette every text of the panel stays readable, and the switch's on state is the
    // highlight even while the panel is not the active window.
    void darkPaletteColours()
    {
        QPalette dark;
        dark.setColor(QPalette::Window, QColor(49, 54, 59));
        dark.setColor(QPalette::WindowText, QColor(239, 240, 241));
        dark.setColor(QPalette::Base, QColor(35, 38, 41));
        dark.setColor(QPalette::Text, QColor(239, 240, 241));
        dark.setColor(QPalette::Button, QColor(49, 54, 59));
        dark.setColor(QPalette::ButtonText, QColor(239, 240, 241));
        dark.setColor(QPalette::PlaceholderText, QColor(0, 0, 0, 128)); // what a light default leaves
        dark.setColor(QPalette::Active, QPalette::Highlight, QColor(61, 174, 233));
        dark.setColor(QPalette::Inactive, QPalette::Highlight, QColor(90, 90, 90));
        auto panel = makePanel();
        panel->setPalette(dark);
        panel->fillInfoPanelWithUsedMemoryPercent(0.5, 4LL << 30, 8LL << 30);
        QVERIFY(contrastRatio(panel->subtitleColor(), dark.color(QPalette::Window)) >= 4.5);
        panel->fillLastCleanedLabelWithSize(700LL << 20, QStringLiteral("3:07PM"));
        panel->onPurgedMemory();
        QVERIFY(contrastRatio(panel->subtitleColor(), dark.color(QPalette::Window)) >= 3.0);
        QVERIFY(contrastRatio(CleanMemoryButton::titleColor(dark), dark.color(QPalette::Button)) >= 3.0);
        const QPalette search = panel->searchBar()->palette();
        QVERIFY(contrastRatio(search.color(QPalette::PlaceholderText), search.color(QPalette::Base)) >= 3.0);

        auto* toggle = panel->findChild<QAbstractButton*>(QStringLiteral("hiddenSwitch"));
        m_delegate.shown = true;
        panel->updateIsHiddenShown();
        const QImage on = toggle->grab().toImage();
        const QColor fill = on.pixelColor(10, on.height() / 2); // the track left of the knob
        QCOMPARE(fill.rgb(), QColor(61, 174, 233).rgb());
    }

    void cleanButtonTitleFallsBackToButtonTextWhereTheHighlightDoesNotStandOut()
    {
        QPalette pal;
        pal.setColor(QPalette::Button, QColor(60, 60, 60));
        pal.setColor(QPalette::ButtonText, QColor(230, 230, 230));
        pal.setColor(QPalette::Active, QPalette::Highlight, QColor(70, 70, 80));
        QCOMPARE(CleanMemoryButton::titleColor(pal), QColor(230, 230, 230));
        pal.setColor(QPalette::Button, QColor(239, 239, 239));
        pal.setColor(QPalette::Active, QPalette::Highlight, QColor(48, 140, 198));
        QCOMPARE(CleanMemoryButton::titleColor(pal), QColor(48, 140, 198));
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
