#include "core/NotificationCenter.h"
#include "core/UserDefaults.h"
#include "diskusage/PathsGenerator.h"
#include "gui/diskusage/AdBasedOnSpotlightVC.h"
#include "support/DiskUsageFixture.h"
#include "support/Files.h"
#include "support/ManualClock.h"
#include "util/VolumeName.h"

#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace DiskUsageFixture;

class TestAdBasedOnSpotlightVC : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<PathsGenerator> m_paths;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<SearcherManager> m_manager;
    NotificationCenter m_center;
    ManualClock m_clock;

    // A button's title as the user reads it ("&&" draws one "&").
    static QString shown(const QAbstractButton* button) { return button->text().replace("&&", "&"); }
    static QString sizeText(AdBasedOnSpotlightVC& vc, const char* name)
    {
        return vc.findChild<QPushButton*>(QString::fromLatin1(name))->text();
    }
    static QString total(AdBasedOnSpotlightVC& vc) { return vc.findChild<QLabel*>("totalSizeLabel")->text(); }

    // Lets the junk walk start (the zero-delay start and its stagger) and waits for all four answers.
    void finishScans()
    {
        m_clock.advance(0);
        m_clock.advance(600);
        QTRY_VERIFY_WITH_TIMEOUT(m_manager->getTotalCalculatedSize() > 0, 20000);
    }

private slots:
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        m_paths = std::make_unique<PathsGenerator>(m_home->path(), QProcessEnvironment());
        m_defaults = std::make_unique<UserDefaults>(m_home->filePath("defaults.json"));
        QVERIFY(writeFile(m_paths->buildCacheDirectory() + "/thumbs.db", 100000));
        QVERIFY(writeFile(m_paths->buildDownloadsDirectory() + "/setup.iso", 200000));
        QVERIFY(writeFile(m_paths->buildTrashDirectory() + "/files/old.txt", 300000));
        QVERIFY(writeFile(m_home->filePath("Music/song.mp3"), 2000000, 's'));
        QVERIFY(writeFile(m_home->filePath("Backup/song.mp3"), 2000000, 's'));
        SearcherManager::Config config;
        config.paths = m_paths.get();
        config.clock = &m_clock;
        config.largeAndOldScopes = {m_home->path()};
        config.appSources.appImageFolder = m_paths->buildUserApplicationsDirectory();
        m_manager = std::make_unique<SearcherManager>(config);
    }

    void cleanup()
    {
        m_manager.reset();
        m_center.removeObservers(this);
    }

    // Labels fill in as each category answers; the total and the review button wait for all four.
    void totalOnlyAfterTheFourthAnswer()
    {
        AdBasedOnSpotlightVC vc(*m_manager, *m_defaults, m_center, [] { return 0.427; });
        QCOMPARE(vc.findChild<QLabel*>("hddLevelLabel")->text(), QStringLiteral("42%"));
        QCOMPARE(vc.findChild<QProgressBar*>("hddLevelIndicator")->value(), 42);
        vc.rescan();
        auto* review = vc.findChild<QWidget*>("overview")->findChild<QPushButton*>("reviewButton");
        QCOMPARE(shown(review), QStringLiteral("Scanning......"));
        QVERIFY(!review->isEnabled());
        QCOMPARE(sizeText(vc, "junkFilesSizeLabel"), QStringLiteral("..."));
        QVERIFY(!vc.findChild<QPushButton*>("junkFilesSizeLabel")->isEnabled());

        m_manager->notifyDelegatAboutInfo(
            {{"CachesSize", 1000000ull}, {"DownloadsSize", 2000000ull}, {"TrashSize", 3000000ull}}, ScanJunk);
        m_manager->notifyDelegatAboutInfo({{"Size", 40000000ull}, {"Count", 3ull}}, ScanLargeAndOld);
        m_manager->notifyDelegatAboutInfo({{"Size", 500000000ull}, {"Count", 12ull}}, ScanApplications);
        QCOMPARE(sizeText(vc, "junkFilesSizeLabel"), VolumeName::stringFromSize(6000000));
        QVERIFY(vc.findChild<QPushButton*>("junkFilesSizeLabel")->isEnabled());
        QCOMPARE(sizeText(vc, "duplicatesSizeLabel"), QStringLiteral("..."));
        QVERIFY(total(vc).isEmpty());
        QVERIFY(vc.isScanning());
        QCOMPARE(shown(review), QStringLiteral("Scanning......"));

        m_manager->notifyDelegatAboutInfo(
            {{"Size", 7000000ull}, {"Count", 2ull}, {"VerifiedSize", 7000000ull}, {"VerifiedCount", 2ull}},
            ScanDuplicates);
        QCOMPARE(total(vc), VolumeName::stringFromSize(553000000));
        QCOMPARE(shown(review), QStringLiteral("Review & Clean Up"));
        QVERIFY(review->isEnabled());

        // The detail pages: junk's three folders and their sum; counts as plain numbers.
        QCOMPARE(vc.detailView(0)->findChild<QLabel*>("cachesLabel")->text(), VolumeName::stringFromSize(1000000));
        QCOMPARE(vc.detailView(0)->findChild<QLabel*>("trashLabel")->text(), VolumeName::stringFromSize(3000000));
        QCOMPARE(vc.detailView(0)->findChild<QLabel*>("totalLabel")->text(), VolumeName::stringFromSize(6000000));
        QCOMPARE(vc.detailView(1)->findChild<QLabel*>("countLabel")->text(), QStringLiteral("2"));
        QCOMPARE(vc.detailView(1)->findChild<QLabel*>("sizeLabel")->text(), VolumeName::stringFromSize(7000000));
        QVERIFY(!vc.detailView(1)->findChild<QLabel*>("verifiedLabel")->text().isEmpty());
        QCOMPARE(vc.detailView(3)->findChild<QLabel*>("countLabel")->text(), QStringLiteral("12"));
        QCOMPARE(vc.detailView(2)->getType(), int(AdBasedOnSpotlightView::LargeAndOldFiles));
        QCOMPARE(vc.detailView(3)->getType(), int(AdBasedOnSpotlightView::ApplicationsUnused));
    }

    // One category's label rescans it alone; the others keep their figures and the total returns when
    // it answers again.
    void aClickOnOneSizeRescansOnlyIt()
    {
        AdBasedOnSpotlightVC vc(*m_manager, *m_defaults, m_center, [] { return 0.5; });
        vc.rescan();
        finishScans();
        QTRY_VERIFY(!total(vc).isEmpty());
        const QString junk = sizeText(vc, "junkFilesSizeLabel");
        QCOMPARE(sizeText(vc, "duplicatesSizeLabel"), VolumeName::stringFromSize(4000000));

        QVERIFY(writeFile(m_home->filePath("Videos/song.mp3"), 2000000, 's')); // a third copy
        vc.findChild<QPushButton*>("duplicatesSizeLabel")->click();
        QCOMPARE(sizeText(vc, "duplicatesSizeLabel"), QStringLiteral("..."));
        QVERIFY(m_manager->isScanning(ScanDuplicates));
        for (quint32 type : {ScanJunk, ScanApplications, ScanLargeAndOld})
            QVERIFY(!m_manager->isScanning(type));
        QCOMPARE(sizeText(vc, "junkFilesSizeLabel"), junk);
        QVERIFY(total(vc).isEmpty());
        QVERIFY(vc.isScanning());
        QTRY_VERIFY_WITH_TIMEOUT(!total(vc).isEmpty(), 20000);
        QCOMPARE(sizeText(vc, "duplicatesSizeLabel"), VolumeName::stringFromSize(6000000));
        QCOMPARE(total(vc), VolumeName::stringFromSize(qint64(m_manager->getTotalCalculatedSize())));
    }

    // Appearing starts the scans without forcing them: within the day a second appearance shows the
    // kept results at once and scans nothing.
    void appearingShowsKeptResultsWithinTheDay()
    {
        AdBasedOnSpotlightVC vc(*m_manager, *m_defaults, m_center, [] { return 0.5; });
        vc.show();
        QVERIFY(m_manager->isScanning(ScanDuplicates));
        QCOMPARE(sizeText(vc, "largeAndOldSizeLabel"), QStringLiteral("..."));
        finishScans();
        QTRY_VERIFY(!total(vc).isEmpty());
        const QString first = total(vc);

        vc.hide();
        vc.show();
        for (quint32 type = 0; type < 4; ++type)
            QVERIFY(!m_manager->isScanning(type));
        QCOMPARE(total(vc), first);
        QVERIFY(!vc.isScanning());

        // A day later the same appearance scans again.
        vc.hide();
        m_clock.advance(86401 * 1000);
        vc.show();
        QVERIFY(total(vc).isEmpty());
        QVERIFY(m_manager->isScanning(ScanDuplicates));
    }

    // Compact: only the title, the level and "Details", which asks the panel to open the whole view;
    // the scans wait until the view is whole.
    void compactModeAndItsDetailsButton()
    {
        AdBasedOnSpotlightVC vc(*m_manager, *m_defaults, m_center, [] { return 0.25; });
        int asked = 0;
        m_center.addObserver(QStringLiteral("showDetailedDiskUsagePressedNotification"), &vc, this,
                             [&](const Notification&) {
                                 ++asked;
                                 vc.changeToCompactMode(false);
                             });
        vc.changeToCompactMode(true);
        vc.show();
        auto* details = vc.findChild<QPushButton*>("detailsButton");
        QVERIFY(details->isVisible());
        QVERIFY(!vc.findChild<QWidget*>("overviewBody")->isVisible());
        QVERIFY(vc.findChild<QLabel*>("hddLevelLabel")->isVisible());
        QCOMPARE(vc.findChild<QLabel*>("hddLevelLabel")->text(), QStringLiteral("25%"));
        for (quint32 type = 0; type < 4; ++type)
            QVERIFY(!m_manager->isScanning(type));

        details->click();
        QCOMPARE(asked, 1);
        QVERIFY(!details->isVisible());
        QVERIFY(vc.findChild<QWidget*>("overviewBody")->isVisible());
        QVERIFY(m_manager->isScanning(ScanDuplicates));
        QCOMPARE(shown(vc.findChild<QWidget*>("overview")->findChild<QPushButton*>("reviewButton")),
                 QStringLiteral("Scanning......"));
    }

    // The last viewed category is kept and reopened by the review button once it can be shown.
    void lastViewedCategory()
    {
        AdBasedOnSpotlightVC vc(*m_manager, *m_defaults, m_center, [] { return 0.0; });
        auto* pages = vc.findChild<QStackedWidget*>();
        vc.showCategory(2);
        QCOMPARE(pages->currentWidget(), vc.detailView(2));
        QCOMPARE(UserDefaults(m_home->filePath("defaults.json")).integerForKey("LastViewedSearchResults"), 2);
        vc.detailView(2)->findChild<QAbstractButton*>("backButton")->click();
        QCOMPARE(pages->currentIndex(), 0);
        vc.detailsButtonPressed();
        QCOMPARE(pages->currentIndex(), 0); // no answer yet
        m_manager->notifyDelegatAboutInfo({{"Size", 1ull}, {"Count", 1ull}}, ScanLargeAndOld);
        vc.detailsButtonPressed();
        QCOMPARE(pages->currentWidget(), vc.detailView(2));
        vc.changeToCompactMode(true); // compact is always the overview
        QCOMPARE(pages->currentIndex(), 0);
    }

    // A detail page's review button asks the results window for the category's files, by notification.
    void reviewListsCarryTheFoundFiles()
    {
        AdBasedOnSpotlightVC vc(*m_manager, *m_defaults, m_center, [] { return 0.5; });
        QList<Notification> posted;
        m_center.addObserver(AdBasedOnSpotlightVC::ShowReviewListNotificationName(), nullptr, this,
                             [&](const Notification& note) { posted.append(note); });
        auto* duplicatesReview = vc.detailView(1)->findChild<QPushButton*>("reviewListButton");
        QVERIFY(!duplicatesReview->isEnabled()); // nothing found yet
        vc.rescan();
        finishScans();
        QTRY_VERIFY(!total(vc).isEmpty());

        QVERIFY(duplicatesReview->isEnabled());
        duplicatesReview->click();
        QCOMPARE(posted.size(), 1);
        QCOMPARE(posted[0].userInfo.value("title").toString(), QStringLiteral("Duplicate Files and Folders"));
        auto paths = posted[0].userInfo.value("paths").value<QList<QByteArray>>();
        std::sort(paths.begin(), paths.end());
        QCOMPARE(paths, (QList<QByteArray>{QFile::encodeName(m_home->filePath("Backup/song.mp3")),
                                           QFile::encodeName(m_home->filePath("Music/song.mp3"))}));

        vc.detailView(0)->findChild<QPushButton*>("reviewListButton")->click();
        QCOMPARE(posted.size(), 2);
        QCOMPARE(posted[1].userInfo.value("title").toString(), QStringLiteral("Junk Files"));
        paths = posted[1].userInfo.value("paths").value<QList<QByteArray>>();
        std::sort(paths.begin(), paths.end());
        QList<QByteArray> junk = {QFile::encodeName(m_paths->buildCacheDirectory() + "/thumbs.db"),
                                  QFile::encodeName(m_paths->buildDownloadsDirectory() + "/setup.iso"),
                                  QFile::encodeName(m_paths->buildTrashDirectory() + "/files/old.txt")};
        std::sort(junk.begin(), junk.end());
        QCOMPARE(paths, junk);

        // Nothing large and old here: that page's button stays off.
        QVERIFY(!vc.detailView(2)->findChild<QPushButton*>("reviewListButton")->isEnabled());
    }

    // The tool button names a tool only when one is installed (looked for on PATH when the page opens).
    void toolButtonOnlyForAnInstalledTool()
    {
        const QByteArray path = qgetenv("PATH");
        QTemporaryDir bin;
        qputenv("PATH", QFile::encodeName(bin.path()));
        AdBasedOnSpotlightVC vc(*m_manager, *m_defaults, m_center, [] { return 0.5; });
        vc.changeToCompactMode(true); // no scans needed
        vc.changeToCompactMode(false);
        vc.show();
        vc.showCategory(2);
        auto* tool = vc.detailView(2)->findChild<QPushButton*>("getAppButton");
        QVERIFY(!tool->isVisible());

        QVERIFY(writeScript(bin.filePath("baobab"), "#!/bin/sh\n"));
        vc.detailView(2)->findChild<QAbstractButton*>("backButton")->click();
        vc.showCategory(2);
        QVERIFY(tool->isVisible());
        QCOMPARE(tool->text(), QStringLiteral("Open Disk Usage Analyzer"));
        // The duplicates page has no such tool here.
        vc.showCategory(1);
        QVERIFY(!vc.detailView(1)->findChild<QPushButton*>("getAppButton")->isVisible());
        qputenv("PATH", path);
    }
};

QTEST_MAIN(TestAdBasedOnSpotlightVC)
#include "TestAdBasedOnSpotlightVC.moc"
