#include "QuickLookPanel.h"

#include "QuickLookController.h"
#include "SearchResultStrings.h"
#include "util/VolumeName.h"

#include <QCloseEvent>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QImageReader>
#include <QKeyEvent>
#include <QLabel>
#include <QLocale>
#include <QMimeDatabase>
#include <QPlainTextEdit>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>
#include <QtConcurrent>

#include <sys/stat.h>

namespace {

constexpr QSize kPanelSize(720, 540);

QString dateText(const QDateTime& date)
{
    return date.isValid() ? QLocale().toString(date, QLocale::LongFormat)
                          : SearchResultStrings::text("Unknown", "Unknown");
}

} // namespace

PreviewContent PreviewContent::load(const QByteArray& path, QSize fit, const std::atomic<bool>& stop)
{
    PreviewContent content;
    const QString name = QFile::decodeName(path);
    const QFileInfo info(name);
    static const QMimeDatabase db;
    if (info.isDir()) {
        content.kind = Kind::Folder;
        const QMimeType mime = db.mimeTypeForName(QStringLiteral("inode/directory"));
        content.mimeType = mime.name();
        content.mimeComment = mime.comment();
        const QDir::Filters all = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
        content.itemCount = static_cast<qint64>(QDir(name).entryList(all).size());
        content.readable = info.isReadable();
        QDirIterator below(name, all, QDirIterator::Subdirectories);
        while (below.hasNext() && !stop.load(std::memory_order_relaxed)) {
            below.next();
            const QFileInfo entry = below.fileInfo();
            if (entry.isFile() && !entry.isSymLink())
                content.totalSize += entry.size();
        }
        return content;
    }
    // Sniffing the contents is allowed here: the user asked to look at this file.
    const QMimeType mime = db.mimeTypeForFile(info);
    content.mimeType = mime.name();
    content.mimeComment = mime.comment();
    content.totalSize = info.size();
    QFile file(name);
    if (!info.isFile() || !file.open(QIODevice::ReadOnly)) {
        content.kind = Kind::Info;
        content.readable = info.isFile() ? false : true;
        return content;
    }
    if (mime.name().startsWith(QLatin1String("image/"))) {
        QImageReader reader(&file);
        reader.setAutoTransform(true);
        const QSize size = reader.size();
        if (size.isValid() && (size.width() > fit.width() || size.height() > fit.height()))
            reader.setScaledSize(size.scaled(fit, Qt::KeepAspectRatio));
        QImage image = reader.read();
        if (!image.isNull()) {
            if (image.width() > fit.width() || image.height() > fit.height())
                image = image.scaled(fit, Qt::KeepAspectRatio, Qt::SmoothTransformation);
            content.kind = Kind::Image;
            content.image = std::move(image);
            return content;
        }
        file.seek(0);
    }
    if (mime.inherits(QStringLiteral("text/plain")) || info.size() == 0) {
        const QByteArray head = file.read(kTextLimit);
        content.kind = Kind::Text;
        // Cut at a character boundary: a sequence split by the limit is not the file's fault.
        qsizetype end = head.size();
        if (head.size() == kTextLimit) {
            qsizetype back = end;
            while (back > 0 && end - back < 4 && (static_cast<unsigned char>(head.at(back - 1)) & 0xC0) == 0x80)
                --back;
            if (back > 0 && (static_cast<unsigned char>(head.at(back - 1)) & 0xC0) == 0xC0)
                end = back - 1;
        }
        content.text = QString::fromUtf8(head.constData(), end);
        return content;
    }
    content.kind = Kind::Info;
    return content;
}

QuickLookPanel::QuickLookPanel(QuickLookController& controller, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_controller(controller)
{
    setObjectName(QStringLiteral("quickLookPanel"));
    resize(kPanelSize);
    auto* layout = new QVBoxLayout(this);
    auto* bar = new QHBoxLayout;
    m_previous = new QToolButton(this);
    m_previous->setArrowType(Qt::LeftArrow);
    m_previous->setObjectName(QStringLiteral("previewPrevious"));
    m_next = new QToolButton(this);
    m_next->setArrowType(Qt::RightArrow);
    m_next->setObjectName(QStringLiteral("previewNext"));
    m_title = new QLabel(this);
    m_title->setObjectName(QStringLiteral("previewTitle"));
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_title->setTextFormat(Qt::PlainText);
    m_position = new QLabel(this);
    m_position->setObjectName(QStringLiteral("previewPosition"));
    bar->addWidget(m_previous);
    bar->addWidget(m_next);
    bar->addSpacing(8);
    bar->addWidget(m_title, 1);
    bar->addWidget(m_position);
    layout->addLayout(bar);

    m_stack = new QStackedWidget(this);
    m_imageView = new QLabel(m_stack);
    m_imageView->setAlignment(Qt::AlignCenter);
    m_textView = new QPlainTextEdit(m_stack);
    m_textView->setObjectName(QStringLiteral("previewText"));
    m_textView->setReadOnly(true);
    m_textView->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_textView->setFocusPolicy(Qt::NoFocus);
    auto* infoPage = new QWidget(m_stack);
    auto* infoLayout = new QHBoxLayout(infoPage);
    m_infoIcon = new QLabel(infoPage);
    m_infoText = new QLabel(infoPage);
    m_infoText->setObjectName(QStringLiteral("previewInfo"));
    m_infoText->setTextFormat(Qt::PlainText);
    m_infoText->setTextInteractionFlags(Qt::TextSelectableByMouse);
    infoLayout->addStretch();
    infoLayout->addWidget(m_infoIcon);
    infoLayout->addSpacing(16);
    infoLayout->addWidget(m_infoText);
    infoLayout->addStretch();
    m_stack->addWidget(m_imageView);
    m_stack->addWidget(m_textView);
    m_stack->addWidget(infoPage);
    layout->addWidget(m_stack, 1);

    m_watcher = new QFutureWatcher<PreviewContent>(this);
    connect(m_watcher, &QFutureWatcher<PreviewContent>::finished, this, [this] {
        if (!m_watcher->future().isValid() || m_watcher->future().resultCount() == 0)
            return;
        showContent(m_watcher->result());
    });
    connect(m_previous, &QToolButton::clicked, this, &QuickLookPanel::showPrevious);
    connect(m_next, &QToolButton::clicked, this, &QuickLookPanel::showNext);
    for (QWidget* w : {static_cast<QWidget*>(m_previous), static_cast<QWidget*>(m_next)})
        w->setFocusPolicy(Qt::NoFocus);
    setFocusPolicy(Qt::StrongFocus);
}

QuickLookPanel::~QuickLookPanel()
{
    stopLoading();
    m_watcher->waitForFinished();
}

void QuickLookPanel::stopLoading()
{
    if (m_stop)
        m_stop->store(true);
}

void QuickLookPanel::reloadData()
{
    m_index = 0;
    load();
}

void QuickLookPanel::setCurrentIndex(int index)
{
    const int count = m_controller.numberOfPreviewItemsInPreviewPanel(this);
    if (index < 0 || index >= count || index == m_index)
        return;
    m_index = index;
    load();
}

QString QuickLookPanel::shownTitle() const
{
    return m_title->text();
}

void QuickLookPanel::load()
{
    stopLoading();
    const int count = m_controller.numberOfPreviewItemsInPreviewPanel(this);
    const FileQLItem* item = m_controller.previewItemAtIndex(this, m_index);
    m_previous->setEnabled(m_index > 0);
    m_next->setEnabled(m_index + 1 < count);
    m_position->setText(count > 1 ? SearchResultStrings::format("Preview_position", "%ld of %ld",
                                                                {QString::number(m_index + 1), QString::number(count)})
                                  : QString());
    m_shownKind = PreviewContent::Kind::None;
    if (!item) {
        m_title->clear();
        setWindowTitle(QString());
        m_infoText->clear();
        m_infoIcon->clear();
        m_stack->setCurrentIndex(2);
        return;
    }
    m_title->setText(item->previewItemTitle());
    setWindowTitle(item->previewItemTitle());
    m_infoIcon->clear();
    m_infoText->setText(SearchResultStrings::text("Preview_counting", "Counting..."));
    m_stack->setCurrentIndex(2);
    m_loadingPath = item->filePath();
    m_stop = std::make_shared<std::atomic<bool>>(false);
    const QSize fit = m_stack->size().isValid() && !m_stack->size().isEmpty() ? m_stack->size() : kPanelSize;
    m_watcher->setFuture(QtConcurrent::run(
        [path = m_loadingPath, fit, stop = m_stop] { return PreviewContent::load(path, fit, *stop); }));
}

void QuickLookPanel::showContent(const PreviewContent& content)
{
    const FileQLItem* item = m_controller.previewItemAtIndex(this, m_index);
    if (!item || item->filePath() != m_loadingPath)
        return; // a late answer for another file
    const QString path = QFile::decodeName(item->filePath());
    const QFileInfo info(path);
    switch (content.kind) {
    case PreviewContent::Kind::Image:
        m_imageView->setPixmap(QPixmap::fromImage(content.image));
        m_stack->setCurrentIndex(0);
        break;
    case PreviewContent::Kind::Text:
        m_textView->setPlainText(content.text);
        m_stack->setCurrentIndex(1);
        break;
    case PreviewContent::Kind::Folder:
    case PreviewContent::Kind::Info:
    case PreviewContent::Kind::None: {
        static const QFileIconProvider icons;
        m_infoIcon->setPixmap(icons.icon(info).pixmap(96, 96));
        QStringList lines;
        lines << item->previewItemTitle() << QString();
        lines << SearchResultStrings::text("Info_kind", "Kind") + QStringLiteral(": ") +
                     (content.mimeComment.isEmpty() ? content.mimeType : content.mimeComment);
        if (content.kind == PreviewContent::Kind::Folder)
            lines << SearchResultStrings::format("Info_items", "%ld items", {QString::number(content.itemCount)});
        lines << SearchResultStrings::text("Info_size", "Size") + QStringLiteral(": ") +
                     VolumeName::convertToStringFromFileSize(static_cast<quint64>(content.totalSize));
        lines << SearchResultStrings::text("Info_modified", "Modified") + QStringLiteral(": ") +
                     dateText(info.lastModified());
        lines << SearchResultStrings::text("Info_created", "Created") + QStringLiteral(": ") +
                     dateText(info.birthTime());
        if (!content.readable)
            lines << QString() << SearchResultStrings::text("Preview_unreadable", "This file cannot be read.");
        m_infoText->setText(lines.join(QLatin1Char('\n')));
        m_stack->setCurrentIndex(2);
        break;
    }
    }
    m_shownKind = content.kind;
    Q_EMIT contentShown();
}

void QuickLookPanel::keyPressEvent(QKeyEvent* event)
{
    m_controller.previewPanelHandleKey(this, event->key());
    switch (event->key()) {
    case Qt::Key_Left:
    case Qt::Key_Up:
        showPrevious();
        break;
    case Qt::Key_Right:
    case Qt::Key_Down:
        showNext();
        break;
    case Qt::Key_Escape:
    case Qt::Key_Space:
        close();
        break;
    default:
        QWidget::keyPressEvent(event);
        return;
    }
    event->accept();
}

void QuickLookPanel::closeEvent(QCloseEvent* event)
{
    stopLoading();
    QWidget::closeEvent(event);
}
