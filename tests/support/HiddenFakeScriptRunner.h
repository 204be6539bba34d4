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
    struct Call
    {
        QString name;
        QStringList arguments;
        Completion completion;
    };

    using ScriptRunner::executeAppleScript;
    void executeAppleScript(const QString& name, const QStringList& arguments, Completion completion) override
    {
        history << name;
        pending.push_back({name, arguments, std::move(completion)});
    }
    bool doesScriptWithNameExistInScriptsFolder(const QString& name) const override { return inFolder.contains(name); }
    bool doesScriptWithNameExistInBundle(const QString& name) const override { return inBundle.contains(name); }

    // Ends the oldest running script.
    QString finish(const QStringList& reply = {}, const std::optional<ScriptError>& error = std::nullopt)
    {
        Call call = std::move(pending.front());
        pending.pop_front();
        if (call.completion)
            call.completion(error ? QStringList() : reply, error);
        return call.name;
    }
    QString nextName() const { return pending.empty() ? QString() : pending.front().name; }

    std::deque<Call> pending;
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
