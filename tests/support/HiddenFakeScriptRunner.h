#pragma once

#include "hidden/HiddenManagerAlerts.h"
#include "hidden/ScriptRunner.h"

#include <QSet>

#include <deque>

// A script runner whose scripts end when the test says so: each call waits in a queue until
// finish() hands it a reply or an error.
class HiddenFakeScriptRunner final : public ScriptRunner
{
public:
    using ScriptRunner::executeAppleScript;
    void executeAppleScript(const QString& name, const QStringList&, Completion completion) override
    {
        history << name;
        pending.push_back({name, std::move(completion)});
    }
    bool doesScriptWithNameExistInScriptsFolder(const QString& name) const override { return inFolder.contains(name); }
    bool doesScriptWithNameExistInBundle(const QString& name) const override { return inBundle.contains(name); }

    // Ends the oldest running script; names none when nothing runs.
    QString finish(const QStringList& reply = {}, const std::optional<ScriptError>& error = std::nullopt)
    {
        if (pending.empty())
            return QString();
        auto [name, completion] = std::move(pending.front());
        pending.pop_front();
        if (completion)
            completion(error ? QStringList() : reply, error);
        return name;
    }
    QString nextName() const { return pending.empty() ? QString() : pending.front().first; }

    std::deque<std::pair<QString, Completion>> pending;
    QStringList history;
    QSet<QString> inFolder;
    QSet<QString> inBundle;
};

// Sheets that record what they were asked to show; the information sheet's answer is given later.
class HiddenFakeAlerts final : public HiddenManagerAlerts
{
public:
    void displayInformationAboutAccessibilityAlertsWithCompletion(std::function<void(bool)> completion) override
    {
        ++informationShown;
        informationCompletion = std::move(completion);
    }
    void displayInformationAboutAccessError(const ScriptError& error) override
    {
        accessErrors << error.localizedDescription();
    }

    int informationShown = 0;
    std::function<void(bool)> informationCompletion;
    QStringList accessErrors;
};
