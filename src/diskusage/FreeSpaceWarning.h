#pragma once

#include "PromoFreeSpaceChecker.h"

#include <QString>

#include <functional>

// Tells the user, by a desktop notification, that a local disk is nearly full, when the checker says so
// (so at most once per its gap). The sender is the session bus's notification service unless a test
// hands in its own.
class FreeSpaceWarning
{
public:
    using Sender = std::function<bool(const QString& title, const QString& body)>;
    // The gap between two real looks at the disks, in seconds.
    static constexpr qint64 TIME_BETWEEN_REAL_DISK_CHECKS = 86400;

    explicit FreeSpaceWarning(PromoFreeSpaceChecker& checker, Sender sender = {});

    // Asks the checker; when it answers YES, sends the warning. Whether one was sent.
    bool check();

    static QString title();
    static QString text(const VolumeInfo& volume);

private:
    PromoFreeSpaceChecker& m_checker;
    Sender m_sender;
};
