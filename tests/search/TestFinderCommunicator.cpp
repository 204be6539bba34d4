// The file-operation scripts run for real on files in temporary folders: copy, move and Trash of names
// of any bytes, clashes that must never overwrite, vanished items and folders, other file systems.
#include "search/FinderCommunicator.h"
#include "support/RawFiles.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

namespace {

using Operation = bool (FinderCommunicator::*)(const QList<QByteArray>&, FinderCommunicator::Completion);

// Names a user may have: not UTF-8, line breaks, quotes, a leading dash, backslashes, tabs.
const QByteArrayList kAwkwardNames{
    "bad-\xff\xfe-name", "new\nline\n", "quote\"s and 'single'", "-rf", "back\\slash\\0101",
    "tab\tname",         "sp ace",      "\xc3\xbcnicode",
};

// The rows of a test that copies or moves alike.
void copyOrMoveRows()
{
    QTest::addColumn<bool>("move");
    QTest::newRow("copy") << false;
    QTest::newRow("move") << true;
}
} // namespace

class TestFinderCommunicator : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<FinderCommunicator> m_communicator;
    QByteArrayList m_mounts;
    bool m_accessible = true;

    QByteArray path(const QByteArray& relative) const { return QFile::encodeName(m_dir->path()) + '/' + relative; }

    // Runs one operation to its end.
    FileOperationResult run(Operation operation, const QList<QByteArray>& paths)
    {
        std::optional<FileOperationResult> result;
        int calls = 0;
        const bool started = (m_communicator.get()->*operation)(paths, [&](const FileOperationResult& r) {
            result = r;
            ++calls;
        });
        if (!started)
            return FileOperationResult{false, QStringLiteral("<not started>"), {}};
        // The completion comes later, from the event loop.
        if (result)
            return FileOperationResult{false, QStringLiteral("<completion called at once>"), {}};
        if (!QTest::qWaitFor([&] { return result.has_value(); }, 30000))
            return FileOperationResult{false, QStringLiteral("<no completion>"), {}};
        QTest::qWait(20);
        if (calls != 1)
            return FileOperationResult{false, QStringLiteral("<completion called %1 times>").arg(calls), {}};
        return *result;
    }

    // A tmpfs of our own (another file system), or "" when this process may not mount.
    QByteArray mountTmpfs(const QByteArray& relative, bool readOnly = false)
    {
        if (::geteuid() != 0)
            return {};
        const QByteArray where = path(relative);
        if (!makeFolders(where))
            return {};
        QStringList options{QStringLiteral("size=8m")};
        if (readOnly)
            options.append(QStringLiteral("ro"));
        if (QProcess::execute(QStringLiteral("mount"),
                              {QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"),
                               options.join(QLatin1Char(',')), QStringLiteral("tmpfs"), QFile::decodeName(where)}) != 0)
            return {};
        m_mounts.prepend(where);
        return where;
    }

    void makeSources(const QByteArray& folder)
    {
        QVERIFY(makeFolders(folder));
        for (const QByteArray& name : kAwkwardNames)
            QVERIFY(writeBytes(folder + '/' + name, "content of " + name));
        QVERIFY(makeFolders(folder + "/dir \xff/inner"));
        QVERIFY(writeBytes(folder + "/dir \xff/inner/f", "inner"));
        QCOMPARE(::symlink("inner/f", (folder + "/dir \xff/link").constData()), 0);
    }

    QList<QByteArray> sourcePaths(const QByteArray& folder) const
    {
        QList<QByteArray> out;
        for (const QByteArray& name : kAwkwardNames)
            out.append(folder + '/' + name);
        out.append(folder + "/dir \xff");
        return out;
    }

    void verifyCopied(const QByteArray& dest)
    {
        for (const QByteArray& name : kAwkwardNames)
            QCOMPARE(readBytes(dest + '/' + name), "content of " + name);
        QCOMPARE(readBytes(dest + "/dir \xff/inner/f"), QByteArray("inner"));
        char target[64] = {};
        QCOMPARE(::readlink((dest + "/dir \xff/link").constData(), target, sizeof target - 1), qsizetype(7));
        QCOMPARE(QByteArray(target), QByteArray("inner/f"));
    }

private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_accessible = true;
        m_communicator = std::make_unique<FinderCommunicator>(m_dir->path() + QStringLiteral("/Scripts"),
                                                              [this] { return m_accessible; });
    }
    void cleanup()
    {
        m_communicator.reset();
        for (const QByteArray& mount : std::as_const(m_mounts))
            QProcess::execute(QStringLiteral("umount"), {QFile::decodeName(mount)});
        m_mounts.clear();
        // By bytes: Qt's removal cannot name files that are not UTF-8.
        QProcess::execute(QStringLiteral("rm"), {QStringLiteral("-rf"), QStringLiteral("--"), m_dir->path()});
        m_dir.reset();
    }

    void installsScriptsAndInstallsThemAgainWhenDeleted()
    {
        QVERIFY(m_communicator->copyFilesScriptURL().isEmpty());
        QVERIFY(m_communicator->checkCopyFilesScript());
        QVERIFY(m_communicator->checkMoveFilesScript());
        QVERIFY(m_communicator->checkRemoveFilesScript());
        const QString scripts = m_dir->path() + QStringLiteral("/Scripts/");
        QCOMPARE(m_communicator->copyFilesScriptURL(), scripts + QStringLiteral("CopyFilesToFolder9a.sh"));
        QCOMPARE(m_communicator->moveFilesScriptURL(), scripts + QStringLiteral("MoveFilesToFolder9a.sh"));
        QCOMPARE(m_communicator->removeFilesScriptURL(), scripts + QStringLiteral("RemoveFilesToTrash6.sh"));
        QFile shipped(QStringLiteral(":/scripts/RemoveFilesToTrash6.sh"));
        QVERIFY(shipped.open(QIODevice::ReadOnly));
        QCOMPARE(readBytes(QFile::encodeName(m_communicator->removeFilesScriptURL())), shipped.readAll());

        // Deleted after the first use: back on the next operation.
        QVERIFY(QFile::remove(m_communicator->copyFilesScriptURL()));
        const QByteArray src = path("one");
        QVERIFY(writeBytes(src, "1"));
        QVERIFY(makeFolders(path("to")));
        const FileOperationResult result = run(&FinderCommunicator::doCopyFiles, {path("to"), src});
        QVERIFY2(result.success, qPrintable(result.error));
        QVERIFY(QFileInfo::exists(m_communicator->copyFilesScriptURL()));
        QCOMPARE(readBytes(path("to/one")), QByteArray("1"));

        // The helpers the three scripts share are installed again too.
        const QString library = m_dir->path() + QStringLiteral("/Scripts/FileOperations.sh");
        QVERIFY(QFile::remove(library));
        QVERIFY(writeBytes(path("two"), "2"));
        const FileOperationResult second = run(&FinderCommunicator::doMoveFiles, {path("to"), path("two")});
        QVERIFY2(second.success, qPrintable(second.error));
        QVERIFY(QFileInfo::exists(library));
        QCOMPARE(readBytes(path("to/two")), QByteArray("2"));

        // A copy the user changed is theirs: it is not replaced.
        QVERIFY(writeBytes(QFile::encodeName(m_communicator->moveFilesScriptURL()), "exit 3\n"));
        QVERIFY(m_communicator->checkMoveFilesScript());
        QCOMPARE(readBytes(QFile::encodeName(m_communicator->moveFilesScriptURL())), QByteArray("exit 3\n"));
    }

    void installNeedsTheUserFolder()
    {
        m_accessible = false;
        QVERIFY(!m_communicator->checkCopyFilesScript());
        QVERIFY(!m_communicator->checkRemoveFilesScript());
        QVERIFY(!QFileInfo::exists(m_dir->path() + QStringLiteral("/Scripts/CopyFilesToFolder9a.sh")));
        bool called = false;
        QVERIFY(
            !m_communicator->doCopyFiles({path("to"), path("x")}, [&](const FileOperationResult&) { called = true; }));
        QTest::qWait(50);
        QVERIFY(!called);

        // Installed while it was accessible: works without access afterwards.
        m_accessible = true;
        QVERIFY(m_communicator->checkCopyFilesScript());
        m_accessible = false;
        FinderCommunicator other(m_dir->path() + QStringLiteral("/Scripts"), [] { return false; });
        QVERIFY(other.checkCopyFilesScript());
        QVERIFY(!other.checkMoveFilesScript());
        QVERIFY(writeBytes(path("x"), "x"));
        QVERIFY(makeFolders(path("to")));
        std::optional<FileOperationResult> result;
        QVERIFY(other.doCopyFiles({path("to"), path("x")}, [&](const FileOperationResult& r) { result = r; }));
        QTRY_VERIFY_WITH_TIMEOUT(result.has_value(), 30000);
        QVERIFY2(result->success, qPrintable(result->error));
        QVERIFY(pathExists(path("to/x")));
    }

    void defaultFolderIsInTheDataHome()
    {
        QCOMPARE(FinderCommunicator::defaultScriptsFolder(),
                 qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/trovix/Scripts"));
        FinderCommunicator defaults({}, [] { return true; });
        QVERIFY(defaults.checkRemoveFilesScript());
        QCOMPARE(defaults.removeFilesScriptURL(),
                 qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/trovix/Scripts/RemoveFilesToTrash6.sh"));
    }

    void pathListEncodingIsPlainAscii()
    {
        const QByteArray encoded = FinderCommunicator::encodePathList({"/a b/\xff\n", "/-x\\"});
        QCOMPARE(encoded, QByteArray("/a\\0040b/\\0377\\0012\n/-x\\0134\n"));
    }

    void everyByteOfEveryNameArrives_data()
    {
        QTest::addColumn<bool>("move");
        QTest::addColumn<bool>("otherFileSystem");
        QTest::newRow("copy") << false << false;
        QTest::newRow("move") << true << false;
        QTest::newRow("move to another file system") << true << true;
    }
    void everyByteOfEveryNameArrives()
    {
        QFETCH(bool, move);
        QFETCH(bool, otherFileSystem);
        makeSources(path("src"));
        QByteArray dest = path("dest");
        if (otherFileSystem) {
            dest = mountTmpfs("other");
            if (dest.isEmpty())
                QSKIP("no tmpfs could be mounted (needs root and mount rights): the move across file systems is "
                      "untested");
        } else {
            QVERIFY(makeFolders(dest));
        }
        const FileOperationResult result =
            run(move ? &FinderCommunicator::doMoveFiles : &FinderCommunicator::doCopyFiles,
                QList<QByteArray>{dest} + sourcePaths(path("src")));
        QVERIFY2(result.success, qPrintable(result.error));
        QVERIFY(result.failedPaths.isEmpty());
        verifyCopied(dest);
        if (!move)
            verifyCopied(path("src"));
        for (const QByteArray& source : sourcePaths(path("src")))
            QCOMPARE(pathExists(source), !move);
    }

    void clashNeverOverwrites_data() { copyOrMoveRows(); }
    void clashNeverOverwrites()
    {
        QFETCH(bool, move);
        QVERIFY(makeFolders(path("src/folder")));
        QVERIFY(makeFolders(path("dest/folder")));
        QVERIFY(writeBytes(path("src/same\xff"), "source"));
        QVERIFY(writeBytes(path("dest/same\xff"), "destination"));
        QVERIFY(writeBytes(path("src/folder/inside"), "source inside"));
        QVERIFY(writeBytes(path("dest/folder/inside"), "destination inside"));
        QVERIFY(writeBytes(path("src/fresh"), "fresh"));
        // A link in the destination with the item's name, pointing nowhere: still a clash.
        QVERIFY(writeBytes(path("src/dangling"), "source"));
        QCOMPARE(::symlink("nowhere", path("dest/dangling").constData()), 0);

        const QList<QByteArray> items{path("src/same\xff"), path("src/folder"), path("src/fresh"),
                                      path("src/dangling")};
        const FileOperationResult result =
            run(move ? &FinderCommunicator::doMoveFiles : &FinderCommunicator::doCopyFiles,
                QList<QByteArray>{path("dest")} + items);
        QVERIFY(!result.success);
        QCOMPARE(result.failedPaths,
                 (QList<QByteArray>{path("src/same\xff"), path("src/folder"), path("src/dangling")}));
        const QStringList lines = result.error.split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 3);
        QVERIFY2(lines.at(0).startsWith(QFile::decodeName(path("src/same\xff")) + QStringLiteral(": ")),
                 qPrintable(lines.at(0)));
        for (const QString& line : lines)
            QVERIFY2(line.contains(QStringLiteral("already in the destination folder")), qPrintable(line));
        // Both sides of every clash kept as they were; the other item went on.
        QCOMPARE(readBytes(path("src/same\xff")), QByteArray("source"));
        QCOMPARE(readBytes(path("dest/same\xff")), QByteArray("destination"));
        QCOMPARE(readBytes(path("src/folder/inside")), QByteArray("source inside"));
        QCOMPARE(readBytes(path("dest/folder/inside")), QByteArray("destination inside"));
        QVERIFY(!pathExists(path("dest/folder/folder")));
        QCOMPARE(readBytes(path("dest/fresh")), QByteArray("fresh"));
        QCOMPARE(pathExists(path("src/fresh")), !move);
        QCOMPARE(readBytes(path("src/dangling")), QByteArray("source"));
    }

    void vanishedItemsAndFolders()
    {
        QVERIFY(writeBytes(path("a"), "a"));
        QVERIFY(writeBytes(path("b"), "b"));
        QVERIFY(makeFolders(path("dest")));
        FileOperationResult result = run(&FinderCommunicator::doMoveFiles, {path("dest"), path("gone"), path("a")});
        QCOMPARE(result.failedPaths, QList<QByteArray>{path("gone")});
        QVERIFY2(result.error.endsWith(QStringLiteral(": it no longer exists")), qPrintable(result.error));
        QCOMPARE(readBytes(path("dest/a")), QByteArray("a"));

        // The destination went away after it was chosen.
        result = run(&FinderCommunicator::doCopyFiles, {path("nowhere"), path("b")});
        QCOMPARE(result.failedPaths, QList<QByteArray>{path("b")});
        QVERIFY2(result.error.contains(QStringLiteral("the destination folder does not exist")),
                 qPrintable(result.error));
        QVERIFY(!pathExists(path("nowhere")));
        QCOMPARE(readBytes(path("b")), QByteArray("b"));

        result = run(&FinderCommunicator::doRemoveFiles, {path("gone")});
        QCOMPARE(result.failedPaths, QList<QByteArray>{path("gone")});
    }

    // A sub-folder of the item as the destination: refused by the tools, nothing made or lost.
    void intoItselfIsRefused_data() { copyOrMoveRows(); }
    void intoItselfIsRefused()
    {
        QFETCH(bool, move);
        QVERIFY(makeFolders(path("f/sub")));
        QVERIFY(writeBytes(path("f/file"), "f"));
        const FileOperationResult result =
            run(move ? &FinderCommunicator::doMoveFiles : &FinderCommunicator::doCopyFiles, {path("f/sub"), path("f")});
        QCOMPARE(result.failedPaths, QList<QByteArray>{path("f")});
        QVERIFY2(result.error.contains(QStringLiteral("itself")), qPrintable(result.error));
        QCOMPARE(listFolder(path("f/sub")), QByteArrayList());
        QCOMPARE(readBytes(path("f/file")), QByteArray("f"));
    }

    // A relative path would be taken from whatever folder the program runs in.
    void relativePathsAreRefused()
    {
        QVERIFY(writeBytes(path("a"), "a"));
        QVERIFY(QDir::setCurrent(m_dir->path()));
        FileOperationResult result = run(&FinderCommunicator::doRemoveFiles, {"a"});
        QCOMPARE(result.failedPaths, QList<QByteArray>{"a"});
        QCOMPARE(result.error, QStringLiteral("a: not an absolute path"));
        QVERIFY(makeFolders(path("sub")));
        result = run(&FinderCommunicator::doCopyFiles, {"sub", path("a")});
        QCOMPARE(result.failedPaths, QList<QByteArray>{path("a")});
        QVERIFY(!pathExists(path("sub/a")));
        QCOMPARE(readBytes(path("a")), QByteArray("a"));
        QVERIFY(QDir::setCurrent(QDir::tempPath()));
    }

    void emptyListsEndWell()
    {
        for (Operation operation :
             {&FinderCommunicator::doCopyFiles, &FinderCommunicator::doMoveFiles, &FinderCommunicator::doRemoveFiles}) {
            const FileOperationResult result = run(operation, {});
            QVERIFY2(result.success, qPrintable(result.error));
        }
        const FileOperationResult onlyDestination = run(&FinderCommunicator::doCopyFiles, {path("nowhere")});
        QVERIFY2(onlyDestination.success, qPrintable(onlyDestination.error));
    }

    void readOnlyDestination()
    {
        const QByteArray dest = mountTmpfs("ro", true);
        if (dest.isEmpty())
            QSKIP("no tmpfs could be mounted (needs root and mount rights), so no read-only folder a root process "
                  "cannot write");
        QVERIFY(writeBytes(path("item"), "item"));
        const FileOperationResult result = run(&FinderCommunicator::doMoveFiles, {dest, path("item")});
        QCOMPARE(result.failedPaths, QList<QByteArray>{path("item")});
        QVERIFY2(result.error.contains(QStringLiteral("Read-only file system")), qPrintable(result.error));
        QVERIFY(!result.error.contains(QStringLiteral("mv: ")));
        QCOMPARE(readBytes(path("item")), QByteArray("item"));
    }

    void trashFollowsTheFreedesktopTrash()
    {
        makeSources(path("src"));
        const QList<QByteArray> items = sourcePaths(path("src"));
        const FileOperationResult result = run(&FinderCommunicator::doRemoveFiles, items);
        QVERIFY2(result.success, qPrintable(result.error));
        for (const QByteArray& item : items)
            QVERIFY(!pathExists(item));
        // Each item has its .trashinfo naming the original path, percent-encoded byte by byte.
        QList<QByteArray> originals;
        for (const QByteArray& name : listFolder(trashFolder() + "/info")) {
            QVERIFY(name.endsWith(".trashinfo"));
            const QByteArray info = readBytes(trashFolder() + "/info/" + name);
            QVERIFY(info.startsWith("[Trash Info]\n"));
            const qsizetype at = info.indexOf("\nPath=");
            QVERIFY(at > 0);
            const QByteArray encoded = info.mid(at + 6, info.indexOf('\n', at + 6) - at - 6);
            originals.append(QByteArray::fromPercentEncoding(encoded));
            QVERIFY(info.contains("\nDeletionDate="));
        }
        std::sort(originals.begin(), originals.end());
        QList<QByteArray> expected = items;
        std::sort(expected.begin(), expected.end());
        QCOMPARE(originals, expected);
        QCOMPARE(readBytes(trashFolder() + "/files/bad-\xff\xfe-name"), QByteArray("content of bad-\xff\xfe-name"));
    }

    void trashRefusedKeepsTheItem()
    {
        const QByteArray other = mountTmpfs("notrash");
        if (other.isEmpty())
            QSKIP("no tmpfs could be mounted (needs root and mount rights): a Trash-less file system is untested");
        // gio keeps no Trash on a tmpfs; the item must stay, never be deleted, and the others go on.
        QVERIFY(writeBytes(other + "/keep\xff", "kept"));
        QVERIFY(writeBytes(path("home-item"), "h"));
        const FileOperationResult result =
            run(&FinderCommunicator::doRemoveFiles, {other + "/keep\xff", path("home-item")});
        QVERIFY(!result.success);
        QCOMPARE(result.failedPaths, QList<QByteArray>{other + "/keep\xff"});
        QVERIFY2(result.error.startsWith(QFile::decodeName(other + "/keep\xff") + QStringLiteral(": ")),
                 qPrintable(result.error));
        QVERIFY(!result.error.contains(QStringLiteral("file://")));
        QCOMPARE(readBytes(other + "/keep\xff"), QByteArray("kept"));
        QVERIFY(!pathExists(path("home-item")));
        QVERIFY(pathExists(trashFolder() + "/files/home-item"));
    }

    void scriptThatCannotWorkFailsEveryItem()
    {
        QVERIFY(m_communicator->checkRemoveFilesScript());
        QVERIFY(writeBytes(QFile::encodeName(m_communicator->removeFilesScriptURL()),
                           "echo 'no Trash here' >&2; exit 4\n"));
        QVERIFY(writeBytes(path("x"), "x"));
        const FileOperationResult result = run(&FinderCommunicator::doRemoveFiles, {path("x"), path("y")});
        QVERIFY(!result.success);
        QCOMPARE(result.failedPaths, (QList<QByteArray>{path("x"), path("y")}));
        QCOMPARE(result.error, QFile::decodeName(path("x")) + QStringLiteral(": no Trash here\n") +
                                   QFile::decodeName(path("y")) + QStringLiteral(": no Trash here"));
        QVERIFY(pathExists(path("x")));
    }
};

QTEST_GUILESS_MAIN(TestFinderCommunicator)
#include "TestFinderCommunicator.moc"
