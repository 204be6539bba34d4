#include "Preferences.h"

#include "core/UserDefaults.h"

std::optional<SwitchHiddenFilesVisibilityOption> switchHiddenFilesVisibilityOptionFromRawValue(qint64 raw)
{
    if (raw < 0 || raw > 2)
        return std::nullopt;
    return static_cast<SwitchHiddenFilesVisibilityOption>(raw);
}

Preferences::Preferences(UserDefaults& defaults)
    : m_defaults(defaults)
{
}

Preferences& Preferences::shared()
{
    static Preferences preferences(UserDefaults::standardUserDefaults());
    return preferences;
}

SwitchHiddenFilesVisibilityOption Preferences::switchHiddenFilesVisibilityOption() const
{
    return switchHiddenFilesVisibilityOptionFromRawValue(
               m_defaults.integerForKey(kSwitchHiddenFilesVisibilityOptionKey))
        .value_or(SwitchHiddenFilesVisibilityOption::systemDefault);
}

void Preferences::setSwitchHiddenFilesVisibilityOption(SwitchHiddenFilesVisibilityOption option)
{
    m_defaults.setObject(static_cast<qint64>(option), kSwitchHiddenFilesVisibilityOptionKey);
    m_defaults.synchronize();
}
