#pragma once

#include <QtGlobal>

class UserDefaults;

// Intervals of the automatic free-up: index 0 "rarely" (8 h), 1 "normally" (4 h), 2 "often" (2 h). Each can
// be overridden for testing by a number stored under "ATEST:PURGE_FREG_RARELY" / "_NORMALLY" / "_OFTEN";
// an override stored as anything but a number is ignored.
namespace PurgeFrequency {

// Seconds between automatic purges for the index; current for an index out of range.
qint64 interval(const UserDefaults& defaults, int index, qint64 current);

} // namespace PurgeFrequency
