#include "search/NameIndex.h"
#include "search/Walker.h"

#include <QElapsedTimer>
#include <QtTest>

#include <algorithm>

namespace {

QByteArrayList paths(const QList<NameIndex::Match>& matches)
{
    QByteArrayList list;
    for (const NameIndex::Match& m : matches)
        list.append(m.path);
    std::sort(list.begin(), list.end());
    return list;
}

} // namespace

class TestNameIndex : public QObject
{
    Q_OBJECT
private Q_SLOTS:

    void matchesAsTheWalkerDoes_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QByteArray>("needle");
        const QList<std::pair<QByteArray, QByteArray>> cases = {
            {"Report-MATCH.txt", "match"},
            {"report.txt", "REPORT"},
            {"Été.txt", "été"},
            {"été.txt", "Été"},
            {"bad-\xff\xfe", "\xff\xfe"},
            {"abc", "abcd"},
            {"abc", ""},
            {"aab", "ab"},
            {"Z", "z"},
            {"[x]", "["},
            {"x\xc3\x89", "\xc3\xa9"},
            {"...", ".."},
        };
        for (const auto& [name, needle] : cases)
            QTest::newRow(name + " / " + needle) << name << needle;
    }
    void matchesAsTheWalkerDoes()
    {
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, needle);
        NameIndex index("/r");
        index.add(NameIndex::kRoot, name.toStdString(), false);
        const std::string folded = walkerFoldNeedle(needle.toStdString());
        const bool walker = walkerNameMatches(name.constData(), static_cast<size_t>(name.size()), folded);
        QCOMPARE(index.query(needle.toStdString()).size(), walker ? 1 : 0);
    }

    void pathsAreRebuiltFromParentLinks()
    {
        NameIndex index("/home/u");
        const auto a = index.add(NameIndex::kRoot, "a", true);
        const auto b = index.add(a, "b", true);
        const auto f = index.add(b, "f.txt", false);
        QCOMPARE(QByteArray::fromStdString(index.path(f)), QByteArray("/home/u/a/b/f.txt"));
        QCOMPARE(index.find("/home/u/a/b/f.txt"), f);
        QCOMPARE(index.find("/home/u/a/b/"), b);
        QCOMPARE(index.find("/home/u"), NameIndex::kRoot);
        QCOMPARE(index.find("/home/user/a"), NameIndex::kNone);
        QCOMPARE(index.find("/home/u/a/missing"), NameIndex::kNone);

        NameIndex slash("/");
        const auto usr = slash.add(NameIndex::kRoot, "usr", true);
        QCOMPARE(QByteArray::fromStdString(slash.path(slash.add(usr, "lib", true))), QByteArray("/usr/lib"));
        QCOMPARE(slash.find("/usr/lib"), slash.child(usr, "lib"));
    }

    void addingTwiceKeepsOneEntryAndAKindChangeReplacesIt()
    {
        NameIndex index("/r");
        const auto first = index.add(NameIndex::kRoot, "x", false);
        QCOMPARE(index.add(NameIndex::kRoot, "x", false), first);
        QCOMPARE(index.usage().entries, 1);
        const auto folder = index.add(NameIndex::kRoot, "x", true);
        index.add(folder, "inside", false);
        QVERIFY(index.isFolder(folder));
        QCOMPARE(index.usage().entries, 2);
        index.add(NameIndex::kRoot, "x", false); // the folder became a file: what was inside goes
        QCOMPARE(index.usage().entries, 1);
        QVERIFY(index.query("inside").isEmpty());
    }

    void removingAFolderRemovesItsSubtreeAndReportsEachFolder()
    {
        NameIndex index("/r");
        const auto top = index.add(NameIndex::kRoot, "top", true);
        const auto mid = index.add(top, "mid", true);
        index.add(mid, "leaf", false);
        index.add(NameIndex::kRoot, "keep", false);
        std::vector<NameIndex::Id> forgotten;
        index.remove(top, [&](NameIndex::Id id) { forgotten.push_back(id); });
        std::sort(forgotten.begin(), forgotten.end());
        QCOMPARE(forgotten, (std::vector<NameIndex::Id>{std::min(top, mid), std::max(top, mid)}));
        QCOMPARE(paths(index.query("")), QByteArrayList{"/r/keep"});
        QVERIFY(!index.isAlive(mid));
        // Freed numbers are reused, and the new entry is whole.
        const auto again = index.add(NameIndex::kRoot, "new", true);
        QCOMPARE(QByteArray::fromStdString(index.path(index.add(again, "n", false))), QByteArray("/r/new/n"));
    }

    void movingAFolderCarriesEverythingUnderIt()
    {
        NameIndex index("/r");
        const auto a = index.add(NameIndex::kRoot, "a", true);
        const auto b = index.add(NameIndex::kRoot, "b", true);
        const auto moved = index.add(a, "big", true);
        for (int i = 0; i < 3000; ++i)
            index.add(moved, "file-" + std::to_string(i), false);
        index.add(b, "renamed", false); // replaced by the move
        index.move(moved, b, "renamed");
        QCOMPARE(index.query("file-", "/r/a").size(), 0);
        QCOMPARE(index.query("file-", "/r/b/renamed").size(), 3000);
        QCOMPARE(QByteArray::fromStdString(index.path(index.child(moved, "file-7"))),
                 QByteArray("/r/b/renamed/file-7"));
        QCOMPARE(index.usage().entries, 3003);
        // A folder cannot be moved under itself.
        index.move(b, moved, "loop");
        QCOMPARE(QByteArray::fromStdString(index.path(b)), QByteArray("/r/b"));
    }

    void queryIsLimitedToTheFolderAndToTheCountAsked()
    {
        NameIndex index("/r");
        const auto a = index.add(NameIndex::kRoot, "a", true);
        const auto ab = index.add(a, "ab", true);
        const auto other = index.add(NameIndex::kRoot, "ab-other", true);
        std::vector<std::pair<std::string, uint8_t>> names;
        for (int i = 0; i < 20000; ++i)
            names.emplace_back("conf-" + std::to_string(i), 0);
        index.addMany(ab, names);
        index.addMany(other, names);
        // Adding the same names again finds them.
        QCOMPARE(index.addMany(other, names).size(), size_t(20000));
        QCOMPARE(index.usage().entries, 40003);
        QCOMPARE(index.query("CONF", "/r/a").size(), 20000);
        QCOMPARE(index.query("conf", "/r/a/ab").size(), 20000);
        QCOMPARE(index.query("conf").size(), 40000);
        QCOMPARE(index.query("conf", {}, 7).size(), 7);
        QVERIFY(index.query("conf", "/r/nothing").isEmpty());
        // The folder itself is not one of the names under it.
        QCOMPARE(paths(index.query("ab", "/r/a")), QByteArrayList{"/r/a/ab"});
    }

    void deadNamesAreCompactedAndMemoryStaysNearTheLiveNames()
    {
        NameIndex index("/r");
        const auto folder = index.add(NameIndex::kRoot, "f", true);
        for (int round = 0; round < 5; ++round) {
            std::vector<std::pair<std::string, uint8_t>> names;
            for (int i = 0; i < 100000; ++i)
                names.emplace_back("some-longer-name-" + std::to_string(round) + "-" + std::to_string(i), 0);
            index.addMany(folder, names);
            index.clearChildren(folder);
        }
        index.add(folder, "last", false);
        index.compact();
        const NameIndex::Usage usage = index.usage();
        QCOMPARE(usage.entries, 2);
        QVERIFY2(usage.memoryBytes < 4 * 1024 * 1024, QByteArray::number(usage.memoryBytes));
        QCOMPARE(paths(index.query("last")), QByteArrayList{"/r/f/last"});
    }

    // Not a timing test: it prints what a million names cost, for the record.
    void millionNamesFigures()
    {
        // 100 folders of 100 folders of 99 files: about a million names, ten levels of path at most.
        NameIndex index("/home/u");
        int serial = 0;
        for (int a = 0; a < 100; ++a) {
            const auto top = index.add(NameIndex::kRoot, "project-" + std::to_string(a), true);
            for (int b = 0; b < 100; ++b) {
                const auto folder = index.add(top, "folder-" + std::to_string(b), true);
                std::vector<std::pair<std::string, uint8_t>> names;
                for (int c = 0; c < 99; ++c)
                    names.emplace_back("file-" + std::to_string(serial++) + ".txt", 0);
                index.addMany(folder, names);
            }
        }
        index.compact();
        QElapsedTimer timer;
        timer.start();
        const auto found = index.query("conf");
        const qint64 none = timer.nsecsElapsed();
        timer.restart();
        const auto many = index.query("99");
        const qint64 lots = timer.nsecsElapsed();
        const NameIndex::Usage usage = index.usage();
        qInfo("1,000,000 names: query without matches %.1f ms, with %lld matches %.1f ms; %.1f bytes per entry "
              "beyond the names",
              double(none) / 1e6, static_cast<long long>(many.size()), double(lots) / 1e6,
              double(usage.overheadBytes) / double(usage.entries));
        QVERIFY(found.isEmpty());
        QVERIFY(usage.overheadBytes / usage.entries <= 40);
    }
};

QTEST_GUILESS_MAIN(TestNameIndex)
#include "TestNameIndex.moc"
