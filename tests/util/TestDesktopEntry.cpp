#include "support/Files.h"
#include "util/DesktopEntry.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

// What is written into an Exec line must come back as the same argument when a desktop reads the file.
class TestDesktopEntry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void execLinesRoundTrip_data()
    {
        QTest::addColumn<QString>("argument");
        QTest::newRow("plain") << "/usr/bin/trovix";
        QTest::newRow("spaces") << "/home/a b/bin/trovix launcher";
        QTest::newRow("shell characters") << "/home/$USER/`x`/\"q\"/it's";
        QTest::newRow("backslashes") << "/tmp/back\\slash\\\\two";
        QTest::newRow("semicolon and equals") << "/tmp/a;b=c";
    }

    void execLinesRoundTrip()
    {
        QFETCH(QString, argument);
        QTemporaryDir dir;
        const QString path = dir.filePath("x.desktop");
        QVERIFY(writeFile(path, ("[Other]\nExec=wrong\n[Desktop Entry]\nName=X\n# Exec=comment\nExec=" +
                                 DesktopEntry::execQuoted(argument) + " --flag %F\n[Desktop Action a]\nExec=other\n")
                                    .toUtf8()));
        const auto entry = DesktopEntry::read(path);
        QCOMPARE(entry.value("Name"), QStringLiteral("X"));
        QCOMPARE(DesktopEntry::execArguments(entry.value("Exec")), QStringList({argument, "--flag", "%F"}));
    }

    void valuesAreUnescaped()
    {
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("y.desktop"), "[Desktop Entry]\nComment=a\\sb\\nc\\\\d\nHidden = true\n"));
        const auto entry = DesktopEntry::read(dir.filePath("y.desktop"));
        QCOMPARE(entry.value("Comment"), QStringLiteral("a b\nc\\d"));
        QCOMPARE(entry.value("Hidden"), QStringLiteral("true"));
        QVERIFY(DesktopEntry::read(dir.filePath("missing.desktop")).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestDesktopEntry)
#include "TestDesktopEntry.moc"
