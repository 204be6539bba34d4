#include "Clock.h"

#include <QTimer>

namespace {

class SystemClock final : public Clock
{
public:
    QDateTime now() const override { return QDateTime::currentDateTime(); }

    Handle callAfter(int ms, QObject* ctx, std::function<void()> fn) override
    {
        auto cancelled = std::make_shared<bool>(false);
        QTimer::singleShot(ms, ctx, [cancelled, fn = std::move(fn)] {
            if (*cancelled)
                return;
            *cancelled = true;
            fn();
        });
        return Handle(cancelled);
    }
};

} // namespace

Clock& Clock::system()
{
    static SystemClock clock;
    return clock;
}
