#include "core/UserDefaults.h"
#include "hidden/DiskAccessRestoreManager.h"
#include "hidden/FileVisibility.h"
#include "hidden/ScriptsManager.h"
#include "support/Files.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <utime.h>

// Hiding and showing chosen files for real: the folder's .hidden list as GLib reads it (asked of `gio` in a
// new process, since GLib caches the list), renames that never replace, the shipped refresh script.
class TestFileVisibility : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_folder;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<DiskAccessRestoreManager> m_access;
    std::unique_ptr<ScriptsManager> m_scripts;
    bool m_accessible = true;

    QString path(const QString& name) const { return m_folder + '/' + name; }

    void touch(const QString& name, const QByteArray& content = "x") { QVERIFY(writeFile(path(name), content)); }
    QByteArray hiddenList() const { return QFile::exists(path(".hidden")) ? readFile(path(".hidden")) : "<none>"; }

    // Runs the whole request and waits for its end (the refresh script included); the failures counted.
    int run(bool visible, const QStringList& paths)
    {
        FileVisibility visibility(*m_scripts, [this] { return m_accessible; });
        int failures = -1;
        visibility.setVisibility(visible, paths,
                                 [&failures](const QStringList& errors) { failures = int(errors.size()); });
        if (!QTest::qWaitFor([&] { return failures >= 0; }, 20000))
            return -2;
        return failures;
    }

    static QString gioHidden(const QString& file)
    {
        QProcess gio;
        gio.start(QStringLiteral("gio"),
                  {QStringLiteral("info"), QStringLiteral("-a"), QStringLiteral("standard::is-hidden"), file});
        gio.waitForFinished(10000);
        const QString out = QString::fromUtf8(gio.readAllStandardOutput());
        return out.contains(QLatin1String("is-hidden: TRUE")) ? QStringLiteral("hidden") : QStringLiteral("shown");
    }

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_dir.isValid());
        m_folder = m_dir.filePath(QString::number(QRandomGenerator::global()->generate()) + " chosen files");
        QVERIFY(QDir().mkpath(m_folder));
        m_defaults = std::make_unique<UserDefaults>(m_dir.filePath("std.json"));
        m_access = std::make_unique<DiskAccessRestoreManager>(*m_defaults);
        m_scripts = std::make_unique<ScriptsManager>(*m_access, ScriptsManager::Options{});
        m_accessible = true;
    }

    void hideThenShowKeepsTheUsersOwnLines()
    {
        touch("a b.txt");
        touch("plain");
        touch(".profile", "mine");
        // Lines of the user's that must survive exactly: a trailing space, a name that is no file here.
        touch(".hidden", "keep me \ngone.txt");

        QCOMPARE(run(false, {path("a b.txt"), path("plain"), path(".profile")}), 0);
        QCOMPARE(hiddenList(), QByteArray("keep me \ngone.txt\na b.txt\nplain\n"));
        QCOMPARE(gioHidden(path("a b.txt")), QStringLiteral("hidden"));
        QVERIFY(QFile::exists(path(".profile"))); // hiding never adds or keeps away a leading point

        QCOMPARE(run(true, {path("a b.txt"), path(".profile")}), 0);
        QCOMPARE(hiddenList(), QByteArray("keep me \ngone.txt\nplain\n"));
        QCOMPARE(gioHidden(path("a b.txt")), QStringLiteral("shown"));
        QVERIFY(!QFile::exists(path(".profile")));
        QCOMPARE(readFile(path("profile")), QByteArray("mine"));
        QCOMPARE(gioHidden(path("profile")), QStringLiteral("shown"));
    }

    void showingNeverReplacesAndGoesOn()
    {
        touch(".profile", "hidden one");
        touch("profile", "visible one");
        touch("..twice");
        touch(".bashrc");
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("performSetVisibility.*File exists"));
        QCOMPARE(run(true, {path(".profile"), path("..twice"), path(".bashrc")}), 1);
        QCOMPARE(readFile(path(".profile")), QByteArray("hidden one"));
        QCOMPARE(readFile(path("profile")), QByteArray("visible one"));
        // One leading point only; the files after the failure are still done.
        QVERIFY(QFile::exists(path(".twice")));
        QVERIFY(QFile::exists(path("bashrc")));
    }

    void aStaleLineDoesNotHideTheRenamedFile()
    {
        touch(".notes");
        touch(".hidden", "notes\n");
        QCOMPARE(run(true, {path(".notes")}), 0);
        QCOMPARE(gioHidden(path("notes")), QStringLiteral("shown"));
        QCOMPARE(hiddenList(), QByteArray());
    }

    void aListThatIsNoRegularFileIsNeverReadNorReplaced()
    {
        touch("f");
        QVERIFY(QFile::link("/dev/zero", path(".hidden")));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("performSetVisibility.*not a regular file"));
        QCOMPARE(run(false, {path("f")}), 1);
        QCOMPARE(QFileInfo(path(".hidden")).symLinkTarget(), QStringLiteral("/dev/zero"));

        QVERIFY(QFile::remove(path(".hidden")));
        QCOMPARE(::mkfifo(QFile::encodeName(path(".hidden")).constData(), 0600), 0);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("performSetVisibility.*not a regular file"));
        QCOMPARE(run(false, {path("f")}), 1);
    }

    void notificationObjects()
    {
        QCOMPARE(FileVisibility::pathsFromNotificationObject(QVariant(42)), QStringList());
        QCOMPARE(FileVisibility::pathsFromNotificationObject(QVariant()), QStringList());
        QCOMPARE(FileVisibility::pathsFromNotificationObject(QStringLiteral("/a, /b,c")), QStringList({"/a", "/b,c"}));

        // An empty string is one empty path: it fails and is logged, and no list is made.
        FileVisibility visibility(*m_scripts, [] { return true; });
        int failures = -1;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("performSetVisibility.*not an absolute path"));
        visibility.hideSelectedFiles(QStringLiteral(""),
                                     [&failures](const QStringList& errors) { failures = int(errors.size()); });
        QTRY_COMPARE_WITH_TIMEOUT(failures, 1, 20000);
        // Relative to whatever folder the tray program runs in: refused.
        touch("rel");
        QVERIFY(QDir::setCurrent(m_folder));
        failures = -1;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("performSetVisibility.*\"rel\": not an absolute"));
        visibility.hideSelectedFiles(QStringLiteral("rel"),
                                     [&failures](const QStringList& errors) { failures = int(errors.size()); });
        QTRY_COMPARE_WITH_TIMEOUT(failures, 1, 20000);
        QCOMPARE(hiddenList(), QByteArray("<none>"));
        failures = -1;
        visibility.hideSelectedFiles(QVariant(7),
                                     [&failures](const QStringList& errors) { failures = int(errors.size()); });
        QTest::qWait(200);
        QCOMPARE(failures, -1);

        touch("x");
        touch("y");
        visibility.hideSelectedFiles(path("x") + ", " + path("y") + "/",
                                     [&failures](const QStringList& errors) { failures = int(errors.size()); });
        QTRY_COMPARE_WITH_TIMEOUT(failures, 0, 20000);
        QCOMPARE(hiddenList(), QByteArray("x\ny\n"));
        QVERIFY(QDir::setCurrent(QDir::tempPath()));
    }

    void withoutAccessNothingChanges()
    {
        touch("f");
        m_accessible = false;
        QTest::ignoreMessage(QtCriticalMsg, "Invalid parameter not satisfying: NO");
        QTest::ignoreMessage(QtWarningMsg, "Something has gone wrong.");
        QCOMPARE(run(false, {path("f")}), 1);
        QCOMPARE(hiddenList(), QByteArray("<none>"));
    }

    // The shipped refresh script is what makes open views re-read the folder: it must change the folder so
    // that every folder monitor reports it, even when no list was written (showing a shown file).
    void theFileManagersAreToldOfTheChangedFolder()
    {
        touch("f");
        struct utimbuf old
        {
            1000000000, 1000000000
        };
        QCOMPARE(::utime(QFile::encodeName(m_folder).constData(), &old), 0);
        QCOMPARE(run(true, {path("f")}), 0);
        QVERIFY(QFileInfo(m_folder).lastModified().toSecsSinceEpoch() > 1000000000);
        QCOMPARE(QDir(m_folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList({"f"}));
    }
};

QTEST_GUILESS_MAIN(TestFileVisibility)
#include "TestFileVisibility.moc"
