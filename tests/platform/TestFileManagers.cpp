#include "platform/FileManagers.h"
#include "support/Files.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace {

QString idOf(const std::optional<FileManager>& fm)
{
    return fm ? fm->id : QString();
}

QByteArray defaultList(const QByteArray& desktopId)
{
    return "[Default Applications]\ninode/directory=" + desktopId + "\n";
}

} // namespace

class TestFileManagers : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        // The test runner gives a temporary HOME and XDG_CONFIG_HOME; the system-wide lists stay out too.
        QVERIFY(m_system.isValid());
        qputenv("XDG_CONFIG_DIRS", m_system.filePath(QStringLiteral("etc-xdg")).toUtf8());
        qputenv("XDG_DATA_DIRS", m_system.filePath(QStringLiteral("usr-share")).toUtf8());
        qunsetenv("XDG_CURRENT_DESKTOP");
        m_config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
        m_data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
        QVERIFY(m_config.startsWith(QDir::homePath()));
        m_oldPath = qgetenv("PATH");
    }
    void cleanup()
    {
        QFile::remove(m_config + QStringLiteral("/mimeapps.list"));
        QFile::remove(m_config + QStringLiteral("/gnome-mimeapps.list"));
        QDir(m_system.path()).removeRecursively();
        qputenv("PATH", m_oldPath);
    }

    void defaultHandler_data()
    {
        QTest::addColumn<QStringList>("lists");
        QTest::addColumn<QString>("expected");
        const QString gnome = QString::fromUtf8(defaultList("org.gnome.Nautilus.desktop"));
        const auto add = [](const char* name, QStringList lists, const char* expected) {
            QTest::newRow(name) << lists << QString::fromUtf8(expected);
        };
        add("one default", {gnome}, "org.gnome.Nautilus.desktop");
        add("several ids: the first", {"[Default Applications]\ninode/directory=nemo.desktop;caja.desktop;\n"},
            "nemo.desktop");
        add("other types ignored",
            {"[Default Applications]\ntext/plain=org.gnome.TextEditor.desktop\n"
             "inode/directory-x=caja.desktop\ninode/directory=thunar.desktop\n"},
            "thunar.desktop");
        add("added association only", {"[Added Associations]\ninode/directory=nemo.desktop;caja.desktop;\n"},
            "nemo.desktop");
        add("default beats added in the same file",
            {"[Added Associations]\ninode/directory=nemo.desktop;\n[Default "
             "Applications]\ninode/directory=caja.desktop\n"},
            "caja.desktop");
        add("default in a later file beats added in an earlier one",
            {"[Added Associations]\ninode/directory=nemo.desktop;\n", gnome}, "org.gnome.Nautilus.desktop");
        add("earlier file wins", {"[Default Applications]\ninode/directory=org.kde.dolphin.desktop\n", gnome},
            "org.kde.dolphin.desktop");
        add("empty default falls through", {"[Default Applications]\ninode/directory=\n", gnome},
            "org.gnome.Nautilus.desktop");
        add("removed associations do not count", {"[Removed Associations]\ninode/directory=nemo.desktop\n"}, "");
        add("blanks, comments and CRLF",
            {"# mine\r\n  [Default Applications]  \r\n  inode/directory = nemo.desktop ; \r\n"}, "nemo.desktop");
        add("nothing", {}, "");
    }
    void defaultHandler()
    {
        QFETCH(QStringList, lists);
        QTEST(FileManagers::defaultHandlerFromMimeappsLists(lists), "expected");
    }

    void knownNames_data()
    {
        QTest::addColumn<bool>("isDesktop"); // XDG_CURRENT_DESKTOP, else a desktop file id
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("displayName");
        const auto add = [](const char* row, bool isDesktop, const char* name, const char* id, const char* display) {
            QTest::newRow(row) << isDesktop << QString::fromUtf8(name) << QString::fromUtf8(id)
                               << QString::fromUtf8(display);
        };
        add("GNOME Files", false, "org.gnome.Nautilus.desktop", "nautilus", "Files");
        add("nautilus folder handler", false, "nautilus-folder-handler.desktop", "nautilus", "Files");
        add("Dolphin", false, "org.kde.dolphin.desktop", "dolphin", "Dolphin");
        add("Thunar", false, "Thunar-folder-handler.desktop", "thunar", "Thunar");
        add("Thunar plain", false, "thunar.desktop", "thunar", "Thunar");
        add("Nemo", false, "nemo.desktop", "nemo", "Nemo");
        add("Caja", false, "caja-folder-handler.desktop", "caja", "Caja");
        add("another file manager", false, "pcmanfm.desktop", "", "");
        add("no desktop id", false, "", "", "");
        add("GNOME", true, "GNOME", "nautilus", "Files");
        add("lower case", true, "gnome", "nautilus", "Files");
        add("KDE", true, "KDE", "dolphin", "Dolphin");
        add("XFCE", true, "XFCE", "thunar", "Thunar");
        add("Cinnamon", true, "X-Cinnamon", "nemo", "Nemo");
        add("MATE", true, "MATE", "caja", "Caja");
        add("unknown first, known later", true, "LXQt:KDE", "dolphin", "Dolphin");
        add("unknown desktop", true, "LXQt", "", "");
        add("empty parts", true, "::", "", "");
        add("no desktop", true, "", "", "");
    }
    void knownNames()
    {
        QFETCH(bool, isDesktop);
        QFETCH(QString, name);
        const auto fm = isDesktop ? FileManagers::fromDesktopEnvironment(name) : FileManagers::fromDesktopId(name);
        QTEST(idOf(fm), "id");
        QTEST(fm ? fm->displayName : QString(), "displayName");
    }

    void mimeappsListPathsFollowPrecedence()
    {
        qputenv("XDG_CURRENT_DESKTOP", "ubuntu:GNOME");
        const QString sys = m_system.path();
        QStringList expected;
        for (const QString& dir : {m_config, sys + QStringLiteral("/etc-xdg"), m_data + QStringLiteral("/applications"),
                                   sys + QStringLiteral("/usr-share/applications")}) {
            for (const char* prefix : {"ubuntu-", "gnome-", ""})
                expected << dir + QLatin1Char('/') + QLatin1String(prefix) + QStringLiteral("mimeapps.list");
        }
        QCOMPARE(FileManagers::mimeappsListPaths(), expected);
    }

    void detectPrimaryFromLists_data()
    {
        QTest::addColumn<QByteArray>("userList");
        QTest::addColumn<QByteArray>("gnomeList"); // the user's gnome-mimeapps.list
        QTest::addColumn<QByteArray>("systemList");
        QTest::addColumn<QByteArray>("desktop");
        QTest::addColumn<QString>("expected");
        const QByteArray nemo = defaultList("nemo.desktop");
        const QByteArray caja = defaultList("caja-folder-handler.desktop");
        QTest::newRow("user's list beats the desktop")
            << nemo << QByteArray() << QByteArray() << QByteArray("KDE") << "nemo";
        QTest::newRow("desktop's own list comes first")
            << nemo << caja << QByteArray() << QByteArray("GNOME") << "caja";
        QTest::newRow("another desktop skips GNOME's list")
            << nemo << caja << QByteArray() << QByteArray("KDE") << "nemo";
        QTest::newRow("system list when the user has none")
            << QByteArray() << QByteArray() << defaultList("org.gnome.Nautilus.desktop") << QByteArray("XFCE")
            << "nautilus";
        QTest::newRow("unknown handler falls back to the desktop")
            << defaultList("pcmanfm.desktop") << QByteArray() << QByteArray() << QByteArray("X-Cinnamon") << "nemo";
    }
    void detectPrimaryFromLists()
    {
        QFETCH(QByteArray, userList);
        QFETCH(QByteArray, gnomeList);
        QFETCH(QByteArray, systemList);
        QFETCH(QByteArray, desktop);
        if (!userList.isEmpty())
            QVERIFY(writeFile(m_config + QStringLiteral("/mimeapps.list"), userList));
        if (!gnomeList.isEmpty())
            QVERIFY(writeFile(m_config + QStringLiteral("/gnome-mimeapps.list"), gnomeList));
        if (!systemList.isEmpty())
            QVERIFY(writeFile(m_system.filePath(QStringLiteral("usr-share/applications/mimeapps.list")), systemList));
        qputenv("XDG_CURRENT_DESKTOP", desktop);
        QTEST(idOf(FileManagers::detectPrimary()), "expected");
    }

    void installedOnesAreFoundInPath()
    {
        const QString bin = m_system.filePath(QStringLiteral("bin"));
        for (const char* name : {"caja", "thunar", "pcmanfm"}) {
            const QString path = bin + QLatin1Char('/') + QLatin1String(name);
            QVERIFY(writeFile(path, "#!/bin/sh\n"));
            QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::ExeOwner));
        }
        QVERIFY(writeFile(bin + QStringLiteral("/nemo"), "not executable\n"));
        qputenv("PATH", bin.toUtf8());
        QStringList ids;
        for (const FileManager& fm : FileManagers::installed())
            ids << fm.id;
        QCOMPARE(ids, (QStringList{QStringLiteral("thunar"), QStringLiteral("caja")}));

        // With no list and no desktop, a running file manager comes first, then an installed one.
        const auto running = FileManagers::running();
        const QString expected = running.empty() ? QStringLiteral("thunar") : running.front().id;
        QCOMPARE(idOf(FileManagers::detectPrimary()), expected);
    }

    void nothingKnownGivesNone()
    {
        if (!FileManagers::running().empty())
            QSKIP("a file manager runs on this machine");
        qputenv("PATH", m_system.filePath(QStringLiteral("empty-bin")).toUtf8());
        QVERIFY(!FileManagers::detectPrimary());
    }

private:
    QTemporaryDir m_system;
    QString m_config;
    QString m_data;
    QByteArray m_oldPath;
};

QTEST_GUILESS_MAIN(TestFileManagers)
#include "TestFileManagers.moc"
