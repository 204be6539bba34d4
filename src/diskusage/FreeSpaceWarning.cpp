#include "FreeSpaceWarning.h"

#include "core/DesktopNotification.h"
#include "core/Texts.h"
#include "util/VolumeName.h"

#include <cstdio>

FreeSpaceWarning::FreeSpaceWarning(PromoFreeSpaceChecker& checker, Sender sender)
    : m_checker(checker)
    , m_sender(sender ? std::move(sender) : Sender(&DesktopNotification::send))
{
}

bool FreeSpaceWarning::check()
{
    if (!m_checker.isNeedShowLackOfMemoryWarning() || !m_checker.lowVolume())
        return false;
    const VolumeInfo& volume = *m_checker.lowVolume();
    if (!m_sender(title(), text(volume))) {
        std::fprintf(stderr, "trovix: no notification service for the low disk space warning\n");
        return false;
    }
    return true;
}

QString FreeSpaceWarning::title()
{
    return QStringLiteral("Your disk is almost full");
}

QString FreeSpaceWarning::text(const VolumeInfo& volume)
{
    // The start-up disk by that name; any other volume by its label, else where it is mounted.
    const QString name = volume.path == QLatin1String("/") ? QStringLiteral("the start-up disk")
                                                           : (volume.name.isEmpty() ? volume.path : volume.name);
    return Texts::format(
        QStringLiteral("Only %@ of %@ is free on %@."),
        {VolumeName::stringFromSize(qint64(volume.freeSize)), VolumeName::stringFromSize(qint64(volume.size)), name});
}
