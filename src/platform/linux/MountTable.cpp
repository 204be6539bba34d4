#include "MountTable.h"

#include <QFile>

#include <algorithm>
#include <array>

namespace MountTable {

QByteArray unescape(QByteArrayView field)
{
    QByteArray out;
    out.reserve(field.size());
    for (qsizetype i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            bool ok = false;
            const int c = field.sliced(i + 1, 3).toInt(&ok, 8);
            if (ok) {
                out.append(char(c));
                i += 3;
                continue;
            }
        }
        out.append(field[i]);
    }
    return out;
}

std::vector<MountEntry> parse(QByteArrayView mountinfo)
{
    // id parent major:minor root mount-point options [optional fields...] - type source super-options
    std::vector<MountEntry> mounts;
    for (QByteArrayView line : QByteArray::fromRawData(mountinfo.data(), mountinfo.size()).split('\n')) {
        const QList<QByteArray> f = QByteArray::fromRawData(line.data(), line.size()).split(' ');
        const qsizetype dash = f.indexOf("-");
        if (dash < 5 || dash + 1 >= f.size())
            continue;
        mounts.push_back({unescape(f[3]), unescape(f[4]), f[dash + 1],
                          dash + 3 < f.size() ? f[dash + 3] : QByteArray()});
    }
    return mounts;
}

std::vector<MountEntry> read(const QString& procRoot)
{
    QFile file(procRoot + QStringLiteral("/proc/self/mountinfo"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return parse(file.readAll()); // /proc files report size 0: readAll reads to the end
}

bool isVirtual(QByteArrayView fsType)
{
    static constexpr std::array<std::string_view, 22> kVirtual = {
        "autofs",     "binfmt_misc", "bpf",        "cgroup",          "cgroup2",     "configfs",
        "debugfs",    "devpts",      "efivarfs",   "fusectl",         "hugetlbfs",   "mqueue",
        "nsfs",       "proc",        "pstore",     "rpc_pipefs",      "securityfs",  "selinuxfs",
        "sysfs",      "tracefs",     "fuse.portal", "fuse.gvfsd-fuse",
    };
    const std::string_view type(fsType.data(), size_t(fsType.size()));
    return std::find(kVirtual.begin(), kVirtual.end(), type) != kVirtual.end();
}

std::vector<std::string> virtualMountPoints(const std::vector<MountEntry>& mounts)
{
    std::vector<std::string> points;
    for (const MountEntry& mount : mounts) {
        if (isVirtual(mount.fsType) && mount.mountPoint != "/")
            points.emplace_back(mount.mountPoint.constData(), size_t(mount.mountPoint.size()));
    }
    return points;
}

} // namespace MountTable
