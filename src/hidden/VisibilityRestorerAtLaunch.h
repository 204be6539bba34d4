#pragma once

#include "hidden/HiddenManager.h"

#include <QObject>

class ScriptRunner;

// Keeps the file managers' stored setting in line with an in-place switch: after each switch that the
// manager reports, the single-switch type also writes the new state with the "WriteIntoSystemPreferences"
// scripts, so a file manager that starts later shows the same. Becomes the manager's listener when made.
class VisibilityRestorerAtLaunch : public QObject, public HiddenManagerListener
{
    Q_OBJECT
public:
    static inline const QString kWriteShowScript = QStringLiteral("WriteIntoSystemPreferencesShowHiddens");
    static inline const QString kWriteHideScript = QStringLiteral("WriteIntoSystemPreferencesHideHiddens");

    VisibilityRestorerAtLaunch(HiddenManager& manager, ScriptRunner& runner, QObject* parent = nullptr);

    void hiddenManagerAttemptToChangeVisibilityCompleted(HiddenManager* manager) override;

private:
    ScriptRunner& m_runner;
};
