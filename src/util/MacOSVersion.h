#pragma once

#include <QString>

#include <optional>

// Answers whether the running system is at least, at most or exactly a given release. The version comes
// from the system's version file, which Linux does not have: every query then answers YES, so the program
// behaves as on the newest system.
class MacOSVersion
{
public:
    static constexpr const char* kSystemVersionPath = "/System/Library/CoreServices/SystemVersion.plist";

    // Reads the version file once; the process-wide instance.
    static MacOSVersion& GetInstance();

    // A nullopt version stands for a missing file or key.
    explicit MacOSVersion(std::optional<QString> systemVersion);

    // The "ProductVersion" string of a property-list file, or nullopt.
    static std::optional<QString> readProductVersion(const QString& plistPath);

    std::optional<QString> systemVersion() const { return m_systemVersion; }

    bool is_10_9_orHigher() const { return m_is_10_9; }
    bool is_10_10_orHigher() const { return m_is_10_10; }
    bool is_10_11_orHigher() const { return m_is_10_11; }
    bool is_10_13_orHigher() const { return m_is_10_13; }
    bool is_10_14_orHigher() const { return m_is_10_14; }

    bool isMacOSHasVersion(const std::optional<QString>& version, bool orLower, bool orHigher) const;

    // Developer self-test: logs one line per version and mode; changes nothing.
    void runTests() const;
    QString printTestToCheckMacOSVersion(const QString& version) const;
    QString printTestToCheckMacOSVersion(const QString& version, bool orLower, bool orHigher) const;

    // Numeric, component-wise comparison: "10.10" > "10.9", "10.8.4" < "10.8.5". Missing components are 0.
    static int compareVersions(const QString& a, const QString& b);

private:
    std::optional<QString> m_systemVersion;
    bool m_is_10_9 = true;
    bool m_is_10_10 = true;
    bool m_is_10_11 = true;
    bool m_is_10_13 = true;
    bool m_is_10_14 = true;
};
