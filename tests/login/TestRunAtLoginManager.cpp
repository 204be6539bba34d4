#include "core/DistributedNotificationCenter.h"
#include "core/Settings.h"
#include "core/UserDefaults.h"
#include "login/RunAtLoginManager.h"
#include "support/Files.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <signal.h>

// Start at login over real autostart folders (the user's and a system one), a private session bus, and the
// real launcher program starting the real Trovix.
class TestRunAtLoginManager : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_config;
    QString m_system;
    QString m_main;
    QString m_launcher;
    std::unique_ptr<DistributedNotificationCenter> m_center;
    QSet<QString> m_running;

    std::unique_ptr<TrovixProjectRunAtLoginManager> make()
    {
        return std::make_unique<TrovixProjectRunAtLoginManager>(
            RunAtLoginManager::Places{m_config, {m_system}, m_main, m_launcher}, *m_center,
            [this](const QString& id) { return m_running.contains(id); });
    }

    static void write(const QString& path, const QByteArray& text, bool executable = false)
    {
        QVERIFY(executable ? writeScript(path, text) : writeFile(path, text));
    }

    QString autostart(const QString& name) const { return m_config + "/autostart/" + name; }

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_dir.isValid());
        const QString base = m_dir.filePath(QString::number(QDateTime::currentMSecsSinceEpoch()) + " x");
        m_config = base + "/config";
        m_system = base + "/xdg";
        m_main = base + "/bin/trovix";
        m_launcher = base + "/bin/trovix-launcher";
        write(m_main, "#!/bin/sh\n", true);
        write(m_launcher, "#!/bin/sh\n", true);
        m_center = std::make_unique<DistributedNotificationCenter>(QDBusConnection::sessionBus());
        m_running.clear();
    }

    void launcherEntryOnAndOff()
    {
        auto manager = make();
        int failures = 0;
        QVERIFY(!manager->isEnabledToAutoLaunchWithHelperApp());
        manager->setIsEnabledForHelperApp(true, [&] { ++failures; });
        QCOMPARE(failures, 0);
        QVERIFY(manager->isEnabledToAutoLaunchWithHelperApp());
        const QList<LoginItem> items = manager->loadSandboxedLoginItems();
        QCOMPARE(items.size(), 1);
        QCOMPARE(items.first().executablePath().value_or(QString()), m_launcher);
        QCOMPARE(items.first().applicationName(), QStringLiteral("Trovix"));

        manager->setIsEnabledForHelperApp(false, [&] { ++failures; });
        QCOMPARE(failures, 0);
        QVERIFY(!QFile::exists(autostart("com.quorbel.trovix.launcher.desktop")));
        QVERIFY(!manager->isEnabledToAutoLaunchWithHelperApp());

        // A system-wide entry can only be switched off by the user's own entry hiding it.
        write(m_system + "/autostart/com.quorbel.trovix.launcher.desktop",
              "[Desktop Entry]\nType=Application\nExec=" + m_launcher.toUtf8().replace(" ", "\\s") + "\n");
        QVERIFY(manager->isEnabledToAutoLaunchWithHelperApp());
        manager->setIsEnabledForHelperApp(false, [&] { ++failures; });
        QCOMPARE(failures, 0);
        QVERIFY(!manager->isEnabledToAutoLaunchWithHelperApp());

        // No place to write: the failure is reported, once.
        QDir(m_config + "/autostart").removeRecursively();
        write(m_config + "/autostart", "a file where the folder should be");
        manager->setIsEnabledForHelperApp(true, [&] { ++failures; });
        QCOMPARE(failures, 1);

        // The base class's placeholder identifier never matches a program.
        RunAtLoginManager base({m_config, {}, m_main, m_launcher}, *m_center, {});
        QVERIFY(base.launcherAppBundleIdentifier() != manager->launcherAppBundleIdentifier());
    }

    void legacyEntryIsMigratedOnlyOnceTheOldKeysAreGone()
    {
        // Two entries start this program: the last by name is the one found and removed.
        const QByteArray exec = "[Desktop Entry]\nType=Application\nExec=" + DesktopEntryExec() + "\n";
        write(autostart("a-trovix.desktop"), exec);
        write(autostart("com.quorbel.trovix.desktop"), exec);
        auto manager = make();
        QCOMPARE(manager->itemRefInLoginItems().value_or(QString()), autostart("com.quorbel.trovix.desktop"));

        UserDefaults defaults(m_dir.filePath("std.json"));
        defaults.setObject(true, SettingsKey::AutoStart);
        migrateLegacyLoginItem(*manager, defaults);
        QVERIFY(QFile::exists(autostart("com.quorbel.trovix.desktop"))); // left for this start
        QVERIFY(!defaults.contains(SettingsKey::AutoStart));

        migrateLegacyLoginItem(*manager, defaults);
        QVERIFY(!QFile::exists(autostart("com.quorbel.trovix.desktop")));
        QVERIFY(manager->isEnabledToAutoLaunchWithHelperApp());
        QCOMPARE(manager->itemRefInLoginItems().value_or(QString()), autostart("a-trovix.desktop"));

        manager->toggleLaunchAtLoginValue_WithoutHelperApp();
        QVERIFY(!manager->isLaunchAtStartup());
        manager->toggleLaunchAtLoginValue_WithoutHelperApp();
        QVERIFY(manager->isLaunchAtStartup());
    }

    void jobsWithoutPidCountAsSandboxed()
    {
        QVERIFY(LoginItem::jobIsSandboxed({{"Label", "x"}}));
        QVERIFY(LoginItem::jobIsSandboxed({{"PID", 5}, {"EnableTransactions", true}, {"ProgramArguments", {}}}));
        QVERIFY(LoginItem::jobIsSandboxed({{"PID", 5}}));
        QVERIFY(LoginItem::jobIsSandboxed({{"PID", 5}, {"ProgramArguments", QStringList{"a"}}, {"OnDemand", 0}}));
        QVERIFY(!LoginItem::jobIsSandboxed({{"PID", 5}, {"ProgramArguments", QStringList{"a"}}, {"OnDemand", 1}}));
        QVERIFY(!LoginItem::jobIsSandboxed({{"PID", 5}, {"ProgramArguments", QStringList{"a"}}}));
        // A job whose program is gone is known by its label only.
        const LoginItem item = LoginItem::itemFromServiceManagementDictionary(
            {{"Label", "org.example.gone"}, {"Program", "/nonexistent/prog"}, {"Name", "Gone"}});
        QCOMPARE(item.bundleIdentifier(), QStringLiteral("org.example.gone"));
        QVERIFY(!item.executablePath());
        QCOMPARE(item.applicationName(), QStringLiteral("org.example.gone"));
    }

    void cleanupTestCase()
    {
        // Whatever Trovix the launcher started must not outlive the test.
        QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
        if (bus && bus->isServiceRegistered("com.quorbel.trovix").value())
            ::kill(pid_t(bus->servicePid("com.quorbel.trovix").value()), SIGTERM);
    }

    void startedByTheLauncherTellsItToQuitOnce()
    {
        QVERIFY2(QDBusConnection::sessionBus().isConnected(), "needs a session bus");
        int terminations = 0;
        m_center->addObserver("TERMINATEHELPER", "com.quorbel.trovix", this,
                              [&](const QString&, const QString&, const QVariantMap&) { ++terminations; });
        auto manager = make();
        QVERIFY(!manager->checkWasAutolaunchedWithHelperApp(true));
        QTest::qWait(300);
        QCOMPARE(terminations, 0);
        QVERIFY(!manager->wasSomehowAutolaunched());

        m_running.insert("com.quorbel.trovix.launcher");
        QVERIFY(manager->checkWasAutolaunchedWithHelperApp(true));
        QTRY_COMPARE_WITH_TIMEOUT(terminations, 1, 5000);
        m_running.clear(); // the launcher quit
        QVERIFY(manager->wasSomehowAutolaunched());
        QTest::qWait(300);
        QCOMPARE(terminations, 1);
    }

    // The real launcher starts the real Trovix, which tells it to quit; a second launcher while Trovix
    // runs starts nothing.
    void theLauncherStartsTrovixAndQuitsWhenTold()
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        // Trovix as after its first start: no welcome, no offer to install itself.
        write(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                  "/trovix/com.quorbel.trovix.json",
              R"({"KEY_welcomeDialogDisplayed": true, "suppressAlertMoveHalvexToApplications": true})");
        QProcess launcher;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("QT_QPA_PLATFORM", "offscreen");
        launcher.setProcessEnvironment(env);
        launcher.start(TROVIX_BINARY_DIR "/trovix-launcher", {});
        QVERIFY(launcher.waitForStarted());
        QVERIFY2(launcher.waitForFinished(45000), "the launcher was not told to quit");
        QCOMPARE(launcher.exitCode(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(bus.interface()->isServiceRegistered("com.quorbel.trovix").value(), 10000);
        const uint pid = bus.interface()->servicePid("com.quorbel.trovix").value();
        QVERIFY(pid > 0);

        launcher.start(TROVIX_BINARY_DIR "/trovix-launcher", {});
        QVERIFY(launcher.waitForFinished(10000));
        QCOMPARE(launcher.exitCode(), 0);

        ::kill(pid_t(pid), SIGTERM);
        QTRY_VERIFY_WITH_TIMEOUT(!bus.interface()->isServiceRegistered("com.quorbel.trovix").value(), 10000);
    }

private:
    QByteArray DesktopEntryExec() const { return "\"" + m_main.toUtf8() + "\""; }
};

QTEST_GUILESS_MAIN(TestRunAtLoginManager)
#include "TestRunAtLoginManager.moc"
