#include "FinderCommunicator.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSaveFile>
#include <QStandardPaths>

#include <unistd.h>

#include <memory>

namespace {

const QString kBundleFolder = QStringLiteral(":/scripts");
// What the three scripts share; installed beside them.
const QString kLibrary = QStringLiteral("FileOperations.sh");

bool isPlain(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '/' || c == '.' ||
           c == '_' || c == '-';
}

QString shown(const QByteArray& path)
{
    return QFile::decodeName(path);
}

// Every item failed for one reason (the script could not run, or stopped).
FileOperationResult allFailed(const QList<QByteArray>& paths, int firstItem, const QString& reason)
{
    FileOperationResult result;
    QStringList lines;
    for (qsizetype i = firstItem; i < paths.size(); ++i) {
        result.failedPaths.append(paths.at(i));
        lines.append(QStringLiteral("%1: %2").arg(shown(paths.at(i)), reason));
    }
    result.error = lines.join(QLatin1Char('\n'));
    return result;
}

// The script's report: "N<TAB>reason" for each item it did not do.
FileOperationResult parseReport(const QList<QByteArray>& paths, int firstItem, const QByteArray& out, int exitCode,
                                const QString& err)
{
    FileOperationResult result;
    QStringList lines;
    for (const QByteArray& line : out.split('\n')) {
        const qsizetype tab = line.indexOf('\t');
        bool ok = false;
        const int index = tab > 0 ? line.left(tab).toInt(&ok) : -1;
        if (!ok || index < firstItem || index >= paths.size())
            continue;
        result.failedPaths.append(paths.at(index));
        lines.append(QStringLiteral("%1: %2").arg(shown(paths.at(index)), QString::fromUtf8(line.mid(tab + 1))));
    }
    if (exitCode != 0 && result.failedPaths.isEmpty()) {
        // Not the script's own report: it could not do its work at all.
        return allFailed(paths, firstItem,
                         err.isEmpty() ? QStringLiteral("the script ended with status %1").arg(exitCode) : err);
    }
    result.success = result.failedPaths.isEmpty();
    result.error = lines.join(QLatin1Char('\n'));
    return result;
}

} // namespace

FinderCommunicator::FinderCommunicator(QString scriptsFolder, std::function<bool()> isUserFolderAccessible,
                                       QObject* parent)
    : QObject(parent)
    , m_scriptsFolder(scriptsFolder.isEmpty() ? defaultScriptsFolder() : std::move(scriptsFolder))
    , m_isUserFolderAccessible(std::move(isUserFolderAccessible))
{
}

FinderCommunicator& FinderCommunicator::sharedCommunicator()
{
    // Never destroyed: an operation may still end while the program quits.
    static FinderCommunicator* communicator = new FinderCommunicator(
        {}, [] { return ::access(QFile::encodeName(QDir::homePath()).constData(), R_OK | W_OK | X_OK) == 0; });
    return *communicator;
}

QString FinderCommunicator::defaultScriptsFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/trovix/Scripts");
}

void FinderCommunicator::setUserFolderAccessibleCheck(std::function<bool()> isUserFolderAccessible)
{
    m_isUserFolderAccessible = std::move(isUserFolderAccessible);
}

bool FinderCommunicator::checkCopyFilesScript()
{
    return checkScript(m_copy);
}

bool FinderCommunicator::checkMoveFilesScript()
{
    return checkScript(m_move);
}

bool FinderCommunicator::checkRemoveFilesScript()
{
    return checkScript(m_remove);
}

bool FinderCommunicator::checkScript(Script& script)
{
    // Looked at each time: the user may have deleted the installed copy since.
    if (!script.installedPath.isEmpty() && QFileInfo::exists(script.installedPath) && checkInstalled(kLibrary))
        return true;
    script.installedPath.clear();
    const QString fileName = QString::fromLatin1(script.name) + QStringLiteral(".sh");
    if (!checkInstalled(fileName) || !checkInstalled(kLibrary))
        return false;
    script.installedPath = m_scriptsFolder + QLatin1Char('/') + fileName;
    return true;
}

bool FinderCommunicator::checkInstalled(const QString& fileName)
{
    if (m_scriptsFolder.isEmpty() || !QDir().mkpath(m_scriptsFolder))
        return false;
    const QString target = m_scriptsFolder + QLatin1Char('/') + fileName;
    if (QFileInfo::exists(target))
        return true;
    if (!m_isUserFolderAccessible || !m_isUserFolderAccessible())
        return false;
    QFile source(kBundleFolder + QLatin1Char('/') + fileName);
    if (!source.open(QIODevice::ReadOnly))
        return false;
    QSaveFile copy(target);
    if (!copy.open(QIODevice::WriteOnly) || copy.write(source.readAll()) < 0 || !copy.commit()) {
        qWarning("trovix: could not install %s: %s", qPrintable(target), qPrintable(copy.errorString()));
        return false;
    }
    return true;
}

QByteArray FinderCommunicator::encodePathList(const QList<QByteArray>& paths)
{
    QByteArray out;
    for (const QByteArray& path : paths) {
        for (char c : path) {
            if (isPlain(c)) {
                out.append(c);
                continue;
            }
            const auto byte = static_cast<unsigned char>(c);
            const char octal[] = {'\\', '0', char('0' + (byte >> 6)), char('0' + ((byte >> 3) & 7)),
                                  char('0' + (byte & 7))};
            out.append(octal, sizeof octal);
        }
        out.append('\n');
    }
    return out;
}

bool FinderCommunicator::doCopyFiles(const QList<QByteArray>& paths, Completion completion)
{
    return run(m_copy, paths, 1, std::move(completion));
}

bool FinderCommunicator::doMoveFiles(const QList<QByteArray>& paths, Completion completion)
{
    return run(m_move, paths, 1, std::move(completion));
}

bool FinderCommunicator::doRemoveFiles(const QList<QByteArray>& paths, Completion completion)
{
    return run(m_remove, paths, 0, std::move(completion));
}

bool FinderCommunicator::run(Script& script, const QList<QByteArray>& paths, int firstItem, Completion completion)
{
    if (!checkScript(script))
        return false;
    // No parent: the process lives in the calling thread, so its signals (and the completion) come back
    // through that thread's event loop.
    auto* process = new QProcess;
    process->setProgram(QStringLiteral("/bin/sh"));
    process->setArguments({script.installedPath, QString::fromLatin1(script.handler)});
    process->setProcessChannelMode(QProcess::SeparateChannels);
    auto done = std::make_shared<bool>(false);
    const auto finish = [process, completion, done](const FileOperationResult& result) {
        if (*done)
            return;
        *done = true;
        process->deleteLater();
        if (completion)
            completion(result);
    };
    QObject::connect(process, &QProcess::finished, process,
                     [process, paths, firstItem, finish](int exitCode, QProcess::ExitStatus status) {
                         const QByteArray out = process->readAllStandardOutput();
                         const QString err = QString::fromUtf8(process->readAllStandardError()).trimmed();
                         if (status == QProcess::CrashExit)
                             return finish(allFailed(
                                 paths, firstItem, err.isEmpty() ? QStringLiteral("the operation was stopped") : err));
                         finish(parseReport(paths, firstItem, out, exitCode, err));
                     });
    QObject::connect(process, &QProcess::errorOccurred, process,
                     [process, paths, firstItem, finish](QProcess::ProcessError e) {
                         if (e == QProcess::FailedToStart)
                             finish(allFailed(paths, firstItem, process->errorString()));
                     });
    process->start();
    // Written whole before the script reads much: a pipe holds 64 KiB and the rest follows as it reads.
    process->write(encodePathList(paths));
    process->closeWriteChannel();
    return true;
}
