#include "gui/shell/CleanMemoryButton.h"

#include <QImage>
#include <QTest>

class TestCleanMemoryButton : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void progressIsDrawnAndTrackingPauses()
    {
        CleanMemoryButton button;
        button.resize(200, 30);
        QCOMPARE(button.text(), QStringLiteral("Cleanup"));
        QVERIFY(button.isTracking());
        const QImage idle = button.grab().toImage();

        button.beginProgressUpdate();
        QVERIFY(!button.isTracking());
        button.setProgess(0.5f);
        const QImage half = button.grab().toImage();
        // The left half changes colour with the fill, the far right does not.
        QVERIFY(half.pixelColor(20, 15) != idle.pixelColor(20, 15));
        QCOMPARE(half.pixelColor(185, 15), idle.pixelColor(185, 15));
        button.setProgess(1.7f);
        QCOMPARE(button.progress(), 1.0f);

        button.endProgressUpdate();
        QVERIFY(button.isTracking());
        QCOMPARE(button.progress(), 0.0f);
        QCOMPARE(button.grab().toImage(), idle);
    }
};

QTEST_MAIN(TestCleanMemoryButton)
#include "TestCleanMemoryButton.moc"
