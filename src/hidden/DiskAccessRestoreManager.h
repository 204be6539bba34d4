#pragma once

#include <QString>

#include <optional>

class UserDefaults;

// Whether the user's home folder, the applications folder and the disk can be read, and the stored
// grants for them. On Linux a grant ("bookmark") is the folder's path stored as data under the folder's
// own path ("DISK_ACCESS_DATA" for "/"); it resolves while that folder exists. Nothing here reports an
// error: an unreadable grant or folder simply answers NO or none.
class DiskAccessRestoreManager
{
public:
    static constexpr const char* kDiskAccessKey = "DISK_ACCESS_DATA";
    static constexpr int kReadMode = 4;  // R_OK
    static constexpr int kWriteMode = 2; // W_OK

    explicit DiskAccessRestoreManager(UserDefaults& defaults);
    static DiskAccessRestoreManager& sharedManager();

    static QString getUserFolderPath();
    static QString getApplicationsFolderPath();

    // access(2) tests; an empty path is never accessible.
    static bool isPathAccessible(const QString& path, int mode);
    static bool isURLAccessible(const std::optional<QString>& path, int mode);
    static bool isDiskURLAccessible(const std::optional<QString>& path);

    std::optional<QString> restoreAccessToDiskIfNeeded();
    std::optional<QString> restoreAccessToPathIfNeeded(const QString& path);

    bool isPathAccessible(const QString& path);
    bool isUserFolderAccessible();
    bool isApplicationsFolderAccessible();
    bool isDiskAccessible();

    void saveAccessToDisk();
    void saveAccessToPath(const QString& path);
    void saveAccessToUserFolder();
    void saveAccessToApplicationsFolder();

    // Touch the folders so that an access check has been attempted; results are discarded.
    static void testAcessToDisk();
    static void testAcessToApplications();
    static void testAcessToFile(const QString& path);

private:
    std::optional<QString> resolveBookmark(const QString& key) const;
    void saveBookmark(const QString& path, const QString& key);

    UserDefaults& m_defaults;
};
