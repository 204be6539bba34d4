#include "hidden/DiskAccessRestoreManager.h"
#include "hidden/HiddenManager.h"
#include "hidden/Preferences.h"
#include "hidden/VisibilityRestorerAtLaunch.h"
#include "support/HiddenFakeScriptRunner.h"
#include "support/SettingsFixture.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QTest>

#include <memory>

namespace {
// Literal names: they must match the shipped script files and the listeners elsewhere.
const QString kCheck = "CheckHiddenFilesFisibilityByAskingFinder";
const QString kSwitch = "SwitchHiddenFilesVisibility2";
const QString kShow = "ShowHiddensAndRelaunchFinder";
const QString kHide = "HideHiddensAndRelaunchFinder";
const QString kStateUpdate = "HiddenManager stateUpdateNotificationName";
const QString kStatusChanged = "showHiddenStatusChangedNotification";

void drain()
{
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
}

// A check reply that does (or does not) prove hidden files are listed.
QStringList reply(bool shown)
{
    return shown ? QStringList{".a", "b"} : QStringList{"b"};
}
} // namespace

// HiddenManager's state machine against a runner whose scripts end when the test says so.
class TestHiddenManager : public QObject
{
    Q_OBJECT

    struct Rig : SettingsFixture
    {
        using SettingsFixture::SettingsFixture;
        HiddenFakeScriptRunner runner;
        HiddenFakeAlerts alerts;
        QObject alertsGuard;
        Preferences preferences{standard};
        DiskAccessRestoreManager diskAccess{standard};
        QStringList assertions;
        QStringList posted;
        std::unique_ptr<HiddenManager> manager;

        // accepted: the explanation was accepted earlier, so switches run their scripts and states are asked for.
        HiddenManager& make(bool accepted = true)
        {
            if (accepted) {
                settings.setShouldShowInformationAboutAccessibilityAlerts(false);
                settings.setShouldCheckHiddenFilesVisibility(true);
            }
            manager = std::make_unique<HiddenManager>(
                HiddenManager::Collaborators{&settings, &center, &runner, &version, &clock, &preferences, &diskAccess,
                                             [this](const QString& text) { assertions << text; }});
            manager->setAlerts(&alerts, &alertsGuard);
            for (const QString& name : {kStateUpdate, kStatusChanged})
                center.addObserver(name, nullptr, nullptr, [this](const Notification& n) { posted << n.name; });
            return *manager;
        }

        void load(bool shown)
        {
            manager->loadVisibilityState();
            runner.finish(reply(shown));
            drain();
        }

        bool stored() { return group.boolForKey("AreHiddenFilesVisibleKey"); }
    };

private Q_SLOTS:
    void load_data()
    {
        QTest::addColumn<bool>("asks"); // the check is switched on
        QTest::addColumn<QStringList>("reply");
        QTest::addColumn<bool>("failed");
        QTest::addColumn<bool>("shown");
        QTest::newRow("empty") << true << QStringList{} << false << false;
        QTest::newRow("dot-name first") << true << QStringList{".bashrc", "Documents"} << false << true;
        QTest::newRow("dot-name only last is never looked at")
            << true << QStringList{"Documents", ".zshrc"} << false << false;
        QTest::newRow("dot-name second of three") << true << QStringList{"a", ".b", "c"} << false << true;
        QTest::newRow("script fails: state kept") << true << QStringList{} << true << true;
        // 10.14 or later: no check until the explanation was accepted.
        QTest::newRow("check switched off: no script") << false << QStringList{} << true << false;
    }
    void load()
    {
        QFETCH(bool, asks);
        QFETCH(QStringList, reply);
        QFETCH(bool, failed);
        QFETCH(bool, shown);
        Rig rig;
        HiddenManager& m = rig.make(asks);
        // A success starts from the opposite state, so that a missing update shows.
        if (failed ? shown : !shown)
            rig.load(true);
        int called = 0;
        m.loadVisibilityWithCompletion([&] { ++called; });
        m.loadVisibilityWithCompletion([&] { called += 10; });
        QVERIFY(m.isUpdating());
        const auto error = failed ? std::optional(ScriptError{"d", 2, "no backend"}) : std::nullopt;
        for (int i = 0; asks && i < 2; ++i)
            QCOMPARE(rig.runner.finish(reply, error), kCheck);
        QVERIFY(rig.runner.pending.empty());
        drain();
        QCOMPARE(called, 11);
        QCOMPARE(m.isHiddenShown(), shown);
        QVERIFY(!m.isUpdating());
        QCOMPARE(m.lastLoadSucceeded(), !failed);
        QCOMPARE(rig.stored(), shown);
    }

    void pollLoadsAfterStartActivationAndSetShowHidden_data()
    {
        QTest::addColumn<bool>("loaded"); // what the load after setShowHidden(true) finds
        QTest::newRow("already shown: no switch") << true;
        QTest::newRow("still hidden: switch") << false;
    }
    void pollLoadsAfterStartActivationAndSetShowHidden()
    {
        QFETCH(bool, loaded);
        Rig rig;
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
        rig.runner.finish(reply(true));
        drain();
        QVERIFY(m.isHiddenShown());
        // The activation during the check asks again at the next tick; then nothing more.
        rig.clock.advance(1000);
        QCOMPARE(rig.runner.history.size(), 2);
        rig.runner.finish(reply(false));
        drain();
        rig.clock.advance(5000);
        QCOMPARE(rig.runner.history.size(), 2);
        QVERIFY(!m.isHiddenShown());

        // setShowHidden waits for the next poll's load, switches only when that differs, and never calls back.
        bool called = false;
        m.setShowHidden(true, [&](const auto&) { called = true; });
        QVERIFY(rig.runner.pending.empty());
        rig.clock.advance(1000);
        QCOMPARE(rig.runner.finish(reply(loaded)), kCheck);
        drain();
        QCOMPARE(rig.runner.nextName(), loaded ? QString() : kSwitch);
        if (!loaded)
            rig.runner.finish();
        drain();
        QVERIFY(!called);

        m.stopTrackingSystemValue();
        m.applicationDidBecomeActiveAction();
        rig.clock.advance(5000);
        QVERIFY(rig.runner.pending.empty());
    }

    void switchFlipsAtOnceAndRereadsAfterward_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<bool>("failed");
        QTest::addColumn<bool>("undone");
        QTest::newRow("succeeds") << "10.14" << false << false;
        QTest::newRow("fails: flip undone, alert shown") << "10.14" << true << true;
        QTest::newRow("fails on 10.13: flip kept until the next poll") << "10.13.6" << true << false;
    }
    void switchFlipsAtOnceAndRereadsAfterward()
    {
        QFETCH(QString, version);
        QFETCH(bool, failed);
        QFETCH(bool, undone);
        Rig rig(version);
        HiddenManager& m = rig.make();
        rig.load(false);
        rig.posted.clear();
        m.startTrackingSystemValue();
        std::optional<std::optional<ScriptError>> result;
        bool updatingDuringCompletion = false;
        m.switchHiddenFilesVisibilityWithCompletion([&](const std::optional<ScriptError>& e) {
            QVERIFY(!result);
            result = e;
            updatingDuringCompletion = m.isUpdating();
        });
        QVERIFY(m.isHiddenShown());
        QVERIFY(m.isUpdating());
        QCOMPARE(rig.posted, (QStringList{kStateUpdate, kStatusChanged, kStateUpdate}));
        // A second switch while the first runs is dropped, completion and all.
        m.switchHiddenFilesVisibilityWithCompletion([&](const auto&) { QFAIL("second switch completed"); });
        QCOMPARE(rig.runner.history, (QStringList{kCheck, kSwitch}));
        QVERIFY(m.isHiddenShown());
        const auto error =
            failed ? std::optional(ScriptError{"com.quorbel.trovix", 1, "error -1743 Finder"}) : std::nullopt;
        // A failure leaves exactly one line in the log, the script's own.
        QTest::failOnWarning(QRegularExpression("."));
        if (failed)
            QTest::ignoreMessage(QtWarningMsg, "error -1743 Finder");
        QCOMPARE(rig.runner.finish({}, error), kSwitch);
        QVERIFY(!result); // the completion runs on the main queue
        drain();
        QVERIFY(result);
        QCOMPARE(result->has_value(), failed);
        QVERIFY(updatingDuringCompletion);
        QVERIFY(!m.isUpdating());
        QCOMPARE(m.isHiddenShown(), !undone);
        QCOMPARE(rig.stored(), !undone);
        QCOMPARE(rig.alerts.accessErrors, undone ? QStringList{"error -1743 Finder"} : QStringList{});
        // The next poll asks the file manager again.
        rig.clock.advance(1000);
        QCOMPARE(rig.runner.nextName(), kCheck);
    }

    // Which script a switch runs, and whether the restorer then writes the new state for later starts.
    void switchScriptAndRestorer_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<bool>("shownBefore");
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("write");
        QTest::newRow("single switch, show") << 0 << false << kSwitch << "WriteIntoSystemPreferencesShowHiddens";
        QTest::newRow("relaunch, hide") << 1 << true << kHide << QString();
        QTest::newRow("relaunch, show") << 1 << false << kShow << QString();
    }
    void switchScriptAndRestorer()
    {
        QFETCH(int, type);
        QFETCH(bool, shownBefore);
        QFETCH(QString, script);
        QFETCH(QString, write);
        Rig rig;
        HiddenManager& m = rig.make();
        auto restorer = std::make_unique<VisibilityRestorerAtLaunch>(m, rig.runner);
        m.setScriptType(type);
        rig.load(shownBefore);
        m.switchHiddenFilesVisibility();
        QCOMPARE(rig.runner.finish(), script);
        drain();
        QCOMPARE(rig.runner.nextName(), write);
        // Nobody waits for that write, but its failure is logged.
        if (!write.isEmpty()) {
            QTest::ignoreMessage(QtWarningMsg, "cannot store the hidden-files setting");
            QCOMPARE(rig.runner.finish({}, ScriptError{"d", 1, "cannot store the hidden-files setting"}), write);
        }
        // A listener that went away is not called.
        restorer.reset();
        rig.runner.pending.clear();
        m.switchHiddenFilesVisibility();
        QVERIFY(!rig.runner.finish().isEmpty());
        drain();
        QVERIFY(rig.runner.pending.empty());
    }

    void informationSheet_data()
    {
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<bool>("loadedShown");
        QTest::newRow("declined") << false << false;
        QTest::newRow("accepted, still hidden: switch") << true << false;
        QTest::newRow("accepted, already shown: no switch") << true << true;
    }
    void informationSheet()
    {
        QFETCH(bool, accepted);
        QFETCH(bool, loadedShown);
        Rig rig; // 10.14 or later defaults: the sheet comes first, no check yet
        HiddenManager& m = rig.make(false);
        VisibilityRestorerAtLaunch restorer(m, rig.runner);
        bool completed = false;
        m.switchHiddenFilesVisibilityWithCompletion([&](const std::optional<ScriptError>& e) { completed = !e; });
        QCOMPARE(rig.alerts.informationShown, 1);
        QVERIFY(m.isHiddenShown());
        QVERIFY(rig.runner.pending.empty());

        rig.alerts.informationCompletion(accepted);
        QVERIFY(!m.isHiddenShown()); // flip undone
        QVERIFY(completed);
        QCOMPARE(rig.settings.shouldShowInformationAboutAccessibilityAlerts(), !accepted);
        QCOMPARE(rig.settings.shouldCheckHiddenFilesVisibility(), accepted);
        // The restorer heard of the attempt and wrote the (unchanged) state.
        QCOMPARE(rig.runner.finish(), QStringLiteral("WriteIntoSystemPreferencesHideHiddens"));
        QCOMPARE(rig.runner.nextName(), accepted ? kCheck : QString());
        if (!accepted)
            return;
        rig.runner.finish(reply(loadedShown));
        drain();
        // The user asked to show: the switch follows only if the re-read state still differs.
        QCOMPARE(rig.runner.nextName(), loadedShown ? QString() : kSwitch);
        QCOMPARE(rig.alerts.informationShown, 1);
        if (!loadedShown) {
            rig.runner.finish();
            drain();
            QVERIFY(m.isHiddenShown());
            // A switch without completion does not tell the listener.
            QVERIFY(rig.runner.pending.empty());
        }
    }

    void scriptTypeFollowsVersionOptionAndCheckbox_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<int>("stored");   // the option's raw value
        QTest::addColumn<int>("checkbox"); // -2: left alone
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("option");
        QTest::addColumn<QStringList>("assertions");
        QTest::newRow("10.13 default") << "10.13" << 0 << -2 << 0 << 0 << QStringList{};
        QTest::newRow("10.13 single") << "10.13" << 1 << -2 << 0 << 1 << QStringList{};
        QTest::newRow("10.13 relaunch") << "10.13" << 2 << -2 << 1 << 2 << QStringList{};
        QTest::newRow("10.13 out of range reads as default") << "10.13" << 7 << -2 << 0 << 0 << QStringList{};
        QTest::newRow("10.12 default") << "10.12.6" << 0 << -2 << 1 << 0 << QStringList{};
        QTest::newRow("10.12 single is refused")
            << "10.12.6" << 1 << -2 << 1 << 1 << QStringList{"Such scripts are not supported for 10.12 and earlier"};
        QTest::newRow("checkbox off") << "10.13" << 2 << 0 << 0 << 1 << QStringList{};
        QTest::newRow("checkbox on") << "10.13" << 0 << 1 << 1 << 2 << QStringList{};
        QTest::newRow("checkbox mixed") << "10.13" << 2 << -1 << 0 << 2
                                        << QStringList{"Invalid parameter not satisfying: NO"};
    }
    void scriptTypeFollowsVersionOptionAndCheckbox()
    {
        QFETCH(QString, version);
        QFETCH(int, stored);
        QFETCH(int, checkbox);
        QFETCH(int, type);
        QFETCH(int, option);
        QFETCH(QStringList, assertions);
        Rig rig(version);
        rig.standard.setObject(stored, Preferences::kSwitchHiddenFilesVisibilityOptionKey);
        HiddenManager& m = rig.make(false);
        m.applyStoredValue();
        if (checkbox != -2)
            m.applySwitcherStateForForceSwitchHiddenFilesVisibility(checkbox);
        QCOMPARE(m.scriptType(), type);
        QCOMPARE(m.forceSwitchHiddenFilesVisibilitySwitcherState(), type);
        QCOMPARE(static_cast<int>(rig.preferences.switchHiddenFilesVisibilityOption()), option);
        QCOMPARE(rig.assertions, assertions);
        QCOMPARE(m.scriptsNamesArray(),
                 type == 1 ? (QStringList{kShow, kHide, kCheck}) : (QStringList{kSwitch, kCheck}));
        QCOMPARE(m.forceSwitchHiddenFilesVisibilityEnableSwitcher(), version.startsWith("10.13"));
    }

    void scriptPresence()
    {
        Rig rig;
        HiddenManager& m = rig.make(false);
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
};

QTEST_GUILESS_MAIN(TestHiddenManager)
#include "TestHiddenManager.moc"
