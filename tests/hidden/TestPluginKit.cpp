#include "core/DistributedNotificationCenter.h"
#include "hidden/PluginKit.h"
#include "support/Files.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>

// The file managers' entries for real: installed into homes whose paths need quoting, merged into a Thunar
// action list the user already has, reported and removed by the tool; the command each file manager would
// run, run, reaching a listener on a private session bus as the tray program would get it.
class TestPluginKit : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_data;
    QString m_config;
    const QString m_trovix = QStringLiteral(TROVIX_BINARY_DIR "/trovix");
    const QByteArray m_usersThunar = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<actions>\n<action>\n"
                                     "\t<name>Open Terminal Here</name>\n\t<unique-id>1-1</unique-id>\n"
                                     "\t<command>exo-open --working-directory %f</command>\n</action>\n</actions>\n";

    PluginKit kit() const { return PluginKit({m_data, m_config, m_trovix}); }

    QString tool(const QStringList& args, int* status = nullptr) const
    {
        QString out, err;
        QTextStream o(&out), e(&err);
        const int rc = kit().run(args, o, e);
        if (status)
            *status = rc;
        return out + err;
    }

    static QByteArray read(const QString& path)
    {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
    }

    // The line of an installed entry that names its command, with the selection put in for %F.
    QString command(const QString& file, const QString& prefix, const QString& action, const QStringList& paths) const
    {
        for (QString line : QString::fromUtf8(read(file)).split('\n')) {
            line = line.trimmed();
            if (!line.startsWith(prefix) || !line.contains(' ' + action + ' '))
                continue;
            QString quoted;
            for (QString p : paths)
                quoted += " '" + p.replace("'", "'\\''") + "'";
            return line.mid(prefix.size()).replace(" %F", quoted);
        }
        return {};
    }

    static int sh(const QString& commandLine) { return QProcess::execute("/bin/sh", {"-c", commandLine}); }

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_dir.isValid());
        const QString home = m_dir.filePath(QString::number(QDateTime::currentMSecsSinceEpoch()) + " it's $HOME");
        m_data = home + "/data";
        m_config = home + "/config";
        QVERIFY(writeFile(m_config + "/Thunar/uca.xml", m_usersThunar));
    }

    void installReportRemove()
    {
        int rc = -1;
        const QString id = PluginKit::kExtensionId;
        QCOMPARE(tool({"-m", "-A", "-i", id}), "-    " + id + "(" TROVIX_VERSION ")\n");
        QCOMPARE(tool({"-e", "use", "-i", id}, &rc), QString());
        QCOMPARE(rc, 0);
        QCOMPARE(tool({"-e", "use", "-i", id}), QString()); // twice: still one copy of each action
        QCOMPARE(tool({"-m", "-A", "-i", id}), "+    " + id + "(" TROVIX_VERSION ")\n");
        QCOMPARE(tool({"-m", "-A", "-i", "com.example.Other"}), QString());

        const QByteArray thunar = read(m_config + "/Thunar/uca.xml");
        QCOMPARE(thunar.count("<unique-id>com.quorbel.trovix."), 2);
        QCOMPARE(thunar.count("<unique-id>1-1</unique-id>"), 1);
        QVERIFY(QFileInfo(m_data + "/kio/servicemenus/trovix.desktop").isExecutable());
        QVERIFY(QFileInfo(kit().senderPath()).isExecutable());
        QVERIFY(QFileInfo::exists(m_data + "/nemo/actions/trovix-unhide.nemo_action"));

        // GNOME Files' extension: valid Python naming the sender exactly.
        QProcess python;
        python.start("/usr/bin/python3",
                     {"-c",
                      "import ast,sys; src=open(sys.argv[1]).read(); ast.parse(src); "
                      "print(ast.literal_eval([l for l in src.splitlines() if l.startswith('SENDER = ')][0][9:]))",
                      m_data + "/nautilus-python/extensions/trovix.py"});
        QVERIFY(python.waitForFinished(10000));
        QCOMPARE(QString::fromUtf8(python.readAllStandardOutput()).trimmed(), kit().senderPath());

        QCOMPARE(tool({"-e", "ignore", "-i", id}, &rc), QString());
        QCOMPARE(rc, 0);
        QCOMPARE(read(m_config + "/Thunar/uca.xml"), m_usersThunar);
        QVERIFY(!QFileInfo::exists(kit().senderPath()));
        QVERIFY(!QFileInfo::exists(m_data + "/nautilus-python/extensions/trovix.py"));
        QCOMPARE(tool({"-m", "-A", "-i", id}), "-    " + id + "(" TROVIX_VERSION ")\n");

        tool({"-e", "bogus", "-i", id}, &rc);
        QCOMPARE(rc, 2);
    }

    // A user with no action list of their own keeps Thunar's defaults beside ours.
    void aNewThunarListStartsFromTheDefaults()
    {
        QVERIFY(QFile::remove(m_config + "/Thunar/uca.xml"));
        QCOMPARE(kit().use(), std::nullopt);
        const QByteArray thunar = read(m_config + "/Thunar/uca.xml");
        QVERIFY(thunar.startsWith("<?xml"));
        QVERIFY(thunar.trimmed().endsWith("</actions>"));
        QCOMPARE(thunar.count("<unique-id>com.quorbel.trovix."), 2);
    }

    // What each file manager runs reaches the tray program on the bus, paths joined by ", "; without the
    // tray program the command line hides the files itself.
    void everyEntryReachesTrovix()
    {
        QCOMPARE(kit().use(), std::nullopt);
        QDBusConnection bus = QDBusConnection::sessionBus();
        QVERIFY2(bus.isConnected(), "needs a session bus");
        QVERIFY(bus.registerService("com.quorbel.trovix"));
        DistributedNotificationCenter center(bus);
        QStringList received;
        center.addObserver(
            "AppSyncExtensionWantsToHideSelectedFiles", QString(), this,
            [&received](const QString&, const QString& object, const QVariantMap&) { received.append(object); });
        const QStringList paths{"/tmp/123", "/tmp/it's", "/tmp/back\\slash", "/tmp/two  spaces"};
        const QString joined = paths.join(", ");

        const QString thunarCommand = command(m_config + "/Thunar/uca.xml", "<command>", "hide", paths)
                                          .remove("</command>")
                                          .replace("&#x27;", "'")
                                          .replace("&quot;", "\"")
                                          .replace("&amp;", "&");
        const QStringList commands{
            command(m_data + "/nemo/actions/trovix-hide.nemo_action", "Exec=", "hide", paths),
            // A desktop entry's value is unescaped once before its Exec is split.
            command(m_data + "/kio/servicemenus/trovix.desktop", "Exec=", "hide", paths).replace("\\\\", "\\"),
            thunarCommand,
        };
        for (const QString& c : commands) {
            QVERIFY2(!c.isEmpty(), "an entry has no command");
            received.clear();
            QVERIFY2(sh(c) == 0, qPrintable(c));
            QTRY_COMPARE_WITH_TIMEOUT(received, QStringList{joined}, 10000);
        }

        QVERIFY(bus.unregisterService("com.quorbel.trovix"));
        const QString folder = m_dir.filePath("chosen");
        QVERIFY(QDir().mkpath(folder));
        QFile(folder + "/report.txt").open(QIODevice::WriteOnly);
        QCOMPARE(
            sh(command(m_data + "/nemo/actions/trovix-hide.nemo_action", "Exec=", "hide", {folder + "/report.txt"})),
            0);
        QCOMPARE(read(folder + "/.hidden"), QByteArray("report.txt\n"));
    }
};

QTEST_GUILESS_MAIN(TestPluginKit)
#include "TestPluginKit.moc"
