#pragma once

#include <QAbstractButton>
#include <QLabel>
#include <QWidget>

// The panel's small custom controls.

// How far apart two colours are for reading, 1 (the same) to 21 (black on white), as the WCAG
// contrast ratio of their relative luminances. A translucent a counts as drawn over b.
double contrastRatio(const QColor& a, const QColor& b);

// A one-colour icon from an SVG resource, drawn in ink (so it follows the palette).
QIcon tintedIcon(const QString& svgPath, const QColor& ink);

// An on/off switch drawn as a sliding knob.
class ToggleSwitch : public QAbstractButton
{
    Q_OBJECT
public:
    explicit ToggleSwitch(QWidget* parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
};

// A text that acts on a click and shows it can: medium weight and a hand cursor while hovered.
class ClickableLabel : public QLabel
{
    Q_OBJECT
public:
    explicit ClickableLabel(QWidget* parent = nullptr);

Q_SIGNALS:
    void clicked();

protected:
    void mouseReleaseEvent(QMouseEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
};

// The panel's background: a rounded card with a pointer triangle aimed at the tray icon when the panel
// is attached. The triangle sits on top, or at the bottom when the panel opens above the icon.
class PanelView : public QWidget
{
    Q_OBJECT
public:
    static constexpr int kTriangleHeight = 9;
    static constexpr int kRadius = 10;

    explicit PanelView(QWidget* parent = nullptr);

    void setTriangle(bool shown, bool pointsUp, int tipX);
    bool isTriangleShown() const { return m_triangle; }
    bool trianglePointsUp() const { return m_pointsUp; }
    // The card and the triangle, in this widget's coordinates.
    QPainterPath shape() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void updateMargins();
    bool m_triangle = true;
    bool m_pointsUp = true;
    int m_tipX = -1;
};
