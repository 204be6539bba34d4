#pragma once

#include "hidden/ScriptRunner.h"

#include <QTest>

#include <memory>

struct HiddenScriptResult
{
    QStringList reply;
    std::optional<ScriptError> error;
    bool done = false;

    QByteArray errorText() const { return error ? error->description.toUtf8() : QByteArray(); }
};

// Runs a script through a real runner and waits for its end; one that does not end fails with code -2.
inline HiddenScriptResult runHiddenScript(ScriptRunner& runner, const QString& name, const QStringList& args = {},
                                          int waitMs = 60000)
{
    // Shared: a completion that comes after the wait has nothing left to write into otherwise.
    auto r = std::make_shared<HiddenScriptResult>();
    runner.executeAppleScript(name, args, [r](const QStringList& reply, const std::optional<ScriptError>& e) {
        r->reply = reply;
        r->error = e;
        r->done = true;
    });
    if (!QTest::qWaitFor([&] { return r->done; }, waitMs))
        r->error = ScriptError{QString(), -2, QStringLiteral("did not end")};
    return *r;
}
