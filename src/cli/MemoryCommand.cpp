#include "Commands.h"

#include "core/Texts.h"
#include "memory/MemoryFigures.h"
#include "memory/PurgeManager.h"
#include "platform/MemoryInfo.h"
#include "util/VolumeName.h"

#include <QElapsedTimer>
#include <QEventLoop>

#include <cstdio>
#include <unistd.h>

namespace {

// A progress bar on standard error, drawn only when that is a terminal.
class ProgressBar final : public PurgeManagerDelegate
{
public:
    explicit ProgressBar(bool enabled)
        : m_enabled(enabled)
    {
    }
    void onPurgeManagerStartPurge() override { draw(0.0f); }
    void onPurgeManagerEndPurge() override
    {
        if (m_enabled)
            std::fprintf(stderr, "\r\033[K");
    }
    void onPurgeManagerPurgingProgress(float progress) override { draw(progress); }

private:
    void draw(float progress)
    {
        if (!m_enabled)
            return;
        constexpr int kWidth = 30;
        const int filled = int(progress * kWidth + 0.5f);
        std::fprintf(stderr, "\r%s [%s%s] %3d%%", progress < 0.5f ? "filling " : "freeing ",
                     QByteArray(filled, '#').constData(), QByteArray(kWidth - filled, '.').constData(),
                     int(progress * 100.0f + 0.5f));
        std::fflush(stderr);
    }
    bool m_enabled;
};

int usage()
{
    std::fprintf(stderr, "usage: trovix memory [--free]\n");
    return 2;
}

void printLine(const QString& text)
{
    std::printf("%s\n", text.toLocal8Bit().constData());
}

} // namespace

namespace cli {

int runMemory(const QStringList& args)
{
    bool free = false;
    for (const QString& arg : args) {
        if (arg == QLatin1String("--free") && !free)
            free = true;
        else
            return usage();
    }

    MemoryInfo& info = MemoryInfo::system();
    quint32 page = info.pageSize();
    if (page == 0) {
        std::fprintf(stderr, "getting page size\n");
        page = 4096;
    }
    VmStatistics64 before;
    if (!info.readStatistics(before))
        return 2;

    if (!free) {
        const MemoryFigures f = MemoryFigures::from(before, info.physicalMemory(), page);
        printLine(MemoryFigures::percentTitle(f.usedFraction()));
        printLine(
            Texts::format(Texts::localized("PanelWindow", "Used_memory_template", QStringLiteral("%@ used of %@")),
                          {VolumeName::stringFromSize(qint64(f.usedSize())),
                           VolumeName::stringFromSize(qint64(f.usedSize() + f.freeSize()))}));
        return 0;
    }

    PurgeManager& manager = PurgeManager::GetInstance();
    ProgressBar bar(::isatty(STDERR_FILENO));
    manager.setDelegate(&bar);
    QEventLoop loop;
    bool done = false;
    QElapsedTimer timer;
    timer.start();
    manager.purgeWithCompletion([&] {
        done = true;
        loop.quit();
    });
    if (!done)
        loop.exec();
    manager.clearDelegate(&bar);
    const double seconds = double(timer.elapsed()) / 1000.0;

    VmStatistics64 after;
    if (!info.readStatistics(after))
        return 2;
    // What the purge gave back is what the kernel now has free that it had not before: the caches it
    // dropped to make room for the blocks.
    const qint64 freed =
        after.free_count > before.free_count ? qint64((after.free_count - before.free_count) * page) : 0;
    const PurgeManager::Report report = manager.lastReport();
    std::fprintf(stderr, "trovix: held %d of %d blocks of 10 MiB%s; lowest available %s; %.1f s\n", report.heldBlocks,
                 report.requestedBlocks,
                 report.stoppedByFloor ? " (stopped at the safety floor)"
                                       : (report.stoppedByFailure ? " (stopped: the system refused memory)" : ""),
                 report.lowestAvailable
                     ? VolumeName::stringFromSize(qint64(*report.lowestAvailable)).toLocal8Bit().constData()
                     : "unknown",
                 seconds);
    printLine(Texts::format(QStringLiteral("%@ freed"), {VolumeName::stringFromSize(freed)}));
    return 0;
}

} // namespace cli
