#pragma once

#include "util/Clock.h"

#include <QPointer>

#include <algorithm>
#include <tuple>
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
            const auto next = std::min_element(m_pending.begin(), m_pending.end(), [](const auto& a, const auto& b) {
                return std::tie(a.due, a.sequence) < std::tie(b.due, b.sequence);
            });
            if (next == m_pending.end() || next->due > end)
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

    int pendingCount() const
    {
        return static_cast<int>(std::count_if(m_pending.begin(), m_pending.end(),
                                              [](const Pending& p) { return !*p.cancelled && !p.ctx.isNull(); }));
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
