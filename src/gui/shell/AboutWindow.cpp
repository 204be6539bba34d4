#include "AboutWindow.h"

#include "core/Texts.h"

#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QGuiApplication>
#include <QIcon>
#include <QLabel>
#include <QVBoxLayout>

AboutWindow::AboutWindow(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("AboutWindow"));
    setWindowTitle(
        Texts::format(PanelWindowContextualMenuStrings::aboutFormatter(), {QGuiApplication::applicationDisplayName()}));
    auto* layout = new QVBoxLayout(this);
    auto* icon = new QLabel(this);
    icon->setPixmap(QIcon(QStringLiteral(":/icons/trovix.svg")).pixmap(64, 64));
    icon->setAlignment(Qt::AlignHCenter);
    layout->addWidget(icon);
    auto* name = new QLabel(QGuiApplication::applicationDisplayName(), this);
    QFont f = name->font();
    f.setPointSizeF(f.pointSizeF() * 1.4);
    f.setBold(true);
    name->setFont(f);
    name->setAlignment(Qt::AlignHCenter);
    layout->addWidget(name);
    auto* version = new QLabel(QStringLiteral("Version %1").arg(QCoreApplication::applicationVersion()), this);
    version->setAlignment(Qt::AlignHCenter);
    layout->addWidget(version);
    auto* text = new QLabel(Texts::platformWords(QStringLiteral(
                                "Shows or hides hidden files in Finder, finds any file by name, and watches and "
                                "frees memory, from one icon in the tray.")),
                            this);
    text->setWordWrap(true);
    text->setAlignment(Qt::AlignHCenter);
    layout->addWidget(text);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    setFixedWidth(340);
}
