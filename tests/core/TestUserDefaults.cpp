#include "core/NotificationCenter.h"
#include "core/UserDefaults.h"
#include "support/Files.h"
#include "support/StderrCapture.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include <functional>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
ino_t inodeOf(const QString& path)
{
    struct stat st
    {
    };
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_ino : 0;
}
constexpr uid_t kNobody = 65534;

// Runs fn as an unprivileged user (root reads every file whatever its mode): in a child process when
// this one is root. fn returns an empty text on success, else what went wrong.
// A folder of its own that the unprivileged user of runUnprivileged can enter and write.
bool ownedByTheUnprivilegedUser(const QTemporaryDir& dir)
{
    return dir.isValid() &&
           (::geteuid() != 0 || ::chown(QFile::encodeName(dir.path()).constData(), kNobody, kNobody) == 0);
}

QString runUnprivileged(const std::function<QString()>& fn)
{
    if (::geteuid() != 0)
        return fn();
    int pipeFds[2];
    if (::pipe(pipeFds) != 0)
        return QStringLiteral("pipe failed");
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(pipeFds[0]);
        QByteArray result = "cannot drop privileges";
        if (::setgroups(0, nullptr) == 0 && ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0)
            result = fn().toUtf8();
        (void)!::write(pipeFds[1], result.constData(), size_t(result.size()));
        ::_exit(0);
    }
    ::close(pipeFds[1]);
    QByteArray result;
    char buffer[512];
    for (ssize_t n; (n = ::read(pipeFds[0], buffer, sizeof buffer)) > 0;)
        result.append(buffer, n);
    ::close(pipeFds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (!WIFEXITED(status))
        return QStringLiteral("the unprivileged check crashed");
    return QString::fromUtf8(result);
}

QJsonObject fileObject(const QString& path)
{
    return QJsonDocument::fromJson(readFile(path)).object();
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
        const QUrl folder = QUrl::fromLocalFile(QStringLiteral("/home/ann/My Files/é"));
        {
            UserDefaults d(path());
            d.setObject(true, QStringLiteral("bool"));
            d.setObject(QVariant::fromValue<qint64>(9007199254740000LL), QStringLiteral("int"));
            d.setObject(0.8, QStringLiteral("double"));
            d.setObject(1.0, QStringLiteral("whole double"));
            d.setObject(-250.0f, QStringLiteral("float"));
            d.setObject(folder, QStringLiteral("url"));
            d.setObject(QVariantMap{{QStringLiteral("where"), QVariantList{folder, 2.0, 2}}}, QStringLiteral("nested"));
            d.setObject(QStringLiteral("é/\"x\"\n"), QStringLiteral("string"));
            d.setObject(when, QStringLiteral("date"));
            d.setObject(QByteArray("\x00\x01\xff", 3), QStringLiteral("data"));
            d.setObject(QVariantList{1, QStringLiteral("a")}, QStringLiteral("list"));
        }
        UserDefaults d(path());
        QCOMPARE(d.objectForKey(QStringLiteral("bool")).typeId(), QMetaType::Bool);
        QCOMPARE(d.integerForKey(QStringLiteral("int")), 9007199254740000LL);
        QCOMPARE(d.doubleForKey(QStringLiteral("double")), 0.8);
        QCOMPARE(d.objectForKey(QStringLiteral("double")).typeId(), QMetaType::Double);
        QCOMPARE(d.objectForKey(QStringLiteral("whole double")).typeId(), QMetaType::Double);
        QCOMPARE(d.objectForKey(QStringLiteral("float")), QVariant(-250.0));
        QCOMPARE(d.objectForKey(QStringLiteral("float")).typeId(), QMetaType::Double);
        QCOMPARE(d.objectForKey(QStringLiteral("int")).typeId(), QMetaType::LongLong);
        QCOMPARE(d.objectForKey(QStringLiteral("url")).typeId(), QMetaType::QUrl);
        QCOMPARE(d.objectForKey(QStringLiteral("url")).toUrl(), folder);
        const QVariantList nested =
            d.objectForKey(QStringLiteral("nested")).toMap().value(QStringLiteral("where")).toList();
        QCOMPARE(nested.value(0).toUrl(), folder);
        QCOMPARE(nested.value(1).typeId(), QMetaType::Double);
        QCOMPARE(nested.value(2).typeId(), QMetaType::LongLong);
        QCOMPARE(d.stringForKey(QStringLiteral("string")), QStringLiteral("é/\"x\"\n"));
        QCOMPARE(d.dateForKey(QStringLiteral("date")), when);
        QCOMPARE(d.objectForKey(QStringLiteral("data")).toByteArray(), QByteArray("\x00\x01\xff", 3));
        QCOMPARE(d.getArrayValueForKey(QStringLiteral("list"), {}).size(), 2);
        // Dates and data are tagged so that other programs reading the file can tell them from strings.
        const QJsonObject json = QJsonDocument::fromJson(readFile(path())).object();
        QVERIFY(json.value(QStringLiteral("date")).toObject().contains(QStringLiteral("$date")));
        QVERIFY(json.value(QStringLiteral("data")).toObject().contains(QStringLiteral("$data")));
        QVERIFY(json.value(QStringLiteral("url")).toObject().contains(QStringLiteral("$url")));
        QVERIFY(readFile(path()).contains("\"whole double\": 1.0"));
    }

    void numbersWrittenByHandKeepTheirKind()
    {
        QVERIFY(writeFile(path(), "{\"i\": 1, \"d\": 1.0, \"e\": 1e3, \"neg\": -0.5, \"text\": \"2.5\", "
                                  "\"esc\": \"a\\\" 3.5\", \"list\": [1, 2.0]}"));
        const UserDefaults d(path());
        QCOMPARE(d.objectForKey(QStringLiteral("i")).typeId(), QMetaType::LongLong);
        QCOMPARE(d.objectForKey(QStringLiteral("d")).typeId(), QMetaType::Double);
        QCOMPARE(d.objectForKey(QStringLiteral("e")), QVariant(1000.0));
        QCOMPARE(d.objectForKey(QStringLiteral("neg")), QVariant(-0.5));
        QCOMPARE(d.objectForKey(QStringLiteral("text")), QVariant(QStringLiteral("2.5")));
        QCOMPARE(d.objectForKey(QStringLiteral("esc")), QVariant(QStringLiteral("a\" 3.5")));
        QCOMPARE(d.objectForKey(QStringLiteral("list")).toList().value(1).typeId(), QMetaType::Double);
        // A malformed number is still a broken file.
        QVERIFY(writeFile(path(), "{\"n\": 1.2.3}"));
        QVERIFY(UserDefaults(path()).dictionaryRepresentation().isEmpty());
        QVERIFY(!QFile::exists(path()));
    }

    void aRewriteKeepsWhatItCannotParse()
    {
        QVERIFY(writeFile(path(), "{\"when\": {\"$date\": \"garbage\"}, \"blob\": {\"$data\": \"!!not base64\"}, "
                                  "\"link\": {\"$url\": \"ht tp://x\"}, \"odd\": {\"$date\": 5}, \"n\": 1}"));
        UserDefaults d(path());
        QVERIFY(!d.dateForKey(QStringLiteral("when")).isValid());
        d.setObject(2, QStringLiteral("n"));
        const QJsonObject json = fileObject(path());
        QCOMPARE(json.value(QStringLiteral("when")).toObject().value(QStringLiteral("$date")).toString(),
                 QStringLiteral("garbage"));
        QCOMPARE(json.value(QStringLiteral("blob")).toObject().value(QStringLiteral("$data")).toString(),
                 QStringLiteral("!!not base64"));
        QCOMPARE(json.value(QStringLiteral("link")).toObject().value(QStringLiteral("$url")).toString(),
                 QStringLiteral("ht tp://x"));
        QCOMPARE(json.value(QStringLiteral("odd")).toObject().value(QStringLiteral("$date")).toInt(), 5);
        QCOMPARE(json.value(QStringLiteral("n")).toInt(), 2);
        // Handing the unparsed value back unchanged writes it as it was, too.
        d.setObject(d.objectForKey(QStringLiteral("when")), QStringLiteral("when again"));
        QCOMPARE(fileObject(path()).value(QStringLiteral("when again")).toObject().value(QStringLiteral("$date")),
                 QJsonValue(QStringLiteral("garbage")));
    }

    void aWriteMergesWithWhatOthersWrote()
    {
        UserDefaults mine(path());
        UserDefaults theirs(path());
        mine.setObject(1, QStringLiteral("mine"));
        // The other store never re-read the file, yet its write keeps this one's key...
        theirs.setObject(2, QStringLiteral("theirs"));
        // ... and a program writing the file by itself is kept too, and its removals stand.
        QJsonObject json = fileObject(path());
        json.insert(QStringLiteral("foreign"), true);
        QVERIFY(writeFile(path(), QJsonDocument(json).toJson()));
        mine.setValues({{QStringLiteral("x"), 10.0}, {QStringLiteral("y"), 20.0}});
        theirs.removeObjectForKey(QStringLiteral("theirs"));
        theirs.setObject(3, QStringLiteral("theirs"));
        theirs.removeObjectForKey(QStringLiteral("theirs"));
        const UserDefaults later(path());
        QCOMPARE(later.integerForKey(QStringLiteral("mine")), 1);
        QVERIFY(later.boolForKey(QStringLiteral("foreign")));
        QCOMPARE(later.doubleForKey(QStringLiteral("y")), 20.0);
        QVERIFY(!later.contains(QStringLiteral("theirs")));
        // Each store now sees the other's keys as of its last write.
        QVERIFY(mine.boolForKey(QStringLiteral("foreign")));
        QCOMPARE(theirs.integerForKey(QStringLiteral("mine")), 1);
    }

    void processesWritingAtOnceLoseNothing()
    {
        // Several processes, each setting its own keys one write at a time, all at the same moment.
        constexpr int kWriters = 4;
        constexpr int kKeys = 25;
        std::vector<pid_t> writers;
        for (int w = 0; w < kWriters; ++w) {
            const pid_t pid = ::fork();
            if (pid == 0) {
                UserDefaults d(path());
                for (int k = 0; k < kKeys; ++k)
                    d.setObject(k, QStringLiteral("w%1-k%2").arg(w).arg(k));
                ::_exit(0);
            }
            QVERIFY(pid > 0);
            writers.push_back(pid);
        }
        for (const pid_t pid : writers) {
            int status = 0;
            QCOMPARE(::waitpid(pid, &status, 0), pid);
            QVERIFY(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        }
        QCOMPARE(UserDefaults(path()).dictionaryRepresentation().size(), kWriters * kKeys);
    }

    void followsChangesMadeByAnotherProcess()
    {
        UserDefaults d(path());
        d.setObject(1, QStringLiteral("n"));
        // Another store of this process coming and going leaves the watch in place.
        QCOMPARE(UserDefaults(path()).integerForKey(QStringLiteral("n")), 1);
        QSignalSpy changed(&d, &UserDefaults::valuesChanged);
        QStringList announced;
        QObject context;
        NotificationCenter::defaultCenter().addObserver(
            UserDefaults::didChangeNotificationName(), &d, &context,
            [&](const Notification& n) { announced += n.userInfo.value(QStringLiteral("keys")).toStringList(); });
        // Written in place by a shell, not replaced: the file's own watch sees it.
        const int rc =
            QProcess::execute(QStringLiteral("sh"),
                              {QStringLiteral("-c"), QStringLiteral("printf '%s' '{\"n\": 2, \"new\": 1.5}' > \"$1\""),
                               QStringLiteral("sh"), path()});
        QCOMPARE(rc, 0);
        QVERIFY(changed.wait(5000));
        QCOMPARE(d.integerForKey(QStringLiteral("n")), 2);
        QCOMPARE(d.objectForKey(QStringLiteral("new")), QVariant(1.5));
        QStringList keys = changed.takeFirst().value(0).toStringList();
        keys.sort();
        QCOMPARE(keys, (QStringList{QStringLiteral("n"), QStringLiteral("new")}));
        announced.sort();
        QCOMPARE(announced, keys);
        // Replaced by a rename, as careful writers do, and a key removed.
        const QString tmp = path() + QStringLiteral(".new");
        QVERIFY(writeFile(tmp, "{\"n\": 2}"));
        QVERIFY(QFile::rename(tmp, path()) || (QFile::remove(path()) && QFile::rename(tmp, path())));
        QTRY_VERIFY_WITH_TIMEOUT(!d.contains(QStringLiteral("new")), 5000);
        // The next own write builds on the current file, and the watch goes on after it.
        d.setObject(3, QStringLiteral("mine"));
        QVERIFY(writeFile(path(), "{\"n\": 4, \"mine\": 3}"));
        QTRY_COMPARE_WITH_TIMEOUT(d.integerForKey(QStringLiteral("n")), 4, 5000);
    }

    // A file that is not a bounded regular file of a JSON object is set aside (as it was), said in one
    // line, and never overwritten: the store starts empty and writable.
    void unusableFileIsKeptAsideAndNeverOverwritten_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QByteArray>("garbage");
        QTest::newRow("broken json") << "json" << QByteArray("{\"Initialized\": true, oops");
        QTest::newRow("json that is not an object") << "json" << QByteArray("[1, 2]");
        QTest::newRow("symlink to /dev/zero") << "zero" << QByteArray();
        QTest::newRow("fifo") << "fifo" << QByteArray();
        QTest::newRow("folder") << "folder" << QByteArray();
        QTest::newRow("too large") << "large" << QByteArray();
    }
    void unusableFileIsKeptAsideAndNeverOverwritten()
    {
        QFETCH(QString, kind);
        QFETCH(QByteArray, garbage);
        const QString dir = QFileInfo(path()).absolutePath();
        QDir().mkpath(dir);
        const QByteArray native = QFile::encodeName(path());
        if (kind == QLatin1String("zero"))
            QVERIFY(QFile::link(QStringLiteral("/dev/zero"), path()));
        else if (kind == QLatin1String("fifo"))
            QCOMPARE(::mkfifo(native.constData(), 0600), 0);
        else if (kind == QLatin1String("folder"))
            QVERIFY(QDir().mkpath(path()));
        else if (kind == QLatin1String("large"))
            QVERIFY(writeFile(path(), "{\"pad\": \"" + QByteArray(UserDefaults::kMaxFileSize, 'x') + "\"}"));
        else
            QVERIFY(writeFile(path(), garbage));
        std::unique_ptr<UserDefaults> d;
        const QByteArray said = stderrOf([&] { d = std::make_unique<UserDefaults>(path()); });
        QVERIFY(d->dictionaryRepresentation().isEmpty());
        QVERIFY(d->isWritable());
        QCOMPARE(said.count('\n'), 1);
        QVERIFY2(said.contains(native), said.constData());
        const QStringList aside = QDir(dir).entryList({QStringLiteral("domain.json.corrupt-*")},
                                                      QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
        QCOMPARE(aside.size(), 1);
        if (!garbage.isEmpty())
            QCOMPARE(readFile(dir + QLatin1Char('/') + aside.first()), garbage);
        d->setObject(true, QStringLiteral("fresh"));
        QVERIFY(QFileInfo(path()).isFile());
        QVERIFY(UserDefaults(path()).boolForKey(QStringLiteral("fresh")));
    }

    void unreadableFileIsLeftInPlaceAndTheDomainIsReadOnly()
    {
        // Its own folder, which the unprivileged user can enter.
        QTemporaryDir own;
        QVERIFY(ownedByTheUnprivilegedUser(own));
        const QString file = own.filePath(QStringLiteral("domain.json"));
        const QString failure = runUnprivileged([&]() -> QString {
            if (!writeFile(file, "{\"keep\": 5}"))
                return QStringLiteral("cannot write the file");
            ::chmod(QFile::encodeName(file).constData(), 0);
            QByteArray said;
            bool wrote = true;
            std::unique_ptr<UserDefaults> d;
            said = stderrOf([&] {
                d = std::make_unique<UserDefaults>(file);
                d->setObject(7, QStringLiteral("keep"));
                wrote = d->synchronize();
                d->setObject(true, QStringLiteral("other"));
            });
            if (d->isWritable() || wrote)
                return QStringLiteral("the store claims it can write");
            if (said.count('\n') != 1 || !said.contains("cannot be read"))
                return QStringLiteral("expected one line, got: ") + QString::fromUtf8(said);
            if (QDir(own.path()).entryList(QDir::Files).size() != 1)
                return QStringLiteral("the file was moved or another one written");
            // The session still runs, on defaults and on what it set itself.
            if (d->integerForKey(QStringLiteral("keep")) != 7)
                return QStringLiteral("the in-memory value is lost");
            return {};
        });
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
        QFile::setPermissions(file, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        QCOMPARE(readFile(file), QByteArray("{\"keep\": 5}"));
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

    void corruptFileThatCannotBeMovedStaysUntouched()
    {
        QTemporaryDir own;
        QVERIFY(ownedByTheUnprivilegedUser(own));
        const QString file = own.filePath(QStringLiteral("domain.json"));
        const QString failure = runUnprivileged([&]() -> QString {
            if (!writeFile(file, "{\"keep\": tru"))
                return QStringLiteral("cannot write the file");
            // A folder that cannot take the renamed file.
            ::chmod(QFile::encodeName(own.path()).constData(), 0500);
            UserDefaults d(file);
            d.setObject(false, QStringLiteral("keep"));
            ::chmod(QFile::encodeName(own.path()).constData(), 0700);
            return d.isWritable() ? QStringLiteral("the store claims it can write") : QString();
        });
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
        QCOMPARE(readFile(file), QByteArray("{\"keep\": tru"));
        QCOMPARE(QDir(own.path()).entryList(QDir::Files).size(), 1);
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
        // A change of type is a change: the integer 10 is not the double 10.0. The file is replaced by a
        // rename (a new inode), so a reader never sees half a file, and no temporary file is left.
        d.setObject(10, QStringLiteral("x"));
        QVERIFY(inodeOf(path()) != first);
        QCOMPARE(QDir(QFileInfo(path()).absolutePath()).entryList(QDir::Files).size(), 1);
        // One key changed among several, and a removal, in one write.
        d.setValues({{QStringLiteral("x"), 10}, {QStringLiteral("y"), 21.5}, {QStringLiteral("on"), QVariant()}});
        const UserDefaults again(path());
        QCOMPARE(again.doubleForKey(QStringLiteral("y")), 21.5);
        QVERIFY(!again.contains(QStringLiteral("on")));
    }
};

QTEST_GUILESS_MAIN(TestUserDefaults)
#include "TestUserDefaults.moc"
