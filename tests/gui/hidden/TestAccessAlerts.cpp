#include "core/Texts.h"
#include "gui/hidden/AccessAlerts.h"
#include "gui/hidden/InformationAboutAccessAlertsWC.h"
#include "hidden/HiddenManagerLocalizable.h"
#include "support/Files.h"

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
        // A closed panel is shown first.
        QWidget* window()
        {
            ++panelRequests;
            if (havePanel)
                panel.show();
            return havePanel ? &panel : nullptr;
        }
        AccessAlerts alerts{{[this] { return window(); }, [this](const QUrl& u) { opened << u; },
                             [this](const SettingsCommand& c) {
                                 started << c;
                                 return true;
                             }}};
    };

private Q_SLOTS:
    void initTestCase() { Texts::setFileManagerName("Files"); }

    void patterns_data()
    {
        QTest::addColumn<QString>("description");
        QTest::addColumn<int>("kind"); // -1: no alert
        QTest::addColumn<QString>("anchor");
        QTest::newRow("Finder") << "Not authorized to send Apple events to Finder. (-1743)" << 0 << "finder";
        QTest::newRow("both names: Finder wins") << "-1743 System Events and Finder" << 0 << "finder";
        QTest::newRow("System Events") << "System Events got an error (-1743)" << 1 << "systemevents";
        QTest::newRow("-1743 alone") << "error -1743" << -1 << QString();
        QTest::newRow("accessibility") << "not allowed assistive access. (1002)" << 2 << "accessibility";
        QTest::newRow("-11002 is a plain substring match") << "error -11002" << 2 << "accessibility";
        QTest::newRow("-1743 before 1002") << "-1743 1002" << -1 << QString();
        QTest::newRow("other") << "no supported file-manager setting" << -1 << QString();
    }
    void patterns()
    {
        QFETCH(QString, description);
        QFETCH(int, kind);
        QFETCH(QString, anchor);
        const auto choice = chooseAccessAlert(description);
        QCOMPARE(choice ? static_cast<int>(choice->kind) : -1, kind);
        QCOMPARE(choice ? choice->helpAnchor : QString(), anchor);
    }

    // Every text names the running file manager and the settings program, never the other platform's.
    void textsUsePlatformWords()
    {
        using namespace HiddenManagerLocalizable;
        for (const QString& text :
             {informationAboutAccessAlertsTitle(), informationAboutAccessAlertsMessage(),
              accessNotGrantedForFinderAutomationTitle(), accessNotGrantedForFinderAutomationMessage(),
              accessNotGrantedForSystemEventsAutomationMessage(), accessNotGrantedForAccessibilityMessage()}) {
            QVERIFY2(!text.contains("Finder") && !text.contains("System Preferences"), qPrintable(text));
        }
        QVERIFY(accessNotGrantedForFinderAutomationMessage().contains("control Files"));
    }

    // Which settings program opens where the desktop's own is missing.
    void settingsProgram_data()
    {
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QStringList>("installed");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QStringList>("command"); // program, then arguments
        QTest::newRow("desktop's own missing: first one there")
            << "KDE" << QStringList{"xfce4-settings-manager"} << 0 << QStringList{"xfce4-settings-manager"};
        QTest::newRow("none installed") << "GNOME" << QStringList{} << 0 << QStringList{""};
    }
    void settingsProgram()
    {
        QFETCH(QString, desktop);
        QFETCH(QStringList, installed);
        QFETCH(int, kind);
        QFETCH(QStringList, command);
        const SettingsCommand c = settingsCommandFor(static_cast<AccessAlertKind>(kind), desktop,
                                                     [&](const QString& p) { return installed.contains(p); });
        QCOMPARE(QStringList{c.program} + c.arguments, command);
    }

    void informationSheet_data()
    {
        QTest::addColumn<QString>("button"); // empty: closed another way
        QTest::addColumn<bool>("accepted");
        QTest::newRow("grant") << "grantAccessButton" << true;
        QTest::newRow("cancel") << "cancelButton" << false;
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
        QCOMPARE(sheet->findChild<QLabel*>("title")->text(),
                 HiddenManagerLocalizable::informationAboutAccessAlertsTitle());
        // A second request while it is up is dropped.
        rig.alerts.displayInformationAboutAccessibilityAlertsWithCompletion([&](bool) { QFAIL("second sheet"); });
        QCOMPARE(rig.alerts.informationSheet(), sheet);

        // "Read More" opens the shipped help and leaves the sheet up.
        QTest::mouseClick(sheet->findChild<QPushButton*>("readMoreButton"), Qt::LeftButton);
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

    void noPanelOrNoMatchNoSheet()
    {
        Rig rig;
        // An error no alert is made for shows nothing, even with the panel there.
        rig.alerts.displayInformationAboutAccessError(ScriptError{QString(), 2, "no supported setting"});
        QVERIFY(!rig.alerts.accessErrorAlert());
        rig.havePanel = false;
        bool called = false;
        rig.alerts.displayInformationAboutAccessibilityAlertsWithCompletion([&](bool) { called = true; });
        rig.alerts.displayInformationAboutAccessError(ScriptError{QString(), 1, "Finder -1743"});
        QCOMPARE(rig.panelRequests, 3);
        QVERIFY(!rig.alerts.informationSheet());
        QVERIFY(!rig.alerts.accessErrorAlert());
        QVERIFY(!called);
    }

    void accessErrorAlert_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<bool>("settings");
        QTest::newRow("open settings") << "openSystemPreferencesButton" << true;
        QTest::newRow("read more") << "readMoreButton" << false;
    }
    void accessErrorAlert()
    {
        QFETCH(QString, button);
        QFETCH(bool, settings);
        Rig rig;
        rig.alerts.displayInformationAboutAccessError(ScriptError{QString(), 1, "error 1002"});
        QMessageBox* alert = rig.alerts.accessErrorAlert();
        QVERIFY(alert);
        QCOMPARE(alert->windowModality(), Qt::WindowModal);
        QCOMPARE(alert->parentWidget(), &rig.panel);
        QCOMPARE(alert->text(), HiddenManagerLocalizable::accessNotGrantedForAccessibilityTitle());
        QCOMPARE(alert->informativeText(), HiddenManagerLocalizable::accessNotGrantedForAccessibilityMessage());
        // This desktop's settings program, as a stand-in found on PATH.
        QTemporaryDir bin;
        QVERIFY(writeScript(bin.filePath("gnome-control-center"), {}));
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", QFile::encodeName(bin.path()) + ':' + path);
        qputenv("XDG_CURRENT_DESKTOP", "GNOME");
        QTest::mouseClick(alert->findChild<QPushButton*>(button), Qt::LeftButton);
        qputenv("PATH", path);
        qunsetenv("XDG_CURRENT_DESKTOP");
        QCOMPARE(rig.started.size(), settings ? 1 : 0);
        QCOMPARE(rig.opened.size(), settings ? 0 : 1);
        if (settings) {
            QCOMPARE(rig.started.first().program, "gnome-control-center");
            QCOMPARE(rig.started.first().arguments, QStringList{"universal-access"});
        } else {
            QCOMPARE(rig.opened.first().fragment(), "accessibility");
        }
        QTRY_VERIFY(!rig.alerts.accessErrorAlert());
    }
};

QTEST_MAIN(TestAccessAlerts)
#include "TestAccessAlerts.moc"
