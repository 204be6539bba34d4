#include "AdBasedOnSpotlightVC.h"

#include "core/NotificationCenter.h"
#include "core/Texts.h"
#include "core/UserDefaults.h"
#include "util/VolumeName.h"

#include <QGridLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QShowEvent>
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
const char* const kFigureKeys[4] = {"junk", "duplicates", "largeOld", "applications"};
} // namespace

double AdBasedOnSpotlightVC::startupDiskUsedFraction()
{
    struct statvfs st;
    if (::statvfs("/", &st) != 0 || st.f_blocks == 0)
        return 0.0;
    return 1.0 - double(st.f_bavail) / double(st.f_blocks);
}

QString AdBasedOnSpotlightVC::showDetailedDiskUsagePressedNotificationName()
{
    return QStringLiteral("showDetailedDiskUsagePressedNotification");
}

QString AdBasedOnSpotlightVC::ShowReviewListNotificationName()
{
    return QStringLiteral("ShowReviewListNotification");
}

AdBasedOnSpotlightVC::AdBasedOnSpotlightVC(SearcherManager& manager, UserDefaults& defaults, NotificationCenter& center,
                                           std::function<double()> usedFraction, QWidget* parent)
    : QWidget(parent)
    , m_manager(manager)
    , m_defaults(defaults)
    , m_center(center)
    , m_usedFraction(std::move(usedFraction))
{
    setObjectName(QStringLiteral("AdBasedOnSpotlightVC"));
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    m_pages = new QStackedWidget(this);
    outer->addWidget(m_pages);

    auto* overview = new QWidget(m_pages);
    overview->setObjectName(QStringLiteral("overview"));
    auto* layout = new QVBoxLayout(overview);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);

    // Title, disk level and (compact only) the details button.
    auto* header = new QHBoxLayout;
    auto* title = new QLabel(text("Disc_Usage_Title", "Disk Usage"), overview);
    title->setObjectName(QStringLiteral("diskUsageTitle"));
    header->addWidget(title);
    m_level = new QProgressBar(overview);
    m_level->setObjectName(QStringLiteral("hddLevelIndicator"));
    m_level->setRange(0, 100);
    m_level->setTextVisible(false);
    m_level->setFixedHeight(8);
    header->addWidget(m_level, 1);
    m_levelLabel = new QLabel(overview);
    m_levelLabel->setObjectName(QStringLiteral("hddLevelLabel"));
    m_levelLabel->setMinimumWidth(m_levelLabel->fontMetrics().horizontalAdvance(QStringLiteral("100%")));
    m_levelLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    header->addWidget(m_levelLabel);
    m_detailsButton = new QPushButton(QStringLiteral("Details"), overview);
    m_detailsButton->setObjectName(QStringLiteral("detailsButton"));
    connect(m_detailsButton, &QPushButton::clicked, this, &AdBasedOnSpotlightVC::showDetailedDiskUsagePressed);
    header->addWidget(m_detailsButton);
    layout->addLayout(header);

    m_body = new QWidget(overview);
    m_body->setObjectName(QStringLiteral("overviewBody"));
    auto* body = new QVBoxLayout(m_body);
    body->setContentsMargins(0, 0, 0, 0);
    body->setSpacing(2);
    static const char* const rows[kCount][3] = {
        {"Main_View_show_junk_files_button", "Junk Files", "junkFilesSizeLabel"},
        {"Main_View_show_duplicate_files_button", "Duplicates", "duplicatesSizeLabel"},
        {"Main_View_show_large_and_old_files_button", "Large & Old Files", "largeAndOldSizeLabel"},
        {"Main_View_show_applications_button", "Applications", "unusedApplicationsSizeLabel"}};
    auto* grid = new QGridLayout;
    grid->setVerticalSpacing(0);
    grid->setColumnStretch(0, 1);
    QFont bold = font();
    bold.setBold(true);
    for (int row = 0; row < kCount; ++row) {
        // "&" in a button title would make a mnemonic; the text is shown as it stands.
        QString caption = text(rows[row][0], rows[row][1]) + QLatin1Char(':');
        auto* show = new QPushButton(caption.replace(QLatin1Char('&'), QStringLiteral("&&")), m_body);
        show->setObjectName(QStringLiteral("showCategoryButton%1").arg(row));
        show->setFlat(true);
        show->setStyleSheet(QStringLiteral("text-align: left; padding: 2px 0px;"));
        connect(show, &QPushButton::clicked, this, [this, row] { showCategory(row); });
        auto* sizeLabel = new QPushButton(kPlaceholder, m_body);
        sizeLabel->setFlat(true);
        sizeLabel->setStyleSheet(QStringLiteral("text-align: right; padding: 2px 0px;"));
        sizeLabel->setObjectName(QString::fromLatin1(rows[row][2]));
        sizeLabel->setToolTip(QStringLiteral("Click to scan again"));
        sizeLabel->setEnabled(false);
        connect(sizeLabel, &QPushButton::clicked, this, [this, row] { sizeLabelPressed(row); });
        grid->addWidget(show, row, 0);
        grid->addWidget(sizeLabel, row, 1);
        m_sizeLabels[std::size_t(row)] = sizeLabel;

        auto* view = new AdBasedOnSpotlightView(kViewOfRow[row], m_pages);
        view->setObjectName(QStringLiteral("detailView%1").arg(row));
        connect(view, &AdBasedOnSpotlightView::backButtonPressed, this, [this] { m_pages->setCurrentIndex(0); });
        connect(view, &AdBasedOnSpotlightView::reviewButtonPressed, this, [this, row] { reviewPressed(row); });
        m_views[std::size_t(row)] = view;
    }
    body->addLayout(grid);
    auto* totalRow = new QHBoxLayout;
    auto* removable = new QLabel(text("Main_View_removable_files", "Removable Files") + QLatin1Char(':'), m_body);
    removable->setFont(bold);
    totalRow->addWidget(removable);
    totalRow->addStretch();
    m_total = new QLabel(m_body);
    m_total->setObjectName(QStringLiteral("totalSizeLabel"));
    m_total->setFont(bold);
    totalRow->addWidget(m_total);
    body->addLayout(totalRow);
    m_review = new QPushButton(m_body);
    m_review->setObjectName(QStringLiteral("reviewButton"));
    connect(m_review, &QPushButton::clicked, this, &AdBasedOnSpotlightVC::detailsButtonPressed);
    body->addWidget(m_review);
    layout->addWidget(m_body);
    m_pages->addWidget(overview);
    for (auto* view : m_views)
        m_pages->addWidget(view);

    connect(&m_manager, &SearcherManager::onSpotlightManagerFoundJunkFilesInfo, this, [this](const JunkFilesViewInfo& info) {
        m_views[0]->setJunkInfo(info);
        answered(0, info.getTotalSize(), info.count);
    });
    connect(&m_manager, &SearcherManager::onSpotlightManagerFoundDuplicatesInfo, this,
            [this](const DuplicateFilesViewInfo& info) {
                m_views[1]->setCountAndSize(info.count, info.size, &info);
                answered(1, info.size, info.count);
            });
    connect(&m_manager, &SearcherManager::onSpotlightManagerFoundLargetAndOldFilesInfo, this,
            [this](const LargeAndOldFilesViewInfo& info) {
                m_views[2]->setCountAndSize(info.count, info.size);
                answered(2, info.size, info.count);
            });
    connect(&m_manager, &SearcherManager::onSpotlightManagerFoundApplicationsInfo, this,
            [this](const ApplicationsUnusedViewInfo& info) {
                m_views[3]->setCountAndSize(info.count, info.size);
                answered(3, info.size, info.count);
            });
    setUpHddLevelIndicator();
    setIsScanning(false);
    changeToCompactMode(false);
}

void AdBasedOnSpotlightVC::setUpHddLevelIndicator()
{
    const double percent = m_usedFraction() * 100.0;
    m_level->setValue(int(percent));
    m_levelLabel->setText(QString::asprintf("%d%%", int(percent)));
}

void AdBasedOnSpotlightVC::rescan(bool forced)
{
    for (std::size_t row = 0; row < kCount; ++row) {
        m_sizeLabels[row]->setText(kPlaceholder);
        m_sizeLabels[row]->setEnabled(false);
        m_answered[row] = false;
    }
    m_total->clear();
    setIsScanning(true);
    setUpHddLevelIndicator();
    // Kept results come back through the signals before this returns.
    m_manager.startSearchForced(forced);
}

void AdBasedOnSpotlightVC::sizeLabelPressed(int row)
{
    const auto r = std::size_t(row);
    m_sizeLabels[r]->setText(kPlaceholder);
    m_sizeLabels[r]->setEnabled(false);
    m_answered[r] = false;
    m_total->clear();
    setIsScanning(true);
    m_manager.startSearchForType(kScanOfRow[row]);
}

void AdBasedOnSpotlightVC::answered(int row, quint64 size, quint64 count)
{
    m_answered[std::size_t(row)] = true;
    m_sizes[std::size_t(row)] = size;
    m_counts[std::size_t(row)] = count;
    updateOverallViewContent();
}

void AdBasedOnSpotlightVC::updateOverallViewContent()
{
    quint64 total = 0;
    bool all = true;
    for (std::size_t row = 0; row < kCount; ++row) {
        if (!m_views[row]->isCanShow() || !m_answered[row]) {
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
        emit overallContentComplete();
    }
}

void AdBasedOnSpotlightVC::setIsScanning(bool scanning)
{
    m_scanning = scanning;
    // The extra "..." after the table's own is kept on purpose: six dots without a translation.
    m_review->setText(
        scanning
            ? text("Main_View_review_button_state_scanning", "Scanning...") + QStringLiteral("...")
            : text("Main_View_review_button", "Review & Clean Up").replace(QLatin1Char('&'), QStringLiteral("&&")));
    m_review->setEnabled(!scanning);
}

void AdBasedOnSpotlightVC::changeToCompactMode(bool compact)
{
    const bool opened = m_compact && !compact;
    m_compact = compact;
    m_detailsButton->setVisible(compact);
    m_body->setVisible(!compact);
    if (compact)
        m_pages->setCurrentIndex(0);
    // The stacked pages keep the size of the largest; compact, only the overview's header counts.
    for (auto* view : m_views)
        view->setSizePolicy(QSizePolicy::Preferred, compact ? QSizePolicy::Ignored : QSizePolicy::Preferred);
    // The panel takes its new height at once, from size hints that must already know of the change.
    for (QWidget* page : {m_pages->widget(0), static_cast<QWidget*>(m_pages), static_cast<QWidget*>(this)}) {
        if (page->layout())
            page->layout()->invalidate();
        page->updateGeometry();
    }
    if (opened && isVisible())
        rescan(false);
}

void AdBasedOnSpotlightVC::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    if (!event->spontaneous() && !m_compact)
        rescan(false);
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

void AdBasedOnSpotlightVC::showDetailedDiskUsagePressed()
{
    m_center.post(showDetailedDiskUsagePressedNotificationName(), this);
}

void AdBasedOnSpotlightVC::reviewPressed(int index)
{
    if (index < 0 || index >= kCount)
        return;
    const QList<QByteArray> paths = m_manager.reviewPaths(kScanOfRow[index]);
    m_center.post(ShowReviewListNotificationName(), this,
                  {{QStringLiteral("title"), m_views[std::size_t(index)]->title()},
                   {QStringLiteral("paths"), QVariant::fromValue(paths)}});
}

QJsonObject AdBasedOnSpotlightVC::shownFigures() const
{
    QJsonObject figures;
    for (std::size_t row = 0; row < kCount; ++row)
        figures.insert(QString::fromLatin1(kFigureKeys[row]),
                       QJsonObject{{QStringLiteral("text"), m_sizeLabels[row]->text()},
                                   {QStringLiteral("bytes"), m_answered[row] ? qint64(m_sizes[row]) : -1},
                                   {QStringLiteral("count"), m_answered[row] ? qint64(m_counts[row]) : -1}});
    figures.insert(QStringLiteral("total"), m_total->text());
    figures.insert(QStringLiteral("level"), m_levelLabel->text());
    return figures;
}
