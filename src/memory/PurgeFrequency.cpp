#include "PurgeFrequency.h"

#include "core/Settings.h"
#include "core/UserDefaults.h"

namespace PurgeFrequency {

qint64 interval(const UserDefaults& defaults, int index, qint64 current)
{
    auto read = [&defaults](const QString& key, qint64 fallback) {
        return defaults.isNumber(key) ? defaults.integerForKey(key) : fallback;
    };
    switch (index) {
    case 0:
        return read(SettingsKey::PurgeFregRarely, 28800);
    case 1:
        return read(SettingsKey::PurgeFregNormally, 14400);
    case 2:
        return read(SettingsKey::PurgeFregOften, 7200);
    default:
        return current;
    }
}

} // namespace PurgeFrequency
