#include "AdBasedOnSpotlightView.h"

#include "core/Texts.h"
#include "util/VolumeName.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QStandardPaths>
#include <QToolButton>
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
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);

    static const char* const titles[][4] = {
        {"Junk_files_view_title", "Junk Files", "Junk_files_view_subtitle", "removable files"},
        {"Applications_view_title", "Applications", "Applications_view_subtitle", "removable files"},
        {"Large_and_old_view_title", "Large and Old Files", "Large_and_old_view_subtitle", "removable files"},
        {"Duplicate_files_view_title", "Duplicate Files and Folders", "Duplicate_files_view_subtitle",
         "removable files"}};
    const auto& title = titles[type - 1];
    auto* header = new QHBoxLayout;
    auto* back = new QToolButton(this);
    back->setObjectName(QStringLiteral("backButton"));
    back->setArrowType(Qt::LeftArrow);
    back->setAutoRaise(true);
    back->setAccessibleName(QStringLiteral("Back"));
    connect(back, &QToolButton::clicked, this, &AdBasedOnSpotlightView::backButtonPressed);
    header->addWidget(back);
    m_title = new QLabel(text(title[0], title[1]), this);
    m_title->setObjectName(QStringLiteral("titleLabel"));
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    header->addWidget(m_title, 1);
    layout->addLayout(header);
    auto* subtitle = new QLabel(text(title[2], title[3]), this);
    subtitle->setObjectName(QStringLiteral("subtitleLabel"));
    // Quieter than the figures, yet readable on light and dark palettes (a disabled grey is not).
    QPalette quiet = subtitle->palette();
    QColor ink = quiet.color(QPalette::WindowText);
    ink.setAlphaF(0.7f);
    quiet.setColor(QPalette::WindowText, ink);
    subtitle->setPalette(quiet);
    layout->addWidget(subtitle);

    auto* form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignLeft);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    layout->addLayout(form);
    const auto line = [&](const char* key, const char* english, const char* name) {
        auto* value = new QLabel(QStringLiteral("..."), this);
        value->setObjectName(QString::fromLatin1(name));
        value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
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
        m_total->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        m_total->setFont(bold);
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
        m_third->setWordWrap(true);
        form->addRow(m_third);
        break;
    }

    auto* buttons = new QHBoxLayout;
    m_reviewButton = new QPushButton(
        text("Main_View_review_button", "Review & Clean Up").replace(QLatin1Char('&'), QStringLiteral("&&")), this);
    m_reviewButton->setObjectName(QStringLiteral("reviewListButton"));
    m_reviewButton->setEnabled(false);
    connect(m_reviewButton, &QPushButton::clicked, this, &AdBasedOnSpotlightView::reviewButtonPressed);
    buttons->addWidget(m_reviewButton);
    m_toolButton = new QPushButton(this);
    m_toolButton->setObjectName(QStringLiteral("getAppButton"));
    connect(m_toolButton, &QPushButton::clicked, this, [this] {
        if (!m_toolProgram.isEmpty())
            QProcess::startDetached(m_toolProgram, {});
    });
    buttons->addWidget(m_toolButton);
    layout->addLayout(buttons);
    layout->addStretch();
    updateToolButton();
}

QString AdBasedOnSpotlightView::title() const
{
    return m_title->text();
}

void AdBasedOnSpotlightView::showEvent(QShowEvent* event)
{
    // A tool installed while the program runs shows up the next time the page opens.
    updateToolButton();
    QWidget::showEvent(event);
}

void AdBasedOnSpotlightView::updateToolButton()
{
    const auto [name, program] = installedTool(m_type);
    m_toolProgram = program;
    m_toolButton->setVisible(!name.isEmpty());
    // Only installed tools are offered, so the button always opens one.
    m_toolButton->setText(Texts::format(text("Tab_View_open_app_template", "Open %@"), {name}));
}

std::pair<QString, QString> AdBasedOnSpotlightView::installedTool(Type type)
{
    using Tool = std::pair<const char*, const char*>;
    static const std::vector<Tool> junk = {{"BleachBit", "bleachbit"}};
    static const std::vector<Tool> applications = {{"Software", "gnome-software"}, {"Discover", "plasma-discover"}};
    static const std::vector<Tool> analysers = {
        {"Disk Usage Analyzer", "baobab"}, {"Filelight", "filelight"}, {"QDirStat", "qdirstat"}};
    static const std::vector<Tool> duplicates = {{"Czkawka", "czkawka_gui"}, {"dupeGuru", "dupeguru"}};
    const std::vector<Tool>& tools = type == JunkFiles            ? junk
                                     : type == ApplicationsUnused ? applications
                                     : type == LargeAndOldFiles   ? analysers
                                                                  : duplicates;
    for (const auto& [name, command] : tools) {
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
    m_reviewButton->setEnabled(info.getTotalSize() > 0);
}

void AdBasedOnSpotlightView::setCountAndSize(quint64 count, quint64 bytes, const DuplicateFilesViewInfo* duplicates)
{
    m_canShow = true;
    m_first->setText(QString::asprintf("%lld", static_cast<long long>(count)));
    m_second->setText(sizeText(bytes));
    if (m_third && duplicates)
        m_third->setText(duplicates->verified ? QStringLiteral("Same contents: %1 in %2 files")
                                                    .arg(sizeText(duplicates->verifiedSize))
                                                    .arg(duplicates->verifiedCount)
                                              : QString());
    m_reviewButton->setEnabled(count > 0);
}
