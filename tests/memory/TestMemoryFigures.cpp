#include "memory/MemoryFigures.h"

#include <QTest>

class TestMemoryFigures : public QObject
{
    Q_OBJECT
private slots:
    void percentTitle_data()
    {
        QTest::addColumn<double>("fraction");
        QTest::addColumn<QString>("title");
        QTest::newRow("rounds") << 0.456 << "46%";
        QTest::newRow("padded to two") << 0.05 << " 5%";
        QTest::newRow("nothing") << 0.0 << " 0%";
        QTest::newRow("full") << 1.0 << "100%";
    }
    void percentTitle()
    {
        QFETCH(double, fraction);
        QTEST(MemoryFigures::percentTitle(fraction), "title");
    }

    void figuresFromCounters()
    {
        VmStatistics64 s;
        s.internal_page_count = 1000;
        s.purgeable_count = 100;
        s.wire_count = 300;
        s.compressor_page_count = 50;
        s.active_count = 99999; // not part of the used figure
        // A physical size that is not a whole number of pages: the total is rounded down to pages.
        const MemoryFigures f = MemoryFigures::from(s, 10000 * 4096 + 123, 4096);
        QCOMPARE(f.totalPages, quint64(10000));
        QCOMPARE(f.usedPages, quint64(1250));
        QCOMPARE(f.freePages, quint64(8750));
        QCOMPARE(f.usedSize(), quint64(1250) * 4096);
        QCOMPARE(f.freeSize(), quint64(8750) * 4096);
        QCOMPARE(f.usedFraction(), 0.125);
    }

    void cleanedIsTheIncreaseOfFreePages()
    {
        VmStatistics64 before;
        before.free_count = 1000;
        before.internal_page_count = 5000;
        VmStatistics64 after = before;
        // Dropped page cache: free pages grow while used stays where it was.
        after.free_count = 3500;
        QCOMPARE(MemoryFigures::cleanedSize(before, after, 4096), quint64(2500) * 4096);
        QCOMPARE(MemoryFigures::usedPagesOf(after), MemoryFigures::usedPagesOf(before));
        // Less free afterwards is no gain, not a huge unsigned one.
        QCOMPARE(MemoryFigures::cleanedSize(after, before, 4096), quint64(0));
    }

    void countersAboveTheTotalLeaveNothingFree()
    {
        VmStatistics64 s;
        s.internal_page_count = 120;
        const MemoryFigures f = MemoryFigures::from(s, 100 * 4096, 4096);
        QCOMPARE(f.freePages, quint64(0));
        QVERIFY(f.usedFraction() > 1.0);
        // No page size: no pages at all rather than a division by zero.
        const MemoryFigures none = MemoryFigures::from(s, 100 * 4096, 0);
        QCOMPARE(none.totalPages, quint64(0));
        QCOMPARE(none.usedFraction(), 0.0);
    }
};

QTEST_GUILESS_MAIN(TestMemoryFigures)
#include "TestMemoryFigures.moc"
