#include "search/SearchItem.h"

#include <QtTest>

#include <thread>
#include <vector>

class TestSearchItem : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // A search may hold millions of items spread over as many folders: each byte here is megabytes there.
    void recordsStaySmall()
    {
        QCOMPARE(sizeof(SearchFolderPtr), sizeof(void*));
        QVERIFY(sizeof(SearchFolder) <= 24);
        QVERIFY(sizeof(SearchItem) <= 64);
    }

    void folderPathsArePutTogetherFromTheChain_data()
    {
        QTest::addColumn<QByteArray>("top");
        QTest::addColumn<QByteArrayList>("names");
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QString>("enclosing");
        QTest::newRow("top alone") << QByteArray("/home/u") << QByteArrayList{} << QByteArray("/home/u") << "u";
        QTest::newRow("root alone") << QByteArray("/") << QByteArrayList{} << QByteArray("/") << "/";
        QTest::newRow("top with a trailing slash")
            << QByteArray("/t/") << QByteArrayList{"a"} << QByteArray("/t//a") << "a";
        QTest::newRow("walk of the root")
            << QByteArray("/") << QByteArrayList{"usr", "lib"} << QByteArray("//usr/lib") << "lib";
        QTest::newRow("odd bytes") << QByteArray("/t") << QByteArrayList{"a b", "\xff\xfe", ".h"}
                                   << QByteArray("/t/a b/\xff\xfe/.h") << ".h";
    }
    void folderPathsArePutTogetherFromTheChain()
    {
        QFETCH(QByteArray, top);
        QFETCH(QByteArrayList, names);
        QFETCH(QByteArray, path);
        SearchFolderPtr folder = SearchFolder::make(top, true, false);
        for (const QByteArray& name : std::as_const(names))
            folder = SearchFolder::make(folder, std::string_view(name.constData(), size_t(name.size())),
                                        folder->inPackage, true);
        QCOMPARE(folder->path(), path);
        QCOMPARE(folder->inPackage, true);
        QCOMPARE(folder->inHidden, !names.isEmpty());
        const SearchItem item("f.txt", folder);
        QCOMPARE(item.rawFilePath(), path);
        QCOMPARE(item.nativeFullPath(), SearchPaths::join(path, "f.txt"));
        QTEST(item.enclosingFolderName(), "enclosing");
    }

    // A full path never shows two slashes in a row, whichever part brings them: the searched folder's
    // whole path, a name that is empty or holds slashes (never made by a walk, but possible), the item's.
    void fullPathsHaveSingleSlashes_data()
    {
        QTest::addColumn<QByteArray>("top");
        QTest::addColumn<QByteArrayList>("names");
        QTest::addColumn<QByteArray>("item");
        QTest::addColumn<QByteArray>("full");
        QTest::newRow("plain") << QByteArray("/t") << QByteArrayList{"a", "b"} << QByteArray("f")
                               << QByteArray("/t/a/b/f");
        QTest::newRow("root") << QByteArray("/") << QByteArrayList{} << QByteArray("f") << QByteArray("/f");
        QTest::newRow("walk of the root")
            << QByteArray("//usr") << QByteArrayList{"lib"} << QByteArray("f") << QByteArray("/usr/lib/f");
        QTest::newRow("top ends in a slash")
            << QByteArray("/t/") << QByteArrayList{} << QByteArray("f") << QByteArray("/t/f");
        QTest::newRow("empty name") << QByteArray("/t") << QByteArrayList{"a", "", "b"} << QByteArray("f")
                                    << QByteArray("/t/a/b/f");
        QTest::newRow("name ends in a slash")
            << QByteArray("/t") << QByteArrayList{"a/"} << QByteArray("f") << QByteArray("/t/a/f");
        QTest::newRow("name starts with a slash")
            << QByteArray("/t") << QByteArrayList{"/a"} << QByteArray("f") << QByteArray("/t/a/f");
        QTest::newRow("item starts with a slash")
            << QByteArray("/t") << QByteArrayList{"a"} << QByteArray("/f") << QByteArray("/t/a/f");
        QTest::newRow("empty item") << QByteArray("/t") << QByteArrayList{"a"} << QByteArray("") << QByteArray("/t/a/");
    }
    void fullPathsHaveSingleSlashes()
    {
        QFETCH(QByteArray, top);
        QFETCH(QByteArrayList, names);
        QFETCH(QByteArray, item);
        SearchFolderPtr folder = SearchFolder::make(top);
        for (const QByteArray& name : std::as_const(names))
            folder = SearchFolder::make(folder, std::string_view(name.constData(), size_t(name.size())), false, false);
        const SearchItem found(item, folder);
        QTEST(found.nativeFullPath(), "full");
        std::string listing = "kind\t";
        found.appendNativeFullPath(listing);
        QCOMPARE(QByteArray::fromStdString(listing), "kind\t" + found.nativeFullPath());
    }

    // The chain outlives the pointers that made it, and the last item of a very deep folder frees every
    // record above it without running out of stack.
    void recordsLiveAsLongAsSomeItemNeedsThem()
    {
        SearchFolderPtr deep = SearchFolder::make(QByteArray("/r"));
        const SearchFolderPtr top = deep;
        for (int i = 0; i < 300000; ++i)
            deep = SearchFolder::make(deep, "d", false, false);
        auto item = std::make_shared<SearchItem>("x", deep);
        deep = nullptr;
        QCOMPARE(item->rawFilePath().size(), qsizetype(2 + 2 * 300000));
        QVERIFY(item->rawFilePath().endsWith("/d/d"));
        item.reset();
        QCOMPARE(top->path(), QByteArray("/r"));
    }

    // Walker threads copy and drop the records of shared folders at once.
    void sharedAcrossThreads()
    {
        const SearchFolderPtr root = SearchFolder::make(QByteArray("/r"));
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([root] {
                for (int i = 0; i < 20000; ++i) {
                    const SearchFolderPtr child = SearchFolder::make(root, "c", false, false);
                    SearchFolderPtr copy = child;
                    copy = root;
                }
            });
        for (std::thread& thread : threads)
            thread.join();
        QCOMPARE(root->path(), QByteArray("/r"));
        QVERIFY(root->parent() == nullptr);
    }
};

QTEST_GUILESS_MAIN(TestSearchItem)
#include "TestSearchItem.moc"
