#include "platform/linux/ProcMemInfo.h"
#include "support/Files.h"
#include "support/StderrCapture.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray fixture(const QString& name)
{
    QFile f(QStringLiteral(TROVIX_SOURCE_DIR "/tests/platform/fixtures/") + name);
    if (!f.open(QIODevice::ReadOnly))
        qFatal("missing fixture %s", qPrintable(name));
    return f.readAll();
}

constexpr quint64 KiB = 1024;
constexpr quint64 MiB = 1024 * KiB;

} // namespace

class TestProcMemInfo : public QObject
{
    Q_OBJECT
private slots:
    void fixtures_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<quint32>("pageSize");
        QTest::addColumn<QString>("missing");
        // internal, wired, compressed, active, inactive, free pages; empty: no counters
        QTest::addColumn<QList<quint64>>("counters");
        QTest::addColumn<QList<quint64>>("available"); // available, total; empty: no estimate

        const QList<quint64> vmAvailable{24146928 * KiB, 24684096 * KiB};
        const QList<quint64> zswapAvailable{7413256 * KiB, 16281644 * KiB};
        // Worked out by hand from the files (kB / 4 for 4 KiB pages).
        // (14984 + 8788) / 4; (15408 + 23212 + 1388 + 1480 + 688) / 4
        QTest::newRow("idle VM, kernel 6.18") << "vm-6.18-idle.meminfo" << 4096u << ""
                                              << QList<quint64>{5943, 10544, 0, 36098, 47265, 5998267} << vmAvailable;
        // (6692396 + 493876) / 4; (142908 + 282636 + 28912 + 95736 + 10944) / 4; 1135840 / 4
        QTest::newRow("desktop with zswap")
            << "desktop-6.1-zswap.meminfo" << 4096u << ""
            << QList<quint64>{1796568, 140284, 74603, 1468638, 1975545, 228086} << zswapAvailable;
        QTest::newRow("desktop with zswap, 16 KiB pages")
            << "desktop-6.1-zswap.meminfo" << 16384u << ""
            << QList<quint64>{449142, 35071, 18650, 367159, 493886, 57021} << zswapAvailable;
        // Shmem and MemAvailable appeared later: an old kernel gives neither counters nor an estimate.
        QTest::newRow("old kernel") << "server-2.6.18-no-shmem.meminfo" << 4096u << "Shmem" << QList<quint64>{}
                                    << QList<quint64>{};
        QTest::newRow("unknown page size") << "vm-6.18-idle.meminfo" << 0u << "" << QList<quint64>{} << vmAvailable;
    }

    void fixtures()
    {
        QFETCH(QString, file);
        QFETCH(quint32, pageSize);
        const ProcMemInfo::Fields fields = ProcMemInfo::parseMeminfo(fixture(file));
        QString missingField;
        const auto c = ProcMemInfo::countersFromFields(fields, pageSize, &missingField);
        QList<quint64> counters;
        if (c) {
            QCOMPARE(c->purgeable_count, quint64(0));
            counters = {c->internal_page_count, c->wire_count,     c->compressor_page_count,
                        c->active_count,        c->inactive_count, c->free_count};
        }
        QTEST(counters, "counters");
        QTEST(missingField, "missing");
        const auto a = ProcMemInfo::availableFromFields(fields);
        QTEST(a ? QList<quint64>({a->available, a->total}) : QList<quint64>(), "available");
    }

    void parserKeepsUnitlessValuesAndSkipsJunk()
    {
        const auto fields = ProcMemInfo::parseMeminfo("MemTotal:  100 kB\nHugePages_Total:       7\n"
                                                      "garbage line\nBroken: twelve kB\n:5 kB\nTrailing:   3 kB");
        QCOMPARE(fields.value("MemTotal"), 100 * KiB);
        QCOMPARE(fields.value("HugePages_Total"), quint64(7));
        QCOMPARE(fields.value("Trailing"), 3 * KiB);
        QVERIFY(!fields.contains("Broken"));
        QCOMPARE(fields.size(), 3);
        QVERIFY(ProcMemInfo::parseMeminfo("").isEmpty());
    }

    void limitTexts()
    {
        QCOMPARE(ProcMemInfo::parseLimit("536870912\n").value_or(0), quint64(536870912));
        for (const char* text : {"max\n", "", "lots\n"})
            QVERIFY2(!ProcMemInfo::parseLimit(text), text);
    }

    void cgroupLevels_data()
    {
        QTest::addColumn<QByteArray>("cgroup");
        QTest::addColumn<QByteArray>("mountinfo");
        QTest::addColumn<QStringList>("dirs");
        QTest::addColumn<QList<bool>>("v2");

        const QByteArray systemdV2 = "0::/user.slice/user-1000.slice/session-2.scope\n";
        const QByteArray v2Mount = "24 29 0:22 / /sys/fs/cgroup rw,nosuid,nodev,noexec,relatime shared:9 - cgroup2 "
                                   "cgroup2 rw,nsdelegate,memory_recursiveprot\n"
                                   "29 1 254:1 / / rw,relatime shared:1 - ext4 /dev/vda1 rw\n";
        QTest::newRow("systemd session, unified hierarchy")
            << systemdV2 << v2Mount
            << QStringList{u"/sys/fs/cgroup/user.slice/user-1000.slice/session-2.scope"_s,
                           u"/sys/fs/cgroup/user.slice/user-1000.slice"_s, u"/sys/fs/cgroup/user.slice"_s,
                           u"/sys/fs/cgroup"_s}
            << QList<bool>{true, true, true, true};

        // A hybrid layout: the memory controller on v1, an empty unified tree beside it.
        QTest::newRow("hybrid, memory on v1")
            << QByteArray("4:memory:/process_api/288b\n1:cpu:/\n0::/\n")
            << QByteArray("35 31 0:32 / /sys/fs/cgroup/memory rw,relatime - cgroup cgroup rw,memory\n"
                          "32 31 0:29 / /sys/fs/cgroup/cpu rw,relatime - cgroup cgroup rw,cpu\n"
                          "41 31 0:38 / /sys/fs/cgroup/unified rw,relatime - cgroup2 cgroup2 rw\n")
            << QStringList{u"/sys/fs/cgroup/memory/process_api/288b"_s, u"/sys/fs/cgroup/memory/process_api"_s,
                           u"/sys/fs/cgroup/memory"_s, u"/sys/fs/cgroup/unified"_s}
            << QList<bool>{false, false, false, true};

        // Inside a container the mount's root is the container's own group.
        QTest::newRow("container, mount rooted at the group")
            << QByteArray("0::/docker/abc\n")
            << QByteArray("500 400 0:30 /docker/abc /sys/fs/cgroup ro,nosuid - cgroup2 cgroup rw\n")
            << QStringList{u"/sys/fs/cgroup"_s} << QList<bool>{true};
        QTest::newRow("group outside the mounted tree")
            << QByteArray("0::/elsewhere\n")
            << QByteArray("500 400 0:30 /docker/abc /sys/fs/cgroup ro - cgroup2 cgroup rw\n") << QStringList{}
            << QList<bool>{};
        QTest::newRow("escaped blank in the mount point")
            << QByteArray("0::/a\n") << QByteArray("24 29 0:22 / /mnt/cg\\040two rw - cgroup2 cgroup2 rw\n")
            << QStringList{u"/mnt/cg two/a"_s, u"/mnt/cg two"_s} << QList<bool>{true, true};
        QTest::newRow("no cgroup mounts")
            << systemdV2 << QByteArray("29 1 254:1 / / rw - ext4 /dev/vda1 rw\n") << QStringList{} << QList<bool>{};
    }

    void cgroupLevels()
    {
        QFETCH(QByteArray, cgroup);
        QFETCH(QByteArray, mountinfo);
        QFETCH(QStringList, dirs);
        QFETCH(QList<bool>, v2);
        const auto levels = ProcMemInfo::cgroupLevelsFrom(cgroup, mountinfo);
        QStringList gotDirs;
        QList<bool> gotV2;
        for (const auto& level : levels) {
            gotDirs << level.directory;
            gotV2 << level.v2;
        }
        QCOMPARE(gotDirs, dirs);
        QCOMPARE(gotV2, v2);
    }

    void cgroupRoomCountsInactiveCacheAsFree()
    {
        const AvailableMemory kernel{8000 * MiB, 16000 * MiB};
        const auto combine = [&](const std::vector<ProcMemInfo::CgroupFigures>& levels) {
            const AvailableMemory m = ProcMemInfo::combine(kernel, levels);
            return QList<quint64>{m.available, m.total};
        };
        // No limited level: the kernel's figure stands.
        QCOMPARE(combine({}), (QList<quint64>{8000 * MiB, 16000 * MiB}));
        // 2 GiB limit, 1.5 GiB charged of which 1 GiB inactive cache: 1.5 GiB of room.
        QCOMPARE(combine({{2048 * MiB, 1536 * MiB, 1024 * MiB}}), (QList<quint64>{1536 * MiB, 2048 * MiB}));
        // The tightest level wins; a group over its limit has no room at all.
        QCOMPARE(combine({{4096 * MiB, 1024 * MiB, 0}, {1024 * MiB, 1100 * MiB, 0}}), (QList<quint64>{0, 1024 * MiB}));
    }

    void readerTakesTheTighterCgroupLimit()
    {
        QTemporaryDir root;
        const QString r = root.path();
        QVERIFY(writeFile(r + u"/proc/meminfo"_s, fixture(u"desktop-6.1-zswap.meminfo"_s)));
        QVERIFY(writeFile(r + u"/proc/self/cgroup"_s, "0::/app.slice/trovix.scope\n"));
        QVERIFY(writeFile(r + u"/proc/self/mountinfo"_s, "24 29 0:22 / /sys/fs/cgroup rw - cgroup2 cgroup2 rw\n"));
        const QString group = r + u"/sys/fs/cgroup/app.slice/trovix.scope"_s;
        QVERIFY(writeFile(group + u"/memory.max"_s, "1073741824\n"));
        QVERIFY(writeFile(group + u"/memory.current"_s, "805306368\n"));
        QVERIFY(writeFile(group + u"/memory.stat"_s,
                          "anon 500000000\nfile 300000000\ninactive_file 268435456\nactive_file 5\n"));
        QVERIFY(writeFile(r + u"/sys/fs/cgroup/app.slice/memory.max"_s, "max\n"));

        ProcMemInfo reader(r);
        QCOMPARE(reader.cgroupLevels().size(), size_t(3));
        QCOMPARE(reader.physicalMemory(), 16281644 * KiB);
        auto available = reader.availableMemory();
        QVERIFY(available);
        // 1 GiB - (768 MiB - 256 MiB inactive cache) = 512 MiB, below the 7.1 GiB the kernel offers.
        QCOMPARE(available->available, 512 * MiB);
        QCOMPARE(available->total, 1024 * MiB);

        // A limit above physical memory limits nothing.
        QVERIFY(writeFile(group + u"/memory.max"_s, "99999999999999\n"));
        available = reader.availableMemory();
        QCOMPARE(available->available, 7413256 * KiB);
        QCOMPARE(available->total, 16281644 * KiB);

        VmStatistics64 stats;
        QVERIFY(reader.readStatistics(stats));
        // Compressed is the pool's own size, not the larger size of the pages it holds (Zswapped).
        QCOMPARE(stats.compressor_page_count * reader.pageSize(), 298412 * KiB);
    }

    void unreadableMeminfoFailsWithOneLine_data()
    {
        QTest::addColumn<QString>("fixtureName"); // empty: no file at all
        QTest::addColumn<QByteArray>("named");
        QTest::newRow("missing file") << QString() << QByteArray("/proc/meminfo");
        QTest::newRow("missing field") << u"server-2.6.18-no-shmem.meminfo"_s << QByteArray("\"Shmem\"");
    }

    void unreadableMeminfoFailsWithOneLine()
    {
        QFETCH(QString, fixtureName);
        QFETCH(QByteArray, named);
        QTemporaryDir root;
        if (!fixtureName.isEmpty())
            QVERIFY(writeFile(root.path() + u"/proc/meminfo"_s, fixture(fixtureName)));
        VmStatistics64 stats;
        stats.free_count = 77;
        bool first = true, available = true, second = true;
        const QByteArray err = stderrOf([&] {
            ProcMemInfo reader(root.path());
            first = reader.readStatistics(stats);
            available = bool(reader.availableMemory());
            second = reader.readStatistics(stats);
        });
        QVERIFY(!first);
        QVERIFY(!available);
        QVERIFY(!second);
        QCOMPARE(stats.free_count, quint64(77)); // left as it was
        QCOMPARE(err.count('\n'), 1);
        QVERIFY2(err.contains(named), err.constData());
    }

    void usedFigureOnThisMachineIsPlausible()
    {
        // One snapshot of the real file, so the bounds and the figure describe the same moment.
        QFile file(QStringLiteral("/proc/meminfo"));
        if (!file.open(QIODevice::ReadOnly))
            QSKIP("no /proc/meminfo here");
        const auto fields = ProcMemInfo::parseMeminfo(file.readAll());
        const quint32 page = MemoryInfo::system().pageSize();
        const auto counters = ProcMemInfo::countersFromFields(fields, page);
        QVERIFY(counters);
        const quint64 used = (counters->internal_page_count - counters->purgeable_count + counters->wire_count +
                              counters->compressor_page_count) *
                             page;
        auto f = [&](const char* name) { return fields.value(name); };

        // Upper bound: everything not free, less the file cache that is not shared memory (Cached holds
        // Shmem, which counts as used). Unevictable pages are also anonymous or shmem pages, so they may be
        // counted twice and are allowed on top; the zswap pool is kernel memory, inside the bound already.
        const quint64 upper =
            f("MemTotal") - f("MemFree") - (f("Buffers") + f("Cached") - f("Shmem")) + f("Unevictable");
        // Lower bound: the anonymous LRU lists (anonymous and shmem pages, counted by a different kernel
        // counter than the ones the figure adds up), less the swap cache they may also hold. A bound through
        // MemAvailable does not hold: MemTotal - MemAvailable includes the zone watermark reserves, several
        // hundred MiB on a large machine, which are free pages and not used by anyone.
        const quint64 anonLru = f("Active(anon)") + f("Inactive(anon)");
        const quint64 lower = anonLru > f("SwapCached") ? anonLru - f("SwapCached") : 0;
        qInfo("used %llu MiB, bounds [%llu, %llu] MiB, MemTotal-MemAvailable %llu MiB", used / MiB, lower / MiB,
              upper / MiB, (f("MemTotal") - f("MemAvailable")) / MiB);
        QVERIFY(used >= lower);
        QVERIFY(used <= upper);
        QVERIFY(used < f("MemTotal"));
    }
};

QTEST_GUILESS_MAIN(TestProcMemInfo)
#include "TestProcMemInfo.moc"
