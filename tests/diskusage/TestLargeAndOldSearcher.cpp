#include "diskusage/LargeAndOldSearcher.h"
#include "diskusage/MetadataQuery.h"
#include "support/DiskUsageFixture.h"
#include "support/ManualClock.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>

using namespace DiskUsageFixture;

namespace {
// Sets both access and modification time.
bool age(const QString& path, const QDateTime& when, const QDateTime& accessed = QDateTime())
{
    const struct timespec times[2] = {{(accessed.isValid() ? accessed : when).toSecsSinceEpoch(), 0},
                                      {when.toSecsSinceEpoch(), 0}};
    return ::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, AT_SYMLINK_NOFOLLOW) == 0;
}

QStringList paths(const QVariantList& files)
{
    QStringList result;
    for (const QVariant& file : files)
        result << file.toMap().value("Path").toString();
    result.sort();
    return result;
}
} // namespace

class TestLargeAndOldSearcher : public QObject
{
    Q_OBJECT

private slots:
    // The 90-day and 20,000,000-byte boundaries, on real files and an injected clock.
    void boundaries()
    {
        QTemporaryDir root;
        ManualClock clock;
        const QDateTime now = clock.now();
        struct Case {
            const char* name;
            qint64 size;
            qint64 daysAgo;
            qint64 accessedDaysAgo;
        };
        const Case cases[] = {
            {"old-large", 25000000, 91, 91},  {"recent-large", 25000000, 89, 89}, {"exact-limit", 20000000, 200, 200},
            {"limit-plus-one", 20000001, 200, 200}, {"old-small", 1000000, 300, 300},
            {"read-lately", 25000000, 200, 10}, // opened 10 days ago: in use
            {"deep/in/tree/old", 25000000, 120, 120},
        };
        for (const Case& c : cases) {
            const QString path = root.filePath(c.name);
            QVERIFY(writeFile(path, c.size));
            QVERIFY(age(path, now.addDays(-c.daysAgo), now.addDays(-c.accessedDaysAgo)));
        }
        // Exactly 90 days is not more than 90 days.
        QVERIFY(writeFile(root.filePath("exactly-90"), 25000000));
        QVERIFY(age(root.filePath("exactly-90"), now.addSecs(-LargeAndOldSearcher::kUnusedSeconds)));

        LargeAndOldSearcher searcher(clock, {root.path()});
        QSignalSpy done(&searcher, &LargeAndOldSearcher::onSpotlightLargeOldSearcherDoneWithFiles);
        searcher.findLargeOld();
        QVERIFY(done.wait(10000));
        const QVariantList files = done.first().first().toList();
        QCOMPARE(paths(files), QStringList({root.filePath("deep/in/tree/old"), root.filePath("limit-plus-one"),
                                           root.filePath("old-large")}));
        for (const QVariant& file : files)
            QVERIFY(file.toMap().value("Size").toULongLong() > 20000000ull);
    }

    // Predicates and scopes: a file scope is tested itself; bounds are exclusive; suffix matches names.
    void metadataQueryPredicates()
    {
        QTemporaryDir root;
        QVERIFY(writeFile(root.filePath("a/one.app"), 100));
        QVERIFY(writeFile(root.filePath("a/two.bin"), 200));
        QVERIFY(writeFile(root.filePath("three.app"), 300));
        QVERIFY(QFile::link(root.filePath("three.app"), root.filePath("link.app")));
        MetadataPredicate suffix;
        suffix.nameSuffix = ".app";
        QStringList found;
        for (const MetadataItem& item : MetadataQuery::gather(suffix, {root.filePath("a"), root.filePath("three.app")}))
            found << item.path;
        found.sort();
        QCOMPARE(found, QStringList({root.filePath("a/one.app"), root.filePath("three.app")}));

        MetadataPredicate bounds;
        bounds.sizeAbove = 100;
        bounds.sizeBelow = 300;
        const auto items = MetadataQuery::gather(bounds, {root.path(), root.filePath("missing")});
        QCOMPARE(int(items.size()), 1);
        QCOMPARE(items.front().path, root.filePath("a/two.bin"));
        QCOMPARE(quint64(items.front().size), quint64(200));
    }
};

QTEST_GUILESS_MAIN(TestLargeAndOldSearcher)
#include "TestLargeAndOldSearcher.moc"
