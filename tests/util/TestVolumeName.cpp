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

// One row per size: the texts the formatters under test give for it, in column order.
template <typename Size, typename... Texts> void row(const char* name, Size size, Texts... texts)
{
    ((QTest::newRow(name) << size) << ... << QString::fromUtf8(texts));
}
} // namespace

class TestVolumeName : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void stringFromSize_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<QString>("expected");
        row<qint64>("negative", -5, "-5 bytes");
        row<qint64>("999", 999, "999 bytes");
        row<qint64>("1000 switches unit at 1000", 1000, "0.98 KB");
        row<qint64>("1023", 1023, "1.00 KB");
        row<qint64>("tie rounds to even", 1152, "1.12 KB");
        row<qint64>("10239 rounds up within two decimals", 10239, "10.00 KB");
        row<qint64>("10240 one decimal", 10240, "10.0 KB");
        row<qint64>("102399", 102399, "100.0 KB");
        row<qint64>("102400 no decimal", 102400, "100 KB");
        row<qint64>("1023999 unit chosen before rounding", 1023999, "1000 KB");
        row<qint64>("1024000", 1024000, "0.98 MB");
        row<qint64>("2 PiB stays in TB", 2 * PiB, "2048 TB");
        row<qint64>("largest count", std::numeric_limits<qint64>::max(), "8388608 TB");
    }
    void stringFromSize()
    {
        QFETCH(qint64, size);
        QTEST(VolumeName::stringFromSize(size), "expected");
    }

    void dot0_data()
    {
        QTest::addColumn<quint64>("size");
        QTest::addColumn<QString>("expected");
        row<quint64>("zero", 0, "Zero Bytes");
        row<quint64>("1023", 1023, "1023 B");
        row<quint64>("1024", 1024, "1 KB");
        row<quint64>("1075 fraction below 0.05", 1075, "1 KB");
        row<quint64>("1126 one decimal", 1126, "1.1 KB");
        row<quint64>("1997 fraction at 0.95", 1997, "2 KB");
        row<quint64>("9.5 KiB", 9728, "9.5 KB");
        row<quint64>("10.5 KiB no decimal at ten", 10752, "10 KB");
        row<quint64>("1023.9 KiB stays in KB", 1048470, "1024 KB");
        row<quint64>("1.5 PiB", PiB + PiB / 2, "1.5 PB");
        row<quint64>("4096 PiB: list runs out", 4096 * PiB, "4096 PB");
    }
    void dot0()
    {
        QFETCH(quint64, size);
        QTEST(VolumeName::formatMemoryStringDot0(size), "expected");
        QTEST(VolumeName::formatMemoryStringDot0NSnum(QVariant::fromValue(size)), "expected");
    }

    void dot1_data()
    {
        QTest::addColumn<quint64>("size");
        QTest::addColumn<QString>("dot1");
        QTest::addColumn<QString>("threeDigits");
        QTest::addColumn<QString>("special");
        row<quint64>("1023", 1023, "1023 B", "1023 B", "1023 B");
        row<quint64>("2048 zero decimal dropped", 2048, "2 KB", "2 KB", "2 KB");
        row<quint64>("1,048,575 rounds to 1024 KB", 1048575, "1024 KB", "1024 KB", "1024 KB");
        row<quint64>("1 MiB", MiB, "1 MB", "1 MB", "1 MB");
        row<quint64>("1.25 GiB", GiB + GiB / 4, "1.2 GB", "1.25 GB", "1.2 GB");
        row<quint64>("12.5 MiB: special truncates", 12 * MiB + MiB / 2, "12.5 MB", "12.5 MB", "12 MB");
        row<quint64>("12.96 MiB: special keeps the rounded integer", 12 * MiB + MiB * 96 / 100, "13 MB", "13 MB",
                     "13 MB");
        row<quint64>("125.4 MiB", 125 * MiB + MiB * 4 / 10, "125.4 MB", "125 MB", "125 MB");
        row<quint64>("3 PiB", 3 * PiB, "3 PB", "3 PB", "3 PB");
        row<quint64>("an exbibyte has no unit", 1024 * PiB, "1", "1", "1");
    }
    void dot1()
    {
        QFETCH(quint64, size);
        QTEST(VolumeName::formatMemoryStringDot1(size), "dot1");
        QTEST(VolumeName::formatMemoryStringDot1NSnum(QVariant::fromValue(size)), "dot1");
        QTEST(VolumeName::convertToStringFromFileSize(size), "dot1");
        QTEST(VolumeName::formatMemoryStringDot1With3DigitsExactly(size), "threeDigits");
        QTEST(VolumeName::convertToStringFromFileSizeSpecial(size), "special");
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
        row<quint64>("1024 bytes is not above one KB", 1024, "1024 B");
        row<quint64>("900 KiB", 900 * KiB, "900 KB");
        row<quint64>("1 MiB is not above one MB", MiB, "1024 KB");
        row<quint64>("1024 MiB is not above 1024", 1024 * MiB, "1024.0 MB");
        row<quint64>("1025 MiB", 1025 * MiB, "1 001 MB");
        row<quint64>("3 TiB", 3 * TiB, "3072 000 MB");
    }
    void onlyMB()
    {
        QFETCH(quint64, size);
        QTEST(VolumeName::convertToStringFromFileSizeOnlyMB(size), "expected");
    }

    void isParentPathForPath_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("other");
        QTest::addColumn<bool>("expected");
        const auto add = [](const char* name, const char* path, const char* other, bool expected) {
            QTest::newRow(name) << QString::fromUtf8(path) << QString::fromUtf8(other) << expected;
        };
        add("child", "/Users", "/Users/a", true);
        add("equal paths", "/Users", "/Users", false);
        add("sibling sharing a prefix", "/Users", "/Usersx", false);
        add("trailing slash only", "/Users", "/Users/", true);
        add("root is the parent of nothing", "/", "/Users", false);
        add("reverse order", "/Users/a", "/Users", false);
        add("case matters", "/users", "/Users/a", false);
    }
    void isParentPathForPath()
    {
        QFETCH(QString, path);
        QFETCH(QString, other);
        QTEST(VolumeName::isParentPathForPath(path, other), "expected");
    }

    void numberOccurencesSubstring()
    {
        const auto count = [](const char* text, const char* needle) {
            return int(VolumeName::numberOccurencesSubstring(QString::fromUtf8(text), QString::fromUtf8(needle)));
        };
        QCOMPARE(count("aaaa", "aa"), 2); // non-overlapping
        QCOMPARE(count("aaa", "aa"), 1);
        QCOMPARE(count("abc", ""), 0);
        QCOMPARE(count("ab", "abc"), 0);
    }

    void namesOfPaths()
    {
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("Folder name")));
        QCOMPARE(VolumeName::volumeName(dir.path()).value_or(QStringLiteral("none")), QStorageInfo(dir.path()).name());
        QVERIFY(!VolumeName::volumeName(dir.filePath(QStringLiteral("missing"))));
        QVERIFY(!VolumeName::volumeName(QString()));
        for (const char* tail : {"Folder name", "Folder name/"})
            QCOMPARE(VolumeName::getDisplayNameAtPath(dir.filePath(QString::fromUtf8(tail))),
                     QStringLiteral("Folder name"));
        QVERIFY(!VolumeName::getDisplayNameAtPath(QStringLiteral("/")).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestVolumeName)
#include "TestVolumeName.moc"
