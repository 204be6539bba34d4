#include "core/UserDefaults.h"
#include "hidden/DiskAccessRestoreManager.h"
#include "hidden/ScriptsManager.h"
#include "support/HiddenScriptRun.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <csignal>

namespace {
const QString kCheck = "CheckHiddenFilesFisibilityByAskingFinder";
const QString kSwitch = "SwitchHiddenFilesVisibility2";
// name, schema, key; "gtk" stands for both GTK keys.
const QList<QStringList> kGSettings = {{"gtk4", "org.gtk.gtk4.Settings.FileChooser", "show-hidden"},
                                       {"gtk3", "org.gtk.Settings.FileChooser", "show-hidden"},
                                       {"nemo", "org.nemo.preferences", "show-hidden-files"},
                                       {"caja", "org.mate.caja.preferences", "show-hidden-files"}};

QString tool(const QString& program, const QStringList& args)
{
    QProcess p;
    p.start(program, args);
    if (!p.waitForFinished(10000) || p.exitCode() != 0)
        return "<failed: " + QString::fromUtf8(p.readAllStandardError()).trimmed() + ">";
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

QMap<QString, QString> all(bool v)
{
    QMap<QString, QString> values;
    for (const char* name : {"gtk4", "gtk3", "nemo", "caja", "thunar", "dolphin"})
        values[name] = v ? "true" : "false";
    return values;
}
} // namespace

// The shipped hidden-files scripts against the real settings stores on a private session bus: GSettings
// (keyfile backend) for GNOME Files, Nemo and Caja, a real xfconfd for Thunar, Dolphin's own file. The
// home folder's name has spaces and quotes.
class TestHiddenScripts : public QObject
{
    Q_OBJECT

    QProcess m_xfconfd;
    QString m_home;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<DiskAccessRestoreManager> m_access;
    std::unique_ptr<ScriptsManager> m_scripts;
    QByteArray m_path;

    QString dolphinFile() const { return m_home + "/.local/share/dolphin/view_properties/global/.directory"; }
    QStringList dolphinKey() const
    {
        return {"--file", dolphinFile(), "--group", "Settings", "--key", "HiddenFilesShown"};
    }
    static QStringList thunarKey() { return {"-c", "thunar", "-p", "/last-show-hidden"}; }

    // Every backend's value as its own tool reads it.
    QMap<QString, QString> values() const
    {
        QMap<QString, QString> v;
        for (const QStringList& g : kGSettings)
            v[g[0]] = tool("gsettings", {"get", g[1], g[2]});
        v["thunar"] = tool("xfconf-query", thunarKey());
        if (v["thunar"].startsWith("<failed"))
            v["thunar"] = "false"; // absent: Thunar's default
        v["dolphin"] = tool("kreadconfig5", dolphinKey() + QStringList{"--default", "false"});
        return v;
    }

    // Sets a backend through its own tool (not through the scripts).
    void set(const QString& backend, bool v)
    {
        const QString s = v ? "true" : "false";
        for (const QStringList& g : kGSettings) {
            if (g[0].startsWith(backend))
                QCOMPARE(tool("gsettings", {"set", g[1], g[2], s}), QString());
        }
        if (backend == "thunar")
            QCOMPARE(tool("xfconf-query", thunarKey() + QStringList{"-n", "-t", "bool", "-s", s}), QString());
        if (backend == "dolphin") {
            QDir().mkpath(QFileInfo(dolphinFile()).path());
            QCOMPARE(tool("kwriteconfig5", dolphinKey() + QStringList{"--type", "bool", s}), QString());
        }
    }

    void setAll(bool v)
    {
        for (const char* b : {"gtk", "nemo", "caja", "thunar", "dolphin"})
            set(b, v);
    }

    HiddenScriptResult run(const QString& name) { return runHiddenScript(*m_scripts, name); }

    // The home folder as a file manager lists it: dot-names first (byte order) when hidden files show,
    // then the other names minus those listed in .hidden when they do not.
    QStringList expectedListing(bool shown) const
    {
        QStringList names =
            QDir(m_home).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
        names.removeIf([&](const QString& n) { return !shown && (n.startsWith('.') || n == "secret file"); });
        const auto key = [](const QString& n) { return std::pair(!n.startsWith('.'), n.toUtf8()); };
        std::sort(names.begin(), names.end(), [&](const QString& a, const QString& b) { return key(a) < key(b); });
        return names;
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
            QSKIP("needs the private session bus of the test runner");
        m_path = qgetenv("PATH");
        // A home whose name has spaces and quotes; the XDG folders follow it. Set before xfconfd starts.
        m_home = QDir::homePath() + "/user's \"home\" dir";
        for (const char* d : {"/.config", "/.local/share", "/Documents"})
            QVERIFY(QDir().mkpath(m_home + d));
        for (const char* f : {".bashrc", ".profile", "notes.txt", "secret file", "-dash", "Zebra", ".hidden"}) {
            QFile file(m_home + '/' + f);
            QVERIFY(file.open(QIODevice::WriteOnly));
            if (file.fileName().endsWith(".hidden"))
                file.write("secret file\n");
        }
        qputenv("HOME", QFile::encodeName(m_home));
        const std::pair<const char*, const char*> xdg[] = {
            {"XDG_CONFIG_HOME", "/.config"}, {"XDG_DATA_HOME", "/.local/share"}, {"XDG_CACHE_HOME", "/.cache"}};
        for (const auto& [var, sub] : xdg)
            qputenv(var, QFile::encodeName(m_home + sub));
        qputenv("GSETTINGS_BACKEND", "keyfile");

        const QString xfconfd = "/usr/lib/x86_64-linux-gnu/xfce4/xfconf/xfconfd";
        QVERIFY2(QFile::exists(xfconfd), "xfconf is not installed");
        m_xfconfd.start(xfconfd, {});
        QVERIFY(m_xfconfd.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(
            QDBusConnection::sessionBus().interface()->isServiceRegistered("org.xfce.Xfconf").value(), 10000);

        m_defaults = std::make_unique<UserDefaults>(m_home + "/.config/std.json");
        m_access = std::make_unique<DiskAccessRestoreManager>(*m_defaults);
        m_scripts = std::make_unique<ScriptsManager>(*m_access, ScriptsManager::Options{});
    }

    void cleanupTestCase()
    {
        m_xfconfd.terminate();
        if (!m_xfconfd.waitForFinished(5000))
            m_xfconfd.kill();
    }

    void init()
    {
        qputenv("PATH", m_path);
        for (const char* var : {"XDG_DATA_DIRS", "XDG_CURRENT_DESKTOP", "FAKE_DIR"})
            qunsetenv(var);
        QFile::remove(m_home + "/.config/mimeapps.list");
    }

    void scriptsAreCopiedUnderTheOddHome()
    {
        QVERIFY(!run("AttachedScript").error);
        QVERIFY(QFile::exists(m_home + "/.local/share/trovix/Scripts/AttachedScript.sh"));
    }

    void checkReplyFollowsThePrimarySetting_data()
    {
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QByteArray>("folderHandlers"); // the default applications for folders
        QTest::addColumn<QString>("backend");
        QTest::addColumn<bool>("shown");
        for (bool shown : {true, false}) {
            const char* s = shown ? "shown" : "hidden";
            QTest::addRow("GNOME %s", s) << "GNOME" << QByteArray() << "gtk" << shown;
            QTest::addRow("Cinnamon %s", s) << "X-Cinnamon" << QByteArray() << "nemo" << shown;
            QTest::addRow("MATE %s", s) << "MATE" << QByteArray() << "caja" << shown;
            QTest::addRow("Xfce %s", s) << "XFCE" << QByteArray() << "thunar" << shown;
            QTest::addRow("KDE %s", s) << "KDE" << QByteArray() << "dolphin" << shown;
        }
        QTest::newRow("the folder handler wins over the desktop")
            << "GNOME" << QByteArray("nemo.desktop;org.gnome.Nautilus.desktop;") << "nemo" << true;
    }
    void checkReplyFollowsThePrimarySetting()
    {
        QFETCH(QString, desktop);
        QFETCH(QByteArray, folderHandlers);
        QFETCH(QString, backend);
        QFETCH(bool, shown);
        qputenv("XDG_CURRENT_DESKTOP", desktop.toUtf8());
        if (!folderHandlers.isEmpty()) {
            QFile list(m_home + "/.config/mimeapps.list");
            QVERIFY(list.open(QIODevice::WriteOnly));
            list.write("[Default Applications]\ninode/directory = " + folderHandlers + "\n");
        }
        // Only the primary file manager's setting says "shown" (or only it says "hidden").
        setAll(!shown);
        set(backend, shown);
        const HiddenScriptResult r = run(kCheck);
        QVERIFY2(!r.error, r.errorText());
        QCOMPARE(r.reply, expectedListing(shown));
    }

    void switchFollowsThePrimaryAndAlignsTheOthers_data()
    {
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<bool>("start"); // every backend's value but the primary one's
        QTest::addColumn<bool>("after");
        QTest::newRow("from hidden") << "GNOME" << false << true;
        QTest::newRow("from shown") << "GNOME" << true << false;
        QTest::newRow("the others differ") << "XFCE" << true << true;
    }
    void switchFollowsThePrimaryAndAlignsTheOthers()
    {
        QFETCH(QString, desktop);
        QFETCH(bool, start);
        QFETCH(bool, after);
        qputenv("XDG_CURRENT_DESKTOP", desktop.toUtf8());
        setAll(start);
        set(desktop == "XFCE" ? "thunar" : "gtk", !after);
        HiddenScriptResult r = run(kSwitch);
        QVERIFY2(!r.error, r.errorText());
        QCOMPARE(values(), all(after));
        QCOMPARE(run(kCheck).reply, expectedListing(after));
        QVERIFY(!run(kSwitch).error);
        QCOMPARE(values(), all(!after));
    }

    void writeScriptsSetEveryBackend()
    {
        setAll(false);
        QVERIFY(!run("WriteIntoSystemPreferencesShowHiddens").error);
        QCOMPARE(values(), all(true));
        QVERIFY(!run("WriteIntoSystemPreferencesHideHiddens").error);
        QCOMPARE(values(), all(false));
    }

    void missingSchemasAreSkipped()
    {
        setAll(false);
        QTemporaryDir empty;
        qputenv("XDG_DATA_DIRS", QFile::encodeName(empty.path()));
        qputenv("XDG_CURRENT_DESKTOP", "GNOME"); // its backend is gone: the first one present decides
        const HiddenScriptResult r = run(kSwitch);
        QVERIFY2(!r.error, r.errorText());
        const HiddenScriptResult check = run(kCheck);
        QVERIFY(!check.error);
        QCOMPARE(check.reply, expectedListing(true));
        qunsetenv("XDG_DATA_DIRS");
        auto expected = all(false);
        expected["thunar"] = expected["dolphin"] = "true";
        QCOMPARE(values(), expected);
    }

    void noBackendFailsCleanly()
    {
        // Only the basic tools: no gsettings, xfconf-query or kwriteconfig5.
        QTemporaryDir bin;
        for (const char* t : {"awk", "tr", "sed", "head", "grep", "cat", "id", "mkdir", "sleep", "mktemp", "rm"}) {
            const QString real = QStandardPaths::findExecutable(t);
            QVERIFY2(!real.isEmpty(), t);
            QVERIFY(QFile::link(real, bin.filePath(t)));
        }
        qputenv("PATH", QFile::encodeName(bin.path()));
        for (const char* name : {"CheckHiddenFilesFisibilityByAskingFinder", "SwitchHiddenFilesVisibility2",
                                 "WriteIntoSystemPreferencesShowHiddens"}) {
            const HiddenScriptResult r = run(name);
            QVERIFY(r.error);
            QVERIFY(r.error->code > 0);
            QVERIFY2(r.error->description.contains("no supported file-manager setting"), r.errorText());
        }
    }

    void relaunchRestartsTheRunningFileManager()
    {
        // A stand-in Thunar: it records each start and quits on "thunar -q", as the real one does.
        QTemporaryDir bin;
        const auto read = [&bin](const char* name) {
            QFile f(bin.filePath(name));
            return f.open(QIODevice::ReadOnly) ? f.readAll().trimmed() : QByteArray();
        };
        QFile fake(bin.filePath("thunar"));
        QVERIFY(fake.open(QIODevice::WriteOnly));
        fake.write("#!/bin/sh\n"
                   "if [ \"$1\" = -q ]; then kill \"$(cat \"$FAKE_DIR/pid\")\"; exit 0; fi\n"
                   "echo $$ > \"$FAKE_DIR/pid\"; echo \"started $*\" >> \"$FAKE_DIR/log\"\n"
                   "trap 'exit 0' TERM\n"
                   "while :; do sleep 0.1; done\n");
        fake.close();
        QFile::setPermissions(fake.fileName(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("FAKE_DIR", QFile::encodeName(bin.path()));
        qputenv("PATH", QFile::encodeName(bin.path()) + ':' + m_path);

        QProcess first;
        qint64 firstPid = 0;
        // Whatever happens below, the stand-in the script started again is stopped by its id.
        const auto stopRelaunched = qScopeGuard([&] {
            const qint64 pid = read("pid").toLongLong();
            if (pid > 0 && pid != firstPid)
                ::kill(static_cast<pid_t>(pid), SIGTERM);
        });
        first.start(fake.fileName(), {"--daemon"});
        QVERIFY(first.waitForStarted());
        QTRY_VERIFY(!read("pid").isEmpty());
        firstPid = first.processId();

        setAll(false);
        const HiddenScriptResult r = run("ShowHiddensAndRelaunchFinder");
        QVERIFY2(!r.error, r.errorText());
        QTRY_COMPARE_WITH_TIMEOUT(first.state(), QProcess::NotRunning, 5000);
        QCOMPARE(values(), all(true));
        // Started again with the same arguments.
        QTRY_COMPARE_WITH_TIMEOUT(read("log"), QByteArray("started --daemon\nstarted --daemon"), 5000);
        const qint64 secondPid = read("pid").toLongLong();
        QVERIFY(secondPid > 0 && secondPid != firstPid);
    }
};

QTEST_GUILESS_MAIN(TestHiddenScripts)
#include "TestHiddenScripts.moc"
