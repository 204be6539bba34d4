#include "core/UserDefaults.h"
#include "hidden/DiskAccessRestoreManager.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// Root reads every folder whatever its mode; this test gives that power up so that an unreadable
// folder is unreadable, as it is for the users the program runs for.
bool giveUpReadingEverything()
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    if (::syscall(SYS_capget, &header, data) != 0)
        return false;
    for (int cap : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH}) {
        const unsigned bit = 1u << (cap % 32);
        data[cap / 32].effective &= ~bit;
        data[cap / 32].permitted &= ~bit;
        data[cap / 32].inheritable &= ~bit;
    }
    return ::syscall(SYS_capset, &header, data) == 0;
}

} // namespace

// Access to the home folder and other folders, and the grants kept for them, against real folders.
class TestDiskAccessRestoreManager : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<DiskAccessRestoreManager> m_access;

private Q_SLOTS:
    void initTestCase() { QVERIFY(giveUpReadingEverything()); }

    void init()
    {
        m_defaults = std::make_unique<UserDefaults>(m_dir.filePath("std.json"));
        m_access = std::make_unique<DiskAccessRestoreManager>(*m_defaults);
    }

    // A readable home needs no grant: even a grant that no longer resolves does not matter.
    void readableHomeNeedsNoGrant()
    {
        m_defaults->setObject(QByteArray("/no/such/folder"), QDir::homePath());
        QVERIFY(m_access->isUserFolderAccessible());
        QCOMPARE(m_access->restoreAccessToPathIfNeeded(QDir::homePath()), std::optional(QDir::homePath()));
    }

    // A grant for a folder that was moved or deleted resolves to nothing.
    void grantForAFolderThatWentAway_data()
    {
        QTest::addColumn<bool>("moved");
        QTest::newRow("moved") << true;
        QTest::newRow("deleted") << false;
    }
    void grantForAFolderThatWentAway()
    {
        QFETCH(bool, moved);
        const QString folder = m_dir.filePath("granted");
        QVERIFY(QDir().mkpath(folder));
        m_access->saveAccessToPath(folder);
        QVERIFY(m_access->isPathAccessible(folder));
        QVERIFY(moved ? QDir().rename(folder, m_dir.filePath("elsewhere")) : QDir(folder).removeRecursively());
        QVERIFY(!m_access->isPathAccessible(folder));
        QVERIFY(!m_access->restoreAccessToPathIfNeeded(folder));
        QDir(m_dir.filePath("elsewhere")).removeRecursively();
    }

    // The grant resolves, but the folder still cannot be read: no access.
    void grantForAnUnreadableFolder()
    {
        const QString folder = m_dir.filePath("locked");
        QVERIFY(QDir().mkpath(folder));
        m_access->saveAccessToPath(folder);
        QVERIFY(QFile::setPermissions(folder, QFileDevice::Permissions{}));
        const bool accessible = m_access->isPathAccessible(folder);
        QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        QVERIFY(!accessible);
        QVERIFY(m_defaults->objectForKey(folder).isValid());
    }
};

QTEST_GUILESS_MAIN(TestDiskAccessRestoreManager)
#include "TestDiskAccessRestoreManager.moc"
