#include "platform/FileManagers.h"

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

bool writeFile(const QString& path, const QByteArray& text)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(text) == text.size();
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
        QFile::remove(m_data + QStringLiteral("/applications/mimeapps.list"));
        QDir(m_system.path()).removeRecursively();
        qputenv("PATH", m_oldPath);
    }

    void defaultHandler_data()
    {
        QTest::addColumn<QStringList>("lists");
        QTest::addColumn<QString>("expected");
        const QString gnome = QStringLiteral("[Default Applications]\ninode/directory=org.gnome.Nautilus.desktop\n");
        QTest::newRow("one default") << QStringList{gnome} << "org.gnome.Nautilus.desktop";
        QTest::newRow("several ids: the first")
            << QStringList{QStringLiteral("[Default Applications]\ninode/directory=nemo.desktop;org.gnome.Nautilus."
                                          "desktop;\n")}
            << "nemo.desktop";
        QTest::newRow("other types ignored")
            << QStringList{QStringLiteral("[Default Applications]\ntext/plain=org.gnome.TextEditor.desktop\n"
                                          "inode/directory-x=caja.desktop\ninode/directory=thunar.desktop\n")}
            << "thunar.desktop";
        QTest::newRow("added association only")
            << QStringList{QStringLiteral("[Added Associations]\ninode/directory=nemo.desktop;caja.desktop;\n")}
            << "nemo.desktop";
        QTest::newRow("default beats added in the same file")
            << QStringList{QStringLiteral("[Added Associations]\ninode/directory=nemo.desktop;\n"
                                          "[Default Applications]\ninode/directory=caja.desktop\n")}
            << "caja.desktop";
        QTest::newRow("default in a later file beats added in an earlier one")
            << QStringList{QStringLiteral("[Added Associations]\ninode/directory=nemo.desktop;\n"), gnome}
            << "org.gnome.Nautilus.desktop";
        QTest::newRow("earlier file wins")
            << QStringList{QStringLiteral("[Default Applications]\ninode/directory=org.kde.dolphin.desktop\n"), gnome}
            << "org.kde.dolphin.desktop";
        QTest::newRow("empty default falls through")
            << QStringList{QStringLiteral("[Default Applications]\ninode/directory=\n"), gnome}
            << "org.gnome.Nautilus.desktop";
        QTest::newRow("removed associations do not count")
            << QStringList{QStringLiteral("[Removed Associations]\ninode/directory=nemo.desktop\n")} << QString();
        QTest::newRow("blanks, comments and CRLF")
            << QStringList{QStringLiteral("# mine\r\n  [Default Applications]  \r\n  inode/directory = nemo.desktop ; "
                                          "\r\n")}
            << "nemo.desktop";
        QTest::newRow("nothing") << QStringList{} << QString();
    }
    void defaultHandler()
    {
        QFETCH(QStringList, lists);
        QFETCH(QString, expected);
        QCOMPARE(FileManagers::defaultHandlerFromMimeappsLists(lists), expected);
    }

    void fromDesktopId_data()
    {
        QTest::addColumn<QString>("desktopId");
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("displayName");
        QTest::newRow("GNOME Files") << "org.gnome.Nautilus.desktop"
                                     << "nautilus"
                                     << "Files";
        QTest::newRow("nautilus folder handler") << "nautilus-folder-handler.desktop"
                                                 << "nautilus"
                                                 << "Files";
        QTest::newRow("Dolphin") << "org.kde.dolphin.desktop"
                                 << "dolphin"
                                 << "Dolphin";
        QTest::newRow("Thunar") << "Thunar-folder-handler.desktop"
                                << "thunar"
                                << "Thunar";
        QTest::newRow("Thunar plain") << "thunar.desktop"
                                      << "thunar"
                                      << "Thunar";
        QTest::newRow("Nemo") << "nemo.desktop"
                              << "nemo"
                              << "Nemo";
        QTest::newRow("Caja") << "caja-folder-handler.desktop"
                              << "caja"
                              << "Caja";
        QTest::newRow("an editor") << "code.desktop" << QString() << QString();
        QTest::newRow("another file manager") << "pcmanfm.desktop" << QString() << QString();
        QTest::newRow("empty") << QString() << QString() << QString();
    }
    void fromDesktopId()
    {
        QFETCH(QString, desktopId);
        QFETCH(QString, id);
        QFETCH(QString, displayName);
        const auto fm = FileManagers::fromDesktopId(desktopId);
        QCOMPARE(idOf(fm), id);
        if (fm)
            QCOMPARE(fm->displayName, displayName);
    }

    void fromDesktopEnvironment_data()
    {
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QString>("id");
        QTest::newRow("GNOME") << "GNOME"
                               << "nautilus";
        QTest::newRow("lower case") << "gnome"
                                    << "nautilus";
        QTest::newRow("KDE") << "KDE"
                             << "dolphin";
        QTest::newRow("XFCE") << "XFCE"
                              << "thunar";
        QTest::newRow("Cinnamon") << "X-Cinnamon"
                                  << "nemo";
        QTest::newRow("MATE") << "MATE"
                              << "caja";
        QTest::newRow("unknown first, known later") << "LXQt:KDE"
                                                    << "dolphin";
        QTest::newRow("unknown") << "LXQt" << QString();
        QTest::newRow("empty parts") << "::" << QString();
        QTest::newRow("none") << QString() << QString();
    }
    void fromDesktopEnvironment()
    {
        QFETCH(QString, desktop);
        QFETCH(QString, id);
        QCOMPARE(idOf(FileManagers::fromDesktopEnvironment(desktop)), id);
    }

    void mimeappsListPathsFollowPrecedence()
    {
        qputenv("XDG_CURRENT_DESKTOP", "ubuntu:GNOME");
        const QString sys = m_system.path();
        const QStringList expected = {
            m_config + QStringLiteral("/ubuntu-mimeapps.list"),
            m_config + QStringLiteral("/gnome-mimeapps.list"),
            m_config + QStringLiteral("/mimeapps.list"),
            sys + QStringLiteral("/etc-xdg/ubuntu-mimeapps.list"),
            sys + QStringLiteral("/etc-xdg/gnome-mimeapps.list"),
            sys + QStringLiteral("/etc-xdg/mimeapps.list"),
            m_data + QStringLiteral("/applications/ubuntu-mimeapps.list"),
            m_data + QStringLiteral("/applications/gnome-mimeapps.list"),
            m_data + QStringLiteral("/applications/mimeapps.list"),
            sys + QStringLiteral("/usr-share/applications/ubuntu-mimeapps.list"),
            sys + QStringLiteral("/usr-share/applications/gnome-mimeapps.list"),
            sys + QStringLiteral("/usr-share/applications/mimeapps.list"),
        };
        QCOMPARE(FileManagers::mimeappsListPaths(), expected);
    }

    void detectPrimaryReadsTheUsersMimeappsList()
    {
        QVERIFY(writeFile(m_config + QStringLiteral("/mimeapps.list"),
                          "[Added Associations]\ninode/directory=caja.desktop;\n\n"
                          "[Default Applications]\ninode/directory=nemo.desktop\n"));
        qputenv("XDG_CURRENT_DESKTOP", "KDE");
        QCOMPARE(idOf(FileManagers::detectPrimary()), QStringLiteral("nemo"));
    }

    void desktopSpecificListComesFirst()
    {
        QVERIFY(writeFile(m_config + QStringLiteral("/mimeapps.list"),
                          "[Default Applications]\ninode/directory=nemo.desktop\n"));
        QVERIFY(writeFile(m_config + QStringLiteral("/gnome-mimeapps.list"),
                          "[Default Applications]\ninode/directory=caja-folder-handler.desktop\n"));
        qputenv("XDG_CURRENT_DESKTOP", "GNOME");
        QCOMPARE(idOf(FileManagers::detectPrimary()), QStringLiteral("caja"));
        // Another desktop does not read GNOME's list.
        qputenv("XDG_CURRENT_DESKTOP", "KDE");
        QCOMPARE(idOf(FileManagers::detectPrimary()), QStringLiteral("nemo"));
    }

    void systemListCountsWhenTheUserHasNone()
    {
        QVERIFY(writeFile(m_system.filePath(QStringLiteral("usr-share/applications/mimeapps.list")),
                          "[Default Applications]\ninode/directory=org.gnome.Nautilus.desktop\n"));
        qputenv("XDG_CURRENT_DESKTOP", "XFCE");
        QCOMPARE(idOf(FileManagers::detectPrimary()), QStringLiteral("nautilus"));
    }

    void unknownHandlerFallsBackToTheDesktop()
    {
        QVERIFY(writeFile(m_config + QStringLiteral("/mimeapps.list"),
                          "[Default Applications]\ninode/directory=pcmanfm.desktop\n"));
        qputenv("XDG_CURRENT_DESKTOP", "X-Cinnamon");
        QCOMPARE(idOf(FileManagers::detectPrimary()), QStringLiteral("nemo"));
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
