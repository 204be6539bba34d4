#include "PanelWindow.h"

#include "CleanMemoryButton.h"
#include "Controls.h"
#include "core/NotificationCenter.h"
#include "PanelWindowDelegate.h"
#include "core/Settings.h"
#include "core/Texts.h"
#include "gui/diskusage/AdBasedOnSpotlightVC.h"
#include "util/VolumeName.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDialog>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainterPath>
#include <QProgressBar>
#include <QScreen>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>
#include <QWindow>

namespace {

constexpr int kPanelWidth = 320;
constexpr int kRevertMs = 30000;
constexpr int kGap = 5; // between the tray icon and the panel
// A window-manager move has ended when the panel has not moved for this long (the release of the
// button goes to the window manager, not to the panel).
constexpr int kSystemMoveSettleMs = 400;

QString panelText(const char* key, const char* english)
{
    return Texts::localized("PanelWindow", key, QString::fromLatin1(english));
}

// The used line in the palette's text colour; the cleaned line in green, lightened on a dark palette
// so that it reads there too.
QColor usedColor(const QPalette& palette)
{
    return palette.color(QPalette::WindowText);
}
QColor cleanedColor(const QPalette& palette)
{
    const QColor green = QColor::fromRgbF(0.12156863f, 0.52156866f, 0.15294118f);
    return contrastRatio(green, palette.color(QPalette::Window)) < 3.0 ? green.lighter(190) : green;
}

} // namespace

PanelWindow::PanelWindow(PanelWindowDelegate& delegate, Settings& settings, NotificationCenter& center, Clock& clock,
                         QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
    , m_delegate(delegate)
    , m_settings(settings)
    , m_center(center)
    , m_clock(clock)
{
    setObjectName(QStringLiteral("PanelWindow"));
    setWindowTitle(QGuiApplication::applicationDisplayName());
    setAttribute(Qt::WA_DeleteOnClose, false);
    buildInterface();

    m_locked = m_settings.isWindowLocked();
    changeWindowStateTo(Compact);
    showLockedLook(m_locked);
    if (isLastSateDetailed(m_settings))
        expandDisclosureButton();

    m_center.addObserver(QStringLiteral("CloseMainWindowIfNotActive"), nullptr, this,
                         [this](const Notification&) { closeWindowIfNotActive(); });
    m_center.addObserver(AdBasedOnSpotlightVC::showDetailedDiskUsagePressedNotificationName(), nullptr, this,
                         [this](const Notification&) {
                             if (!isDisclosureButtonExpanded())
                                 expandDisclosureButton();
                         });
    // Losing the focus to another program is told to the application, not to the window: the panel
    // follows the application's state and the focus window.
    connect(qGuiApp, &QGuiApplication::applicationStateChanged, this, [this] { applicationFocusChanged(); });
    connect(qGuiApp, &QGuiApplication::focusWindowChanged, this, [this] { applicationFocusChanged(); });
}

PanelWindow::~PanelWindow()
{
    m_systemMoveEnd.cancel();
    m_center.removeObservers(this);
}

QString PanelWindow::PanelWindowDidBecomeActiveNotification()
{
    return QStringLiteral("PanelWindowDidBecomeActiveNotification");
}

void PanelWindow::buildInterface()
{
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    m_view = new PanelView(this);
    m_view->setObjectName(QStringLiteral("PanelView"));
    outer->addWidget(m_view);

    auto* layout = new QVBoxLayout(m_view);
    layout->setSpacing(10);

    // Title row: the program's name, the gear menu and (when detached) the close button.
    auto* header = new QHBoxLayout;
    m_titleLabel = new QLabel(m_view);
    m_titleLabel->setObjectName(QStringLiteral("appTitle"));
    QFont titleFont = m_titleLabel->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.15);
    titleFont.setBold(true);
    m_titleLabel->setFont(titleFont);
    header->addWidget(m_titleLabel);
    header->addStretch();
    m_gearButton = new QToolButton(m_view);
    m_gearButton->setObjectName(QStringLiteral("preferencesButton"));
    m_gearButton->setAutoRaise(true);
    m_gearButton->setToolTip(PanelWindowContextualMenuStrings::preferencesWithoutDots());
    connect(m_gearButton, &QToolButton::clicked, this, [this] {
        m_delegate.panelPreferencesButtonPressed(m_gearButton->mapToGlobal(QPoint(-2, m_gearButton->height() + 5)));
    });
    header->addWidget(m_gearButton);
    m_closeButton = new QToolButton(m_view);
    m_closeButton->setObjectName(QStringLiteral("closeButton"));
    m_closeButton->setAutoRaise(true);
    m_closeButton->setIcon(style()->standardIcon(QStyle::SP_TitleBarCloseButton));
    connect(m_closeButton, &QToolButton::clicked, this, [this] { closeAndMakeItLocked(); });
    header->addWidget(m_closeButton);
    layout->addLayout(header);

    // The hidden-files switch.
    auto* switchRow = new QHBoxLayout;
    m_hiddenSwitchLabel = new QLabel(m_view);
    m_hiddenSwitchLabel->setText(panelText("Switcher_hidden_files_visibility_title", "Show hidden files"));
    switchRow->addWidget(m_hiddenSwitchLabel);
    switchRow->addStretch();
    m_hiddenSwitch = new ToggleSwitch(m_view);
    m_hiddenSwitch->setObjectName(QStringLiteral("hiddenSwitch"));
    m_hiddenSwitch->setAccessibleName(m_hiddenSwitchLabel->text());
    connect(m_hiddenSwitch, &ToggleSwitch::clicked, this, [this] {
        // The switch shows the manager's state, not the click: the manager flips it and tells us.
        m_delegate.panelShowHiddenControlChanged();
        updateIsHiddenShown();
    });
    switchRow->addWidget(m_hiddenSwitch);
    layout->addLayout(switchRow);

    // The search field.
    m_searchBar = new QLineEdit(m_view);
    m_searchBar->setObjectName(QStringLiteral("searchBar"));
    m_searchBar->setPlaceholderText(panelText("Hidden_Fiels_Search_field_title", "Search files by name"));
    m_searchBar->setClearButtonEnabled(true);
    m_searchIcon = m_searchBar->addAction(QIcon(), QLineEdit::LeadingPosition);
    connect(m_searchBar, &QLineEdit::returnPressed, this, [this] { controlTextDidEndEditing(); });
    layout->addWidget(m_searchBar);

    // Disclosure of the memory part.
    m_disclosureButton = new QToolButton(m_view);
    m_disclosureButton->setObjectName(QStringLiteral("disclosureButton"));
    m_disclosureButton->setCheckable(true);
    m_disclosureButton->setAutoRaise(true);
    m_disclosureButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_disclosureButton->setArrowType(Qt::RightArrow);
    m_disclosureButton->setText(panelText("Expand_system_usage_button", "System Usage"));
    connect(m_disclosureButton, &QToolButton::clicked, this, [this] { openDetailedModeButtonPressed(); });
    layout->addWidget(m_disclosureButton);

    m_memoryPart = new QWidget(m_view);
    m_memoryPart->setObjectName(QStringLiteral("memoryPart"));
    auto* memory = new QVBoxLayout(m_memoryPart);
    memory->setContentsMargins(0, 0, 0, 0);
    memory->setSpacing(4);
    auto* caption = new QLabel(panelText("Memory_usage", "Memory usage"), m_memoryPart);
    caption->setObjectName(QStringLiteral("memoryCaption"));
    memory->addWidget(caption);
    auto* figures = new QHBoxLayout;
    m_percentLabel = new QLabel(m_memoryPart);
    m_percentLabel->setObjectName(QStringLiteral("memoryTitle"));
    QFont big = m_percentLabel->font();
    big.setPointSizeF(big.pointSizeF() * 2.0);
    big.setBold(true);
    m_percentLabel->setFont(big);
    m_percentLabel->setMinimumWidth(QFontMetrics(big).horizontalAdvance(QStringLiteral("100%")));
    figures->addWidget(m_percentLabel);
    auto* right = new QVBoxLayout;
    m_subtitleLabel = new ClickableLabel(m_memoryPart);
    m_subtitleLabel->setObjectName(QStringLiteral("memorySubtitle"));
    connect(m_subtitleLabel, &ClickableLabel::clicked, this, [this] { subtitleLabelClicked(); });
    right->addWidget(m_subtitleLabel);
    m_memoryLevelIndicator = new QProgressBar(m_memoryPart);
    m_memoryLevelIndicator->setObjectName(QStringLiteral("memoryLevelIndicator"));
    m_memoryLevelIndicator->setRange(0, 1000);
    m_memoryLevelIndicator->setTextVisible(false);
    m_memoryLevelIndicator->setFixedHeight(8);
    right->addWidget(m_memoryLevelIndicator);
    figures->addLayout(right, 1);
    memory->addLayout(figures);
    m_cleanButton = new CleanMemoryButton(m_memoryPart);
    connect(m_cleanButton, &CleanMemoryButton::clicked, this, [this] { m_delegate.panelCleanButtonPressed(); });
    memory->addWidget(m_cleanButton);
    layout->addWidget(m_memoryPart);

    setFixedWidth(kPanelWidth);
    updateWindowFrameAndItems();
    fillLastCleanedLabelWithSize(0, QString());
    applyPaletteColours();
}

void PanelWindow::updateWindowFrameAndItems()
{
    m_titleLabel->setText(QGuiApplication::applicationDisplayName());
    updateIsHiddenShown();
}

void PanelWindow::updateIsHiddenShown()
{
    const QSignalBlocker block(m_hiddenSwitch);
    m_hiddenSwitch->setChecked(m_delegate.panelIsHiddenShown());
    m_hiddenSwitch->setEnabled(!m_delegate.panelIsHiddenUpdating());
}

void PanelWindow::setLocked(bool locked)
{
    m_locked = locked;
    m_openAsWindow = false;
    if (m_settings.isWindowLocked() != locked)
        m_settings.saveWindowLockedState(locked);
}

void PanelWindow::showTriangle(bool show)
{
    setLocked(show);
    showLockedLook(show);
}

void PanelWindow::showLockedLook(bool locked)
{
    m_view->setTriangle(locked, !m_placedAbove, m_triangleTipX);
    m_closeButton->setVisible(!locked);
    applyHeight();
}

void PanelWindow::processActionOfStatusItem(bool canBeClosed)
{
    if (isVisible()) {
        if (m_locked) {
            if (canBeClosed)
                close();
            return;
        }
        closeAndMakeItLocked();
    }
    if (m_locked)
        placeUnderStatusItem();
    show();
    raise();
    activateWindow();
    m_searchBar->setFocus(Qt::PopupFocusReason);
}

void PanelWindow::placeUnderStatusItem()
{
    const QRect status = m_delegate.statusItemFrame();
    const QPoint anchor = status.isEmpty() ? QPoint(status.x(), status.y()) : status.center();
    QScreen* screen = QGuiApplication::screenAt(anchor);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const QRect area = screen ? screen->availableGeometry() : QRect();
    const int height = sizeHint().height();

    int x = anchor.x() - kPanelWidth / 2;
    int y = status.bottom() + 1 + kGap;
    // An icon at the bottom edge of the screen: open above it, the triangle pointing down.
    m_placedAbove = area.isValid() && y + height > area.bottom() + 1 && status.top() - kGap - height >= area.top();
    if (m_placedAbove)
        y = status.top() - kGap - height;
    if (area.isValid()) {
        x = std::clamp(x, area.left(), std::max(area.left(), area.right() + 1 - kPanelWidth));
        y = std::clamp(y, area.top(), std::max(area.top(), area.bottom() + 1 - height));
    }
    m_triangleTipX = anchor.x() - x;
    m_view->setTriangle(true, !m_placedAbove, m_triangleTipX);
    applyHeight();
    move(x, y);
}

void PanelWindow::openAsWindow()
{
    if (isVisible())
        return;
    if (!m_locked) {
        showWindowIfNotLocked();
        return;
    }
    m_locked = false;
    m_openAsWindow = true;
    m_placedAbove = false;
    showLockedLook(false);
    QScreen* screen = QGuiApplication::primaryScreen();
    const QRect area = screen ? screen->availableGeometry() : QRect();
    if (auto pos = m_settings.restoreWindowFramePosition(sizeHint(), area))
        move(*pos);
    else if (area.isValid())
        move(area.center() - rect().center());
    show();
    raise();
    activateWindow();
}

void PanelWindow::showWindowIfNotLocked()
{
    if (m_locked)
        return;
    QScreen* screen = QGuiApplication::primaryScreen();
    if (auto pos = m_settings.restoreWindowFramePosition(sizeHint(), screen ? screen->availableGeometry() : QRect()))
        move(*pos);
    show();
    raise();
    activateWindow();
}

void PanelWindow::closeAndMakeItLocked()
{
    close();
    showTriangle(true);
}

void PanelWindow::closeWindowIfNotActive()
{
    if (m_locked && !isActiveWindow())
        close();
}

bool PanelWindow::hasAttachedSheet() const
{
    const auto dialogs = findChildren<QDialog*>(QString(), Qt::FindDirectChildrenOnly);
    return std::any_of(dialogs.begin(), dialogs.end(), [](const QDialog* d) { return d->isVisible(); });
}

void PanelWindow::windowDidResignKey()
{
    // A detached panel stays; an attached one goes away when the user works elsewhere, unless a script of
    // ours is about to take the focus or a sheet hangs on it.
    if (QGuiApplication::applicationState() == Qt::ApplicationActive || !m_locked ||
        m_delegate.panelMightLoseFocusBecauseOfScript() || hasAttachedSheet())
        return;
    close();
}

void PanelWindow::applicationFocusChanged()
{
    // The window's own activation change can come while the application still counts as active; the
    // rule is applied again once the application has lost the focus.
    if (isVisible() && !isActiveWindow())
        windowDidResignKey();
}

void PanelWindow::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        applyPaletteColours();
    if (event->type() == QEvent::ActivationChange) {
        if (isActiveWindow())
            m_center.post(PanelWindowDidBecomeActiveNotification(), this);
        else
            windowDidResignKey();
    }
}

void PanelWindow::closeEvent(QCloseEvent* event)
{
    // Sheets end before their panel does.
    for (QDialog* d : findChildren<QDialog*>(QString(), Qt::FindDirectChildrenOnly)) {
        if (d->isVisible())
            d->reject();
    }
    Q_EMIT willClose();
    QWidget::closeEvent(event);
}

void PanelWindow::moveEvent(QMoveEvent* event)
{
    QWidget::moveEvent(event);
    // The place is stored once, when a drag ends, not at every step of it.
    if (m_systemMove)
        m_systemMoveEnd = m_clock.callAfter(kSystemMoveSettleMs, this, [this] { dragDidEnd(); });
}

void PanelWindow::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        m_systemMoveEnd.cancel();
        m_systemMove = false;
        m_dragOffset = event->globalPosition().toPoint() - frameGeometry().topLeft();
        m_dragging = false;
    }
    QWidget::mousePressEvent(event);
}

void PanelWindow::mouseMoveEvent(QMouseEvent* event)
{
    if (!(event->buttons() & Qt::LeftButton))
        return;
    const QPoint target = event->globalPosition().toPoint() - m_dragOffset;
    if (!m_dragging && (target - pos()).manhattanLength() < QApplication::startDragDistance())
        return;
    const bool starting = !m_dragging;
    m_dragging = true;
    if (m_locked)
        positionDidChanged();
    // Where the window manager can move windows (and on Wayland, where only it can), it does the drag.
    if (starting && windowHandle() && windowHandle()->startSystemMove()) {
        // The window manager now has the pointer; some report the new place only when the drag is over.
        m_systemMove = true;
        return;
    }
    if (!m_systemMove)
        move(target);
}

void PanelWindow::mouseReleaseEvent(QMouseEvent* event)
{
    // During a window-manager move Qt may hand over a release as soon as the move starts; the place is
    // stored once the moves have settled instead.
    if (m_dragging && !m_systemMove)
        dragDidEnd();
    m_dragging = false;
    QWidget::mouseReleaseEvent(event);
}

void PanelWindow::dragDidEnd()
{
    m_systemMoveEnd.cancel();
    m_dragging = false;
    m_systemMove = false;
    if (!m_locked && !m_openAsWindow)
        m_settings.saveWindowFramePosition(frameGeometry());
}

void PanelWindow::positionDidChanged()
{
    m_placedAbove = false;
    showTriangle(false);
}

void PanelWindow::applyHeight()
{
    m_view->updateGeometry();
    layout()->activate();
    resize(kPanelWidth, sizeHint().height());
    updateMask();
}

void PanelWindow::updateMask()
{
    // A mask rather than translucency: it needs no compositor.
    setMask(QRegion(m_view->shape().toFillPolygon().toPolygon()));
}

// Memory part.

void PanelWindow::fillInfoPanelWithUsedMemoryPercent(double fraction, qint64 usedSize, qint64 totalSize)
{
    m_percentLabel->setText(QString::asprintf("%2.0f%c", fraction * 100.0, '%'));
    m_pInfoUsedSizeString =
        Texts::format(panelText("Used_memory_template", "%@ used of %@"),
                      {VolumeName::stringFromSize(usedSize), VolumeName::stringFromSize(totalSize)});
    if (m_subtitleTag == 1)
        m_subtitleLabel->setText(m_pInfoUsedSizeString);
    m_memoryLevelIndicator->setValue(
        totalSize > 0 ? static_cast<int>(1000.0 * static_cast<double>(usedSize) / static_cast<double>(totalSize)) : 0);
}

void PanelWindow::fillLastCleanedLabelWithSize(qint64 size, const QString& timeDescription)
{
    m_pInfoCleanedSizeString = size > 0 && !timeDescription.isEmpty()
                                   ? Texts::format(panelText("Cleaned_memory_template", "%@ cleaned %@"),
                                                   {VolumeName::stringFromSize(size), timeDescription})
                                   : QString();
    if (m_subtitleTag == 2)
        m_subtitleLabel->setText(m_pInfoCleanedSizeString);
}

bool PanelWindow::shouldUpdateTrackedSystemInfo() const
{
    return isVisible() && isDisclosureButtonExpanded();
}

void PanelWindow::onPurgedMemory()
{
    m_cleanButton->endProgressUpdate();
    m_subtitleTag = 1;
    subtitleLabelClicked();
}

void PanelWindow::subtitleLabelClicked()
{
    m_subtitleRevert.cancel();
    if (m_subtitleTag != 1) {
        m_subtitleTag = 1;
        m_subtitleLabel->setText(m_pInfoUsedSizeString);
    } else {
        m_subtitleTag = 2;
        m_subtitleLabel->setText(m_pInfoCleanedSizeString);
        m_subtitleRevert = m_clock.callAfter(kRevertMs, this, [this] { subtitleLabelClicked(); });
    }
    applySubtitleColour();
}

void PanelWindow::applyPaletteColours()
{
    const QPalette pal = palette();
    m_gearButton->setIcon(tintedIcon(QStringLiteral(":/icons/gear.svg"), pal.color(QPalette::WindowText)));
    // Themes that set no placeholder colour leave Qt's grey for light palettes, unreadable on a dark one.
    QPalette search = m_searchBar->palette();
    QColor placeholder = pal.color(QPalette::PlaceholderText);
    if (contrastRatio(placeholder, pal.color(QPalette::Base)) < 3.0) {
        placeholder = pal.color(QPalette::Text);
        placeholder.setAlphaF(0.6f);
    }
    search.setColor(QPalette::PlaceholderText, placeholder);
    m_searchBar->setPalette(search);
    m_searchIcon->setIcon(tintedIcon(QStringLiteral(":/icons/search.svg"), placeholder));
    applySubtitleColour();
}

void PanelWindow::applySubtitleColour()
{
    QPalette pal = m_subtitleLabel->palette();
    pal.setColor(QPalette::WindowText, m_subtitleTag == 1 ? usedColor(palette()) : cleanedColor(palette()));
    m_subtitleLabel->setPalette(pal);
}

QColor PanelWindow::subtitleColor() const
{
    return m_subtitleLabel->palette().color(QPalette::WindowText);
}

QString PanelWindow::titleText() const
{
    return m_percentLabel->text();
}

QString PanelWindow::subtitleText() const
{
    return m_subtitleLabel->text();
}

QString PanelWindow::lastCleanedText() const
{
    return m_pInfoCleanedSizeString;
}

// Disclosure.

bool PanelWindow::isDisclosureButtonExpanded() const
{
    return m_disclosureButton->isChecked();
}

void PanelWindow::expandDisclosureButton()
{
    m_disclosureButton->setChecked(true);
    openDetailedModeButtonPressed();
}

void PanelWindow::openDetailedModeButtonPressed()
{
    changeWindowStateTo(ByDisclosure);
}

void PanelWindow::setDiskUsageView(AdBasedOnSpotlightVC* view)
{
    m_diskUsageView = view;
    static_cast<QVBoxLayout*>(m_view->layout())->addWidget(view);
    changeWindowStateTo(m_state);
}

void PanelWindow::changeWindowStateTo(int state)
{
    m_state = state;
    const bool expanded = state == ByDisclosure && isDisclosureButtonExpanded();
    m_memoryPart->setVisible(expanded);
    if (m_diskUsageView)
        m_diskUsageView->changeToCompactMode(!expanded);
    m_disclosureButton->setArrowType(expanded ? Qt::DownArrow : Qt::RightArrow);
    if (state == ByDisclosure) {
        setIsLastStateDetailed(m_settings, expanded);
        if (expanded != m_expanded) {
            m_expanded = expanded;
            m_delegate.panelDetailedStateChanged(expanded);
        }
    }
    applyHeight();
}

bool PanelWindow::isLastSateDetailed(Settings& settings)
{
    return settings.defaults().boolForKey(SettingsKey::PanelWindowSateIsDetailed);
}

void PanelWindow::setIsLastStateDetailed(Settings& settings, bool detailed)
{
    settings.defaults().setObject(detailed, SettingsKey::PanelWindowSateIsDetailed);
}

// Search hand-off.

void PanelWindow::controlTextDidEndEditing()
{
    const QString text = m_searchBar->text();
    if (text.isEmpty())
        return;
    m_delegate.panelSearchRequested(text);
    if (m_locked)
        close();
}
