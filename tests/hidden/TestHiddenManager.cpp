#include "app/NotificationCenter.h"
#include "app/Settings.h"
#include "app/UserDefaults.h"
#include "hidden/DiskAccessRestoreManager.h"
#include "hidden/HiddenManager.h"
#include "hidden/Preferences.h"
#include "hidden/VisibilityRestorerAtLaunch.h"
#include "support/HiddenFakeScriptRunner.h"
#include "support/ManualClock.h"
#include "util/MacOSVersion.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {
const QString kCheck = QStringLiteral("CheckHiddenFilesFisibilityByAskingFinder");
const QString kSwitch = QStringLiteral("SwitchHiddenFilesVisibility2");
const QString kShow = QStringLiteral("ShowHiddensAndRelaunchFinder");
const QString kHide = QStringLiteral("HideHiddensAndRelaunchFinder");
const QString kStateUpdate = QStringLiteral("HiddenManager stateUpdateNotificationName");
const QString kStatusChanged = QStringLiteral("showHiddenStatusChangedNotification");

void drain()
{
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
}
} // namespace

// HiddenManager's state machine against a runner whose scripts end when the test says so.
class TestHiddenManager : public QObject
{
    Q_OBJECT

    struct Rig
    {
        QTemporaryDir dir;
        UserDefaults standard{dir.filePath(QStringLiteral("standard.json"))};
        UserDefaults group{dir.filePath(QStringLiteral("group.json"))};
        MacOSVersion version;
        ManualClock clock;
        Settings settings{standard, group, version, clock};
        NotificationCenter center;
        HiddenFakeScriptRunner runner;
        HiddenFakeAlerts alerts;
        QObject alertsGuard;
        Preferences preferences{standard};
        DiskAccessRestoreManager diskAccess{standard};
        QStringList assertions;
        QStringList posted;
        std::unique_ptr<HiddenManager> manager;

        explicit Rig(std::optional<QString> systemVersion = std::nullopt)
            : version(std::move(systemVersion))
        {
        }

        HiddenManager& make()
        {
            HiddenManager::Collaborators c;
            c.settings = &settings;
            c.center = &center;
            c.runner = &runner;
            c.version = &version;
            c.clock = &clock;
            c.preferences = &preferences;
            c.diskAccess = &diskAccess;
            c.assertionHandler = [this](const QString& text) { assertions << text; };
            manager = std::make_unique<HiddenManager>(c);
            manager->setAlerts(&alerts, &alertsGuard);
            for (const QString& name : {kStateUpdate, kStatusChanged})
                center.addObserver(name, nullptr, nullptr, [this](const Notification& n) { posted << n.name; });
            return *manager;
        }

        // The explanation was accepted earlier: switches run their scripts, states are asked for.
        void accepted()
        {
            settings.setShouldShowInformationAboutAccessibilityAlerts(false);
            settings.setShouldCheckHiddenFilesVisibility(true);
        }

        // Loads a state through the check script.
        void load(bool shown)
        {
            manager->loadVisibilityState();
            runner.finish(shown ? QStringList{QStringLiteral(".a"), QStringLiteral("b")}
                                : QStringList{QStringLiteral("b")});
            drain();
        }
    };

private Q_SLOTS:
    void replyScan_data()
    {
        QTest::addColumn<QStringList>("reply");
        QTest::addColumn<bool>("shown");
        QTest::newRow("empty") << QStringList{} << false;
        QTest::newRow("dot-name first") << QStringList{QStringLiteral(".bashrc"), QStringLiteral("Documents")} << true;
        QTest::newRow("dot-name only in the last item")
            << QStringList{QStringLiteral("Documents"), QStringLiteral("Music"), QStringLiteral(".zshrc")} << false;
        QTest::newRow("single dot-name") << QStringList{QStringLiteral(".profile")} << false;
        QTest::newRow("dot-name second of three")
            << QStringList{QStringLiteral("a"), QStringLiteral(".b"), QStringLiteral("c")} << true;
    }
    void replyScan()
    {
        QFETCH(QStringList, reply);
        QFETCH(bool, shown);
        Rig rig;
        rig.accepted();
        HiddenManager& m = rig.make();
        // Start from the opposite state so that a missing update shows.
        if (!shown)
            rig.load(true);
        QCOMPARE(m.isHiddenShown(), !shown);
        m.loadVisibilityState();
        QVERIFY(m.isUpdating());
        QCOMPARE(rig.runner.finish(reply), kCheck);
        drain();
        QCOMPARE(m.isHiddenShown(), shown);
        QVERIFY(!m.isUpdating());
        QVERIFY(m.lastLoadSucceeded());
        QCOMPARE(rig.group.boolForKey(QStringLiteral("AreHiddenFilesVisibleKey")), shown);
    }

    void failedCheckKeepsStateAndStillCallsWaitingBlocks()
    {
        Rig rig;
        rig.accepted();
        HiddenManager& m = rig.make();
        rig.load(true);
        int called = 0;
        m.loadVisibilityWithCompletion([&] { ++called; });
        m.loadVisibilityWithCompletion([&] { called += 10; });
        rig.runner.finish({}, ScriptError{QStringLiteral("d"), 2, QStringLiteral("no backend")});
        rig.runner.finish({}, ScriptError{QStringLiteral("d"), 2, QStringLiteral("no backend")});
        drain();
        QCOMPARE(called, 11);
        QVERIFY(m.isHiddenShown());
        QVERIFY(!m.lastLoadSucceeded());
        QVERIFY(!m.isUpdating());
    }

    void checkSwitchedOffAnswersWithoutScript()
    {
        Rig rig; // 10.14 or later: no check until the explanation was accepted
        HiddenManager& m = rig.make();
        bool called = false;
        m.loadVisibilityWithCompletion([&] { called = true; });
        QVERIFY(rig.runner.pending.empty());
        drain();
        QVERIFY(called);
        QVERIFY(!m.lastLoadSucceeded());
    }

    void pollLoadsOnceAfterStartAndAfterActivation()
    {
        Rig rig;
        rig.accepted();
        HiddenManager& m = rig.make();
        m.startTrackingSystemValue();
        m.startTrackingSystemValue(); // one timer only
        rig.clock.advance(999);
        QVERIFY(rig.runner.pending.empty());
        rig.clock.advance(1);
        QCOMPARE(rig.runner.history, QStringList{kCheck});
        // While the check runs, ticks skip.
        m.applicationDidBecomeActiveAction();
        rig.clock.advance(3000);
        QCOMPARE(rig.runner.history.size(), 1);
        rig.runner.finish({QStringLiteral(".x"), QStringLiteral("y")});
        drain();
        QVERIFY(m.isHiddenShown());
        // The activation during the check asks again at the next tick; then nothing more.
        rig.clock.advance(1000);
        QCOMPARE(rig.runner.history.size(), 2);
        rig.runner.finish({QStringLiteral("y")});
        drain();
        rig.clock.advance(5000);
        QCOMPARE(rig.runner.history.size(), 2);
        QVERIFY(!m.isHiddenShown());
        m.stopTrackingSystemValue();
        m.applicationDidBecomeActiveAction();
        rig.clock.advance(5000);
        QCOMPARE(rig.runner.history.size(), 2);
    }

    void switchFlipsAtOnceAndRereadsAfterward()
    {
        Rig rig;
        rig.accepted();
        HiddenManager& m = rig.make();
        rig.load(false);
        rig.posted.clear();
        m.startTrackingSystemValue();
        std::optional<std::optional<ScriptError>> result;
        bool updatingDuringCompletion = false;
        m.switchHiddenFilesVisibilityWithCompletion([&](const std::optional<ScriptError>& e) {
            result = e;
            updatingDuringCompletion = m.isUpdating();
        });
        QVERIFY(m.isHiddenShown());
        QVERIFY(m.isUpdating());
        QCOMPARE(rig.posted, (QStringList{kStateUpdate, kStatusChanged, kStateUpdate}));
        QCOMPARE(rig.runner.finish(), kSwitch);
        QVERIFY(!result); // the completion runs on the main queue
        drain();
        QVERIFY(result && !*result);
        QVERIFY(updatingDuringCompletion);
        QVERIFY(!m.isUpdating());
        QVERIFY(m.isHiddenShown());
        QVERIFY(m.needsLoadVisibilityState());
        // The next poll asks the file manager again.
        rig.clock.advance(1000);
        QCOMPARE(rig.runner.nextName(), kCheck);
    }

    void secondSwitchWhileRunningIsIgnored()
    {
        Rig rig;
        rig.accepted();
        HiddenManager& m = rig.make();
        int completions = 0;
        m.switchHiddenFilesVisibilityWithCompletion([&](const auto&) { ++completions; });
        m.switchHiddenFilesVisibilityWithCompletion([&](const auto&) { completions += 100; });
        m.switchHiddenFilesVisibility();
        QCOMPARE(rig.runner.history, QStringList{kSwitch});
        QVERIFY(m.isHiddenShown());
        rig.runner.finish();
        drain();
        QCOMPARE(completions, 1);
    }

    void failedSwitchUndoesTheFlipAndShowsTheAlert_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<bool>("undone");
        QTest::newRow("10.14") << QStringLiteral("10.14") << true;
        QTest::newRow("10.13 keeps the flip until the next poll") << QStringLiteral("10.13.6") << false;
    }
    void failedSwitchUndoesTheFlipAndShowsTheAlert()
    {
        QFETCH(QString, version);
        QFETCH(bool, undone);
        Rig rig(version);
        rig.accepted();
        HiddenManager& m = rig.make();
        std::optional<ScriptError> got;
        m.switchHiddenFilesVisibilityWithCompletion([&](const std::optional<ScriptError>& e) { got = e; });
        QVERIFY(m.isHiddenShown());
        rig.runner.finish({},
                          ScriptError{QStringLiteral("com.quorbel.trovix"), 1, QStringLiteral("error -1743 Finder")});
        drain();
        QVERIFY(got);
        QCOMPARE(got->code, 1);
        QCOMPARE(m.isHiddenShown(), !undone);
        QCOMPARE(rig.alerts.accessErrors, undone ? QStringList{QStringLiteral("error -1743 Finder")} : QStringList{});
        QVERIFY(!m.isUpdating());
        QCOMPARE(rig.group.boolForKey(QStringLiteral("AreHiddenFilesVisibleKey")), !undone);
    }

    void relaunchTypePicksScriptByOldState_data()
    {
        QTest::addColumn<bool>("shownBefore");
        QTest::addColumn<QString>("script");
        QTest::newRow("shown -> hide") << true << kHide;
        QTest::newRow("hidden -> show") << false << kShow;
    }
    void relaunchTypePicksScriptByOldState()
    {
        QFETCH(bool, shownBefore);
        QFETCH(QString, script);
        Rig rig;
        rig.accepted();
        HiddenManager& m = rig.make();
        m.setScriptType(HiddenManager::HiddenManagerScriptTypeRelaunchFinder);
        rig.load(shownBefore);
        m.switchHiddenFilesVisibility();
        QCOMPARE(rig.runner.nextName(), script);
    }

    void informationSheetAccepted_data()
    {
        QTest::addColumn<bool>("loadedShown");
        QTest::addColumn<bool>("switches");
        // The user asked to show (state was hidden): switch only if the re-read state still differs.
        QTest::newRow("still hidden: switch") << false << true;
        QTest::newRow("already shown: no switch") << true << false;
    }
    void informationSheetAccepted()
    {
        QFETCH(bool, loadedShown);
        QFETCH(bool, switches);
        Rig rig; // 10.14 or later defaults: the sheet comes first, no check yet
        HiddenManager& m = rig.make();
        VisibilityRestorerAtLaunch restorer(m, rig.runner);
        bool completed = false;
        m.switchHiddenFilesVisibilityWithCompletion([&](const std::optional<ScriptError>& e) { completed = !e; });
        QCOMPARE(rig.alerts.informationShown, 1);
        QVERIFY(m.isHiddenShown());
        QVERIFY(rig.runner.pending.empty());

        rig.alerts.informationCompletion(true);
        QVERIFY(!m.isHiddenShown()); // flip undone
        QVERIFY(completed);
        QVERIFY(!rig.settings.shouldShowInformationAboutAccessibilityAlerts());
        QVERIFY(rig.settings.shouldCheckHiddenFilesVisibility());
        // The restorer heard of the attempt and wrote the (unchanged) state.
        QCOMPARE(rig.runner.finish(), QStringLiteral("WriteIntoSystemPreferencesHideHiddens"));
        QCOMPARE(rig.runner.nextName(), kCheck);
        rig.runner.finish(loadedShown ? QStringList{QStringLiteral(".a"), QStringLiteral("b")}
                                      : QStringList{QStringLiteral("b")});
        drain();
        QCOMPARE(rig.runner.nextName(), switches ? kSwitch : QString());
        QCOMPARE(rig.alerts.informationShown, 1);
        if (switches) {
            rig.runner.finish();
            drain();
            QVERIFY(m.isHiddenShown());
            // A switch without completion does not tell the listener.
            QVERIFY(rig.runner.pending.empty());
        }
    }

    void informationSheetDeclined()
    {
        Rig rig;
        HiddenManager& m = rig.make();
        m.switchHiddenFilesVisibility();
        rig.alerts.informationCompletion(false);
        QVERIFY(!m.isHiddenShown());
        QVERIFY(rig.settings.shouldShowInformationAboutAccessibilityAlerts());
        QVERIFY(!rig.settings.shouldCheckHiddenFilesVisibility());
        QVERIFY(rig.runner.pending.empty());
    }

    void setShowHiddenSwitchesOnlyWhenDifferentAndNeverCallsBack_data()
    {
        QTest::addColumn<bool>("loaded");
        QTest::addColumn<bool>("wanted");
        QTest::addColumn<bool>("switches");
        QTest::newRow("equal") << true << true << false;
        QTest::newRow("different") << false << true << true;
    }
    void setShowHiddenSwitchesOnlyWhenDifferentAndNeverCallsBack()
    {
        QFETCH(bool, loaded);
        QFETCH(bool, wanted);
        QFETCH(bool, switches);
        Rig rig;
        rig.accepted();
        HiddenManager& m = rig.make();
        m.startTrackingSystemValue();
        rig.clock.advance(1000);
        rig.runner.finish({QStringLiteral("x")});
        drain();
        bool called = false;
        m.setShowHidden(wanted, [&](const auto&) { called = true; });
        QVERIFY(rig.runner.pending.empty());
        rig.clock.advance(1000);
        QCOMPARE(rig.runner.finish(loaded ? QStringList{QStringLiteral(".a"), QStringLiteral("b")} : QStringList{}),
                 kCheck);
        drain();
        QCOMPARE(rig.runner.nextName(), switches ? kSwitch : QString());
        if (switches) {
            rig.runner.finish();
            drain();
        }
        QVERIFY(!called);
    }

    void scriptTypeFollowsVersionAndOption_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<int>("option");
        QTest::addColumn<int>("type");
        QTest::addColumn<QStringList>("assertions");
        const QStringList none;
        const QStringList unsupported{QStringLiteral("Such scripts are not supported for 10.12 and earlier")};
        QTest::newRow("10.13 default") << QStringLiteral("10.13") << 0 << 0 << none;
        QTest::newRow("10.13 single") << QStringLiteral("10.13") << 1 << 0 << none;
        QTest::newRow("10.13 relaunch") << QStringLiteral("10.13") << 2 << 1 << none;
        QTest::newRow("10.13 out of range reads as default") << QStringLiteral("10.13") << 7 << 0 << none;
        QTest::newRow("10.12 default") << QStringLiteral("10.12.6") << 0 << 1 << none;
        QTest::newRow("10.12 single is refused") << QStringLiteral("10.12.6") << 1 << 1 << unsupported;
    }
    void scriptTypeFollowsVersionAndOption()
    {
        QFETCH(QString, version);
        QFETCH(int, option);
        QFETCH(int, type);
        QFETCH(QStringList, assertions);
        Rig rig(version);
        rig.standard.setObject(option, Preferences::kSwitchHiddenFilesVisibilityOptionKey);
        HiddenManager& m = rig.make();
        m.applyStoredValue();
        QCOMPARE(m.scriptType(), type);
        QCOMPARE(rig.assertions, assertions);
        QCOMPARE(m.scriptsNamesArray(),
                 type == 1 ? (QStringList{kShow, kHide, kCheck}) : (QStringList{kSwitch, kCheck}));
        QCOMPARE(m.forceSwitchHiddenFilesVisibilityEnableSwitcher(), version.startsWith(QLatin1String("10.13")));
    }

    void forceSwitchCheckbox_data()
    {
        QTest::addColumn<int>("state");
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("option");
        QTest::addColumn<QStringList>("assertions");
        QTest::newRow("off") << 0 << 0 << 1 << QStringList{};
        QTest::newRow("on") << 1 << 1 << 2 << QStringList{};
        QTest::newRow("mixed") << -1 << 0 << 2 << QStringList{QStringLiteral("Invalid parameter not satisfying: NO")};
    }
    void forceSwitchCheckbox()
    {
        QFETCH(int, state);
        QFETCH(int, type);
        QFETCH(int, option);
        QFETCH(QStringList, assertions);
        Rig rig;
        HiddenManager& m = rig.make();
        rig.preferences.setSwitchHiddenFilesVisibilityOption(SwitchHiddenFilesVisibilityOption::relaunchFinder);
        m.setScriptType(1);
        m.applySwitcherStateForForceSwitchHiddenFilesVisibility(state);
        QCOMPARE(m.scriptType(), type);
        QCOMPARE(static_cast<int>(rig.preferences.switchHiddenFilesVisibilityOption()), option);
        QCOMPARE(m.forceSwitchHiddenFilesVisibilitySwitcherState(), type);
        QCOMPARE(rig.assertions, assertions);
    }

    void switcherStateOfUnknownTypeIsAnAssertion()
    {
        Rig rig;
        HiddenManager& m = rig.make();
        m.setScriptType(5);
        QCOMPARE(m.forceSwitchHiddenFilesVisibilitySwitcherState(), 0);
        QCOMPARE(rig.assertions,
                 QStringList{QStringLiteral(
                     "Invalid parameter not satisfying: self.scriptType == HiddenManagerScriptTypeSingleSwitch")});
    }

    void scriptPresence()
    {
        Rig rig;
        HiddenManager& m = rig.make();
        int changes = 0;
        rig.center.addObserver(HiddenManager::doScriptsPlacedIntoTheSystemScriptsFolderValueChangedNotificationName(),
                               nullptr, nullptr, [&](const Notification&) { ++changes; });
        QVERIFY(!m.areAllNeededScripsPlacedIntoTheScriptsFolder());
        rig.runner.inBundle = {kSwitch};
        rig.runner.inFolder = {kCheck};
        QVERIFY(m.areAllNeededScripsExistsInBundleOrScriptsFolder());
        QVERIFY(m.canLaunchAllScripts());
        QVERIFY(!m.areAllNeededScripsPlacedIntoTheScriptsFolder());
        rig.runner.inFolder = {kCheck, kSwitch};
        QVERIFY(m.doScriptsPlacedIntoTheSystemScriptsFolder());
        m.checkDoScriptsPlacedIntoTheSystemScriptsFolder();
        m.checkDoScriptsPlacedIntoTheSystemScriptsFolder();
        QCOMPARE(changes, 1);
        m.setScriptType(1);
        QVERIFY(!m.areAllNeededScripsExistsInBundleOrScriptsFolder());
    }

    void restorerWritesOnlyForTheSingleSwitch_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("write");
        QTest::newRow("single switch") << 0 << QStringLiteral("WriteIntoSystemPreferencesShowHiddens");
        QTest::newRow("relaunch") << 1 << QString();
    }
    void restorerWritesOnlyForTheSingleSwitch()
    {
        QFETCH(int, type);
        QFETCH(QString, write);
        Rig rig;
        rig.accepted();
        HiddenManager& m = rig.make();
        auto restorer = std::make_unique<VisibilityRestorerAtLaunch>(m, rig.runner);
        m.setScriptType(type);
        m.switchHiddenFilesVisibility();
        rig.runner.finish();
        drain();
        QCOMPARE(rig.runner.nextName(), write);
        // A listener that went away is not called.
        restorer.reset();
        rig.runner.pending.clear();
        m.switchHiddenFilesVisibility();
        rig.runner.finish();
        drain();
        QVERIFY(rig.runner.pending.empty());
    }
};

QTEST_GUILESS_MAIN(TestHiddenManager)
#include "TestHiddenManager.moc"
