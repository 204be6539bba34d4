#include "memory/PurgeScript.h"
#include "support/Files.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

class TestPurgeScript : public QObject
{
    Q_OBJECT
private slots:
    void shippedScriptRunsToItsEnd()
    {
        QFile shipped(PurgeScript::kResource);
        QVERIFY(shipped.open(QIODevice::ReadOnly));
        QByteArray text = shipped.readAll();
        QVERIFY(text.contains("sync"));
        QVERIFY(text.contains("/proc/sys/vm/drop_caches"));
        // A copy whose drop step writes into a file of ours: the real run would drop this machine's caches.
        QFile target(m_dir.filePath(QStringLiteral("drop_caches")));
        QVERIFY(target.open(QIODevice::ReadWrite));
        QVERIFY(PurgeScript::run(
            writeScript(text.replace("/proc/sys/vm/drop_caches", QFile::encodeName(target.fileName())))));
        QCOMPARE(target.readAll(), QByteArray("1\n"));
    }

    void outcome_data()
    {
        QTest::addColumn<QByteArray>("body"); // empty: no script at all
        QTest::addColumn<bool>("ran");
        QTest::newRow("exit status is not looked at") << QByteArray("exit 3\n") << true;
        QTest::newRow("killed") << QByteArray("kill -KILL $$\n") << false;
        QTest::newRow("missing") << QByteArray() << false;
    }
    void outcome()
    {
        QFETCH(QByteArray, body);
        QTEST(PurgeScript::run(body.isEmpty() ? m_dir.filePath(QStringLiteral("absent.sh")) : writeScript(body)),
              "ran");
    }

private:
    QString writeScript(const QByteArray& body)
    {
        static int n = 0;
        const QString path = m_dir.filePath(QStringLiteral("s%1.sh").arg(++n));
        return writeFile(path, body) ? path : QString();
    }
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestPurgeScript)
#include "TestPurgeScript.moc"
