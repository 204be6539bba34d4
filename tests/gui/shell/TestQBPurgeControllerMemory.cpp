#include "gui/shell/CleanMemoryButton.h"
#include "gui/shell/PanelWindow.h"
#include "memory/PurgeManager.h"
#include "support/MemoryFakes.h"
#include "support/ControllerFixture.h"

#include <QApplication>
#include <QDBusConnection>
#include <QTest>

#include <memory>
#include <unistd.h>

namespace {

constexpr quint64 kPage = 4096;
// 100 blocks of purge, 256,000 pages of 4 KiB.
constexpr quint64 kPhysical = 100 * PurgeManager::kBlockSize;
constexpr quint64 kTotalPages = kPhysical / kPage;

// A sample with this share of memory used and this share free; the rest is page cache.
VmStatistics64 usedShare(double fraction, double freeShare = 0.1)
{
    VmStatistics64 s;
    s.internal_page_count = quint64(double(kTotalPages) * fraction);
    s.active_count = s.internal_page_count;
    s.free_count = quint64(double(kTotalPages) * freeShare);
    return s;
}

// A notification server on the test's private session bus.
class FakeNotificationServer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    int calls = 0;
public slots:
    uint Notify(const QString&, uint, const QString&, const QString&, const QString&, const QStringList&,
                const QVariantMap&, int)
    {
        return uint(++calls);
    }
};

} // namespace

class TestQBPurgeControllerMemory : public QObject
{
    Q_OBJECT
private:
    std::unique_ptr<SettingsFixture> m_home;
    std::unique_ptr<FakeMemoryInfo> m_info;
    std::unique_ptr<FakeBlockAllocator> m_allocator;
    std::unique_ptr<PurgeManager> m_purge;

    std::unique_ptr<QBPurgeController> makeController()
    {
        QBPurgeController::Collaborators c = controllerCollaborators(*m_home);
        c.memoryInfo = m_info.get();
        c.purgeManager = m_purge.get();
        return std::make_unique<QBPurgeController>(c);
    }

    std::unique_ptr<QBPurgeController> startedController()
    {
        auto controller = makeController();
        controller->awakeFromNib();
        m_home->clock.advance(0);
        return controller;
    }

    void openExpandedPanel(QBPurgeController& controller)
    {
        PanelWindow* panel = controller.panel();
        panel->show();
        if (!panel->isDisclosureButtonExpanded())
            panel->expandDisclosureButton();
        QVERIFY(panel->shouldUpdateTrackedSystemInfo());
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<SettingsFixture>();
        m_home->standard.setObject(true, SettingsKey::WelcomeDialogDisplayed);

        m_info = std::make_unique<FakeMemoryInfo>();
        m_info->setPhysical(kPhysical);
        m_info->setPageSize(kPage);
        m_info->setStatistics(usedShare(0.5));
        m_allocator = std::make_unique<FakeBlockAllocator>();
        m_info->setAvailable(1024ull << 30, 1024ull << 30, &m_allocator->held);
        PurgeManager::Collaborators pc;
        pc.memoryInfo = m_info.get();
        pc.allocator = m_allocator.get();
        pc.sleep = [](int) { std::this_thread::sleep_for(std::chrono::microseconds(200)); };
        m_purge = std::make_unique<PurgeManager>(pc);
    }

    void cleanup() { m_purge.reset(); }

    void closedPanelCostsOneSampleOnly()
    {
        auto controller = startedController();
        QCOMPARE(m_info->statisticsReads(), 1); // the first tick always samples
        controller->panel()->close();
        m_home->clock.advance(5000);
        QCOMPARE(m_info->statisticsReads(), 1);

        openExpandedPanel(*controller);
        m_info->setStatistics(usedShare(0.25));
        m_home->clock.advance(3000);
        QCOMPARE(m_info->statisticsReads(), 4);
        QCOMPARE(controller->panel()->titleText(), QStringLiteral("25%"));
        QCOMPARE(controller->panel()->subtitleText(), QStringLiteral("250 MB used of 0.98 GB"));
    }

    void failedSampleEndsTheLoop()
    {
        auto controller = startedController();
        openExpandedPanel(*controller);
        m_home->clock.advance(2000);
        const int reads = m_info->statisticsReads();
        const QString shown = controller->panel()->titleText();
        m_info->setStatisticsFail(true);
        m_home->clock.advance(1000);
        QCOMPARE(m_info->statisticsReads(), reads + 1);
        m_info->setStatisticsFail(false);
        m_home->clock.advance(10000);
        QCOMPARE(m_info->statisticsReads(), reads + 1);    // never asked again this session
        QCOMPARE(controller->panel()->titleText(), shown); // the last figures stay
    }

    void unknownPageSizeFallsBackTo4096()
    {
        m_info->setPageSize(0);
        auto controller = makeController();
        controller->initMemoryValues();
        QCOMPARE(controller->calculateTotalPages(), kPhysical / 4096);
    }

    void twoQuickPressesPurgeOnceAndRecordTheGain()
    {
        auto controller = startedController();
        openExpandedPanel(*controller);
        CleanMemoryButton* button = controller->panel()->cleanButton();
        QCOMPARE(controller->panel()->lastCleanedText(), QString());

        controller->panelCleanButtonPressed();
        controller->panelCleanButtonPressed();
        QVERIFY(controller->isPurging());
        QVERIFY(!button->isEnabled());
        QVERIFY(button->isInProgress());
        QCOMPARE(button->text(), QStringLiteral("Cleaning..."));
        // The purge drops a tenth of memory's page cache (used stays); sampling pauses meanwhile.
        m_info->setStatistics(usedShare(0.5, 0.2));
        const int readsBefore = m_info->statisticsReads();
        QTRY_VERIFY_WITH_TIMEOUT(!controller->isPurging(), 20000);
        QCOMPARE(m_allocator->allocations(), 100);
        QVERIFY(m_info->statisticsReads() > readsBefore);

        const quint64 gain = (usedShare(0.5, 0.2).free_count - usedShare(0.5, 0.1).free_count) * kPage;
        QCOMPARE(m_home->settings.cleanedSize(), gain);
        QVERIFY(button->isEnabled());
        QVERIFY(!button->isInProgress());
        QCOMPARE(button->text(), QStringLiteral("Cleanup"));
        QCOMPARE(controller->panel()->lastCleanedText(), QStringLiteral("100 MB cleaned 3:07PM"));
        QCOMPARE(controller->panel()->titleText(), QStringLiteral("50%"));

        // A purge without a measurable gain records nothing; a later gain adds to the total.
        controller->onFreeMemory(false);
        QTRY_VERIFY_WITH_TIMEOUT(!controller->isPurging(), 20000);
        QCOMPARE(m_home->settings.cleanedSize(), gain);
        QCOMPARE(m_allocator->allocations(), 200);
        m_home->clock.advance(60 * 60 * 1000);
        controller->onFreeMemory(false);
        m_info->setStatistics(usedShare(0.5, 0.3));
        QTRY_VERIFY_WITH_TIMEOUT(!controller->isPurging(), 20000);
        QCOMPARE(m_home->settings.cleanedSize(), 2 * gain);
        QCOMPARE(controller->panel()->lastCleanedText(), QStringLiteral("100 MB cleaned 4:07PM"));
        QCOMPARE(UserDefaults(m_home->standard.filePath()).integerForKey(SettingsKey::CleanedSize), qint64(2 * gain));
    }

    void purgeProgressReachesTheButton()
    {
        auto controller = startedController();
        CleanMemoryButton* button = controller->panel()->cleanButton();
        m_allocator->delayMicroseconds = 3000; // a fill of about 0.3 s, long enough to watch
        controller->onFreeMemory(true);
        QList<float> seen;
        while (controller->isPurging()) {
            seen.append(button->progress());
            QTest::qWait(10);
        }
        QVERIFY2(std::any_of(seen.begin(), seen.end(), [](float p) { return p > 0.05f && p < 0.5f; }),
                 "the fill's progress shows on the button");
        QCOMPARE(button->progress(), 0.0f); // reset when the purge is over
    }

    void notificationStaysDormant()
    {
        // Even a large amount shows nothing: no path of the program turns the notice on.
        FakeNotificationServer server;
        QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("server"));
        QVERIFY2(bus.isConnected(), "needs a session bus");
        QVERIFY(bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &server,
                                   QDBusConnection::ExportAllSlots));
        QVERIFY(bus.registerService(QStringLiteral("org.freedesktop.Notifications")));
        auto controller = startedController();
        controller->showIfNeededNotificationWithCleanSize(500000001);
        controller->showIfNeededNotificationWithCleanSize(4000000000);
        QTest::qWait(300);
        QCOMPARE(server.calls, 0);
        bus.unregisterService(QStringLiteral("org.freedesktop.Notifications"));
        bus.unregisterObject(QStringLiteral("/org/freedesktop/Notifications"));
    }

    void descriptionFollowsThePreferences_data()
    {
        QTest::addColumn<bool>("autoFree");
        QTest::addColumn<int>("frequency");
        QTest::addColumn<double>("usage");
        QTest::addColumn<QString>("text");
        QTest::newRow("off") << false << 2 << 0.3 << "*Check on to free up system memory automatically.";
        QTest::newRow("rarely") << true << 0 << 0.8
                                << "*Free up automatically every 8 hours if memory is used on 80% and if CPU "
                                   "usage is less than 20%.";
        // The usage figure is truncated, not rounded.
        QTest::newRow("often, truncated") << true << 2 << 0.57
                                          << "*Free up automatically every 2 hours if memory is used on 56% and if "
                                             "CPU usage is less than 20%.";
    }

    void descriptionFollowsThePreferences()
    {
        QFETCH(bool, autoFree);
        QFETCH(int, frequency);
        QFETCH(double, usage);
        auto controller = makeController();
        controller->onPrefFreq(frequency);
        controller->onPrefMemUsage(usage);
        controller->onPrefAutoFree(autoFree);
        QTEST(controller->prefDescription(), "text");
        const UserDefaults stored(m_home->standard.filePath());
        QCOMPARE(stored.objectForKey(SettingsKey::AutoFree), QVariant(autoFree));
        QCOMPARE(stored.integerForKey(SettingsKey::Frequency), qint64(frequency));
        QCOMPARE(stored.doubleForKey(SettingsKey::UsageLimit), usage);
    }

    void turnOnNotificationSwitchesAutoFreeOn()
    {
        auto controller = startedController();
        QVERIFY(controller->prefDescription().startsWith(QStringLiteral("*Check on")));
        QBPurgeController::TurnOnAutoStartAndAutoFree(m_home->center);
        QVERIFY(controller->prefDescription().startsWith(QStringLiteral("*Free up automatically every 4 hours")));
        QCOMPARE(UserDefaults(m_home->standard.filePath()).objectForKey(SettingsKey::AutoFree), QVariant(true));
    }
};

QTEST_MAIN(TestQBPurgeControllerMemory)
#include "TestQBPurgeControllerMemory.moc"
