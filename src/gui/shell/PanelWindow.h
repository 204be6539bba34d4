#pragma once

#include "util/Clock.h"

#include <QPointer>
#include <QWidget>

class AdBasedOnSpotlightVC;
class CleanMemoryButton;
class NotificationCenter;
class PanelWindowDelegate;
class QAction;
class QLabel;
class QLineEdit;
class QProgressBar;
class QToolButton;
class Settings;
class ToggleSwitch;
class ClickableLabel;
class PanelView;

// The drop-down panel under the tray icon: the hidden-files switch, the search field, the memory part
// behind a disclosure button. "Locked" means attached under the tray icon (with the pointer triangle);
// dragging detaches it, and a detached panel stays where the user put it.
class PanelWindow : public QWidget
{
    Q_OBJECT
public:
    // Window states of changeWindowStateTo.
    enum State
    {
        Compact = 3,
        ByDisclosure = 4
    };

    PanelWindow(PanelWindowDelegate& delegate, Settings& settings, NotificationCenter& center, Clock& clock,
                QWidget* parent = nullptr);
    ~PanelWindow() override;

    static QString PanelWindowDidBecomeActiveNotification();

    // Tray icon click; canBeClosed false leaves an open attached panel open.
    void processActionOfStatusItem(bool canBeClosed);
    void showWindowIfNotLocked();
    // With no tray to hang under: shown free-standing, while the stored lock state stays the user's.
    void openAsWindow();
    bool isOpenAsWindow() const { return m_openAsWindow; }
    void closeAndMakeItLocked();
    void showTriangle(bool show);
    void closeWindowIfNotActive();
    bool isLocked() const { return m_locked; }
    void setLocked(bool locked);
    void updateWindowFrameAndItems();
    void updateIsHiddenShown();

    // Memory part.
    void fillInfoPanelWithUsedMemoryPercent(double fraction, qint64 usedSize, qint64 totalSize);
    void fillLastCleanedLabelWithSize(qint64 size, const QString& timeDescription);
    bool shouldUpdateTrackedSystemInfo() const;
    void onPurgedMemory();
    void subtitleLabelClicked();
    CleanMemoryButton* cleanButton() const { return m_cleanButton; }

    // The disk-usage view, placed under the memory part: whole while the panel is expanded, compact
    // (its title, level and "Details") otherwise. Its "Details" expands the panel.
    void setDiskUsageView(AdBasedOnSpotlightVC* view);
    AdBasedOnSpotlightVC* diskUsageView() const { return m_diskUsageView; }

    bool isDisclosureButtonExpanded() const;
    void expandDisclosureButton();
    void openDetailedModeButtonPressed();
    void changeWindowStateTo(int state);
    static bool isLastSateDetailed(Settings& settings);
    static void setIsLastStateDetailed(Settings& settings, bool detailed);

    // Emitted when the panel closes (the controller's window-will-close observer).
Q_SIGNALS:
    void willClose();

public:
    // Texts shown now (tests read them).
    QString titleText() const;
    QString subtitleText() const;
    int subtitleTag() const { return m_subtitleTag; }
    QColor subtitleColor() const;
    QString lastCleanedText() const;
    QLineEdit* searchBar() const { return m_searchBar; }

    // Ends editing of the search field: hands the text to the search (Return pressed).
    void controlTextDidEndEditing();

protected:
    void changeEvent(QEvent* event) override;
    void moveEvent(QMoveEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void buildInterface();
    void placeUnderStatusItem();
    void positionDidChanged();
    void windowDidResignKey();
    void applicationFocusChanged();
    bool hasAttachedSheet() const;
    void showLockedLook(bool locked);
    void dragDidEnd();
    void applySubtitleColour();
    void applyPaletteColours();
    void applyHeight();
    void updateMask();
    bool m_placedAbove = false;
    int m_triangleTipX = -1;

    PanelWindowDelegate& m_delegate;
    Settings& m_settings;
    NotificationCenter& m_center;
    Clock& m_clock;

    bool m_locked = true;
    int m_state = Compact;
    bool m_expanded = false;
    QString m_pInfoUsedSizeString;
    QString m_pInfoCleanedSizeString;
    int m_subtitleTag = 1;
    Clock::Handle m_subtitleRevert;
    QPoint m_dragOffset;
    bool m_dragging = false;
    // The window manager moves the panel (startSystemMove): the drag ends when the moves stop.
    bool m_systemMove = false;
    Clock::Handle m_systemMoveEnd;
    bool m_openAsWindow = false;

    PanelView* m_view = nullptr;
    QLabel* m_titleLabel = nullptr;
    ToggleSwitch* m_hiddenSwitch = nullptr;
    QLabel* m_hiddenSwitchLabel = nullptr;
    QLineEdit* m_searchBar = nullptr;
    QAction* m_searchIcon = nullptr;
    QToolButton* m_disclosureButton = nullptr;
    QToolButton* m_gearButton = nullptr;
    QToolButton* m_closeButton = nullptr;
    QWidget* m_memoryPart = nullptr;
    QLabel* m_percentLabel = nullptr;
    ClickableLabel* m_subtitleLabel = nullptr;
    QProgressBar* m_memoryLevelIndicator = nullptr;
    CleanMemoryButton* m_cleanButton = nullptr;
    AdBasedOnSpotlightVC* m_diskUsageView = nullptr;
};
