#include "InformationAboutAccessAlertsWC.h"

#include "hidden/HiddenManagerLocalizable.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

InformationAboutAccessAlertsWC::InformationAboutAccessAlertsWC(QWidget* parent, std::function<void()> readMore)
    : QDialog(parent)
    , m_readMore(std::move(readMore))
{
    setObjectName(QStringLiteral("InformationAboutAccessAlertsWC"));
    setWindowModality(Qt::WindowModal);
    windowDidLoad();
}

void InformationAboutAccessAlertsWC::windowDidLoad()
{
    using namespace HiddenManagerLocalizable;
    setAutoFillBackground(true);
    QPalette pal = palette();
    pal.setColor(QPalette::Window, Qt::white);
    pal.setColor(QPalette::WindowText, Qt::black);
    setPalette(pal);

    m_preferencesIcon = new QLabel(this);
    m_preferencesIcon->setObjectName(QStringLiteral("preferencesIcon"));
    const QIcon icon =
        QIcon::fromTheme(QStringLiteral("preferences-system"), QIcon(QStringLiteral(":/icons/trovix.svg")));
    m_preferencesIcon->setPixmap(icon.pixmap(64, 64));

    m_title = new QLabel(informationAboutAccessAlertsTitle(), this);
    m_title->setObjectName(QStringLiteral("title"));
    m_title->setWordWrap(true);
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_message = new QLabel(informationAboutAccessAlertsMessage(), this);
    m_message->setObjectName(QStringLiteral("message"));
    m_message->setWordWrap(true);

    m_grantAccessButton = new QPushButton(informationAboutAccessAlertsButtonGrantAccess(), this);
    m_grantAccessButton->setObjectName(QStringLiteral("grantAccessButton"));
    m_grantAccessButton->setDefault(true);
    m_cancelButton = new QPushButton(informationAboutAccessAlertsButtonCancel(), this);
    m_cancelButton->setObjectName(QStringLiteral("cancelButton"));
    m_readMoreButton = new QPushButton(informationAboutAccessAlertsButtonReadMore(), this);
    m_readMoreButton->setObjectName(QStringLiteral("readMoreButton"));
    m_readMoreButton->setAutoDefault(false);

    connect(m_grantAccessButton, &QPushButton::clicked, this, &InformationAboutAccessAlertsWC::onGrantAccessClicked);
    connect(m_cancelButton, &QPushButton::clicked, this, &InformationAboutAccessAlertsWC::onCancelClicked);
    connect(m_readMoreButton, &QPushButton::clicked, this, &InformationAboutAccessAlertsWC::onReadMoreClicked);

    auto* texts = new QVBoxLayout;
    texts->addWidget(m_title);
    texts->addWidget(m_message);
    auto* top = new QHBoxLayout;
    top->addWidget(m_preferencesIcon, 0, Qt::AlignTop);
    top->addLayout(texts, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_readMoreButton);
    buttons->addStretch(1);
    buttons->addWidget(m_cancelButton);
    buttons->addWidget(m_grantAccessButton);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addLayout(buttons);
    setMinimumWidth(420);
}

void InformationAboutAccessAlertsWC::onGrantAccessClicked()
{
    done(kGrantAccessCode);
}

void InformationAboutAccessAlertsWC::onCancelClicked()
{
    done(kCancelCode);
}

void InformationAboutAccessAlertsWC::onReadMoreClicked()
{
    if (m_readMore)
        m_readMore();
}
