#include "diskusage/PathsGenerator.h"
#include "diskusage/PromoFreeSpaceChecker.h"
#include "diskusage/SearcherManager.h"
#include "gui/diskusage/AdBasedOnSpotlightVC.h"
#include "gui/shell/PanelWindow.h"
#include "support/ControllerFixture.h"

#include <QApplication>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

// The disk-usage view inside the controller's panel: compact while the panel is collapsed, whole (and
// scanning) once "Details" or the disclosure opens it.
class TestQBPurgeControllerDiskUsage : public QObject
{
    Q_OBJECT
private:
    std::unique_ptr<SettingsFixture> m_home;
    std::unique_ptr<PathsGenerator> m_paths;
    std::unique_ptr<SearcherManager> m_manager;

    std::unique_ptr<QBPurgeController> makeController()
    {
        auto collaborators = controllerCollaborators(*m_home);
        collaborators.searcherManager = m_manager.get();
        auto controller = std::make_unique<QBPurgeController>(collaborators);
        controller->awakeFromNib();
        return controller;
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<SettingsFixture>();
        m_home->standard.setObject(true, SettingsKey::WelcomeDialogDisplayed);
        m_paths = std::make_unique<PathsGenerator>(m_home->dir.path(), QProcessEnvironment());
        SearcherManager::Config config;
        config.paths = m_paths.get();
        config.clock = &m_home->clock;
        config.largeAndOldScopes = {m_home->dir.path()};
        m_manager = std::make_unique<SearcherManager>(config);
    }

    void cleanup() { m_manager.reset(); }

    void detailsOpensTheWholeViewAndStartsTheScans()
    {
        auto controller = makeController();
        PanelWindow* panel = controller->panel();
        QVERIFY(panel->isVisible()); // no tray: open as a window
        AdBasedOnSpotlightVC* view = panel->diskUsageView();
        QVERIFY(view);
        QCOMPARE(view, controller->diskUsageView());
        QVERIFY(view->isVisible());
        QVERIFY(view->isCompact());
        QVERIFY(!m_manager->isScanning(ScanJunk));
        const int compactHeight = panel->height();

        view->findChild<QPushButton*>("detailsButton")->click();
        QVERIFY(panel->isDisclosureButtonExpanded());
        QVERIFY(!view->isCompact());
        QVERIFY(m_manager->isScanning(ScanDuplicates));
        QVERIFY(view->isScanning());
        QVERIFY(panel->height() > compactHeight + 100);

        // Collapsing the panel makes the view compact again and the panel as short as before.
        panel->findChild<QToolButton*>("disclosureButton")->click();
        QVERIFY(!panel->isDisclosureButtonExpanded());
        QVERIFY(view->isCompact());
        QCOMPARE(panel->height(), compactHeight);
    }

    // The disks are looked at 30 s after the start, then every hour; the checker lets one look a day
    // through (its date in the settings moves only then).
    void theLowSpaceLookRunsADayApart()
    {
        auto controller = makeController();
        const QString key = QString::fromLatin1(PromoFreeSpaceChecker::kLastWarningKey);
        m_home->clock.advance(29000);
        QVERIFY(!m_home->standard.dateForKey(key).isValid());
        m_home->clock.advance(1000);
        const QDateTime first = m_home->standard.dateForKey(key);
        QCOMPARE(first, m_home->clock.now());
        m_home->clock.advance(23 * 3600 * 1000);
        QCOMPARE(m_home->standard.dateForKey(key), first);
        m_home->clock.advance(3600 * 1000);
        QCOMPARE(m_home->standard.dateForKey(key), first.addSecs(24 * 3600));
    }

    void anExpandedPanelShowsTheWholeViewAtStart()
    {
        m_home->standard.setObject(true, SettingsKey::PanelWindowSateIsDetailed);
        auto controller = makeController();
        QVERIFY(!controller->diskUsageView()->isCompact());
        QVERIFY(m_manager->isScanning(ScanDuplicates));
    }
};

QTEST_MAIN(TestQBPurgeControllerDiskUsage)
#include "TestQBPurgeControllerDiskUsage.moc"
