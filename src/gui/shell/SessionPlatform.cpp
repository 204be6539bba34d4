#include "SessionPlatform.h"

QByteArray SessionPlatform::platformFor(const QProcessEnvironment& environment)
{
    if (!environment.value(QStringLiteral("QT_QPA_PLATFORM")).isEmpty())
        return {};
    if (environment.value(QStringLiteral("DISPLAY")).isEmpty())
        return {};
    return QByteArrayLiteral("xcb");
}
