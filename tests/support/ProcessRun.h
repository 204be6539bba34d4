#pragma once

#include <QByteArray>
#include <QProcess>
#include <QStringList>

// A program run to its end: exit status (-1 when it crashed or did not end in time) and both outputs.
struct Run
{
    int status = -1;
    QByteArray out;
    QByteArray err;
};

inline Run runProcess(const QString& program, const QStringList& args, const QProcessEnvironment& env, int timeoutMs)
{
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(program, args);
    Run result;
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}
