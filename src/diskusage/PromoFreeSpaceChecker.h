#pragma once

#include <QDateTime>
#include <QString>

#include <functional>
#include <optional>
#include <vector>

class Clock;
class UserDefaults;

// One mounted volume as the free-space warning and `trovix disk` see it.
struct VolumeInfo {
    QString path;
    QString name;
    QString fsType;
    quint64 size = 0;
    quint64 freeSize = 0;
    bool writable = true;
};

// Decides when to warn that a disk is nearly full: at most once per minimum gap, when a local volume has
// less than 5% free, or less than 10 GB free while it is over 100 GB (GB = 10^9 bytes).
class PromoFreeSpaceChecker
{
public:
    using VolumeLister = std::function<std::vector<VolumeInfo>()>;
    static constexpr const char* kLastWarningKey = "PROMO_MANAGER:LackOfSpaceWarningDate";

    PromoFreeSpaceChecker(UserDefaults& defaults, Clock& clock, qint64 minimumGapSeconds,
                          VolumeLister volumes = &PromoFreeSpaceChecker::localVolumes);

    // Within the gap: NO. Otherwise notes now as the last warning and answers whether a volume is low.
    bool isNeedShowLackOfMemoryWarning();
    // The volume that made the last answer YES.
    const std::optional<VolumeInfo>& lowVolume() const { return m_lowVolume; }

    static bool isLowOnSpace(const VolumeInfo& volume);
    // The kinds of file system kept in `localVolumes`: those on a local disk.
    static bool isLocalDiskFileSystem(const QString& fsType);
    // Local disk volumes, writable, of a non-zero size, one per device; "/" always, its free size from
    // the "FreeSpaceScript(Startup disk)" script when that answers.
    static std::vector<VolumeInfo> localVolumes();
    static std::optional<quint64> startupDiskFreeFromScript();

    QDateTime getLastLackOfSpaceWarningDate() const;
    void setNowAsLastLackOfSpaceWarningDate();

private:
    UserDefaults& m_defaults;
    Clock& m_clock;
    qint64 m_gap;
    VolumeLister m_volumes;
    std::optional<VolumeInfo> m_lowVolume;
};
