#pragma once

// Builders of real folder trees for the search tests: dot-files, packages, symlink loops, unreadable
// folders, names that are not UTF-8, wide and very deep folders, all inside a temporary folder.

#include <QByteArray>
#include <QByteArrayList>
#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

class SearchTreeFixture
{
public:
    SearchTreeFixture()
    {
        QVERIFY(m_dir.isValid());
        // Readable by others too, so a test may walk it under another user id.
        ::chmod(root().constData(), 0755);
    }
    ~SearchTreeFixture()
    {
        for (const QByteArray& folder : std::as_const(m_locked))
            ::chmod(folder.constData(), 0755);
        flattenDeepChains();
        // Qt's removal goes through decoded names and cannot delete this one itself.
        ::unlink(path(badName()).constData());
        m_dir.remove();
    }

    static QByteArray badName() { return QByteArray("bad-\xff\xfe-match.bin"); } // not UTF-8
    QByteArray root() const { return QFile::encodeName(m_dir.path()); }
    QByteArray path(const QByteArray& relative) const { return root() + '/' + relative; }

    void folder(const QByteArray& relative)
    {
        QByteArray soFar = root();
        for (const QByteArray& part : relative.split('/')) {
            soFar += '/' + part;
            ::mkdir(soFar.constData(), 0755);
        }
    }
    void file(const QByteArray& relative, const QByteArray& content = {})
    {
        const qsizetype slash = relative.lastIndexOf('/');
        if (slash > 0)
            folder(relative.left(slash));
        const int fd = ::open(path(relative).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        QVERIFY2(fd >= 0, relative.constData());
        if (!content.isEmpty())
            QCOMPARE(::write(fd, content.constData(), static_cast<size_t>(content.size())), content.size());
        ::close(fd);
    }
    void symlink(const QByteArray& relative, const QByteArray& target)
    {
        QCOMPARE(::symlink(target.constData(), path(relative).constData()), 0);
    }
    // Mode 000 until the fixture ends.
    void unreadableFolder(const QByteArray& relative)
    {
        folder(relative);
        QCOMPARE(::chmod(path(relative).constData(), 0), 0);
        m_locked.append(path(relative));
    }
    void wideFolder(const QByteArray& relative, int count, const QByteArray& prefix)
    {
        folder(relative);
        for (int i = 0; i < count; ++i)
            file(relative + '/' + prefix + QByteArray::number(i));
    }
    // A chain of `levels` folders named "d", built relative to each other (the full path soon exceeds
    // what one path may hold), with a file `leafName` at the bottom.
    void deepChain(const QByteArray& top, int levels, const QByteArray& leafName)
    {
        folder(top);
        int fd = ::open(path(top).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        QVERIFY(fd >= 0);
        for (int i = 0; i < levels; ++i) {
            QCOMPARE(::mkdirat(fd, "d", 0755), 0);
            const int next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            ::close(fd);
            QVERIFY(next >= 0);
            fd = next;
        }
        const int leaf = ::openat(fd, leafName.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        QVERIFY(leaf >= 0);
        ::close(leaf);
        ::close(fd);
        m_deepTops.append(top);
    }

    // The tree most tests share: ordinary files, dot-files and a dot-folder, a package, a link loop, a
    // link to a folder, a name that is not UTF-8, mixed case and accented names.
    void buildStandard()
    {
        file("docs/Report-MATCH-Z.txt", "report");
        file("docs/notes.md", "notes");
        file("docs/.match-dotfile");
        file("docs/listed-match");
        file("docs/.hidden", "listed-match\n");
        file(".git/objects/visible-match", "x");
        file("Tool.app/Contents/.match-inside", "12345");
        file("Tool.app/Contents/Info-match.plist", "1234567890");
        folder("match-folder/sub");
        file("match-folder/sub/inner-match.c", "int x;");
        file("Été-match.txt");
        file(badName());
        folder("loop");
        symlink("loop/self-match", "..");
        symlink("link-to-docs-match", "docs");
    }
    // What the needle "match" finds in the standard tree, relative to the root.
    static QByteArrayList standardMatches()
    {
        return {"docs/Report-MATCH-Z.txt",
                "docs/.match-dotfile",
                "docs/listed-match",
                ".git/objects/visible-match",
                "Tool.app/Contents/.match-inside",
                "Tool.app/Contents/Info-match.plist",
                "match-folder",
                "match-folder/sub/inner-match.c",
                "Été-match.txt",
                badName(),
                "loop/self-match",
                "link-to-docs-match"};
    }
    // Sorted full paths of entries given relative to the root.
    QByteArrayList absolute(QByteArrayList relative) const
    {
        for (QByteArray& entry : relative)
            entry = path(entry);
        std::sort(relative.begin(), relative.end());
        return relative;
    }

private:
    // Cuts each deep chain into pieces of 200 levels moved up to the root, so that an ordinary
    // recursive removal (paths of at most PATH_MAX) can delete them.
    void flattenDeepChains()
    {
        const int rootFd = ::open(root().constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        int piece = 0;
        for (const QByteArray& top : std::as_const(m_deepTops)) {
            int fd = ::open(path(top).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            for (int level = 1; fd >= 0; ++level) {
                if (level % 200 == 0) {
                    const QByteArray name = "piece-" + QByteArray::number(piece++);
                    if (::renameat(fd, "d", rootFd, name.constData()) != 0)
                        break;
                    ::close(fd);
                    fd = ::openat(rootFd, name.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
                    continue;
                }
                const int next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
                ::close(fd);
                fd = next;
            }
            if (fd >= 0)
                ::close(fd);
        }
        if (rootFd >= 0)
            ::close(rootFd);
    }

    QTemporaryDir m_dir;
    QByteArrayList m_locked;
    QByteArrayList m_deepTops;
};
