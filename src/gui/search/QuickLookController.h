#pragma once

#include "FileQLItem.h"

#include <QList>
#include <QObject>
#include <QPointer>

#include <vector>

class NotificationCenter;
class QuickLookPanel;

// Feeds the preview window: keeps the files of the current preview, in the order given, and opens,
// closes and reloads the window. The window pages through the list; its key presses are also posted as
// "QuickLookKeyPressed" (user info "Key" = the Qt key code, "Type" = quicklookType) for a listener.
class QuickLookController : public QObject
{
    Q_OBJECT
public:
    explicit QuickLookController(NotificationCenter& center, QObject* parent = nullptr);
    ~QuickLookController() override;

    static QuickLookController& sharedQuickLookController();

    // Toggles the window: closes it when visible, else shows and raises it at the current item.
    void showPreviewPanel();
    void setFileItemByPath(const QByteArray& path);
    void setFileItemsByPaths(const QList<QByteArray>& paths);
    // The first item's path; empty without items.
    QByteArray currentFilePath() const;

    quint32 quicklookType() const { return m_quicklookType; }
    void setQuicklookType(quint32 type) { m_quicklookType = type; }
    // The window, created on first use.
    QuickLookPanel* previewPanel();
    bool isPanelVisible() const;

    // The panel's data source: 0 items and no item for any panel but ours.
    int numberOfPreviewItemsInPreviewPanel(const QuickLookPanel* panel) const;
    const FileQLItem* previewItemAtIndex(const QuickLookPanel* panel, int index) const;
    // Answers true (consumed) for a key press and posts it; anything else is not handled.
    bool previewPanelHandleKey(const QuickLookPanel* panel, int key);

private:
    NotificationCenter& m_center;
    std::vector<FileQLItem> m_items;
    QPointer<QuickLookPanel> m_panel;
    quint32 m_quicklookType = 0;
};
