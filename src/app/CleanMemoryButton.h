#pragma once

#include <QPushButton>

// The panel's clean button: shows the purge's progress while it runs.
class CleanMemoryButton : public QPushButton
{
    Q_OBJECT
public:
    explicit CleanMemoryButton(QWidget* parent = nullptr);

    void beginProgressUpdate();
    void endProgressUpdate();
    // 0..1; the misspelling is the method's name.
    void setProgess(float progress);
    float progress() const { return m_progress; }

private:
    float m_progress = 0.0f;
};
