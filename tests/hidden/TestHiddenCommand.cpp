// `trovix hidden` run as a real process in a throw-away home: this test starts itself with
// "--run-hidden ARGS" (the command under a QCoreApplication, as the program runs it), against the
// shipped scripts, GSettings' keyfile backend and Dolphin's file, on the private session bus.
#include "cli/Commands.h"
#include "support/HiddenScriptRun.h"

#include "support/Files.h"
#include "support/ProcessRun.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QByteArray kVisible = "Hidden files are visible in ";
const QByteArray kInvisible = "Hidden files are invisible in ";

} // namespace

class TestHiddenCommand : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_top;
    QProcessEnvironment m_env;

    QString home() const { return m_top->filePath("home"); }
    QString dolphinFile() const { return m_top->filePath("data/dolphin/view_properties/global/.directory"); }

    Run run(const QStringList& args) const
    {
        return runProcess(QCoreApplication::applicationFilePath(), QStringList{"--run-hidden"} + args, m_env, 120000);
    }

    QString tool(const QString& program, const QStringList& args) const
    {
        QProcess p;
        p.setProcessEnvironment(m_env);
        p.start(program, args);
        if (!p.waitForFinished(10000) || p.exitCode() != 0)
            return "<failed>";
        return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
    }

    QStringList dolphinKey() const
    {
        return {"--file", dolphinFile(), "--group", "Settings", "--key", "HiddenFilesShown"};
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
            QSKIP("needs the private session bus of the test runner");
    }

    // Each case starts from a home of its own that holds only what the case says.
    void init()
    {
        m_top = std::make_unique<QTemporaryDir>();
        QVERIFY(m_top->isValid());
        m_env = QProcessEnvironment::systemEnvironment();
        m_env.insert("HOME", home());
        // The program's own files go elsewhere, so the home holds exactly what the case puts there.
        m_env.insert("XDG_CONFIG_HOME", m_top->filePath("config"));
        m_env.insert("XDG_DATA_HOME", m_top->filePath("data"));
        m_env.insert("XDG_CACHE_HOME", m_top->filePath("cache"));
        m_env.insert("GSETTINGS_BACKEND", "keyfile");
        m_env.insert("XDG_CURRENT_DESKTOP", "GNOME");
        m_env.remove("XDG_DATA_DIRS");
        QVERIFY(QDir().mkpath(home()));
    }

    void cleanup() { m_top.reset(); }

    // What the home folder holds must not matter: the state follows the setting.
    void stateFollowsTheSettingWhateverTheHomeHolds_data()
    {
        QTest::addColumn<bool>("ssh");
        QTest::newRow("only .ssh") << true;
        QTest::newRow("nothing") << false;
    }
    void stateFollowsTheSettingWhateverTheHomeHolds()
    {
        QFETCH(bool, ssh);
        const auto homeHoldsNoMore = qScopeGuard([&] {
            QCOMPARE(QDir(home()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                     ssh ? QStringList{".ssh"} : QStringList{});
        });
        if (ssh)
            QVERIFY(writeFile(home() + "/.ssh/known_hosts", {}));
        Run r = run({});
        QCOMPARE(r.status, 0);
        QVERIFY2(r.out.startsWith(kInvisible), r.out + r.err);
        r = run({"show"});
        QVERIFY2(r.status == 0, r.err);
        QVERIFY2(r.out.startsWith(kVisible), r.out + r.err);
        QCOMPARE(tool("gsettings", {"get", "org.gtk.gtk4.Settings.FileChooser", "show-hidden"}), "true");
        r = run({});
        QCOMPARE(r.status, 0);
        QVERIFY(r.out.startsWith(kVisible));
        r = run({"toggle"});
        QVERIFY2(r.status == 0, r.err);
        QVERIFY(r.out.startsWith(kInvisible));
        // Asking for the state there is already: nothing to do, success.
        r = run({"hide"});
        QCOMPARE(r.status, 0);
        QVERIFY(r.out.startsWith(kInvisible));
    }

    // GNOME Files where only GTK 3's file-chooser schema and no other settings tool is installed.
    void onlyGtk3Schema()
    {
        QVERIFY(QDir().mkpath(m_top->filePath("bin")));
        QVERIFY(linkBasicTools(m_top->filePath("bin"), {"gsettings"}));
        m_env.insert("PATH", m_top->filePath("bin"));
        const QString schemas = m_top->filePath("schemas/glib-2.0/schemas");
        QVERIFY(QDir().mkpath(schemas));
        QVERIFY(QFile::copy("/usr/share/glib-2.0/schemas/org.gtk.Settings.FileChooser.gschema.xml",
                            schemas + "/org.gtk.Settings.FileChooser.gschema.xml"));
        QCOMPARE(tool("glib-compile-schemas", {schemas}), QString());
        m_env.insert("XDG_DATA_DIRS", m_top->filePath("schemas"));
        const Run r = run({"show"});
        QVERIFY2(r.status == 0, r.err);
        QVERIFY(r.out.startsWith(kVisible));
        QCOMPARE(tool("gsettings", {"get", "org.gtk.Settings.FileChooser", "show-hidden"}), "true");
    }

    // The GTK setting cannot be stored: one line naming it, a failure status, nothing changed.
    void unstorableSettingFailsWithOneLine()
    {
        QVERIFY(QDir().mkpath(QFileInfo(dolphinFile()).path()));
        QCOMPARE(tool("kwriteconfig5", dolphinKey() + QStringList{"--type", "bool", "false"}), QString());
        QVERIFY(QDir().mkpath(m_top->filePath("config/glib-2.0/settings/keyfile")));
        Run r = run({"show"});
        QCOMPARE(r.status, 1);
        QCOMPARE(r.out, QByteArray());
        QCOMPARE(r.err.count('\n'), 1);
        QVERIFY2(r.err.startsWith("trovix: cannot store the hidden-files setting of GNOME Files "
                                  "(org.gtk.gtk4.Settings.FileChooser show-hidden): "),
                 r.err);
        QCOMPARE(tool("kreadconfig5", dolphinKey()), "false");
        r = run({});
        QCOMPARE(r.status, 0);
        QVERIFY(r.out.startsWith(kInvisible));
    }

    void usageAndUnreadableState_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<bool>("tools");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("err");
        QTest::newRow("unknown word") << QStringList{"on"} << true << 2
                                      << QByteArray("usage: trovix hidden [show|hide|toggle]\n");
        QTest::newRow("two words") << QStringList{"show", "hide"} << true << 2
                                   << QByteArray("usage: trovix hidden [show|hide|toggle]\n");
        QTest::newRow("no settings tool at all")
            << QStringList{"show"} << false << 1
            << QByteArray("trovix: cannot read the file manager's hidden-files setting: no supported file-manager "
                          "setting for hidden files was found (GSettings schemas, xfconf, kwriteconfig)\n");
    }
    void usageAndUnreadableState()
    {
        QFETCH(QStringList, args);
        QFETCH(bool, tools);
        QFETCH(int, status);
        QFETCH(QByteArray, err);
        if (!tools) {
            QVERIFY(QDir().mkpath(m_top->filePath("bin")));
            QVERIFY(linkBasicTools(m_top->filePath("bin")));
            m_env.insert("PATH", m_top->filePath("bin"));
        }
        const Run r = run(args);
        QCOMPARE(r.status, status);
        QCOMPARE(r.err, err);
        QCOMPARE(r.out, QByteArray());
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc >= 2 && qstrcmp(argv[1], "--run-hidden") == 0)
        return cli::runHidden(QCoreApplication::arguments().mid(2));
    TestHiddenCommand test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "TestHiddenCommand.moc"
