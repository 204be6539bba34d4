#include "SizeCalculationTask.h"

#include <QFile>

namespace {
// One per worker, a cache line each, so the threads do not share the line they add into.
struct alignas(64) Sum {
    std::uint64_t bytes = 0;
    std::uint64_t entries = 0;
};
} // namespace

SizeCalculationTask::SizeCalculationTask(const QString& folderPath, Options options)
    : m_root(QFile::encodeName(folderPath).toStdString())
    , m_options(options)
{
    m_options.statxMask = STATX_BLOCKS;
}

std::uint64_t SizeCalculationTask::calculate()
{
    m_totalSize = 0;
    m_entryCount = 0;
    if (m_used)
        return 0;
    m_used = true;

    FileTreeWalk walk(m_root, m_options);
    std::vector<Sum> sums(std::size_t(walk.threadCount()));
    walk.run([&sums](int worker, std::string_view, const char*, const struct statx& st) {
        sums[std::size_t(worker)].bytes += std::uint64_t(st.stx_blocks) * 512;
        ++sums[std::size_t(worker)].entries;
    });
    for (const Sum& sum : sums) {
        m_totalSize += sum.bytes;
        m_entryCount += sum.entries;
    }
    m_cancelled = walk.wasCancelled();
    m_unreadable = walk.unreadable();
    m_unreadableCount = walk.unreadableCount();
    return m_totalSize;
}
