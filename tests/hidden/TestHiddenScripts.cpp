#include "core/UserDefaults.h"
#include "hidden/DiskAccessRestoreManager.h"
#include "hidden/HiddenManager.h"
#include "hidden/ScriptsManager.h"
#include "support/Files.h"
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

    // A pretend desktop in a folder of its own: the stand-ins for xdotool, xprop and xwininfo (and Dolphin,
    // as "dolphin") first on the PATH, their state in FAKE_DIR, a display to talk to.
    struct FakeDesktop
    {
        QTemporaryDir dir;
        std::vector<std::unique_ptr<QProcess>> programs;

        QString path(const QString& name) const { return dir.filePath(name); }
        void write(const QString& name, const QByteArray& text) const { QVERIFY(writeFile(path(name), text)); }
        QByteArray read(const QString& name) const { return readFile(path(name)).trimmed(); }
        QByteArrayList log() const { return read("log").split('\n'); }
        // A stand-in file manager: it stays until "NAME -q" and logs each start (with LC_ALL when set).
        void writeFileManager(const QString& name) const
        {
            QVERIFY(writeScript(
                path(name),
                "#!/bin/sh\n"
                "if [ \"$1\" = -q ]; then kill \"$(cat \"$FAKE_DIR/pid\")\"; exit 0; fi\n"
                "echo $$ > \"$FAKE_DIR/pid\"; echo \"started $*${LC_ALL:+ in $LC_ALL}\" >> \"$FAKE_DIR/log\"\n"
                "trap 'exit 0' TERM\n"
                "while :; do sleep 0.1; done\n"));
        }
        ~FakeDesktop()
        {
            // A stand-in the script started again is not among the programs: it is stopped by its id.
            const qint64 relaunched = read("pid").toLongLong();
            if (relaunched > 0 && std::none_of(programs.begin(), programs.end(),
                                               [&](const auto& p) { return p->processId() == relaunched; }))
                ::kill(static_cast<pid_t>(relaunched), SIGTERM);
            for (auto& p : programs) {
                p->terminate();
                if (!p->waitForFinished(5000))
                    p->kill();
            }
        }
    };

    void setUpFakeDesktop(FakeDesktop& desktop)
    {
        const QString source = QStringLiteral(TROVIX_SOURCE_DIR) + "/tests/support/fake-desktop/";
        for (const char* name : {"xdotool", "xprop", "xwininfo"})
            QVERIFY(QFile::copy(source + name, desktop.path(name)));
        QVERIFY(QFile::copy(source + "fake-dolphin", desktop.path("dolphin")));
        desktop.writeFileManager("nemo");
        desktop.writeFileManager("thunar");
        for (const char* name : {"xdotool", "xprop", "xwininfo", "dolphin"})
            QFile::setPermissions(desktop.path(name), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("FAKE_DIR", QFile::encodeName(desktop.dir.path()));
        qputenv("PATH", QFile::encodeName(desktop.dir.path()) + ':' + m_path);
        qputenv("DISPLAY", ":99");
    }

    // Starts a stand-in program of the fake desktop; it is stopped with the desktop.
    qint64 startFake(FakeDesktop& desktop, const QString& name, const QStringList& args)
    {
        auto p = std::make_unique<QProcess>();
        p->start(desktop.path(name), args);
        if (!p->waitForStarted())
            return 0;
        const qint64 pid = p->processId();
        desktop.programs.push_back(std::move(p));
        return pid;
    }

    // A stand-in Nemo on the fake desktop of a Cinnamon session where every setting says "hidden"; its pid.
    qint64 startNemo(FakeDesktop& desktop, const QStringList& args)
    {
        setUpFakeDesktop(desktop);
        qputenv("XDG_CURRENT_DESKTOP", "X-Cinnamon");
        setAll(false);
        const qint64 nemo = startFake(desktop, "nemo", args);
        if (nemo > 0 && !QTest::qWaitFor([&] { return !desktop.read("pid").isEmpty(); }))
            return 0;
        return nemo;
    }

    QString lockFile() const { return qEnvironmentVariable("XDG_RUNTIME_DIR") + "/trovix-hidden.lock"; }

    // The home folder as a file manager lists it: dot-names first (byte order) when hidden files show,
    // then the other names minus those listed in .hidden when they do not.
    QStringList expectedListing(bool shown) const
    {
        QStringList names =
            QDir(m_home).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
        names.removeIf([&](const QString& n) { return !shown && (n.startsWith('.') || n == "secret file"); });
        const auto key = [](const QString& n) { return std::pair(!n.startsWith('.'), n.toUtf8()); };
        std::sort(names.begin(), names.end(), [&](const QString& a, const QString& b) { return key(a) < key(b); });
        // The folder's own entries lead a listing with hidden files, so the reply holds even for an empty folder.
        return shown ? QStringList{".", ".."} + names : names;
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
            QVERIFY(writeFile(m_home + '/' + f, qstrcmp(f, ".hidden") == 0 ? "secret file\n" : ""));
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
        for (const char* var :
             {"XDG_DATA_DIRS", "XDG_CURRENT_DESKTOP", "FAKE_DIR", "LC_ALL", "DISPLAY", "WAYLAND_DISPLAY"})
            qunsetenv(var);
        QFile::remove(m_home + "/.config/mimeapps.list");
    }

    void scriptsAreCopiedUnderTheOddHome()
    {
        QVERIFY(!run("AttachedScript").error);
        QVERIFY(QFile::exists(m_home + "/.local/share/trovix/Scripts/AttachedScript.sh"));
    }

    // The program feeds "AttachedScript" to `/bin/sh -s`, where it has no folder of its own: the
    // manager installs the library first, and the script finds it in the Scripts folder.
    void attachedScriptRunsFromStandardInput()
    {
        const QString library = m_home + "/.local/share/trovix/Scripts/HiddenFilesBackends.sh";
        QFile::remove(library);
        HiddenManager::Collaborators collaborators;
        collaborators.runner = m_scripts.get();
        HiddenManager manager(collaborators);
        manager.ShowHiddenDel();
        QVERIFY(QFile::exists(library));

        setAll(true);
        set("gtk", false);
        qputenv("XDG_CURRENT_DESKTOP", "GNOME");
        QFile script(":/scripts/AttachedScript.sh");
        QVERIFY(script.open(QIODevice::ReadOnly));
        QProcess sh;
        sh.setWorkingDirectory("/");
        sh.start("/bin/sh", {"-s"});
        QVERIFY(sh.waitForStarted());
        sh.write(script.readAll());
        sh.closeWriteChannel();
        QVERIFY(sh.waitForFinished(30000));
        QCOMPARE(sh.readAllStandardError(), QByteArray());
        QCOMPARE(sh.exitCode(), 0);
        QCOMPARE(sh.readAllStandardOutput(), QByteArray("primary nautilus\ngtk4 false\ngtk3 false\nnemo true\n"
                                                        "caja true\nthunar true\ndolphin true\n"));
    }

    // A switch succeeds only when the primary file manager's setting reads the new value back; when it
    // does not, the switch fails with one line naming that setting and nothing is left changed.
    void unstoredPrimarySettingFailsAndChangesNothing_data()
    {
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("message");
        QTest::newRow("GTK key file is a folder")
            << "GNOME"
            << "keyfile"
            << "the hidden-files setting of GNOME Files (org.gtk.gtk4.Settings.FileChooser show-hidden): "
               "The key is not writable";
        QTest::newRow("gsettings says yes but stores nothing")
            << "GNOME"
            << "gsettings"
            << "(org.gtk.gtk4.Settings.FileChooser show-hidden): it still reads false "
               "after writing true";
        QTest::newRow("Dolphin's file is a folder") << "KDE"
                                                    << "dolphin"
                                                    << "of Dolphin (HiddenFilesShown of ";
    }
    void unstoredPrimarySettingFailsAndChangesNothing()
    {
        QFETCH(QString, desktop);
        QFETCH(QString, fault);
        QFETCH(QString, message);
        qputenv("XDG_CURRENT_DESKTOP", desktop.toUtf8());
        setAll(false);
        const QString keyfile = m_home + "/.config/glib-2.0/settings/keyfile";
        QTemporaryDir bin;
        if (fault == "keyfile") {
            QVERIFY(QFile::rename(keyfile, keyfile + ".aside"));
            QVERIFY(QDir().mkpath(keyfile));
        } else if (fault == "dolphin") {
            QVERIFY(QFile::remove(dolphinFile()));
            QVERIFY(QDir().mkpath(dolphinFile()));
        } else {
            // As with dconf when its service cannot write: the tool ends well, the value stays.
            QVERIFY(writeScript(bin.filePath("gsettings"),
                                "#!/bin/sh\n[ \"$1\" = set ] && exit 0\nexec " +
                                    QFile::encodeName(QStandardPaths::findExecutable("gsettings")) + " \"$@\"\n"));
            qputenv("PATH", QFile::encodeName(bin.path()) + ':' + m_path);
        }
        const HiddenScriptResult r = run(kSwitch);
        qputenv("PATH", m_path);
        if (fault == "keyfile") {
            QVERIFY(QDir(keyfile).removeRecursively());
            QVERIFY(QFile::rename(keyfile + ".aside", keyfile));
        } else if (fault == "dolphin") {
            QVERIFY(QDir(dolphinFile()).removeRecursively());
        }
        QVERIFY(r.error);
        QCOMPARE(r.error->code, 1);
        QVERIFY2(r.error->description.startsWith("cannot store ") && r.error->description.contains(message),
                 r.errorText());
        QVERIFY2(!r.error->description.contains('\n'), r.errorText());
        QCOMPARE(values(), all(false));
    }

    // Plasma 6 has only the 6 versions of the KDE config tools.
    void plasma6ConfigTools()
    {
        QTemporaryDir bin;
        QVERIFY(linkBasicTools(bin.path(), {"gsettings", "xfconf-query"}));
        QVERIFY(QFile::link(QStandardPaths::findExecutable("kwriteconfig5"), bin.filePath("kwriteconfig6")));
        QVERIFY(QFile::link(QStandardPaths::findExecutable("kreadconfig5"), bin.filePath("kreadconfig6")));
        setAll(false);
        qputenv("PATH", QFile::encodeName(bin.path()));
        qputenv("XDG_CURRENT_DESKTOP", "KDE");
        const HiddenScriptResult r = run(kSwitch);
        const QStringList reply = run(kCheck).reply;
        qputenv("PATH", m_path);
        QVERIFY2(!r.error, r.errorText());
        QCOMPARE(values(), all(true));
        QCOMPARE(reply, expectedListing(true));
    }

    // A real Dolphin file holds other groups and keys; a switch changes only its own key.
    void dolphinFileKeepsEverythingElse()
    {
        // Group and key to value; the tools may reorder the groups.
        const auto entries = [](const QByteArray& text) {
            QMap<QByteArray, QByteArray> map;
            QByteArray group;
            for (const QByteArray& line : text.split('\n')) {
                if (line.startsWith('['))
                    group = line;
                else if (line.contains('='))
                    map[group + line.left(line.indexOf('='))] = line.mid(line.indexOf('=') + 1);
            }
            return map;
        };
        const QByteArray before = "[Dolphin]\nTimestamp=2024,3,1,10,0,0.0\nVersion=4\nViewMode=1\n\n"
                                  "[Settings]\nHiddenFilesShown=false\nSortFoldersFirst=false\n\n"
                                  "[Details]\nColumns=Name,Size,Date\n";
        QVERIFY(writeFile(dolphinFile(), before));
        qputenv("XDG_CURRENT_DESKTOP", "KDE");
        const HiddenScriptResult r = run(kSwitch);
        QVERIFY2(!r.error, r.errorText());
        QCOMPARE(entries(readFile(dolphinFile())),
                 entries(QByteArray(before).replace("HiddenFilesShown=false", "HiddenFilesShown=true")));
    }

    // One hidden-files script at a time, whichever process runs it: a switch waits for the lock that
    // another holds, and switches started together each see the one before.
    void switchesTakeTurns()
    {
        qputenv("XDG_CURRENT_DESKTOP", "GNOME");
        setAll(false);
        QTemporaryDir gate;
        QProcess holder;
        holder.start("flock",
                     {lockFile(), "sh", "-c", "while [ ! -e \"$0\" ]; do sleep 0.05; done", gate.filePath("open")});
        QVERIFY(holder.waitForStarted());
        QTRY_VERIFY(QProcess::execute("flock", {"-n", lockFile(), "true"}) != 0);
        const auto stopHolder = qScopeGuard([&] {
            QFile(gate.filePath("open")).open(QIODevice::WriteOnly);
            holder.waitForFinished(5000);
        });
        bool done = false;
        m_scripts->executeAppleScript(kSwitch, [&](const QStringList&, const auto& e) {
            QVERIFY(!e);
            done = true;
        });
        QTest::qWait(1500);
        QVERIFY(!done);
        QCOMPARE(values(), all(false));
        QVERIFY(QFile(gate.filePath("open")).open(QIODevice::WriteOnly));
        QTRY_VERIFY_WITH_TIMEOUT(done, 30000);
        QCOMPARE(values(), all(true));

        int ended = 0;
        for (int i = 0; i < 4; ++i)
            m_scripts->executeAppleScript(kSwitch, [&](const QStringList&, const auto& e) {
                QVERIFY(!e);
                ++ended;
            });
        QTRY_COMPARE_WITH_TIMEOUT(ended, 4, 60000);
        QCOMPARE(values(), all(true));
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
            QVERIFY(writeFile(m_home + "/.config/mimeapps.list",
                              "[Default Applications]\ninode/directory = " + folderHandlers + "\n"));
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

    // Nemo's windows keep their own state and toggle it with Ctrl+H, writing it into the setting: each
    // window whose state differs gets the key, the setting tells what it shows afterwards, dialogs are
    // left alone, minimised windows are minimised again and the focus goes back where it was.
    void nemoWindowsFollowTheirShortcut()
    {
        FakeDesktop desktop;
        const qint64 nemo = startNemo(desktop, {"/some folder"});
        QVERIFY(nemo > 0);
        // 101 shows what the setting held; 102 was toggled by hand since; 103 is a dialog; 104 is minimised.
        desktop.write("windows", QStringLiteral("101 %1\n102 %1\n103 %1\n104 %1\n").arg(nemo).toUtf8());
        desktop.write("dialogs", "103\n");
        desktop.write("iconic", "104\n");
        desktop.write("active", "200\n");
        for (const char* w : {"101", "103", "104"})
            desktop.write(QStringLiteral("state-%1").arg(w), "false\n");
        desktop.write("state-102", "true\n");

        HiddenScriptResult r = run(kSwitch);
        QVERIFY2(!r.error, r.errorText());
        for (const char* w : {"101", "102", "104"})
            QCOMPARE(desktop.read(QStringLiteral("state-%1").arg(w)), QByteArray("true"));
        QCOMPARE(desktop.read("state-103"), QByteArray("false"));
        const QByteArrayList log = desktop.log();
        QCOMPARE(log.count("key 101"), 1);
        QCOMPARE(log.count("key 102"),
                 2); // away from the wanted state and back: its state was not what the setting said
        QCOMPARE(log.count("key 103"), 0);
        QCOMPARE(log.count("minimize 104"), 1);
        QCOMPARE(log.count("started /some folder"), 1); // never relaunched
        QCOMPARE(desktop.read("active"), QByteArray("200"));
        QCOMPARE(values(), all(true));
        QCOMPARE(run(kCheck).reply, expectedListing(true));

        desktop.write("log", "");
        r = run(kSwitch);
        QVERIFY2(!r.error, r.errorText());
        QCOMPARE(desktop.log().count("key 101"), 1);
        QCOMPARE(desktop.log().count("key 102"), 1);
        QCOMPARE(desktop.read("state-102"), QByteArray("false"));
        QCOMPARE(values(), all(false));

        // Nemo's setting already matched the wish (its windows show it): no key at all.
        set("nemo", true);
        set("gtk", false);
        qputenv("XDG_CURRENT_DESKTOP", "GNOME");
        desktop.write("log", "");
        r = run(kSwitch);
        QVERIFY2(!r.error, r.errorText());
        QVERIFY2(!desktop.read("log").contains("key"), desktop.read("log"));
    }

    // A window that does not take the key leaves the display partly switched: the switch fails and says
    // which file manager and window, though the settings are stored.
    void windowThatIgnoresTheKeyFailsTheSwitch()
    {
        FakeDesktop desktop;
        const qint64 nemo = startNemo(desktop, {});
        QVERIFY(nemo > 0);
        desktop.write("windows", QStringLiteral("101 %1\n102 %1\n").arg(nemo).toUtf8());
        desktop.write("deaf", "102\n");
        desktop.write("active", "200\n");
        desktop.write("state-101", "false\n");
        desktop.write("state-102", "false\n");

        const HiddenScriptResult r = run(kSwitch);
        QVERIFY(r.error);
        QVERIFY2(r.errorText().contains("Nemo") && r.errorText().contains("window 102") &&
                     r.errorText().contains("do not show hidden files"),
                 r.errorText());
        QCOMPARE(desktop.read("state-101"), QByteArray("true"));
        QCOMPARE(desktop.log().count("key 102"), 2);
        QCOMPARE(desktop.read("active"), QByteArray("200"));
        QCOMPARE(values(), all(true));
    }

    // Without X11 windows to send the key to (a Wayland client), Nemo is started again instead.
    void waylandNemoIsRelaunched()
    {
        FakeDesktop desktop;
        qputenv("WAYLAND_DISPLAY", "wayland-0");
        const qint64 nemo = startNemo(desktop, {"/a folder"});
        qunsetenv("WAYLAND_DISPLAY");
        QVERIFY(nemo > 0);
        desktop.write("windows", QStringLiteral("101 %1\n").arg(nemo).toUtf8());
        desktop.write("active", "200\n");

        const HiddenScriptResult r = run(kSwitch);
        QVERIFY2(!r.error, r.errorText());
        QTRY_COMPARE_WITH_TIMEOUT(desktop.log().count("started /a folder"), 2, 5000);
        QVERIFY(!desktop.read("log").contains("key"));
        QCOMPARE(values(), all(true));
    }

    // Dolphin's windows are asked for the state of their show_hidden_files action on the bus and
    // triggered only where it differs; one whose action does not change fails the switch.
    void dolphinWindowsAreSwitchedOverTheBus()
    {
        FakeDesktop desktop;
        setUpFakeDesktop(desktop);
        qputenv("XDG_CURRENT_DESKTOP", "KDE");
        setAll(false);
        QVERIFY(startFake(desktop, "dolphin", {"false", "true", "false"}) > 0);
        QTRY_VERIFY_WITH_TIMEOUT(!desktop.read("ready").isEmpty(), 10000);

        HiddenScriptResult r = run(kSwitch);
        QVERIFY2(!r.error, r.errorText());
        QCOMPARE(desktop.log(), (QByteArrayList{"trigger /dolphin/Dolphin_1/actions/show_hidden_files",
                                                "trigger /dolphin/Dolphin_3/actions/show_hidden_files"}));
        QCOMPARE(values(), all(true));
        desktop.write("log", "");
        r = run(kSwitch);
        QVERIFY2(!r.error, r.errorText());
        QCOMPARE(desktop.log().size(), 3);
        QCOMPARE(values(), all(false));

        FakeDesktop stuck;
        setUpFakeDesktop(stuck);
        QVERIFY(startFake(stuck, "dolphin", {"false-stuck"}) > 0);
        QTRY_VERIFY_WITH_TIMEOUT(!stuck.read("ready").isEmpty(), 10000);
        r = run(kSwitch);
        QVERIFY(r.error);
        QVERIFY2(r.errorText().contains("Dolphin") && r.errorText().contains("Dolphin_1 did not switch"),
                 r.errorText());
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
        QVERIFY(linkBasicTools(bin.path()));
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
        // Thunar quits on "thunar -q", and is started again with the same arguments.
        FakeDesktop desktop;
        setUpFakeDesktop(desktop);
        qunsetenv("DISPLAY");
        const qint64 firstPid = startFake(desktop, "thunar", {"--daemon"});
        QVERIFY(firstPid > 0);
        QTRY_VERIFY(!desktop.read("pid").isEmpty());
        QProcess& first = *desktop.programs.front();

        setAll(false);
        qputenv("LC_ALL", "C.UTF-8");
        const HiddenScriptResult r = run("ShowHiddensAndRelaunchFinder");
        qunsetenv("LC_ALL");
        QVERIFY2(!r.error, r.errorText());
        QTRY_COMPARE_WITH_TIMEOUT(first.state(), QProcess::NotRunning, 5000);
        QCOMPARE(values(), all(true));
        // Started again with the same arguments, in the user's locale.
        QTRY_COMPARE_WITH_TIMEOUT(desktop.read("log"), QByteArray("started --daemon\nstarted --daemon in C.UTF-8"),
                                  5000);
        const qint64 secondPid = desktop.read("pid").toLongLong();
        QVERIFY(secondPid > 0 && secondPid != firstPid);
    }
};

QTEST_GUILESS_MAIN(TestHiddenScripts)
#include "TestHiddenScripts.moc"
