#include "VisibilityRestorerAtLaunch.h"

VisibilityRestorerAtLaunch::VisibilityRestorerAtLaunch(HiddenManager& manager, ScriptRunner& runner, QObject* parent)
    : QObject(parent)
    , m_runner(runner)
{
    manager.setListener(this, this);
}

void VisibilityRestorerAtLaunch::hiddenManagerAttemptToChangeVisibilityCompleted(HiddenManager* manager)
{
    if (!manager || manager->scriptType() != HiddenManager::HiddenManagerScriptTypeSingleSwitch)
        return;
    m_runner.executeAppleScript(manager->isHiddenShown() ? kWriteShowScript : kWriteHideScript, nullptr);
}
