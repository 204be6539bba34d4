#pragma once

#include <QString>

// The purge of older systems: the resource script "purge" of type "sh", run with /bin/sh.
namespace PurgeScript {

inline const QString kResource = QStringLiteral(":/scripts/purge.sh");

// Runs the script and waits for it; true when it ended by exiting (its status is not looked at), false
// when it was killed or could not start (the reason goes to standard error). Blocks: call it off the
// main thread.
bool run(const QString& resource = kResource);

} // namespace PurgeScript
