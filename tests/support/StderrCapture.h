#pragma once

#include <QByteArray>
#include <QTemporaryFile>

#include <cstdio>

#include <unistd.h>

// What f writes to standard error while it runs (the stream is put back afterwards).
template <typename F> QByteArray stderrOf(F f)
{
    QTemporaryFile capture;
    if (!capture.open())
        return "no temporary file";
    std::fflush(stderr);
    const int saved = ::dup(STDERR_FILENO);
    ::dup2(capture.handle(), STDERR_FILENO);
    f();
    std::fflush(stderr);
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    capture.seek(0);
    return capture.readAll();
}
