#pragma once

#include "platform/MemoryInfo.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QString>
#include <QStringList>

#include <atomic>
#include <optional>
#include <vector>

// MemoryInfo over /proc/meminfo and the cgroup files of this process. The parsers are pure functions over
// the files' text; the object only reads the files, below a root folder that tests point at a fixture tree.
class ProcMemInfo final : public MemoryInfo
{
public:
    // Field name -> value: bytes for "kB" lines, the plain number otherwise.
    using Fields = QHash<QByteArray, quint64>;

    // One cgroup level whose memory files apply to this process.
    struct CgroupLevel
    {
        QString directory;
        bool v2 = true; // memory.max / memory.current, else the v1 names
    };

    // What one cgroup level allows, in bytes.
    struct CgroupFigures
    {
        quint64 limit = 0;
        quint64 usage = 0;
        quint64 inactiveFile = 0;
    };

    // root: prefix of /proc and /sys ("" for the running system).
    explicit ProcMemInfo(QString root = QString());

    bool readStatistics(VmStatistics64& out) override;
    quint32 pageSize() const override { return m_pageSize; }
    quint64 physicalMemory() const override { return m_physicalMemory; }
    std::optional<AvailableMemory> availableMemory() override;

    const std::vector<CgroupLevel>& cgroupLevels() const { return m_cgroupLevels; }

    // --- Pure parsers ---
    static Fields parseMeminfo(QByteArrayView text);
    // The counters of a sample; nullopt and the name of the first missing field when one is absent.
    static std::optional<VmStatistics64> countersFromFields(const Fields& fields, quint32 pageSize,
                                                            QString* missingField = nullptr);
    // MemAvailable and MemTotal; nullopt when either is absent.
    static std::optional<AvailableMemory> availableFromFields(const Fields& fields);
    // A limit file ("max" or a number); nullopt for no limit or unreadable text.
    static std::optional<quint64> parseLimit(QByteArrayView text);
    // The value of one "key value" line of a memory.stat text; 0 when absent.
    static quint64 statValue(QByteArrayView memoryStat, QByteArrayView key);
    // The memory cgroup folders of this process, its own first, then each parent up to the mount point,
    // from /proc/self/cgroup and /proc/self/mountinfo texts. Both cgroup versions; paths outside a mount
    // (another namespace) are skipped.
    static std::vector<CgroupLevel> cgroupLevelsFrom(QByteArrayView procSelfCgroup, QByteArrayView mountinfo,
                                                     const QString& root = QString());
    // The tighter of the kernel's figure and every limited cgroup level.
    static AvailableMemory combine(AvailableMemory kernel, const std::vector<CgroupFigures>& levels);

private:
    std::optional<Fields> readMeminfo();
    void reportOnce(const QString& message);

    QString m_root;
    quint32 m_pageSize = 0;
    quint64 m_physicalMemory = 0;
    std::vector<CgroupLevel> m_cgroupLevels;
    std::atomic<bool> m_reported{false};
};
