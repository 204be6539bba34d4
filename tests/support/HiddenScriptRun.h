#pragma once

#include "hidden/ScriptRunner.h"

#include <QFile>
#include <QStandardPaths>
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

// Fills a folder with links to the basic tools the hidden-files scripts use, plus the named ones: a
// PATH of it stands for a machine without the settings tools. False when a tool is missing here.
inline bool linkBasicTools(const QString& folder, const QStringList& extra = {})
{
    const QStringList basic{QStringLiteral("awk"),   QStringLiteral("tr"),    QStringLiteral("sed"),
                            QStringLiteral("head"),  QStringLiteral("tail"),  QStringLiteral("grep"),
                            QStringLiteral("cat"),   QStringLiteral("id"),    QStringLiteral("mkdir"),
                            QStringLiteral("sleep"), QStringLiteral("mktemp"), QStringLiteral("rm"),
                            QStringLiteral("flock"), QStringLiteral("setsid")};
    for (const QString& t : basic + extra) {
        const QString real = QStandardPaths::findExecutable(t);
        if (real.isEmpty() || !QFile::link(real, folder + QLatin1Char('/') + t))
            return false;
    }
    return true;
}
