#include "Controls.h"

#include <QEnterEvent>
#include <QIcon>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QStyle>
#include <QSvgRenderer>

#include <cmath>

namespace {

double relativeLuminance(const QColor& c)
{
    const auto channel = [](float v) {
        return v <= 0.03928f ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
    };
    const QColor rgb = c.toRgb();
    return 0.2126 * channel(rgb.redF()) + 0.7152 * channel(rgb.greenF()) + 0.0722 * channel(rgb.blueF());
}

} // namespace

double contrastRatio(const QColor& a, const QColor& b)
{
    // A translucent a is seen drawn over b.
    const QColor back = b.toRgb();
    const QColor front = a.toRgb();
    const float alpha = front.alphaF();
    const QColor seen = QColor::fromRgbF(front.redF() * alpha + back.redF() * (1 - alpha),
                                         front.greenF() * alpha + back.greenF() * (1 - alpha),
                                         front.blueF() * alpha + back.blueF() * (1 - alpha));
    const double la = relativeLuminance(seen);
    const double lb = relativeLuminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

QIcon tintedIcon(const QString& svgPath, const QColor& ink)
{
    QSvgRenderer renderer(svgPath);
    QIcon icon;
    for (int size : {16, 22, 24, 32, 48, 64}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter p(&pixmap);
        renderer.render(&p);
        p.setCompositionMode(QPainter::CompositionMode_SourceIn);
        p.fillRect(pixmap.rect(), ink);
        p.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

ToggleSwitch::ToggleSwitch(QWidget* parent)
    : QAbstractButton(parent)
{
    setCheckable(true);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::TabFocus);
}

QSize ToggleSwitch::sizeHint() const
{
    return {44, 24};
}

void ToggleSwitch::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF track = QRectF(rect()).adjusted(1, 1, -1, -1);
    const qreal radius = track.height() / 2;
    // The on state is filled with the active highlight even while the panel is not the active window,
    // where many palettes grey their highlight out; off is the mid tone.
    QColor on = palette().color(QPalette::Active, QPalette::Highlight);
    QColor off = palette().color(QPalette::Mid);
    if (!isEnabled()) {
        on.setAlpha(110);
        off.setAlpha(110);
    }
    p.setPen(Qt::NoPen);
    p.setBrush(isChecked() ? on : off);
    p.drawRoundedRect(track, radius, radius);
    const qreal d = track.height() - 4;
    const qreal x = isChecked() ? track.right() - 2 - d : track.left() + 2;
    p.setBrush(isEnabled() ? QColor(Qt::white) : QColor(245, 245, 245));
    p.drawEllipse(QRectF(x, track.top() + 2, d, d));
    if (hasFocus()) {
        p.setPen(QPen(palette().color(QPalette::Highlight), 1.5));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(track.adjusted(-0.5, -0.5, 0.5, 0.5), radius, radius);
    }
}

ClickableLabel::ClickableLabel(QWidget* parent)
    : QLabel(parent)
{
    setCursor(Qt::PointingHandCursor);
}

void ClickableLabel::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()))
        Q_EMIT clicked();
    QLabel::mouseReleaseEvent(event);
}

void ClickableLabel::enterEvent(QEnterEvent* event)
{
    QFont f = font();
    f.setWeight(QFont::Medium);
    setFont(f);
    QLabel::enterEvent(event);
}

void ClickableLabel::leaveEvent(QEvent* event)
{
    QFont f = font();
    f.setWeight(QFont::Normal);
    setFont(f);
    QLabel::leaveEvent(event);
}

PanelView::PanelView(QWidget* parent)
    : QWidget(parent)
{
    updateMargins();
}

void PanelView::setTriangle(bool shown, bool pointsUp, int tipX)
{
    m_triangle = shown;
    m_pointsUp = pointsUp;
    m_tipX = tipX;
    updateMargins();
    update();
}

void PanelView::updateMargins()
{
    const int t = m_triangle ? kTriangleHeight : 0;
    setContentsMargins(16, 12 + (m_pointsUp ? t : 0), 16, 14 + (m_pointsUp ? 0 : t));
}

QPainterPath PanelView::shape() const
{
    const int t = m_triangle ? kTriangleHeight : 0;
    const QRectF card = QRectF(rect()).adjusted(0.5, 0.5 + (m_pointsUp ? t : 0), -0.5, -0.5 - (m_pointsUp ? 0 : t));
    QPainterPath path;
    path.addRoundedRect(card, kRadius, kRadius);
    if (m_triangle) {
        const qreal tip = m_tipX < 0 ? width() / 2.0 : std::clamp<qreal>(m_tipX, kRadius + t, width() - kRadius - t);
        QPainterPath triangle;
        if (m_pointsUp) {
            triangle.moveTo(tip - t - 1, card.top() + 1);
            triangle.lineTo(tip, 0.5);
            triangle.lineTo(tip + t + 1, card.top() + 1);
        } else {
            triangle.moveTo(tip - t - 1, card.bottom() - 1);
            triangle.lineTo(tip, height() - 0.5);
            triangle.lineTo(tip + t + 1, card.bottom() - 1);
        }
        triangle.closeSubpath();
        path = path.united(triangle);
    }
    return path;
}

void PanelView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(palette().color(QPalette::Mid), 1));
    p.setBrush(palette().color(QPalette::Window));
    p.drawPath(shape());
}

void PanelView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    update();
}
