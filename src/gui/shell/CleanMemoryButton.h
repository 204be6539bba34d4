#pragma once

#include <QColor>
#include <QPushButton>

// Texts of the panel's clean button.
namespace PanelWindowStrings {
QString cleanButtonStateReadyForCleanUp();
QString cleanButtonStateCleaning();
} // namespace PanelWindowStrings

// The panel's clean button. While a purge runs it is drawn with its progress as a fill from the left and
// looks disabled; hover feedback ("tracking") is off meanwhile.
class CleanMemoryButton : public QPushButton
{
    Q_OBJECT
public:
    explicit CleanMemoryButton(QWidget* parent = nullptr);

    // The title's ink: the palette's highlight where it stands out from the button, else the button text.
    static QColor titleColor(const QPalette& palette);

    void beginProgressUpdate();
    void endProgressUpdate();
    // 0..1; the misspelling is the method's name.
    void setProgess(float progress);
    float progress() const { return m_progress; }
    bool isInProgress() const { return m_inProgress; }
    bool isTracking() const { return testAttribute(Qt::WA_Hover); }
    void setTitle(const QString& title) { setText(title); }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    float m_progress = 0.0f;
    bool m_inProgress = false;
};
