#include "SearchResultModel.h"

#include "SearchResultStrings.h"
#include "search/SearchResultSort.h"
#include "util/VolumeName.h"

#include <QApplication>
#include <QMimeDatabase>
#include <QPalette>

SearchResultModel::SearchResultModel(QList<SearchItemPtr>& filtered, QObject* parent)
    : QAbstractTableModel(parent)
    , m_list(filtered)
{
}

int SearchResultModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_rowsShown;
}

int SearchResultModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

int SearchResultModel::addPendingRows()
{
    const int total = static_cast<int>(m_list.size());
    if (total <= m_rowsShown)
        return 0;
    const int first = m_rowsShown;
    beginInsertRows({}, first, total - 1);
    m_rowsShown = total;
    endInsertRows();
    return total - first;
}

void SearchResultModel::beginListChange()
{
    beginResetModel();
}

void SearchResultModel::endListChange(int rowsShown)
{
    m_rowsShown = std::clamp(rowsShown, 0, static_cast<int>(m_list.size()));
    endResetModel();
}

bool SearchResultModel::isDimmed(const SearchItem& item) const
{
    if (item.fileHidden || item.fileInHiddenFolder || item.fileInPackage)
        return true;
    return !m_trashFolder.isEmpty() && item.nativeFullPath().contains(m_trashFolder);
}

QString SearchResultModel::sizeText(const SearchItem& item)
{
    if (item.typeIndex == 0)
        return SearchResultStrings::text("Unknown", "Unknown");
    if (!item.filePackage && (item.fileSize < 0 || item.fileType() == QLatin1String("inode/directory")))
        return QStringLiteral("--");
    return VolumeName::convertToStringFromFileSize(static_cast<quint64>(item.fileSize));
}

QString SearchResultModel::dateText(const SearchItem& item)
{
    const QDateTime date = item.lastUsedDate();
    if (!date.isValid())
        return SearchResultStrings::text("Unknown", "Unknown");
    // "YYYY-MM-dd hh:mm a": the year is the week-based one and the clock has twelve hours.
    int weekYear = 0;
    date.date().weekNumber(&weekYear);
    return QString::number(weekYear).rightJustified(4, QLatin1Char('0')) +
           QLocale::c().toString(date, QStringLiteral("-MM-dd hh:mm AP"));
}

QString SearchResultModel::folderToolTip(const SearchItem& item)
{
    QString folder = item.filePath();
    if (folder.startsWith(QLatin1String("//")))
        folder.remove(0, 1);
    return folder;
}

QIcon SearchResultModel::iconFor(const SearchItem& item) const
{
    // By type, never by the file: drawing a row must not read it.
    auto cached = m_iconsByType.constFind(item.typeIndex);
    if (cached != m_iconsByType.constEnd())
        return *cached;
    QIcon icon;
    const QString type = item.fileType();
    if (type == QLatin1String("inode/directory")) {
        icon = m_iconProvider.icon(QFileIconProvider::Folder);
    } else if (!type.isEmpty()) {
        static const QMimeDatabase db;
        const QMimeType mime = db.mimeTypeForName(type);
        icon = QIcon::fromTheme(mime.iconName(), QIcon::fromTheme(mime.genericIconName()));
    }
    if (icon.isNull())
        icon = m_iconProvider.icon(QFileIconProvider::File);
    m_iconsByType.insert(item.typeIndex, icon);
    return icon;
}

QIcon SearchResultModel::classIcon(const SearchItem& item) const
{
    const QChar letter = SearchResultSort::classLetter(item);
    auto cached = m_classIcons.constFind(letter.unicode());
    if (cached != m_classIcons.constEnd())
        return *cached;
    const QString name = letter == QLatin1Char('p')   ? QStringLiteral("icon_box")
                         : letter == QLatin1Char('h') ? QStringLiteral("icon_hidden_files")
                                                      : QStringLiteral("icon_files");
    QIcon icon(QStringLiteral(":/icons/%1.svg").arg(name));
    m_classIcons.insert(letter.unicode(), icon);
    return icon;
}

QVariant SearchResultModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_rowsShown || index.row() >= m_list.size())
        return {};
    const SearchItem& item = *m_list.at(index.row());
    if (role == ItemRole)
        return QVariant::fromValue(static_cast<const void*>(&item));
    if (role == DimmedRole)
        return isDimmed(item);
    if (role == Qt::ForegroundRole && isDimmed(item))
        return QApplication::palette().brush(QPalette::Disabled, QPalette::Text);
    switch (index.column()) {
    case NameColumn:
        if (role == Qt::DisplayRole) {
            const QString name = item.fileName();
            return name.isEmpty() ? SearchResultStrings::text("Noname", "noname") : name;
        }
        if (role == Qt::ToolTipRole)
            return folderToolTip(item);
        if (role == Qt::DecorationRole)
            return iconFor(item);
        break;
    case FolderColumn:
        if (role == Qt::DisplayRole) {
            const QString folder = item.enclosingFolderName();
            return folder.isEmpty() ? SearchResultStrings::text("Unknown", "Unknown") : folder;
        }
        if (role == Qt::ToolTipRole)
            return folderToolTip(item);
        break;
    case SizeColumn:
        if (role == Qt::DisplayRole)
            return sizeText(item);
        if (role == Qt::TextAlignmentRole)
            return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
        break;
    case DateColumn:
        if (role == Qt::DisplayRole)
            return dateText(item);
        break;
    case TypeColumn: {
        const QChar letter = SearchResultSort::classLetter(item);
        if (role == Qt::DecorationRole)
            return classIcon(item);
        if (role == Qt::DisplayRole || role == Qt::ToolTipRole)
            return letter == QLatin1Char('p')   ? SearchResultStrings::text("Class_packaged", "Package contents")
                   : letter == QLatin1Char('h') ? SearchResultStrings::text("Class_hidden", "Hidden file")
                                                : SearchResultStrings::text("Class_regular", "Regular file");
        break;
    }
    default:
        break;
    }
    return {};
}

QVariant SearchResultModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case NameColumn:
        return SearchResultStrings::text("Column_name", "Name");
    case FolderColumn:
        return SearchResultStrings::text("Column_folder", "Folder");
    case SizeColumn:
        return SearchResultStrings::text("Column_size", "Size");
    case DateColumn:
        return SearchResultStrings::text("Column_date", "Date Modified");
    case TypeColumn:
        return SearchResultStrings::text("Column_type", "Kind");
    default:
        return {};
    }
}
