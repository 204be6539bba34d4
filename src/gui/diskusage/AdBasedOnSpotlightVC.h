#pragma once

#include "AdBasedOnSpotlightView.h"

#include <QJsonObject>
#include <QWidget>

#include <array>
#include <functional>

class NotificationCenter;
class QLabel;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class UserDefaults;

// The panel's disk-usage view: how full "/" is, the four categories' sizes as each scan answers ("..."
// while it runs; a click on one rescans it alone), their total once all four have answered, and a detail
// page per category whose review button asks the results window for the category's files. It shows
// what SearcherManager reports and asks it to scan each time it appears. In compact mode only the
// title, the disk level and a "Details" button remain.
class AdBasedOnSpotlightVC : public QWidget
{
    Q_OBJECT
public:
    // usedFraction: the used part of "/" (tests hand in their own); defaults is where the last viewed
    // category is kept; center carries the notifications to the panel and the results window.
    AdBasedOnSpotlightVC(SearcherManager& manager, UserDefaults& defaults, NotificationCenter& center,
                         std::function<double()> usedFraction = &AdBasedOnSpotlightVC::startupDiskUsedFraction,
                         QWidget* parent = nullptr);

    static double startupDiskUsedFraction();
    static QString showDetailedDiskUsagePressedNotificationName();
    // User info: "title" (QString) and "paths" (QList<QByteArray>, native paths).
    static QString ShowReviewListNotificationName();

    // Every label back to "..." and a start of the scans, forced (all four again) or not (results kept
    // from the last day answer at once).
    void rescan(bool forced = true);
    void setUpHddLevelIndicator();
    void updateOverallViewContent();
    void setIsScanning(bool scanning);
    bool isScanning() const { return m_scanning; }
    void changeToCompactMode(bool compact);
    bool isCompact() const { return m_compact; }
    // Shows a category's page (0 junk, 1 duplicates, 2 large and old, 3 applications) and remembers it.
    void showCategory(int index);
    void detailsButtonPressed();
    void showDetailedDiskUsagePressed();
    void reviewPressed(int index);

    AdBasedOnSpotlightView* detailView(int index) const { return m_views[std::size_t(index)]; }
    // What the overview shows now, per category ("junk", "duplicates", "largeOld", "applications": text,
    // bytes, count) with "total" and "level": for end-to-end checks.
    QJsonObject shownFigures() const;

signals:
    // All four categories have answered and the total is shown.
    void overallContentComplete();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void sizeLabelPressed(int row);
    void answered(int row, quint64 size, quint64 count);

    static constexpr int kCount = 4;
    SearcherManager& m_manager;
    UserDefaults& m_defaults;
    NotificationCenter& m_center;
    std::function<double()> m_usedFraction;
    QStackedWidget* m_pages = nullptr;
    QWidget* m_body = nullptr;
    QPushButton* m_detailsButton = nullptr;
    QProgressBar* m_level = nullptr;
    QLabel* m_levelLabel = nullptr;
    std::array<QPushButton*, kCount> m_sizeLabels{};
    std::array<AdBasedOnSpotlightView*, kCount> m_views{};
    std::array<bool, kCount> m_answered{};
    std::array<quint64, kCount> m_sizes{};
    std::array<quint64, kCount> m_counts{};
    QLabel* m_total = nullptr;
    QPushButton* m_review = nullptr;
    bool m_scanning = false;
    bool m_compact = false;
};
