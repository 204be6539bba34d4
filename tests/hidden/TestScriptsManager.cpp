#include "app/UserDefaults.h"
#include "hidden/DiskAccessRestoreManager.h"
#include "hidden/ScriptsManager.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

// The real runner over scripts written by the test: copying into the Scripts folder, replies, errors,
// arguments and the focus counter.
class TestScriptsManager : public QObject
{
    Q_OBJECT

    struct Result
    {
        bool done = false;
        QStringList reply;
        std::optional<ScriptError> error;
    };

    QTemporaryDir m_dir;
    QString m_bundle;
    QString m_folder;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<DiskAccessRestoreManager> m_access;

    void writeScript(const QString& folder, const QString& name, const QByteArray& text)
    {
        QDir().mkpath(folder);
        QFile f(folder + QLatin1Char('/') + name + QStringLiteral(".sh"));
        QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(text);
    }

    std::unique_ptr<ScriptsManager> make(const QString& folder = {})
    {
        return std::make_unique<ScriptsManager>(
            *m_access, ScriptsManager::Options{folder.isEmpty() ? m_folder : folder, m_bundle, 20000});
    }

    static Result run(ScriptsManager& m, const QString& name, const QStringList& args = {})
    {
        Result r;
        m.executeAppleScript(name, args, [&r](const QStringList& reply, const std::optional<ScriptError>& e) {
            r.done = true;
            r.reply = reply;
            r.error = e;
        });
        if (!QTest::qWaitFor([&] { return r.done; }, 15000))
            qWarning("script did not end");
        return r;
    }

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_dir.isValid());
        m_bundle = m_dir.filePath(QStringLiteral("bundle"));
        m_folder = m_dir.filePath(QStringLiteral("data/trovix/Scripts"));
        QDir(m_folder).removeRecursively();
        QDir(m_bundle).removeRecursively();
        m_defaults = std::make_unique<UserDefaults>(m_dir.filePath(QStringLiteral("std.json")));
        m_access = std::make_unique<DiskAccessRestoreManager>(*m_defaults);
        writeScript(m_bundle, QStringLiteral("Echo"), "printf '%s\\n' \"$@\"\n");
    }

    void firstRunCopiesThenRunsAndReplacesNothing()
    {
        auto m = make();
        QVERIFY(!m->doesScriptWithNameExistInScriptsFolder(QStringLiteral("Echo")));
        QVERIFY(m->doesScriptWithNameExistInBundle(QStringLiteral("Echo")));
        const QStringList args{QStringLiteral("with space"), QStringLiteral("it's \"quoted\""),
                               QStringLiteral("$(touch x)"), QStringLiteral("-n")};
        Result r = run(*m, QStringLiteral("Echo"), args);
        QVERIFY(!r.error);
        QCOMPARE(r.reply, args);
        QVERIFY(m->doesScriptWithNameExistInScriptsFolder(QStringLiteral("Echo")));
        QVERIFY(QFileInfo(m_folder + QStringLiteral("/Echo.sh")).isWritable());

        // The user's copy wins over a newer shipped one.
        writeScript(m_folder, QStringLiteral("Echo"), "echo mine\n");
        writeScript(m_bundle, QStringLiteral("Echo"), "echo shipped\n");
        QCOMPARE(run(*m, QStringLiteral("Echo")).reply, QStringList{QStringLiteral("mine")});
        // A deleted copy comes back from the shipped one.
        QFile::remove(m_folder + QStringLiteral("/Echo.sh"));
        QCOMPARE(run(*m, QStringLiteral("Echo")).reply, QStringList{QStringLiteral("shipped")});
    }

    void failures_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("description");
        QTest::newRow("exit status and standard error")
            << QByteArray("echo partial; echo 'no backend found' >&2; exit 3\n") << 3
            << QStringLiteral("no backend found");
        QTest::newRow("silent failure") << QByteArray("exit 4\n") << 4 << QStringLiteral("Failing ended with status 4");
        QTest::newRow("killed") << QByteArray("kill -KILL $$\n") << -1 << QStringLiteral("Failing was stopped");
    }
    void failures()
    {
        QFETCH(QByteArray, text);
        QFETCH(int, code);
        QFETCH(QString, description);
        writeScript(m_bundle, QStringLiteral("Failing"), text);
        auto m = make();
        Result r = run(*m, QStringLiteral("Failing"));
        QVERIFY(r.done);
        QVERIFY(r.error);
        QCOMPARE(r.error->code, code);
        QCOMPARE(r.error->description, description);
        QCOMPARE(r.error->domain, QStringLiteral("com.quorbel.trovix"));
        QVERIFY(r.reply.isEmpty());
    }

    void missingEverywhereIsCodeMinusOne()
    {
        auto m = make();
        Result r = run(*m, QStringLiteral("Nowhere"));
        QVERIFY(r.error);
        QCOMPARE(r.error->code, -1);
        QVERIFY(r.error->description.isEmpty());
    }

    void inaccessibleHomeStopsTheCopy()
    {
        // A home that cannot be read, even by root: one that is not there.
        const QByteArray home = qgetenv("HOME");
        qputenv("HOME", QFile::encodeName(m_dir.filePath(QStringLiteral("gone"))));
        auto m = make();
        Result r = run(*m, QStringLiteral("Echo"));
        qputenv("HOME", home);
        QVERIFY(r.error);
        QCOMPARE(r.error->code, -1);
        QVERIFY(!QFile::exists(m_folder + QStringLiteral("/Echo.sh")));
    }

    void folderThatCannotBeMadeIsTheRunnersError()
    {
        QFile blocker(m_dir.filePath(QStringLiteral("blocker")));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        auto m = make(blocker.fileName() + QStringLiteral("/Scripts"));
        ScriptError e;
        QCOMPARE(m->scriptFilePathWithName(QStringLiteral("Echo"), &e), QString());
        Result r = run(*m, QStringLiteral("Echo"));
        QVERIFY(r.error);
        QCOMPARE(r.error->code, -1);
        QCOMPARE(r.error->description, QStringLiteral("Can not get folder with NSUserDomainMask."));
    }

    void focusTakingScriptCountsAndBringsTheProgramBack_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("active");
        QTest::addColumn<int>("activations");
        QTest::newRow("switch while in front") << QStringLiteral("SwitchHiddenFilesVisibility2") << true << 1;
        QTest::newRow("switch while behind") << QStringLiteral("SwitchHiddenFilesVisibility2") << false << 0;
        QTest::newRow("other script") << QStringLiteral("Other") << true << 0;
    }
    void focusTakingScriptCountsAndBringsTheProgramBack()
    {
        QFETCH(QString, name);
        QFETCH(bool, active);
        QFETCH(int, activations);
        const QString gate = m_dir.filePath(QStringLiteral("gate"));
        QFile::remove(gate);
        writeScript(m_bundle, name, QByteArray("while [ ! -e \"$1\" ]; do sleep 0.05; done\n"));
        auto m = make();
        int activated = 0;
        m->setApplicationActivation([active] { return active; }, [&] { ++activated; });
        bool done = false;
        m->executeAppleScript(name, {gate}, [&](const QStringList&, const auto& e) {
            QVERIFY(!e);
            done = true;
        });
        const bool counts = name == QLatin1String("SwitchHiddenFilesVisibility2");
        QCOMPARE(m->mightLoseFocusBecauseOfScript(), counts);
        QFile(gate).open(QIODevice::WriteOnly);
        QTRY_VERIFY_WITH_TIMEOUT(done, 10000);
        QVERIFY(!m->mightLoseFocusBecauseOfScript());
        QCOMPARE(activated, activations);
    }

    void hangingScriptIsStopped()
    {
        writeScript(m_bundle, QStringLiteral("Hang"), "sleep 30\n");
        ScriptsManager m(*m_access, ScriptsManager::Options{m_folder, m_bundle, 300});
        QTest::ignoreMessage(QtWarningMsg, "trovix: script Hang did not end in time and was stopped");
        Result r = run(m, QStringLiteral("Hang"));
        QVERIFY(r.error);
    }
};

QTEST_GUILESS_MAIN(TestScriptsManager)
#include "TestScriptsManager.moc"
