#include "core/UserDefaults.h"
#include "hidden/DiskAccessRestoreManager.h"
#include "hidden/ScriptsManager.h"
#include "support/Files.h"
#include "support/HiddenScriptRun.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

// The real runner over scripts written by the test: copying into the Scripts folder, replies, errors,
// arguments and the focus counter.
class TestScriptsManager : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_bundle;
    QString m_folder;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<DiskAccessRestoreManager> m_access;

    static void writeScript(const QString& folder, const QString& name, const QByteArray& text)
    {
        QVERIFY(writeFile(folder + '/' + name + ".sh", text));
    }

    std::unique_ptr<ScriptsManager> make(const QString& folder = {}, int timeoutMs = 20000)
    {
        return std::make_unique<ScriptsManager>(
            *m_access, ScriptsManager::Options{folder.isEmpty() ? m_folder : folder, m_bundle, timeoutMs});
    }

    static HiddenScriptResult run(ScriptsManager& m, const QString& name, const QStringList& args = {})
    {
        return runHiddenScript(m, name, args, 15000);
    }

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_dir.isValid());
        m_bundle = m_dir.filePath("bundle");
        m_folder = m_dir.filePath("data/trovix/Scripts");
        QDir(m_folder).removeRecursively();
        QDir(m_bundle).removeRecursively();
        m_defaults = std::make_unique<UserDefaults>(m_dir.filePath("std.json"));
        m_access = std::make_unique<DiskAccessRestoreManager>(*m_defaults);
        writeScript(m_bundle, "Echo", "printf '%s\\n' \"$@\"\n");
    }

    void firstRunCopiesThenRunsAndReplacesNothing()
    {
        auto m = make();
        QVERIFY(!m->doesScriptWithNameExistInScriptsFolder("Echo"));
        QVERIFY(m->doesScriptWithNameExistInBundle("Echo"));
        const QStringList args{"with space", "it's \"quoted\"", "$(touch x)", "-n"};
        HiddenScriptResult r = run(*m, "Echo", args);
        QVERIFY(!r.error);
        QCOMPARE(r.reply, args);
        QVERIFY(m->doesScriptWithNameExistInScriptsFolder("Echo"));
        QVERIFY(QFileInfo(m_folder + "/Echo.sh").isWritable());

        // The user's copy wins over a newer shipped one.
        writeScript(m_folder, "Echo", "echo mine\n");
        writeScript(m_bundle, "Echo", "echo shipped\n");
        QCOMPARE(run(*m, "Echo").reply, QStringList{"mine"});
        // A deleted copy comes back from the shipped one.
        QFile::remove(m_folder + "/Echo.sh");
        QCOMPARE(run(*m, "Echo").reply, QStringList{"shipped"});
    }

    // The scripts' shared library reaches users who installed an older one; a copy of the same or a
    // later version stays, and so does every catalogue script.
    void backendsLibraryIsReplacedByANewerVersion_data()
    {
        QTest::addColumn<QByteArray>("installed");
        QTest::addColumn<bool>("replaced");
        QTest::newRow("from before the stamp") << QByteArray("# no stamp\n") << true;
        QTest::newRow("older") << QByteArray("# trovix-backends-version: 2\n") << true;
        QTest::newRow("same") << QByteArray("# trovix-backends-version: 3\n") << false;
        QTest::newRow("later") << QByteArray("# trovix-backends-version: 12\n") << false;
    }
    void backendsLibraryIsReplacedByANewerVersion()
    {
        QFETCH(QByteArray, installed);
        QFETCH(bool, replaced);
        const QByteArray shipped = "# A library.\n# trovix-backends-version: 3\nword=shipped\n";
        writeScript(m_bundle, "HiddenFilesBackends", shipped);
        writeScript(m_bundle, "UsesLibrary", ". \"${0%/*}/HiddenFilesBackends.sh\"; echo \"$word\"\n");
        writeScript(m_folder, "HiddenFilesBackends", installed + "word=installed\n");
        writeScript(m_folder, "Echo", "echo mine\n");
        auto m = make();
        QCOMPARE(run(*m, "UsesLibrary").reply, QStringList{replaced ? "shipped" : "installed"});
        QCOMPARE(run(*m, "Echo").reply, QStringList{"mine"});
        // Fed on standard input, a script has only the installed library to go by.
        QFile::remove(m_folder + "/HiddenFilesBackends.sh");
        QVERIFY(!m->installBackendsLibrary());
        QCOMPARE(readFile(m_folder + "/HiddenFilesBackends.sh"), shipped);
    }

    void failures_data()
    {
        QTest::addColumn<QByteArray>("text"); // empty: shipped nowhere
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("description");
        QTest::newRow("exit status and standard error")
            << QByteArray("echo partial; echo 'no backend found' >&2; exit 3\n") << 3 << "no backend found";
        QTest::newRow("silent failure") << QByteArray("exit 4\n") << 4 << "Failing ended with status 4";
        QTest::newRow("killed") << QByteArray("kill -KILL $$\n") << -1 << "Failing was stopped";
        QTest::newRow("missing everywhere") << QByteArray() << -1 << "";
    }
    void failures()
    {
        QFETCH(QByteArray, text);
        QFETCH(int, code);
        QFETCH(QString, description);
        if (!text.isEmpty())
            writeScript(m_bundle, "Failing", text);
        HiddenScriptResult r = run(*make(), "Failing");
        QVERIFY(r.error);
        QCOMPARE(r.error->code, code);
        QCOMPARE(r.error->description, description);
        QCOMPARE(r.error->domain, "com.quorbel.trovix");
        QVERIFY(r.reply.isEmpty());
    }

    void noScriptsFolderIsTheRunnersError_data()
    {
        // The Scripts folder's parent is a file, or the home cannot be read, even by root: it is not there.
        QTest::addColumn<bool>("blocked");
        QTest::addColumn<QString>("description");
        QTest::newRow("home not there") << false << "";
        QTest::newRow("folder cannot be made") << true << "Can not get folder with NSUserDomainMask.";
    }
    void noScriptsFolderIsTheRunnersError()
    {
        QFETCH(bool, blocked);
        QFETCH(QString, description);
        QFile(m_dir.filePath("blocker")).open(QIODevice::WriteOnly);
        const QByteArray home = qgetenv("HOME");
        if (!blocked)
            qputenv("HOME", QFile::encodeName(m_dir.filePath("gone")));
        const HiddenScriptResult r = run(*make(blocked ? m_dir.filePath("blocker/Scripts") : QString()), "Echo");
        qputenv("HOME", home);
        QVERIFY(r.error);
        QCOMPARE(r.error->code, -1);
        QCOMPARE(r.error->description, description);
        QVERIFY(!QFile::exists(m_folder + "/Echo.sh"));
    }

    void focusTakingScriptCountsAndBringsTheProgramBack_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("active");
        QTest::addColumn<int>("activations");
        QTest::newRow("switch while in front") << "SwitchHiddenFilesVisibility2" << true << 1;
        QTest::newRow("switch while behind") << "SwitchHiddenFilesVisibility2" << false << 0;
        QTest::newRow("other script") << "Other" << true << 0;
    }
    void focusTakingScriptCountsAndBringsTheProgramBack()
    {
        QFETCH(QString, name);
        QFETCH(bool, active);
        QFETCH(int, activations);
        const QString gate = m_dir.filePath("gate");
        QFile::remove(gate);
        writeScript(m_bundle, name, "while [ ! -e \"$1\" ]; do sleep 0.05; done\n");
        auto m = make();
        int activated = 0;
        m->setApplicationActivation([active] { return active; }, [&] { ++activated; });
        bool done = false;
        m->executeAppleScript(name, {gate}, [&](const QStringList&, const auto& e) {
            QVERIFY(!e);
            done = true;
        });
        QCOMPARE(m->mightLoseFocusBecauseOfScript(), name == "SwitchHiddenFilesVisibility2");
        QFile(gate).open(QIODevice::WriteOnly);
        QTRY_VERIFY_WITH_TIMEOUT(done, 10000);
        QVERIFY(!m->mightLoseFocusBecauseOfScript());
        QCOMPARE(activated, activations);
    }

    void hangingScriptIsStopped()
    {
        writeScript(m_bundle, "Hang", "sleep 30\n");
        QTest::ignoreMessage(QtWarningMsg, "trovix: script Hang did not end in time and was stopped");
        const HiddenScriptResult r = run(*make({}, 300), "Hang");
        QVERIFY(r.error);
        QCOMPARE(r.error->code, -1); // not the helper's own give-up
    }
};

QTEST_GUILESS_MAIN(TestScriptsManager)
#include "TestScriptsManager.moc"
