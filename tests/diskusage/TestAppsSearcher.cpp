#include "diskusage/AppsSearcher.h"
#include "diskusage/BundleExcludeList.h"
#include "support/DiskUsageFixture.h"

#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace DiskUsageFixture;

namespace {
QMap<QString, quint64> bySize(const QVariantList& apps)
{
    QMap<QString, quint64> result;
    for (const QVariant& app : apps)
        result.insert(app.toMap().value("Path").toString(), app.toMap().value("Size").toULongLong());
    return result;
}
} // namespace

class TestAppsSearcher : public QObject
{
    Q_OBJECT

private slots:
    void excludeListIgnoresCase()
    {
        const BundleExcludeList& list = BundleExcludeList::GetInstance();
        QVERIFY(list.isSystemBundleID("COM.APPLE.SAFARI"));
        QVERIFY(list.isSystemBundleID("com.apple.safari"));
        QVERIFY(list.isSystemBundleID("org.gnome.nautilus"));
        QVERIFY(list.isSystemBundleID(QString()));
        QVERIFY(!list.isSystemBundleID("org.gimp.GIMP"));
    }

    // Flatpak folders sized by their files, AppImages by their file, desktop applications by their
    // package, each package once; hidden entries and the desktop's own applications left out.
    void listsTheThreeKindsOfApplication()
    {
        QTemporaryDir root;
        AppSources sources;
        sources.flatpakFolders = {root.filePath("user-flatpak"), root.filePath("missing")};
        QVERIFY(writeFile(root.filePath("user-flatpak/org.gimp.GIMP/x86_64/stable/files/bin/gimp"), 300000));
        QVERIFY(writeFile(root.filePath("user-flatpak/org.gnome.Nautilus/files/n"), 1000));
        sources.appImageFolder = root.filePath("Applications");
        QVERIFY(writeFile(root.filePath("Applications/Krita.AppImage"), 500000));
        QVERIFY(writeFile(root.filePath("Applications/notes.txt"), 500));
        sources.desktopFolders = {root.filePath("local/applications"), root.filePath("share/applications")};
        const QByteArray app = "[Desktop Entry]\nType=Application\nName=Editor\nExec=editor\n";
        QVERIFY(writeFile(root.filePath("share/applications/editor.desktop"), app));
        QVERIFY(writeFile(root.filePath("share/applications/editor-wayland.desktop"), app)); // same package
        QVERIFY(writeFile(root.filePath("share/applications/hidden.desktop"), app + "NoDisplay=true\n"));
        QVERIFY(writeFile(root.filePath("share/applications/link.desktop"), "[Desktop Entry]\nType=Link\n"));
        QVERIFY(writeFile(root.filePath("share/applications/org.gnome.Nautilus.desktop"), app));
        QVERIFY(writeFile(root.filePath("share/applications/viewer.desktop"), app));
        QVERIFY(writeFile(root.filePath("local/applications/viewer.desktop"), app)); // earlier folder wins
        QVERIFY(writeFile(root.filePath("share/applications/unowned.desktop"), app));
        QStringList asked;
        sources.packageSizes = [&](const QStringList& files) {
            asked = files;
            QHash<QString, std::pair<QString, quint64>> owners;
            owners.insert(root.filePath("share/applications/editor.desktop"), {"editor", 7000000});
            owners.insert(root.filePath("share/applications/editor-wayland.desktop"), {"editor", 7000000});
            owners.insert(root.filePath("local/applications/viewer.desktop"), {"viewer", 3000000});
            return owners;
        };

        AppsSearcher searcher(sources);
        QSignalSpy done(&searcher, &AppsSearcher::onSpotlightAppsSearcherDoneWithApps);
        searcher.findApps();
        QVERIFY(done.wait(10000));
        const auto apps = bySize(done.first().first().toList());
        QCOMPARE(apps.keys(), QStringList({root.filePath("Applications/Krita.AppImage"),
                                           root.filePath("local/applications/viewer.desktop"),
                                           root.filePath("share/applications/editor-wayland.desktop"),
                                           root.filePath("user-flatpak/org.gimp.GIMP")}));
        QCOMPARE(apps.value(root.filePath("user-flatpak/org.gimp.GIMP")),
                 findAllocatedSum(root.filePath("user-flatpak/org.gimp.GIMP")));
        QCOMPARE(apps.value(root.filePath("Applications/Krita.AppImage")),
                 allocated(root.filePath("Applications/Krita.AppImage")));
        QCOMPARE(apps.value(root.filePath("local/applications/viewer.desktop")), 3000000ull);
        asked.sort();
        QCOMPARE(asked, QStringList({root.filePath("local/applications/viewer.desktop"),
                                     root.filePath("share/applications/editor-wayland.desktop"),
                                     root.filePath("share/applications/editor.desktop"),
                                     root.filePath("share/applications/unowned.desktop")}));
    }

    // The real package database: dpkg's own program belongs to the dpkg package.
    void dpkgNamesTheOwnerAndItsSize()
    {
        if (QStandardPaths::findExecutable("dpkg-query").isEmpty() || !QFile::exists("/usr/bin/dpkg"))
            QSKIP("no dpkg here");
        const auto owners = AppSources::dpkgPackageSizes({"/usr/bin/dpkg", "/nonexistent/file"});
        QCOMPARE(owners.size(), 1);
        QCOMPARE(owners.value("/usr/bin/dpkg").first.section(':', 0, 0), QStringLiteral("dpkg"));
        QVERIFY(owners.value("/usr/bin/dpkg").second > 1000000ull);
    }
};

QTEST_GUILESS_MAIN(TestAppsSearcher)
#include "TestAppsSearcher.moc"
