#pragma once

#include <QHash>
#include <QObject>
#include <QProcessEnvironment>
#include <QStringList>
#include <QVariantList>

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

// Where installed applications are found on this desktop.
struct AppSources {
    // Folders holding one folder per Flatpak application id (user and system installations).
    QStringList flatpakFolders;
    // Where AppImages are kept (~/Applications).
    QString appImageFolder;
    // The "applications" folders of XDG_DATA_DIRS: the desktop files of installed packages.
    QStringList desktopFolders;
    // For each file, the package that owns it and that package's installed size in bytes; files that no
    // package owns are absent. The default asks dpkg-query, twice in all.
    std::function<QHash<QString, std::pair<QString, quint64>>(const QStringList& files)> packageSizes;

    static AppSources forHome(const QString& home,
                              const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment());
    static QHash<QString, std::pair<QString, quint64>> dpkgPackageSizes(const QStringList& files);
};

// Lists the installed applications and their sizes (the unused-applications category; no last-used date
// is applied): Flatpak applications sized by their folder, AppImages by their file, and the desktop
// applications of installed packages sized by their package, each package once. The desktop's own core
// applications (BundleExcludeList) are left out. Reported once on the main thread as {"Path", "Size"}
// maps (Path: the Flatpak folder, the AppImage or the desktop file).
class AppsSearcher : public QObject
{
    Q_OBJECT
public:
    explicit AppsSearcher(AppSources sources, QObject* parent = nullptr);
    ~AppsSearcher() override;

    void findApps();

    // The blocking form, run on a pool thread by findApps().
    static QVariantList listApps(const AppSources& sources, const std::atomic<bool>* cancel = nullptr);

signals:
    void onSpotlightAppsSearcherDoneWithApps(const QVariantList& apps);

private:
    AppSources m_sources;
    std::shared_ptr<std::atomic<bool>> m_cancel = std::make_shared<std::atomic<bool>>(false);
};
