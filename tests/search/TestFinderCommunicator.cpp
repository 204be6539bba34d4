// The file-operation scripts run for real on files in temporary folders: copy, move and Trash of names
// of any bytes, clashes that must never overwrite, vanished items and folders, other file systems.
#include "search/FinderCommunicator.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace {

using Operation = bool (FinderCommunicator::*)(const QList<QByteArray>&, FinderCommunicator::Completion);

// Names a user may have: not UTF-8, line breaks, quotes, a leading dash, backslashes, tabs.
const QByteArrayList kAwkwardNames{
    "bad-\xff\xfe-name", "new\nline\n", "quote\"s and 'single'", "-rf", "back\\slash\\0101",
    "tab\tname",         "sp ace",      "\xc3\xbcnicode",
};

// Plain system calls throughout: Qt's file classes take names as text and would change bytes that are
// not UTF-8.
QByteArray readFile(const QByteArray& path)
{
    const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return "<unreadable>";
    QByteArray content;
    char buffer[4096];
    ssize_t got;
    while ((got = ::read(fd, buffer, sizeof buffer)) > 0)
        content.append(buffer, got);
    ::close(fd);
    return content;
}

bool writeFile(const QByteArray& path, const QByteArray& content)
{
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    const bool written = ::write(fd, content.constData(), size_t(content.size())) == content.size();
    return ::close(fd) == 0 && written;
}

bool makeFolders(const QByteArray& path)
{
    QByteArray partial;
    for (const QByteArray& part : path.split('/')) {
        partial += part + '/';
        if (!part.isEmpty() && ::mkdir(partial.constData(), 0755) != 0 && errno != EEXIST)
            return false;
    }
    return true;
}

bool exists(const QByteArray& path)
{
    struct stat info
    {
    };
    return ::lstat(path.constData(), &info) == 0;
}

QByteArrayList listFolder(const QByteArray& path)
{
    QByteArrayList names;
    if (DIR* dir = ::opendir(path.constData())) {
        while (const dirent* entry = ::readdir(dir)) {
            const QByteArray name(entry->d_name);
            if (name != "." && name != "..")
                names.append(name);
        }
        ::closedir(dir);
    }
    return names;
}

QByteArray trashFolder()
{
    return qgetenv("XDG_DATA_HOME") + "/Trash";
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
            QVERIFY(writeFile(folder + '/' + name, "content of " + name));
        QVERIFY(makeFolders(folder + "/dir \xff/inner"));
        QVERIFY(writeFile(folder + "/dir \xff/inner/f", "inner"));
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
            QCOMPARE(readFile(dest + '/' + name), "content of " + name);
        QCOMPARE(readFile(dest + "/dir \xff/inner/f"), QByteArray("inner"));
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
        QCOMPARE(readFile(QFile::encodeName(m_communicator->removeFilesScriptURL())), shipped.readAll());

        // Deleted after the first use: back on the next operation.
        QVERIFY(QFile::remove(m_communicator->copyFilesScriptURL()));
        const QByteArray src = path("one");
        QVERIFY(writeFile(src, "1"));
        QVERIFY(makeFolders(path("to")));
        const FileOperationResult result = run(&FinderCommunicator::doCopyFiles, {path("to"), src});
        QVERIFY2(result.success, qPrintable(result.error));
        QVERIFY(QFileInfo::exists(m_communicator->copyFilesScriptURL()));
        QCOMPARE(readFile(path("to/one")), QByteArray("1"));

        // The helpers the three scripts share are installed again too.
        const QString library = m_dir->path() + QStringLiteral("/Scripts/FileOperations.sh");
        QVERIFY(QFile::remove(library));
        QVERIFY(writeFile(path("two"), "2"));
        const FileOperationResult second = run(&FinderCommunicator::doMoveFiles, {path("to"), path("two")});
        QVERIFY2(second.success, qPrintable(second.error));
        QVERIFY(QFileInfo::exists(library));
        QCOMPARE(readFile(path("to/two")), QByteArray("2"));

        // A copy the user changed is theirs: it is not replaced.
        QVERIFY(writeFile(QFile::encodeName(m_communicator->moveFilesScriptURL()), "exit 3\n"));
        QVERIFY(m_communicator->checkMoveFilesScript());
        QCOMPARE(readFile(QFile::encodeName(m_communicator->moveFilesScriptURL())), QByteArray("exit 3\n"));
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
        QVERIFY(writeFile(path("x"), "x"));
        QVERIFY(makeFolders(path("to")));
        std::optional<FileOperationResult> result;
        QVERIFY(other.doCopyFiles({path("to"), path("x")}, [&](const FileOperationResult& r) { result = r; }));
        QTRY_VERIFY_WITH_TIMEOUT(result.has_value(), 30000);
        QVERIFY2(result->success, qPrintable(result->error));
        QVERIFY(exists(path("to/x")));
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

    void copyKeepsEveryByteOfEveryName()
    {
        makeSources(path("src"));
        QVERIFY(makeFolders(path("dest")));
        const FileOperationResult result =
            run(&FinderCommunicator::doCopyFiles, QList<QByteArray>{path("dest")} + sourcePaths(path("src")));
        QVERIFY2(result.success, qPrintable(result.error));
        QVERIFY(result.failedPaths.isEmpty());
        verifyCopied(path("dest"));
        verifyCopied(path("src"));
    }

    void moveKeepsEveryByteOfEveryName()
    {
        makeSources(path("src"));
        QVERIFY(makeFolders(path("dest")));
        const FileOperationResult result =
            run(&FinderCommunicator::doMoveFiles, QList<QByteArray>{path("dest")} + sourcePaths(path("src")));
        QVERIFY2(result.success, qPrintable(result.error));
        verifyCopied(path("dest"));
        for (const QByteArray& source : sourcePaths(path("src")))
            QVERIFY(!exists(source));
    }

    void clashNeverOverwrites_data()
    {
        QTest::addColumn<bool>("move");
        QTest::newRow("copy") << false;
        QTest::newRow("move") << true;
    }
    void clashNeverOverwrites()
    {
        QFETCH(bool, move);
        QVERIFY(makeFolders(path("src/folder")));
        QVERIFY(makeFolders(path("dest/folder")));
        QVERIFY(writeFile(path("src/same\xff"), "source"));
        QVERIFY(writeFile(path("dest/same\xff"), "destination"));
        QVERIFY(writeFile(path("src/folder/inside"), "source inside"));
        QVERIFY(writeFile(path("dest/folder/inside"), "destination inside"));
        QVERIFY(writeFile(path("src/fresh"), "fresh"));
        // A link in the destination with the item's name, pointing nowhere: still a clash.
        QVERIFY(writeFile(path("src/dangling"), "source"));
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
        QCOMPARE(readFile(path("src/same\xff")), QByteArray("source"));
        QCOMPARE(readFile(path("dest/same\xff")), QByteArray("destination"));
        QCOMPARE(readFile(path("src/folder/inside")), QByteArray("source inside"));
        QCOMPARE(readFile(path("dest/folder/inside")), QByteArray("destination inside"));
        QVERIFY(!exists(path("dest/folder/folder")));
        QCOMPARE(readFile(path("dest/fresh")), QByteArray("fresh"));
        QCOMPARE(exists(path("src/fresh")), !move);
        QCOMPARE(readFile(path("src/dangling")), QByteArray("source"));
    }

    void vanishedItemsAndFolders()
    {
        QVERIFY(writeFile(path("a"), "a"));
        QVERIFY(writeFile(path("b"), "b"));
        QVERIFY(makeFolders(path("dest")));
        FileOperationResult result = run(&FinderCommunicator::doMoveFiles, {path("dest"), path("gone"), path("a")});
        QCOMPARE(result.failedPaths, QList<QByteArray>{path("gone")});
        QVERIFY2(result.error.endsWith(QStringLiteral(": it no longer exists")), qPrintable(result.error));
        QCOMPARE(readFile(path("dest/a")), QByteArray("a"));

        // The destination went away after it was chosen.
        result = run(&FinderCommunicator::doCopyFiles, {path("nowhere"), path("b")});
        QCOMPARE(result.failedPaths, QList<QByteArray>{path("b")});
        QVERIFY2(result.error.contains(QStringLiteral("the destination folder does not exist")),
                 qPrintable(result.error));
        QVERIFY(!exists(path("nowhere")));
        QCOMPARE(readFile(path("b")), QByteArray("b"));

        result = run(&FinderCommunicator::doRemoveFiles, {path("gone")});
        QCOMPARE(result.failedPaths, QList<QByteArray>{path("gone")});
    }

    // A sub-folder of the item as the destination: refused by the tools, nothing made or lost.
    void intoItselfIsRefused_data()
    {
        QTest::addColumn<bool>("move");
        QTest::newRow("copy") << false;
        QTest::newRow("move") << true;
    }
    void intoItselfIsRefused()
    {
        QFETCH(bool, move);
        QVERIFY(makeFolders(path("f/sub")));
        QVERIFY(writeFile(path("f/file"), "f"));
        const FileOperationResult result =
            run(move ? &FinderCommunicator::doMoveFiles : &FinderCommunicator::doCopyFiles, {path("f/sub"), path("f")});
        QCOMPARE(result.failedPaths, QList<QByteArray>{path("f")});
        QVERIFY2(result.error.contains(QStringLiteral("itself")), qPrintable(result.error));
        QCOMPARE(listFolder(path("f/sub")), QByteArrayList());
        QCOMPARE(readFile(path("f/file")), QByteArray("f"));
    }

    // A relative path would be taken from whatever folder the program runs in.
    void relativePathsAreRefused()
    {
        QVERIFY(writeFile(path("a"), "a"));
        QVERIFY(QDir::setCurrent(m_dir->path()));
        FileOperationResult result = run(&FinderCommunicator::doRemoveFiles, {"a"});
        QCOMPARE(result.failedPaths, QList<QByteArray>{"a"});
        QCOMPARE(result.error, QStringLiteral("a: not an absolute path"));
        QVERIFY(makeFolders(path("sub")));
        result = run(&FinderCommunicator::doCopyFiles, {"sub", path("a")});
        QCOMPARE(result.failedPaths, QList<QByteArray>{path("a")});
        QVERIFY(!exists(path("sub/a")));
        QCOMPARE(readFile(path("a")), QByteArray("a"));
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
        QVERIFY(writeFile(path("item"), "item"));
        const FileOperationResult result = run(&FinderCommunicator::doMoveFiles, {dest, path("item")});
        QCOMPARE(result.failedPaths, QList<QByteArray>{path("item")});
        QVERIFY2(result.error.contains(QStringLiteral("Read-only file system")), qPrintable(result.error));
        QVERIFY(!result.error.contains(QStringLiteral("mv: ")));
        QCOMPARE(readFile(path("item")), QByteArray("item"));
    }

    void moveAcrossFileSystems()
    {
        const QByteArray dest = mountTmpfs("other");
        if (dest.isEmpty())
            QSKIP("no tmpfs could be mounted (needs root and mount rights): the move across file systems is untested");
        makeSources(path("src"));
        const FileOperationResult result =
            run(&FinderCommunicator::doMoveFiles, QList<QByteArray>{dest} + sourcePaths(path("src")));
        QVERIFY2(result.success, qPrintable(result.error));
        verifyCopied(dest);
        for (const QByteArray& source : sourcePaths(path("src")))
            QVERIFY(!exists(source));
    }

    void trashFollowsTheFreedesktopTrash()
    {
        makeSources(path("src"));
        const QList<QByteArray> items = sourcePaths(path("src"));
        const FileOperationResult result = run(&FinderCommunicator::doRemoveFiles, items);
        QVERIFY2(result.success, qPrintable(result.error));
        for (const QByteArray& item : items)
            QVERIFY(!exists(item));
        // Each item has its .trashinfo naming the original path, percent-encoded byte by byte.
        QList<QByteArray> originals;
        for (const QByteArray& name : listFolder(trashFolder() + "/info")) {
            QVERIFY(name.endsWith(".trashinfo"));
            const QByteArray info = readFile(trashFolder() + "/info/" + name);
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
        QCOMPARE(readFile(trashFolder() + "/files/bad-\xff\xfe-name"), QByteArray("content of bad-\xff\xfe-name"));
    }

    void trashRefusedKeepsTheItem()
    {
        const QByteArray other = mountTmpfs("notrash");
        if (other.isEmpty())
            QSKIP("no tmpfs could be mounted (needs root and mount rights): a Trash-less file system is untested");
        // gio keeps no Trash on a tmpfs; the item must stay, never be deleted, and the others go on.
        QVERIFY(writeFile(other + "/keep\xff", "kept"));
        QVERIFY(writeFile(path("home-item"), "h"));
        const FileOperationResult result =
            run(&FinderCommunicator::doRemoveFiles, {other + "/keep\xff", path("home-item")});
        QVERIFY(!result.success);
        QCOMPARE(result.failedPaths, QList<QByteArray>{other + "/keep\xff"});
        QVERIFY2(result.error.startsWith(QFile::decodeName(other + "/keep\xff") + QStringLiteral(": ")),
                 qPrintable(result.error));
        QVERIFY(!result.error.contains(QStringLiteral("file://")));
        QCOMPARE(readFile(other + "/keep\xff"), QByteArray("kept"));
        QVERIFY(!exists(path("home-item")));
        QVERIFY(exists(trashFolder() + "/files/home-item"));
    }

    void scriptThatCannotWorkFailsEveryItem()
    {
        QVERIFY(m_communicator->checkRemoveFilesScript());
        QVERIFY(
            writeFile(QFile::encodeName(m_communicator->removeFilesScriptURL()), "echo 'no Trash here' >&2; exit 4\n"));
        QVERIFY(writeFile(path("x"), "x"));
        const FileOperationResult result = run(&FinderCommunicator::doRemoveFiles, {path("x"), path("y")});
        QVERIFY(!result.success);
        QCOMPARE(result.failedPaths, (QList<QByteArray>{path("x"), path("y")}));
        QCOMPARE(result.error, QFile::decodeName(path("x")) + QStringLiteral(": no Trash here\n") +
                                   QFile::decodeName(path("y")) + QStringLiteral(": no Trash here"));
        QVERIFY(exists(path("x")));
    }
};

QTEST_GUILESS_MAIN(TestFinderCommunicator)
#include "TestFinderCommunicator.moc"
