// Disk-usage side of the controller: the one scans' coordinator, the view in the panel and the
// low-space warning.
#include "QBPurgeController.h"

#include "PanelWindow.h"
#include "core/Settings.h"
#include "diskusage/AppsSearcher.h"
#include "diskusage/FreeSpaceWarning.h"
#include "diskusage/PathsGenerator.h"
#include "diskusage/SearcherManager.h"
#include "gui/diskusage/AdBasedOnSpotlightVC.h"

#include <QJsonDocument>
#include <QSaveFile>

namespace {
// The first look at the disks waits for the start to settle; later looks are hourly, and the checker
// itself lets only one a day through to the disks.
constexpr int kFirstFreeSpaceCheckMs = 30000;
constexpr int kFreeSpaceCheckMs = 3600000;
} // namespace

void QBPurgeController::setUpDiskUsage()
{
    if (!m_searcherManager) {
        // The same scans as `trovix disk`, with this program's clock and settings (the testing override
        // of the rescan interval is read there).
        const PathsGenerator& paths = PathsGenerator::GetInstance();
        SearcherManager::Config config;
        config.paths = &paths;
        config.clock = &m_clock;
        config.defaults = &m_settings.defaults();
        config.appSources = AppSources::forHome(paths.getHomeDirectory());
        m_ownSearcherManager = std::make_unique<SearcherManager>(std::move(config));
        m_searcherManager = m_ownSearcherManager.get();
    }
    m_diskUsageView = new AdBasedOnSpotlightVC(*m_searcherManager, m_settings.defaults(), m_center);
    m_wndInfo->setDiskUsageView(m_diskUsageView);

    // For end-to-end checks: what the view shows, written out each time all four categories are in.
    const QString dump = qEnvironmentVariable("TROVIX_DISK_VIEW_FIGURES");
    if (!dump.isEmpty())
        connect(m_diskUsageView, &AdBasedOnSpotlightVC::overallContentComplete, this, [this, dump] {
            QSaveFile file(dump);
            if (file.open(QIODevice::WriteOnly)) {
                file.write(QJsonDocument(m_diskUsageView->shownFigures()).toJson());
                file.commit();
            }
        });

    m_freeSpaceChecker = std::make_unique<PromoFreeSpaceChecker>(m_settings.defaults(), m_clock,
                                                                 FreeSpaceWarning::TIME_BETWEEN_REAL_DISK_CHECKS);
    m_freeSpaceWarning = std::make_unique<FreeSpaceWarning>(*m_freeSpaceChecker);
    m_freeSpaceCall = m_clock.callAfter(kFirstFreeSpaceCheckMs, this, [this] { checkFreeSpace(); });
}

void QBPurgeController::checkFreeSpace()
{
    m_freeSpaceWarning->check();
    m_freeSpaceCall = m_clock.callAfter(kFreeSpaceCheckMs, this, [this] { checkFreeSpace(); });
}
