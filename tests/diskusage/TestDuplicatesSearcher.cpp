#include "diskusage/DuplicateGroups.h"
#include "diskusage/DuplicatesSearcher.h"
#include "support/DiskUsageFixture.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace DiskUsageFixture;

namespace {
constexpr qint64 MB2 = 2 * 1048576;

MetadataItem candidate(const QString& path, std::uint64_t size)
{
    return {path, size, 0};
}
} // namespace

class TestDuplicatesSearcher : public QObject
{
    Q_OBJECT

private:
    QVariantMap search(const QString& home, bool verify = false)
    {
        DuplicatesSearcher searcher(home);
        searcher.setVerifyByContent(verify);
        QSignalSpy done(&searcher, &DuplicatesSearcher::onDuplicatesSearcherDoneWithDict);
        searcher.findDuplicates();
        if (!done.wait(20000))
            return {};
        QTest::qWait(50);
        return done.count() == 1 ? done.first().first().toMap() : QVariantMap();
    }

private slots:
    // Same extension and same size make a group; every copy counts, the first included.
    void groupingByExtensionAndSize()
    {
        const std::vector<MetadataItem> items = {
            candidate("/h/a.jpg", MB2),        candidate("/h/b.jpg", MB2),        // group of 2
            candidate("/h/a.png", MB2),                                            // other extension
            candidate("/h/notes", 5000000),    candidate("/h/x/readme", 5000000), // no extension: a group
            candidate("/h/1.mp3", 3000000),    candidate("/h/2.mp3", 3000000),
            candidate("/h/3.mp3", 3000000),                                        // three copies
            candidate("/h/big.mp3", 3000001),                                      // one byte apart
            candidate("/h/.bashrc", 5000000),                                      // no extension either
        };
        const DuplicateTotals totals = findDuplicatesInFiles(items, false);
        QCOMPARE(quint64(totals.count), quint64(2 + 3 + 3));
        QCOMPARE(quint64(totals.size), quint64(2 * MB2 + 3 * 5000000 + 3 * 3000000));

        QCOMPARE(DuplicateGroups::extensionOf("archive.tar.gz"), QStringLiteral("gz"));
        QCOMPARE(DuplicateGroups::extensionOf(".bashrc"), QString());
        QCOMPARE(DuplicateGroups::extensionOf("trailing."), QString());
    }

    // The scopes: each home entry, hidden ones too, but never Library or the programs' own trees.
    void scopesSkipLibraryAndItsCounterparts()
    {
        QTemporaryDir home;
        for (const char* name : {"Library", ".cache", ".local", ".config", ".var", "snap", "Music", ".hidden", "Docs"})
            QDir(home.path()).mkdir(QString::fromUtf8(name));
        QVERIFY(writeFile(home.filePath("loose.bin"), 10));
        QStringList scopes = DuplicatesSearcher::searchScopes(home.path());
        scopes.sort();
        QCOMPARE(scopes, QStringList({home.filePath(".hidden"), home.filePath("Docs"), home.filePath("Music"),
                                      home.filePath("loose.bin")}));
    }

    // A real home: a duplicated song in two folders, a lookalike in Library, the 1 MiB gap, and small
    // duplicates that only the second pass sees.
    void twoPassesOverARealHome()
    {
        QTemporaryDir home;
        QVERIFY(writeFile(home.filePath("Music/song.mp3"), 3000000, 'a'));
        QVERIFY(writeFile(home.filePath("Downloads/song.mp3"), 3000000, 'a'));
        QVERIFY(writeFile(home.filePath("Library/copy.mp3"), 3000000, 'a'));
        QVERIFY(writeFile(home.filePath(".cache/copy.mp3"), 3000000, 'a'));
        QVERIFY(writeFile(home.filePath("Docs/exact1.bin"), 1048576));
        QVERIFY(writeFile(home.filePath("Docs/exact2.bin"), 1048576));
        QVERIFY(writeFile(home.filePath("Docs/small1.txt"), 60000, 'p'));
        QVERIFY(writeFile(home.filePath("Docs/small2.txt"), 60000, 'q')); // same size, other contents
        QVERIFY(writeFile(home.filePath("Docs/tiny1.txt"), 50000));
        QVERIFY(writeFile(home.filePath("Docs/tiny2.txt"), 50000)); // not above 50,000

        const QVariantMap result = search(home.path(), true);
        QCOMPARE(result.value("Count").toULongLong(), 4ull);
        QCOMPARE(result.value("Size").toULongLong(), 2 * 3000000ull + 2 * 60000ull);
        // The two text files only look alike.
        QCOMPARE(result.value("VerifiedCount").toULongLong(), 2ull);
        QCOMPARE(result.value("VerifiedSize").toULongLong(), 2 * 3000000ull);
        // The copies counted, for a review list: exactly the four, none from the skipped folders.
        QStringList paths = result.value("Paths").toStringList();
        paths.sort();
        QCOMPARE(paths, QStringList({home.filePath("Docs/small1.txt"), home.filePath("Docs/small2.txt"),
                                     home.filePath("Downloads/song.mp3"), home.filePath("Music/song.mp3")}));
    }

    // With 100 MiB or more in the first pass there is no second pass.
    void noSecondPassPastOneHundredMiB()
    {
        QTemporaryDir home;
        const qint64 big = 53 * 1048576; // two copies: 106 MiB
        QVERIFY(writeFile(home.filePath("Videos/a.mkv"), big));
        QVERIFY(writeFile(home.filePath("Videos/b.mkv"), big));
        QVERIFY(writeFile(home.filePath("Docs/small1.txt"), 60000));
        QVERIFY(writeFile(home.filePath("Docs/small2.txt"), 60000));
        const QVariantMap result = search(home.path());
        QCOMPARE(result.value("Count").toULongLong(), 2ull);
        QCOMPARE(result.value("Size").toULongLong(), quint64(2 * big));
        QVERIFY(!result.contains("VerifiedSize"));
    }

    // An empty home still answers, once.
    void emptyHomeAnswers()
    {
        QTemporaryDir home;
        const QVariantMap result = search(home.path());
        QCOMPARE(result.value("Count").toULongLong(), 0ull);
        QVERIFY(result.contains("Size"));
    }
};

QTEST_GUILESS_MAIN(TestDuplicatesSearcher)
#include "TestDuplicatesSearcher.moc"
