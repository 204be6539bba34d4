#include "IndexSuggestions.h"

#include "search/FileManagerBus.h"
#include "search/NameIndexKeeper.h"

#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QScreen>
#include <QTimer>
#include <QUrl>
#include <QtConcurrent>

#include <algorithm>

namespace {

// How many matches are ranked for the ten shown: enough that a name starting with the text is
// rarely missed, few enough to stay quick.
constexpr int kRanked = 2000;

QByteArray nameOf(const QByteArray& path)
{
    return path.mid(path.lastIndexOf('/') + 1);
}

bool startsWithFolded(const QByteArray& name, const QByteArray& text)
{
    return name.size() >= text.size() && name.left(text.size()).toLower() == text.toLower();
}

} // namespace

IndexSuggestions::IndexSuggestions(QLineEdit* field, NameIndexKeeper* keeper, std::function<QByteArray()> folder)
    : QObject(field)
    , m_field(field)
    , m_keeper(keeper)
    , m_folder(std::move(folder))
{
    m_list = new QListWidget;
    m_list->setObjectName(QStringLiteral("indexSuggestions"));
    // A tool tip window never takes the focus from the field the user types in.
    m_list->setWindowFlags(Qt::ToolTip | Qt::FramelessWindowHint);
    m_list->setAttribute(Qt::WA_ShowWithoutActivating);
    m_list->setFocusPolicy(Qt::NoFocus);
    m_list->setUniformItemSizes(true);
    m_list->setTextElideMode(Qt::ElideMiddle);
    connect(m_list, &QListWidget::itemClicked, this, [this] { act(false); });
    m_delay = new QTimer(this);
    m_delay->setSingleShot(true);
    m_delay->setInterval(60);
    connect(m_delay, &QTimer::timeout, this, &IndexSuggestions::refresh);
    connect(field, &QLineEdit::textEdited, this, &IndexSuggestions::textEdited);
    connect(field, &QLineEdit::returnPressed, this, &IndexSuggestions::hide);
    field->installEventFilter(this);
}

IndexSuggestions::~IndexSuggestions()
{
    delete m_list;
}

void IndexSuggestions::textEdited()
{
    ++m_generation;
    if (!m_keeper || !m_field || m_field->text().isEmpty()) {
        hide();
        return;
    }
    m_delay->start();
}

void IndexSuggestions::refresh()
{
    if (!m_field || m_field->text().isEmpty())
        return;
    if (!m_keeper->isReady()) {
        show({}, m_keeper->state().building);
        return;
    }
    const QByteArray text = QFile::encodeName(m_field->text());
    QByteArray folder = m_folder ? m_folder() : QByteArray();
    // A folder above the index's root holds all of it; one beside it holds none of it.
    const QByteArray root = QByteArray::fromStdString(m_keeper->index().rootPath());
    while (folder.size() > 1 && folder.endsWith('/'))
        folder.chop(1);
    if (folder == "/" || root.startsWith(folder + '/'))
        folder.clear();
    else if (!folder.isEmpty() && folder != root && !folder.startsWith(root + '/')) {
        hide();
        return;
    }
    const int generation = m_generation;
    NameIndexKeeper* keeper = m_keeper;
    auto future = QtConcurrent::run([keeper, text, folder] {
        QList<QByteArray> paths;
        for (const NameIndex::Match& m : keeper->query(text.toStdString(), folder.toStdString(), kRanked))
            paths.append(m.path);
        std::stable_sort(paths.begin(), paths.end(), [&](const QByteArray& a, const QByteArray& b) {
            const bool aStarts = startsWithFolded(nameOf(a), text);
            const bool bStarts = startsWithFolded(nameOf(b), text);
            if (aStarts != bStarts)
                return aStarts;
            return a.size() != b.size() ? a.size() < b.size() : a < b;
        });
        if (paths.size() > kShown)
            paths.resize(kShown);
        return paths;
    });
    auto* watcher = new QFutureWatcher<QList<QByteArray>>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, generation] {
        watcher->deleteLater();
        if (generation == m_generation)
            show(watcher->result(), false);
    });
    watcher->setFuture(future);
}

void IndexSuggestions::show(const QList<QByteArray>& paths, bool indexing)
{
    m_list->clear();
    if (indexing) {
        auto* item = new QListWidgetItem(tr("Indexing..."), m_list);
        item->setFlags(Qt::NoItemFlags);
    }
    const QString home = QDir::homePath();
    for (const QByteArray& path : paths) {
        // The name first, then where it is, the home folder written "~".
        const QString full = QFile::decodeName(path);
        QString folder = full.left(std::max<qsizetype>(full.lastIndexOf(QLatin1Char('/')), 1));
        if (folder == home || folder.startsWith(home + QLatin1Char('/')))
            folder = QLatin1Char('~') + folder.mid(home.size());
        auto* item =
            new QListWidgetItem(QFile::decodeName(nameOf(path)) + QStringLiteral("  \u2014  ") + folder, m_list);
        item->setData(Qt::UserRole, path);
        item->setToolTip(QFile::decodeName(path));
    }
    if (m_list->count() == 0 || !m_field || !m_field->isVisible()) {
        hide();
        return;
    }
    const int rowHeight = m_list->sizeHintForRow(0);
    m_list->setFixedSize(std::max(m_field->width(), 320), rowHeight * m_list->count() + 2 * m_list->frameWidth() + 2);
    QPoint at = m_field->mapToGlobal(QPoint(0, m_field->height()));
    if (const QScreen* screen = m_field->screen()) {
        const QRect room = screen->availableGeometry();
        at.setX(std::max(room.left(), std::min(at.x(), room.right() + 1 - m_list->width())));
    }
    m_list->move(at);
    m_list->show();
    m_list->raise();
}

void IndexSuggestions::hide()
{
    m_list->hide();
    m_list->setCurrentRow(-1);
}

void IndexSuggestions::act(bool reveal)
{
    const QListWidgetItem* item = m_list->currentItem();
    if (!item)
        return;
    const QByteArray path = item->data(Qt::UserRole).toByteArray();
    if (path.isEmpty())
        return;
    hide();
    // Built from the bytes, percent-encoded, so a name that is not UTF-8 still names its file.
    const auto urlOf = [](const QByteArray& bytes) { return QUrl::fromEncoded(FileManagerBus::fileUri(bytes)); };
    if (!reveal) {
        QDesktopServices::openUrl(urlOf(path));
        return;
    }
    const qsizetype slash = path.lastIndexOf('/');
    const QByteArray parent = slash > 0 ? path.left(slash) : QByteArray("/");
    FileManagerBus::showItems({path}, [parent, urlOf](bool answered) {
        // No file manager answered: its folder, opened, comes closest.
        if (!answered)
            QDesktopServices::openUrl(urlOf(parent));
    });
}

bool IndexSuggestions::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_field && event->type() == QEvent::FocusOut)
        QTimer::singleShot(150, this, [this] {
            if (m_field && !m_field->hasFocus())
                hide();
        });
    if (watched != m_field || event->type() != QEvent::KeyPress || !m_list->isVisible())
        return QObject::eventFilter(watched, event);
    const auto* key = static_cast<QKeyEvent*>(event);
    const int count = m_list->count();
    switch (key->key()) {
    case Qt::Key_Down:
        m_list->setCurrentRow(std::min(m_list->currentRow() + 1, count - 1));
        return true;
    case Qt::Key_Up:
        m_list->setCurrentRow(std::max(m_list->currentRow() - 1, -1));
        return true;
    case Qt::Key_Escape:
        hide();
        return true;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (m_list->currentRow() < 0 || !m_list->currentItem()->data(Qt::UserRole).isValid())
            return false; // the field's own Return: the search starts
        act((key->modifiers() & Qt::ControlModifier) != 0);
        return true;
    default:
        return QObject::eventFilter(watched, event);
    }
}
