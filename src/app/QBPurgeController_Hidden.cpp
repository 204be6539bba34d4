// Hidden-files side of the controller. Inert until the hidden-files manager lands: the state reads
// "not shown" and the switch does nothing.
#include "QBPurgeController.h"

void QBPurgeController::startHiddenFilesTracking() {}
void QBPurgeController::switchVisibility() {}
void QBPurgeController::callbackWithNotification(const QVariantMap&) {}
void QBPurgeController::hideSelectedFilesNotificationHandler(const QVariantMap&) {}
void QBPurgeController::showSelectedFilesNotificationHandler(const QVariantMap&) {}
void QBPurgeController::toggleForceSwitchHiddenVisibility(int) {}
bool QBPurgeController::isHiddenShown() const { return false; }
bool QBPurgeController::panelIsHiddenShown() const { return isHiddenShown(); }
bool QBPurgeController::panelIsHiddenUpdating() const { return false; }
void QBPurgeController::panelShowHiddenControlChanged() {}
bool QBPurgeController::panelMightLoseFocusBecauseOfScript() const { return false; }
void QBPurgeController::prepareUpdateStatusIcon() { updateStatusIconWithImage(statusIcon(isHiddenShown())); }
void QBPurgeController::updateStatusIcon_Trovix() { prepareUpdateStatusIcon(); updateStatusItem(); }
