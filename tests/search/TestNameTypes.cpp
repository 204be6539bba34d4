#include "search/NameTypes.h"
#include "search/SearchItem.h"

#include <QDir>
#include <QFile>
#include <QMimeDatabase>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

// What decidingEnding answers, "(name)" for nothing.
QByteArray endingOf(const MimeGlobIndex& index, const QByteArray& name)
{
    const auto ending = index.decidingEnding(std::string_view(name.constData(), static_cast<size_t>(name.size())));
    return ending ? QByteArray(ending->data(), static_cast<qsizetype>(ending->size())) : QByteArray("(name)");
}

QString databaseType(const QByteArray& name)
{
    static const QMimeDatabase db;
    return db.mimeTypeForFile(QString::fromUtf8(name), QMimeDatabase::MatchExtension).name();
}

} // namespace

class TestNameTypes : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void decidingEnding_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("ending");
        // Endings: the longest one, in the name's own case.
        QTest::newRow("plain") << QByteArray("x.c") << QByteArray(".c");
        QTest::newRow("case kept") << QByteArray("X.C") << QByteArray(".C");
        QTest::newRow("longest") << QByteArray("a.tar.gz") << QByteArray(".tar.gz");
        QTest::newRow("longest, mixed case") << QByteArray("a.TAR.Gz") << QByteArray(".TAR.Gz");
        QTest::newRow("shorter one") << QByteArray("atar.gz") << QByteArray(".gz");
        QTest::newRow("no dot") << QByteArray("a~") << QByteArray("~");
        QTest::newRow("none") << QByteArray("notes") << QByteArray("");
        QTest::newRow("whole name is an ending") << QByteArray(".gz") << QByteArray(".gz");
        // Other patterns, without case.
        QTest::newRow("prefix") << QByteArray("ReadMe.txt") << QByteArray("(name)");
        QTest::newRow("prefix alone") << QByteArray("readme") << QByteArray("(name)");
        QTest::newRow("prefix not met") << QByteArray("readmy.c") << QByteArray(".c");
        QTest::newRow("literal") << QByteArray("core") << QByteArray("(name)");
        QTest::newRow("literal, other case") << QByteArray("CORE") << QByteArray("(name)");
        QTest::newRow("literal inside") << QByteArray("xcore") << QByteArray("");
        QTest::newRow("class") << QByteArray("page.1") << QByteArray("(name)");
        QTest::newRow("class not met") << QByteArray("page.0") << QByteArray("");
        QTest::newRow("class, two letters") << QByteArray("page.10") << QByteArray("");
        QTest::newRow("class of letters") << QByteArray("x.animJ") << QByteArray("(name)");
        QTest::newRow("class of letters not met") << QByteArray("x.animk") << QByteArray("");
        QTest::newRow("two stars") << QByteArray("libx.so.1.2") << QByteArray("(name)");
        QTest::newRow("two stars not met") << QByteArray("libx.so.x") << QByteArray("");
        QTest::newRow("two stars, part at the end") << QByteArray("libx.so.7") << QByteArray("(name)");
        QTest::newRow("classes in a row") << QByteArray("123.vdr") << QByteArray("(name)");
        QTest::newRow("classes in a row not met") << QByteArray("12a.vdr") << QByteArray("");
        QTest::newRow("negated class") << QByteArray("x.nq") << QByteArray("(name)");
        // Outside ASCII: only the few characters read as ASCII letters leave the answer open.
        QTest::newRow("accent before the ending") << QByteArray("caf\xc3\xa9.gz") << QByteArray(".gz");
        QTest::newRow("accent where a longer ending goes on") << QByteArray("\xc3\xa9.tar.gz") << QByteArray(".tar.gz");
        QTest::newRow("long s may be the s of .ks") << QByteArray("a.k\xc5\xbf") << QByteArray("(name)");
        QTest::newRow("Kelvin sign may go on .ks") << QByteArray("a.\xe2\x84\xaas") << QByteArray("(name)");
        QTest::newRow("sharp s is no s") << QByteArray("a.k\xc3\x9f") << QByteArray("");
        QTest::newRow("accent in a prefix") << QByteArray("readm\xc3\xa9") << QByteArray("");
        QTest::newRow("dotless i for a letter") << QByteArray("cor\xc4\xb1") << QByteArray("(name)");
        QTest::newRow("Kelvin sign for a letter") << QByteArray("\xe2\x84\xaaore") << QByteArray("(name)");
        QTest::newRow("long s in a prefix's letter") << QByteArray("\xc5\xbf"
                                                                   "etup.c")
                                                     << QByteArray("(name)");
        QTest::newRow("long s for a digit") << QByteArray("\xc5\xbf"
                                                          "23.vdr")
                                            << QByteArray("");
        QTest::newRow("wide character in a class of digits") << QByteArray("\xe6\x97\xa5"
                                                                           "23.vdr")
                                                             << QByteArray("");
        QTest::newRow("broken byte is no digit") << QByteArray("\xff"
                                                               "23.vdr")
                                                 << QByteArray("");
        QTest::newRow("broken byte for a negated class") << QByteArray("x.n\xff") << QByteArray("(name)");
        QTest::newRow("broken byte, ending") << QByteArray("\xff\xfe.c") << QByteArray(".c");
        QTest::newRow("emoji is two units") << QByteArray("\xf0\x9f\x99\x82"
                                                          "3.vdr")
                                            << QByteArray("");
    }
    void decidingEnding()
    {
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, ending);
        const MimeGlobIndex index({"*.c", "*.C", "*.tar.gz", "*.gz", "*~", "*.ks", "README*", "setup*", "core",
                                   "*.[1-9]", "*.anim[1-9j]", "*.so.[0-9]*", "[0-9][0-9][0-9].vdr", "*.n[!a-p]"});
        QCOMPARE(endingOf(index, name), ending);
    }

    void incompleteListsLeaveEveryNameToTheDatabase()
    {
        const MimeGlobIndex incomplete({"*.c"}, false);
        QCOMPARE(endingOf(incomplete, "x.c"), QByteArray("(name)"));
        const MimeGlobIndex foreign({"*.c", QStringLiteral("*.\u00e9t\u00e9")});
        QCOMPARE(endingOf(foreign, "x.c"), QByteArray("(name)"));
    }

    // The lists are read beside each compiled cache; a folder the database reads otherwise, a line that
    // cannot be read for certain, or no shared package anywhere leaves every name to the database.
    void patternListsOfTheMimeFolders()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const auto folder = [&dir](const QString& name, const QByteArray& globs, bool cache, bool mainPackage) {
            const QString path = dir.filePath(name);
            QDir().mkpath(path + QStringLiteral("/packages"));
            if (cache) {
                QFile(path + QStringLiteral("/mime.cache")).open(QIODevice::WriteOnly);
                QFile list(path + QStringLiteral("/globs2"));
                list.open(QIODevice::WriteOnly);
                list.write(globs);
            }
            if (mainPackage)
                QFile(path + QStringLiteral("/packages/freedesktop.org.xml")).open(QIODevice::WriteOnly);
            return path;
        };
        const QString shared = folder(QStringLiteral("shared"),
                                      "# comment\n50:text/x-csrc:*.c:cs\n50:text/x-readme:README*\n", true, true);
        const QString user = folder(QStringLiteral("user"), "50:application/x-thing:*.thing\n", true, false);
        const MimeGlobIndex both = MimeGlobIndex::fromFolders({user, shared});
        QCOMPARE(endingOf(both, "a.c"), QByteArray(".c"));
        QCOMPARE(endingOf(both, "a.thing"), QByteArray(".thing"));
        QCOMPARE(endingOf(both, "readme.c"), QByteArray("(name)"));

        QCOMPARE(endingOf(MimeGlobIndex::fromFolders({user}), "a.c"), QByteArray("(name)"));
        const QString packagesOnly = folder(QStringLiteral("packages"), {}, false, false);
        QCOMPARE(endingOf(MimeGlobIndex::fromFolders({packagesOnly, shared}), "a.c"), QByteArray("(name)"));
        const QString neither = dir.filePath(QStringLiteral("empty"));
        QDir().mkpath(neither);
        QCOMPARE(endingOf(MimeGlobIndex::fromFolders({neither, shared}), "a.c"), QByteArray(".c"));
        const QString colon = folder(QStringLiteral("colon"), "50:text/x-odd:*.a:b\n", true, false);
        QCOMPARE(endingOf(MimeGlobIndex::fromFolders({colon, shared}), "a.c"), QByteArray("(name)"));
        const QString noList = folder(QStringLiteral("nolist"), {}, true, false);
        QFile::remove(noList + QStringLiteral("/globs2"));
        QCOMPARE(endingOf(MimeGlobIndex::fromFolders({noList, shared}), "a.c"), QByteArray("(name)"));
        QCOMPARE(endingOf(MimeGlobIndex::fromFolders({}), "a.c"), QByteArray("(name)"));
    }

    // Names that share an ending but differ in what else the database looks at, asked in several
    // orders: each answer must be the database's own, whichever name of an ending came first.
    void typesAreTheDatabases()
    {
        if (!MimeGlobIndex::system().decidingEnding("x.txt"))
            QSKIP("the MIME folders have no pattern lists: every name goes to the database");
        const std::vector<QByteArray> stems = {"x",
                                               "README",
                                               "readme",
                                               "Makefile",
                                               "makefile",
                                               "core",
                                               "Core",
                                               "CMakeLists",
                                               "lib",
                                               "001",
                                               "callgrind.out",
                                               "gmon",
                                               "notes",
                                               "\xc3\x9c"
                                               "ber",
                                               "\xc5\xbf"
                                               "etup",
                                               "bad\xff",
                                               "\xe6\x97\xa5\xe6\x9c\xac",
                                               "SConscript",
                                               ".hidden"};
        const std::vector<QByteArray> endings = {"",
                                                 ".txt",
                                                 ".TXT",
                                                 ".c",
                                                 ".C",
                                                 ".h",
                                                 ".tar.gz",
                                                 ".gz",
                                                 ".so.1",
                                                 ".so",
                                                 ".1",
                                                 ".10",
                                                 "~",
                                                 ".vdr",
                                                 ".anim3",
                                                 ".md",
                                                 ".in",
                                                 ".am",
                                                 ",v",
                                                 "%",
                                                 ".out",
                                                 ".JSON",
                                                 ".geojson",
                                                 ".dat",
                                                 ".k\xc5\xbf",
                                                 ".\xe2\x84\xaa"
                                                 "ar",
                                                 ".pdf\xc3\xa9"};
        std::vector<QByteArray> names;
        for (const QByteArray& stem : stems)
            for (const QByteArray& ending : endings)
                names.push_back(stem + ending);
        names.push_back("cacerts");
        names.push_back("pom.xml");
        names.push_back("POM.XML");
        names.push_back("a.pom.xml");

        std::vector<QString> expected;
        for (const QByteArray& name : names)
            expected.push_back(databaseType(name));
        std::mt19937 random(7);
        std::vector<size_t> order(names.size());
        for (int round = 0; round < 4; ++round) {
            for (size_t i = 0; i < order.size(); ++i)
                order[i] = round == 1 ? order.size() - 1 - i : i;
            if (round >= 2)
                std::shuffle(order.begin(), order.end(), random);
            NameTypes types;
            for (int pass = 0; pass < 2; ++pass) {
                for (size_t i : order) {
                    const QByteArray& name = names[i];
                    const uint16_t type =
                        types.typeOf(std::string_view(name.constData(), static_cast<size_t>(name.size())));
                    if (SearchTypes::name(type) != expected[i])
                        QFAIL(qPrintable(QStringLiteral("%1: %2, the database says %3")
                                             .arg(QString::fromUtf8(name.toPercentEncoding()), SearchTypes::name(type),
                                                  expected[i])));
                }
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestNameTypes)
#include "TestNameTypes.moc"
