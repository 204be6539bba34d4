#include "TWalkerSkipList.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

UserInfo::UserInfo()
{
    const uid_t uid = getuid();
    if (const passwd* entry = getpwuid(uid); entry && entry->pw_dir) {
        char buffer[16];
        std::snprintf(buffer, sizeof buffer, "%u", static_cast<unsigned>(uid));
        m_userID = buffer;
        m_homePath = entry->pw_dir;
        return;
    }
    // No password entry (a container's made-up uid): the conventional place of a home folder.
    const char* name = std::getenv("USER");
    m_homePath = std::string("/home/") + (name ? name : "");
}

TWalkerSkipList::TWalkerSkipList(const std::string& homePath)
    : m_libraryPath(homePath + "/" + "Library")
    , m_appSupportPath(m_libraryPath + "/" + "Application Support")
    , m_preferencesPath(m_libraryPath + "/" + "Preferences")
{
}

const TWalkerSkipList& TWalkerSkipList::shared()
{
    static const TWalkerSkipList instance(UserInfo().homePath());
    return instance;
}

std::string_view TWalkerSkipList::excludedNameInFolder(std::string_view path) const
{
    if (path == m_libraryPath)
        return m_calendarsName;
    if (path == m_appSupportPath)
        return m_addressBookName;
    if (path == m_preferencesPath)
        return m_addressBookPlistName;
    return {};
}

bool TWalkerSkipList::isInExcludeListName(std::string_view name, std::string_view path) const
{
    const std::string_view excluded = excludedNameInFolder(path);
    return !excluded.empty() && name == excluded;
}
