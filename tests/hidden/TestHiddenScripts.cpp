#include "app/UserDefaults.h"
#include "hidden/DiskAccessRestoreManager.h"
#include "hidden/ScriptsManager.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <QStandardPaths>

#include <algorithm>
#include <csignal>

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

    static QString tool(const QString& program, const QStringList& args)
    {
        QProcess p;
        p.start(program, args);
        if (!p.waitForFinished(10000) || p.exitCode() != 0)
            return QStringLiteral("<failed: %1>").arg(QString::fromUtf8(p.readAllStandardError()).trimmed());
        return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
    }

    QString dolphinFile() const
    {
        return m_home + QStringLiteral("/.local/share/dolphin/view_properties/global/.directory");
    }

    // Every backend's value as its own tool reads it.
    QMap<QString, QString> values() const
    {
        const auto gs = [](const char* schema, const char* key) {
            return tool(QStringLiteral("gsettings"),
                        {QStringLiteral("get"), QLatin1String(schema), QLatin1String(key)});
        };
        QString thunar =
            tool(QStringLiteral("xfconf-query"), {QStringLiteral("-c"), QStringLiteral("thunar"), QStringLiteral("-p"),
                                                  QStringLiteral("/last-show-hidden")});
        if (thunar.startsWith(QLatin1String("<failed")))
            thunar = QStringLiteral("false"); // absent: Thunar's default
        return {
            {QStringLiteral("gtk4"), gs("org.gtk.gtk4.Settings.FileChooser", "show-hidden")},
            {QStringLiteral("gtk3"), gs("org.gtk.Settings.FileChooser", "show-hidden")},
            {QStringLiteral("nemo"), gs("org.nemo.preferences", "show-hidden-files")},
            {QStringLiteral("caja"), gs("org.mate.caja.preferences", "show-hidden-files")},
            {QStringLiteral("thunar"), thunar},
            {QStringLiteral("dolphin"),
             tool(QStringLiteral("kreadconfig5"),
                  {QStringLiteral("--file"), dolphinFile(), QStringLiteral("--group"), QStringLiteral("Settings"),
                   QStringLiteral("--key"), QStringLiteral("HiddenFilesShown"), QStringLiteral("--default"),
                   QStringLiteral("false")})},
        };
    }

    static QMap<QString, QString> all(bool v)
    {
        const QString s = v ? QStringLiteral("true") : QStringLiteral("false");
        return {{QStringLiteral("gtk4"), s}, {QStringLiteral("gtk3"), s},   {QStringLiteral("nemo"), s},
                {QStringLiteral("caja"), s}, {QStringLiteral("thunar"), s}, {QStringLiteral("dolphin"), s}};
    }

    // Sets backends through their own tools (not through the scripts).
    void set(const QString& backend, bool v)
    {
        const QString s = v ? QStringLiteral("true") : QStringLiteral("false");
        const auto gs = [&](const char* schema, const char* key) {
            QCOMPARE(tool(QStringLiteral("gsettings"),
                          {QStringLiteral("set"), QLatin1String(schema), QLatin1String(key), s}),
                     QString());
        };
        if (backend == QLatin1String("gtk")) {
            gs("org.gtk.gtk4.Settings.FileChooser", "show-hidden");
            gs("org.gtk.Settings.FileChooser", "show-hidden");
        } else if (backend == QLatin1String("nemo")) {
            gs("org.nemo.preferences", "show-hidden-files");
        } else if (backend == QLatin1String("caja")) {
            gs("org.mate.caja.preferences", "show-hidden-files");
        } else if (backend == QLatin1String("thunar")) {
            tool(QStringLiteral("xfconf-query"),
                 {QStringLiteral("-c"), QStringLiteral("thunar"), QStringLiteral("-p"),
                  QStringLiteral("/last-show-hidden"), QStringLiteral("-n"), QStringLiteral("-t"),
                  QStringLiteral("bool"), QStringLiteral("-s"), s});
        } else if (backend == QLatin1String("dolphin")) {
            QDir().mkpath(QFileInfo(dolphinFile()).path());
            tool(QStringLiteral("kwriteconfig5"),
                 {QStringLiteral("--file"), dolphinFile(), QStringLiteral("--group"), QStringLiteral("Settings"),
                  QStringLiteral("--key"), QStringLiteral("HiddenFilesShown"), QStringLiteral("--type"),
                  QStringLiteral("bool"), s});
        }
    }

    void setAll(bool v)
    {
        for (const char* b : {"gtk", "nemo", "caja", "thunar", "dolphin"})
            set(QLatin1String(b), v);
    }

    struct Result
    {
        QStringList reply;
        std::optional<ScriptError> error;
    };

    Result run(const QString& name)
    {
        Result r;
        bool done = false;
        m_scripts->executeAppleScript(name, [&](const QStringList& reply, const std::optional<ScriptError>& e) {
            r.reply = reply;
            r.error = e;
            done = true;
        });
        if (!QTest::qWaitFor([&] { return done; }, 60000))
            r.error = ScriptError{QString(), -2, QStringLiteral("did not end")};
        return r;
    }

    // The home folder as a file manager lists it: dot-names first (byte order) when hidden files show,
    // then the other names minus those listed in .hidden when they do not.
    QStringList expectedListing(bool shown) const
    {
        QStringList dots, others;
        const QStringList hiddenList = QStringList{QStringLiteral("secret file")};
        for (const QString& n :
             QDir(m_home).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
            if (n.startsWith(QLatin1Char('.')))
                dots << n;
            else if (shown || !hiddenList.contains(n))
                others << n;
        }
        const auto bytes = [](const QString& a, const QString& b) { return a.toUtf8() < b.toUtf8(); };
        std::sort(dots.begin(), dots.end(), bytes);
        std::sort(others.begin(), others.end(), bytes);
        return shown ? dots + others : others;
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
            QSKIP("needs the private session bus of the test runner");
        m_path = qgetenv("PATH");
        // A home whose name has spaces and quotes; the XDG folders follow it. Set before xfconfd starts.
        m_home = QDir::homePath() + QStringLiteral("/user's \"home\" dir");
        QVERIFY(QDir().mkpath(m_home + QStringLiteral("/.config")));
        QVERIFY(QDir().mkpath(m_home + QStringLiteral("/.local/share")));
        QVERIFY(QDir().mkpath(m_home + QStringLiteral("/Documents")));
        for (const char* f : {".bashrc", ".profile", "notes.txt", "secret file", "-dash", "Zebra"}) {
            QFile file(m_home + QLatin1Char('/') + QLatin1String(f));
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
        QFile hidden(m_home + QStringLiteral("/.hidden"));
        QVERIFY(hidden.open(QIODevice::WriteOnly));
        hidden.write("secret file\n");
        hidden.close();
        qputenv("HOME", QFile::encodeName(m_home));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home + QStringLiteral("/.config")));
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_home + QStringLiteral("/.local/share")));
        qputenv("XDG_CACHE_HOME", QFile::encodeName(m_home + QStringLiteral("/.cache")));
        qputenv("GSETTINGS_BACKEND", "keyfile");

        const QString xfconfd = QStringLiteral("/usr/lib/x86_64-linux-gnu/xfce4/xfconf/xfconfd");
        QVERIFY2(QFile::exists(xfconfd), "xfconf is not installed");
        m_xfconfd.start(xfconfd, {});
        QVERIFY(m_xfconfd.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(
            QDBusConnection::sessionBus().interface()->isServiceRegistered(QStringLiteral("org.xfce.Xfconf")).value(),
            10000);

        m_defaults = std::make_unique<UserDefaults>(m_home + QStringLiteral("/.config/std.json"));
        m_access = std::make_unique<DiskAccessRestoreManager>(*m_defaults);
        m_scripts = std::make_unique<ScriptsManager>(*m_access, ScriptsManager::Options{});
    }

    void cleanupTestCase()
    {
        if (m_xfconfd.state() != QProcess::NotRunning) {
            m_xfconfd.terminate();
            if (!m_xfconfd.waitForFinished(5000))
                m_xfconfd.kill();
            m_xfconfd.waitForFinished(5000);
        }
    }

    void init()
    {
        qputenv("PATH", m_path);
        qunsetenv("XDG_DATA_DIRS");
        QFile::remove(m_home + QStringLiteral("/.config/mimeapps.list"));
    }

    void scriptsAreCopiedUnderTheOddHome()
    {
        QVERIFY(!run(QStringLiteral("AttachedScript")).error);
        QVERIFY(QFile::exists(m_home + QStringLiteral("/.local/share/trovix/Scripts/AttachedScript.sh")));
    }

    void checkReplyFollowsThePrimarySetting_data()
    {
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QString>("backend");
        QTest::addColumn<bool>("shown");
        for (bool shown : {true, false}) {
            const char* s = shown ? "shown" : "hidden";
            QTest::addRow("GNOME %s", s) << QStringLiteral("GNOME") << QStringLiteral("gtk") << shown;
            QTest::addRow("Cinnamon %s", s) << QStringLiteral("X-Cinnamon") << QStringLiteral("nemo") << shown;
            QTest::addRow("MATE %s", s) << QStringLiteral("MATE") << QStringLiteral("caja") << shown;
            QTest::addRow("Xfce %s", s) << QStringLiteral("XFCE") << QStringLiteral("thunar") << shown;
            QTest::addRow("KDE %s", s) << QStringLiteral("KDE") << QStringLiteral("dolphin") << shown;
        }
    }
    void checkReplyFollowsThePrimarySetting()
    {
        QFETCH(QString, desktop);
        QFETCH(QString, backend);
        QFETCH(bool, shown);
        qputenv("XDG_CURRENT_DESKTOP", desktop.toUtf8());
        // Only the primary file manager's setting says "shown" (or only it says "hidden").
        setAll(!shown);
        set(backend, shown);
        const Result r = run(QStringLiteral("CheckHiddenFilesFisibilityByAskingFinder"));
        qunsetenv("XDG_CURRENT_DESKTOP");
        QVERIFY2(!r.error, qPrintable(r.error ? r.error->description : QString()));
        QCOMPARE(r.reply, expectedListing(shown));
    }

    void defaultFolderHandlerWinsOverTheDesktop()
    {
        qputenv("XDG_CURRENT_DESKTOP", "GNOME");
        QFile list(m_home + QStringLiteral("/.config/mimeapps.list"));
        QVERIFY(list.open(QIODevice::WriteOnly));
        list.write("[Default Applications]\ninode/directory = nemo.desktop;org.gnome.Nautilus.desktop;\n");
        list.close();
        setAll(false);
        set(QStringLiteral("nemo"), true);
        const Result r = run(QStringLiteral("CheckHiddenFilesFisibilityByAskingFinder"));
        qunsetenv("XDG_CURRENT_DESKTOP");
        QVERIFY(!r.error);
        QCOMPARE(r.reply, expectedListing(true));
    }

    void switchingTwiceReturnsEveryBackend_data()
    {
        QTest::addColumn<bool>("start");
        QTest::newRow("from hidden") << false;
        QTest::newRow("from shown") << true;
    }
    void switchingTwiceReturnsEveryBackend()
    {
        QFETCH(bool, start);
        qputenv("XDG_CURRENT_DESKTOP", "GNOME");
        setAll(start);
        QCOMPARE(values(), all(start));
        Result r = run(QStringLiteral("SwitchHiddenFilesVisibility2"));
        QVERIFY2(!r.error, qPrintable(r.error ? r.error->description : QString()));
        QCOMPARE(values(), all(!start));
        QCOMPARE(run(QStringLiteral("CheckHiddenFilesFisibilityByAskingFinder")).reply, expectedListing(!start));
        r = run(QStringLiteral("SwitchHiddenFilesVisibility2"));
        QVERIFY(!r.error);
        qunsetenv("XDG_CURRENT_DESKTOP");
        QCOMPARE(values(), all(start));
    }

    void switchFollowsThePrimaryAndAlignsTheOthers()
    {
        qputenv("XDG_CURRENT_DESKTOP", "XFCE");
        setAll(true);
        set(QStringLiteral("thunar"), false);
        QVERIFY(!run(QStringLiteral("SwitchHiddenFilesVisibility2")).error);
        qunsetenv("XDG_CURRENT_DESKTOP");
        QCOMPARE(values(), all(true));
    }

    void writeScriptsSetEveryBackend()
    {
        setAll(false);
        QVERIFY(!run(QStringLiteral("WriteIntoSystemPreferencesShowHiddens")).error);
        QCOMPARE(values(), all(true));
        QVERIFY(!run(QStringLiteral("WriteIntoSystemPreferencesHideHiddens")).error);
        QCOMPARE(values(), all(false));
    }

    void missingSchemasAreSkipped()
    {
        setAll(false);
        QTemporaryDir empty;
        qputenv("XDG_DATA_DIRS", QFile::encodeName(empty.path()));
        qputenv("XDG_CURRENT_DESKTOP", "GNOME"); // its backend is gone: the first one present decides
        const Result r = run(QStringLiteral("SwitchHiddenFilesVisibility2"));
        const Result check = run(QStringLiteral("CheckHiddenFilesFisibilityByAskingFinder"));
        qunsetenv("XDG_CURRENT_DESKTOP");
        qunsetenv("XDG_DATA_DIRS");
        QVERIFY2(!r.error, qPrintable(r.error ? r.error->description : QString()));
        QVERIFY(!check.error);
        QCOMPARE(check.reply, expectedListing(true));
        auto expected = all(false);
        expected[QStringLiteral("thunar")] = QStringLiteral("true");
        expected[QStringLiteral("dolphin")] = QStringLiteral("true");
        QCOMPARE(values(), expected);
    }

    void noBackendFailsCleanly()
    {
        // Only the basic tools: no gsettings, xfconf-query or kwriteconfig5.
        QTemporaryDir bin;
        for (const char* t : {"awk", "tr", "sed", "head", "grep", "cat", "id", "mkdir", "sleep", "mktemp", "rm"}) {
            const QString real = QStandardPaths::findExecutable(QLatin1String(t));
            QVERIFY2(!real.isEmpty(), t);
            QVERIFY(QFile::link(real, bin.filePath(QLatin1String(t))));
        }
        qputenv("PATH", QFile::encodeName(bin.path()));
        const Result check = run(QStringLiteral("CheckHiddenFilesFisibilityByAskingFinder"));
        const Result sw = run(QStringLiteral("SwitchHiddenFilesVisibility2"));
        const Result write = run(QStringLiteral("WriteIntoSystemPreferencesShowHiddens"));
        qputenv("PATH", m_path);
        for (const Result& r : {check, sw, write}) {
            QVERIFY(r.error);
            QVERIFY(r.error->code > 0);
            QVERIFY2(r.error->description.contains(QLatin1String("no supported file-manager setting")),
                     qPrintable(r.error->description));
        }
    }

    void relaunchRestartsOnlyRunningFileManagers()
    {
        // A stand-in Thunar: it records each start and quits on "thunar -q", as the real one does.
        QTemporaryDir bin;
        const QString log = bin.filePath(QStringLiteral("log"));
        const QString pidFile = bin.filePath(QStringLiteral("pid"));
        QFile fake(bin.filePath(QStringLiteral("thunar")));
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
        // Whatever happens below, the stand-in the script started again is stopped by its id.
        qint64 firstPid = 0;
        const auto stopRelaunched = qScopeGuard([&pidFile, &firstPid] {
            QFile f(pidFile);
            const qint64 pid = f.open(QIODevice::ReadOnly) ? f.readAll().trimmed().toLongLong() : 0;
            if (pid > 0 && pid != firstPid)
                ::kill(static_cast<pid_t>(pid), SIGTERM);
        });

        first.start(fake.fileName(), {QStringLiteral("--daemon")});
        QVERIFY(first.waitForStarted());
        QTRY_VERIFY(QFile::exists(pidFile));
        firstPid = first.processId();

        setAll(false);
        const Result r = run(QStringLiteral("ShowHiddensAndRelaunchFinder"));
        QVERIFY2(!r.error, qPrintable(r.error ? r.error->description : QString()));
        QTRY_COMPARE_WITH_TIMEOUT(first.state(), QProcess::NotRunning, 5000);
        QCOMPARE(values(), all(true));

        // Started again with the same arguments; stop that one by its id.
        const auto readLog = [&log] {
            QFile f(log);
            return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
        };
        QTRY_COMPARE_WITH_TIMEOUT(readLog(), QByteArray("started --daemon\nstarted --daemon\n"), 5000);
        QFile pid(pidFile);
        QVERIFY(pid.open(QIODevice::ReadOnly));
        const qint64 secondPid = pid.readAll().trimmed().toLongLong();
        QVERIFY(secondPid > 0 && secondPid != firstPid);

        qputenv("PATH", m_path);
        qunsetenv("FAKE_DIR");
    }
};

QTEST_GUILESS_MAIN(TestHiddenScripts)
#include "TestHiddenScripts.moc"
