#pragma once

#include <QString>

// The notice after a purge (sent as a desktop notification).
namespace PurgeNotification {

// Only sizes above this are worth a notice.
constexpr qint64 kThreshold = 500000000;
inline bool isWorthShowing(qint64 cleanedSize)
{
    return cleanedSize > kThreshold;
}
QString title();
QString text(qint64 cleanedSize);

} // namespace PurgeNotification
