// Search side of the controller: the panel's search hand-off and the results window.
#include "QBPurgeController.h"

#include "PanelWindow.h"
#include "core/Settings.h"
#include "gui/search/SearchResultWC.h"
#include "hidden/HiddenManager.h"
#include "search/SearchManager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLineEdit>
#include <QSystemTrayIcon>
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
    const auto search = [this, manager, text] {
        manager->setSearchTemplate(text);
        manager->cancelSearchByButton();
        if (m_searchResultDialog && !text.isEmpty())
            m_searchResultDialog->releaseResultsInBackground();
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
    };
    // A visible results window first asks whether its running search may be replaced.
    if (m_searchResultDialog && m_searchResultDialog->isVisible())
        m_searchResultDialog->showNewSearchAlertDialogWithCompletion(search);
    else
        search();
}

// Opens the search results window on "openSearchResultDialogNotification": made once, then raised.
void QBPurgeController::openSearchResultDialog()
{
    if (!m_searchResultDialog) {
        SearchResultWC::Collaborators c;
        c.searchManager = m_searchManager ? m_searchManager : SearchManager::sharedManager();
        c.settings = &m_settings;
        c.center = &m_center;
        c.hiddenManager = m_hiddenManager ? m_hiddenManager : &HiddenManager::sharedManager();
        c.setStatusToolTip = [this](const QString& tip) {
            if (m_statusItem)
                m_statusItem->setToolTip(tip);
        };
        auto* window = new SearchResultWC(std::move(c));
        m_searchResultDialog = window;
        connect(this, &QObject::destroyed, window, [window] { delete window; });
    }
    m_searchResultDialog->show();
    m_searchResultDialog->raise();
    m_searchResultDialog->activateWindow();
}

void QBPurgeController::showReviewList(const QVariantMap& userInfo)
{
    const QVariant given = userInfo.value(QStringLiteral("paths"));
    QList<QByteArray> paths;
    if (given.canConvert<QList<QByteArray>>() && given.typeId() != QMetaType::QStringList)
        paths = given.value<QList<QByteArray>>();
    else
        for (const QString& path : given.toStringList())
            paths.append(QFile::encodeName(path));
    SearchManager* manager = m_searchManager ? m_searchManager : SearchManager::sharedManager();
    manager->cancelSearchByButton();
    manager->presentItemsAtPaths(userInfo.value(QStringLiteral("title")).toString(), paths);
}

SearchResultWC* QBPurgeController::searchResultDialog() const
{
    return m_searchResultDialog;
}
