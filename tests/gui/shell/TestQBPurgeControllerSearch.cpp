// The controller's side of the search: the panel's Return opens the results window once and raises it
// later; review lists posted by the disk-usage view appear there as a finished search.
#include "core/NotificationCenter.h"
#include "gui/search/SearchResultModel.h"
#include "gui/search/SearchResultWC.h"
#include "search/SearchManager.h"
#include "support/ControllerFixture.h"
#include "support/SearchTreeFixture.h"

#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>

class TestQBPurgeControllerSearch : public QObject
{
    Q_OBJECT
private:
    std::unique_ptr<SettingsFixture> m_home;
    std::unique_ptr<SearchManager> m_manager;
    std::unique_ptr<QBPurgeController> m_controller;

private Q_SLOTS:
    void initTestCase() { QGuiApplication::setApplicationDisplayName(QStringLiteral("Trovix")); }
    void init()
    {
        m_home = std::make_unique<SettingsFixture>();
        m_home->standard.setObject(true, SettingsKey::WelcomeDialogDisplayed);
        m_manager = std::make_unique<SearchManager>(m_home->center);
        auto c = controllerCollaborators(*m_home);
        c.searchManager = m_manager.get();
        m_controller = std::make_unique<QBPurgeController>(c);
        m_controller->awakeFromNib();
    }
    void cleanup()
    {
        m_controller.reset();
        m_manager.reset();
        m_home.reset();
    }

    void panelSearchOpensTheWindowOnceAndRaisesItLater()
    {
        SearchTreeFixture tree;
        tree.file("quasar-one");
        tree.file("deeper/.quasar-two");
        m_home->settings.saveSearchLocation(QFile::decodeName(tree.root()));
        QVERIFY(!m_controller->searchResultDialog());
        QSignalSpy finished(m_manager.get(), &SearchManager::searchFinished);
        m_controller->panelSearchRequested(QStringLiteral("quasar"));
        SearchResultWC* window = m_controller->searchResultDialog();
        QVERIFY(window);
        QVERIFY(window->isVisible());
        QVERIFY(finished.wait(20000));
        QCOMPARE(window->windowTitle(), QStringLiteral("Trovix - Search results for \"quasar\", found 2"));
        QCOMPARE(window->model()->rowCount(), 2);
        window->hide();
        m_home->center.post(SearchManager::openSearchResultDialogNotification());
        QCOMPARE(m_controller->searchResultDialog(), window);
        QVERIFY(window->isVisible());
        // An empty text searches nothing and opens nothing new.
        window->hide();
        m_controller->panelSearchRequested(QString());
        QVERIFY(!window->isVisible());
    }

    void reviewListsAppearAsAFinishedSearch_data()
    {
        QTest::addColumn<bool>("asBytes");
        QTest::newRow("native paths") << true;
        QTest::newRow("decoded paths") << false;
    }
    void reviewListsAppearAsAFinishedSearch()
    {
        QFETCH(bool, asBytes);
        SearchTreeFixture tree;
        tree.file("old.iso", QByteArray(2048, 'o'));
        tree.file("Downloads/setup.bin", "s");
        const QList<QByteArray> paths{tree.path("old.iso"), tree.path("Downloads/setup.bin"), tree.path("gone")};
        QVariant given;
        if (asBytes) {
            given = QVariant::fromValue(paths);
        } else {
            QStringList decoded;
            for (const QByteArray& path : paths)
                decoded.append(QFile::decodeName(path));
            given = decoded;
        }
        m_home->center.post(
            QStringLiteral("ShowReviewListNotification"), nullptr,
            {{QStringLiteral("title"), QStringLiteral("Old downloads")}, {QStringLiteral("paths"), given}});
        SearchResultWC* window = m_controller->searchResultDialog();
        QVERIFY(window);
        QVERIFY(window->isVisible());
        QVERIFY(!window->isSearchOn());
        QCOMPARE(window->windowTitle(), QStringLiteral("Trovix - Search results for \"Old downloads\", found 2"));
        QCOMPARE(window->model()->rowCount(), 2);
        QCOMPARE(window->model()->itemAt(0)->nativeFullPath(), tree.path("old.iso"));
        QCOMPARE(window->model()->itemAt(0)->fileSize, 2048);
    }
};

QTEST_MAIN(TestQBPurgeControllerSearch)
#include "TestQBPurgeControllerSearch.moc"
