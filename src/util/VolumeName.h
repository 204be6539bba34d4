#pragma once

#include <QString>

// Size texts and a few path and string helpers. Sizes divide by 1024 but name the units KB, MB, GB...
namespace VolumeName {

// The size text of the panel, the memory labels and the disk-usage view.
QString stringFromSize(qint64 size);

} // namespace VolumeName
