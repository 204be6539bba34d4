#include "FileInfoDialog.h"

#include "SearchResultStrings.h"
#include "search/SearchItem.h"
#include "util/VolumeName.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QMimeDatabase>
#include <QVBoxLayout>

FileInfoDialog::FileInfoDialog(const QByteArray& path, QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("fileInfoDialog"));
    const QString name = QString::fromUtf8(SearchPaths::lastComponent(path));
    setWindowTitle(SearchResultStrings::format("Info_title", "Info: %@", {name}));
    const QFileInfo info(QFile::decodeName(path));
    static const QMimeDatabase db;
    const QMimeType mime = info.isDir() ? db.mimeTypeForName(QStringLiteral("inode/directory"))
                                        : db.mimeTypeForFile(info, QMimeDatabase::MatchExtension);
    const auto date = [](const QDateTime& when) {
        return when.isValid() ? QLocale().toString(when, QLocale::LongFormat)
                              : SearchResultStrings::text("Unknown", "Unknown");
    };
    const auto value = [this](const QString& text) {
        auto* label = new QLabel(text, this);
        label->setTextFormat(Qt::PlainText);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
        return label;
    };

    auto* layout = new QVBoxLayout(this);
    auto* head = new QHBoxLayout;
    auto* icon = new QLabel(this);
    icon->setPixmap(QFileIconProvider().icon(info).pixmap(48, 48));
    auto* title = value(name);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    head->addWidget(icon);
    head->addWidget(title, 1);
    layout->addLayout(head);

    auto* form = new QFormLayout;
    form->addRow(SearchResultStrings::text("Info_kind", "Kind"),
                 value(mime.comment().isEmpty() ? mime.name() : mime.comment()));
    if (!info.isDir())
        form->addRow(SearchResultStrings::text("Info_size", "Size"),
                     value(VolumeName::convertToStringFromFileSize(static_cast<quint64>(info.size())) +
                           QStringLiteral(" (") + QLocale().toString(info.size()) + QStringLiteral(")")));
    form->addRow(SearchResultStrings::text("Info_where", "Where"),
                 value(QString::fromUtf8(SearchPaths::parentOf(SearchPaths::collapseSlashes(path)))));
    form->addRow(SearchResultStrings::text("Info_modified", "Modified"), value(date(info.lastModified())));
    form->addRow(SearchResultStrings::text("Info_created", "Created"), value(date(info.birthTime())));
    form->addRow(SearchResultStrings::text("Info_accessed", "Accessed"), value(date(info.lastRead())));
    layout->addLayout(form);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}
