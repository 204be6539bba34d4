#include "gui/shell/SessionPlatform.h"

#include <QTest>

class TestSessionPlatform : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void xcbWhereAnXDisplayIsAtHandAndNothingWasChosen_data()
    {
        QTest::addColumn<QStringList>("variables");
        QTest::addColumn<QByteArray>("platform");
        QTest::newRow("Wayland session with XWayland")
            << QStringList{"XDG_SESSION_TYPE=wayland", "WAYLAND_DISPLAY=wayland-0", "DISPLAY=:0"} << QByteArray("xcb");
        QTest::newRow("X session") << QStringList{"XDG_SESSION_TYPE=x11", "DISPLAY=:1"} << QByteArray("xcb");
        QTest::newRow("an empty choice counts as none")
            << QStringList{"QT_QPA_PLATFORM=", "WAYLAND_DISPLAY=wayland-0", "DISPLAY=:0"} << QByteArray("xcb");
        QTest::newRow("the user's choice stands")
            << QStringList{"QT_QPA_PLATFORM=wayland", "WAYLAND_DISPLAY=wayland-0", "DISPLAY=:0"} << QByteArray();
        QTest::newRow("Wayland without XWayland")
            << QStringList{"XDG_SESSION_TYPE=wayland", "WAYLAND_DISPLAY=wayland-0"} << QByteArray();
    }
    void xcbWhereAnXDisplayIsAtHandAndNothingWasChosen()
    {
        QFETCH(QStringList, variables);
        QFETCH(QByteArray, platform);
        QProcessEnvironment environment;
        for (const QString& v : variables)
            environment.insert(v.section('=', 0, 0), v.section('=', 1));
        QCOMPARE(SessionPlatform::platformFor(environment), platform);
    }
};

QTEST_GUILESS_MAIN(TestSessionPlatform)
#include "TestSessionPlatform.moc"
