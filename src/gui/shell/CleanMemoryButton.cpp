#include "CleanMemoryButton.h"

#include "Controls.h"
#include "core/Texts.h"

#include <QPainter>
#include <QPainterPath>
#include <QStyleOptionButton>

#include <algorithm>

namespace PanelWindowStrings {

QString cleanButtonStateReadyForCleanUp()
{
    return Texts::localized("PanelWindow", "Clean_up_memory_button", QStringLiteral("Cleanup"));
}

QString cleanButtonStateCleaning()
{
    return Texts::localized("PanelWindow", "Clean_up_memory_button_stateCleaning", QStringLiteral("Cleaning")) +
           QStringLiteral("...");
}

} // namespace PanelWindowStrings

CleanMemoryButton::CleanMemoryButton(QWidget* parent)
    : QPushButton(parent)
{
    setObjectName(QStringLiteral("cleanButton"));
    setAttribute(Qt::WA_Hover, true);
    setCursor(Qt::PointingHandCursor);
    setText(PanelWindowStrings::cleanButtonStateReadyForCleanUp());
}

QColor CleanMemoryButton::titleColor(const QPalette& palette)
{
    // Highlights are chosen to mark selections, not to be read on a button: use one only when it stands
    // out from the button's face as well as large text must.
    const QColor accent = palette.color(QPalette::Active, QPalette::Highlight);
    return contrastRatio(accent, palette.color(QPalette::Button)) >= 3.0 ? accent
                                                                         : palette.color(QPalette::ButtonText);
}

QSize CleanMemoryButton::sizeHint() const
{
    const QFontMetrics fm(font());
    return {std::max(120, fm.horizontalAdvance(text()) + 40), fm.height() + 16};
}

void CleanMemoryButton::beginProgressUpdate()
{
    m_inProgress = true;
    m_progress = 0.0f;
    setAttribute(Qt::WA_Hover, false);
    update();
}

void CleanMemoryButton::endProgressUpdate()
{
    m_inProgress = false;
    m_progress = 0.0f;
    setAttribute(Qt::WA_Hover, true);
    update();
}

void CleanMemoryButton::setProgess(float progress)
{
    m_progress = std::clamp(progress, 0.0f, 1.0f);
    update();
}

void CleanMemoryButton::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF frame = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QPainterPath shape;
    shape.addRoundedRect(frame, frame.height() / 2, frame.height() / 2);

    const QColor ink = titleColor(palette());
    const bool pressed = isDown() && !m_inProgress;
    const bool hovered = isTracking() && underMouse() && isEnabled();
    QColor background = palette().color(QPalette::Button);
    if (pressed)
        background = background.darker(112);
    else if (hovered)
        background = background.lighter(104);
    p.fillPath(shape, background);

    if (m_inProgress && m_progress > 0.0f) {
        p.save();
        p.setClipPath(shape);
        QColor fill = ink;
        fill.setAlphaF(0.28f);
        p.fillRect(QRectF(frame.left(), frame.top(), frame.width() * double(m_progress), frame.height()), fill);
        p.restore();
    }

    QColor border = ink;
    border.setAlphaF(m_inProgress || !isEnabled() ? 0.35f : 0.8f);
    p.setPen(QPen(border, 1.0));
    p.drawPath(shape);

    // The disabled look while purging: the title fades, the progress stays readable.
    QColor title = ink;
    if (m_inProgress || !isEnabled())
        title.setAlphaF(0.55f);
    p.setPen(title);
    QFont f = font();
    f.setBold(true);
    p.setFont(f);
    p.drawText(rect(), Qt::AlignCenter, text());
}
