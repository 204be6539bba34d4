#include "PreferencesWindow.h"

#include "core/Texts.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>
#include <QVBoxLayout>

#include <cmath>

namespace PreferencesWindowStrings {

namespace {
QString text(const char* key, const char* english)
{
    return Texts::localized("PreferencesWindow", key, QString::fromUtf8(english));
}
} // namespace

QString launchAtSystemStartup(const QString& displayName)
{
    return Texts::format(text("Launch_at_system_startup_template", "Launch %@ at system startup"), {displayName});
}
QString enableFinderIntegration()
{
    return text("Enable_finder_integration", "Enable Finder integration");
}
QString finderIntegrationExplanation()
{
    return text(
        "Finder_integration_explanation",
        "Adds \u201cHide with Trovix\u201d and \u201cUnhide with Trovix\u201d to the right-click menu in Finder.");
}
QString forceSwitchHiddenVisibility()
{
    return text("Force_switch_hidden_visibility", "Always relaunch Finder to switch hidden files");
}
QString showInfo()
{
    return text("Show_info", "Show the panel");
}
QString purgeAfterHugeAppQuit()
{
    return text("Purge_after_huge_app_quit", "Free up memory after a large application quits");
}
QString autoFree()
{
    return text("Auto_free", "Free up memory automatically");
}
QString memoryUsageLimit()
{
    return text("Memory_usage_limit", "When memory used reaches:");
}
QString frequency()
{
    return text("Frequency", "Check every:");
}
QStringList frequencyItems()
{
    return {text("Frequency_8_hours", "8 hours"), text("Frequency_4_hours", "4 hours"),
            text("Frequency_2_hours", "2 hours")};
}
QString vision()
{
    return text("Vision", "Appearance:");
}
QStringList visionItems()
{
    return {text("Vision_light", "Light"), text("Vision_system", "Match the desktop"), text("Vision_dark", "Dark")};
}
QString generalSection()
{
    return text("Section_general", "General");
}
QString hiddenFilesSection()
{
    return text("Section_hidden_files", "Hidden files");
}
QString memorySection()
{
    return text("Section_memory", "Memory");
}

} // namespace PreferencesWindowStrings

namespace {

QLabel* sectionTitle(const QString& title, QWidget* parent)
{
    auto* label = new QLabel(title, parent);
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    return label;
}

QCheckBox* checkBox(const char* objectName, QWidget* parent)
{
    auto* box = new QCheckBox(parent);
    box->setObjectName(QString::fromLatin1(objectName));
    return box;
}

// Explanations sit under their control, indented to its text and a little smaller.
QLabel* note(const QString& text, const char* objectName, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setObjectName(QString::fromLatin1(objectName));
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.92);
    label->setFont(font);
    label->setContentsMargins(22, 0, 0, 0);
    return label;
}

} // namespace

PreferencesWindow::PreferencesWindow(QWidget* parent)
    : QWidget(parent, Qt::Window)
{
    setObjectName(QStringLiteral("wndPreferences"));
    setWindowTitle(PanelWindowContextualMenuStrings::preferencesWithoutDots());
    namespace S = PreferencesWindowStrings;

    m_btnPrefAutoStart = checkBox("btnPrefAutoStart", this);
    m_btnPrefShowInfo = checkBox("btnPrefShowInfo", this);
    m_btnPrefShowInfo->setText(S::showInfo());
    m_visionComboBox = new QComboBox(this);
    m_visionComboBox->setObjectName(QStringLiteral("m_visionComboBox"));
    m_visionComboBox->addItems(S::visionItems());

    m_enableFinderIntegrationButton = checkBox("enableFinderIntegrationButton", this);
    m_enableForceSwitchHiddenVisibilityButton = checkBox("enableForceSwitchHiddenVisibilityButton", this);
    m_enableForceSwitchHiddenVisibilityButton->setText(S::forceSwitchHiddenVisibility());

    m_btnPrefPurgeAfterHugeAppQuit = checkBox("btnPrefPurgeAfterHugeAppQuit", this);
    m_btnPrefPurgeAfterHugeAppQuit->setText(S::purgeAfterHugeAppQuit());
    m_btnPrefAutoFree = checkBox("btnPrefAutoFree", this);
    m_btnPrefAutoFree->setText(S::autoFree());
    m_sldPrefMemUsage = new QSlider(Qt::Horizontal, this);
    m_sldPrefMemUsage->setObjectName(QStringLiteral("sldPrefMemUsage"));
    m_sldPrefMemUsage->setRange(0, 100);
    m_sldPrefMemUsage->setPageStep(5);
    m_sldPrefMemUsage->setTickInterval(10);
    m_sldPrefMemUsage->setTickPosition(QSlider::TicksBelow);
    m_usageValue = new QLabel(this);
    m_usageValue->setObjectName(QStringLiteral("usageValue"));
    m_usageValue->setMinimumWidth(m_usageValue->fontMetrics().horizontalAdvance(QStringLiteral("100%")) + 4);
    m_usageValue->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_pupPrefFreq = new QComboBox(this);
    m_pupPrefFreq->setObjectName(QStringLiteral("pupPrefFreq"));
    m_pupPrefFreq->addItems(S::frequencyItems());
    m_txtPrefDesc = note(QString(), "txtPrefDesc", this);
    m_txtPrefDesc->setContentsMargins(0, 0, 0, 0);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 16, 20, 18);
    layout->setSpacing(6);

    layout->addWidget(sectionTitle(S::generalSection(), this));
    layout->addWidget(m_btnPrefAutoStart);
    layout->addWidget(m_btnPrefShowInfo);
    auto* vision = new QHBoxLayout;
    vision->addWidget(new QLabel(S::vision(), this));
    vision->addWidget(m_visionComboBox);
    vision->addStretch(1);
    layout->addLayout(vision);

    layout->addSpacing(10);
    layout->addWidget(sectionTitle(S::hiddenFilesSection(), this));
    layout->addWidget(m_enableFinderIntegrationButton);
    layout->addWidget(note(S::finderIntegrationExplanation(), "finderIntegrationNote", this));
    layout->addWidget(m_enableForceSwitchHiddenVisibilityButton);

    layout->addSpacing(10);
    layout->addWidget(sectionTitle(S::memorySection(), this));
    layout->addWidget(m_btnPrefPurgeAfterHugeAppQuit);
    layout->addWidget(m_btnPrefAutoFree);
    auto* grid = new QGridLayout;
    grid->setContentsMargins(22, 0, 0, 0);
    grid->setHorizontalSpacing(8);
    grid->addWidget(new QLabel(S::memoryUsageLimit(), this), 0, 0);
    grid->addWidget(m_sldPrefMemUsage, 0, 1);
    grid->addWidget(m_usageValue, 0, 2);
    grid->addWidget(new QLabel(S::frequency(), this), 1, 0);
    auto* frequency = new QHBoxLayout;
    frequency->addWidget(m_pupPrefFreq);
    frequency->addStretch(1);
    grid->addLayout(frequency, 1, 1, 1, 2);
    grid->setColumnStretch(1, 1);
    layout->addLayout(grid);
    layout->addSpacing(4);
    layout->addWidget(m_txtPrefDesc);
    layout->addStretch(1);

    connect(m_btnPrefAutoStart, &QCheckBox::clicked, this, &PreferencesWindow::launchAtStartupClicked);
    connect(m_enableFinderIntegrationButton, &QCheckBox::clicked, this, &PreferencesWindow::finderIntegrationClicked);
    connect(m_enableForceSwitchHiddenVisibilityButton, &QCheckBox::clicked, this,
            &PreferencesWindow::forceSwitchHiddenVisibilityClicked);
    connect(m_btnPrefShowInfo, &QCheckBox::clicked, this, &PreferencesWindow::showInfoClicked);
    connect(m_btnPrefPurgeAfterHugeAppQuit, &QCheckBox::clicked, this,
            &PreferencesWindow::purgeAfterHugeApplicationQuitClicked);
    connect(m_btnPrefAutoFree, &QCheckBox::clicked, this, &PreferencesWindow::autoFreeClicked);
    connect(m_sldPrefMemUsage, &QSlider::valueChanged, this, [this] {
        showUsageValue();
        Q_EMIT memoryUsageChanged(memoryUsageFraction());
    });
    connect(m_pupPrefFreq, &QComboBox::activated, this, &PreferencesWindow::frequencyChosen);
    connect(m_visionComboBox, &QComboBox::activated, this, &PreferencesWindow::visionChosen);

    showUsageValue();
    // Room for the description's two lines either way, so the window keeps its size as it changes.
    m_txtPrefDesc->setMinimumHeight(2 * m_txtPrefDesc->fontMetrics().lineSpacing() + 2);
    setFixedWidth(std::max(440, sizeHint().width()));
    adjustSize();
}

double PreferencesWindow::memoryUsageFraction() const
{
    return m_sldPrefMemUsage->value() / 100.0;
}

void PreferencesWindow::setMemoryUsageFraction(double fraction)
{
    const QSignalBlocker block(m_sldPrefMemUsage);
    m_sldPrefMemUsage->setValue(static_cast<int>(std::lround(fraction * 100.0)));
    showUsageValue();
}

void PreferencesWindow::showUsageValue()
{
    m_usageValue->setText(QStringLiteral("%1%").arg(m_sldPrefMemUsage->value()));
}
