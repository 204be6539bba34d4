// Memory side of the controller: figures, purge and free-up preferences. Inert until it lands.
#include "QBPurgeController.h"

void QBPurgeController::initMemoryValues() {}
int QBPurgeController::updateMemoryStatictics() { return -1; }
quint64 QBPurgeController::calculateTotalSize() const { return 0; }
quint64 QBPurgeController::calculateTotalPages() const { return 0; }
quint64 QBPurgeController::calculateUsedPages() const { return 0; }
quint64 QBPurgeController::calculateFreePages() const { return 0; }
quint64 QBPurgeController::calculateFreeSize() const { return 0; }
void QBPurgeController::fillInfoPanel() {}
void QBPurgeController::checkMemory(bool) {}
void QBPurgeController::updateLastFreeLabel() {}
void QBPurgeController::onFreeMemory(bool) {}
void QBPurgeController::onTaskPurge() {}
void QBPurgeController::notifyPurged(bool) {}
void QBPurgeController::showIfNeededNotificationWithCleanSize(qint64) {}
void QBPurgeController::checkAutoPurge() {}
void QBPurgeController::initPurgeFreq() {}
void QBPurgeController::updatePrefDesc() {}
QString QBPurgeController::prefDescription() const { return {}; }
void QBPurgeController::onPrefAutoFree(bool) {}
void QBPurgeController::onPrefMemUsage(double) {}
void QBPurgeController::onPrefFreq(int) {}
void QBPurgeController::onPrefPurgeAfterHugeApplicationQuit(bool) {}
void QBPurgeController::onPrefShowInfo(bool) {}
void QBPurgeController::turnOnAutoStartAndAutoFree() {}
void QBPurgeController::onPurgeManagerStartPurge() {}
void QBPurgeController::onPurgeManagerEndPurge() {}
void QBPurgeController::onPurgeManagerPurgingProgress(float) {}
void QBPurgeController::panelCleanButtonPressed() {}
