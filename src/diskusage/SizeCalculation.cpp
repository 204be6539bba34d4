#include "SizeCalculation.h"

#include "SizeCalculationTask.h"

#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>

SizeCalculation& SizeCalculation::sharedInstance()
{
    static SizeCalculation instance;
    return instance;
}

std::uint64_t SizeCalculation::fastFolderSizeOfItemWithPath(const QString& path, bool ignoreRootDSStore,
                                                            const std::atomic<bool>* cancel,
                                                            std::uint64_t* entries) const
{
    SizeCalculationTask::Options options;
    options.cancel = cancel;
    SizeCalculationTask task(path, options);
    std::uint64_t total = task.calculate();
    if (entries)
        *entries = task.entryCount();
    if (!ignoreRootDSStore)
        return total;
    const QByteArray dsStore = QFile::encodeName(QDir(path).filePath(QStringLiteral(".DS_Store")));
    struct statx st;
    if (::statx(AT_FDCWD, dsStore.constData(), AT_SYMLINK_NOFOLLOW, STATX_BLOCKS, &st) == 0) {
        const std::uint64_t own = std::uint64_t(st.stx_blocks) * 512;
        total = own > total ? 0 : total - own;
    }
    return total;
}

std::uint64_t SizeCalculation::fastSizeOfFolderAtPath(const QString& path) const
{
    return fastFolderSizeOfItemWithPath(path, false);
}

std::uint64_t SizeCalculation::sizeIgnoreRootDSStoreForFolderAtPath(const QString& path,
                                                                    const std::atomic<bool>* cancel,
                                                                    std::uint64_t* entries) const
{
    return fastFolderSizeOfItemWithPath(path, true, cancel, entries);
}
