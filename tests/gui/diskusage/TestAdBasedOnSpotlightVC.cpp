#include "core/UserDefaults.h"
#include "diskusage/PathsGenerator.h"
#include "gui/diskusage/AdBasedOnSpotlightVC.h"
#include "support/ManualClock.h"
#include "util/VolumeName.h"

#include <QApplication>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTest>

class TestAdBasedOnSpotlightVC : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<PathsGenerator> m_paths;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<SearcherManager> m_manager;
    ManualClock m_clock;

    QString sizeText(AdBasedOnSpotlightVC& vc, const char* name)
    {
        return vc.findChild<QPushButton*>(QString::fromLatin1(name))->text();
    }

private slots:
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        m_paths = std::make_unique<PathsGenerator>(m_home->path(), QProcessEnvironment());
        m_defaults = std::make_unique<UserDefaults>(m_home->filePath("defaults.json"));
        SearcherManager::Config config;
        config.paths = m_paths.get();
        config.clock = &m_clock;
        config.largeAndOldScopes = {m_home->path()};
        m_manager = std::make_unique<SearcherManager>(config);
    }

    // Labels fill in as each category answers; the total and the review button wait for all four.
    void totalOnlyAfterTheFourthAnswer()
    {
        AdBasedOnSpotlightVC vc(*m_manager, *m_defaults, [] { return 0.427; });
        QCOMPARE(vc.findChild<QLabel*>("hddLevelLabel")->text(), QStringLiteral("42%"));
        QCOMPARE(vc.findChild<QProgressBar*>("hddLevelIndicator")->value(), 42);
        vc.rescan();
        auto* review = vc.findChild<QPushButton*>("reviewButton");
        QCOMPARE(review->text(), QStringLiteral("Scanning......"));
        QVERIFY(!review->isEnabled());
        QCOMPARE(sizeText(vc, "junkFilesSizeLabel"), QStringLiteral("..."));

        m_manager->notifyDelegatAboutInfo({{"CachesSize", 1000000ull}, {"DownloadsSize", 2000000ull}, {"TrashSize", 3000000ull}},
                                          ScanJunk);
        m_manager->notifyDelegatAboutInfo({{"Size", 40000000ull}, {"Count", 3ull}}, ScanLargeAndOld);
        m_manager->notifyDelegatAboutInfo({{"Size", 500000000ull}, {"Count", 12ull}}, ScanApplications);
        QCOMPARE(sizeText(vc, "junkFilesSizeLabel"), VolumeName::stringFromSize(6000000));
        QCOMPARE(sizeText(vc, "duplicatesSizeLabel"), QStringLiteral("..."));
        QVERIFY(vc.findChild<QLabel*>("totalSizeLabel")->text().isEmpty());
        QVERIFY(vc.isScanning());

        m_manager->notifyDelegatAboutInfo({{"Size", 7000000ull}, {"Count", 2ull}, {"VerifiedSize", 7000000ull},
                                           {"VerifiedCount", 2ull}},
                                          ScanDuplicates);
        QCOMPARE(vc.findChild<QLabel*>("totalSizeLabel")->text(), VolumeName::stringFromSize(553000000));
        QCOMPARE(review->text(), QStringLiteral("Review & Clean Up"));
        QVERIFY(review->isEnabled());
        QCOMPARE(vc.detailView(1)->findChild<QLabel*>("countLabel")->text(), QStringLiteral("2"));
        QVERIFY(!vc.detailView(1)->findChild<QLabel*>("verifiedLabel")->text().isEmpty());
        QCOMPARE(vc.detailView(0)->findChild<QLabel*>("trashLabel")->text(), VolumeName::stringFromSize(3000000));

        // One category's label rescans it alone; the total goes until it answers again. (The scans the
        // rescan started really run: the duplicates one is let finish first; the junk one waits for a
        // clock that stands still.)
        QTRY_VERIFY_WITH_TIMEOUT(!m_manager->isScanning(ScanDuplicates), 10000);
        vc.findChild<QPushButton*>("duplicatesSizeLabel")->click();
        QCOMPARE(sizeText(vc, "duplicatesSizeLabel"), QStringLiteral("..."));
        QVERIFY(m_manager->isScanning(ScanDuplicates));
        QVERIFY(vc.findChild<QLabel*>("totalSizeLabel")->text().isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(!vc.findChild<QLabel*>("totalSizeLabel")->text().isEmpty(), 10000);
        QCOMPARE(sizeText(vc, "duplicatesSizeLabel"), VolumeName::stringFromSize(0));
    }

    // The last viewed category is kept and reopened by the details button once it can be shown.
    void lastViewedCategory()
    {
        AdBasedOnSpotlightVC vc(*m_manager, *m_defaults, [] { return 0.0; });
        auto* pages = vc.findChild<QStackedWidget*>();
        vc.showCategory(2);
        QCOMPARE(pages->currentWidget(), vc.detailView(2));
        QCOMPARE(UserDefaults(m_home->filePath("defaults.json")).integerForKey("LastViewedSearchResults"), 2);
        vc.detailView(2)->findChild<QPushButton*>("backButton")->click();
        QCOMPARE(pages->currentIndex(), 0);
        vc.detailsButtonPressed();
        QCOMPARE(pages->currentIndex(), 0); // no answer yet
        m_manager->notifyDelegatAboutInfo({{"Size", 1ull}, {"Count", 1ull}}, ScanLargeAndOld);
        vc.detailsButtonPressed();
        QCOMPARE(pages->currentWidget(), vc.detailView(2));
    }
};

QTEST_MAIN(TestAdBasedOnSpotlightVC)
#include "TestAdBasedOnSpotlightVC.moc"
