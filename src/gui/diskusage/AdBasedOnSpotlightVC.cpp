#include "AdBasedOnSpotlightVC.h"

#include "core/Texts.h"
#include "core/UserDefaults.h"
#include "util/VolumeName.h"

#include <QGridLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

#include <sys/statvfs.h>

namespace {
const char* const kTable = "AdBasedOnSpotlightVC";
const QString kLastViewed = QStringLiteral("LastViewedSearchResults");
const QString kPlaceholder = QStringLiteral("...");

QString text(const char* key, const char* english)
{
    return Texts::localized(kTable, key, QString::fromUtf8(english));
}

// The overview's order (junk, duplicates, large and old, applications) against the scan types.
constexpr quint32 kScanOfRow[4] = {ScanJunk, ScanDuplicates, ScanLargeAndOld, ScanApplications};
constexpr AdBasedOnSpotlightView::Type kViewOfRow[4] = {
    AdBasedOnSpotlightView::JunkFiles, AdBasedOnSpotlightView::DuplicateFiles,
    AdBasedOnSpotlightView::LargeAndOldFiles, AdBasedOnSpotlightView::ApplicationsUnused};
} // namespace

double AdBasedOnSpotlightVC::startupDiskUsedFraction()
{
    struct statvfs st;
    if (::statvfs("/", &st) != 0 || st.f_blocks == 0)
        return 0.0;
    return 1.0 - double(st.f_bavail) / double(st.f_blocks);
}

AdBasedOnSpotlightVC::AdBasedOnSpotlightVC(SearcherManager& manager, UserDefaults& defaults,
                                           std::function<double()> usedFraction, QWidget* parent)
    : QWidget(parent)
    , m_manager(manager)
    , m_defaults(defaults)
    , m_usedFraction(std::move(usedFraction))
{
    setObjectName(QStringLiteral("AdBasedOnSpotlightVC"));
    auto* outer = new QVBoxLayout(this);
    m_pages = new QStackedWidget(this);
    outer->addWidget(m_pages);

    auto* overview = new QWidget(m_pages);
    auto* layout = new QVBoxLayout(overview);
    layout->addWidget(new QLabel(text("Disc_Usage_Title", "Disk Usage"), overview));
    auto* levelRow = new QHBoxLayout;
    m_level = new QProgressBar(overview);
    m_level->setObjectName(QStringLiteral("hddLevelIndicator"));
    m_level->setRange(0, 100);
    m_level->setTextVisible(false);
    m_levelLabel = new QLabel(overview);
    m_levelLabel->setObjectName(QStringLiteral("hddLevelLabel"));
    levelRow->addWidget(m_level);
    levelRow->addWidget(m_levelLabel);
    layout->addLayout(levelRow);
    layout->addWidget(new QLabel(text("Main_View_removable_files", "Removable Files") + QLatin1Char(':'), overview));

    static const char* const rows[kCount][3] = {
        {"Main_View_show_junk_files_button", "Junk Files", "junkFilesSizeLabel"},
        {"Main_View_show_duplicate_files_button", "Duplicates", "duplicatesSizeLabel"},
        {"Main_View_show_large_and_old_files_button", "Large & Old Files", "largeAndOldSizeLabel"},
        {"Main_View_show_applications_button", "Applications", "unusedApplicationsSizeLabel"}};
    auto* grid = new QGridLayout;
    for (int row = 0; row < kCount; ++row) {
        auto* show = new QPushButton(text(rows[row][0], rows[row][1]) + QLatin1Char(':'), overview);
        show->setFlat(true);
        connect(show, &QPushButton::clicked, this, [this, row] { showCategory(row); });
        auto* sizeLabel = new QPushButton(kPlaceholder, overview);
        sizeLabel->setFlat(true);
        sizeLabel->setObjectName(QString::fromLatin1(rows[row][2]));
        sizeLabel->setEnabled(false);
        // A click rescans this category alone.
        connect(sizeLabel, &QPushButton::clicked, this, [this, row] {
            m_sizeLabels[std::size_t(row)]->setText(kPlaceholder);
            m_sizeLabels[std::size_t(row)]->setEnabled(false);
            m_views[std::size_t(row)]->setProperty("answered", false);
            m_total->clear();
            setIsScanning(true);
            m_manager.startSearchForType(kScanOfRow[row]);
        });
        grid->addWidget(show, row, 0);
        grid->addWidget(sizeLabel, row, 1);
        m_sizeLabels[std::size_t(row)] = sizeLabel;

        auto* view = new AdBasedOnSpotlightView(kViewOfRow[row], m_pages);
        view->setObjectName(QStringLiteral("detailView%1").arg(row));
        connect(view, &AdBasedOnSpotlightView::backButtonPressed, this, [this] { m_pages->setCurrentIndex(0); });
        m_views[std::size_t(row)] = view;
    }
    layout->addLayout(grid);
    m_total = new QLabel(overview);
    m_total->setObjectName(QStringLiteral("totalSizeLabel"));
    layout->addWidget(m_total);
    m_review = new QPushButton(overview);
    m_review->setObjectName(QStringLiteral("reviewButton"));
    connect(m_review, &QPushButton::clicked, this, &AdBasedOnSpotlightVC::detailsButtonPressed);
    layout->addWidget(m_review);
    layout->addStretch();
    m_pages->addWidget(overview);
    for (auto* view : m_views)
        m_pages->addWidget(view);

    connect(&m_manager, &SearcherManager::onSpotlightManagerFoundJunkFilesInfo, this, [this](const JunkFilesViewInfo& info) {
        m_views[0]->setJunkInfo(info);
        m_views[0]->setProperty("answered", true);
        m_sizes[0] = info.getTotalSize();
        updateOverallViewContent();
    });
    connect(&m_manager, &SearcherManager::onSpotlightManagerFoundDuplicatesInfo, this,
            [this](const DuplicateFilesViewInfo& info) {
                m_views[1]->setCountAndSize(info.count, info.size, &info);
                m_views[1]->setProperty("answered", true);
                m_sizes[1] = info.size;
                updateOverallViewContent();
            });
    connect(&m_manager, &SearcherManager::onSpotlightManagerFoundLargetAndOldFilesInfo, this,
            [this](const LargeAndOldFilesViewInfo& info) {
                m_views[2]->setCountAndSize(info.count, info.size);
                m_views[2]->setProperty("answered", true);
                m_sizes[2] = info.size;
                updateOverallViewContent();
            });
    connect(&m_manager, &SearcherManager::onSpotlightManagerFoundApplicationsInfo, this,
            [this](const ApplicationsUnusedViewInfo& info) {
                m_views[3]->setCountAndSize(info.count, info.size);
                m_views[3]->setProperty("answered", true);
                m_sizes[3] = info.size;
                updateOverallViewContent();
            });
    setUpHddLevelIndicator();
    setIsScanning(false);
}

void AdBasedOnSpotlightVC::setUpHddLevelIndicator()
{
    const double percent = m_usedFraction() * 100.0;
    m_level->setValue(int(percent));
    m_levelLabel->setText(QString::asprintf("%d%%", int(percent)));
}

void AdBasedOnSpotlightVC::rescan()
{
    for (std::size_t row = 0; row < kCount; ++row) {
        m_sizeLabels[row]->setText(kPlaceholder);
        m_sizeLabels[row]->setEnabled(false);
        m_views[row]->setProperty("answered", false);
    }
    m_total->clear();
    setIsScanning(true);
    setUpHddLevelIndicator();
    m_manager.startSearchForced(true);
}

void AdBasedOnSpotlightVC::updateOverallViewContent()
{
    quint64 total = 0;
    bool all = true;
    for (std::size_t row = 0; row < kCount; ++row) {
        if (!m_views[row]->isCanShow() || !m_views[row]->property("answered").toBool()) {
            all = false;
            continue;
        }
        m_sizeLabels[row]->setText(VolumeName::stringFromSize(qint64(m_sizes[row])));
        m_sizeLabels[row]->setEnabled(true);
        total += m_sizes[row];
    }
    if (all) {
        m_total->setText(VolumeName::stringFromSize(qint64(total)));
        setIsScanning(false);
    }
}

void AdBasedOnSpotlightVC::setIsScanning(bool scanning)
{
    m_scanning = scanning;
    // The extra "..." after the table's own is kept on purpose: six dots without a translation.
    m_review->setText(scanning ? text("Main_View_review_button_state_scanning", "Scanning...") + QStringLiteral("...")
                               : text("Main_View_review_button", "Review & Clean Up"));
    m_review->setEnabled(!scanning);
}

void AdBasedOnSpotlightVC::showCategory(int index)
{
    if (index < 0 || index >= kCount)
        return;
    m_pages->setCurrentWidget(m_views[std::size_t(index)]);
    m_defaults.setObject(QVariant::fromValue<quint64>(quint64(index)), kLastViewed);
    m_defaults.synchronize();
}

void AdBasedOnSpotlightVC::detailsButtonPressed()
{
    const int index = int(m_defaults.integerForKey(kLastViewed));
    if (index >= 0 && index < kCount && m_views[std::size_t(index)]->isCanShow())
        m_pages->setCurrentWidget(m_views[std::size_t(index)]);
}
