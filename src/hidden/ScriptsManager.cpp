#include "ScriptsManager.h"

#include "hidden/DiskAccessRestoreManager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QProcess>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTimer>

#include <memory>

namespace {

const QString kBackendsLibrary = QStringLiteral("HiddenFilesBackends");

ScriptError runnerError(const QString& description = {})
{
    return ScriptError{ScriptError::appDomain(), -1, description};
}

// The library's "trovix-backends-version: N" line; 0 when there is none (copies from before the stamp).
int libraryVersion(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    static const QRegularExpression stamp(QStringLiteral("^# trovix-backends-version: *([0-9]+)"),
                                          QRegularExpression::MultilineOption);
    const QRegularExpressionMatch match = stamp.match(QString::fromUtf8(file.read(4096)));
    return match.hasMatch() ? match.captured(1).toInt() : 0;
}

QStringList replyLines(const QByteArray& output)
{
    QStringList lines = QString::fromUtf8(output).split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.constLast().isEmpty())
        lines.removeLast();
    return lines;
}

} // namespace

ScriptsManager::ScriptsManager(DiskAccessRestoreManager& diskAccess, Options options, QObject* parent)
    : QObject(parent)
    , m_diskAccess(diskAccess)
    , m_options(std::move(options))
{
    if (m_options.scriptsFolder.isEmpty())
        m_options.scriptsFolder = defaultScriptsFolder();
    if (m_options.bundleFolder.isEmpty())
        m_options.bundleFolder = QStringLiteral(":/scripts");
}

ScriptsManager& ScriptsManager::sharedManager()
{
    // Never destroyed: scripts may still end while the program quits.
    static ScriptsManager* manager = new ScriptsManager(DiskAccessRestoreManager::sharedManager(), {});
    return *manager;
}

QString ScriptsManager::defaultScriptsFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/trovix/Scripts");
}

QString ScriptsManager::scriptFilePathWithName(const QString& name, ScriptError* error) const
{
    const QString folder = m_options.scriptsFolder;
    if (folder.isEmpty() || !QDir().mkpath(folder) || !QFileInfo(folder).isDir()) {
        if (error)
            *error = runnerError(QStringLiteral("Can not get folder with NSUserDomainMask."));
        return QString();
    }
    return folder + QLatin1Char('/') + name + QLatin1Char('.') + QLatin1String(kScriptExtension);
}

QString ScriptsManager::bundlePathWithName(const QString& name) const
{
    return m_options.bundleFolder + QLatin1Char('/') + name + QLatin1Char('.') + QLatin1String(kScriptExtension);
}

bool ScriptsManager::doesScriptWithNameExistInScriptsFolder(const QString& name) const
{
    const QString path = scriptFilePathWithName(name, nullptr);
    return !path.isEmpty() && QFileInfo::exists(path);
}

bool ScriptsManager::doesScriptWithNameExistInBundle(const QString& name) const
{
    return QFileInfo::exists(bundlePathWithName(name));
}

bool ScriptsManager::doScriptWithNameChangesFocus(const QString& name)
{
    return name == QLatin1String("SwitchHiddenFilesVisibility2");
}

void ScriptsManager::setApplicationActivation(std::function<bool()> isActive, std::function<void()> activate)
{
    m_isApplicationActive = std::move(isActive);
    m_activateApplication = std::move(activate);
}

std::optional<ScriptError> ScriptsManager::copyFromBundleIfMissing(const QString& name, bool replaceOlder) const
{
    const QString path = scriptFilePathWithName(name, nullptr);
    const QString shipped = bundlePathWithName(name);
    const bool installed = QFileInfo::exists(path);
    if (installed && !(replaceOlder && libraryVersion(path) < libraryVersion(shipped)))
        return std::nullopt;
    if (!m_diskAccess.isUserFolderAccessible())
        return runnerError();
    QFile source(shipped);
    if (!source.open(QIODevice::ReadOnly))
        return runnerError();
    // Written whole or not at all: another process may be sourcing the copy being replaced.
    QSaveFile target(path);
    if (!target.open(QIODevice::WriteOnly) || target.write(source.readAll()) < 0 || !target.commit())
        return runnerError(QStringLiteral("Can not copy %1 to %2: %3").arg(shipped, path, target.errorString()));
    // The user may want to edit their copy.
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup |
                                    QFileDevice::ReadOther);
    return std::nullopt;
}

std::optional<ScriptError> ScriptsManager::installBackendsLibrary()
{
    if (!QFileInfo::exists(bundlePathWithName(kBackendsLibrary)))
        return std::nullopt;
    return copyFromBundleIfMissing(kBackendsLibrary, true);
}

void ScriptsManager::executeAppleScript(const QString& name, const QStringList& arguments, Completion completion)
{
    // Completions always come later, from the event loop, as they would from a separate process.
    const auto fail = [this, completion](const ScriptError& error) {
        if (completion)
            QMetaObject::invokeMethod(
                this, [completion, error] { completion({}, error); }, Qt::QueuedConnection);
    };

    ScriptError pathError;
    const QString path = scriptFilePathWithName(name, &pathError);
    if (path.isEmpty())
        return fail(pathError);
    if (auto error = copyFromBundleIfMissing(name))
        return fail(*error);
    // The hidden-files scripts source their shared library from the folder they run in.
    if (auto error = installBackendsLibrary())
        return fail(*error);

    const bool changesFocus = doScriptWithNameChangesFocus(name);
    bool wasActive = false;
    if (changesFocus) {
        ++m_mightLoseFocusBecauseOfScriptCounter;
        wasActive = m_isApplicationActive && m_isApplicationActive();
    }

    auto* process = new QProcess(this);
    process->setProgram(QStringLiteral("/bin/sh"));
    process->setArguments(QStringList{path} + arguments);
    process->setStandardInputFile(QProcess::nullDevice());
    auto* timeout = new QTimer(process);
    timeout->setSingleShot(true);
    auto finished = std::make_shared<bool>(false);

    const auto finish = [this, process, completion, changesFocus, wasActive, finished,
                         name](const QStringList& reply, const std::optional<ScriptError>& error) {
        if (*finished)
            return;
        *finished = true;
        if (changesFocus) {
            --m_mightLoseFocusBecauseOfScriptCounter;
            if (wasActive && m_activateApplication)
                m_activateApplication();
        }
        process->deleteLater();
        if (completion)
            completion(reply, error);
    };

    connect(process, &QProcess::finished, this, [process, finish, name](int exitCode, QProcess::ExitStatus status) {
        const QByteArray out = process->readAllStandardOutput();
        const QString err = QString::fromUtf8(process->readAllStandardError()).trimmed();
        if (status == QProcess::CrashExit)
            return finish({}, runnerError(err.isEmpty() ? QStringLiteral("%1 was stopped").arg(name) : err));
        if (exitCode != 0)
            return finish(
                {},
                ScriptError{ScriptError::appDomain(), exitCode,
                            err.isEmpty() ? QStringLiteral("%1 ended with status %2").arg(name).arg(exitCode) : err});
        finish(replyLines(out), std::nullopt);
    });
    connect(process, &QProcess::errorOccurred, this, [process, finish](QProcess::ProcessError e) {
        if (e == QProcess::FailedToStart)
            finish({}, runnerError(process->errorString()));
    });
    connect(timeout, &QTimer::timeout, this, [process, name] {
        // The finished signal follows the kill and reports the failure.
        process->kill();
        qWarning("trovix: script %s did not end in time and was stopped", qPrintable(name));
    });
    timeout->start(m_options.timeoutMs);
    process->start();
}
