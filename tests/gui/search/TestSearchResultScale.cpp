// Many results stay usable: rows arrive as ranges, sorting and re-filtering run on a worker and swap in,
// removal keeps the rest. The items are synthetic (TROVIX_SCALE_ITEMS of them, 200,000 unless set); the
// longest time the GUI thread was held is printed, and the results are checked, not the times.
#include "SearchWindowFixture.h"
#include "search/SearchResultSort.h"

#include <QElapsedTimer>
#include <QtTest>

class TestSearchResultScale : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void manyRowsAreInsertedSortedFilteredAndRemoved();
};

namespace {

// Measures the longest gap between turns of the event loop while work is waited for.
struct StallProbe
{
    QElapsedTimer clock;
    qint64 last = 0;
    qint64 longest = 0;
    QTimer timer;
    StallProbe()
    {
        timer.setInterval(1);
        QObject::connect(&timer, &QTimer::timeout, [this] { tick(); });
        clock.start();
        timer.start();
    }
    void tick()
    {
        const qint64 now = clock.elapsed();
        longest = std::max(longest, now - last);
        last = now;
    }
};

} // namespace

void TestSearchResultScale::manyRowsAreInsertedSortedFilteredAndRemoved()
{
    const int count =
        qEnvironmentVariableIsSet("TROVIX_SCALE_ITEMS") ? qEnvironmentVariableIntValue("TROVIX_SCALE_ITEMS") : 200000;
    SearchWindowFixture f;
    SearchResultWC& w = *f.window;
    w.resize(900, 600);
    w.show();
    QList<SearchItemPtr>& all = f.manager.getSearchResultArray();
    QList<SearchItemPtr>& filtered = f.manager.getFilteredSearchResultArray();
    std::vector<SearchFolderPtr> folders;
    for (int i = 0; i < 1000; ++i)
        folders.push_back(SearchFolder::make("/data/folder" + QByteArray::number(i), false, i % 10 == 0));
    w.searchStarted();
    all.reserve(count);
    filtered.reserve(count);
    for (int i = 0; i < count; ++i) {
        // Names in a scrambled order, so the sort has work to do.
        const quint32 key = static_cast<quint32>(i) * 2654435761u;
        auto item =
            std::make_shared<SearchItem>("file-" + QByteArray::number(key, 16), folders[static_cast<size_t>(i % 1000)]);
        item->itemID = i;
        item->fileSize = key % 100000;
        item->fileInHiddenFolder = item->folder()->inHidden;
        all.append(item);
        filtered.append(item);
    }

    StallProbe probe;
    QElapsedTimer step;
    step.start();
    w.addRowAtTableView();
    const qint64 insert = step.elapsed();
    QCOMPARE(w.model()->rowCount(), count);
    w.searchCompleted();
    QCOMPARE(w.windowTitle().endsWith(QStringLiteral("found %1").arg(count)), true);
    QCoreApplication::processEvents();

    probe.last = probe.clock.elapsed();
    probe.longest = 0;
    step.restart();
    w.sortDescriptorsDidChange(QStringLiteral("KEY_nameSort"));
    QTRY_VERIFY_WITH_TIMEOUT(!w.isListWorkPending(), 120000);
    const qint64 sortTotal = step.elapsed();
    const qint64 sortStall = probe.longest;
    for (int i = 1; i < count; i += count / 1000 + 1)
        QVERIFY(SearchResultSort::compare(*filtered.at(i - 1), *filtered.at(i), SearchSortKey::Name) <= 0);
    QCOMPARE(w.model()->rowCount(), count);

    probe.longest = 0;
    step.restart();
    w.setFilterMask(SearchItemClass::Regular);
    QTRY_VERIFY_WITH_TIMEOUT(!w.isListWorkPending(), 120000);
    const qint64 filterTotal = step.elapsed();
    const qint64 filterStall = probe.longest;
    QCOMPARE(w.model()->rowCount(), count - count / 10);

    // A removal as after a move: the table keeps every other row.
    w.selectRows({0, 5, 9});
    const QList<SearchItemPtr> doomed = w.selectedItems();
    step.restart();
    w.updateSearchResultsAfterAction(SearchResultWC::MoveAction, "/elsewhere", doomed);
    const qint64 removal = step.elapsed();
    QCOMPARE(w.model()->rowCount(), count - count / 10 - 3);
    QCOMPARE(all.size(), count - 3);

    // The next search empties both lists.
    QTemporaryDir empty;
    QSignalSpy finished(&f.manager, &SearchManager::searchFinished);
    step.restart();
    w.releaseResultsInBackground();
    f.manager.performSearchWithTemplate(QStringLiteral("quasar"), empty.path());
    const qint64 nextSearch = step.elapsed();
    QVERIFY(finished.wait(20000));
    QCOMPARE(w.model()->rowCount(), 0);
    QVERIFY(all.isEmpty());

    qInfo("%d items: insert %lld ms, sort %lld ms (GUI held at most %lld ms), filter %lld ms (GUI held at most "
          "%lld ms), removal %lld ms; longest list change on the GUI thread %lld ms; the start of the next search "
          "(lists emptied) held it %lld ms",
          count, insert, sortTotal, sortStall, filterTotal, filterStall, removal, w.longestListStallMs(), nextSearch);
}

QTEST_MAIN(TestSearchResultScale)
#include "TestSearchResultScale.moc"
