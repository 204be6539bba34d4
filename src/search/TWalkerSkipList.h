#pragma once

#include <string>
#include <string_view>

// The user's id and home folder, from the password database.
class UserInfo
{
public:
    UserInfo();
    const std::string& userID() const { return m_userID; }
    const std::string& homePath() const { return m_homePath; }

private:
    std::string m_userID;
    std::string m_homePath;
};

// Three personal-data entries of the user's Library that the walker never reports or enters. Names
// and folders are compared byte for byte (case-sensitive).
class TWalkerSkipList
{
public:
    explicit TWalkerSkipList(const std::string& homePath);
    // Made once from the password database's home folder.
    static const TWalkerSkipList& shared();

    bool isInExcludeListName(std::string_view name, std::string_view path) const;

    // Which name is skipped inside this folder; empty when none. Lets the walker test once per folder.
    std::string_view excludedNameInFolder(std::string_view path) const;

    const std::string& libraryPath() const { return m_libraryPath; }
    const std::string& appSupportPath() const { return m_appSupportPath; }
    const std::string& preferencesPath() const { return m_preferencesPath; }

private:
    std::string m_libraryPath;
    std::string m_appSupportPath;
    std::string m_preferencesPath;
    std::string m_calendarsName = "Calendars";
    std::string m_addressBookName = "AddressBook";
    std::string m_addressBookPlistName = "com.apple.AddressBook.plist";
};
