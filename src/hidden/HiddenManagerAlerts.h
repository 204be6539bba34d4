#pragma once

#include "hidden/ScriptRunner.h"

#include <functional>

// The two sheets with which HiddenManager explains the permissions its scripts need: the information
// shown before the first switch and the alert for a refused switch. The windowed program provides
// them; without them (the command line, tests of the core) nothing is shown and the information
// sheet's completion is never called.
class HiddenManagerAlerts
{
public:
    virtual ~HiddenManagerAlerts() = default;
    // The completion receives true when the user chose "Grant Access".
    virtual void
    displayInformationAboutAccessibilityAlertsWithCompletion(std::function<void(bool accepted)> completion) = 0;
    virtual void displayInformationAboutAccessError(const ScriptError& error) = 0;
};
