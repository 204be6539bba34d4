#include "SearchManager.h"

#include "NameTypes.h"
#include "Walker.h"
#include "core/NotificationCenter.h"
#include "platform/HiddenFlag.h"
#include "platform/linux/MountTable.h"
#include "util/DirectoryListing.h"
#include "util/MainQueue.h"

#include <QCoreApplication>
#include <QFile>
#include <QMimeDatabase>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <system_error>
#include <utility>

namespace {

// A ".hidden" larger than this is not a list of names someone keeps by hand: it is ignored, as everywhere.
constexpr off_t kHiddenListMax = HiddenFlag::kMaxListSize;
constexpr unsigned kStatFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
constexpr unsigned kStatMask = STATX_TYPE | STATX_SIZE | STATX_MTIME;

bool statNoFollow(const QByteArray& path, struct statx& info)
{
    return statx(AT_FDCWD, path.constData(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                 STATX_TYPE | STATX_SIZE | STATX_MTIME | STATX_ATIME, &info) == 0;
}

QDateTime toDate(const statx_timestamp& t)
{
    return QDateTime::fromMSecsSinceEpoch(t.tv_sec * 1000 + t.tv_nsec / 1000000, Qt::UTC);
}

// The names listed in a ".hidden" (one exact name per line, nothing trimmed), read only when it is a
// regular file of a sensible size: a link to /dev/zero or a huge file is no list.
QSet<QByteArray> readHiddenList(int dirFd, const char* name)
{
    QSet<QByteArray> names;
    const int fd = openat(dirFd, name, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0)
        return names;
    struct stat info
    {
    };
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > kHiddenListMax) {
        close(fd);
        return names;
    }
    QByteArray content(static_cast<qsizetype>(info.st_size) + 1, Qt::Uninitialized);
    qsizetype have = 0;
    ssize_t got;
    while (have < content.size() &&
           (got = read(fd, content.data() + have, static_cast<size_t>(content.size() - have))) > 0)
        have += got;
    close(fd);
    content.truncate(std::min<qsizetype>(have, kHiddenListMax));
    for (const QByteArray& line : content.split('\n'))
        if (!line.isEmpty())
            names.insert(line);
    return names;
}

quint16 fixedType(const char* name)
{
    return SearchTypes::intern(QString::fromLatin1(name));
}

// Sums of packages already counted (the sum of an outer package counts the inner ones too), so a
// package inside another is not walked twice. Used only on the size pool's one thread.
using PackageSums = QHash<QByteArray, qint64>;

// The sizes of everything below an open folder, each stat relative to its folder (deep trees too).
qint64 sumBelow(int dirFd, const QByteArray& path, PackageSums& sums)
{
    constexpr size_t kBufferSize = 32 * 1024;
    std::vector<char> buffer(kBufferSize);
    qint64 total = 0;
    for (;;) {
        const ssize_t got = getdents64(dirFd, buffer.data(), buffer.size());
        if (got <= 0)
            break;
        bool ended = false;
        for (ssize_t pos = 0; pos < got;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + pos);
            pos += entry->d_reclen;
            ended = pos >= got && listingEndsAfter(entry->d_off);
            const char* name = entry->d_name;
            if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
                continue;
            struct stat info
            {
            };
            if (fstatat(dirFd, name, &info, AT_SYMLINK_NOFOLLOW) != 0)
                continue;
            total += info.st_size;
            if (!S_ISDIR(info.st_mode))
                continue;
            const QByteArray subPath = path + '/' + name;
            const bool package = SearchManager::hasBundleExtension(std::string_view(name));
            if (package) {
                if (auto known = sums.constFind(subPath); known != sums.constEnd()) {
                    total += *known;
                    continue;
                }
            }
            const int sub = openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (sub >= 0) {
                const qint64 below = sumBelow(sub, subPath, sums);
                close(sub);
                total += below;
                if (package)
                    sums.insert(subPath, below);
            }
        }
        if (ended)
            break;
    }
    return total;
}

qint64 sumOfContents(const QByteArray& folder, PackageSums& sums)
{
    const QByteArray path = SearchPaths::collapseSlashes(folder);
    if (auto known = sums.constFind(path); known != sums.constEnd())
        return *known;
    const int fd = open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return 0;
    const qint64 total = sumBelow(fd, path, sums);
    close(fd);
    sums.insert(path, total);
    return total;
}

// Matches of the folder being listed on this walker thread, classified once its listing is over.
thread_local std::vector<QByteArray> t_found;
// Matches classified on this walker thread, handed over in batches.
thread_local std::vector<std::pair<int, SearchItemPtr>> t_batch;
constexpr size_t kBatchSize = 512;

} // namespace

// What a search knows of one folder it walked: the facts its items share, and its ".hidden" names.
struct SearchManager::FolderFacts
{
    SearchFolderPtr folder;
    QSet<QByteArray> hiddenNames;
};

// Classifies one scan's matches on the walker threads and hands them to the manager, tagged with the
// search they belong to. The facts of a folder are hung on the walker's node the first time a match
// in it or below it needs them.
class SearchManager::ScanSink : public WalkerDelegate
{
public:
    // ended runs once, when no match can come any more: as soon as the walkers have stopped, or
    // (for a scan that was refused) from finish().
    ScanSink(SearchManager* manager, int generation, std::function<void()> ended)
        : m_manager(manager)
        , m_generation(generation)
        , m_ended(std::move(ended))
    {
    }
    void finish()
    {
        if (m_ended)
            std::exchange(m_ended, nullptr)();
    }
    void walkerEntryFound(const WalkerFolder&, std::string_view name, unsigned char, int) override
    {
        t_found.emplace_back(name.data(), static_cast<qsizetype>(name.size()));
    }
    // The whole listing is known now (whether it has a ".hidden"), and the folder is still open.
    void walkerFolderDone(const WalkerFolder& folder) override
    {
        if (t_found.empty())
            return;
        const FolderFacts* facts = factsOf(folder.node, folder.fd);
        for (QByteArray& name : t_found) {
            const char* statName = name.constData();
            t_batch.emplace_back(m_generation, m_manager->classify(folder.fd, statName, std::move(name), facts->folder,
                                                                   facts->hiddenNames));
        }
        t_found.clear();
        if (t_batch.size() >= kBatchSize)
            m_manager->queueItems(t_batch);
    }
    void walkerWalkEnded() override
    {
        if (!t_batch.empty())
            m_manager->queueItems(t_batch);
    }
    void walkerReleaseFolderData(void* data) override { delete static_cast<FolderFacts*>(data); }
    void walkerSearchInterrupted() override { m_manager->searchInterruptedObjC(); }
    // The tree is freed after this: the results are complete, so they go out without waiting for it.
    void walkerScanEnded() override { finish(); }

private:
    static FolderFacts* factsHungOn(WalkerNode* node)
    {
        return static_cast<FolderFacts*>(node->delegateData.load(std::memory_order_acquire));
    }

    // fd is open on node (just listed), or -1; every listing is complete here.
    FolderFacts* factsOf(WalkerNode* node, int fd)
    {
        if (FolderFacts* known = factsHungOn(node))
            return known;
        std::vector<WalkerNode*> chain;
        for (WalkerNode* n = node; n && !factsHungOn(n); n = n->parent)
            chain.push_back(n);
        FolderFacts* above = chain.back()->parent ? factsHungOn(chain.back()->parent) : nullptr;
        for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
            WalkerNode* n = *it;
            auto* made = new FolderFacts;
            if (!above) {
                // The searched folder: what lies above it is looked up once per search.
                const QByteArray probe = SearchPaths::join(QByteArray::fromStdString(n->path), "x");
                made->folder = SearchFolder::make({}, n->path, isFilePackagedAtPath(probe),
                                                  m_manager->isFileInHiddenFolderAtPath(probe));
            } else {
                const std::string_view name = n->name();
                const SearchFolder& up = *above->folder;
                const bool hidden = up.inHidden || name.starts_with('.') ||
                                    above->hiddenNames.contains(
                                        QByteArray::fromRawData(name.data(), static_cast<qsizetype>(name.size())));
                made->folder =
                    SearchFolder::make(above->folder, name, up.inPackage || hasBundleExtension(name), hidden);
            }
            if (n->listsDotHidden)
                made->hiddenNames = n == node && fd >= 0 ? readHiddenList(fd, ".hidden")
                                                         : readHiddenList(AT_FDCWD, (n->path + "/.hidden").c_str());
            void* expected = nullptr;
            if (!n->delegateData.compare_exchange_strong(expected, made, std::memory_order_acq_rel)) {
                delete made; // another walker was first
                made = static_cast<FolderFacts*>(expected);
            }
            above = made;
        }
        return above;
    }

    SearchManager* m_manager;
    int m_generation;
    std::function<void()> m_ended;
};

SearchManager::SearchManager(NotificationCenter& center, QThreadPool* scanPool, QObject* parent)
    : QObject(parent)
    , m_center(center)
    , m_scanPool(scanPool ? scanPool : &m_ownScanPool)
    , m_nameTypes(std::make_unique<NameTypes>())
    , m_packageSums(std::make_shared<QHash<QByteArray, qint64>>())
{
    m_sizePool.setMaxThreadCount(1);
    // Replaced searches may linger on a slow delegate; the next one gets a thread of its own.
    m_ownScanPool.setMaxThreadCount(4);
}

SearchManager::~SearchManager()
{
    if (m_control)
        m_control->cancel();
    walkerCancel();
    m_scanPool->waitForDone();
    m_sizePool.clear();
    m_sizePool.waitForDone();
}

SearchManager* SearchManager::sharedManager()
{
    static SearchManager* instance =
        new SearchManager(NotificationCenter::defaultCenter(), nullptr, QCoreApplication::instance());
    return instance;
}

QString SearchManager::SearchManagerDidStartSearchNotification()
{
    return QStringLiteral("SearchManagerDidStartSearchNotification");
}

QString SearchManager::openSearchResultDialogNotification()
{
    return QStringLiteral("openSearchResultDialogNotification");
}

void SearchManager::performSearchWithDefaults()
{
    performSearchWithTemplate(m_searchTemplate, m_searchLocation);
}

SearchManager::StartResult SearchManager::performSearchWithTemplate(const QString& searchText, const QString& folder)
{
    const StartResult result = performSearchWithBytes(searchText.toUtf8(), QFile::encodeName(folder));
    m_searchTemplate = searchText;
    m_searchLocation = folder;
    return result;
}

QString SearchManager::templateTooLongMessage(qsizetype bytes)
{
    return QStringLiteral("The search text is %1 bytes long; at most %2 are taken.")
        .arg(bytes)
        .arg(kSearchNeedleCapacity - 1);
}

void SearchManager::startNewGeneration()
{
    if (m_control)
        m_control->cancel();
    m_control.reset();
    ++m_generation;
    m_searching = false;
}

SearchManager::StartResult SearchManager::performSearchWithBytes(const QByteArray& searchText, const QByteArray& folder)
{
    // Whatever ran before is over, even when this start searches nothing.
    startNewGeneration();
    m_searchTemplate = QString::fromUtf8(searchText);
    m_searchLocation = QFile::decodeName(folder);
    m_lastStartMessage.clear();
    m_searchResultArray.clear();
    m_filteredSearchResultArray.clear();
    if (m_searchResultDialog)
        m_searchResultDialog->prepareForNewSearchResults();
    resumeSearchIfStopped();
    m_foundItemsMask = 0;

    if (folder.isEmpty() || searchText.isEmpty())
        return StartResult::EmptyInput;
    if (searchText.size() >= static_cast<qsizetype>(kSearchNeedleCapacity)) {
        m_lastStartMessage = templateTooLongMessage(searchText.size());
        Q_EMIT searchRefused(m_lastStartMessage);
        return StartResult::TemplateTooLong;
    }

    openSearchResultDialog();
    m_itemsCounter = 0;
    {
        QMutexLocker lock(&m_hiddenMutex);
        m_hiddenNames.clear();
        m_inHiddenFolder.clear();
    }
    m_nameTypes->clear();
    // Emptied on the size pool's thread, after the sums the previous search started.
    m_sizePool.start([sums = m_packageSums] { sums->clear(); });
    findFiles(searchText, folder, [this] {
        if (m_searchResultDialog)
            m_searchResultDialog->searchCompleted();
    });
    m_center.post(SearchManagerDidStartSearchNotification());
    return StartResult::Started;
}

WalkerOptions SearchManager::walkerOptions(const QByteArray& folder, const QByteArray& lowerTemplate,
                                           WalkerDelegate* delegate)
{
    WalkerOptions options;
    options.rootPath = SearchPaths::cleanFolder(folder).toStdString();
    options.needle = lowerTemplate.toStdString();
    options.delegate = delegate;
    options.unenteredFolders = MountTable::virtualMountPoints(MountTable::read());
    return options;
}

void SearchManager::findFiles(const QByteArray& lowerTemplate, const QByteArray& folder,
                              std::function<void()> completion)
{
    if (m_control)
        m_control->cancel();
    const int generation = ++m_generation;
    auto control = std::make_shared<WalkerControl>();
    m_control = control;
    m_searching = true;
    m_scanPool->start([this, generation, control, lowerTemplate, folder, completion = std::move(completion)] {
        ScanSink sink(this, generation, [this, generation, completion] {
            MainQueue::async(this, [this, generation, completion] {
                if (generation != m_generation.load())
                    return;
                applyPendingItems();
                m_searching = false;
                if (completion)
                    completion();
                Q_EMIT searchFinished();
            });
        });
        WalkerOptions options = walkerOptions(folder, lowerTemplate, &sink);
        options.control = control;
        walkerScan(options);
        sink.finish();
    });
}

void SearchManager::fileFoundObjCWithFile(std::string_view name, std::string_view path, qint64)
{
    std::vector<std::pair<int, SearchItemPtr>> one;
    one.emplace_back(m_generation.load(), makeItem(name, path));
    queueItems(one);
}

SearchItemPtr SearchManager::makeItem(std::string_view name, std::string_view path)
{
    const QByteArray rawName(name.data(), static_cast<qsizetype>(name.size()));
    const QByteArray full =
        SearchPaths::join(QByteArray::fromRawData(path.data(), static_cast<qsizetype>(path.size())), rawName);
    SearchFolderPtr folder = SearchFolder::make({}, path, isFilePackagedAtPath(full), isFileInHiddenFolderAtPath(full));
    const QSet<QByteArray> hidden = hiddenNamesIn(SearchPaths::parentOf(full));
    return classify(AT_FDCWD, full.constData(), rawName, std::move(folder), hidden);
}

SearchItemPtr SearchManager::classify(int dirFd, const char* statName, QByteArray rawName, SearchFolderPtr folder,
                                      const QSet<QByteArray>& hiddenNames)
{
    static const quint16 kDirectory = fixedType("inode/directory");
    static const quint16 kSymlink = fixedType("inode/symlink");
    static const quint16 kCharDevice = fixedType("inode/chardevice");
    static const quint16 kBlockDevice = fixedType("inode/blockdevice");
    static const quint16 kFifo = fixedType("inode/fifo");
    static const quint16 kSocket = fixedType("inode/socket");

    auto item = std::make_shared<SearchItem>(std::move(rawName), std::move(folder));
    const std::string_view name(item->rawFileName.constData(), static_cast<size_t>(item->rawFileName.size()));
    item->itemID = m_itemsCounter.fetch_add(1, std::memory_order_relaxed);
    struct statx info
    {
    };
    if (statx(dirFd, statName, kStatFlags, kStatMask, &info) != 0)
        return item; // vanished since it was listed: kept, with empty attributes
    const SearchFolder& where = *item->folder();
    item->modifiedMSecs = info.stx_mtime.tv_sec * 1000 + info.stx_mtime.tv_nsec / 1000000;
    mode_t mode = info.stx_mode;
    if (S_ISLNK(mode)) {
        // Named by what it points to.
        struct statx target
        {
        };
        mode = statx(dirFd, statName, AT_NO_AUTOMOUNT, STATX_TYPE, &target) == 0 ? target.stx_mode : 0;
    }
    if (S_ISDIR(mode))
        item->typeIndex = kDirectory;
    else if (S_ISREG(mode))
        item->typeIndex = m_nameTypes->typeOf(name);
    else if (S_ISCHR(mode))
        item->typeIndex = kCharDevice;
    else if (S_ISBLK(mode))
        item->typeIndex = kBlockDevice;
    else if (S_ISFIFO(mode))
        item->typeIndex = kFifo;
    else if (S_ISSOCK(mode))
        item->typeIndex = kSocket;
    else
        item->typeIndex = kSymlink; // a dangling link
    item->filePackage = S_ISDIR(info.stx_mode) && hasBundleExtension(name);
    item->fileInPackage = where.inPackage;
    if (item->filePackage) {
        item->fileSize = 0;
        getFolderSizeForSearchItem(item);
    } else if (S_ISDIR(mode)) {
        item->fileSize = -1;
    } else {
        item->fileSize = static_cast<qint64>(info.stx_size);
    }
    item->fileHidden =
        !where.inPackage &&
        (name.starts_with('.') || (!hiddenNames.isEmpty() && hiddenNames.contains(QByteArray::fromRawData(
                                                                 name.data(), static_cast<qsizetype>(name.size())))));
    item->fileInHiddenFolder = where.inHidden;
    return item;
}

void SearchManager::queueItems(std::vector<std::pair<int, SearchItemPtr>>& items)
{
    QMutexLocker lock(&m_pendingMutex);
    const bool first = m_pending.empty();
    if (first)
        m_pending.swap(items);
    else
        std::move(items.begin(), items.end(), std::back_inserter(m_pending));
    items.clear();
    if (first)
        MainQueue::async(this, [this] { applyPendingItems(); });
}

void SearchManager::applyPendingItems()
{
    std::vector<std::pair<int, SearchItemPtr>> batch;
    {
        QMutexLocker lock(&m_pendingMutex);
        batch.swap(m_pending);
    }
    const int current = m_generation.load();
    bool added = false;
    for (const auto& [generation, item] : batch) {
        if (generation != current)
            continue; // a replaced search's late match
        appendItem(item);
        added = true;
    }
    if (added)
        Q_EMIT searchResultsChanged();
}

void SearchManager::appendItem(const SearchItemPtr& item)
{
    m_searchResultArray.append(item);
    m_foundItemsMask |= item->foundMaskBits();
    if (item->passesFilter(m_filterMask))
        m_filteredSearchResultArray.append(item);
}

void SearchManager::presentItemsAtPaths(const QString& title, const QList<QByteArray>& paths)
{
    startNewGeneration();
    m_searchTemplate = title;
    m_searchLocation.clear();
    m_lastStartMessage.clear();
    m_searchResultArray.clear();
    m_filteredSearchResultArray.clear();
    if (m_searchResultDialog)
        m_searchResultDialog->prepareForNewSearchResults();
    m_foundItemsMask = 0;
    m_itemsCounter = 0;
    {
        QMutexLocker lock(&m_hiddenMutex);
        m_hiddenNames.clear();
        m_inHiddenFolder.clear();
    }
    openSearchResultDialog();
    m_center.post(SearchManagerDidStartSearchNotification());
    QSet<QByteArray> seen;
    for (const QByteArray& given : paths) {
        const QByteArray path = SearchPaths::collapseSlashes(given);
        struct statx info
        {
        };
        if (!path.startsWith('/') || path == "/" || seen.contains(path) || !statNoFollow(path, info))
            continue;
        seen.insert(path);
        const QByteArray name = SearchPaths::lastComponent(path);
        const QByteArray parent = SearchPaths::parentOf(path);
        appendItem(makeItem(std::string_view(name.constData(), static_cast<size_t>(name.size())),
                            std::string_view(parent.constData(), static_cast<size_t>(parent.size()))));
    }
    Q_EMIT searchResultsChanged();
    if (m_searchResultDialog)
        m_searchResultDialog->searchCompleted();
    Q_EMIT searchFinished();
}

void SearchManager::cancelSearchByButton()
{
    m_startTime = static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
    if (m_control)
        m_control->cancelAndWait();
}

void SearchManager::resumeSearchIfStopped()
{
    walkerResume();
}

void SearchManager::openSearchResultDialog()
{
    m_center.post(openSearchResultDialogNotification());
}

qint64 SearchManager::totalFiles() const
{
    return m_control ? static_cast<qint64>(m_control->filesSeen()) : 0;
}

void SearchManager::removeItemsWithIndexSet(const QList<int>& indexes)
{
    QSet<const SearchItem*> doomed;
    QList<QByteArray> packages;
    for (int index : indexes) {
        if (index < 0 || index >= m_filteredSearchResultArray.size())
            continue;
        const SearchItemPtr& item = m_filteredSearchResultArray.at(index);
        doomed.insert(item.get());
        if (item->filePackage)
            packages.append(item->nativeFullPath());
    }
    for (const QByteArray& package : packages)
        for (const SearchItemPtr& item : std::as_const(m_searchResultArray))
            if (SearchPaths::collapseSlashes(item->rawFilePath()).contains(package))
                doomed.insert(item.get());
    const auto isDoomed = [&doomed](const SearchItemPtr& item) { return doomed.contains(item.get()); };
    m_searchResultArray.removeIf(isDoomed);
    m_filteredSearchResultArray.removeIf(isDoomed);
}

void SearchManager::clearSearchResultsArray()
{
    m_searchResultArray.clear();
}

bool SearchManager::hasBundleExtension(const QByteArray& name)
{
    return hasBundleExtension(std::string_view(name.constData(), static_cast<size_t>(name.size())));
}

bool SearchManager::hasBundleExtension(std::string_view name)
{
    static constexpr std::string_view extensions[] = {"app",   "bundle",        "framework", "plugin", "kext",  "xpc",
                                                      "appex", "photoslibrary", "rtfd",      "pkg",    "appdir"};
    const size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot == name.size() - 1)
        return false;
    const std::string_view extension = name.substr(dot + 1);
    const auto sameIgnoringCase = [extension](std::string_view candidate) {
        return candidate.size() == extension.size() &&
               std::equal(candidate.begin(), candidate.end(), extension.begin(),
                          [](char a, char b) { return a == (b >= 'A' && b <= 'Z' ? b + ('a' - 'A') : b); });
    };
    return std::any_of(std::begin(extensions), std::end(extensions), sameIgnoringCase);
}

bool SearchManager::isFilePackage(const QByteArray& path)
{
    struct statx info
    {
    };
    return statNoFollow(path, info) && S_ISDIR(info.stx_mode) && hasBundleExtension(SearchPaths::lastComponent(path));
}

bool SearchManager::isFilePackagedAtPath(const QByteArray& path)
{
    // The folders above a found item exist and are folders: their names tell.
    for (QByteArray folder = SearchPaths::parentOf(path); !folder.isEmpty() && folder != "/";
         folder = SearchPaths::parentOf(folder))
        if (hasBundleExtension(SearchPaths::lastComponent(folder)))
            return true;
    return false;
}

QSet<QByteArray> SearchManager::hiddenNamesIn(const QByteArray& folder)
{
    {
        QMutexLocker lock(&m_hiddenMutex);
        if (auto it = m_hiddenNames.constFind(folder); it != m_hiddenNames.constEnd())
            return *it;
    }
    const QSet<QByteArray> names = readHiddenList(AT_FDCWD, SearchPaths::join(folder, ".hidden").constData());
    QMutexLocker lock(&m_hiddenMutex);
    m_hiddenNames.insert(folder, names);
    return names;
}

bool SearchManager::getFileTypeHidden(const QByteArray& path)
{
    if (faccessat(AT_FDCWD, path.constData(), F_OK, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    const QByteArray name = SearchPaths::lastComponent(path);
    if (name.startsWith('.') && name != "/")
        return true;
    const QByteArray parent = SearchPaths::parentOf(path);
    return !parent.isEmpty() && hiddenNamesIn(parent).contains(name);
}

bool SearchManager::isHiddenFolder(const QByteArray& folder)
{
    return getFileTypeHidden(folder);
}

bool SearchManager::isFileInHiddenFolderAtPath(const QByteArray& path)
{
    QByteArray folder = SearchPaths::parentOf(SearchPaths::collapseSlashes(path));
    if (folder.startsWith("/Volumes"))
        folder = folder.mid(8);
    // Climb to the first folder whose answer is known, then fill the answers on the way back.
    QList<QByteArray> climbed;
    bool answer = false;
    while (!folder.isEmpty() && folder != "/") {
        {
            QMutexLocker lock(&m_hiddenMutex);
            if (auto it = m_inHiddenFolder.constFind(folder); it != m_inHiddenFolder.constEnd()) {
                answer = *it;
                break;
            }
        }
        if (isHiddenFolder(folder)) {
            answer = true;
            QMutexLocker lock(&m_hiddenMutex);
            m_inHiddenFolder.insert(folder, true);
            break;
        }
        climbed.append(folder);
        folder = SearchPaths::parentOf(folder);
    }
    QMutexLocker lock(&m_hiddenMutex);
    for (const QByteArray& f : std::as_const(climbed))
        m_inHiddenFolder.insert(f, answer);
    return answer;
}

bool SearchManager::isFileInAddressBook(const QString& path)
{
    return path.contains(QLatin1String("Library/Application Support/AddressBook"));
}

QString SearchManager::getFileType(const QByteArray& path)
{
    struct statx info
    {
    };
    if (!statNoFollow(path, info))
        return {};
    const mode_t mode = info.stx_mode;
    if (S_ISDIR(mode))
        return QStringLiteral("NSFileTypeDirectory");
    if (S_ISREG(mode))
        return QStringLiteral("NSFileTypeRegular");
    if (S_ISLNK(mode))
        return QStringLiteral("NSFileTypeSymbolicLink");
    if (S_ISSOCK(mode))
        return QStringLiteral("NSFileTypeSocket");
    if (S_ISCHR(mode))
        return QStringLiteral("NSFileTypeCharacterSpecial");
    if (S_ISBLK(mode))
        return QStringLiteral("NSFileTypeBlockSpecial");
    return QStringLiteral("NSFileTypeUnknown");
}

qint64 SearchManager::getFileSize(const QByteArray& path)
{
    struct statx info
    {
    };
    return statNoFollow(path, info) ? static_cast<qint64>(info.stx_size) : 0;
}

QDateTime SearchManager::getModificationDate(const QByteArray& path)
{
    struct statx info
    {
    };
    return statNoFollow(path, info) ? toDate(info.stx_mtime) : QDateTime();
}

QDateTime SearchManager::getLastUsedDateForFile(const QByteArray& path)
{
    struct statx info
    {
    };
    if (!statNoFollow(path, info))
        return QDateTime::fromSecsSinceEpoch(0, Qt::UTC);
    return std::max(toDate(info.stx_atime), toDate(info.stx_mtime));
}

void SearchManager::getFolderSizeForSearchItem(const SearchItemPtr& item)
{
    const QByteArray folder = item->nativeFullPath();
    m_sizePool.start([this, item, folder, sums = m_packageSums] {
        const qint64 total = sumOfContents(folder, *sums);
        MainQueue::async(this, [item, total] { item->fileSize = total; });
    });
}

void SearchManager::waitForPackageSizes()
{
    m_sizePool.waitForDone();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}
