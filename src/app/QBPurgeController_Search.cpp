// Search side of the controller: the panel's search hand-off. Inert until the search manager lands.
#include "QBPurgeController.h"

void QBPurgeController::panelSearchRequested(const QString&) {}
void QBPurgeController::openSearchResultDialog() {}
