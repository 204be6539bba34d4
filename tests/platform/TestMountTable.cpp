#include "platform/linux/MountTable.h"

#include <QtTest>

#include <algorithm>

class TestMountTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parsesFieldsAroundOptionalTagsAndEscapes()
    {
        const QByteArray text = "22 1 0:21 / /proc rw,nosuid shared:13 - proc proc rw\n"
                                "30 22 0:26 / /proc/sys/fs/binfmt_misc rw,relatime shared:15 master:2 - autofs "
                                "systemd-1 rw,fd=29\n"
                                "40 1 8:1 /home/a\\040b /mnt/my\\040disk\\134x rw - ext4 /dev/sda1 rw,errors=remount-ro\n"
                                "41 1 0:50 / / rw - btrfs /dev/vda rw\n"
                                "not a mount line\n"
                                "\n";
        const std::vector<MountEntry> mounts = MountTable::parse(text);
        QCOMPARE(mounts.size(), size_t(4));
        QCOMPARE(mounts[1].mountPoint, "/proc/sys/fs/binfmt_misc");
        QCOMPARE(mounts[1].fsType, "autofs");
        QCOMPARE(mounts[1].superOptions, "rw,fd=29");
        QCOMPARE(mounts[2].root, "/home/a b");
        QCOMPARE(mounts[2].mountPoint, "/mnt/my disk\\x");
        QCOMPARE(mounts[2].fsType, "ext4");

        // Kernel views and automount points are left out; disks and the root never are.
        const std::vector<std::string> points = MountTable::virtualMountPoints(mounts);
        QCOMPARE(points, (std::vector<std::string>{"/proc", "/proc/sys/fs/binfmt_misc"}));
        QVERIFY(!MountTable::virtualMountPoints(MountTable::parse("1 0 0:1 / / rw - proc proc rw\n")).size());
    }

    void readsThisProcessMounts()
    {
        const std::vector<MountEntry> mounts = MountTable::read();
        QVERIFY(std::any_of(mounts.begin(), mounts.end(),
                            [](const MountEntry& m) { return m.mountPoint == "/proc" && m.fsType == "proc"; }));
        QVERIFY(MountTable::read(QStringLiteral("/nonexistent-root")).empty());
    }
};

QTEST_GUILESS_MAIN(TestMountTable)
#include "TestMountTable.moc"
