#include "VisibilityRestorerAtLaunch.h"

#include <QLoggingCategory>

namespace {
Q_LOGGING_CATEGORY(lcRestorer, "trovix.hidden")
}

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
    // Nobody waits for the write; a failure still leaves its line in the log.
    m_runner.executeAppleScript(manager->isHiddenShown() ? kWriteShowScript : kWriteHideScript,
                                [](const QStringList&, const std::optional<ScriptError>& error) {
                                    if (error)
                                        qCWarning(lcRestorer, "%s", qPrintable(error->localizedDescription()));
                                });
}
