#include "PurgeNotification.h"

#include "core/Texts.h"
#include "util/VolumeName.h"

namespace PurgeNotification {

QString title()
{
    return QStringLiteral("Trovix");
}

QString text(qint64 cleanedSize)
{
    return Texts::format(Texts::platformWords(QStringLiteral("%@ of RAM have been cleaned just now.")),
                         {VolumeName::stringFromSize(cleanedSize)});
}

} // namespace PurgeNotification
