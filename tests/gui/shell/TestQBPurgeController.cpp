#include "gui/shell/PanelWindow.h"
#include "gui/shell/QBAppDelegate.h"
#include "search/SearchManager.h"
#include "support/ControllerFixture.h"
#include "support/Files.h"
#include "support/WriteCounter.h"

#include <QApplication>
#include <QCursor>
#include <QDir>
#include <QFile>
#include <QMenu>
#include <QScreen>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

class TestQBPurgeController : public QObject
{
    Q_OBJECT
private:
    std::unique_ptr<SettingsFixture> m_home;

    std::unique_ptr<QBPurgeController> makeController()
    {
        return std::make_unique<QBPurgeController>(controllerCollaborators(*m_home));
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<SettingsFixture>();
        // The welcome dialog would open at a first start; it has its own test below.
        m_home->standard.setObject(true, SettingsKey::WelcomeDialogDisplayed);
    }

    void startWritesTheDefaultsOnceAndAlwaysTurnsAutoFreeOff()
    {
        makeController()->awakeFromNib();
        const UserDefaults first(m_home->standard.filePath());
        QCOMPARE(first.objectForKey(SettingsKey::Initialized), QVariant(true));
        QCOMPARE(first.objectForKey(SettingsKey::AutoFree), QVariant(false));
        QCOMPARE(first.objectForKey(SettingsKey::PurgeAfterHugeAppQuit), QVariant(true));
        QCOMPARE(first.objectForKey(SettingsKey::ShowInfo), QVariant(true));
        QCOMPARE(first.integerForKey(SettingsKey::Frequency), 1);
        QCOMPARE(first.doubleForKey(SettingsKey::UsageLimit), 0.8);

        m_home->standard.setObject(true, SettingsKey::AutoFree);
        m_home->standard.setObject(2, SettingsKey::Frequency);
        m_home->standard.setObject(0.65, SettingsKey::UsageLimit);
        m_home->standard.setObject(false, SettingsKey::PurgeAfterHugeAppQuit);
        makeController()->awakeFromNib();
        const UserDefaults later(m_home->standard.filePath());
        QCOMPARE(later.objectForKey(SettingsKey::AutoFree), QVariant(false));
        QCOMPARE(later.integerForKey(SettingsKey::Frequency), 2);
        QCOMPARE(later.doubleForKey(SettingsKey::UsageLimit), 0.65);
        QCOMPARE(later.objectForKey(SettingsKey::PurgeAfterHugeAppQuit), QVariant(false));
    }

    void withoutATrayThePanelOpensAtStartAndOnRequest()
    {
        auto controller = makeController();
        controller->awakeFromNib();
        QVERIFY(!controller->statusItem());
        QVERIFY(controller->panel()->isVisible());
        QVERIFY(!controller->panel()->isLocked());
        controller->panel()->close();
        QBPurgeController::ShowMainWindowAndMakeActive(m_home->center);
        QVERIFY(controller->panel()->isVisible());
        m_home->center.post(QStringLiteral("ShowWindowAfterStart"));
        QVERIFY(controller->panel()->isVisible()); // already open: stays open
    }

    // Started before the desktop's tray host: the panel opens as a window, the icon comes with the
    // host, and nothing of the fallback is stored.
    void aTrayHostThatComesLaterGetsTheIcon()
    {
        bool trayThere = false;
        auto collaborators = controllerCollaborators(*m_home);
        collaborators.useTray = true;
        collaborators.trayProbe = [&] { return trayThere; };
        QBPurgeController controller(collaborators);
        controller.awakeFromNib();
        QVERIFY(!controller.statusItem());
        QVERIFY(controller.panel()->isVisible());
        QVERIFY(!controller.panel()->isLocked());
        trayThere = true;
        m_home->clock.advance(500);
        QVERIFY(controller.statusItem());
        QVERIFY(!controller.statusItem()->icon().isNull());
        QVERIFY(!UserDefaults(m_home->standard.filePath()).contains(SettingsKey::WindowLock));
        // A click on the new icon attaches the open window under it.
        controller.statusItemAction();
        QVERIFY(controller.panel()->isVisible());
        QVERIFY(controller.panel()->isLocked());
        QVERIFY(m_home->settings.isWindowLocked());
    }

    void showInfoIsWrittenOnlyWhenItChanges()
    {
        auto controller = makeController();
        controller->awakeFromNib(); // no tray: the panel is open
        QVERIFY(controller->panel()->isVisible());
        WriteCounter writes(m_home->standard.filePath());
        QVERIFY(writes.isValid());
        controller->onTogglePanelInfo(); // closes it
        QVERIFY(!controller->panel()->isVisible());
        QCOMPARE(writes.count(), 1);
        QCOMPARE(UserDefaults(m_home->standard.filePath()).objectForKey(SettingsKey::ShowInfo), QVariant(false));
        controller->statusItemAction(); // opens, as a click on the icon does
        QVERIFY(controller->panel()->isVisible());
        controller->panel()->close(); // "ShowInfo" is false already
        QCOMPARE(writes.count(), 1);
    }

    // With no icon geometry (a StatusNotifierItem host) and no click, the panel opens in the top-right
    // corner of the screen that holds the pointer, wherever the pointer is.
    void withoutIconGeometryThePanelOpensInTheTopRightCorner()
    {
        auto controller = makeController();
        controller->awakeFromNib();
        controller->panel()->close();
        const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
        QCursor::setPos(area.center());
        const QRect frame = controller->statusItemFrame();
        QCOMPARE(frame.right(), area.right());
        QVERIFY(frame.bottom() < area.top());
    }

    void welcomeDialogIsShownOnce()
    {
        const auto welcomeVisible = [] {
            const auto widgets = QApplication::topLevelWidgets();
            return std::any_of(widgets.begin(), widgets.end(), [](QWidget* w) {
                return w->objectName() == QLatin1String("WelcomeDialog") && w->isVisible();
            });
        };
        m_home->standard.removeObjectForKey(SettingsKey::WelcomeDialogDisplayed);
        {
            auto controller = makeController();
            controller->awakeFromNib();
            QVERIFY(welcomeVisible());
            QVERIFY(m_home->standard.boolForKey(SettingsKey::WelcomeDialogDisplayed));
            // A click on the tray icon closes the welcome dialog first.
            controller->statusItemAction();
            QVERIFY(!welcomeVisible());
        }
        auto again = makeController();
        again->awakeFromNib();
        QVERIFY(!welcomeVisible());
    }

    void statusIconAndMenu()
    {
        QCOMPARE(QBPurgeController::statusIconImageForState(true), QStringLiteral("offon_91"));
        QCOMPARE(QBPurgeController::statusIconImageForState(false), QStringLiteral("offon_90"));
        auto controller = makeController();
        controller->awakeFromNib();
        QVERIFY(controller->statusIcon(true).isMask());
        QGuiApplication::setApplicationDisplayName(QStringLiteral("Trovix"));
        controller->validateMenu();
        QHash<QString, QAction*> actions;
        for (QAction* a : controller->theMenu()->actions())
            actions.insert(a->text(), a);
        QVERIFY(actions.contains(QStringLiteral("About Trovix")));
        QVERIFY(actions.contains(QStringLiteral("Hide Information"))); // the panel is open (no tray)
        QSignalSpy quit(controller.get(), &QBPurgeController::quitRequested);
        QVERIFY(actions.contains(QStringLiteral("Quit Trovix")));
        actions.value(QStringLiteral("Quit Trovix"))->trigger();
        QCOMPARE(quit.size(), 1);
    }

    void memoryLevelIconNames_data()
    {
        QTest::addColumn<double>("fraction");
        QTest::addColumn<QString>("name");
        QTest::newRow("coarse below half") << 0.33 << "icon_memory_35";
        QTest::newRow("two-steps from half") << 0.61 << "icon_memory_62";
        QTest::newRow("fine around three quarters") << 0.751 << "icon_memory_75";
        QTest::newRow("two-steps just outside it") << 0.77 << "icon_memory_78";
        QTest::newRow("fine from ninety") << 0.934 << "icon_memory_93";
    }
    void memoryLevelIconNames()
    {
        QFETCH(double, fraction);
        QFETCH(QString, name);
        QCOMPARE(QBPurgeController::getIconWithOcupiedPercent(fraction), name);
    }

    // The delegate's launch steps.

    void showWindowAfterStartCountsOnlyAfterTheProgramName()
    {
        m_home->standard.setObject(true, SettingsKey::SuppressAlertMoveToApplications);
        auto controller = makeController();
        QBAppDelegate delegate(*controller, m_home->settings, m_home->center, m_home->distributed);
        int posts = 0;
        QObject ctx;
        m_home->center.addObserver(QStringLiteral("ShowWindowAfterStart"), nullptr, &ctx,
                                   [&](const Notification&) { ++posts; });
        delegate.applicationDidFinishLaunching({QStringLiteral("ShowWindowAfterStart")});
        QCOMPARE(posts, 0);
        delegate.applicationDidFinishLaunching(
            {QStringLiteral("/usr/bin/trovix"), QStringLiteral("ShowWindowAfterStart")});
        QCOMPARE(posts, 1);
    }

    void panelSearchRunsInTheStoredLocationElseInHome()
    {
        QTemporaryDir place;
        const QString report = place.path() + QStringLiteral("/Docs/Quarter-Report.txt");
        QVERIFY(writeFile(report, {}));
        m_home->settings.saveSearchLocation(QUrl::fromLocalFile(place.path()));
        SearchManager manager(m_home->center);
        auto collaborators = controllerCollaborators(*m_home);
        collaborators.searchManager = &manager;
        QBPurgeController controller(collaborators);
        QSignalSpy finished(&manager, &SearchManager::searchFinished);

        controller.panelSearchRequested(QStringLiteral("REPORT"));
        QVERIFY(finished.wait(10000));
        QCOMPARE(manager.searchLocation(), place.path());
        QCOMPARE(manager.searchTemplate(), QStringLiteral("REPORT"));
        QCOMPARE(manager.getSearchResultArray().size(), 1);
        QCOMPARE(manager.getSearchResultArray().constFirst()->fullFileNameWithPath(), report);

        // A stored folder that has gone: the search runs in home instead.
        QVERIFY(place.remove());
        controller.panelSearchRequested(QStringLiteral("report"));
        QVERIFY(finished.wait(10000));
        QCOMPARE(manager.searchLocation(), QDir::homePath());
        QVERIFY(manager.getSearchResultArray().isEmpty());
    }

    void legacyLoginKeysAreRemoved()
    {
        m_home->standard.setObject(true, SettingsKey::AutoStart);
        m_home->standard.setObject(QStringLiteral("yes"), SettingsKey::AutoStartToggledByUser);
        m_home->standard.setObject(true, SettingsKey::SuppressAlertMoveToApplications);
        auto controller = makeController();
        QBAppDelegate delegate(*controller, m_home->settings, m_home->center, m_home->distributed);
        delegate.applicationDidFinishLaunching({"trovix"});
        const UserDefaults reread(m_home->standard.filePath());
        QVERIFY(!reread.contains(SettingsKey::AutoStart));
        QVERIFY(!reread.contains(SettingsKey::AutoStartToggledByUser));
    }

    void installedLocations_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("installed");
        QTest::newRow("package") << "/usr/bin/trovix" << true;
        QTest::newRow("local bin") << "/home/u/.local/bin/trovix" << true;
        QTest::newRow("build tree") << "/home/u/src/trovix/build/trovix" << false;
        QTest::newRow("prefix lookalike") << "/usrlocal/trovix" << false;
    }
    void installedLocations()
    {
        QFETCH(QString, path);
        QFETCH(bool, installed);
        QCOMPARE(QBAppDelegate::isInstalledLocation(path, QStringLiteral("/home/u")), installed);
    }

    void installCopyPlacesBinaryEntryAndIcon()
    {
        QTemporaryDir root;
        const QString fakeBinary = root.filePath(QStringLiteral("trovix-download"));
        QVERIFY(writeScript(fakeBinary, "#!/bin/sh\necho hi\n"));
        const QString bin = root.filePath(QStringLiteral("home dir/.local/bin"));
        const QString data = root.filePath(QStringLiteral("home dir/.local/share"));
        for (int round = 0; round < 2; ++round) { // a second copy replaces the first
            const auto result = QBAppDelegate::installCopy(fakeBinary, bin, data);
            QVERIFY2(result.copied, qPrintable(result.error));
            QCOMPARE(result.destination, bin + QStringLiteral("/trovix"));
        }
        QCOMPARE(readFile(bin + QStringLiteral("/trovix")), QByteArray("#!/bin/sh\necho hi\n"));
        QVERIFY(QFile::permissions(bin + QStringLiteral("/trovix")) & QFile::ExeOwner);
        const QByteArray text = readFile(data + QStringLiteral("/applications/com.quorbel.trovix.desktop"));
        QVERIFY(text.contains("Exec=" + QFile::encodeName(bin) + "/trovix\n"));
        QVERIFY(QFile::exists(data + QStringLiteral("/icons/hicolor/scalable/apps/com.quorbel.trovix.svg")));
        QVERIFY(!QFile::exists(bin + QStringLiteral("/trovix.new")));
    }
};

QTEST_MAIN(TestQBPurgeController)
#include "TestQBPurgeController.moc"
