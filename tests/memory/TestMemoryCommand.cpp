#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

// `trovix memory` as a user runs it: the built program, no display.
class TestMemoryCommand : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        if (!QFileInfo(m_program).isExecutable())
            QSKIP("the trovix program is not built in this tree");
    }

    void printsThePanelFigures()
    {
        const auto [status, out, err] = run({});
        QCOMPARE(status, 0);
        const QStringList lines = out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2);
        QVERIFY2(QRegularExpression(QStringLiteral("^( \\d|\\d\\d|100)%$")).match(lines[0]).hasMatch(),
                 qPrintable(lines[0]));
        const QRegularExpression sizes(
            QStringLiteral("^\\d+(\\.\\d+)? (bytes|KB|MB|GB|TB) used of \\d+(\\.\\d+)? (KB|MB|GB|TB)$"));
        QVERIFY2(sizes.match(lines[1]).hasMatch(), qPrintable(lines[1]));
    }

    void badArgumentsAreAnError_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::newRow("unknown option") << QStringList{"--bogus"};
        QTest::newRow("twice") << QStringList{"--free", "--free"};
        QTest::newRow("stray word") << QStringList{"now"};
    }
    void badArgumentsAreAnError()
    {
        QFETCH(QStringList, args);
        const auto [status, out, err] = run(args);
        QCOMPARE(status, 2);
        QVERIFY(out.isEmpty());
        QVERIFY(err.contains(QStringLiteral("usage: trovix memory")));
    }

private:
    // Exit status (-1 for a crash or a hang), standard output, standard error.
    std::tuple<int, QString, QString> run(const QStringList& args)
    {
        QProcess p;
        p.start(m_program, QStringList{QStringLiteral("memory")} + args);
        if (!p.waitForFinished(30000)) {
            p.kill();
            p.waitForFinished();
            return {-1, {}, {}};
        }
        return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
                QString::fromLocal8Bit(p.readAllStandardOutput()), QString::fromLocal8Bit(p.readAllStandardError())};
    }

    const QString m_program = QStringLiteral(TROVIX_BINARY_DIR "/trovix");
};

QTEST_GUILESS_MAIN(TestMemoryCommand)
#include "TestMemoryCommand.moc"
