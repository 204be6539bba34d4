#include "core/UserDefaults.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {
ino_t inodeOf(const QString& path)
{
    struct stat st
    {
    };
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_ino : 0;
}
QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}
void writeAll(const QString& path, const QByteArray& data)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(data);
}
} // namespace

class TestUserDefaults : public QObject
{
    Q_OBJECT
private:
    QTemporaryDir m_dir;
    QString path() const { return m_dir.filePath(QStringLiteral("trovix/domain.json")); }

private Q_SLOTS:
    void init()
    {
        QDir(m_dir.path()).removeRecursively();
        QDir().mkpath(m_dir.path());
    }

    void typesSurviveARoundTrip()
    {
        const QDateTime when(QDate(2026, 3, 7), QTime(15, 7, 9, 250), Qt::UTC);
        {
            UserDefaults d(path());
            d.setObject(true, QStringLiteral("bool"));
            d.setObject(QVariant::fromValue<qint64>(9007199254740000LL), QStringLiteral("int"));
            d.setObject(0.8, QStringLiteral("double"));
            d.setObject(QStringLiteral("é/\"x\"\n"), QStringLiteral("string"));
            d.setObject(when, QStringLiteral("date"));
            d.setObject(QByteArray("\x00\x01\xff", 3), QStringLiteral("data"));
            d.setObject(QVariantList{1, QStringLiteral("a")}, QStringLiteral("list"));
        }
        UserDefaults d(path());
        QCOMPARE(d.objectForKey(QStringLiteral("bool")).typeId(), QMetaType::Bool);
        QCOMPARE(d.integerForKey(QStringLiteral("int")), 9007199254740000LL);
        QCOMPARE(d.doubleForKey(QStringLiteral("double")), 0.8);
        QCOMPARE(d.stringForKey(QStringLiteral("string")), QStringLiteral("é/\"x\"\n"));
        QCOMPARE(d.dateForKey(QStringLiteral("date")), when);
        QCOMPARE(d.objectForKey(QStringLiteral("data")).toByteArray(), QByteArray("\x00\x01\xff", 3));
        QCOMPARE(d.getArrayValueForKey(QStringLiteral("list"), {}).size(), 2);
        // Dates and data are tagged so that other programs reading the file can tell them from strings.
        const QJsonObject json = QJsonDocument::fromJson(readAll(path())).object();
        QVERIFY(json.value(QStringLiteral("date")).toObject().contains(QStringLiteral("$date")));
        QVERIFY(json.value(QStringLiteral("data")).toObject().contains(QStringLiteral("$data")));
    }

    void absentKeysAndWrongTypesGiveDefaults()
    {
        UserDefaults d(path());
        QVERIFY(!d.objectForKey(QStringLiteral("missing")).isValid());
        QCOMPARE(d.getBoolValueForKey(QStringLiteral("missing"), true), true);
        QCOMPARE(d.getUnsignedLongLongValueForKey(QStringLiteral("missing"), 7u), 7u);
        d.setObject(QStringLiteral("60"), QStringLiteral("text"));
        d.setObject(60, QStringLiteral("number"));
        QVERIFY(!d.isNumber(QStringLiteral("text")));
        QVERIFY(d.isNumber(QStringLiteral("number")));
        d.setObject(QStringLiteral("soon"), QStringLiteral("notADate"));
        QVERIFY(!d.dateForKey(QStringLiteral("notADate")).isValid());
        QCOMPARE(d.getArrayValueForKey(QStringLiteral("text"), {1}), QVariantList{1});
        // A present key is converted, not replaced by the default.
        d.setObject(false, QStringLiteral("off"));
        QCOMPARE(d.getBoolValueForKey(QStringLiteral("off"), true), false);
    }

    void removingAndResettingWriteThrough()
    {
        UserDefaults d(path());
        d.setObject(1, QStringLiteral("a"));
        d.setObject(2, QStringLiteral("b"));
        d.removeObjectForKey(QStringLiteral("a"));
        QCOMPARE(UserDefaults(path()).dictionaryRepresentation().keys(), QStringList{QStringLiteral("b")});
        d.removePersistentDomain();
        QVERIFY(!QFile::exists(path()));
        QVERIFY(UserDefaults(path()).dictionaryRepresentation().isEmpty());
    }

    void corruptFileIsKeptAsideAndNeverOverwritten_data()
    {
        QTest::addColumn<QByteArray>("garbage");
        QTest::newRow("broken json") << QByteArray("{\"Initialized\": true, oops");
        QTest::newRow("json that is not an object") << QByteArray("[1, 2]");
    }
    void corruptFileIsKeptAsideAndNeverOverwritten()
    {
        QFETCH(QByteArray, garbage);
        const QString dir = QFileInfo(path()).absolutePath();
        QDir().mkpath(dir);
        writeAll(path(), garbage);
        UserDefaults d(path());
        QVERIFY(d.dictionaryRepresentation().isEmpty());
        QVERIFY(d.isWritable());
        const QStringList aside = QDir(dir).entryList({QStringLiteral("domain.json.corrupt-*")}, QDir::Files);
        QCOMPARE(aside.size(), 1);
        QCOMPARE(readAll(dir + QLatin1Char('/') + aside.first()), garbage);
        d.setObject(true, QStringLiteral("fresh"));
        QVERIFY(UserDefaults(path()).boolForKey(QStringLiteral("fresh")));
    }

    void unreadableFileThatCannotBeMovedStaysUntouched()
    {
        if (geteuid() == 0)
            QSKIP("root reads every file");
        const QString dir = QFileInfo(path()).absolutePath();
        QDir().mkpath(dir);
        writeAll(path(), "{\"keep\": true}");
        QFile::setPermissions(path(), QFileDevice::WriteOwner);
        QFile::setPermissions(dir, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        UserDefaults d(path());
        QVERIFY(!d.isWritable());
        d.setObject(false, QStringLiteral("keep"));
        QFile::setPermissions(dir, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        QFile::setPermissions(path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        QCOMPARE(readAll(path()), QByteArray("{\"keep\": true}"));
    }

    void writesOnlyWhatChanged()
    {
        UserDefaults d(path());
        d.setValues({{QStringLiteral("x"), 10.0}, {QStringLiteral("y"), 20.0}, {QStringLiteral("on"), true}});
        QCOMPARE(UserDefaults(path()).doubleForKey(QStringLiteral("y")), 20.0);
        const ino_t first = inodeOf(path());
        // The same values again, by either setter: the file is not rewritten.
        d.setValues({{QStringLiteral("x"), 10.0}, {QStringLiteral("y"), 20.0}});
        d.setObject(true, QStringLiteral("on"));
        d.saveBoolValue(true, QStringLiteral("on"));
        d.removeObjectForKey(QStringLiteral("absent"));
        d.setObject(QVariant(), QStringLiteral("absent"));
        QCOMPARE(inodeOf(path()), first);
        // A change of type is a change: the integer 10 is not the double 10.0.
        d.setObject(10, QStringLiteral("x"));
        QVERIFY(inodeOf(path()) != first);
        // One key changed among several, and a removal, in one write.
        d.setValues({{QStringLiteral("x"), 10}, {QStringLiteral("y"), 21.5}, {QStringLiteral("on"), QVariant()}});
        const UserDefaults again(path());
        QCOMPARE(again.doubleForKey(QStringLiteral("y")), 21.5);
        QVERIFY(!again.contains(QStringLiteral("on")));
    }

    void saveIsAtomic()
    {
        // The file is replaced by a rename, so a reader never sees half a file: its inode changes.
        UserDefaults d(path());
        d.setObject(1, QStringLiteral("a"));
        struct stat st1
        {
        };
        ::stat(QFile::encodeName(path()).constData(), &st1);
        d.setObject(2, QStringLiteral("a"));
        struct stat st2
        {
        };
        ::stat(QFile::encodeName(path()).constData(), &st2);
        QVERIFY(st1.st_ino != st2.st_ino);
        QCOMPARE(QDir(QFileInfo(path()).absolutePath()).entryList(QDir::Files).size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestUserDefaults)
#include "TestUserDefaults.moc"
