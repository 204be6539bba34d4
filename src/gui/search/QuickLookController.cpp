#include "QuickLookController.h"

#include "QuickLookPanel.h"
#include "core/NotificationCenter.h"

#include <QCoreApplication>

QuickLookController::QuickLookController(NotificationCenter& center, QObject* parent)
    : QObject(parent)
    , m_center(center)
{
}

QuickLookController::~QuickLookController()
{
    delete m_panel;
}

QuickLookController& QuickLookController::sharedQuickLookController()
{
    static auto* instance = [] {
        auto* made = new QuickLookController(NotificationCenter::defaultCenter(), QCoreApplication::instance());
        // Its window must go while the application still runs.
        QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, made,
                         [made] { delete made->m_panel; });
        return made;
    }();
    return *instance;
}

QuickLookPanel* QuickLookController::previewPanel()
{
    if (!m_panel)
        m_panel = new QuickLookPanel(*this);
    return m_panel;
}

bool QuickLookController::isPanelVisible() const
{
    return m_panel && m_panel->isVisible();
}

void QuickLookController::showPreviewPanel()
{
    if (isPanelVisible()) {
        m_panel->close();
        return;
    }
    QuickLookPanel* panel = previewPanel();
    panel->reloadData();
    panel->show();
    panel->raise();
    panel->activateWindow();
}

void QuickLookController::setFileItemByPath(const QByteArray& path)
{
    setFileItemsByPaths({path});
}

void QuickLookController::setFileItemsByPaths(const QList<QByteArray>& paths)
{
    m_items.clear();
    m_items.reserve(static_cast<size_t>(paths.size()));
    for (const QByteArray& path : paths)
        m_items.emplace_back(path);
    if (m_panel)
        m_panel->reloadData();
}

QByteArray QuickLookController::currentFilePath() const
{
    return m_items.empty() ? QByteArray() : m_items.front().filePath();
}

int QuickLookController::numberOfPreviewItemsInPreviewPanel(const QuickLookPanel* panel) const
{
    return panel && panel == m_panel ? static_cast<int>(m_items.size()) : 0;
}

const FileQLItem* QuickLookController::previewItemAtIndex(const QuickLookPanel* panel, int index) const
{
    if (!panel || panel != m_panel || index < 0 || index >= static_cast<int>(m_items.size()))
        return nullptr;
    return &m_items[static_cast<size_t>(index)];
}

bool QuickLookController::previewPanelHandleKey(const QuickLookPanel* panel, int key)
{
    if (!panel || panel != m_panel)
        return false;
    m_center.post(QStringLiteral("QuickLookKeyPressed"), nullptr,
                  {{QStringLiteral("Key"), key}, {QStringLiteral("Type"), m_quicklookType}});
    return true;
}
