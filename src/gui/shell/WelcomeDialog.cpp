#include "WelcomeDialog.h"

#include "core/Texts.h"

#include <QDialogButtonBox>
#include <QGuiApplication>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {
QString welcomeText(const char* key, const char* english)
{
    return Texts::localized("WelcomeDialogWC", key, QString::fromLatin1(english));
}
} // namespace

WelcomeDialog::WelcomeDialog(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("WelcomeDialog"));
    setWindowTitle(
        Texts::format(welcomeText("Welcome_title", "Welcome to %@"), {QGuiApplication::applicationDisplayName()}));
    auto* layout = new QVBoxLayout(this);
    auto* icon = new QLabel(this);
    icon->setPixmap(QIcon(QStringLiteral(":/icons/trovix.svg")).pixmap(64, 64));
    icon->setAlignment(Qt::AlignHCenter);
    layout->addWidget(icon);
    auto* title = new QLabel(windowTitle(), this);
    QFont f = title->font();
    f.setPointSizeF(f.pointSizeF() * 1.4);
    f.setBold(true);
    title->setFont(f);
    title->setAlignment(Qt::AlignHCenter);
    layout->addWidget(title);
    auto* body = new QLabel(this);
    body->setObjectName(QStringLiteral("welcomeText"));
    body->setWordWrap(true);
    body->setTextFormat(Qt::RichText);
    body->setText(welcomeText("Welcome_body",
                              "<p>Trovix lives in the tray. Click its icon to open the panel:</p>"
                              "<ul>"
                              "<li><b>Show hidden files</b> switches Finder between showing and hiding dot-files. "
                              "The icon shows an open eye while hidden files are visible.</li>"
                              "<li><b>Search</b> finds any file by name, hidden ones and bundle contents included: "
                              "type a name and press Return.</li>"
                              "<li><b>System Usage</b> shows how much memory is in use; <b>Cleanup</b> frees memory "
                              "held by caches.</li>"
                              "</ul>"
                              "<p>Drag the panel away from the icon to keep it open on the desktop.</p>"));
    layout->addWidget(body);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok, this);
    buttons->button(QDialogButtonBox::Ok)->setText(welcomeText("Welcome_button", "Get Started"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    layout->addWidget(buttons);
    setFixedWidth(420);
}
