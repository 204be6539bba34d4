#pragma once

#include "AdBasedOnSpotlightView.h"

#include <QWidget>

#include <array>
#include <functional>

class QLabel;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class UserDefaults;

// The panel's disk-usage view: how full "/" is, the four categories' sizes as each scan answers ("..."
// while it runs; a click on one rescans it alone), their total once all four have answered, and a detail
// page per category. It shows what SearcherManager reports and asks it to rescan.
class AdBasedOnSpotlightVC : public QWidget
{
    Q_OBJECT
public:
    // usedFraction: the used part of "/" (tests hand in their own); defaults is where the last viewed
    // category is kept.
    AdBasedOnSpotlightVC(SearcherManager& manager, UserDefaults& defaults,
                         std::function<double()> usedFraction = &AdBasedOnSpotlightVC::startupDiskUsedFraction,
                         QWidget* parent = nullptr);

    static double startupDiskUsedFraction();

    void rescan();
    void setUpHddLevelIndicator();
    void updateOverallViewContent();
    void setIsScanning(bool scanning);
    bool isScanning() const { return m_scanning; }
    // Shows a category's page (0 junk, 1 duplicates, 2 large and old, 3 applications) and remembers it.
    void showCategory(int index);
    void detailsButtonPressed();

    AdBasedOnSpotlightView* detailView(int index) const { return m_views[std::size_t(index)]; }

private:
    static constexpr int kCount = 4;
    SearcherManager& m_manager;
    UserDefaults& m_defaults;
    std::function<double()> m_usedFraction;
    QStackedWidget* m_pages = nullptr;
    QProgressBar* m_level = nullptr;
    QLabel* m_levelLabel = nullptr;
    std::array<QPushButton*, kCount> m_sizeLabels{};
    std::array<AdBasedOnSpotlightView*, kCount> m_views{};
    std::array<quint64, kCount> m_sizes{};
    QLabel* m_total = nullptr;
    QPushButton* m_review = nullptr;
    bool m_scanning = false;
};
