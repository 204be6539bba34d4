// Search side of the controller: the panel's search hand-off.
#include "QBPurgeController.h"

#include "PanelWindow.h"
#include "core/Settings.h"
#include "search/SearchManager.h"

#include <QDir>
#include <QFileInfo>
#include <QLineEdit>
#include <QToolTip>
#include <QUrl>

namespace {

// The stored search location, or the home folder when none is stored or it no longer exists.
QString searchLocationFrom(const Settings& settings)
{
    const QVariant stored = settings.getSearchLocation();
    const QString path = stored.typeId() == QMetaType::QUrl ? stored.toUrl().toLocalFile() : stored.toString();
    if (!path.isEmpty() && QFileInfo::exists(path))
        return path;
    return QDir::homePath();
}

} // namespace

void QBPurgeController::panelSearchRequested(const QString& text)
{
    SearchManager* manager = m_searchManager ? m_searchManager : SearchManager::sharedManager();
    manager->setSearchTemplate(text);
    // The results window is not there yet to ask whether a visible search may be replaced, so the
    // search action runs at once.
    manager->cancelSearchByButton();
    const QString folder = searchLocationFrom(m_settings);
    manager->setSearchLocation(folder);
    const SearchManager::StartResult started = manager->performSearchWithTemplate(text, folder);
    // A text the search cannot take is said where it was typed, not dropped silently.
    QLineEdit* field = panel() ? panel()->findChild<QLineEdit*>(QStringLiteral("searchBar")) : nullptr;
    if (!field)
        return;
    const QString message =
        started == SearchManager::StartResult::TemplateTooLong ? manager->lastStartMessage() : QString();
    field->setToolTip(message);
    if (!message.isEmpty() && field->isVisible())
        QToolTip::showText(field->mapToGlobal(QPoint(0, field->height())), message, field);
}

// Opens the search results window on "openSearchResultDialogNotification". Deliberately empty until the
// results window exists; the search itself runs and SearchManager holds its results meanwhile.
void QBPurgeController::openSearchResultDialog()
{
}
