#pragma once

#include <optional>

#include "hidden/ScriptRunner.h"

#include <QObject>

#include <atomic>

class DiskAccessRestoreManager;

// Runs the shipped scripts out of the user's Scripts folder ($XDG_DATA_HOME/trovix/Scripts/). A
// script is copied there from the program's resources the first time it is needed and never replaced
// afterwards, so a copy the user edited keeps being used; only the scripts' shared library is replaced
// by a newer shipped version. Each run is `/bin/sh FILE ARGS...` in its own
// process; the reply is its standard-output lines, a non-zero exit an error with its standard error.
class ScriptsManager : public QObject, public ScriptRunner
{
    Q_OBJECT
public:
    struct Options
    {
        QString scriptsFolder;  // empty: $XDG_DATA_HOME/trovix/Scripts
        QString bundleFolder;   // where the shipped copies are; empty: ":/scripts"
        int timeoutMs = 120000; // a script still running then is killed and fails
    };

    ScriptsManager(DiskAccessRestoreManager& diskAccess, Options options, QObject* parent = nullptr);

    static ScriptsManager& sharedManager();

    static QString defaultScriptsFolder();
    static constexpr const char* kScriptExtension = "sh";

    using ScriptRunner::executeAppleScript;
    void executeAppleScript(const QString& name, const QStringList& arguments, Completion completion) override;
    bool doesScriptWithNameExistInScriptsFolder(const QString& name) const override;
    bool doesScriptWithNameExistInBundle(const QString& name) const override;

    // The full path in the Scripts folder (created when missing), or "" and an error.
    QString scriptFilePathWithName(const QString& name, ScriptError* error) const;
    QString bundlePathWithName(const QString& name) const;
    // Copies a shipped script into the Scripts folder unless a copy is there already; with
    // replaceOlder, also over a copy whose version stamp is lower than the shipped one's.
    std::optional<ScriptError> copyFromBundleIfMissing(const QString& name, bool replaceOlder = false) const;
    // The hidden-files scripts' shared library, which, unlike the catalogue scripts, is replaced when
    // the program ships a newer version: fixes in it must reach users who installed it before.
    std::optional<ScriptError> installBackendsLibrary() override;

    static bool doScriptWithNameChangesFocus(const QString& name);
    // True while a script that takes the focus from the program runs: losing the focus then is no
    // reason to close the panel.
    bool mightLoseFocusBecauseOfScript() const { return m_mightLoseFocusBecauseOfScriptCounter.load() != 0; }
    unsigned mightLoseFocusBecauseOfScriptCounter() const { return m_mightLoseFocusBecauseOfScriptCounter.load(); }
    void setMightLoseFocusBecauseOfScriptCounter(unsigned value) { m_mightLoseFocusBecauseOfScriptCounter = value; }

    // How the runner learns whether the program is in front and brings it back there. The windowed
    // program sets both; without them the program counts as not in front.
    void setApplicationActivation(std::function<bool()> isActive, std::function<void()> activate);

private:
    DiskAccessRestoreManager& m_diskAccess;
    Options m_options;
    std::atomic<unsigned> m_mightLoseFocusBecauseOfScriptCounter{0};
    std::function<bool()> m_isApplicationActive;
    std::function<void()> m_activateApplication;
};
