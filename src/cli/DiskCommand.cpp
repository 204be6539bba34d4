#include "Commands.h"

#include "diskusage/AppsSearcher.h"
#include "diskusage/PathsGenerator.h"
#include "diskusage/PromoFreeSpaceChecker.h"
#include "diskusage/SearcherManager.h"
#include "util/Clock.h"
#include "util/VolumeName.h"

#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <unistd.h>

namespace cli {

namespace {

int usage()
{
    std::fprintf(stderr, "usage: trovix disk [--json] [--verify]\n");
    return 2;
}

void printLine(const QString& text)
{
    std::printf("%s\n", text.toLocal8Bit().constData());
}

QString size(quint64 bytes)
{
    return VolumeName::stringFromSize(qint64(bytes));
}

QJsonObject category(quint64 bytes, quint64 count)
{
    return {{QStringLiteral("bytes"), qint64(bytes)}, {QStringLiteral("count"), qint64(count)}};
}

} // namespace

// trovix disk [--json] [--verify]: the four disk-usage scans of the panel, run once, and each local
// volume's fullness. --verify adds the content check of the duplicates.
int runDisk(const QStringList& args)
{
    bool json = false;
    bool verify = false;
    for (const QString& arg : args) {
        if (arg == QLatin1String("--json"))
            json = true;
        else if (arg == QLatin1String("--verify"))
            verify = true;
        else
            return usage();
    }

    const PathsGenerator paths(PathsGenerator::findHomeDirectory());
    SearcherManager::Config config;
    config.paths = &paths;
    config.clock = &Clock::system();
    config.appSources = AppSources::forHome(paths.getHomeDirectory());
    config.verifyDuplicates = verify;
    SearcherManager manager(std::move(config));

    JunkFilesViewInfo junk;
    ApplicationsUnusedViewInfo apps;
    LargeAndOldFilesViewInfo largeOld;
    DuplicateFilesViewInfo duplicates;
    int answered = 0;
    QEventLoop loop;
    const bool progress = ::isatty(STDERR_FILENO);
    const auto answer = [&](const char* what) {
        ++answered;
        if (progress)
            std::fprintf(stderr, "\r\033[Kscanning: %d of 4 answered (%s)", answered, what);
        if (answered == 4)
            loop.quit();
    };
    QObject::connect(&manager, &SearcherManager::onSpotlightManagerFoundJunkFilesInfo, &loop,
                     [&](const JunkFilesViewInfo& info) { junk = info; answer("junk"); });
    QObject::connect(&manager, &SearcherManager::onSpotlightManagerFoundApplicationsInfo, &loop,
                     [&](const ApplicationsUnusedViewInfo& info) { apps = info; answer("applications"); });
    QObject::connect(&manager, &SearcherManager::onSpotlightManagerFoundLargetAndOldFilesInfo, &loop,
                     [&](const LargeAndOldFilesViewInfo& info) { largeOld = info; answer("large and old files"); });
    QObject::connect(&manager, &SearcherManager::onSpotlightManagerFoundDuplicatesInfo, &loop,
                     [&](const DuplicateFilesViewInfo& info) { duplicates = info; answer("duplicates"); });
    if (progress)
        std::fprintf(stderr, "scanning: 0 of 4 answered");
    manager.startSearchForced(true);
    if (answered < 4)
        loop.exec();
    if (progress)
        std::fprintf(stderr, "\r\033[K");

    const std::vector<VolumeInfo> volumes = PromoFreeSpaceChecker::localVolumes();
    if (json) {
        QJsonArray volumeArray;
        for (const VolumeInfo& volume : volumes)
            volumeArray.append(QJsonObject{{QStringLiteral("mount"), volume.path},
                                           {QStringLiteral("total"), qint64(volume.size)},
                                           {QStringLiteral("free"), qint64(volume.freeSize)}});
        QJsonObject duplicatesObject = category(duplicates.size, duplicates.count);
        if (duplicates.verified)
            duplicatesObject.insert(QStringLiteral("verified"), category(duplicates.verifiedSize, duplicates.verifiedCount));
        const QJsonObject categories{
            {QStringLiteral("junk"), category(junk.getTotalSize(), junk.count)},
            {QStringLiteral("duplicates"), duplicatesObject},
            {QStringLiteral("largeOld"), category(largeOld.size, largeOld.count)},
            {QStringLiteral("applications"), category(apps.size, apps.count)}};
        const QJsonObject root{{QStringLiteral("volumes"), volumeArray}, {QStringLiteral("categories"), categories}};
        std::printf("%s\n", QJsonDocument(root).toJson(QJsonDocument::Compact).constData());
        return 0;
    }

    printLine(QStringLiteral("Junk files:           %1 (caches %2, downloads %3, Trash %4)")
                  .arg(size(junk.getTotalSize()), size(junk.cachesSize), size(junk.downloadsSize), size(junk.trashSize)));
    QString duplicateLine = QStringLiteral("Duplicates:           %1 in %2 files").arg(size(duplicates.size)).arg(duplicates.count);
    if (duplicates.verified)
        duplicateLine += QStringLiteral(" (same contents: %1 in %2 files)")
                             .arg(size(duplicates.verifiedSize))
                             .arg(duplicates.verifiedCount);
    printLine(duplicateLine);
    printLine(QStringLiteral("Large and old files:  %1 in %2 files").arg(size(largeOld.size)).arg(largeOld.count));
    printLine(QStringLiteral("Applications:         %1 in %2 applications").arg(size(apps.size)).arg(apps.count));
    printLine(QStringLiteral("Total:                %1").arg(size(manager.getTotalCalculatedSize())));
    for (const VolumeInfo& volume : volumes) {
        const int full = volume.size ? int(100.0 * (1.0 - double(volume.freeSize) / double(volume.size))) : 0;
        printLine(QStringLiteral("%1: %2% full, %3 free of %4").arg(volume.path).arg(full).arg(size(volume.freeSize), size(volume.size)));
    }
    return 0;
}

} // namespace cli
