#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

// `trovix memory` as a user runs it: the built program, no display.
class TestMemoryCommand : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void printsThePanelFigures();
    void badArgumentsAreAnError_data();
    void badArgumentsAreAnError();

private:
    struct Result
    {
        int status = -1;
        QString out;
        QString err;
    };
    Result run(const QStringList& args);
    QString m_program = QStringLiteral(TROVIX_BINARY_DIR "/trovix");
};

void TestMemoryCommand::initTestCase()
{
    if (!QFileInfo(m_program).isExecutable())
        QSKIP("the trovix program is not built in this tree");
}

TestMemoryCommand::Result TestMemoryCommand::run(const QStringList& args)
{
    QProcess p;
    p.setProgram(m_program);
    p.setArguments(QStringList{QStringLiteral("memory")} + args);
    p.start();
    Result r;
    if (!p.waitForFinished(30000)) {
        p.kill();
        p.waitForFinished();
        return r;
    }
    r.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = QString::fromLocal8Bit(p.readAllStandardOutput());
    r.err = QString::fromLocal8Bit(p.readAllStandardError());
    return r;
}

void TestMemoryCommand::printsThePanelFigures()
{
    const Result r = run({});
    QCOMPARE(r.status, 0);
    const QStringList lines = r.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    QVERIFY2(QRegularExpression(QStringLiteral("^( \\d|\\d\\d|100)%$")).match(lines[0]).hasMatch(),
             qPrintable(lines[0]));
    const QRegularExpression sizes(
        QStringLiteral("^\\d+(\\.\\d+)? (bytes|KB|MB|GB|TB) used of \\d+(\\.\\d+)? (KB|MB|GB|TB)$"));
    QVERIFY2(sizes.match(lines[1]).hasMatch(), qPrintable(lines[1]));
}

void TestMemoryCommand::badArgumentsAreAnError_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::newRow("unknown option") << QStringList{QStringLiteral("--bogus")};
    QTest::newRow("twice") << QStringList{QStringLiteral("--free"), QStringLiteral("--free")};
    QTest::newRow("stray word") << QStringList{QStringLiteral("now")};
}

void TestMemoryCommand::badArgumentsAreAnError()
{
    QFETCH(QStringList, args);
    const Result r = run(args);
    QCOMPARE(r.status, 2);
    QVERIFY(r.out.isEmpty());
    QVERIFY(r.err.contains(QStringLiteral("usage: trovix memory")));
}

QTEST_GUILESS_MAIN(TestMemoryCommand)
#include "TestMemoryCommand.moc"
