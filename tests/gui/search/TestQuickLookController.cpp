// The preview: the controller's list and data-source answers, the toggle, paging with the keys, the
// posted key presses, and what is shown for images, text, folders and other files.
#include "core/NotificationCenter.h"
#include "gui/search/QuickLookController.h"
#include "gui/search/QuickLookPanel.h"
#include "support/SearchTreeFixture.h"

#include <QImage>
#include <QLabel>
#include <QPlainTextEdit>
#include <QtTest>

class TestQuickLookController : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void itemsKeepTheirOrderAndOnlyOurPanelIsAnswered();
    void showPreviewPanelToggles();
    void keysPageStopAtTheEndsAndArePosted();
    void imagesAreScaledToFit();
    void textIsCutAt64KiBAndBadBytesAreReplaced();
    void foldersShowCountAndSize();
    void otherFilesShowTheirFacts();

private:
    NotificationCenter m_center;
    SearchTreeFixture m_tree;
};

void TestQuickLookController::itemsKeepTheirOrderAndOnlyOurPanelIsAnswered()
{
    QuickLookController controller(m_center);
    QCOMPARE(controller.currentFilePath(), QByteArray());
    controller.setFileItemsByPaths({"/b/second", "/a/first", "/c/third"});
    QuickLookPanel* panel = controller.previewPanel();
    QCOMPARE(controller.numberOfPreviewItemsInPreviewPanel(panel), 3);
    QCOMPARE(controller.currentFilePath(), QByteArray("/b/second"));
    QCOMPARE(controller.previewItemAtIndex(panel, 1)->filePath(), QByteArray("/a/first"));
    QCOMPARE(controller.previewItemAtIndex(panel, 1)->previewItemTitle(), QStringLiteral("first"));
    QCOMPARE(controller.previewItemAtIndex(panel, 1)->previewItemURL(), QUrl(QStringLiteral("file:///a/first")));
    QVERIFY(!controller.previewItemAtIndex(panel, 3));
    QVERIFY(!controller.previewItemAtIndex(panel, -1));
    QuickLookController other(m_center);
    QCOMPARE(controller.numberOfPreviewItemsInPreviewPanel(other.previewPanel()), 0);
    QVERIFY(!controller.previewItemAtIndex(other.previewPanel(), 0));
    controller.setFileItemByPath("/only");
    QCOMPARE(controller.numberOfPreviewItemsInPreviewPanel(panel), 1);
}

void TestQuickLookController::showPreviewPanelToggles()
{
    m_tree.file("one.txt", "one");
    m_tree.file("two.txt", "two");
    QuickLookController controller(m_center);
    controller.setFileItemsByPaths({m_tree.path("one.txt"), m_tree.path("two.txt")});
    controller.showPreviewPanel();
    QVERIFY(controller.isPanelVisible());
    QuickLookPanel* panel = controller.previewPanel();
    QTRY_COMPARE(panel->shownKind(), PreviewContent::Kind::Text);
    QCOMPARE(panel->shownTitle(), QStringLiteral("one.txt"));
    // A new request while it is showing replaces the list and closes it.
    controller.setFileItemsByPaths({m_tree.path("two.txt")});
    controller.showPreviewPanel();
    QVERIFY(!controller.isPanelVisible());
    controller.showPreviewPanel();
    QVERIFY(controller.isPanelVisible());
    QTRY_COMPARE(panel->shownTitle(), QStringLiteral("two.txt"));
}

void TestQuickLookController::keysPageStopAtTheEndsAndArePosted()
{
    for (const char* name : {"p1.txt", "p2.txt", "p3.txt"})
        m_tree.file(name, name);
    QuickLookController controller(m_center);
    controller.setQuicklookType(7);
    QList<QVariantMap> posted;
    QObject context;
    m_center.addObserver(QStringLiteral("QuickLookKeyPressed"), nullptr, &context,
                         [&posted](const Notification& note) { posted.append(note.userInfo); });
    controller.setFileItemsByPaths({m_tree.path("p1.txt"), m_tree.path("p2.txt"), m_tree.path("p3.txt")});
    controller.showPreviewPanel();
    QuickLookPanel* panel = controller.previewPanel();
    QTest::keyClick(panel, Qt::Key_Left);
    QCOMPARE(panel->currentIndex(), 0);
    QTest::keyClick(panel, Qt::Key_Right);
    QTest::keyClick(panel, Qt::Key_Down);
    QCOMPARE(panel->currentIndex(), 2);
    QTest::keyClick(panel, Qt::Key_Right);
    QCOMPARE(panel->currentIndex(), 2);
    QTRY_COMPARE(panel->shownTitle(), QStringLiteral("p3.txt"));
    QTRY_COMPARE(panel->findChild<QPlainTextEdit*>(QStringLiteral("previewText"))->toPlainText(),
                 QStringLiteral("p3.txt"));
    QCOMPARE(panel->findChild<QLabel*>(QStringLiteral("previewPosition"))->text(), QStringLiteral("3 of 3"));
    QTest::keyClick(panel, Qt::Key_Up);
    QCOMPARE(panel->currentIndex(), 1);
    QCOMPARE(posted.size(), 5);
    QCOMPARE(posted.first().value(QStringLiteral("Type")).toUInt(), 7u);
    QCOMPARE(posted.first().value(QStringLiteral("Key")).toInt(), int(Qt::Key_Left));
    QTest::keyClick(panel, Qt::Key_Escape);
    QVERIFY(!controller.isPanelVisible());
    // A reload starts again at the first item.
    controller.showPreviewPanel();
    QCOMPARE(panel->currentIndex(), 0);
    QTest::keyClick(panel, Qt::Key_Space);
    QVERIFY(!controller.isPanelVisible());
}

void TestQuickLookController::imagesAreScaledToFit()
{
    QImage big(3000, 1500, QImage::Format_RGB32);
    big.fill(Qt::darkCyan);
    QVERIFY(big.save(QFile::decodeName(m_tree.path("wide.png"))));
    std::atomic<bool> stop{false};
    const PreviewContent content = PreviewContent::load(m_tree.path("wide.png"), QSize(600, 400), stop);
    QCOMPARE(content.kind, PreviewContent::Kind::Image);
    QCOMPARE(content.image.size(), QSize(600, 300));
    QImage small(20, 10, QImage::Format_RGB32);
    small.fill(Qt::red);
    QVERIFY(small.save(QFile::decodeName(m_tree.path("small.png"))));
    QCOMPARE(PreviewContent::load(m_tree.path("small.png"), QSize(600, 400), stop).image.size(), QSize(20, 10));
    // Not an image after all: shown by its facts.
    m_tree.file("broken.png", "not a png");
    QVERIFY(PreviewContent::load(m_tree.path("broken.png"), QSize(600, 400), stop).kind != PreviewContent::Kind::Image);
}

void TestQuickLookController::textIsCutAt64KiBAndBadBytesAreReplaced()
{
    m_tree.file("bad.txt", QByteArray("ok \xff\xfe end"));
    std::atomic<bool> stop{false};
    PreviewContent content = PreviewContent::load(m_tree.path("bad.txt"), QSize(600, 400), stop);
    QCOMPARE(content.kind, PreviewContent::Kind::Text);
    QVERIFY(content.text.startsWith(QStringLiteral("ok ")));
    QVERIFY(content.text.contains(QChar(0xFFFD)));
    QVERIFY(content.text.endsWith(QStringLiteral(" end")));
    // 64 KiB of text and more: the preview stops at the limit, and a character cut by it is left out.
    QByteArray longText(PreviewContent::kTextLimit - 1, 'a');
    longText += "\xc3\xa9 tail";
    m_tree.file("long.txt", longText);
    content = PreviewContent::load(m_tree.path("long.txt"), QSize(600, 400), stop);
    QCOMPARE(content.text.size(), PreviewContent::kTextLimit - 1);
    QVERIFY(!content.text.contains(QChar(0xFFFD)));
    m_tree.file("empty.txt");
    QCOMPARE(PreviewContent::load(m_tree.path("empty.txt"), QSize(600, 400), stop).kind, PreviewContent::Kind::Text);
}

void TestQuickLookController::foldersShowCountAndSize()
{
    m_tree.file("box/a", QByteArray(100, 'a'));
    m_tree.file("box/.b", QByteArray(20, 'b'));
    m_tree.file("box/inner/c", QByteArray(3, 'c'));
    std::atomic<bool> stop{false};
    const PreviewContent content = PreviewContent::load(m_tree.path("box"), QSize(600, 400), stop);
    QCOMPARE(content.kind, PreviewContent::Kind::Folder);
    QCOMPARE(content.itemCount, 3);
    QCOMPARE(content.totalSize, 123);
    QCOMPARE(content.mimeType, QStringLiteral("inode/directory"));

    QuickLookController controller(m_center);
    controller.setFileItemByPath(m_tree.path("box"));
    controller.showPreviewPanel();
    QuickLookPanel* panel = controller.previewPanel();
    QTRY_COMPARE(panel->shownKind(), PreviewContent::Kind::Folder);
    const QString info = panel->findChild<QLabel*>(QStringLiteral("previewInfo"))->text();
    QVERIFY2(info.contains(QStringLiteral("3 items")), qPrintable(info));
    QVERIFY2(info.contains(QStringLiteral("123 B")), qPrintable(info));
}

void TestQuickLookController::otherFilesShowTheirFacts()
{
    QByteArray binary(5000, '\0');
    binary[0] = '\x7f';
    m_tree.file("blob.bin", binary);
    std::atomic<bool> stop{false};
    const PreviewContent content = PreviewContent::load(m_tree.path("blob.bin"), QSize(600, 400), stop);
    QCOMPARE(content.kind, PreviewContent::Kind::Info);
    QCOMPARE(content.totalSize, 5000);
    QVERIFY(!content.mimeType.isEmpty());
    // A file that vanished is no error either.
    QCOMPARE(PreviewContent::load(m_tree.path("gone"), QSize(600, 400), stop).kind, PreviewContent::Kind::Info);
}

QTEST_MAIN(TestQuickLookController)
#include "TestQuickLookController.moc"
