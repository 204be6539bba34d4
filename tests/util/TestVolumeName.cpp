#include "util/VolumeName.h"

#include <QDir>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>

namespace {
constexpr quint64 KiB = 1024;
constexpr quint64 MiB = KiB * 1024;
constexpr quint64 GiB = MiB * 1024;
constexpr quint64 TiB = GiB * 1024;
constexpr quint64 PiB = TiB * 1024;
} // namespace

class TestVolumeName : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void stringFromSize_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<QString>("expected");
        QTest::newRow("zero") << qint64(0) << "0 bytes";
        QTest::newRow("negative") << qint64(-5) << "-5 bytes";
        QTest::newRow("999") << qint64(999) << "999 bytes";
        QTest::newRow("1000 switches unit at 1000") << qint64(1000) << "0.98 KB";
        QTest::newRow("1023") << qint64(1023) << "1.00 KB";
        QTest::newRow("1024") << qint64(1024) << "1.00 KB";
        QTest::newRow("tie rounds to even") << qint64(1152) << "1.12 KB";
        QTest::newRow("10239 rounds up within two decimals") << qint64(10239) << "10.00 KB";
        QTest::newRow("10240 one decimal") << qint64(10240) << "10.0 KB";
        QTest::newRow("102399") << qint64(102399) << "100.0 KB";
        QTest::newRow("102400 no decimal") << qint64(102400) << "100 KB";
        QTest::newRow("1023999 unit chosen before rounding") << qint64(1023999) << "1000 KB";
        QTest::newRow("1024000") << qint64(1024000) << "0.98 MB";
        QTest::newRow("1536000") << qint64(1536000) << "1.46 MB";
        QTest::newRow("2 PiB stays in TB") << qint64(2 * PiB) << "2048 TB";
        QTest::newRow("largest count") << std::numeric_limits<qint64>::max() << "8388608 TB";
    }
    void stringFromSize()
    {
        QFETCH(qint64, size);
        QFETCH(QString, expected);
        QCOMPARE(VolumeName::stringFromSize(size), expected);
    }

    void dot0_data()
    {
        QTest::addColumn<quint64>("size");
        QTest::addColumn<QString>("expected");
        QTest::newRow("zero") << quint64(0) << "Zero Bytes";
        QTest::newRow("1 byte") << quint64(1) << "1 B";
        QTest::newRow("1023") << quint64(1023) << "1023 B";
        QTest::newRow("1024") << quint64(1024) << "1 KB";
        QTest::newRow("1075 fraction below 0.05") << quint64(1075) << "1 KB";
        QTest::newRow("1126 one decimal") << quint64(1126) << "1.1 KB";
        QTest::newRow("1997 fraction at 0.95") << quint64(1997) << "2 KB";
        QTest::newRow("9.5 KiB") << quint64(9728) << "9.5 KB";
        QTest::newRow("10.5 KiB no decimal at ten") << quint64(10752) << "10 KB";
        QTest::newRow("15.5 MiB") << quint64(15 * MiB + MiB / 2) << "16 MB";
        QTest::newRow("1023.9 KiB stays in KB") << quint64(1048470) << "1024 KB";
        QTest::newRow("1 MiB") << quint64(MiB) << "1 MB";
        QTest::newRow("1.5 PiB") << quint64(PiB + PiB / 2) << "1.5 PB";
        QTest::newRow("4096 PiB: list runs out") << quint64(4096 * PiB) << "4096 PB";
    }
    void dot0()
    {
        QFETCH(quint64, size);
        QFETCH(QString, expected);
        QCOMPARE(VolumeName::formatMemoryStringDot0(size), expected);
        QCOMPARE(VolumeName::formatMemoryStringDot0NSnum(QVariant::fromValue(size)), expected);
    }

    void dot1_data()
    {
        QTest::addColumn<quint64>("size");
        QTest::addColumn<QString>("dot1");
        QTest::addColumn<QString>("threeDigits");
        QTest::addColumn<QString>("special");
        QTest::newRow("zero") << quint64(0) << "0 B"
                              << "0 B"
                              << "0 B";
        QTest::newRow("1023") << quint64(1023) << "1023 B"
                              << "1023 B"
                              << "1023 B";
        QTest::newRow("1024") << quint64(1024) << "1 KB"
                              << "1 KB"
                              << "1 KB";
        QTest::newRow("2048 zero decimal dropped") << quint64(2048) << "2 KB"
                                                   << "2 KB"
                                                   << "2 KB";
        QTest::newRow("1,048,575 rounds to 1024 KB") << quint64(1048575) << "1024 KB"
                                                     << "1024 KB"
                                                     << "1024 KB";
        QTest::newRow("1 MiB") << quint64(MiB) << "1 MB"
                               << "1 MB"
                               << "1 MB";
        QTest::newRow("1.25 GiB") << quint64(GiB + GiB / 4) << "1.2 GB"
                                  << "1.25 GB"
                                  << "1.2 GB";
        QTest::newRow("12.5 MiB: special truncates") << quint64(12 * MiB + MiB / 2) << "12.5 MB"
                                                     << "12.5 MB"
                                                     << "12 MB";
        QTest::newRow("12.96 MiB: special keeps the rounded integer") << quint64(12 * MiB + MiB * 96 / 100) << "13 MB"
                                                                      << "13 MB"
                                                                      << "13 MB";
        QTest::newRow("125.4 MiB") << quint64(125 * MiB + MiB * 4 / 10) << "125.4 MB"
                                   << "125 MB"
                                   << "125 MB";
        QTest::newRow("3 PiB") << quint64(3 * PiB) << "3 PB"
                               << "3 PB"
                               << "3 PB";
        QTest::newRow("an exbibyte has no unit") << quint64(1024 * PiB) << "1"
                                                 << "1"
                                                 << "1";
    }
    void dot1()
    {
        QFETCH(quint64, size);
        QFETCH(QString, dot1);
        QFETCH(QString, threeDigits);
        QFETCH(QString, special);
        QCOMPARE(VolumeName::formatMemoryStringDot1(size), dot1);
        QCOMPARE(VolumeName::formatMemoryStringDot1NSnum(QVariant::fromValue(size)), dot1);
        QCOMPARE(VolumeName::convertToStringFromFileSize(size), dot1);
        QCOMPARE(VolumeName::formatMemoryStringDot1With3DigitsExactly(size), threeDigits);
        QCOMPARE(VolumeName::convertToStringFromFileSizeSpecial(size), special);
    }

    void nsnumWithoutValueReadsZero()
    {
        QCOMPARE(VolumeName::formatMemoryStringDot0NSnum(QVariant()), QStringLiteral("Zero Bytes"));
        QCOMPARE(VolumeName::formatMemoryStringDot1NSnum(QVariant()), QStringLiteral("0 B"));
        QCOMPARE(VolumeName::formatMemoryStringDot1NSnum(QVariant(QStringLiteral("2048"))), QStringLiteral("2 KB"));
    }

    void decimalPointDoesNotFollowLocale()
    {
        const QLocale old;
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        const QString dot1 = VolumeName::formatMemoryStringDot1(1536);
        const QString panel = VolumeName::stringFromSize(1536000);
        QLocale::setDefault(old);
        QCOMPARE(dot1, QStringLiteral("1.5 KB"));
        QCOMPARE(panel, QStringLiteral("1.46 MB"));
    }

    void onlyMB_data()
    {
        QTest::addColumn<quint64>("size");
        QTest::addColumn<QString>("expected");
        QTest::newRow("zero") << quint64(0) << "0 B";
        QTest::newRow("1024 bytes is not above one KB") << quint64(1024) << "1024 B";
        QTest::newRow("900 KiB") << quint64(900 * KiB) << "900 KB";
        QTest::newRow("1 MiB is not above one MB") << quint64(MiB) << "1024 KB";
        QTest::newRow("512 MiB") << quint64(512 * MiB) << "512.0 MB";
        QTest::newRow("1024 MiB is not above 1024") << quint64(1024 * MiB) << "1024.0 MB";
        QTest::newRow("1025 MiB") << quint64(1025 * MiB) << "1 001 MB";
        QTest::newRow("3 TiB") << quint64(3 * TiB) << "3072 000 MB";
    }
    void onlyMB()
    {
        QFETCH(quint64, size);
        QFETCH(QString, expected);
        QCOMPARE(VolumeName::convertToStringFromFileSizeOnlyMB(size), expected);
    }

    void isParentPathForPath_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("other");
        QTest::addColumn<bool>("expected");
        QTest::newRow("child") << "/Users"
                               << "/Users/a" << true;
        QTest::newRow("equal paths") << "/Users"
                                     << "/Users" << false;
        QTest::newRow("sibling sharing a prefix") << "/Users"
                                                  << "/Usersx" << false;
        QTest::newRow("trailing slash only") << "/Users"
                                             << "/Users/" << true;
        QTest::newRow("root is the parent of nothing") << "/"
                                                       << "/Users" << false;
        QTest::newRow("reverse order") << "/Users/a"
                                       << "/Users" << false;
        QTest::newRow("case matters") << "/users"
                                      << "/Users/a" << false;
    }
    void isParentPathForPath()
    {
        QFETCH(QString, path);
        QFETCH(QString, other);
        QFETCH(bool, expected);
        QCOMPARE(VolumeName::isParentPathForPath(path, other), expected);
    }

    void numberOccurencesSubstring_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("needle");
        QTest::addColumn<int>("expected");
        QTest::newRow("non-overlapping") << "aaaa"
                                         << "aa" << 2;
        QTest::newRow("odd overlap") << "aaa"
                                     << "aa" << 1;
        QTest::newRow("empty needle") << "abc"
                                      << "" << 0;
        QTest::newRow("empty text") << ""
                                    << "a" << 0;
        QTest::newRow("needle longer") << "ab"
                                       << "abc" << 0;
    }
    void numberOccurencesSubstring()
    {
        QFETCH(QString, text);
        QFETCH(QString, needle);
        QFETCH(int, expected);
        QCOMPARE(VolumeName::numberOccurencesSubstring(text, needle), qsizetype(expected));
    }

    void volumeNameOfExistingAndMissingPaths()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const auto name = VolumeName::volumeName(dir.path());
        QVERIFY(name.has_value());
        QCOMPARE(*name, QStorageInfo(dir.path()).name());
        QVERIFY(!VolumeName::volumeName(dir.filePath(QStringLiteral("missing"))).has_value());
        QVERIFY(!VolumeName::volumeName(QString()).has_value());
    }

    void displayNameIsTheLastComponent()
    {
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("Folder name")));
        QCOMPARE(VolumeName::getDisplayNameAtPath(dir.filePath(QStringLiteral("Folder name"))),
                 QStringLiteral("Folder name"));
        QCOMPARE(VolumeName::getDisplayNameAtPath(dir.filePath(QStringLiteral("Folder name/"))),
                 QStringLiteral("Folder name"));
        QVERIFY(!VolumeName::getDisplayNameAtPath(QStringLiteral("/")).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestVolumeName)
#include "TestVolumeName.moc"
