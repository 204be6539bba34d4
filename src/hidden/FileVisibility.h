#pragma once

#include "hidden/ScriptRunner.h"

#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>

// Hides and shows single files chosen in the file manager: the hidden flag (the folder's `.hidden` list),
// and on showing, a leading "." dropped by a rename that never replaces a file. The file managers are then
// asked to look again at the changed folders. Failures are logged, never shown; one failing file does not
// stop the others and nothing done is undone.
class FileVisibility
{
public:
    // Whether the user's home folder can be read and written (the disk-access manager's answer).
    using AccessCheck = std::function<bool()>;
    // Called once all files are done, with one text per file that failed.
    using Completion = std::function<void(const QStringList& errors)>;

    FileVisibility(ScriptRunner& scripts, AccessCheck userFolderAccessible);

    // The extensions send the chosen paths as one string joined by ", ". Anything but a string gives none;
    // an empty string gives one empty path (which then fails and is logged).
    static QStringList pathsFromNotificationObject(const QVariant& object);

    void hideSelectedFiles(const QVariant& notificationObject, Completion completion = {});
    void showSelectedFiles(const QVariant& notificationObject, Completion completion = {});

    void setVisibility(bool visible, const QStringList& paths, Completion completion = {});
    void performSetVisibility(bool visible, const QStringList& paths, Completion completion = {});

private:
    void getUserFolderAccessWithCompletion(const std::function<void(bool)>& completion);

    ScriptRunner& m_scripts;
    AccessCheck m_userFolderAccessible;
};
