#pragma once

#include "gui/shell/QBPurgeController.h"
#include "support/SettingsFixture.h"

// The controller's collaborators over a settings fixture, with no tray; tests add their own fakes.
inline QBPurgeController::Collaborators controllerCollaborators(SettingsFixture &f)
{
    QBPurgeController::Collaborators c;
    c.settings = &f.settings;
    c.center = &f.center;
    c.distributed = &f.distributed;
    c.clock = &f.clock;
    c.version = &f.version;
    c.useTray = false;
    c.manageExtensions = false;
    return c;
}
