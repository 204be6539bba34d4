#include "Commands.h"

#include "diskusage/SizeCalculationTask.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace cli {

// trovix size PATH...: one line per path, allocated bytes, a tab, the path. A folder is walked; anything
// else counts its own blocks. Folders that could not be read are named on standard error and make the
// exit status 1, since the sum is then short.
int runSize(const QStringList& args)
{
    if (args.isEmpty() || args.first() == QLatin1String("--help")) {
        std::fprintf(stderr, "usage: trovix size PATH...\n");
        return 2;
    }
    int status = 0;
    for (const QString& path : args) {
        const QByteArray native = QFile::encodeName(path);
        struct statx st;
        if (::statx(AT_FDCWD, native.constData(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE | STATX_BLOCKS, &st)
            != 0) {
            std::fprintf(stderr, "trovix size: %s: %s\n", native.constData(), std::strerror(errno));
            status = 1;
            continue;
        }
        std::uint64_t bytes = std::uint64_t(st.stx_blocks) * 512;
        struct stat target;
        const bool folder = S_ISDIR(st.stx_mode) || (S_ISLNK(st.stx_mode) && ::stat(native.constData(), &target) == 0
                                                     && S_ISDIR(target.st_mode));
        if (folder) {
            SizeCalculationTask task(path);
            bytes = task.calculate();
            for (const auto& unreadable : task.unreadable())
                std::fprintf(stderr, "trovix size: cannot read %s: %s\n", unreadable.path.c_str(),
                             std::strerror(unreadable.error));
            if (task.unreadableCount() > task.unreadable().size())
                std::fprintf(stderr, "trovix size: %llu more folders could not be read\n",
                             static_cast<unsigned long long>(task.unreadableCount() - task.unreadable().size()));
            if (task.unreadableCount() > 0)
                status = 1;
        }
        std::printf("%llu\t%s\n", static_cast<unsigned long long>(bytes), native.constData());
    }
    return status;
}

} // namespace cli
