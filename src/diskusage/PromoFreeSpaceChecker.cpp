#include "PromoFreeSpaceChecker.h"

#include "core/UserDefaults.h"
#include "util/Clock.h"

#include <QFile>
#include <QProcess>
#include <QSet>
#include <QStorageInfo>

namespace {
constexpr quint64 kGB = 1000000000ULL;
}

PromoFreeSpaceChecker::PromoFreeSpaceChecker(UserDefaults& defaults, Clock& clock, qint64 minimumGapSeconds,
                                             VolumeLister volumes)
    : m_defaults(defaults)
    , m_clock(clock)
    , m_gap(minimumGapSeconds)
    , m_volumes(std::move(volumes))
{
}

bool PromoFreeSpaceChecker::isLowOnSpace(const VolumeInfo& volume)
{
    if (volume.size == 0)
        return false;
    return double(volume.freeSize) / double(volume.size) < 0.05
           || (volume.freeSize < 10 * kGB && volume.size > 100 * kGB);
}

bool PromoFreeSpaceChecker::isLocalDiskFileSystem(const QString& fsType)
{
    static const QSet<QString> local = {
        QStringLiteral("ext2"),  QStringLiteral("ext3"),     QStringLiteral("ext4"),    QStringLiteral("xfs"),
        QStringLiteral("btrfs"), QStringLiteral("f2fs"),     QStringLiteral("vfat"),    QStringLiteral("msdos"),
        QStringLiteral("exfat"), QStringLiteral("ntfs"),     QStringLiteral("ntfs3"),   QStringLiteral("fuseblk"),
        QStringLiteral("jfs"),   QStringLiteral("reiserfs"), QStringLiteral("zfs"),     QStringLiteral("bcachefs"),
        QStringLiteral("hfsplus"), QStringLiteral("udf"),    QStringLiteral("nilfs2")};
    return local.contains(fsType);
}

std::optional<quint64> PromoFreeSpaceChecker::startupDiskFreeFromScript()
{
    QFile script(QStringLiteral(":/scripts/FreeSpaceScript(Startup disk).sh"));
    if (!script.open(QIODevice::ReadOnly))
        return std::nullopt;
    QProcess shell;
    shell.start(QStringLiteral("/bin/sh"), {QStringLiteral("-s")});
    shell.write(script.readAll());
    shell.closeWriteChannel();
    if (!shell.waitForFinished(10000) || shell.exitCode() != 0)
        return std::nullopt;
    bool ok = false;
    const quint64 free = shell.readAllStandardOutput().trimmed().toULongLong(&ok);
    return ok ? std::optional(free) : std::nullopt;
}

std::vector<VolumeInfo> PromoFreeSpaceChecker::localVolumes()
{
    std::vector<VolumeInfo> volumes;
    QSet<QByteArray> devices;
    for (const QStorageInfo& storage : QStorageInfo::mountedVolumes()) {
        const QString type = QString::fromLatin1(storage.fileSystemType());
        const bool root = storage.isRoot();
        // The start-up disk counts whatever it is made of (an overlay in a container, say).
        if (!storage.isValid() || (!root && !isLocalDiskFileSystem(type)))
            continue;
        if (!root && (storage.isReadOnly() || devices.contains(storage.device())))
            continue;
        devices.insert(storage.device());
        VolumeInfo volume{storage.rootPath(), storage.displayName(), type, quint64(storage.bytesTotal()),
                          quint64(storage.bytesAvailable()), !storage.isReadOnly()};
        if (root) {
            if (const auto free = startupDiskFreeFromScript())
                volume.freeSize = *free;
            volumes.insert(volumes.begin(), volume);
        } else if (volume.size != 0 || volume.freeSize != 0) {
            volumes.push_back(volume);
        }
    }
    return volumes;
}

QDateTime PromoFreeSpaceChecker::getLastLackOfSpaceWarningDate() const
{
    return m_defaults.dateForKey(QString::fromLatin1(kLastWarningKey));
}

void PromoFreeSpaceChecker::setNowAsLastLackOfSpaceWarningDate()
{
    m_defaults.setObject(m_clock.now(), QString::fromLatin1(kLastWarningKey));
    m_defaults.synchronize();
}

bool PromoFreeSpaceChecker::isNeedShowLackOfMemoryWarning()
{
    m_lowVolume.reset();
    const QDateTime last = getLastLackOfSpaceWarningDate();
    if (last.isValid() && last.secsTo(m_clock.now()) < m_gap)
        return false;
    setNowAsLastLackOfSpaceWarningDate();
    for (const VolumeInfo& volume : m_volumes()) {
        // Network and pseudo file systems never warn, whoever listed them.
        if (volume.path != QLatin1String("/") && !isLocalDiskFileSystem(volume.fsType))
            continue;
        if (volume.writable && isLowOnSpace(volume)) {
            m_lowVolume = volume;
            return true;
        }
    }
    return false;
}
