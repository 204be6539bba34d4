#include "core/Settings.h"
#include "core/UserDefaults.h"
#include "hidden/FinderIntegration.h"
#include "support/Files.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

// The start-up reconciliation of the stored choice with what the plug-in tool reports. The tool here is a
// script that answers as told and records how it was run (the real tool has its own test).
class TestFinderIntegration : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<UserDefaults> m_defaults;
    int m_checkbox = -1;

    QString file(const char* name) const { return m_dir.filePath(QString::fromLatin1(name)); }

    void answer(const QByteArray& text) { QVERIFY(writeFile(file("answer"), text)); }
    QStringList runs() const { return QString::fromUtf8(readFile(file("runs"))).split('\n', Qt::SkipEmptyParts); }

    FinderIntegration make()
    {
        FinderIntegration integration(*m_defaults, "/bin/sh", {file("tool")});
        integration.setCheckbox([this](int state) { m_checkbox = state; });
        return integration;
    }

    // Runs the start-up step and waits for the detached run that applies the choice.
    QString reconcile()
    {
        QFile::remove(file("runs"));
        make().finderIntegration();
        if (!QTest::qWaitFor([this] { return runs().size() >= 2; }, 10000))
            return QStringLiteral("tool runs: ") + runs().join(" | ");
        return runs().last();
    }

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_dir.isValid());
        QVERIFY(writeFile(file("tool"), QStringLiteral("echo \"$*\" >>'%1'\n[ \"$1\" = -m ] && cat '%2'\nexit 0\n")
                                            .arg(file("runs"), file("answer"))
                                            .toUtf8()));
        QFile::remove(file("runs"));
        QFile::remove(file("std.json"));
        m_defaults = std::make_unique<UserDefaults>(file("std.json"));
        m_checkbox = -1;
    }

    void firstStartTurnsTheEntriesOnWhateverTheToolSays()
    {
        answer("-    com.quorbel.trovix.FinderSyncExt(1.0)\n");
        QCOMPARE(reconcile(), QStringLiteral("-e use -i com.quorbel.trovix.FinderSyncExt"));
        QCOMPARE(runs().first(), QStringLiteral("-m -A -i com.quorbel.trovix.FinderSyncExt"));
        QVERIFY(m_defaults->boolForKey(SettingsKey::FinderIntegration));
        QVERIFY(m_defaults->boolForKey(SettingsKey::IsNotFirstLaunch));
        QCOMPARE(m_checkbox, 1);
    }

    void laterStartsFollowTheTool()
    {
        m_defaults->setObject(true, SettingsKey::IsNotFirstLaunch);
        m_defaults->setObject(true, SettingsKey::FinderIntegration);
        answer("-    com.quorbel.trovix.FinderSyncExt(1.0)\n");
        QCOMPARE(reconcile(), QStringLiteral("-e ignore -i com.quorbel.trovix.FinderSyncExt"));
        QVERIFY(!m_defaults->boolForKey(SettingsKey::FinderIntegration));
        QCOMPARE(m_checkbox, 0);

        // A tool that prints nothing has nothing enabled.
        m_defaults->setObject(true, SettingsKey::FinderIntegration);
        answer("");
        QCOMPARE(reconcile(), QStringLiteral("-e ignore -i com.quorbel.trovix.FinderSyncExt"));

        // Off by choice, on in the tool: the tool wins.
        answer("+    com.quorbel.trovix.FinderSyncExt(1.0)\n");
        QCOMPARE(reconcile(), QStringLiteral("-e use -i com.quorbel.trovix.FinderSyncExt"));
        QVERIFY(m_defaults->boolForKey(SettingsKey::FinderIntegration));
    }

    void theCheckboxAppliesItsState()
    {
        make().toggleFinderIntegration(0);
        QTRY_COMPARE_WITH_TIMEOUT(runs().value(0), QStringLiteral("-e ignore -i com.quorbel.trovix.FinderSyncExt"),
                                  10000);
        QCOMPARE(m_checkbox, 0);
        make().toggleFinderIntegration(1);
        QTRY_COMPARE_WITH_TIMEOUT(runs().value(1), QStringLiteral("-e use -i com.quorbel.trovix.FinderSyncExt"), 10000);
        QCOMPARE(m_checkbox, 1);
    }

    // Runs go one after the other, so the last choice is the one that stays; a run still under way when
    // the program quits is finished first. (Kept last: it ends the test's event loop once.)
    void runsKeepTheirOrderAndOutliveAQuit()
    {
        // The first run is the slowest: run side by side, it would end last.
        QVERIFY(writeFile(
            file("slow"),
            QStringLiteral("[ \"$2\" = ignore ] && sleep 1\necho \"$2\" >>'%1'\n").arg(file("runs")).toUtf8()));
        FinderIntegration integration(*m_defaults, "/bin/sh", {file("slow")});
        integration.disableFinderSyncExtension();
        integration.enableFinderSyncExtension();
        integration.disableFinderSyncExtension();
        integration.enableFinderSyncExtension(); // only this one of the waiting three runs
        QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
        QCoreApplication::exec();
        QCOMPARE(runs(), QStringList({"ignore", "use"}));
    }
};

QTEST_GUILESS_MAIN(TestFinderIntegration)
#include "TestFinderIntegration.moc"
