#include "VolumeName.h"

namespace VolumeName {

QString stringFromSize(qint64 size)
{
    if (size <= 999)
        return QString::asprintf("%lli bytes", static_cast<long long>(size));
    static const char* const units[] = {"KB", "MB", "GB", "TB"};
    constexpr double kStep = 1.0 / 1024.0;
    double v = static_cast<double>(size) * kStep;
    int unit = 0;
    // The unit changes at 1000 while the divisor stays 1024, so 1000 bytes read 0.98 KB.
    while (v >= 1000.0 && unit < 3) {
        v *= kStep;
        ++unit;
    }
    const char* format = v < 10.0 ? "%1.2f %s" : (v < 100.0 ? "%1.1f %s" : "%1.0f %s");
    return QString::asprintf(format, v, units[unit]);
}

} // namespace VolumeName
