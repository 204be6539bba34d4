// The results window: layout, the search flow, filtering and sorting. The actions on files are in
// SearchResultWC_Actions.cpp.
#include "SearchResultWC.h"

#include "ExactWindowTitle.h"
#include "QuickLookController.h"
#include "SearchResultModel.h"
#include "SearchResultStrings.h"
#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "core/Texts.h"
#include "hidden/HiddenManager.h"
#include "search/FinderCommunicator.h"
#include "search/SearchResultSort.h"
#include "util/VolumeName.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QTableView>
#include <QToolButton>
#include <QVBoxLayout>
#include <QtConcurrent>

namespace {

QString displayName()
{
    return QGuiApplication::applicationDisplayName();
}

// The sort direction of each column, for the whole process: true compares a against b.
std::array<bool, 5> g_sortAscending{true, true, true, true, true};

// The user's Trash folder; its items are drawn like hidden ones.
QByteArray trashFolder()
{
    QString data = QString::fromLocal8Bit(qgetenv("XDG_DATA_HOME"));
    if (data.isEmpty() || !QDir::isAbsolutePath(data))
        data = QDir::homePath() + QStringLiteral("/.local/share");
    return SearchPaths::collapseSlashes(QFile::encodeName(data + QStringLiteral("/Trash")));
}

constexpr int kLocationDisk = 0;
constexpr int kLocationHome = 1;
constexpr int kLocationCustom = 2;

} // namespace

SearchResultWC::SearchResultWC(Collaborators c, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_searchManager(c.searchManager ? *c.searchManager : *SearchManager::sharedManager())
    , m_settings(c.settings ? *c.settings : Settings::shared())
    , m_center(c.center ? *c.center : NotificationCenter::defaultCenter())
    , m_hiddenManager(c.hiddenManager)
    , m_communicator(c.communicator)
    , m_quickLook(c.quickLook)
    , m_prompts(c.prompts ? *c.prompts : SearchResultPrompts::dialogs())
    , m_setStatusToolTip(std::move(c.setStatusToolTip))
    , m_openUrl(std::move(c.openUrl))
    , m_showItems(std::move(c.showItems))
    , m_showItemProperties(std::move(c.showItemProperties))
    , m_searchResultArray(m_searchManager.getSearchResultArray())
    , m_filteredSearchResultArray(m_searchManager.getFilteredSearchResultArray())
    , m_trashFolder(trashFolder())
{
    setObjectName(QStringLiteral("searchResultWindow"));
    setWindowTitle(displayName());
    m_model = new SearchResultModel(m_filteredSearchResultArray, this);
    m_model->setTrashFolder(m_trashFolder);
    buildWindow();
    buildMenu();

    m_searchManager.setSearchResultDialog(this);
    m_filterMask = SearchItemClass::Regular | SearchItemClass::Hidden;
    m_searchManager.setFilterMask(m_filterMask);
    // The lists may already hold a search that ran before the window existed.
    m_model->endListChange(static_cast<int>(m_filteredSearchResultArray.size()));
    m_customFolderButtonSearchLocation = [this] {
        const QVariant stored = m_settings.getCustomFolderButtonSearchLocation();
        return stored.typeId() == QMetaType::QUrl ? stored.toUrl().toLocalFile() : stored.toString();
    }();
    checkCustomFolderAndUpdateButtons();
    updatePathButtonsWithButtonPressedWithTag(tagForLocation(currentLocation()));
    showPathControl(m_searchManager.searchLocation());
    resetSearchBar();
    updateAllFilteringButtons();
    selectionChanged();

    m_timer.setInterval(kRowTimerMs);
    connect(&m_timer, &QTimer::timeout, this, &SearchResultWC::addRowAtTableView);
    m_timerForFoundLabel.setInterval(kCounterTimerMs);
    connect(&m_timerForFoundLabel, &QTimer::timeout, this, &SearchResultWC::searchLabelUpdateTimer);
    m_startTimer.setSingleShot(true);
    m_startTimer.setInterval(100);
    connect(&m_startTimer, &QTimer::timeout, this, [this] {
        releaseResultsInBackground();
        m_searchManager.performSearchWithTemplate(m_pendingTemplate, m_pendingFolder);
    });
    connect(&m_listWatcher, &QFutureWatcher<QList<SearchItemPtr>>::finished, this, &SearchResultWC::onListJobFinished);

    m_center.addObserver(SearchManager::SearchManagerDidStartSearchNotification(), nullptr, this,
                         [this](const Notification&) { searchStarted(); });
    if (m_searchManager.isSearching())
        searchStarted();
}

SearchResultWC::~SearchResultWC()
{
    m_listJobs.clear();
    m_listWatcher.waitForFinished();
    if (m_searchManager.searchResultDialog() == this)
        m_searchManager.setSearchResultDialog(nullptr);
}

QToolButton* SearchResultWC::makeToolButton(const QString& name, const QString& text, bool checkable)
{
    auto* button = new QToolButton(this);
    button->setObjectName(name);
    button->setText(text);
    button->setCheckable(checkable);
    button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    button->setAutoRaise(false);
    return button;
}

QPushButton* SearchResultWC::makeActionButton(const QString& name, const QString& text)
{
    auto* button = new QPushButton(text, this);
    button->setObjectName(name);
    button->setAutoDefault(false);
    return button;
}

void SearchResultWC::buildWindow()
{
    resize(900, 560);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(10, 10, 10, 10);
    layout->setSpacing(8);

    // Search bar and locations.
    auto* top = new QHBoxLayout;
    m_searchBar = new QLineEdit(this);
    m_searchBar->setObjectName(QStringLiteral("searchBar"));
    m_searchBar->setPlaceholderText(SearchResultStrings::text("Search_placeholder", "Search files by name"));
    m_searchBar->setClearButtonEnabled(true);
    m_searchBar->addAction(QIcon(QStringLiteral(":/icons/search.svg")), QLineEdit::LeadingPosition);
    connect(m_searchBar, &QLineEdit::returnPressed, this, &SearchResultWC::searchBarReturnPressed);
    top->addWidget(m_searchBar, 1);
    m_locationButtons[kLocationDisk] =
        makeToolButton(QStringLiteral("selectMacForSearchButton"),
                       SearchResultStrings::text("Location_whole_disk", "Whole Disk"), true);
    m_locationButtons[kLocationHome] = makeToolButton(QStringLiteral("selectUserFolderForSearchButton"),
                                                      SearchResultStrings::text("Location_user_folder", "Home"), true);
    m_locationButtons[kLocationCustom] =
        makeToolButton(QStringLiteral("selectCustomFolderForSearchButton"),
                       SearchResultStrings::text("Location_custom_folder", "Custom Folder..."), true);
    m_locationButtons[kLocationDisk]->setIcon(QIcon::fromTheme(QStringLiteral("drive-harddisk")));
    m_locationButtons[kLocationHome]->setIcon(QIcon::fromTheme(QStringLiteral("user-home")));
    m_locationButtons[kLocationCustom]->setIcon(QIcon::fromTheme(QStringLiteral("folder")));
    m_chooseCustomFolderButton =
        makeToolButton(QStringLiteral("selectCustomFolderForSearchButton3p"), QStringLiteral("\u2026"), false);
    m_chooseCustomFolderButton->setToolTip(
        SearchResultStrings::text("Choose_custom_folder", "Choose a Folder to Search"));
    connect(m_locationButtons[kLocationDisk], &QToolButton::clicked, this,
            &SearchResultWC::selectMacForSearchButtonPressed);
    connect(m_locationButtons[kLocationHome], &QToolButton::clicked, this,
            &SearchResultWC::selectUserFolderForSearchButtonPressed);
    connect(m_locationButtons[kLocationCustom], &QToolButton::clicked, this,
            &SearchResultWC::selectCustomFolderForSearchButtonPressed);
    connect(m_chooseCustomFolderButton, &QToolButton::clicked, this, &SearchResultWC::chooseCustomFolderPressed);
    auto* locations = new QHBoxLayout;
    locations->setSpacing(0);
    for (QToolButton* button : m_locationButtons)
        locations->addWidget(button);
    locations->addWidget(m_chooseCustomFolderButton);
    top->addLayout(locations);
    layout->addLayout(top);

    // Filters, the searched folder and the search's progress.
    auto* filters = new QHBoxLayout;
    m_filterShowRegularButton = makeToolButton(QStringLiteral("filterShowRegularButton"),
                                               SearchResultStrings::text("Filter_regular", "Regular"), true);
    m_filterShowRegularButton->setIcon(QIcon(QStringLiteral(":/icons/icon_files.svg")));
    m_filterShowRegularButton->setToolTip(SearchResultStrings::text("Filter_regular_tooltip", "Show regular files"));
    m_filterShowHiddenButton = makeToolButton(QStringLiteral("filterShowHiddenButton"),
                                              SearchResultStrings::text("Filter_hidden", "Hidden"), true);
    m_filterShowHiddenButton->setIcon(QIcon(QStringLiteral(":/icons/icon_hidden_files.svg")));
    m_filterShowHiddenButton->setToolTip(
        SearchResultStrings::text("Filter_hidden_tooltip", "Show hidden files and files in hidden folders"));
    m_filterShowPackagedButton = makeToolButton(QStringLiteral("filterShowPackagedButton"),
                                                SearchResultStrings::text("Filter_packaged", "Package Contents"), true);
    m_filterShowPackagedButton->setIcon(QIcon(QStringLiteral(":/icons/icon_box.svg")));
    m_filterShowPackagedButton->setToolTip(
        SearchResultStrings::text("Filter_packaged_tooltip", "Show files inside packages"));
    connect(m_filterShowRegularButton, &QToolButton::clicked, this, &SearchResultWC::filterShowRegularButtonPressed);
    connect(m_filterShowHiddenButton, &QToolButton::clicked, this, &SearchResultWC::filterShowHiddenButtonPressed);
    connect(m_filterShowPackagedButton, &QToolButton::clicked, this, &SearchResultWC::filterShowPackagedButtonPressed);
    m_filterHiddenPopupButton = new QComboBox(this);
    m_filterHiddenPopupButton->setObjectName(QStringLiteral("filterHiddenPopupButton"));
    m_filterHiddenPopupButton->addItems({SearchResultStrings::text("Hidden_popup_show", "Show hidden files"),
                                         SearchResultStrings::text("Hidden_popup_only", "Only hidden files"),
                                         SearchResultStrings::text("Hidden_popup_all", "All files")});
    connect(m_filterHiddenPopupButton, &QComboBox::activated, this, &SearchResultWC::filterHiddenPopupChanged);
    filters->addWidget(m_filterShowRegularButton);
    filters->addWidget(m_filterShowHiddenButton);
    filters->addWidget(m_filterShowPackagedButton);
    filters->addWidget(m_filterHiddenPopupButton);
    filters->addSpacing(12);
    m_pathControl = new QLabel(this);
    m_pathControl->setObjectName(QStringLiteral("pathControl"));
    m_pathControl->setTextFormat(Qt::PlainText);
    m_pathControl->setTextInteractionFlags(Qt::TextSelectableByMouse);
    filters->addWidget(m_pathControl, 1);
    m_searchIndicator = new QProgressBar(this);
    m_searchIndicator->setObjectName(QStringLiteral("searchIndicator"));
    m_searchIndicator->setRange(0, 0);
    m_searchIndicator->setMaximumWidth(80);
    m_searchIndicator->setMaximumHeight(14);
    m_searchIndicator->setTextVisible(false);
    m_searchIndicator->hide();
    m_searchStatLabel = new QLabel(this);
    m_searchStatLabel->setObjectName(QStringLiteral("searchStatLabel"));
    m_stopSearchButton =
        makeActionButton(QStringLiteral("stopSearchButton"), SearchResultStrings::text("Stop_button", "Stop"));
    m_stopSearchButton->setIcon(QIcon::fromTheme(QStringLiteral("process-stop")));
    m_stopSearchButton->hide();
    connect(m_stopSearchButton, &QPushButton::clicked, this, [this] { m_searchManager.cancelSearchByButton(); });
    filters->addWidget(m_searchIndicator);
    filters->addWidget(m_searchStatLabel);
    filters->addWidget(m_stopSearchButton);
    layout->addLayout(filters);

    // The table.
    m_table = new QTableView(this);
    m_table->setObjectName(QStringLiteral("searchResultTableView"));
    m_table->setModel(m_model);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setShowGrid(false);
    m_table->setAlternatingRowColors(true);
    m_table->setWordWrap(false);
    m_table->setTextElideMode(Qt::ElideMiddle);
    m_table->setContextMenuPolicy(Qt::CustomContextMenu);
    m_table->setIconSize(QSize(16, 16));
    // Fixed row heights: a million rows are laid out without asking each one.
    m_table->verticalHeader()->hide();
    m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_table->verticalHeader()->setDefaultSectionSize(m_table->fontMetrics().height() + 8);
    QHeaderView* header = m_table->horizontalHeader();
    header->setSectionsClickable(true);
    header->setSortIndicatorShown(false);
    header->setHighlightSections(false);
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->setStretchLastSection(false);
    header->resizeSection(SearchResultModel::NameColumn, 300);
    header->resizeSection(SearchResultModel::FolderColumn, 190);
    header->resizeSection(SearchResultModel::SizeColumn, 90);
    header->resizeSection(SearchResultModel::DateColumn, 160);
    header->setSectionResizeMode(SearchResultModel::TypeColumn, QHeaderView::Stretch);
    connect(header, &QHeaderView::sectionClicked, this, [this](int column) {
        if (const auto key = SearchResultSort::descriptorKey(static_cast<SearchSortKey>(column)); !key.isEmpty())
            sortDescriptorsDidChange(key);
    });
    m_table->installEventFilter(this);
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, &SearchResultWC::selectionChanged);
    connect(m_table, &QTableView::doubleClicked, this, &SearchResultWC::openMenuItemPressed);
    layout->addWidget(m_table, 1);

    m_nothingFoundStatLabel = new QLabel(this);
    m_nothingFoundStatLabel->setObjectName(QStringLiteral("nothingFoundStatLabel"));
    m_nothingFoundStatLabel->setAlignment(Qt::AlignCenter);
    m_nothingFoundStatLabel->setTextFormat(Qt::PlainText);
    m_nothingFoundStatLabel->hide();
    layout->addWidget(m_nothingFoundStatLabel);

    // Actions.
    auto* bottom = new QHBoxLayout;
    m_copyActionButton =
        makeActionButton(QStringLiteral("copyActionButton"), SearchResultStrings::text("Copy_button", "Copy..."));
    m_copyActionButton->setIcon(QIcon::fromTheme(QStringLiteral("edit-copy")));
    m_moveActionButton =
        makeActionButton(QStringLiteral("moveActionButton"), SearchResultStrings::text("Move_button", "Move..."));
    m_moveActionButton->setIcon(QIcon::fromTheme(QStringLiteral("go-next")));
    m_deleteActionButton = makeActionButton(QStringLiteral("deleteActionButton"),
                                            SearchResultStrings::text("Delete_button", "Move to Trash"));
    m_deleteActionButton->setIcon(QIcon::fromTheme(QStringLiteral("user-trash")));
    m_exportButton =
        makeActionButton(QStringLiteral("exportButton"), SearchResultStrings::text("Export_button", "Export..."));
    connect(m_copyActionButton, &QPushButton::clicked, this, &SearchResultWC::copyActionButtonPressed);
    connect(m_moveActionButton, &QPushButton::clicked, this, &SearchResultWC::moveActionButtonPressed);
    connect(m_deleteActionButton, &QPushButton::clicked, this, &SearchResultWC::deleteActionButtonPressed);
    connect(m_exportButton, &QPushButton::clicked, this, &SearchResultWC::exportButtonPressed);
    bottom->addWidget(m_exportButton);
    bottom->addStretch();
    bottom->addWidget(m_copyActionButton);
    bottom->addWidget(m_moveActionButton);
    bottom->addWidget(m_deleteActionButton);
    layout->addLayout(bottom);
}

void SearchResultWC::buildMenu()
{
    m_contextMenu = new QMenu(this);
    m_contextMenu->setObjectName(QStringLiteral("contextMenu"));
    const auto add = [this](const char* key, const char* english, const QKeySequence& keys,
                            void (SearchResultWC::*slot)()) {
        QAction* action = m_contextMenu->addAction(SearchResultStrings::text(key, english));
        action->setObjectName(QString::fromLatin1(key));
        action->setShortcut(keys);
        action->setShortcutVisibleInContextMenu(true);
        // The table's own key handling runs these; the menu only shows the keys.
        action->setShortcutContext(Qt::WidgetShortcut);
        connect(action, &QAction::triggered, this, slot);
    };
    add("Menu_open", "Open", QKeySequence(Qt::Key_Return), &SearchResultWC::openMenuItemPressed);
    add("Menu_quick_look", "Quick Look", QKeySequence(Qt::Key_Space), &SearchResultWC::quickLookMenuItemPressed);
    add("Menu_show_in_finder", "Show in Finder", QKeySequence(Qt::CTRL | Qt::Key_Return),
        &SearchResultWC::showInFinderMenuItemPressed);
    add("Menu_get_info", "Get Info", QKeySequence(Qt::CTRL | Qt::Key_I), &SearchResultWC::getInfoMenuItemPressed);
    m_contextMenu->addSeparator();
    add("Menu_copy_name", "Copy Name", QKeySequence(Qt::CTRL | Qt::Key_C), &SearchResultWC::copyNameMenuItemPressed);
    add("Menu_copy_path", "Copy Path", QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_C),
        &SearchResultWC::copyPathnameMenuItemPressed);
    m_contextMenu->addSeparator();
    add("Menu_copy_to_folder", "Copy to Folder...", QKeySequence(Qt::CTRL | Qt::Key_D),
        &SearchResultWC::copyToFolderMenuItemPressed);
    add("Menu_move_to_folder", "Move to Folder...", QKeySequence(Qt::CTRL | Qt::Key_Right),
        &SearchResultWC::moveToFolderMenuItemPressed);
    add("Menu_remove", "Move to Trash", QKeySequence(Qt::Key_Delete), &SearchResultWC::removeMenuItemPressed);
    for (QAction* action : m_contextMenu->actions())
        action->setText(Texts::platformWords(action->text()));
    connect(m_table, &QTableView::customContextMenuRequested, this, [this](const QPoint& pos) {
        const QModelIndex index = m_table->indexAt(pos);
        if (!index.isValid())
            return;
        // A right click outside the selection acts on the clicked row alone.
        if (!m_table->selectionModel()->isRowSelected(index.row(), {}))
            m_table->selectionModel()->setCurrentIndex(index,
                                                       QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        m_contextMenu->popup(m_table->viewport()->mapToGlobal(pos));
    });
}

bool SearchResultWC::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != m_table || event->type() != QEvent::KeyPress)
        return QWidget::eventFilter(watched, event);
    auto* key = static_cast<QKeyEvent*>(event);
    const Qt::KeyboardModifiers mods = key->modifiers() & ~Qt::KeypadModifier;
    const bool ctrl = mods == Qt::ControlModifier;
    const bool plain = mods == Qt::NoModifier;
    std::function<void()> action;
    switch (key->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (plain)
            action = [this] { openMenuItemPressed(); };
        else if (ctrl)
            action = [this] { showInFinderMenuItemPressed(); };
        break;
    case Qt::Key_Space:
        if (plain)
            action = [this] { quickLookMenuItemPressed(); };
        break;
    case Qt::Key_I:
        if (ctrl)
            action = [this] { getInfoMenuItemPressed(); };
        break;
    case Qt::Key_C:
        if (ctrl)
            action = [this] { copyNameMenuItemPressed(); };
        else if (mods == (Qt::ControlModifier | Qt::AltModifier))
            action = [this] { copyPathnameMenuItemPressed(); };
        break;
    case Qt::Key_D:
        if (ctrl)
            action = [this] { copyToFolderMenuItemPressed(); };
        break;
    case Qt::Key_Right:
        if (ctrl)
            action = [this] { moveToFolderMenuItemPressed(); };
        break;
    case Qt::Key_Backspace:
        if (ctrl)
            action = [this] { removeMenuItemPressed(); };
        break;
    case Qt::Key_Delete:
        if (plain)
            action = [this] { removeMenuItemPressed(); };
        break;
    default:
        break;
    }
    if (!action)
        return QWidget::eventFilter(watched, event);
    action();
    return true;
}

void SearchResultWC::showEvent(QShowEvent* event)
{
    // The keys act on the rows as soon as the window opens.
    if (!focusWidget())
        m_table->setFocus(Qt::OtherFocusReason);
    QWidget::showEvent(event);
    applyExactWindowTitle(this);
}

bool SearchResultWC::event(QEvent* event)
{
    const bool handled = QWidget::event(event);
    if (event->type() == QEvent::WindowTitleChange || event->type() == QEvent::WinIdChange)
        applyExactWindowTitle(this);
    return handled;
}

// The search flow.

void SearchResultWC::prepareForNewSearchResults()
{
    // The manager has just emptied both lists: the table follows at once, and any list work on the old
    // contents is dropped.
    m_startTimer.stop();
    ++m_listEpoch;
    m_listJobs.clear();
    m_model->beginListChange();
    m_model->endListChange(0);
    m_nothingFoundStatLabel->hide();
}

void SearchResultWC::searchStarted()
{
    m_isSearchOn = true;
    m_lastSearchStoppedForNew = false;
    updateStatusToolTip(false);
    m_stopSearchButton->show();
    updateActionButtonsWithEnableState(false);
    enableAllFilteringButtons(false);
    m_filterHiddenPopupButton->setCurrentIndex(0);
    setWindowTitle(SearchResultStrings::format("Window_title_searching", "%@ - Searching files", {displayName()}));
    m_searchStatLabel->setText(
        SearchResultStrings::format("Found_counter", "Found %ld / %ld", {QStringLiteral("0"), QStringLiteral("0")}));
    m_nothingFoundStatLabel->hide();
    showPathControl(m_searchManager.searchLocation());
    resetSearchBar();
    updatePathButtonsWithButtonPressedWithTag(tagForLocation(m_searchManager.searchLocation()));
    m_searchIndicator->show();
    startTimers();
}

void SearchResultWC::startTimers()
{
    m_timer.start();
    m_timerForFoundLabel.start();
}

void SearchResultWC::stopTimers()
{
    m_timer.stop();
    m_timerForFoundLabel.stop();
}

void SearchResultWC::updateSearchResults()
{
    m_searchStatLabel->setText(SearchResultStrings::format(
        "Found_counter", "Found %ld / %ld",
        {QString::number(m_searchResultArray.size()), QString::number(m_searchManager.totalFiles())}));
}

int SearchResultWC::rowsAdded() const
{
    return m_model->rowsShown();
}

void SearchResultWC::addRowAtTableView()
{
    QElapsedTimer stall;
    stall.start();
    m_model->addPendingRows();
    selectFirstRowIfNone();
    noteStall(stall.elapsed());
}

void SearchResultWC::selectFirstRowIfNone()
{
    if (m_model->rowsShown() > 0 && !m_table->selectionModel()->hasSelection())
        m_table->selectionModel()->setCurrentIndex(m_model->index(0, 0),
                                                   QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

void SearchResultWC::searchCompleted()
{
    m_isSearchOn = false;
    updateStatusToolTip(true);
    m_stopSearchButton->hide();
    enableAllFilteringButtons(true);
    updateSearchResults();
    updateWindowTitle();
    if (m_searchResultArray.isEmpty()) {
        m_nothingFoundStatLabel->setText(SearchResultStrings::format("Nothing_found", "Nothing found for \"%@\"",
                                                                     {m_searchManager.searchTemplate()}));
        m_nothingFoundStatLabel->show();
    }
    showPathControl(m_searchManager.searchLocation());
    addRowAtTableView();
    m_searchIndicator->hide();
    stopTimers();
    selectionChanged();
    ifFilteredNotFound();
}

void SearchResultWC::updateWindowTitle()
{
    if (m_isSearchOn)
        return;
    setWindowTitle(SearchResultStrings::format(
        "Window_title_results", "%@ - Search results for \"%@\", found %ld",
        {displayName(), m_searchManager.searchTemplate(), QString::number(m_searchResultArray.size())}));
}

QString SearchResultWC::folderDisplayName(const QString& folder) const
{
    if (folder.isEmpty())
        return QString();
    const QString clean = QDir::cleanPath(folder);
    if (clean == QLatin1String("/")) {
        const std::optional<QString> volume = VolumeName::volumeName(clean);
        return volume && !volume->isEmpty() ? *volume : clean;
    }
    return QFileInfo(clean).fileName();
}

void SearchResultWC::updateStatusToolTip(bool completed)
{
    if (!m_setStatusToolTip)
        return;
    const QString name = displayName();
    const QString text = m_searchManager.searchTemplate();
    const QString folder = folderDisplayName(m_searchManager.searchLocation());
    if (!completed) {
        m_setStatusToolTip(
            SearchResultStrings::format("Tooltip_searching", "%@\nSearching \"%@\"\nfor \"%@\"", {name, text, folder}));
        return;
    }
    const qsizetype n = m_searchResultArray.size();
    if (n == 0)
        m_setStatusToolTip(SearchResultStrings::format("Tooltip_none_found", "%@\nNo file found by \"%@\"\nfor \"%@\"",
                                                       {name, text, folder}));
    else if (n == 1)
        m_setStatusToolTip(SearchResultStrings::format("Tooltip_one_found", "%@\n1 file found by \"%@\"\nfor \"%@\"",
                                                       {name, text, folder}));
    else
        m_setStatusToolTip(SearchResultStrings::format("Tooltip_many_found",
                                                       "%@\n%ld files found by \"%@\"\nfor \"%@\"",
                                                       {name, QString::number(n), text, folder}));
}

void SearchResultWC::showPathControl(const QString& path)
{
    if (path.isEmpty()) {
        m_pathControl->setText(m_searchManager.searchTemplate());
        m_pathControl->setToolTip(QString());
        return;
    }
    const QString clean = QDir::cleanPath(path);
    QStringList crumbs{folderDisplayName(QStringLiteral("/"))};
    crumbs += clean.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    m_pathControl->setText(crumbs.join(QStringLiteral(" \u203A ")));
    m_pathControl->setToolTip(clean);
}

SearchResultPrompts::Question SearchResultWC::question(const QString& title, const QString& text,
                                                       const QStringList& buttons, bool suppressionBox) const
{
    SearchResultPrompts::Question q;
    q.title = Texts::platformWords(title);
    q.text = Texts::platformWords(text);
    q.buttons = buttons;
    q.suppressionBox = suppressionBox;
    return q;
}

void SearchResultWC::ifFilteredNotFound()
{
    if (!m_filteredSearchResultArray.isEmpty() || m_searchResultArray.isEmpty() || m_lastSearchStoppedForNew)
        return;
    if (m_newSearchQuestionOpen) {
        m_filteredQuestionDeferred = true;
        return;
    }
    const uint found = m_searchManager.foundItemsMask();
    uint bit = 0;
    SearchResultPrompts::Question q;
    const QStringList buttons{SearchResultStrings::text("Yes", "Yes"), SearchResultStrings::text("No", "No")};
    if (found & SearchItemClass::Regular) {
        bit = SearchItemClass::Regular;
        q = question(SearchResultStrings::text("Regular_found_title", "Regular files found"),
                     SearchResultStrings::text("Regular_found_text", "Would you like to display regular files?"),
                     buttons);
    } else if (found & SearchItemClass::Hidden) {
        bit = SearchItemClass::Hidden;
        q = question(SearchResultStrings::text("Hidden_found_title", "Hidden files found"),
                     SearchResultStrings::text("Hidden_found_text", "Would you like to display hidden files?"),
                     buttons);
    } else if (found & SearchItemClass::PackageContents) {
        bit = SearchItemClass::PackageContents;
        q = question(
            SearchResultStrings::text("Packaged_found_title", "Package contents found only"),
            SearchResultStrings::text("Packaged_found_text", "Would you like to display package contents files?"),
            buttons);
    } else {
        return;
    }
    q.applicationIcon = true;
    m_prompts.ask(this, q, [self = QPointer(this), bit](int button, bool) {
        if (!self || button != 0)
            return;
        self->m_filterMask = bit;
        self->m_searchManager.setFilterMask(bit);
        self->performAutomaticSearchResultsFilteringWithFilterMask();
    });
}

// Filtering.

void SearchResultWC::setFilterMask(uint mask)
{
    m_filterMask = mask & SearchItemClass::All;
    m_searchManager.setFilterMask(m_filterMask);
    updateAllFilteringButtons();
    performSearchResultsFiltering();
}

void SearchResultWC::performAutomaticSearchResultsFilteringWithFilterMask()
{
    performSearchResultsFiltering();
    updateAllFilteringButtons();
}

void SearchResultWC::performSearchResultsFiltering()
{
    runListJob([this]() -> ListJob {
        const uint mask = m_filterMask;
        // A shared copy: the manager's list is not changed while no search runs, and a change would
        // detach it, leaving this copy intact.
        const QList<SearchItemPtr> all = m_searchResultArray;
        return {[all, mask] {
                    QList<SearchItemPtr> out;
                    out.reserve(all.size());
                    for (const SearchItemPtr& item : all)
                        if (item->passesFilter(mask))
                            out.append(item);
                    return out;
                },
                [this](QList<SearchItemPtr>&& out) { swapFilteredList(std::move(out)); }};
    });
}

void SearchResultWC::updateAllFilteringButtons()
{
    m_filterShowRegularButton->setChecked(m_filterMask & SearchItemClass::Regular);
    m_filterShowHiddenButton->setChecked(m_filterMask & SearchItemClass::Hidden);
    m_filterShowPackagedButton->setChecked(m_filterMask & SearchItemClass::PackageContents);
}

void SearchResultWC::enableAllFilteringButtons(bool enabled)
{
    for (QWidget* w :
         {static_cast<QWidget*>(m_filterShowRegularButton), static_cast<QWidget*>(m_filterShowHiddenButton),
          static_cast<QWidget*>(m_filterShowPackagedButton), static_cast<QWidget*>(m_filterHiddenPopupButton)})
        w->setEnabled(enabled);
}

void SearchResultWC::filterShowRegularButtonPressed()
{
    setFilterMask(m_filterShowRegularButton->isChecked() ? m_filterMask | SearchItemClass::Regular
                                                         : m_filterMask & ~SearchItemClass::Regular);
}

void SearchResultWC::filterShowHiddenButtonPressed()
{
    setFilterMask(m_filterShowHiddenButton->isChecked() ? m_filterMask | SearchItemClass::Hidden
                                                        : m_filterMask & ~SearchItemClass::Hidden);
}

void SearchResultWC::filterShowPackagedButtonPressed()
{
    setFilterMask(m_filterShowPackagedButton->isChecked() ? m_filterMask | SearchItemClass::PackageContents
                                                          : m_filterMask & ~SearchItemClass::PackageContents);
}

void SearchResultWC::filterHiddenPopupChanged(int index)
{
    if (index == 0)
        setFilterMask(m_filterMask | SearchItemClass::Hidden);
    else if (index == 1)
        setFilterMask(SearchItemClass::Hidden);
    else if (index == 2)
        setFilterMask(SearchItemClass::All);
}

// Sorting.

void SearchResultWC::resetSortDirections()
{
    g_sortAscending.fill(true);
}

void SearchResultWC::sortDescriptorsDidChange(const QString& descriptor)
{
    const std::optional<SearchSortKey> key = SearchResultSort::keyFromDescriptor(descriptor);
    if (!key)
        return;
    const auto column = static_cast<size_t>(*key);
    const bool ascending = g_sortAscending.at(column);
    g_sortAscending.at(column) = !ascending;
    m_table->horizontalHeader()->setSortIndicatorShown(true);
    m_table->horizontalHeader()->setSortIndicator(static_cast<int>(column),
                                                  ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
    runListJob([this, key, ascending]() -> ListJob {
        QList<SearchItemPtr> copy = m_filteredSearchResultArray;
        const qsizetype counted = copy.size();
        return {[copy, key, ascending]() mutable {
                    SearchResultSort::sort(copy, *key, ascending);
                    return copy;
                },
                [this, counted](QList<SearchItemPtr>&& sorted) {
                    // Items a running search appended meanwhile stay behind the sorted ones.
                    sorted.append(m_filteredSearchResultArray.mid(counted));
                    swapFilteredList(std::move(sorted));
                }};
    });
}

// List work on a worker thread, one job at a time, in the order asked.

void SearchResultWC::runListJob(std::function<ListJob()> job)
{
    m_listJobs.push_back(std::move(job));
    startNextListJob();
}

void SearchResultWC::startNextListJob()
{
    if (m_listWatcher.isRunning() || m_listApply || m_listJobs.empty())
        return;
    QElapsedTimer stall;
    stall.start();
    ListJob job = m_listJobs.front()();
    m_listJobs.pop_front();
    m_listApply = std::move(job.apply);
    m_jobEpoch = m_listEpoch;
    m_listWatcher.setFuture(QtConcurrent::run(std::move(job.work)));
    noteStall(stall.elapsed());
}

void SearchResultWC::onListJobFinished()
{
    auto apply = std::move(m_listApply);
    m_listApply = nullptr;
    if (m_listWatcher.future().resultCount() > 0 && apply && m_jobEpoch == m_listEpoch) {
        QList<SearchItemPtr> result = m_listWatcher.future().takeResult();
        QElapsedTimer stall;
        stall.start();
        apply(std::move(result));
        noteStall(stall.elapsed());
        Q_EMIT listWorkDone();
    }
    m_listWatcher.setFuture(QFuture<QList<SearchItemPtr>>());
    startNextListJob();
}

bool SearchResultWC::isListWorkPending() const
{
    return m_listWatcher.isRunning() || m_listApply || !m_listJobs.empty();
}

void SearchResultWC::waitForListWork()
{
    while (isListWorkPending()) {
        m_listWatcher.waitForFinished();
        QCoreApplication::processEvents();
    }
}

void SearchResultWC::noteStall(qint64 ms)
{
    m_longestStallMs = std::max(m_longestStallMs, ms);
}

void SearchResultWC::swapFilteredList(QList<SearchItemPtr>&& list)
{
    const QList<SearchItemPtr> selected = selectedItems();
    const int scrollRow = m_table->rowAt(0);
    ++m_listEpoch;
    // While a search runs, only the rows shown so far stay shown; the rest come with the next step.
    const int shown =
        m_isSearchOn ? std::min(m_model->rowsShown(), static_cast<int>(list.size())) : static_cast<int>(list.size());
    m_model->beginListChange();
    QList<SearchItemPtr> old = std::exchange(m_filteredSearchResultArray, std::move(list));
    m_model->endListChange(shown);
    // Letting go of a million references takes a while: a worker does it.
    if (old.isDetached())
        QThreadPool::globalInstance()->start([old = std::move(old)]() mutable { old = {}; });
    restoreSelection(selected, scrollRow);
}

void SearchResultWC::restoreSelection(const QList<SearchItemPtr>& items, int scrollRow)
{
    QItemSelection selection;
    int first = -1;
    if (!items.isEmpty()) {
        QSet<const SearchItem*> wanted;
        for (const SearchItemPtr& item : items)
            wanted.insert(item.get());
        const int rows = m_model->rowsShown();
        const int lastColumn = SearchResultModel::ColumnCount - 1;
        int runStart = -1;
        for (int row = 0; row < rows; ++row) {
            const SearchItem* item = m_filteredSearchResultArray.at(row).get();
            if (wanted.remove(item)) {
                if (runStart < 0)
                    runStart = row;
                if (first < 0)
                    first = row;
            } else if (runStart >= 0) {
                selection.select(m_model->index(runStart, 0), m_model->index(row - 1, lastColumn));
                runStart = -1;
                if (wanted.isEmpty())
                    break;
            }
        }
        if (runStart >= 0)
            selection.select(m_model->index(runStart, 0), m_model->index(rows - 1, lastColumn));
    }
    if (first >= 0) {
        m_table->selectionModel()->setCurrentIndex(m_model->index(first, 0), QItemSelectionModel::NoUpdate);
        m_table->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
        m_table->scrollTo(m_model->index(first, 0));
    } else {
        selectFirstRowIfNone();
        if (scrollRow >= 0 && scrollRow < m_model->rowsShown())
            m_table->scrollTo(m_model->index(scrollRow, 0), QAbstractItemView::PositionAtTop);
    }
    selectionChanged();
}

// Selection.

QList<int> SearchResultWC::selectedRows() const
{
    QList<int> rows;
    for (const QModelIndex& index : m_table->selectionModel()->selectedRows())
        if (index.row() < m_model->rowsShown())
            rows.append(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

QList<SearchItemPtr> SearchResultWC::selectedItems() const
{
    QList<SearchItemPtr> items;
    for (int row : selectedRows())
        items.append(m_filteredSearchResultArray.at(row));
    return items;
}

void SearchResultWC::selectRows(const QList<int>& rows)
{
    QItemSelection selection;
    for (int row : rows)
        if (row >= 0 && row < m_model->rowsShown())
            selection.select(m_model->index(row, 0), m_model->index(row, SearchResultModel::ColumnCount - 1));
    m_table->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
    if (!rows.isEmpty())
        m_table->selectionModel()->setCurrentIndex(m_model->index(rows.first(), 0), QItemSelectionModel::NoUpdate);
}

void SearchResultWC::selectionChanged()
{
    updateActionButtonsWithEnableState(!m_isSearchOn);
}

void SearchResultWC::updateActionButtonsWithEnableState(bool enabled)
{
    const bool any = enabled && m_model->rowsShown() > 0 && m_table->selectionModel()->hasSelection();
    m_copyActionButton->setEnabled(any);
    m_moveActionButton->setEnabled(any);
    m_deleteActionButton->setEnabled(any);
    m_exportButton->setEnabled(enabled && m_model->rowsShown() > 0);
}

// Locations and new searches.

QString SearchResultWC::currentLocation() const
{
    const QString location = m_searchManager.searchLocation();
    return location.isEmpty() ? QDir::homePath() : location;
}

int SearchResultWC::tagForLocation(const QString& path) const
{
    if (path.isEmpty())
        return -1;
    const QString clean = QDir::cleanPath(path);
    if (clean == QLatin1String("/"))
        return kLocationDisk;
    if (clean == QDir::cleanPath(QDir::homePath()))
        return kLocationHome;
    if (!m_customFolderButtonSearchLocation.isEmpty() && clean == QDir::cleanPath(m_customFolderButtonSearchLocation))
        return kLocationCustom;
    return -1;
}

void SearchResultWC::updatePathButtonsWithButtonPressedWithTag(int tag)
{
    m_selectedLocationTag = tag;
    for (int i = 0; i < static_cast<int>(m_locationButtons.size()); ++i)
        m_locationButtons[static_cast<size_t>(i)]->setChecked(i == tag);
}

void SearchResultWC::updateCustomFolderForSearchButtonTitleWithPath(const QString& path)
{
    QToolButton* button = m_locationButtons[kLocationCustom];
    if (path.isEmpty()) {
        button->setText(SearchResultStrings::text("Location_custom_folder", "Custom Folder..."));
        button->setToolTip(QString());
        return;
    }
    button->setText(folderDisplayName(path));
    button->setToolTip(QDir::cleanPath(path));
}

void SearchResultWC::checkCustomFolderAndUpdateButtons()
{
    updateCustomFolderForSearchButtonTitleWithPath(m_customFolderButtonSearchLocation);
}

void SearchResultWC::resetSearchBar()
{
    m_searchBar->setText(m_searchManager.searchTemplate());
}

void SearchResultWC::showNewSearchAlertDialogWithCompletion(std::function<void()> completion,
                                                            std::function<void()> cancelled)
{
    const auto start = [this, completion] {
        if (m_isSearchOn)
            m_lastSearchStoppedForNew = true;
        completion();
    };
    if (!m_isSearchOn || m_settings.defaults().boolForKey(SettingsKey::DontShowNewSearchAlertDialog)) {
        start();
        return;
    }
    m_newSearchQuestionOpen = true;
    m_filteredQuestionDeferred = false;
    m_prompts.ask(
        this,
        question(SearchResultStrings::text("New_search_title", "Are you sure you want to start new search?"),
                 SearchResultStrings::text("New_search_text",
                                           "Current search will be cancelled and new search will be started."),
                 {SearchResultStrings::text("Start", "Start"), SearchResultStrings::text("Cancel", "Cancel")}, true),
        [self = QPointer(this), start, cancelled](int button, bool suppress) {
            if (!self)
                return;
            self->m_newSearchQuestionOpen = false;
            const bool deferred = std::exchange(self->m_filteredQuestionDeferred, false);
            if (suppress) {
                self->m_settings.defaults().saveBoolValue(true, SettingsKey::DontShowNewSearchAlertDialog);
                self->m_settings.defaults().synchronize();
            }
            if (button == 0) {
                // The search that ended meanwhile counts as stopped for the new one.
                if (deferred)
                    self->m_lastSearchStoppedForNew = true;
                start();
                return;
            }
            self->resetSearchBar();
            if (cancelled)
                cancelled();
            if (deferred)
                self->ifFilteredNotFound();
        });
}

void SearchResultWC::performSearchWithSelectedPath(const QString& path)
{
    if (path.isEmpty() || !QFileInfo::exists(path)) {
        SearchResultPrompts::Question q =
            question(SearchResultStrings::text("Missing_folder_title", "Can't search for desired folder"),
                     SearchResultStrings::format("Missing_folder_text",
                                                 "The folder %@ is not exist. Choose other folder to start searching.",
                                                 {QFileInfo(QDir::cleanPath(path)).fileName()}),
                     {SearchResultStrings::text("OK", "OK"), SearchResultStrings::text("Cancel", "Cancel")});
        q.warning = true;
        m_prompts.ask(this, q, [](int, bool) {});
        return;
    }
    m_searchManager.cancelSearchByButton();
    const QString typed = m_searchBar->text();
    // The template is stored when the search starts, so the cancelled search still ends under its own.
    m_pendingTemplate =
        !typed.isEmpty() && typed != m_searchManager.searchTemplate() ? typed : m_searchManager.searchTemplate();
    m_pendingFolder = path;
    m_searchManager.setSearchLocation(path);
    m_settings.saveSearchLocation(path);
    m_settings.defaults().synchronize();
    m_startTimer.start();
}

void SearchResultWC::releaseResultsInBackground()
{
    if (m_searchResultArray.isEmpty() && m_filteredSearchResultArray.isEmpty())
        return;
    ++m_listEpoch;
    m_listJobs.clear();
    m_model->beginListChange();
    QList<SearchItemPtr> all = std::exchange(m_searchResultArray, {});
    QList<SearchItemPtr> filtered = std::exchange(m_filteredSearchResultArray, {});
    m_model->endListChange(0);
    QThreadPool::globalInstance()->start([all = std::move(all), filtered = std::move(filtered)]() mutable {
        filtered = {};
        all = {};
    });
}

void SearchResultWC::searchBarReturnPressed()
{
    const QString location = currentLocation();
    showNewSearchAlertDialogWithCompletion([this, location] { performSearchWithSelectedPath(location); });
}

void SearchResultWC::searchLocationButtonPressed(int tag, const QString& folder)
{
    const int previous = m_selectedLocationTag;
    updatePathButtonsWithButtonPressedWithTag(tag);
    showNewSearchAlertDialogWithCompletion([this, folder] { performSearchWithSelectedPath(folder); },
                                           [this, previous] { updatePathButtonsWithButtonPressedWithTag(previous); });
}

void SearchResultWC::selectMacForSearchButtonPressed()
{
    searchLocationButtonPressed(kLocationDisk, QStringLiteral("/"));
}

void SearchResultWC::selectUserFolderForSearchButtonPressed()
{
    searchLocationButtonPressed(kLocationHome, QDir::homePath());
}

void SearchResultWC::selectCustomFolderForSearchButtonPressed()
{
    if (m_customFolderButtonSearchLocation.isEmpty()) {
        updatePathButtonsWithButtonPressedWithTag(m_selectedLocationTag);
        chooseCustomFolderPressed();
        return;
    }
    searchLocationButtonPressed(kLocationCustom, m_customFolderButtonSearchLocation);
}

void SearchResultWC::chooseCustomFolderPressed()
{
    m_prompts.chooseFolder(this, SearchResultStrings::text("Choose_custom_folder", "Choose a Folder to Search"),
                           SearchResultStrings::text("Ok", "Ok"), [self = QPointer(this)](const QString& folder) {
                               if (!self || folder.isEmpty())
                                   return;
                               self->m_customFolderButtonSearchLocation = QDir::cleanPath(folder);
                               self->m_settings.saveCustomFolderButtonSearchLocation(
                                   self->m_customFolderButtonSearchLocation);
                               self->m_settings.defaults().synchronize();
                               self->checkCustomFolderAndUpdateButtons();
                               self->selectCustomFolderForSearchButtonPressed();
                           });
}
