#include "CleanMemoryButton.h"

CleanMemoryButton::CleanMemoryButton(QWidget* parent)
    : QPushButton(parent)
{
    setObjectName(QStringLiteral("cleanButton"));
}

void CleanMemoryButton::beginProgressUpdate()
{
    m_progress = 0.0f;
}

void CleanMemoryButton::endProgressUpdate()
{
    m_progress = 0.0f;
    update();
}

void CleanMemoryButton::setProgess(float progress)
{
    m_progress = progress;
    update();
}
