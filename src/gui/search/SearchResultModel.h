#pragma once

#include "search/SearchItem.h"

#include <QAbstractTableModel>
#include <QFileIconProvider>
#include <QHash>
#include <QIcon>
#include <QList>

// The results table over the search manager's filtered list itself (not a copy). Only the first
// rowsShown() items are rows: a running search's items are inserted in ranges once a second, so the
// table grows in steps while the list grows continuously. Every change of the list other than an
// append at its end must be bracketed by the caller with beginListChange() / endListChange().
class SearchResultModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column
    {
        NameColumn,
        FolderColumn,
        SizeColumn,
        DateColumn,
        TypeColumn,
        ColumnCount
    };
    // Extra roles: the item itself (SearchItem*), and whether it is drawn dimmed.
    static constexpr int ItemRole = Qt::UserRole + 1;
    static constexpr int DimmedRole = Qt::UserRole + 2;

    explicit SearchResultModel(QList<SearchItemPtr>& filtered, QObject* parent = nullptr);

    // Items under this folder (the user's Trash) are drawn like hidden ones.
    void setTrashFolder(const QByteArray& folder) { m_trashFolder = folder; }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    int rowsShown() const { return m_rowsShown; }
    // Inserts the list's items past the shown rows as one range; answers how many.
    int addPendingRows();
    // Shows the whole list again (after a reset of the list).
    void beginListChange();
    void endListChange(int rowsShown);
    const SearchItemPtr& itemAt(int row) const { return m_list.at(row); }
    bool isDimmed(const SearchItem& item) const;

    // The texts of the cells, shared with the tests.
    static QString sizeText(const SearchItem& item);
    static QString dateText(const SearchItem& item);
    static QString folderToolTip(const SearchItem& item);

private:
    QIcon iconFor(const SearchItem& item) const;
    QIcon classIcon(const SearchItem& item) const;

    QList<SearchItemPtr>& m_list;
    int m_rowsShown = 0;
    QByteArray m_trashFolder;
    QFileIconProvider m_iconProvider;
    mutable QHash<quint16, QIcon> m_iconsByType;
    mutable QHash<int, QIcon> m_classIcons;
};
