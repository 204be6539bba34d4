#include "search/SearchResultSort.h"

#include <QtTest>

#include <algorithm>
#include <random>

namespace {

SearchFolderPtr folder(const QByteArray& path)
{
    return SearchFolder::make(path);
}

SearchItemPtr item(const QByteArray& name, const QByteArray& path = "/f", qint64 size = 0, qint64 msecs = 0)
{
    auto i = std::make_shared<SearchItem>(name, folder(path));
    i->fileSize = size;
    i->modifiedMSecs = msecs;
    return i;
}

QByteArrayList names(const QList<SearchItemPtr>& items)
{
    QByteArrayList out;
    for (const SearchItemPtr& i : items)
        out.append(i->rawFileName);
    return out;
}

// The reference order: the names as shown, compared as UTF-16 code units.
int referenceCompare(const QByteArray& a, const QByteArray& b)
{
    const int c = QString::fromUtf8(a).compare(QString::fromUtf8(b), Qt::CaseSensitive);
    return (c > 0) - (c < 0);
}

} // namespace

class TestSearchResultSort : public QObject
{
    Q_OBJECT

private slots:
    void keysAndWords()
    {
        const QList<std::pair<SearchSortKey, QString>> keys{
            {SearchSortKey::Name, QStringLiteral("KEY_nameSort")},
            {SearchSortKey::EnclosingFolder, QStringLiteral("KEY_encFolderSort")},
            {SearchSortKey::Size, QStringLiteral("KEY_sizeSort")},
            {SearchSortKey::Date, QStringLiteral("KEY_dateSort")},
            {SearchSortKey::Type, QStringLiteral("KEY_typeSort")},
        };
        for (const auto& [key, text] : keys) {
            QCOMPARE(SearchResultSort::descriptorKey(key), text);
            QCOMPARE(SearchResultSort::keyFromDescriptor(text), key);
        }
        QCOMPARE(SearchResultSort::keyFromDescriptor(u"KEY_kindSort"), std::nullopt);
        QCOMPARE(SearchResultSort::keyFromWord(u"name"), SearchSortKey::Name);
        QCOMPARE(SearchResultSort::keyFromWord(u"folder"), SearchSortKey::EnclosingFolder);
        QCOMPARE(SearchResultSort::keyFromWord(u"size"), SearchSortKey::Size);
        QCOMPARE(SearchResultSort::keyFromWord(u"date"), SearchSortKey::Date);
        QCOMPARE(SearchResultSort::keyFromWord(u"kind"), SearchSortKey::Type);
        QCOMPARE(SearchResultSort::keyFromWord(u"type"), std::nullopt);
        QCOMPARE(SearchResultSort::keyFromWord(u"Name"), std::nullopt);
    }

    void nameComparison_data()
    {
        QTest::addColumn<QByteArray>("a");
        QTest::addColumn<QByteArray>("b");
        QTest::addColumn<int>("expected");
        QTest::newRow("equal") << QByteArray("abc") << QByteArray("abc") << 0;
        QTest::newRow("case-sensitive: capitals first") << QByteArray("Zebra") << QByteArray("apple") << -1;
        QTest::newRow("prefix first") << QByteArray("report") << QByteArray("report.txt") << -1;
        QTest::newRow("empty first") << QByteArray("") << QByteArray("a") << -1;
        QTest::newRow("accented after ascii") << QByteArray("\xc3\xa9t\xc3\xa9") << QByteArray("zoo") << 1;
        QTest::newRow("two-byte letters by code point") << QByteArray("\xc3\xa9") << QByteArray("\xc3\xa8") << 1;
        // U+FF21 (fullwidth A, one UTF-16 unit 0xFF21) against U+1F600 (surrogates 0xD83D 0xDE00): UTF-16
        // puts the emoji first although its code point is larger.
        QTest::newRow("BMP private area after astral")
            << QByteArray("x\xef\xbc\xa1") << QByteArray("x\xf0\x9f\x98\x80") << 1;
        QTest::newRow("astral before U+E000") << QByteArray("\xf0\x9f\x98\x80") << QByteArray("\xee\x80\x80") << -1;
        QTest::newRow("astral after U+D7FF") << QByteArray("\xf0\x9f\x98\x80") << QByteArray("\xed\x9f\xbf") << 1;
        // Not UTF-8: shown (and compared) with a replacement character U+FFFD, which sorts after letters.
        QTest::newRow("0xFF byte after letters") << QByteArray("a\xff") << QByteArray("az") << 1;
        QTest::newRow("0xFF byte after astral") << QByteArray("\xff") << QByteArray("\xf0\x9f\x98\x80") << 1;
        QTest::newRow("truncated sequence") << QByteArray("ab\xc3") << QByteArray("ab\xc3\xa9") << 1;
        QTest::newRow("difference after ill-formed prefix")
            << QByteArray("\xfe\xff-a") << QByteArray("\xfe\xff-b") << -1;
        QTest::newRow("both ill-formed, same text shown") << QByteArray("x\xff") << QByteArray("x\xfe") << 0;
        QTest::newRow("encoded surrogate is ill-formed")
            << QByteArray("\xed\xa0\x80") << QByteArray("\xef\xbf\xbc") << 1;
    }
    void nameComparison()
    {
        QFETCH(QByteArray, a);
        QFETCH(QByteArray, b);
        QFETCH(int, expected);
        // Guards the table itself against the shown-text rule.
        QCOMPARE(referenceCompare(a, b), expected);
        const auto sign = [](int v) { return (v > 0) - (v < 0); };
        QCOMPARE(sign(SearchResultSort::compare(*item(a), *item(b), SearchSortKey::Name)), expected);
        QCOMPARE(sign(SearchResultSort::compare(*item(b), *item(a), SearchSortKey::Name)), -expected);
    }

    // Random names from a small alphabet of awkward pieces, against the converting comparison.
    void nameComparisonMatchesShownTextOnRandomNames()
    {
        const QByteArrayList pieces{"a",    "B",    "\xc3\xa9", "\xef\xbc\xa1", "\xf0\x9f\x98\x80",
                                    "\xff", "\xc3", "\x80",     "\xee\x80\x80", "\xed\x9f\xbf",
                                    ".",    "-"};
        std::mt19937 random(12345);
        std::uniform_int_distribution<int> pick(0, int(pieces.size()) - 1);
        std::uniform_int_distribution<int> length(0, 5);
        const auto make = [&] {
            QByteArray name;
            for (int n = length(random); n > 0; --n)
                name += pieces.at(pick(random));
            return name;
        };
        const auto sign = [](int v) { return (v > 0) - (v < 0); };
        for (int round = 0; round < 20000; ++round) {
            const QByteArray a = make();
            const QByteArray b = random() % 4 == 0 ? a + make() : make();
            const int got = sign(SearchResultSort::compare(*item(a), *item(b), SearchSortKey::Name));
            if (got != referenceCompare(a, b))
                QFAIL(qPrintable(QStringLiteral("%1 vs %2: got %3")
                                     .arg(QString::fromLatin1(a.toHex()), QString::fromLatin1(b.toHex()))
                                     .arg(got)));
        }
    }

    void sizeSortPutsFoldersLastAscendingAndFirstDescending()
    {
        QList<SearchItemPtr> items{item("big", "/f", 5'000'000'000), item("folder", "/f", -1), item("zero", "/f", 0),
                                   item("small", "/f", 12), item("folder2", "/f", -1)};
        SearchResultSort::sort(items, SearchSortKey::Size, true);
        QCOMPARE(names(items), (QByteArrayList{"zero", "small", "big", "folder", "folder2"}));
        SearchResultSort::sort(items, SearchSortKey::Size, false);
        // Ties keep their order in either direction.
        QCOMPARE(names(items), (QByteArrayList{"folder", "folder2", "big", "small", "zero"}));
        QVERIFY(SearchResultSort::compare(*item("d", "/f", -1), *item("f", "/f", INT64_MAX), SearchSortKey::Size) > 0);
    }

    void sortIsStableForTies()
    {
        QList<SearchItemPtr> items;
        for (int i = 0; i < 50; ++i)
            items.append(item("n" + QByteArray::number(i), i % 2 ? "/b" : "/a", i % 3, 1000 * (i % 2)));
        for (SearchSortKey key : {SearchSortKey::Name, SearchSortKey::EnclosingFolder, SearchSortKey::Size,
                                  SearchSortKey::Date, SearchSortKey::Type}) {
            for (bool ascending : {true, false}) {
                QList<SearchItemPtr> sorted = items;
                SearchResultSort::sort(sorted, key, ascending);
                QCOMPARE(sorted.size(), items.size());
                for (qsizetype i = 1; i < sorted.size(); ++i) {
                    const int c = SearchResultSort::compare(*sorted.at(i - 1), *sorted.at(i), key);
                    QVERIFY(ascending ? c <= 0 : c >= 0);
                    if (c == 0)
                        QVERIFY(items.indexOf(sorted.at(i - 1)) < items.indexOf(sorted.at(i)));
                }
            }
        }
    }

    void dateSortWithMissingDates()
    {
        QList<SearchItemPtr> items{item("new", "/f", 0, 2'000'000), item("none", "/f", 0, SearchItem::kNoDate),
                                   item("before1970", "/f", 0, -5000), item("old", "/f", 0, 1000)};
        SearchResultSort::sort(items, SearchSortKey::Date, true);
        QCOMPARE(names(items), (QByteArrayList{"none", "before1970", "old", "new"}));
        SearchResultSort::sort(items, SearchSortKey::Date, false);
        QCOMPARE(names(items), (QByteArrayList{"new", "old", "before1970", "none"}));
    }

    void classLetters()
    {
        auto regular = item("r");
        auto hidden = item(".h");
        hidden->fileHidden = true;
        auto inHidden = item("x");
        inHidden->fileInHiddenFolder = true;
        auto packaged = item(".p");
        packaged->fileInPackage = true;
        packaged->fileHidden = true; // package contents wins over hidden
        QCOMPARE(SearchResultSort::classLetter(*regular), QLatin1Char('r'));
        QCOMPARE(SearchResultSort::classLetter(*hidden), QLatin1Char('h'));
        QCOMPARE(SearchResultSort::classLetter(*inHidden), QLatin1Char('h'));
        QCOMPARE(SearchResultSort::classLetter(*packaged), QLatin1Char('p'));
        QList<SearchItemPtr> items{regular, packaged, hidden, inHidden};
        SearchResultSort::sort(items, SearchSortKey::Type, true);
        QCOMPARE(names(items), (QByteArrayList{".h", "x", ".p", "r"}));
        SearchResultSort::sort(items, SearchSortKey::Type, false);
        QCOMPARE(names(items), (QByteArrayList{"r", ".p", ".h", "x"}));
    }

    // A walk of "/" reports the folders below the root as "//usr": the folder order must still be the
    // order of the paths the user sees.
    void folderSortOnDoubleSlashPaths()
    {
        QList<SearchItemPtr> items{item("a", "//usr/lib"), item("b", "/"),         item("c", "//usr"),
                                   item("d", "//usr-x"),   item("e", "//usr/lib"), item("f", "//etc")};
        SearchResultSort::sort(items, SearchSortKey::EnclosingFolder, true);
        QCOMPARE(names(items), (QByteArrayList{"b", "f", "c", "d", "a", "e"}));
        QByteArrayList shown;
        for (const SearchItemPtr& i : items)
            shown.append(SearchPaths::collapseSlashes(i->rawFilePath()));
        QByteArrayList expected = shown;
        std::stable_sort(expected.begin(), expected.end(),
                         [](const QByteArray& x, const QByteArray& y) { return referenceCompare(x, y) < 0; });
        QCOMPARE(shown, expected);
        SearchResultSort::sort(items, SearchSortKey::EnclosingFolder, false);
        QCOMPARE(names(items), (QByteArrayList{"a", "e", "d", "c", "f", "b"}));
    }

    void sharedFolderRecordsCompareEqual()
    {
        const SearchFolderPtr shared = folder("/same");
        SearchItem a("x", shared);
        SearchItem b("y", shared);
        SearchItem c("z", folder("/same"));
        QCOMPARE(SearchResultSort::compare(a, b, SearchSortKey::EnclosingFolder), 0);
        QCOMPARE(SearchResultSort::compare(a, c, SearchSortKey::EnclosingFolder), 0);
        QVERIFY(SearchResultSort::compare(a, *item("q", "/samf"), SearchSortKey::EnclosingFolder) < 0);
    }

    // Whole sorts of many items against a plain stable sort with the converting comparison, both ways.
    void sortsOfManyItemsMatchTheReference_data()
    {
        QTest::addColumn<int>("key");
        QTest::addColumn<bool>("ascending");
        for (bool ascending : {true, false}) {
            const char* way = ascending ? "ascending" : "descending";
            QTest::addRow("name %s", way) << int(SearchSortKey::Name) << ascending;
            QTest::addRow("folder %s", way) << int(SearchSortKey::EnclosingFolder) << ascending;
        }
    }
    void sortsOfManyItemsMatchTheReference()
    {
        QFETCH(int, key);
        QFETCH(bool, ascending);
        // Pieces that make the first eight bytes ASCII, mixed or ill-formed, and names sharing long starts.
        const QByteArrayList pieces{"a",    "B",    "\xc3\xa9", "\xef\xbc\xa1", "\xf0\x9f\x98\x80",
                                    "\xff", "\xc3", "report-",  "report-2024",  "\xee\x80\x80"};
        std::mt19937 random(99);
        std::uniform_int_distribution<int> pick(0, int(pieces.size()) - 1);
        std::uniform_int_distribution<int> length(0, 6);
        const auto make = [&] {
            QByteArray text;
            for (int n = length(random); n > 0; --n)
                text += pieces.at(pick(random));
            return text;
        };
        QList<SearchFolderPtr> folders;
        for (int i = 0; i < 300; ++i)
            folders.append(folder("/r/" + make()));
        folders.append(folder(folders.first()->path())); // another record with the same text
        QList<SearchItemPtr> items;
        for (int i = 0; i < 6000; ++i)
            items.append(std::make_shared<SearchItem>(make(), folders.at(int(random() % folders.size()))));

        const auto text = [key](const SearchItemPtr& i) {
            return key == int(SearchSortKey::Name) ? i->rawFileName : i->rawFilePath();
        };
        QList<SearchItemPtr> expected = items;
        std::stable_sort(expected.begin(), expected.end(), [&](const SearchItemPtr& x, const SearchItemPtr& y) {
            return ascending ? referenceCompare(text(x), text(y)) < 0 : referenceCompare(text(y), text(x)) < 0;
        });
        QList<SearchItemPtr> sorted = items;
        SearchResultSort::sort(sorted, SearchSortKey(key), ascending);
        // Item by item: ties must keep the order they came in.
        QVERIFY(sorted == expected);
    }
};

QTEST_GUILESS_MAIN(TestSearchResultSort)
#include "TestSearchResultSort.moc"
