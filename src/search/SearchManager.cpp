#include "SearchManager.h"

#include "Walker.h"
#include "core/NotificationCenter.h"
#include "platform/linux/MountTable.h"
#include "util/MainQueue.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QMimeDatabase>
#include <QtConcurrent/QtConcurrentRun>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace {

constexpr qsizetype kSniffBytes = 4096;

bool statNoFollow(const QByteArray& path, struct statx& info)
{
    return statx(AT_FDCWD, path.constData(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                 STATX_TYPE | STATX_SIZE | STATX_MTIME | STATX_ATIME, &info) == 0;
}

QDateTime toDate(const statx_timestamp& t)
{
    return QDateTime::fromMSecsSinceEpoch(t.tv_sec * 1000 + t.tv_nsec / 1000000, Qt::UTC);
}

// The MIME type of a file whose lstat-like facts are known; follows a link to name its target.
QString typeOfFile(const QByteArray& path, const struct statx& linkInfo)
{
    struct statx info = linkInfo;
    if (S_ISLNK(info.stx_mode) &&
        statx(AT_FDCWD, path.constData(), AT_NO_AUTOMOUNT, STATX_TYPE | STATX_SIZE, &info) != 0)
        return QStringLiteral("inode/symlink");
    const mode_t mode = info.stx_mode;
    if (S_ISDIR(mode))
        return QStringLiteral("inode/directory");
    if (S_ISCHR(mode))
        return QStringLiteral("inode/chardevice");
    if (S_ISBLK(mode))
        return QStringLiteral("inode/blockdevice");
    if (S_ISFIFO(mode))
        return QStringLiteral("inode/fifo");
    if (S_ISSOCK(mode))
        return QStringLiteral("inode/socket");
    static const QMimeDatabase db;
    const QString name = QString::fromUtf8(SearchPaths::lastComponent(path));
    const QMimeType byName = db.mimeTypeForFile(name, QMimeDatabase::MatchExtension);
    if (!byName.isDefault())
        return byName.name();
    // No telling extension: look at the first bytes, read by the real path (names need not be UTF-8).
    QByteArray head;
    const int fd = open(path.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd >= 0) {
        head.resize(kSniffBytes);
        const ssize_t got = read(fd, head.data(), static_cast<size_t>(head.size()));
        head.resize(got > 0 ? got : 0);
        close(fd);
    }
    return db.mimeTypeForData(head).name();
}

qint64 sumOfContents(const QByteArray& folder)
{
    namespace fs = std::filesystem;
    std::error_code error;
    qint64 total = 0;
    fs::recursive_directory_iterator it(std::string(folder.constData(), static_cast<size_t>(folder.size())),
                                        fs::directory_options::skip_permission_denied, error);
    for (const fs::recursive_directory_iterator end; !error && it != end; it.increment(error)) {
        struct stat info
        {
        };
        if (lstat(it->path().c_str(), &info) == 0)
            total += info.st_size;
    }
    return total;
}

} // namespace

// Forwards one scan's matches to the manager, tagged with the search they belong to.
class SearchManager::ScanSink : public WalkerDelegate
{
public:
    ScanSink(SearchManager* manager, int generation)
        : m_manager(manager)
        , m_generation(generation)
    {
    }
    void walkerFileFound(std::string_view name, std::string_view parentPath, int) override
    {
        m_manager->queueItem(m_generation, m_manager->makeItem(name, parentPath));
    }
    void walkerSearchInterrupted() override { m_manager->searchInterruptedObjC(); }

private:
    SearchManager* m_manager;
    int m_generation;
};

SearchManager::SearchManager(NotificationCenter& center, QObject* parent)
    : QObject(parent)
    , m_center(center)
{
    m_sizePool.setMaxThreadCount(1);
}

SearchManager::~SearchManager()
{
    if (m_scan.isRunning()) {
        walkerCancel();
        m_scan.waitForFinished();
    }
    m_sizePool.clear();
    m_sizePool.waitForDone();
}

SearchManager* SearchManager::sharedManager()
{
    static SearchManager* instance =
        new SearchManager(NotificationCenter::defaultCenter(), QCoreApplication::instance());
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
    m_searchTemplate = searchText;
    m_searchLocation = folder;
    m_searchResultArray.clear();
    m_filteredSearchResultArray.clear();
    if (m_searchResultDialog)
        m_searchResultDialog->prepareForNewSearchResults();
    resumeSearchIfStopped();
    m_foundItemsMask = 0;

    const QString lower = searchText.toLower();
    if (folder.isEmpty() || lower.isEmpty())
        return StartResult::EmptyInput;
    const QByteArray needle = lower.toUtf8();
    if (needle.size() >= static_cast<qsizetype>(kSearchNeedleCapacity))
        return StartResult::TemplateTooLong;
    const QByteArray root = folder.toUtf8();

    openSearchResultDialog();
    m_itemsCounter = 0;
    {
        QMutexLocker lock(&m_hiddenMutex);
        m_hiddenNames.clear();
        m_inHiddenFolder.clear();
    }
    findFiles(needle, root, [this] {
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
    options.rootPath = folder.toStdString();
    options.needle = lowerTemplate.toStdString();
    options.delegate = delegate;
    options.unenteredFolders = MountTable::virtualMountPoints(MountTable::read());
    return options;
}

void SearchManager::findFiles(const QByteArray& lowerTemplate, const QByteArray& folder,
                              std::function<void()> completion)
{
    const int generation = ++m_generation;
    m_searching = true;
    m_scan = QtConcurrent::run([this, generation, lowerTemplate, folder, completion = std::move(completion)] {
        ScanSink sink(this, generation);
        walkerScan(walkerOptions(folder, lowerTemplate, &sink));
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
}

void SearchManager::fileFoundObjCWithFile(std::string_view name, std::string_view path, qint64)
{
    queueItem(m_generation.load(), makeItem(name, path));
}

SearchItemPtr SearchManager::makeItem(std::string_view name, std::string_view path)
{
    auto item = std::make_shared<SearchItem>();
    item->itemID = m_itemsCounter.fetch_add(1, std::memory_order_relaxed);
    item->rawFileName = QByteArray(name.data(), static_cast<qsizetype>(name.size()));
    item->rawFilePath = QByteArray(path.data(), static_cast<qsizetype>(path.size()));
    item->fileName = QString::fromUtf8(item->rawFileName);
    item->filePath = QString::fromUtf8(item->rawFilePath);
    const QByteArray full = item->nativeFullPath();

    struct statx info
    {
    };
    if (!statNoFollow(full, info))
        return item; // vanished since it was listed: kept, with empty attributes
    item->fileType = typeOfFile(full, info);
    item->lastUsedDate = toDate(info.stx_mtime);
    item->filePackage = S_ISDIR(info.stx_mode) && hasBundleExtension(item->rawFileName);
    item->fileInPackage = isFilePackagedAtPath(full);
    if (item->filePackage) {
        item->fileSize = 0;
        getFolderSizeForSearchItem(item);
    } else if (item->fileType == QLatin1String("inode/directory")) {
        item->fileSize = -1;
    } else {
        item->fileSize = static_cast<qint64>(info.stx_size);
    }
    item->fileHidden = item->fileInPackage ? false : getFileTypeHidden(full);
    item->fileInHiddenFolder = isFileInHiddenFolderAtPath(full);
    return item;
}

void SearchManager::queueItem(int generation, SearchItemPtr item)
{
    QMutexLocker lock(&m_pendingMutex);
    const bool first = m_pending.empty();
    m_pending.emplace_back(generation, std::move(item));
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

void SearchManager::cancelSearchByButton()
{
    m_startTime = static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
    walkerCancel();
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
    return static_cast<qint64>(walkerTotalFiles());
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
            if (SearchPaths::collapseSlashes(item->rawFilePath).contains(package))
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
    static const QList<QByteArray> extensions = {"app",   "bundle",        "framework", "plugin", "kext",  "xpc",
                                                 "appex", "photoslibrary", "rtfd",      "pkg",    "appdir"};
    const qsizetype dot = name.lastIndexOf('.');
    if (dot <= 0 || dot == name.size() - 1)
        return false;
    return extensions.contains(name.mid(dot + 1).toLower());
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
    QSet<QByteArray> names;
    const int fd = open(SearchPaths::join(folder, ".hidden").constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd >= 0) {
        QByteArray content;
        char chunk[4096];
        ssize_t got;
        while ((got = read(fd, chunk, sizeof chunk)) > 0 && content.size() < 16 * 1024 * 1024)
            content.append(chunk, got);
        close(fd);
        // One exact name per line, nothing trimmed.
        for (const QByteArray& line : content.split('\n'))
            if (!line.isEmpty())
                names.insert(line);
    }
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
    m_sizePool.start([this, item, folder] {
        const qint64 total = sumOfContents(folder);
        MainQueue::async(this, [item, total] { item->fileSize = total; });
    });
}

void SearchManager::waitForPackageSizes()
{
    m_sizePool.waitForDone();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}
