#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

#include <functional>

// What one copy, move or trash run did. A name clash is never overwritten: that item stops, the others
// go on.
struct FileOperationResult
{
    bool success = false;          // every item was done
    QString error;                 // for the user: one line per item that failed, naming it and why
    QList<QByteArray> failedPaths; // the items (as given) that were not done
};

// Has the file operations of the results window carried out by the three shipped scripts
// "CopyFilesToFolder9a", "MoveFilesToFolder9a" and "RemoveFilesToTrash6" (handlers "copy_to_folder",
// "move_to_folder", "remove"), installed into the Scripts folder on first use and again when deleted.
// Paths are native bytes (names need not be UTF-8); for copy and move the destination folder comes first.
class FinderCommunicator : public QObject
{
    Q_OBJECT
public:
    using Completion = std::function<void(const FileOperationResult&)>;

    // scriptsFolder empty: $XDG_DATA_HOME/trovix/Scripts. isUserFolderAccessible decides whether a
    // missing script may be installed.
    FinderCommunicator(QString scriptsFolder, std::function<bool()> isUserFolderAccessible,
                       QObject* parent = nullptr);

    static FinderCommunicator& sharedCommunicator();

    bool checkCopyFilesScript();
    bool checkMoveFilesScript();
    bool checkRemoveFilesScript();

    // YES when the script was started; the completion then runs once, on the calling thread's event
    // loop. NO when the script could not be installed or started (the completion is not called).
    bool doCopyFiles(const QList<QByteArray>& paths, Completion completion);
    bool doMoveFiles(const QList<QByteArray>& paths, Completion completion);
    bool doRemoveFiles(const QList<QByteArray>& paths, Completion completion);

    static QString defaultScriptsFolder();
    // The shared instance asks the home folder itself until the program hands in its access manager.
    void setUserFolderAccessibleCheck(std::function<bool()> isUserFolderAccessible);
    // The installed script's path once found or installed ("" before).
    QString copyFilesScriptURL() const { return m_copy.installedPath; }
    QString moveFilesScriptURL() const { return m_move.installedPath; }
    QString removeFilesScriptURL() const { return m_remove.installedPath; }

    // How the paths travel to a script: one per line on its standard input, each byte outside
    // [A-Za-z0-9/._-] written as \0NNN (octal), which the script turns back with printf %b. Lossless
    // for any bytes, unlike arguments, which QProcess takes as text.
    static QByteArray encodePathList(const QList<QByteArray>& paths);

private:
    struct Script
    {
        const char* name;
        const char* handler;
        QString installedPath;
    };
    bool checkScript(Script& script);
    // Installs a shipped file into the Scripts folder unless it is there already.
    bool checkInstalled(const QString& fileName);
    bool run(Script& script, const QList<QByteArray>& paths, int firstItem, Completion completion);

    QString m_scriptsFolder;
    std::function<bool()> m_isUserFolderAccessible;
    Script m_copy{"CopyFilesToFolder9a", "copy_to_folder", {}};
    Script m_move{"MoveFilesToFolder9a", "move_to_folder", {}};
    Script m_remove{"RemoveFilesToTrash6", "remove", {}};
};
