#include "AdBasedOnSpotlightView.h"

#include "core/Texts.h"
#include "util/VolumeName.h"

#include <QFormLayout>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QStandardPaths>
#include <QVBoxLayout>

namespace {
const char* const kTable = "AdBasedOnSpotlightVC";

QString text(const char* key, const char* english)
{
    return Texts::localized(kTable, key, QString::fromUtf8(english));
}

QString sizeText(quint64 bytes)
{
    return VolumeName::stringFromSize(qint64(bytes));
}
} // namespace

AdBasedOnSpotlightView::AdBasedOnSpotlightView(Type type, QWidget* parent)
    : QWidget(parent)
    , m_type(type)
{
    auto* layout = new QVBoxLayout(this);
    auto* back = new QPushButton(QStringLiteral("<"), this);
    back->setObjectName(QStringLiteral("backButton"));
    connect(back, &QPushButton::clicked, this, &AdBasedOnSpotlightView::backButtonPressed);
    layout->addWidget(back, 0, Qt::AlignLeft);

    static const char* const titles[][4] = {
        {"Junk_files_view_title", "Junk Files", "Junk_files_view_subtitle", "removable files"},
        {"Applications_view_title", "Applications", "Applications_view_subtitle", "removable files"},
        {"Large_and_old_view_title", "Large and Old Files", "Large_and_old_view_subtitle", "removable files"},
        {"Duplicate_files_view_title", "Duplicate Files and Folders", "Duplicate_files_view_subtitle",
         "removable files"}};
    const auto& title = titles[type - 1];
    auto* heading = new QLabel(text(title[0], title[1]), this);
    heading->setObjectName(QStringLiteral("titleLabel"));
    layout->addWidget(heading);
    auto* subtitle = new QLabel(text(title[2], title[3]), this);
    subtitle->setObjectName(QStringLiteral("subtitleLabel"));
    layout->addWidget(subtitle);

    auto* form = new QFormLayout;
    layout->addLayout(form);
    const auto line = [&](const char* key, const char* english, const char* name) {
        auto* value = new QLabel(QStringLiteral("..."), this);
        value->setObjectName(QString::fromLatin1(name));
        form->addRow(text(key, english) + QLatin1Char(':'), value);
        return value;
    };
    switch (type) {
    case JunkFiles:
        m_first = line("Junk_files_view_caches", "Caches", "cachesLabel");
        m_second = line("Junk_files_view_downloads", "Downloads", "downloadsLabel");
        m_third = line("Junk_files_view_uncleaned_trash", "Uncleaned Trash", "trashLabel");
        m_total = new QLabel(this);
        m_total->setObjectName(QStringLiteral("totalLabel"));
        form->addRow(QString(), m_total);
        break;
    case ApplicationsUnused:
        m_first = line("Applications_view_applications", "Applications", "countLabel");
        m_second = line("Applications_view_used_space", "Used space", "sizeLabel");
        break;
    case LargeAndOldFiles:
        m_first = line("Large_and_old_view_applications", "Files", "countLabel");
        m_second = line("Large_and_old_view_used_space", "Used space", "sizeLabel");
        break;
    case DuplicateFiles:
        m_first = line("Duplicate_files_view_potential_duplicates", "Potential duplicates", "countLabel");
        m_second = line("Duplicate_files_view_used_space", "Used space", "sizeLabel");
        m_third = new QLabel(this);
        m_third->setObjectName(QStringLiteral("verifiedLabel"));
        form->addRow(QString(), m_third);
        break;
    }

    const auto [name, command] = installedTool(type);
    m_toolButton = new QPushButton(this);
    m_toolButton->setObjectName(QStringLiteral("getAppButton"));
    m_toolButton->setVisible(!name.isEmpty());
    m_toolButton->setText(Texts::format(text("Tab_View_open_app_template", "Open %@"), {name}));
    connect(m_toolButton, &QPushButton::clicked, this, [command = command] {
        QProcess::startDetached(command, {});
    });
    layout->addWidget(m_toolButton);
    layout->addStretch();
}

std::pair<QString, QString> AdBasedOnSpotlightView::installedTool(Type type)
{
    if (type != LargeAndOldFiles)
        return {};
    static const std::pair<const char*, const char*> analysers[] = {
        {"Disk Usage Analyzer", "baobab"}, {"Filelight", "filelight"}, {"QDirStat", "qdirstat"}};
    for (const auto& [name, command] : analysers) {
        const QString path = QStandardPaths::findExecutable(QString::fromLatin1(command));
        if (!path.isEmpty())
            return {QString::fromLatin1(name), path};
    }
    return {};
}

void AdBasedOnSpotlightView::setJunkInfo(const JunkFilesViewInfo& info)
{
    m_canShow = true;
    m_first->setText(sizeText(info.cachesSize));
    m_second->setText(sizeText(info.downloadsSize));
    m_third->setText(sizeText(info.trashSize));
    m_total->setText(sizeText(info.getTotalSize()));
}

void AdBasedOnSpotlightView::setCountAndSize(quint64 count, quint64 bytes, const DuplicateFilesViewInfo* duplicates)
{
    m_canShow = true;
    m_first->setText(QString::number(count));
    m_second->setText(sizeText(bytes));
    if (m_third && duplicates && duplicates->verified)
        m_third->setText(QStringLiteral("same contents: %1 in %2 files")
                             .arg(sizeText(duplicates->verifiedSize))
                             .arg(duplicates->verifiedCount));
}
