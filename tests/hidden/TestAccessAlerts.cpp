#include "app/Texts.h"
#include "hidden/AccessAlerts.h"
#include "hidden/HiddenManagerLocalizable.h"
#include "hidden/InformationAboutAccessAlertsWC.h"

#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QWidget>

// The permission sheets: which alert an error calls for, their texts with the platform words, the
// window-modal sheets on the panel and what their buttons open.
class TestAccessAlerts : public QObject
{
    Q_OBJECT

    struct Rig
    {
        QWidget panel;
        int panelRequests = 0;
        bool havePanel = true;
        QList<QUrl> opened;
        QList<SettingsCommand> started;
        AccessAlerts alerts{AccessAlerts::Hooks{[this]() -> QWidget* {
                                                    ++panelRequests;
                                                    if (!havePanel)
                                                        return nullptr;
                                                    panel.show(); // a closed panel is shown first
                                                    return &panel;
                                                },
                                                [this](const QUrl& u) { opened << u; },
                                                [this](const SettingsCommand& c) {
                                                    started << c;
                                                    return true;
                                                }}};
    };

private Q_SLOTS:
    void initTestCase() { Texts::setFileManagerName(QStringLiteral("Files")); }

    void patterns_data()
    {
        QTest::addColumn<QString>("description");
        QTest::addColumn<int>("kind"); // -1: no alert
        QTest::addColumn<QString>("anchor");
        QTest::newRow("Finder") << QStringLiteral("Not authorized to send Apple events to Finder. (-1743)") << 0
                                << QStringLiteral("finder");
        QTest::newRow("both names: Finder wins")
            << QStringLiteral("-1743 System Events and Finder") << 0 << QStringLiteral("finder");
        QTest::newRow("System Events") << QStringLiteral("System Events got an error (-1743)") << 1
                                       << QStringLiteral("systemevents");
        QTest::newRow("-1743 alone") << QStringLiteral("error -1743") << -1 << QString();
        QTest::newRow("accessibility") << QStringLiteral("not allowed assistive access. (1002)") << 2
                                       << QStringLiteral("accessibility");
        QTest::newRow("-11002 is a plain substring match")
            << QStringLiteral("error -11002") << 2 << QStringLiteral("accessibility");
        QTest::newRow("-1743 before 1002") << QStringLiteral("-1743 1002") << -1 << QString();
        QTest::newRow("other") << QStringLiteral("no supported file-manager setting") << -1 << QString();
    }
    void patterns()
    {
        QFETCH(QString, description);
        QFETCH(int, kind);
        QFETCH(QString, anchor);
        const auto choice = chooseAccessAlert(description);
        QCOMPARE(choice.has_value(), kind >= 0);
        if (choice) {
            QCOMPARE(static_cast<int>(choice->kind), kind);
            QCOMPARE(choice->helpAnchor, anchor);
        }
    }

    void textsUsePlatformWords()
    {
        using namespace HiddenManagerLocalizable;
        QCOMPARE(
            accessNotGrantedForFinderAutomationMessage(),
            QStringLiteral("Please, allow Trovix to get access to control Files to switch hidden files visibility. "
                           "Open Settings and enable Files for Trovix in the Automation section."));
        QCOMPARE(accessNotGrantedButtonOpenSystemPreferences(), QStringLiteral("Open Settings"));
        QCOMPARE(accessNotGrantedForFinderAutomationTitle(),
                 QStringLiteral(
                     "Trovix could\u2019t switch hidden files visibility as the system requires a special permission"));
        QVERIFY(!accessNotGrantedForSystemEventsAutomationMessage().endsWith(QLatin1Char('.')));
        QCOMPARE(informationAboutAccessAlertsTitle(),
                 QStringLiteral(
                     "The system requires special permissions for Trovix to get access to System Events and Files"));
    }

    void settingsProgram_data()
    {
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QStringList>("installed");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("arguments");
        const QStringList all{QStringLiteral("gnome-control-center"), QStringLiteral("systemsettings"),
                              QStringLiteral("xfce4-settings-manager")};
        QTest::newRow("GNOME accessibility")
            << QStringLiteral("ubuntu:GNOME") << all << 2 << QStringLiteral("gnome-control-center")
            << QStringList{QStringLiteral("universal-access")};
        QTest::newRow("KDE automation") << QStringLiteral("KDE") << all << 0 << QStringLiteral("systemsettings")
                                        << QStringList{QStringLiteral("kcm_filetypes")};
        QTest::newRow("Xfce accessibility")
            << QStringLiteral("XFCE") << all << 2 << QStringLiteral("xfce4-settings-manager")
            << QStringList{QStringLiteral("--dialog"), QStringLiteral("xfce4-accessibility-settings")};
        QTest::newRow("desktop's own missing: first one there")
            << QStringLiteral("KDE") << QStringList{QStringLiteral("xfce4-settings-manager")} << 0
            << QStringLiteral("xfce4-settings-manager") << QStringList{};
        QTest::newRow("none installed") << QStringLiteral("GNOME") << QStringList{} << 0 << QString() << QStringList{};
    }
    void settingsProgram()
    {
        QFETCH(QString, desktop);
        QFETCH(QStringList, installed);
        QFETCH(int, kind);
        QFETCH(QString, program);
        QFETCH(QStringList, arguments);
        const SettingsCommand c = settingsCommandFor(static_cast<AccessAlertKind>(kind), desktop,
                                                     [&](const QString& p) { return installed.contains(p); });
        QCOMPARE(c.program, program);
        QCOMPARE(c.arguments, arguments);
    }

    void informationSheet_data()
    {
        QTest::addColumn<QString>("button"); // empty: closed another way
        QTest::addColumn<bool>("accepted");
        QTest::newRow("grant") << QStringLiteral("grantAccessButton") << true;
        QTest::newRow("cancel") << QStringLiteral("cancelButton") << false;
        QTest::newRow("closed") << QString() << false;
    }
    void informationSheet()
    {
        QFETCH(QString, button);
        QFETCH(bool, accepted);
        Rig rig;
        std::optional<bool> answer;
        rig.alerts.displayInformationAboutAccessibilityAlertsWithCompletion([&](bool a) { answer = a; });
        InformationAboutAccessAlertsWC* sheet = rig.alerts.informationSheet();
        QVERIFY(sheet);
        QVERIFY(rig.panel.isVisible());
        QCOMPARE(sheet->parentWidget(), &rig.panel);
        QCOMPARE(sheet->windowModality(), Qt::WindowModal);
        QVERIFY(sheet->isVisible());
        QCOMPARE(sheet->findChild<QLabel*>(QStringLiteral("title"))->text(),
                 HiddenManagerLocalizable::informationAboutAccessAlertsTitle());
        // A second request while it is up is dropped.
        rig.alerts.displayInformationAboutAccessibilityAlertsWithCompletion([&](bool) { QFAIL("second sheet"); });
        QCOMPARE(rig.alerts.informationSheet(), sheet);

        // "Read More" opens the shipped help and leaves the sheet up.
        QTest::mouseClick(sheet->findChild<QPushButton*>(QStringLiteral("readMoreButton")), Qt::LeftButton);
        QCOMPARE(rig.opened.size(), 1);
        QVERIFY(rig.opened.first().isLocalFile());
        QVERIFY(QFile(rig.opened.first().toLocalFile()).size() > 0);
        QVERIFY(sheet->isVisible());
        QVERIFY(!answer);

        if (button.isEmpty())
            sheet->reject();
        else
            QTest::mouseClick(sheet->findChild<QPushButton*>(button), Qt::LeftButton);
        QCOMPARE(answer, std::optional<bool>(accepted));
        QVERIFY(!rig.alerts.informationSheet());
    }

    void noPanelNoSheet()
    {
        Rig rig;
        rig.havePanel = false;
        bool called = false;
        rig.alerts.displayInformationAboutAccessibilityAlertsWithCompletion([&](bool) { called = true; });
        rig.alerts.displayInformationAboutAccessError(ScriptError{QString(), 1, QStringLiteral("Finder -1743")});
        QCOMPARE(rig.panelRequests, 2);
        QVERIFY(!rig.alerts.informationSheet());
        QVERIFY(!rig.alerts.accessErrorAlert());
        QVERIFY(!called);
    }

    void accessErrorAlert_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<bool>("settings");
        QTest::addColumn<QString>("anchor");
        QTest::newRow("open settings") << QStringLiteral("openSystemPreferencesButton") << true << QString();
        QTest::newRow("read more") << QStringLiteral("readMoreButton") << false << QStringLiteral("accessibility");
    }
    void accessErrorAlert()
    {
        QFETCH(QString, button);
        QFETCH(bool, settings);
        QFETCH(QString, anchor);
        Rig rig;
        rig.alerts.displayInformationAboutAccessError(ScriptError{QString(), 1, QStringLiteral("error 1002")});
        QMessageBox* alert = rig.alerts.accessErrorAlert();
        QVERIFY(alert);
        QCOMPARE(alert->windowModality(), Qt::WindowModal);
        QCOMPARE(alert->parentWidget(), &rig.panel);
        QCOMPARE(alert->text(), HiddenManagerLocalizable::accessNotGrantedForAccessibilityTitle());
        QCOMPARE(alert->informativeText(), HiddenManagerLocalizable::accessNotGrantedForAccessibilityMessage());
        // This desktop's settings program, as a stand-in found on PATH.
        QTemporaryDir bin;
        QFile program(bin.filePath(QStringLiteral("gnome-control-center")));
        QVERIFY(program.open(QIODevice::WriteOnly));
        program.close();
        QVERIFY(program.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", QFile::encodeName(bin.path()) + ':' + path);
        qputenv("XDG_CURRENT_DESKTOP", "GNOME");
        QTest::mouseClick(alert->findChild<QPushButton*>(button), Qt::LeftButton);
        qputenv("PATH", path);
        qunsetenv("XDG_CURRENT_DESKTOP");
        if (settings) {
            QCOMPARE(rig.started.size(), 1);
            QCOMPARE(rig.started.first().program, QStringLiteral("gnome-control-center"));
            QCOMPARE(rig.started.first().arguments, QStringList{QStringLiteral("universal-access")});
            QVERIFY(rig.opened.isEmpty());
        } else {
            QVERIFY(rig.started.isEmpty());
            QCOMPARE(rig.opened.size(), 1);
            QCOMPARE(rig.opened.first().fragment(), anchor);
        }
        QTRY_VERIFY(!rig.alerts.accessErrorAlert());
    }

    void unmatchedErrorShowsNothing()
    {
        Rig rig;
        rig.alerts.displayInformationAboutAccessError(
            ScriptError{QString(), 2, QStringLiteral("no supported setting")});
        QVERIFY(!rig.alerts.accessErrorAlert());
    }
};

QTEST_MAIN(TestAccessAlerts)
#include "TestAccessAlerts.moc"
