#include "ProcMemInfo.h"

#include "MountTable.h"

#include <QDir>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Reads a whole (pseudo-)file; /proc files report size 0, so read until the end.
std::optional<QByteArray> readWholeFile(const QString& path, QString* error = nullptr)
{
    const QByteArray native = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(path, QString::fromLocal8Bit(std::strerror(errno)));
        return std::nullopt;
    }
    QByteArray data;
    char buffer[8192];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            if (error)
                *error = QStringLiteral("%1: %2").arg(path, QString::fromLocal8Bit(std::strerror(errno)));
            ::close(fd);
            return std::nullopt;
        }
        if (n == 0)
            break;
        data.append(buffer, n);
    }
    ::close(fd);
    return data;
}

std::optional<quint64> toNumber(QByteArrayView text)
{
    bool ok = false;
    const quint64 v = text.trimmed().toULongLong(&ok);
    return ok ? std::optional<quint64>(v) : std::nullopt;
}

} // namespace

ProcMemInfo::ProcMemInfo(QString root)
    : m_root(std::move(root))
{
    const long page = ::sysconf(_SC_PAGESIZE);
    m_pageSize = page > 0 ? quint32(page) : 0;
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    if (pages > 0 && m_pageSize > 0 && m_root.isEmpty()) {
        m_physicalMemory = quint64(pages) * m_pageSize;
    } else if (auto fields = readMeminfo()) {
        m_physicalMemory = fields->value("MemTotal");
    }
    const auto cgroup = readWholeFile(m_root + QStringLiteral("/proc/self/cgroup"));
    const auto mountinfo = readWholeFile(m_root + QStringLiteral("/proc/self/mountinfo"));
    if (cgroup && mountinfo)
        m_cgroupLevels = cgroupLevelsFrom(*cgroup, *mountinfo, m_root);
}

ProcMemInfo::Fields ProcMemInfo::parseMeminfo(QByteArrayView text)
{
    Fields fields;
    for (QByteArrayView line : QByteArray::fromRawData(text.data(), text.size()).split('\n')) {
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            continue;
        QByteArrayView rest = line.sliced(colon + 1).trimmed();
        quint64 multiplier = 1;
        if (rest.endsWith("kB")) {
            multiplier = 1024;
            rest = rest.chopped(2).trimmed();
        }
        if (const auto value = toNumber(rest))
            fields.insert(line.first(colon).toByteArray(), *value * multiplier);
    }
    return fields;
}

std::optional<VmStatistics64> ProcMemInfo::countersFromFields(const Fields& fields, quint32 pageSize,
                                                              QString* missingField)
{
    if (pageSize == 0)
        return std::nullopt;
    bool complete = true;
    auto need = [&](const char* name) -> quint64 {
        const auto it = fields.constFind(QByteArray(name));
        if (it != fields.constEnd())
            return *it;
        if (complete && missingField)
            *missingField = QString::fromLatin1(name);
        complete = false;
        return 0;
    };
    auto optional = [&](const char* name) -> quint64 { return fields.value(QByteArray(name), 0); };

    // How Linux's counters stand in for the virtual-memory record the figures were defined on:
    // - internal (anonymous memory the kernel cannot just drop) = AnonPages + Shmem; tmpfs and shared
    //   memory live in the page cache but, like anonymous pages, go only to swap.
    // - purgeable = 0: Linux keeps no system-wide count of memory marked as freeable on demand.
    // - wired (never paged out) = Unevictable + SUnreclaim + KernelStack + PageTables, plus Percpu on
    //   kernels that show it.
    // - compressed = Zswap, the memory the compressed swap cache takes up; 0 without zswap. (Zswapped is
    //   the larger size of the pages before compression and would overstate what is in use.)
    // - active, inactive and free are the kernel's LRU totals and free pages as they stand.
    VmStatistics64 s;
    const quint64 internal = need("AnonPages") + need("Shmem");
    const quint64 wired =
        need("Unevictable") + need("SUnreclaim") + need("KernelStack") + need("PageTables") + optional("Percpu");
    const quint64 active = need("Active");
    const quint64 inactive = need("Inactive");
    const quint64 freeBytes = need("MemFree");
    if (!complete)
        return std::nullopt;
    s.internal_page_count = internal / pageSize;
    s.purgeable_count = 0;
    s.wire_count = wired / pageSize;
    s.compressor_page_count = optional("Zswap") / pageSize;
    s.active_count = active / pageSize;
    s.inactive_count = inactive / pageSize;
    s.free_count = freeBytes / pageSize;
    return s;
}

std::optional<AvailableMemory> ProcMemInfo::availableFromFields(const Fields& fields)
{
    const auto available = fields.constFind(QByteArrayLiteral("MemAvailable"));
    const auto total = fields.constFind(QByteArrayLiteral("MemTotal"));
    if (available == fields.constEnd() || total == fields.constEnd())
        return std::nullopt;
    return AvailableMemory{*available, *total};
}

std::optional<quint64> ProcMemInfo::parseLimit(QByteArrayView text)
{
    if (text.trimmed() == "max")
        return std::nullopt;
    return toNumber(text);
}

quint64 ProcMemInfo::statValue(QByteArrayView memoryStat, QByteArrayView key)
{
    for (QByteArrayView line : QByteArray::fromRawData(memoryStat.data(), memoryStat.size()).split('\n')) {
        const qsizetype space = line.indexOf(' ');
        if (space > 0 && line.first(space) == key)
            return toNumber(line.sliced(space + 1)).value_or(0);
    }
    return 0;
}

std::vector<ProcMemInfo::CgroupLevel> ProcMemInfo::cgroupLevelsFrom(QByteArrayView procSelfCgroup,
                                                                    QByteArrayView mountinfo, const QString& root)
{
    // The process's group in each hierarchy that can carry memory limits.
    std::optional<QByteArray> v2Path;
    std::optional<QByteArray> v1Path;
    for (QByteArrayView line : QByteArray::fromRawData(procSelfCgroup.data(), procSelfCgroup.size()).split('\n')) {
        const auto parts = QByteArray::fromRawData(line.data(), line.size()).split(':');
        if (parts.size() < 3)
            continue;
        // The path itself may hold colons: it is everything after the second one.
        const qsizetype second = line.indexOf(':', line.indexOf(':') + 1);
        const QByteArray path = line.sliced(second + 1).toByteArray();
        if (parts[0] == "0" && parts[1].isEmpty())
            v2Path = path;
        else if (parts[1].split(',').contains("memory"))
            v1Path = path;
    }

    std::vector<CgroupLevel> levels;
    for (const MountEntry& mount : MountTable::parse(mountinfo)) {
        const bool isV2 = mount.fsType == "cgroup2";
        const bool isV1Memory = mount.fsType == "cgroup" && mount.superOptions.split(',').contains("memory");
        const std::optional<QByteArray>& groupPath = isV2 ? v2Path : v1Path;
        if ((!isV2 && !isV1Memory) || !groupPath)
            continue;
        const QString mountRoot = QFile::decodeName(mount.root);
        const QString mountPoint = QFile::decodeName(mount.mountPoint);
        QString relative = QFile::decodeName(*groupPath);
        if (mountRoot != QLatin1String("/")) {
            if (relative != mountRoot && !relative.startsWith(mountRoot + QLatin1Char('/')))
                continue;
            relative = relative.mid(mountRoot.size());
        }
        QString dir = QDir::cleanPath(root + mountPoint + QLatin1Char('/') + relative);
        const QString top = QDir::cleanPath(root + mountPoint);
        for (;;) {
            levels.push_back({dir, isV2});
            if (dir == top || dir.size() <= top.size())
                break;
            dir = dir.left(dir.lastIndexOf(QLatin1Char('/')));
        }
    }
    return levels;
}

AvailableMemory ProcMemInfo::combine(AvailableMemory kernel, const std::vector<CgroupFigures>& levels)
{
    // A cgroup's room is its limit minus what it holds, where what it holds leaves out the inactive file
    // cache: the group reclaims that first by itself, just as MemAvailable counts cache as available.
    for (const CgroupFigures& level : levels) {
        const quint64 held = level.usage > level.inactiveFile ? level.usage - level.inactiveFile : 0;
        const quint64 room = level.limit > held ? level.limit - held : 0;
        kernel.available = std::min(kernel.available, room);
        kernel.total = std::min(kernel.total, level.limit);
    }
    return kernel;
}

std::optional<ProcMemInfo::Fields> ProcMemInfo::readMeminfo()
{
    QString error;
    const auto text = readWholeFile(m_root + QStringLiteral("/proc/meminfo"), &error);
    if (!text) {
        reportOnce(error);
        return std::nullopt;
    }
    return parseMeminfo(*text);
}

bool ProcMemInfo::readStatistics(VmStatistics64& out)
{
    const auto fields = readMeminfo();
    if (!fields)
        return false;
    QString missing;
    const auto counters = countersFromFields(*fields, m_pageSize, &missing);
    if (!counters) {
        reportOnce(m_pageSize == 0 ? QStringLiteral("the page size is unknown")
                                   : QStringLiteral("/proc/meminfo has no \"%1\" line").arg(missing));
        return false;
    }
    out = *counters;
    return true;
}

std::optional<AvailableMemory> ProcMemInfo::availableMemory()
{
    const auto fields = readMeminfo();
    if (!fields)
        return std::nullopt;
    const auto kernel = availableFromFields(*fields);
    if (!kernel) {
        reportOnce(QStringLiteral("/proc/meminfo has no \"MemAvailable\" or \"MemTotal\" line"));
        return std::nullopt;
    }
    std::vector<CgroupFigures> limited;
    for (const CgroupLevel& level : m_cgroupLevels) {
        const QString limitFile = level.v2 ? QStringLiteral("/memory.max") : QStringLiteral("/memory.limit_in_bytes");
        const auto limitText = readWholeFile(level.directory + limitFile);
        const auto limit = limitText ? parseLimit(*limitText) : std::nullopt;
        // v1 writes "no limit" as a huge number; anything beyond physical memory limits nothing.
        if (!limit || *limit >= kernel->total)
            continue;
        const auto usage = readWholeFile(level.directory + (level.v2 ? QStringLiteral("/memory.current")
                                                                     : QStringLiteral("/memory.usage_in_bytes")));
        const auto stat = readWholeFile(level.directory + QStringLiteral("/memory.stat"));
        CgroupFigures figures;
        figures.limit = *limit;
        // Unreadable usage counts as full: better to stop a purge than to overrun a limit.
        figures.usage = usage ? toNumber(*usage).value_or(*limit) : *limit;
        if (stat)
            figures.inactiveFile =
                statValue(*stat, level.v2 ? QByteArrayView("inactive_file") : QByteArrayView("total_inactive_file"));
        limited.push_back(figures);
    }
    return combine(*kernel, limited);
}

void ProcMemInfo::reportOnce(const QString& message)
{
    if (!m_reported.exchange(true))
        std::fprintf(stderr, "trovix: cannot read memory statistics: %s\n", qPrintable(message));
}

MemoryInfo& MemoryInfo::system()
{
    static ProcMemInfo reader;
    return reader;
}
