#include "AutostartPopupWC.h"

#include "QBPurgeController.h"
#include "core/Settings.h"
#include "core/Texts.h"
#include "util/VolumeName.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

AutostartPopupWC::AutostartPopupWC(Settings& settings, NotificationCenter& center, QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint)
    , m_settings(settings)
    , m_center(center)
{
    setObjectName(QStringLiteral("autostartPopup"));
    setAttribute(Qt::WA_DeleteOnClose, false);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(18, 16, 18, 14);
    m_message = new QLabel(this);
    m_message->setObjectName(QStringLiteral("autostartMessage"));
    m_message->setTextFormat(Qt::RichText);
    m_message->setWordWrap(true);
    layout->addWidget(m_message);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    m_no = new QPushButton(Texts::platformWords(QStringLiteral("No")), this);
    m_no->setObjectName(QStringLiteral("btn_No"));
    m_yes = new QPushButton(Texts::platformWords(QStringLiteral("Yes")), this);
    m_yes->setObjectName(QStringLiteral("btn_Yes"));
    m_yes->setDefault(true);
    buttons->addWidget(m_no);
    buttons->addWidget(m_yes);
    layout->addLayout(buttons);
    connect(m_yes, &QPushButton::clicked, this, &AutostartPopupWC::yesPressed);
    connect(m_no, &QPushButton::clicked, this, &AutostartPopupWC::noPressed);
    setCleanedSize(0);
}

void AutostartPopupWC::setCleanedSize(qint64 bytes)
{
    // "You have cleaned " + the size in bold + " of memory.", put together as "%@%@%@".
    const QString size = QStringLiteral("<b>%1</b>").arg(VolumeName::stringFromSize(bytes).toHtmlEscaped());
    m_message->setText(Texts::format(QStringLiteral("%@%@%@"),
                                     {QStringLiteral("You have cleaned "), size, QStringLiteral(" of memory.")}));
}

QString AutostartPopupWC::messageText() const
{
    return m_message->text();
}

void AutostartPopupWC::yesPressed()
{
    QBPurgeController::TurnOnAutoStartAndAutoFree(m_center);
    close();
}

void AutostartPopupWC::noPressed()
{
    m_settings.setShowAutostartPopupAfterPurge(false);
    m_settings.defaults().synchronize();
    close();
}
