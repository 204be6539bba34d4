#pragma once

#include <QDateTime>
#include <QPointer>

#include <functional>
#include <memory>

// The time source and delayed calls of the program. Tests hand in a clock they advance by hand, so
// 30-second reverts, one-second samples and daily rescans are checked without waiting.
class Clock
{
public:
    // Cancels the delayed call it stands for; a no-op once the call has run.
    class Handle
    {
    public:
        Handle() = default;
        explicit Handle(std::shared_ptr<bool> cancelled) : m_cancelled(std::move(cancelled)) {}
        void cancel() { if (m_cancelled) *m_cancelled = true; }
        bool isPending() const { return m_cancelled && !*m_cancelled; }

    private:
        std::shared_ptr<bool> m_cancelled;
    };

    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;
    // Runs fn once on ctx's thread after ms milliseconds, unless cancelled first or ctx is destroyed.
    virtual Handle callAfter(int ms, QObject* ctx, std::function<void()> fn) = 0;

    // The real clock, for the running program.
    static Clock& system();
};
