// The results window's actions on the selected rows: copy, move and trash through the file-operation
// scripts, reveal and properties through the file manager, open, copy name or path, preview, export.
// Every action works on the items' native paths, never on the texts shown.
#include "SearchResultWC.h"

#include "FileInfoDialog.h"
#include "QuickLookController.h"
#include "SearchResultModel.h"
#include "SearchResultStrings.h"
#include "core/Settings.h"
#include "core/Texts.h"
#include "hidden/HiddenManager.h"
#include "search/FileManagerBus.h"
#include "search/FinderCommunicator.h"
#include "search/SearchResultExport.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QSaveFile>
#include <QSet>
#include <QTableView>

namespace {

// One line a selected item into the clipboard; with nothing selected it keeps what it held.
void copyLines(const QList<SearchItemPtr>& items, const std::function<QByteArray(const SearchItem&)>& line)
{
    if (items.isEmpty())
        return;
    QStringList lines;
    for (const SearchItemPtr& item : items)
        lines.append(QFile::decodeName(line(*item)));
    QGuiApplication::clipboard()->setText(lines.join(QLatin1Char('\n')));
}

QList<QByteArray> pathsOf(const QList<SearchItemPtr>& items)
{
    QList<QByteArray> paths;
    paths.reserve(items.size());
    for (const SearchItemPtr& item : items)
        paths.append(item->nativeFullPath());
    return paths;
}

QUrl fileUrl(const QByteArray& path)
{
    // Percent-encoded bytes keep a name that is not UTF-8 intact.
    return QUrl::fromEncoded(FileManagerBus::fileUri(path), QUrl::StrictMode);
}

} // namespace

bool SearchResultWC::openUrl(const QUrl& url)
{
    return m_openUrl ? m_openUrl(url) : QDesktopServices::openUrl(url);
}

void SearchResultWC::alert(const QString& title, const QString& text)
{
    SearchResultPrompts::Question q = question(title, text, {SearchResultStrings::text("OK", "OK")});
    q.warning = true;
    m_prompts.ask(this, q, [](int, bool) {});
}

// Copy and move.

void SearchResultWC::doCopyOrMoveAction(int code, const QList<SearchItemPtr>& items)
{
    if (items.isEmpty() || (code != CopyAction && code != MoveAction))
        return;
    const bool anyInPackage =
        std::any_of(items.begin(), items.end(), [](const SearchItemPtr& item) { return item->fileInPackage; });
    const QString prompt =
        code == CopyAction ? SearchResultStrings::text("Copy", "Copy") : SearchResultStrings::text("Move", "Move");
    const auto choose = [self = QPointer(this), code, items, prompt] {
        if (!self)
            return;
        self->m_prompts.chooseFolder(
            self, SearchResultStrings::text("Select_destination", "Select Destination Folder"), prompt,
            [self, code, items](const QString& folder) {
                if (!self || folder.isEmpty())
                    return;
                const QByteArray destination = SearchPaths::collapseSlashes(QFile::encodeName(folder));
                for (const SearchItemPtr& item : items) {
                    if (SearchPaths::collapseSlashes(item->nativeFullPath()) != destination)
                        continue;
                    const QString verb = code == CopyAction ? SearchResultStrings::text("Verb_copy", "copy")
                                                            : SearchResultStrings::text("Verb_move", "move");
                    self->alert(SearchResultStrings::format(
                                    "Into_itself",
                                    "You can't %@ \"%@\" at this location because you can't %@ an item into itself.",
                                    {verb, QString::fromUtf8(SearchPaths::lastComponent(destination)), verb}),
                                QString());
                    return;
                }
                self->runFileOperation(code, items, destination);
            });
    };
    if (code == MoveAction && anyInPackage) {
        SearchResultPrompts::Question q =
            question(SearchResultStrings::text("Move_package_title",
                                               "Are you sure you want to move files from package contents?"),
                     SearchResultStrings::text("Package_text", "Changing package contents may corrupt the packages."),
                     {SearchResultStrings::text("Move", "Move"), SearchResultStrings::text("Cancel", "Cancel")});
        q.warning = true;
        m_prompts.ask(this, q, [choose](int button, bool) {
            if (button == 0)
                choose();
        });
        return;
    }
    choose();
}

// The trash.

void SearchResultWC::removeMenuItemPressed()
{
    const QList<SearchItemPtr> items = selectedItems();
    if (items.isEmpty())
        return;
    if (m_settings.defaults().boolForKey(SettingsKey::DontShowDeleteAlertDialog)) {
        doRemoveAction(RemoveAction, items);
        return;
    }
    m_prompts.ask(this,
                  question(SearchResultStrings::text("Delete_title", "Are you sure you want to remove selected files?"),
                           SearchResultStrings::text("Delete_text", "All selected files will be removed to Trash."),
                           {SearchResultStrings::text("Yes", "Yes"), SearchResultStrings::text("No", "No")}, true),
                  [self = QPointer(this), items](int button, bool suppress) {
                      if (!self || button != 0)
                          return;
                      if (suppress) {
                          self->m_settings.defaults().saveBoolValue(true, SettingsKey::DontShowDeleteAlertDialog);
                          self->m_settings.defaults().synchronize();
                      }
                      self->doRemoveAction(RemoveAction, items);
                  });
}

void SearchResultWC::doRemoveAction(int code, const QList<SearchItemPtr>& items)
{
    if (items.isEmpty())
        return;
    const bool anyInPackage =
        std::any_of(items.begin(), items.end(), [](const SearchItemPtr& item) { return item->fileInPackage; });
    if (!anyInPackage) {
        runFileOperation(code, items, {});
        return;
    }
    SearchResultPrompts::Question q =
        question(SearchResultStrings::text("Remove_package_title",
                                           "Are you sure you want to remove files from package contents?"),
                 SearchResultStrings::text("Package_text", "Changing package contents may corrupt the packages."),
                 {SearchResultStrings::text("Remove", "Remove"), SearchResultStrings::text("Cancel", "Cancel")});
    q.warning = true;
    m_prompts.ask(this, q, [self = QPointer(this), code, items](int button, bool) {
        if (self && button == 0)
            self->runFileOperation(code, items, {});
    });
}

void SearchResultWC::runFileOperation(int code, const QList<SearchItemPtr>& items, const QByteArray& destination)
{
    FinderCommunicator& communicator = m_communicator ? *m_communicator : FinderCommunicator::sharedCommunicator();
    QList<QByteArray> list = pathsOf(items);
    auto done = [self = QPointer(this), code, items, destination](const FileOperationResult& result) {
        if (self)
            self->fileOperationEnded(code, items, destination, result);
    };
    bool started = false;
    if (code == CopyAction) {
        list.prepend(destination);
        started = communicator.doCopyFiles(list, done);
    } else if (code == MoveAction) {
        list.prepend(destination);
        started = communicator.doMoveFiles(list, done);
    } else if (communicator.checkRemoveFilesScript()) {
        started = communicator.doRemoveFiles(list, done);
    }
    if (!started) {
        alert(SearchResultStrings::text("Operation_not_started", "The file operation could not be started."),
              QString());
        Q_EMIT actionFinished(code, pathsOf(items));
    }
}

void SearchResultWC::fileOperationEnded(int code, const QList<SearchItemPtr>& items, const QByteArray& destination,
                                        const FileOperationResult& result)
{
    // Only what was really done leaves the list; the rest stays where the user can see it.
    const QSet<QByteArray> failed(result.failedPaths.begin(), result.failedPaths.end());
    QList<SearchItemPtr> doneItems;
    for (const SearchItemPtr& item : items)
        if (!failed.contains(item->nativeFullPath()))
            doneItems.append(item);
    if (!result.success && failed.isEmpty())
        doneItems.clear(); // failed without saying which: nothing is assumed done
    updateSearchResultsAfterAction(code, destination, doneItems);
    if (!result.success) {
        const QString what = code == CopyAction   ? SearchResultStrings::text("Done_copied", "copied")
                             : code == MoveAction ? SearchResultStrings::text("Done_moved", "moved")
                                                  : SearchResultStrings::text("Done_trashed", "moved to the Trash");
        alert(SearchResultStrings::format("Operation_failed_title", "Some files could not be %@", {what}),
              result.error);
    }
    QList<QByteArray> notDone;
    for (const SearchItemPtr& item : items)
        if (!doneItems.contains(item))
            notDone.append(item->nativeFullPath());
    Q_EMIT actionFinished(code, notDone);
}

void SearchResultWC::updateSearchResultsAfterAction(int code, const QByteArray&, const QList<SearchItemPtr>& done)
{
    if (code == CopyAction || done.isEmpty()) {
        updateWindowTitle();
        return;
    }
    QElapsedTimer stall;
    stall.start();
    QSet<const SearchItem*> doomed;
    for (const SearchItemPtr& item : done)
        doomed.insert(item.get());
    QList<int> indexes;
    for (int row = 0; row < m_filteredSearchResultArray.size() && indexes.size() < doomed.size(); ++row)
        if (doomed.contains(m_filteredSearchResultArray.at(row).get()))
            indexes.append(row);
    if (indexes.isEmpty()) {
        updateWindowTitle();
        return;
    }
    QList<SearchItemPtr> keepSelected;
    for (const SearchItemPtr& item : selectedItems())
        if (!doomed.contains(item.get()))
            keepSelected.append(item);
    const int scrollRow = m_table->rowAt(0);
    const int shownBefore = m_model->rowsShown();
    const bool allShown = shownBefore == m_filteredSearchResultArray.size();
    // While a search runs, a shared copy tells which shown rows remain (the removal keeps the order).
    const QList<SearchItemPtr> before = allShown ? QList<SearchItemPtr>() : m_filteredSearchResultArray;
    ++m_listEpoch;
    m_model->beginListChange();
    m_searchManager.removeItemsWithIndexSet(indexes);
    int shown = static_cast<int>(m_filteredSearchResultArray.size());
    if (!allShown) {
        shown = 0;
        for (int i = 0; i < shownBefore && shown < m_filteredSearchResultArray.size(); ++i)
            if (m_filteredSearchResultArray.at(shown).get() == before.at(i).get())
                ++shown;
    }
    m_model->endListChange(shown);
    if (keepSelected.isEmpty() && shown > 0) {
        // The row that took the first removed one's place gets the selection, as in a file manager.
        selectRows({std::min(indexes.first(), shown - 1)});
        m_table->scrollTo(m_model->index(std::min(indexes.first(), shown - 1), 0));
        selectionChanged();
    } else {
        restoreSelection(keepSelected, std::min(scrollRow, shown - 1));
    }
    noteStall(stall.elapsed());
    updateWindowTitle();
    if (!m_isSearchOn)
        updateSearchResults();
}

// Reveal, properties, open.

void SearchResultWC::showInFinderMenuItemPressed()
{
    const QList<SearchItemPtr> items = selectedItems();
    if (items.isEmpty())
        return;
    const QList<QByteArray> paths = pathsOf(items);
    const bool anyHidden = std::any_of(items.begin(), items.end(), [](const SearchItemPtr& item) {
        return item->fileHidden || item->fileInHiddenFolder;
    });
    if (!anyHidden) {
        revealItems(paths);
        return;
    }
    if (m_hiddenManager && m_hiddenManager->isAllowedToWorkWithHiddenFiles())
        tryToShowHiddenFile(paths);
    else
        showInformationAlert(paths);
}

void SearchResultWC::tryToShowHiddenFile(const QList<QByteArray>& paths)
{
    if (!m_hiddenManager || m_hiddenManager->isHiddenShown() ||
        m_settings.defaults().boolForKey(kDontShowRevealHiddenKey)) {
        revealItems(paths);
        return;
    }
    m_prompts.ask(this,
                  question(SearchResultStrings::text("Hidden_reveal_title",
                                                     "Hidden files are not displayed in Finder. Would you like to make "
                                                     "hidden files visible in Finder?"),
                           SearchResultStrings::text("Hidden_reveal_text", "Finder will be relaunched if so."),
                           {SearchResultStrings::text("Yes", "Yes"), SearchResultStrings::text("No", "No")}, true),
                  [self = QPointer(this), paths](int button, bool suppress) {
                      if (!self)
                          return;
                      if (suppress) {
                          self->m_settings.defaults().saveBoolValue(true, kDontShowRevealHiddenKey);
                          self->m_settings.defaults().synchronize();
                      }
                      if (button != 0 || !self->m_hiddenManager)
                          return;
                      self->m_hiddenManager->switchHiddenFilesVisibilityWithCompletion([self, paths](const auto&) {
                          if (self)
                              self->revealItems(paths);
                      });
                  });
}

void SearchResultWC::showInformationAlert(const QList<QByteArray>& paths)
{
    m_prompts.ask(this,
                  question(SearchResultStrings::text("Reveal_info_title", "You try to reveal a hidden file in Finder"),
                           SearchResultStrings::text(
                               "Reveal_info_text",
                               "If hidden files are displayed in Finder click the Show button.\nIf not, click the "
                               "Instruction button to read how to display hidden files in Finder."),
                           {SearchResultStrings::text("Show", "Show"), SearchResultStrings::text("Cancel", "Cancel"),
                            SearchResultStrings::text("Instruction", "Instruction")}),
                  [self = QPointer(this), paths](int button, bool) {
                      if (!self)
                          return;
                      if (button == 0)
                          self->revealItems(paths);
                      else if (button == 2)
                          self->openUrl(QUrl(kInstructionPage));
                  });
}

void SearchResultWC::revealItems(const QList<QByteArray>& paths)
{
    auto fallback = [self = QPointer(this), paths](bool answered) {
        if (answered || !self)
            return;
        // No file manager answered: open each parent folder instead.
        QList<QByteArray> parents;
        for (const QByteArray& path : paths) {
            const QByteArray parent = SearchPaths::parentOf(SearchPaths::collapseSlashes(path));
            if (!parent.isEmpty() && !parents.contains(parent))
                parents.append(parent);
        }
        for (const QByteArray& parent : parents)
            self->openUrl(fileUrl(parent));
    };
    if (m_showItems)
        m_showItems(paths, fallback);
    else
        FileManagerBus::showItems(paths, fallback);
}

void SearchResultWC::getInfoMenuItemPressed()
{
    const QList<QByteArray> paths = pathsOf(selectedItems());
    if (paths.isEmpty())
        return;
    auto fallback = [self = QPointer(this), paths](bool answered) {
        if (!answered && self)
            self->showOwnInformation(paths);
    };
    if (m_showItemProperties)
        m_showItemProperties(paths, fallback);
    else
        FileManagerBus::showItemProperties(paths, fallback);
}

void SearchResultWC::showOwnInformation(const QList<QByteArray>& paths)
{
    // One window per file, as a file manager does; a long selection shows its first few.
    constexpr int kMostWindows = 10;
    for (int i = 0; i < paths.size() && i < kMostWindows; ++i) {
        auto* dialog = new FileInfoDialog(paths.at(i), this);
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->show();
    }
}

void SearchResultWC::openMenuItemPressed()
{
    const QList<SearchItemPtr> items = selectedItems();
    if (items.isEmpty())
        return;
    const QModelIndex current = m_table->currentIndex();
    const SearchItemPtr& item = current.isValid() && m_table->selectionModel()->isRowSelected(current.row(), {})
                                    ? m_filteredSearchResultArray.at(current.row())
                                    : items.first();
    openUrl(fileUrl(item->nativeFullPath()));
}

// Clipboard, preview, export.

void SearchResultWC::copyNameMenuItemPressed()
{
    copyLines(selectedItems(), [](const SearchItem& item) { return item.rawFileName; });
}

void SearchResultWC::copyPathnameMenuItemPressed()
{
    copyLines(selectedItems(), [](const SearchItem& item) { return item.nativeFullPath(); });
}

void SearchResultWC::quickLookMenuItemPressed()
{
    const QList<QByteArray> paths = pathsOf(selectedItems());
    if (paths.isEmpty())
        return;
    QuickLookController& quickLook = m_quickLook ? *m_quickLook : QuickLookController::sharedQuickLookController();
    quickLook.setFileItemsByPaths(paths);
    quickLook.showPreviewPanel();
}

void SearchResultWC::exportButtonPressed()
{
    if (m_model->rowsShown() == 0)
        return;
    m_prompts.chooseExportFile(this, [self = QPointer(this)](const QString& file, bool csv) {
        if (!self || file.isEmpty())
            return;
        const QList<SearchItemPtr> shown = self->m_filteredSearchResultArray.first(self->m_model->rowsShown());
        const QByteArray bytes = csv ? SearchResultExport::csv(shown) : SearchResultExport::paths(shown, false);
        QSaveFile out(file);
        if (!out.open(QIODevice::WriteOnly) || out.write(bytes) != bytes.size() || !out.commit())
            self->alert(
                SearchResultStrings::format("Export_failed", "The results could not be saved: %@", {out.errorString()}),
                QString());
    });
}
