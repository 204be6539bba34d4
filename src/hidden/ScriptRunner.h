#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// An error of the script runner or of a script. Errors the runner makes itself carry the program's
// identifier as domain and code -1; a script's own failure carries its exit status as code and its
// standard error as description.
struct ScriptError
{
    static QString appDomain() { return QStringLiteral("com.quorbel.trovix"); }

    QString domain = appDomain();
    int code = -1;
    QString description;

    // What the user-facing side matches against: the description, or a generic text with the code.
    QString localizedDescription() const
    {
        return description.isEmpty()
                   ? QStringLiteral("The operation couldn't be completed. (%1 error %2.)").arg(domain).arg(code)
                   : description;
    }
};

// Runs the program's scripts by catalogue name. HiddenManager and the per-file visibility code talk
// to this interface; ScriptsManager is the real one, tests use a scripted fake.
class ScriptRunner
{
public:
    // The reply is the script's standard-output lines; empty on error.
    using Completion = std::function<void(const QStringList& reply, const std::optional<ScriptError>& error)>;

    virtual ~ScriptRunner() = default;

    // The completion may be empty. It is called on the runner's thread, never from within this call.
    virtual void executeAppleScript(const QString& name, const QStringList& arguments, Completion completion) = 0;
    virtual bool doesScriptWithNameExistInScriptsFolder(const QString& name) const = 0;
    virtual bool doesScriptWithNameExistInBundle(const QString& name) const = 0;

    // Puts the library the hidden-files scripts share where a script run without a folder of its own
    // (fed on standard input) finds it. Runners without such a library have nothing to do.
    virtual std::optional<ScriptError> installBackendsLibrary() { return std::nullopt; }

    void executeAppleScript(const QString& name, Completion completion)
    {
        executeAppleScript(name, {}, std::move(completion));
    }
};
