// The preferences window as the user meets it: filled from the stored settings, each control writing
// its setting (read back by a fresh store), start at login through real autostart entries, the
// file-manager entries through the real plug-in tool (this executable run as `... pluginkit`).
#include "core/Texts.h"
#include "gui/preferences/PreferencesWindow.h"
#include "gui/shell/PanelWindow.h"
#include "gui/shell/QBAppDelegate.h"
#include "hidden/HiddenManager.h"
#include "hidden/PluginKit.h"
#include "hidden/Preferences.h"
#include "login/RunAtLoginManager.h"
#include "support/ControllerFixture.h"
#include "support/Files.h"
#include "support/HiddenFakeScriptRunner.h"
#include "util/DesktopEntry.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QSlider>
#include <QStandardPaths>
#include <QTest>
#include <QTextStream>
#include <QTimer>

#include <unistd.h>

namespace {

const QString kLauncherEntry = QStringLiteral("com.quorbel.trovix.launcher.desktop");

QString configHome()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
}

QString dataHome()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
}

// What a desktop session starts at login under this name: the user's entry over the system's, on unless
// it says Hidden=true.
bool desktopWouldStart(const QString& systemDir, const QString& name)
{
    QString path = configHome() + QStringLiteral("/autostart/") + name;
    if (!QFileInfo(path).isFile())
        path = systemDir + QStringLiteral("/autostart/") + name;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    bool inGroup = false;
    for (const QString& line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1Char('[')))
            inGroup = line.trimmed() == QLatin1String("[Desktop Entry]");
        else if (inGroup && line.trimmed().compare(QLatin1String("Hidden=true"), Qt::CaseInsensitive) == 0)
            return false;
    }
    return true;
}

// The files the plug-in tool installs for the file managers.
QStringList extensionFiles()
{
    return {dataHome() + QStringLiteral("/nautilus-python/extensions/trovix.py"),
            dataHome() + QStringLiteral("/kio/servicemenus/trovix.desktop"),
            dataHome() + QStringLiteral("/nemo/actions/trovix-hide.nemo_action"),
            dataHome() + QStringLiteral("/trovix/trovix-selection")};
}

int presentExtensionFiles()
{
    int n = 0;
    for (const QString& f : extensionFiles())
        n += QFileInfo::exists(f) ? 1 : 0;
    return n;
}

bool thunarHasOurActions()
{
    QFile file(configHome() + QStringLiteral("/Thunar/uca.xml"));
    return file.open(QIODevice::ReadOnly) && file.readAll().contains("com.quorbel.trovix.");
}

PluginKit pluginKit()
{
    return PluginKit(PluginKit::Places::current(QCoreApplication::applicationFilePath()));
}

// Answers the next modal message box from the event loop and records its texts.
struct AlertAnswerer
{
    QString objectName, text, informativeText;
    int seen = 0;
    void arm()
    {
        QTimer::singleShot(50, [this] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box) {
                arm();
                return;
            }
            ++seen;
            objectName = box->objectName();
            text = box->text();
            informativeText = box->informativeText();
            box->button(QMessageBox::Ok) ? box->button(QMessageBox::Ok)->click() : box->buttons().value(0)->click();
        });
    }
};

} // namespace

class TestPreferencesWindow : public QObject
{
    Q_OBJECT
private:
    std::unique_ptr<SettingsFixture> m_home;
    std::unique_ptr<HiddenFakeScriptRunner> m_runner;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<HiddenManager> m_hidden;
    std::unique_ptr<TrovixProjectRunAtLoginManager> m_login;
    std::unique_ptr<QBPurgeController> m_controller;
    std::unique_ptr<QBAppDelegate> m_delegate;
    QString m_systemConfig;

    QBPurgeController& start()
    {
        m_runner = std::make_unique<HiddenFakeScriptRunner>();
        m_preferences = std::make_unique<Preferences>(m_home->standard);
        HiddenManager::Collaborators h;
        h.settings = &m_home->settings;
        h.center = &m_home->center;
        h.runner = m_runner.get();
        h.version = &m_home->version;
        h.clock = &m_home->clock;
        h.preferences = m_preferences.get();
        m_hidden = std::make_unique<HiddenManager>(h);

        // The launcher is any program that exists; the entry only has to name it.
        RunAtLoginManager::Places places{
            configHome(), {m_systemConfig}, QCoreApplication::applicationFilePath(), QStringLiteral("/bin/true")};
        m_login = std::make_unique<TrovixProjectRunAtLoginManager>(places, m_home->distributed,
                                                                   [](const QString&) { return false; });

        auto c = controllerCollaborators(*m_home);
        c.hiddenManager = m_hidden.get();
        c.manageExtensions = true;
        c.pluginKitCommand = {QCoreApplication::applicationFilePath(), QStringLiteral("pluginkit")};
        m_controller = std::make_unique<QBPurgeController>(c);
        m_delegate =
            std::make_unique<QBAppDelegate>(*m_controller, m_home->settings, m_home->center, m_home->distributed);
        m_delegate->setLoginManager(m_login.get());
        m_controller->awakeFromNib();
        return *m_controller;
    }

    PreferencesWindow& open()
    {
        m_controller->onPreferences();
        PreferencesWindow* w = m_controller->preferencesWindow();
        Q_ASSERT(w);
        return *w;
    }

    UserDefaults stored() const { return UserDefaults(m_home->standard.filePath()); }

private Q_SLOTS:
    void initTestCase()
    {
        Texts::setFileManagerName(QStringLiteral("Dolphin"));
        QGuiApplication::setApplicationDisplayName(QStringLiteral("Trovix"));
    }

    void init()
    {
        m_home = std::make_unique<SettingsFixture>();
        m_home->standard.setObject(true, SettingsKey::WelcomeDialogDisplayed);
        m_systemConfig = m_home->dir.filePath(QStringLiteral("xdg"));
        QDir().mkpath(m_systemConfig + QStringLiteral("/autostart"));
    }

    void cleanup()
    {
        m_delegate.reset();
        m_controller.reset();
        m_hidden.reset();
        // Each test starts without entries of the last one.
        QDir(configHome() + QStringLiteral("/autostart")).removeRecursively();
        QFile::remove(configHome() + QStringLiteral("/autostart"));
        (void)pluginKit().ignore();
        m_home.reset();
    }

    void fillsEveryControlFromWhatIsStoredAndInEffect()
    {
        // A later start: stored choices, a launcher entry, installed entries, relaunch-style switching.
        m_home->standard.setValues({{SettingsKey::Initialized, true},
                                    {SettingsKey::PurgeAfterHugeAppQuit, false},
                                    {SettingsKey::ShowInfo, true},
                                    {SettingsKey::Frequency, 2},
                                    {SettingsKey::UsageLimit, 0.65},
                                    {SettingsKey::VisionPrefIndex, 2},
                                    {SettingsKey::IsNotFirstLaunch, true},
                                    {SettingsKey::FinderIntegration, true},
                                    {Preferences::kSwitchHiddenFilesVisibilityOptionKey, 2}});
        QVERIFY(!pluginKit().use());
        start();
        bool failed = false;
        m_login->setIsEnabledForHelperApp(true, [&] { failed = true; });
        QVERIFY(!failed);
        PreferencesWindow& w = open();

        QVERIFY(w.isVisible());
        QCOMPARE(w.windowTitle(), QStringLiteral("Preferences"));
        QVERIFY(w.btnPrefAutoStart()->isChecked());
        QCOMPARE(w.btnPrefAutoStart()->text(), QStringLiteral("Launch Trovix at system startup"));
        QVERIFY(w.enableFinderIntegrationButton()->isChecked());
        QVERIFY(w.enableFinderIntegrationButton()->isEnabled());
        QCOMPARE(w.enableFinderIntegrationButton()->text(), QStringLiteral("Enable Dolphin integration"));
        QVERIFY(w.enableForceSwitchHiddenVisibilityButton()->isChecked());
        QVERIFY(w.enableForceSwitchHiddenVisibilityButton()->isEnabled());
        QVERIFY(!w.btnPrefPurgeAfterHugeAppQuit()->isChecked());
        QVERIFY(w.btnPrefShowInfo()->isChecked()); // the panel opened at start (no tray)
        // Automatic free-up is always off after a start: its controls wait for it.
        QVERIFY(!w.btnPrefAutoFree()->isChecked());
        QCOMPARE(w.sldPrefMemUsage()->value(), 65);
        QVERIFY(!w.sldPrefMemUsage()->isEnabled());
        QCOMPARE(w.pupPrefFreq()->currentIndex(), 2);
        QCOMPARE(w.pupPrefFreq()->currentText(), QStringLiteral("2 hours"));
        QVERIFY(!w.pupPrefFreq()->isEnabled());
        QCOMPARE(w.txtPrefDesc()->text(), QStringLiteral("*Check on to free up system memory automatically."));
        QCOMPARE(w.visionComboBox()->currentIndex(), 2);
        // Nothing was written by the filling itself.
        QCOMPARE(stored().doubleForKey(SettingsKey::UsageLimit), 0.65);
        QCOMPARE(stored().integerForKey(SettingsKey::Frequency), 2);
    }

    void aFirstStartShowsTheDefaults()
    {
        start();
        PreferencesWindow& w = open();
        QVERIFY(!w.btnPrefAutoStart()->isChecked());
        QTRY_VERIFY(pluginKit().isInstalled()); // the first start turns them on
        QCOMPARE(presentExtensionFiles(), extensionFiles().size());
        QVERIFY(!w.enableForceSwitchHiddenVisibilityButton()->isChecked());
        QVERIFY(w.btnPrefPurgeAfterHugeAppQuit()->isChecked());
        QVERIFY(!w.btnPrefAutoFree()->isChecked());
        QCOMPARE(w.sldPrefMemUsage()->value(), 80);
        QCOMPARE(w.pupPrefFreq()->currentText(), QStringLiteral("4 hours"));
        QCOMPARE(w.visionComboBox()->currentIndex(), 1);
        QVERIFY(!stored().contains(SettingsKey::VisionPrefIndex));
    }

    // Opening again brings the same window and refills it from what is in effect now.
    void reopeningRefillsTheSameWindow()
    {
        start();
        QTRY_VERIFY(pluginKit().isInstalled());
        PreferencesWindow* first = &open();
        QVERIFY(first->enableFinderIntegrationButton()->isChecked());
        QVERIFY(!first->btnPrefAutoStart()->isChecked());
        // Changed behind the window's back: entries removed, an entry for the launcher written.
        QVERIFY(!pluginKit().ignore());
        bool failed = false;
        m_login->setIsEnabledForHelperApp(true, [&] { failed = true; });
        QVERIFY(!failed);
        PreferencesWindow* second = &open();
        QCOMPARE(second, first);
        QVERIFY(!second->enableFinderIntegrationButton()->isChecked());
        QVERIFY(second->btnPrefAutoStart()->isChecked());
    }

    void eachControlWritesItsSetting()
    {
        start();
        PreferencesWindow& w = open();

        w.btnPrefPurgeAfterHugeAppQuit()->click();
        QCOMPARE(stored().objectForKey(SettingsKey::PurgeAfterHugeAppQuit), QVariant(false));

        w.btnPrefAutoFree()->click();
        QCOMPARE(stored().objectForKey(SettingsKey::AutoFree), QVariant(true));
        QVERIFY(w.sldPrefMemUsage()->isEnabled());
        QVERIFY(w.pupPrefFreq()->isEnabled());
        QCOMPARE(w.txtPrefDesc()->text(), QStringLiteral("*Free up automatically every 4 hours if memory is used on "
                                                         "80% and if CPU usage is less than 20%."));

        QTest::keyClick(w.sldPrefMemUsage(), Qt::Key_PageDown); // one page: 5 points
        QCOMPARE(stored().doubleForKey(SettingsKey::UsageLimit), 0.75);
        QVERIFY(w.txtPrefDesc()->text().contains(QStringLiteral("used on 75%")));

        QTest::keyClick(w.pupPrefFreq(), Qt::Key_Up);
        QCOMPARE(stored().integerForKey(SettingsKey::Frequency), 0);
        QVERIFY(w.txtPrefDesc()->text().contains(QStringLiteral("every 8 hours")));

        QTest::keyClick(w.visionComboBox(), Qt::Key_Down);
        QCOMPARE(stored().integerForKey(SettingsKey::VisionPrefIndex), 2);
        QCOMPARE(m_controller->getVisionPrefIndex(), 2);

        w.enableForceSwitchHiddenVisibilityButton()->click();
        QCOMPARE(stored().integerForKey(Preferences::kSwitchHiddenFilesVisibilityOptionKey), 2);
        QCOMPARE(m_hidden->scriptType(), int(HiddenManager::HiddenManagerScriptTypeRelaunchFinder));
        w.enableForceSwitchHiddenVisibilityButton()->click();
        QCOMPARE(stored().integerForKey(Preferences::kSwitchHiddenFilesVisibilityOptionKey), 1);
        QCOMPARE(m_hidden->scriptType(), int(HiddenManager::HiddenManagerScriptTypeSingleSwitch));

        QVERIFY(m_controller->panel()->isVisible());
        w.btnPrefShowInfo()->click();
        QVERIFY(!m_controller->panel()->isVisible());
        QCOMPARE(stored().objectForKey(SettingsKey::ShowInfo), QVariant(false));
        w.btnPrefShowInfo()->click();
        QVERIFY(m_controller->panel()->isVisible());
        QCOMPARE(stored().objectForKey(SettingsKey::ShowInfo), QVariant(true));

        w.btnPrefAutoFree()->click();
        QCOMPARE(stored().objectForKey(SettingsKey::AutoFree), QVariant(false));
        QVERIFY(!w.sldPrefMemUsage()->isEnabled());
        QCOMPARE(w.txtPrefDesc()->text(), QStringLiteral("*Check on to free up system memory automatically."));
    }

    void theLoginCheckboxWritesAndRemovesTheAutostartEntry()
    {
        start();
        PreferencesWindow& w = open();
        QVERIFY(!desktopWouldStart(m_systemConfig, kLauncherEntry));
        w.btnPrefAutoStart()->click();
        QVERIFY(desktopWouldStart(m_systemConfig, kLauncherEntry));
        QVERIFY(w.btnPrefAutoStart()->isChecked());
        const auto entry = DesktopEntry::read(configHome() + QStringLiteral("/autostart/") + kLauncherEntry);
        QCOMPARE(DesktopEntry::execArguments(entry.value(QStringLiteral("Exec"))).value(0),
                 QStringLiteral("/bin/true"));
        w.btnPrefAutoStart()->click();
        QVERIFY(!desktopWouldStart(m_systemConfig, kLauncherEntry));
        QVERIFY(!QFileInfo::exists(configHome() + QStringLiteral("/autostart/") + kLauncherEntry));

        // An entry the system installs is turned off by a user entry that hides it.
        QVERIFY(writeFile(m_systemConfig + QStringLiteral("/autostart/") + kLauncherEntry,
                          "[Desktop Entry]\nType=Application\nName=Trovix\nExec=/bin/true\n"));
        open();
        QVERIFY(w.btnPrefAutoStart()->isChecked());
        w.btnPrefAutoStart()->click();
        QVERIFY(!desktopWouldStart(m_systemConfig, kLauncherEntry));
        QVERIFY(!w.btnPrefAutoStart()->isChecked());
    }

    void anUnwritableAutostartFolderShowsTheFailureAlert()
    {
        start();
        PreferencesWindow& w = open();
        // A file where the folder should be stops even the superuser.
        const QString blocker = configHome() + QStringLiteral("/autostart");
        QVERIFY(writeFile(blocker, {}));
        AlertAnswerer alert;
        alert.arm();
        w.btnPrefAutoStart()->click();
        QCOMPARE(alert.seen, 1);
        QCOMPARE(alert.objectName, QStringLiteral("loginItemFailedAlert"));
        QCOMPARE(alert.text, QStringLiteral("An error ocurred"));
        QCOMPARE(alert.informativeText, QStringLiteral("Couldn't add Helper App to launch at login item list."));
        QVERIFY(!w.btnPrefAutoStart()->isChecked()); // shows what is in effect
        QVERIFY(!desktopWouldStart(m_systemConfig, kLauncherEntry));
        QFile::remove(blocker);

        if (geteuid() == 0)
            QSKIP("a read-only folder does not stop the superuser; the removal failure needs another user");
        w.btnPrefAutoStart()->click();
        QVERIFY(desktopWouldStart(m_systemConfig, kLauncherEntry));
        const QString folder = configHome() + QStringLiteral("/autostart");
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner);
        alert.arm();
        w.btnPrefAutoStart()->click();
        QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QCOMPARE(alert.seen, 2);
        QCOMPARE(alert.informativeText, QStringLiteral("Couldn't remove Helper App from launch at login item list."));
        QVERIFY(w.btnPrefAutoStart()->isChecked());
        QVERIFY(desktopWouldStart(m_systemConfig, kLauncherEntry));
    }

    void theExtensionCheckboxInstallsAndRemovesTheFileManagerEntries()
    {
        start();
        QTRY_VERIFY(pluginKit().isInstalled());
        QCOMPARE(presentExtensionFiles(), extensionFiles().size());
        PreferencesWindow& w = open();
        QVERIFY(w.enableFinderIntegrationButton()->isChecked());

        w.enableFinderIntegrationButton()->click();
        QVERIFY(!w.enableFinderIntegrationButton()->isChecked());
        QCOMPARE(stored().objectForKey(SettingsKey::FinderIntegration), QVariant(false));
        QTRY_COMPARE(presentExtensionFiles(), 0);
        QTRY_VERIFY(!thunarHasOurActions());

        w.enableFinderIntegrationButton()->click();
        QVERIFY(w.enableFinderIntegrationButton()->isChecked());
        QCOMPARE(stored().objectForKey(SettingsKey::FinderIntegration), QVariant(true));
        QTRY_COMPARE(presentExtensionFiles(), extensionFiles().size());
        QTRY_VERIFY(thunarHasOurActions());
        QTRY_VERIFY(open().enableFinderIntegrationButton()->isChecked());
    }

    // Off and on again before the first run of the tool has ended: the last choice is what stays.
    void quickTogglesEndInTheLastChoice()
    {
        start();
        QTRY_VERIFY(pluginKit().isInstalled());
        PreferencesWindow& w = open();
        for (int i = 0; i < 3; ++i) {
            w.enableFinderIntegrationButton()->click();
            w.enableFinderIntegrationButton()->click();
        }
        w.enableFinderIntegrationButton()->click();
        QTRY_VERIFY(!pluginKit().isInstalled());
        QTest::qWait(1500);
        QCOMPARE(presentExtensionFiles(), 0);
        w.enableFinderIntegrationButton()->click();
        w.enableFinderIntegrationButton()->click();
        w.enableFinderIntegrationButton()->click();
        QTRY_VERIFY(pluginKit().isInstalled());
        QTest::qWait(1500);
        QVERIFY(pluginKit().isInstalled());
        QCOMPARE(presentExtensionFiles(), extensionFiles().size());
    }

    void theGearMenuOpensThePreferencesAndHidesReset()
    {
        start();
        m_controller->validateMenu();
        QAction* preferences = nullptr;
        for (QAction* a : m_controller->theMenu()->actions()) {
            if (a->text() == QLatin1String("Preferences..."))
                preferences = a;
        }
        QVERIFY(preferences);
        QVERIFY(!m_controller->resetUserDefaultsMenuItem()->isVisible());
        QCOMPARE(m_controller->resetUserDefaultsMenuItem()->text(), QStringLiteral("Reset Defaults"));
        preferences->trigger();
        QVERIFY(m_controller->preferencesWindow());
        QVERIFY(m_controller->preferencesWindow()->isVisible());
    }

    void resetDefaultsForgetsEveryStoredSetting()
    {
        start();
        PreferencesWindow& w = open();
        w.btnPrefPurgeAfterHugeAppQuit()->click();
        QTest::keyClick(w.visionComboBox(), Qt::Key_Up);
        QVERIFY(stored().contains(SettingsKey::VisionPrefIndex));
        QVERIFY(stored().contains(SettingsKey::Initialized));

        m_controller->resetUserDefaults();
        QVERIFY(stored().dictionaryRepresentation().isEmpty());
        QVERIFY(m_home->standard.dictionaryRepresentation().isEmpty());
        QCOMPARE(m_controller->getVisionPrefIndex(), 1);
        // The next start is a first start again.
        m_controller.reset();
        start();
        QCOMPARE(stored().objectForKey(SettingsKey::PurgeAfterHugeAppQuit), QVariant(true));
        QVERIFY(stored().boolForKey(SettingsKey::Initialized));
    }
};

// Run as `TEST pluginkit ARGS...` it is the plug-in tool the controller asks, as the program itself is.
int main(int argc, char** argv)
{
    if (argc > 1 && qstrcmp(argv[1], "pluginkit") == 0) {
        QCoreApplication app(argc, argv);
        QTextStream out(stdout);
        QTextStream err(stderr);
        return pluginKit().run(app.arguments().mid(2), out, err);
    }
    QApplication app(argc, argv);
    TestPreferencesWindow test;
    return QTest::qExec(&test, argc, argv);
}

#include "TestPreferencesWindow.moc"
