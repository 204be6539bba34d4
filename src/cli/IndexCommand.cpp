// trovix index: what the tray program's name index holds and how current it is.
#include "Commands.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDateTime>
#include <QFile>
#include <QVariantMap>

#include <cstdio>

namespace cli {

int runIndex(const QStringList& args)
{
    if (!args.isEmpty()) {
        std::fprintf(stderr, "trovix index: takes no arguments\nUsage: trovix index\n");
        return 2;
    }
    QDBusConnection bus = QDBusConnection::sessionBus();
    const QDBusMessage call =
        QDBusMessage::createMethodCall(QStringLiteral("com.quorbel.trovix"), QStringLiteral("/Index"),
                                       QStringLiteral("com.quorbel.trovix.Index"), QStringLiteral("State"));
    const QDBusReply<QVariantMap> reply = bus.isConnected() ? bus.call(call, QDBus::Block, 10000) : QDBusMessage();
    if (!reply.isValid()) {
        std::fprintf(stderr, "trovix index: no index available: %s\n",
                     bus.isConnected() ? "the tray program is not running" : "no session bus");
        return 3;
    }
    const QVariantMap state = reply.value();
    const auto number = [&](const char* key) { return state.value(QLatin1String(key)).toLongLong(); };
    const bool ready = state.value(QStringLiteral("ready")).toBool();
    const bool building = state.value(QStringLiteral("building")).toBool();
    std::printf("state: %s\n", ready ? "ready" : building ? "building" : "off");
    if (const QString problem = state.value(QStringLiteral("problem")).toString(); !problem.isEmpty())
        std::printf("problem: %s\n", problem.toLocal8Bit().constData());
    if (state.contains(QStringLiteral("root"))) {
        const qint64 entries = number("entries");
        const qint64 memory = number("memoryBytes");
        const qint64 names = number("nameBytes");
        std::printf("root: %s\n", state.value(QStringLiteral("root")).toByteArray().constData());
        std::printf("entries: %lld (%lld folders)\n", static_cast<long long>(entries),
                    static_cast<long long>(number("folders")));
        std::printf("memory: %lld bytes, %lld of them names; %.1f bytes per entry beyond the names\n",
                    static_cast<long long>(memory), static_cast<long long>(names),
                    entries > 0 ? double(memory - names) / double(entries) : 0.0);
        std::printf("inotify watches: %lld (of %lld allowed)\n", static_cast<long long>(number("watches")),
                    static_cast<long long>(number("watchBudget")));
        if (const QString why = state.value(QStringLiteral("marksProblem")).toString(); !why.isEmpty())
            std::printf("fanotify marks: none (%s)\n", why.toLocal8Bit().constData());
        else
            std::printf("fanotify marks: %lld (of %lld allowed)\n", static_cast<long long>(number("marks")),
                        static_cast<long long>(number("markBudget")));
        const qint64 swept = number("unwatchedFolders");
        std::printf("folders swept instead: %lld, every %.1f s\n", static_cast<long long>(swept),
                    double(number("sweepIntervalMsecs")) / 1000.0);
        if (swept > 0 && state.contains(QStringLiteral("sweepsKeepUp")) &&
            !state.value(QStringLiteral("sweepsKeepUp")).toBool())
            std::printf("sweeps fall behind: a change in a swept folder may take %.1f s to show\n",
                        double(number("sweepIntervalMsecs") + number("sweepMsecs")) / 1000.0);
        const qint64 lastSweep = number("lastSweep");
        std::printf("last sweep: %s, %lld ms, %lld folders read again (%lld sweeps, %lld event overflows)\n",
                    lastSweep > 0
                        ? QDateTime::fromMSecsSinceEpoch(lastSweep).toString(Qt::ISODateWithMs).toUtf8().constData()
                        : "none",
                    static_cast<long long>(number("sweepMsecs")), static_cast<long long>(number("sweepRereads")),
                    static_cast<long long>(number("sweeps")), static_cast<long long>(number("overflows")));
        std::printf("build: %lld ms\n", static_cast<long long>(number("buildMsecs")));
        if (const qint64 query = number("lastQueryMicros"); query >= 0)
            std::printf("last query: %.1f ms\n", double(query) / 1000.0);
    }
    return ready ? 0 : 3;
}

} // namespace cli
