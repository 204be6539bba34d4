#include "core/HomeFolder.h"

#include <QCoreApplication>
#include <QDir>
#include <QProcess>
#include <QTest>

#include <cstdio>
#include <cstring>
#include <pwd.h>
#include <unistd.h>

namespace {
// A user id the password database does not know.
constexpr uid_t kUnknownUser = 54321;

// This test program again, as a plain Trovix process would start: it makes its application object
// and prints the home it runs with.
int childMain(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    std::printf("%s\n", qgetenv("HOME").constData());
    return 0;
}
} // namespace

class TestHomeFolder : public QObject
{
    Q_OBJECT
private:
    struct Run
    {
        int exitCode = -1;
        QByteArray out;
        QByteArray err;
    };
    Run runChild(const QStringList& prefix)
    {
        QProcess child;
        QStringList arguments = prefix.mid(1);
        arguments << QCoreApplication::applicationFilePath() << QStringLiteral("--child");
        child.setWorkingDirectory(QStringLiteral("/"));
        child.start(prefix.first(), arguments);
        child.waitForFinished(20000);
        return {child.exitStatus() == QProcess::NormalExit ? child.exitCode() : -1, child.readAllStandardOutput(),
                child.readAllStandardError()};
    }

private Q_SLOTS:
    void homeFromTheEnvironmentWins() { QCOMPARE(HomeFolder::ensure(), qEnvironmentVariable("HOME")); }

    void withoutHomeThePasswordDatabaseStandsIn()
    {
        const passwd* entry = ::getpwuid(::getuid());
        if (!entry || !QDir(QFile::decodeName(entry->pw_dir)).exists() || std::strcmp(entry->pw_dir, "/") == 0)
            QSKIP("this user has no usable entry in the password database");
        const Run run = runChild({QStringLiteral("env"), QStringLiteral("-u"), QStringLiteral("HOME")});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out.trimmed(), QByteArray(entry->pw_dir));
    }

    void withNeitherTheProgramSaysSoAndStops()
    {
        if (::geteuid() != 0)
            QSKIP("needs to run as a user id the password database does not know");
        if (::getpwuid(kUnknownUser))
            QSKIP("the test's user id is known here");
        const QString id = QString::number(kUnknownUser);
        const Run run =
            runChild({QStringLiteral("env"), QStringLiteral("-u"), QStringLiteral("HOME"), QStringLiteral("-u"),
                      QStringLiteral("XDG_CONFIG_HOME"), QStringLiteral("setpriv"), QStringLiteral("--reuid=") + id,
                      QStringLiteral("--regid=") + id, QStringLiteral("--clear-groups")});
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.out.isEmpty());
        QCOMPARE(run.err.count('\n'), 1);
        QVERIFY2(run.err.contains("no home folder") && run.err.contains(id.toLatin1()), run.err.constData());
        QVERIFY(!QFile::exists(QStringLiteral("/.config/trovix")));
    }
};

int main(int argc, char* argv[])
{
    if (argc > 1 && std::strcmp(argv[1], "--child") == 0)
        return childMain(argc, argv);
    QCoreApplication app(argc, argv);
    TestHomeFolder test;
    return QTest::qExec(&test, argc, argv);
}

#include "TestHomeFolder.moc"
