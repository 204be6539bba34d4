#pragma once

#include <QString>

#include <optional>

class UserDefaults;

// How the hidden-files display is switched, as the user chose it in the preferences window.
enum class SwitchHiddenFilesVisibilityOption : int
{
    systemDefault = 0,
    singleSwitch = 1,
    relaunchFinder = 2,
};

// No value for a raw value outside 0..2.
std::optional<SwitchHiddenFilesVisibilityOption> switchHiddenFilesVisibilityOptionFromRawValue(qint64 raw);

// The user's stored preferences of the hidden-files side.
class Preferences
{
public:
    static inline const QString kSwitchHiddenFilesVisibilityOptionKey =
        QStringLiteral("Preferences.SwitchHiddenFilesVisibilityOptionRawValue");

    explicit Preferences(UserDefaults& defaults);
    static Preferences& shared();

    // A stored value outside the enumeration reads as systemDefault.
    SwitchHiddenFilesVisibilityOption switchHiddenFilesVisibilityOption() const;
    void setSwitchHiddenFilesVisibilityOption(SwitchHiddenFilesVisibilityOption option);

private:
    UserDefaults& m_defaults;
};
