#pragma once

#include "util/Clock.h"

#include <QPointer>

#include <vector>

// A clock for tests: time stands still until advance() moves it, which runs the delayed calls that
// fall due, in order.
class ManualClock final : public Clock
{
public:
    explicit ManualClock(QDateTime start = QDateTime(QDate(2026, 3, 7), QTime(15, 7, 0)))
        : m_now(std::move(start))
    {
    }

    QDateTime now() const override { return m_now; }

    Handle callAfter(int ms, QObject* ctx, std::function<void()> fn) override
    {
        auto cancelled = std::make_shared<bool>(false);
        m_pending.push_back({m_now.addMSecs(ms), m_sequence++, QPointer<QObject>(ctx), cancelled, std::move(fn)});
        return Handle(cancelled);
    }

    void advance(qint64 ms)
    {
        const QDateTime end = m_now.addMSecs(ms);
        for (;;) {
            auto next = m_pending.end();
            for (auto it = m_pending.begin(); it != m_pending.end(); ++it) {
                if (it->due <= end && (next == m_pending.end() || it->due < next->due
                                       || (it->due == next->due && it->sequence < next->sequence)))
                    next = it;
            }
            if (next == m_pending.end())
                break;
            Pending call = std::move(*next);
            m_pending.erase(next);
            m_now = call.due;
            if (*call.cancelled || call.ctx.isNull())
                continue;
            *call.cancelled = true;
            call.fn();
        }
        m_now = end;
    }

    void setNow(const QDateTime& now) { m_now = now; }
    int pendingCount() const
    {
        int n = 0;
        for (const Pending& p : m_pending)
            n += (*p.cancelled || p.ctx.isNull()) ? 0 : 1;
        return n;
    }

private:
    struct Pending
    {
        QDateTime due;
        quint64 sequence;
        QPointer<QObject> ctx;
        std::shared_ptr<bool> cancelled;
        std::function<void()> fn;
    };
    QDateTime m_now;
    quint64 m_sequence = 0;
    std::vector<Pending> m_pending;
};
