#pragma once

// Told by PurgeManager, on the main thread, how a purge goes.
class PurgeManagerDelegate
{
public:
    virtual ~PurgeManagerDelegate() = default;
    virtual void onPurgeManagerStartPurge() = 0;
    virtual void onPurgeManagerEndPurge() = 0;
    // 0..1: the first half fills memory, the second half gives it back.
    virtual void onPurgeManagerPurgingProgress(float progress) = 0;
};
