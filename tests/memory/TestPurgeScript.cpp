#include "memory/PurgeScript.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

class TestPurgeScript : public QObject
{
    Q_OBJECT
private slots:
    void shippedScriptRunsToItsEnd();
    void exitStatusIsNotLookedAt();
    void killedScriptFails();
    void missingScriptFails();

private:
    QString writeScript(const QByteArray& body);
    QTemporaryDir m_dir;
};

QString TestPurgeScript::writeScript(const QByteArray& body)
{
    static int n = 0;
    const QString path = m_dir.filePath(QStringLiteral("s%1.sh").arg(++n));
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly))
        return {};
    f.write(body);
    return path;
}

void TestPurgeScript::shippedScriptRunsToItsEnd()
{
    QFile shipped(PurgeScript::kResource);
    QVERIFY(shipped.open(QIODevice::ReadOnly));
    const QByteArray text = shipped.readAll();
    QVERIFY(text.contains("sync"));
    QVERIFY(text.contains("/proc/sys/vm/drop_caches"));
    // A copy whose drop step writes into a file of ours: the real run would drop this machine's caches.
    const QString target = m_dir.filePath(QStringLiteral("drop_caches"));
    QFile(target).open(QIODevice::WriteOnly);
    QByteArray copy = text;
    copy.replace("/proc/sys/vm/drop_caches", QFile::encodeName(target));
    QVERIFY(PurgeScript::run(writeScript(copy)));
    QFile written(target);
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll(), QByteArray("1\n"));
}

void TestPurgeScript::exitStatusIsNotLookedAt()
{
    QVERIFY(PurgeScript::run(writeScript("exit 3\n")));
}

void TestPurgeScript::killedScriptFails()
{
    QVERIFY(!PurgeScript::run(writeScript("kill -KILL $$\n")));
}

void TestPurgeScript::missingScriptFails()
{
    QVERIFY(!PurgeScript::run(m_dir.filePath(QStringLiteral("absent.sh"))));
}

QTEST_GUILESS_MAIN(TestPurgeScript)
#include "TestPurgeScript.moc"
