#include "core/Texts.h"

#include <QTest>

class TestTexts : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void fillsPlaceholdersInOrder_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("expected");
        QTest::newRow("two") << "%@ used of %@" << QStringList{"1 GB", "8 GB"} << "1 GB used of 8 GB";
        QTest::newRow("argument holding %@ is not re-read") << "%@ and %@" << QStringList{"%@", "b"} << "%@ and b";
        QTest::newRow("missing argument") << "About %@" << QStringList{} << "About ";
        QTest::newRow("no placeholder") << "Quit" << QStringList{"x"} << "Quit";
    }
    void fillsPlaceholdersInOrder()
    {
        QFETCH(QString, format);
        QFETCH(QStringList, args);
        QFETCH(QString, expected);
        QCOMPARE(Texts::format(format, args), expected);
    }

    void platformWordsNameTheUsersPrograms()
    {
        QCOMPARE(Texts::platformWords(QStringLiteral("Hidden files are visible in Finder"), QStringLiteral("Dolphin")),
                 QStringLiteral("Hidden files are visible in Dolphin"));
        QCOMPARE(
            Texts::platformWords(QStringLiteral("Open System Preferences to allow Finder"), QStringLiteral("Files")),
            QStringLiteral("Open Settings to allow Files"));
        Texts::setFileManagerName(QStringLiteral("Thunar"));
        QCOMPARE(Texts::platformWords(QStringLiteral("Finder")), QStringLiteral("Thunar"));
    }

    void tablesGiveTheirTextAndDefaultsFillGaps()
    {
        Texts::setFileManagerName(QStringLiteral("Nemo"));
        QCOMPARE(Texts::localized("PanelWindow", "Used_memory_template", QStringLiteral("unused default")),
                 QStringLiteral("%@ used of %@"));
        QCOMPARE(Texts::localized("PanelWindow", "No_such_key", QStringLiteral("Ask Finder")),
                 QStringLiteral("Ask Nemo"));
        QCOMPARE(Texts::localized("NoSuchTable", "k", QStringLiteral("fallback")), QStringLiteral("fallback"));
    }
};

QTEST_GUILESS_MAIN(TestTexts)
#include "TestTexts.moc"
