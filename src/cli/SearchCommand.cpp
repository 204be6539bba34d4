// trovix search NEEDLE [FOLDER]: finds entries whose name contains NEEDLE (ASCII letters folded), with
// hidden files and package contents, and prints their full paths: as they are found, or, with --sort, all
// at the end in the results window's column order.
#include "Commands.h"

#include "core/NotificationCenter.h"
#include "core/Settings.h"
#include "search/SearchManager.h"
#include "search/SearchResultSort.h"
#include "search/Walker.h"
#include "util/DateExtra.h"
#include "util/VolumeName.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusReply>
#include <QDBusUnixFileDescriptor>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QTimer>
#include <QUrl>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace cli {
namespace {

constexpr int kExitFound = 0;
constexpr int kExitNothing = 1;
constexpr int kExitError = 2;
constexpr int kExitNoIndex = 3;
constexpr int kExitInterrupted = 130; // the shell's convention for Ctrl-C
constexpr int kProgressMillis = 100;
constexpr size_t kOutputChunk = 256 * 1024;

volatile std::sig_atomic_t gInterrupted = 0;
// The first failed write to standard output (errno), 0 while all went well.
std::atomic<int> gWriteError{0};

extern "C" void onInterrupt(int)
{
    gInterrupted = 1;
}

struct Options
{
    QString needle;
    QString folder;
    QByteArray rawNeedle; // the argument's own bytes (names need not be UTF-8)
    QByteArray rawFolder;
    uint filter = SearchItemClass::All;
    bool longFormat = false;
    bool countOnly = false;
    bool nulSeparated = false;
    bool verbose = false;
    std::optional<SearchSortKey> sortKey;
    bool fromIndex = false; // ask the tray program's name index instead of walking
};

int usageError(const QString& message)
{
    std::fprintf(stderr, "trovix search: %s\n", message.toLocal8Bit().constData());
    std::fprintf(stderr, "Usage: trovix search NEEDLE [FOLDER] [--filter regular,hidden,package] [--long] [--count] "
                         "[--sort name|folder|size|date|kind] [-0] [--verbose] [--index]\n");
    return kExitError;
}

bool parseFilter(const QString& text, uint& mask)
{
    mask = 0;
    for (const QString& word : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QString w = word.trimmed().toLower();
        if (w == QLatin1String("regular"))
            mask |= SearchItemClass::Regular;
        else if (w == QLatin1String("hidden"))
            mask |= SearchItemClass::Hidden;
        else if (w == QLatin1String("package"))
            mask |= SearchItemClass::PackageContents;
        else if (w == QLatin1String("all"))
            mask |= SearchItemClass::All;
        else
            return false;
    }
    return mask != 0;
}

// Returns an exit status when the arguments are unusable, -1 when they are fine.
int parse(const QStringList& args, Options& options)
{
    QStringList positional;
    bool optionsEnded = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& arg = args.at(i);
        if (optionsEnded || !arg.startsWith(QLatin1Char('-')) || arg == QLatin1String("-")) {
            positional.append(arg);
        } else if (arg == QLatin1String("--")) {
            optionsEnded = true;
        } else if (arg == QLatin1String("--long") || arg == QLatin1String("-l")) {
            options.longFormat = true;
        } else if (arg == QLatin1String("--count") || arg == QLatin1String("-c")) {
            options.countOnly = true;
        } else if (arg == QLatin1String("-0") || arg == QLatin1String("--print0")) {
            options.nulSeparated = true;
        } else if (arg == QLatin1String("--index")) {
            options.fromIndex = true;
        } else if (arg == QLatin1String("--verbose") || arg == QLatin1String("-v")) {
            options.verbose = true;
        } else if (arg == QLatin1String("--filter") || arg.startsWith(QLatin1String("--filter="))) {
            QString value;
            if (arg == QLatin1String("--filter")) {
                if (i + 1 >= args.size())
                    return usageError(QStringLiteral("--filter needs a value"));
                value = args.at(++i);
            } else {
                value = arg.mid(9);
            }
            if (!parseFilter(value, options.filter))
                return usageError(QStringLiteral("unknown filter \"%1\" (use regular, hidden, package)").arg(value));
        } else if (arg == QLatin1String("--sort") || arg.startsWith(QLatin1String("--sort="))) {
            QString value;
            if (arg == QLatin1String("--sort")) {
                if (i + 1 >= args.size())
                    return usageError(QStringLiteral("--sort needs a value"));
                value = args.at(++i);
            } else {
                value = arg.mid(7);
            }
            options.sortKey = SearchResultSort::keyFromWord(value);
            if (!options.sortKey)
                return usageError(
                    QStringLiteral("unknown sort \"%1\" (use name, folder, size, date, kind)").arg(value));
        } else {
            return usageError(QStringLiteral("unknown option %1").arg(arg));
        }
    }
    if (positional.isEmpty())
        return usageError(QStringLiteral("no search text given"));
    if (positional.size() > 2)
        return usageError(QStringLiteral("too many arguments"));
    options.needle = positional.at(0);
    if (positional.size() == 2)
        options.folder = positional.at(1);
    return -1;
}

// The raw bytes of an argument: the command's arguments are the last ones of the process's, so they
// are taken from /proc/self/cmdline when they decode to what Qt decoded; else Qt's text re-encoded.
QByteArray rawArgument(const QString& decoded, const QStringList& args)
{
    static const QByteArrayList processArgs = [] {
        QFile cmdline(QStringLiteral("/proc/self/cmdline"));
        QByteArrayList list;
        if (cmdline.open(QIODevice::ReadOnly))
            list = cmdline.readAll().split('\0');
        if (!list.isEmpty() && list.last().isEmpty())
            list.removeLast();
        return list;
    }();
    const qsizetype index = args.lastIndexOf(decoded);
    const qsizetype processIndex = processArgs.size() - args.size() + index;
    if (index >= 0 && processIndex >= 0 && processIndex < processArgs.size() &&
        QFile::decodeName(processArgs.at(processIndex)) == decoded)
        return processArgs.at(processIndex);
    return QFile::encodeName(decoded);
}

// The stored search location when it still names a folder, else the home folder.
QString defaultFolder()
{
    const QVariant stored = Settings::shared().getSearchLocation();
    QString path = stored.typeId() == QMetaType::QUrl ? stored.toUrl().toLocalFile() : stored.toString();
    if (!path.isEmpty() && QFileInfo(path).isDir())
        return path;
    return QDir::homePath();
}

// False once a write has failed (this one or an earlier one): the output is then incomplete.
bool writeAll(const char* data, size_t size)
{
    if (gWriteError.load() != 0)
        return false;
    while (size > 0) {
        const ssize_t done = ::write(STDOUT_FILENO, data, size);
        if (done < 0) {
            if (errno == EINTR)
                continue;
            int expected = 0;
            gWriteError.compare_exchange_strong(expected, errno);
            return false;
        }
        data += done;
        size -= static_cast<size_t>(done);
    }
    return true;
}

// Prints matches straight from the walker threads; used when nothing needs classifying.
class PathPrinter : public WalkerDelegate
{
public:
    // ended runs when the last match is in: every walker has stopped.
    PathPrinter(char terminator, bool print, WalkerControl& control, std::function<void()> ended)
        : m_terminator(terminator)
        , m_print(print)
        , m_control(control)
        , m_ended(std::move(ended))
    {
    }
    ~PathPrinter() override { flush(); }

    void walkerFileFound(std::string_view name, std::string_view parent, int) override
    {
        m_found.fetch_add(1, std::memory_order_relaxed);
        if (!m_print || gInterrupted)
            return;
        // A walk of "/" reports "//usr" one level down: print one slash.
        if (parent.size() > 1 && parent[0] == '/' && parent[1] == '/')
            parent.remove_prefix(1);
        std::lock_guard lock(m_mutex);
        m_buffer.append(parent);
        if (parent.empty() || parent.back() != '/')
            m_buffer.push_back('/');
        m_buffer.append(name);
        m_buffer.push_back(m_terminator);
        if (m_buffer.size() >= kFlushAt) {
            if (!writeAll(m_buffer.data(), m_buffer.size()))
                m_control.cancel(); // nobody reads the rest (a closed pipe, a full disk)
            m_buffer.clear();
        }
    }

    void flush()
    {
        std::lock_guard lock(m_mutex);
        if (!gInterrupted)
            writeAll(m_buffer.data(), m_buffer.size());
        m_buffer.clear();
    }
    long found() const { return m_found.load(std::memory_order_relaxed); }
    void walkerScanEnded() override { m_ended(); }

private:
    static constexpr size_t kFlushAt = 256 * 1024;
    const char m_terminator;
    const bool m_print;
    WalkerControl& m_control;
    std::function<void()> m_ended;
    std::mutex m_mutex;
    std::string m_buffer;
    std::atomic<long> m_found{0};
};

class Progress
{
public:
    explicit Progress(bool enabled)
        : m_enabled(enabled)
    {
    }
    void show(long found, long total)
    {
        if (m_enabled)
            std::fprintf(stderr, "\rFound %ld / %ld", found, total);
    }
    void clear()
    {
        if (m_enabled)
            std::fputs("\r\033[K", stderr);
    }

private:
    bool m_enabled;
};

const char* classOf(const SearchItem& item)
{
    if (item.fileInPackage)
        return "package";
    if (item.fileHidden || item.fileInHiddenFolder)
        return "hidden";
    return "regular";
}

// The columns before the path of a long line. A listing repeats few kinds, sizes and dates: each text
// is made once, and all dates are told against the same "now".
class LongColumns
{
public:
    void append(std::string& out, const SearchItem& item)
    {
        const auto add = [&out](const QByteArray& text) {
            out.append(text.constData(), static_cast<size_t>(text.size()));
        };
        add(kindText(item.typeIndex));
        out.push_back('\t');
        if (item.fileSize < 0)
            out.append("--");
        else
            add(sizeText(item.fileSize));
        out.push_back('\t');
        if (item.modifiedMSecs == SearchItem::kNoDate)
            out.push_back('-');
        else
            add(m_dates.utf8Text(item.modifiedMSecs));
        out.push_back('\t');
        out.append(classOf(item));
        out.push_back('\t');
    }

private:
    static constexpr size_t kMaxSizes = 4096;

    const QByteArray& kindText(quint16 typeIndex)
    {
        if (typeIndex >= m_kinds.size())
            m_kinds.resize(typeIndex + 1);
        QByteArray& text = m_kinds[typeIndex];
        if (text.isNull()) {
            const QString kind = SearchTypes::name(typeIndex);
            text = kind.isEmpty() ? QByteArray("-") : kind.toUtf8();
        }
        return text;
    }
    const QByteArray& sizeText(qint64 size)
    {
        if (auto it = m_sizes.find(size); it != m_sizes.end())
            return it->second;
        if (m_sizes.size() >= kMaxSizes)
            m_sizes.clear(); // a listing of many sizes: start over rather than grow without end
        return m_sizes.emplace(size, VolumeName::convertToStringFromFileSize(static_cast<quint64>(size)).toUtf8())
            .first->second;
    }

    std::vector<QByteArray> m_kinds;
    std::unordered_map<qint64, QByteArray> m_sizes;
    DateExtra::IntervalTextCache m_dates;
};

int finish(long found, long total, const Options& options, int skippedFolders)
{
    if (options.countOnly) {
        const QByteArray line =
            QByteArray("Found ") + QByteArray::number(found) + " / " + QByteArray::number(total) + '\n';
        writeAll(line.constData(), static_cast<size_t>(line.size()));
    }
    if (gInterrupted)
        return kExitInterrupted;
    if (const int error = gWriteError.load(); error != 0) {
        std::fprintf(stderr, "trovix search: could not write the results: %s\n", std::strerror(error));
        return kExitError;
    }
    if (skippedFolders > 0) {
        std::fprintf(stderr,
                     "trovix search: %d folders could not be searched (too many open files or too little memory)\n",
                     skippedFolders);
        return kExitError;
    }
    return found > 0 ? kExitFound : kExitNothing;
}

// Everything is said: the system takes back the results, the scan's tree and its threads at once, where
// freeing them one by one would keep the user waiting.
[[noreturn]] void endProcess(int status)
{
    std::fflush(nullptr);
    std::_Exit(status);
}

// Nothing to classify: the walker's matches go to standard output as they come.
[[noreturn]] void searchUnclassified(const QByteArray& root, const QByteArray& needle, const Options& options,
                                     Progress& progress)
{
    auto control = std::make_shared<WalkerControl>();
    std::mutex mutex;
    std::condition_variable ended;
    bool done = false;
    const auto markDone = [&] {
        std::lock_guard lock(mutex);
        done = true;
        ended.notify_one();
    };
    PathPrinter printer(options.nulSeparated ? '\0' : '\n', !options.countOnly, *control, markDone);
    // Not joined: the walk is over when its walkers stop, before its tree is freed.
    std::thread scan([&] {
        WalkerOptions walk = SearchManager::walkerOptions(root, needle, &printer);
        walk.control = control;
        walkerScan(walk);
        markDone(); // a scan that was refused never ends as above
    });
    bool cancelled = false;
    int ticks = 0;
    for (;;) {
        {
            // Woken at once when the walk ends; every 10 ms otherwise, for Ctrl-C and the progress line.
            std::unique_lock lock(mutex);
            if (ended.wait_for(lock, std::chrono::milliseconds(10), [&] { return done; }))
                break;
        }
        if (gInterrupted && !cancelled) {
            cancelled = true;
            control->cancel();
        }
        if (++ticks % (kProgressMillis / 10) == 0)
            progress.show(printer.found(), control->filesSeen());
    }
    printer.flush();
    progress.clear();
    endProcess(finish(printer.found(), control->filesSeen(), options, control->foldersSkipped()));
}

// Filters or long columns need every match classified: the search manager does it.
[[noreturn]] void searchClassified(const QByteArray& root, const QByteArray& needle, const Options& options,
                                   Progress& progress)
{
    NotificationCenter center;
    SearchManager manager(center);
    manager.setFilterMask(options.filter);
    const char terminator = options.nulSeparated ? '\0' : '\n';
    // Without TZ the C library looks at /etc/localtime again for every date made local, several times
    // per line; naming the same file once keeps the answer and drops the system calls.
    if (options.longFormat && !qEnvironmentVariableIsSet("TZ") && QFile::exists(QStringLiteral("/etc/localtime")))
        qputenv("TZ", ":/etc/localtime");
    LongColumns columns;
    std::string out;
    // Lines go out in the order found, as they come, but for packages: a package's size is summed on
    // other threads, so its line waits for the end. Sorted results are all printed at the end.
    std::vector<qsizetype> packagesHeld;
    const auto printLine = [&](const SearchItem& item) {
        if (options.longFormat)
            columns.append(out, item);
        item.appendNativeFullPath(out);
        out.push_back(terminator);
        if (out.size() < kOutputChunk)
            return true;
        const bool written = writeAll(out.data(), out.size());
        out.clear();
        return written;
    };
    const auto flushLines = [&] {
        writeAll(out.data(), out.size());
        out.clear();
    };
    qsizetype printed = 0;
    const auto printNew = [&] {
        if (options.countOnly || options.sortKey || gInterrupted || gWriteError.load() != 0)
            return;
        const QList<SearchItemPtr>& items = manager.getFilteredSearchResultArray();
        for (; printed < items.size() && !gInterrupted; ++printed) {
            const SearchItem& item = *items.at(printed);
            if (options.longFormat && item.filePackage)
                packagesHeld.push_back(printed);
            else if (!printLine(item))
                break;
        }
        if (gInterrupted)
            return; // the user asked to stop: not one more line
        flushLines();
        if (gWriteError.load() != 0)
            manager.cancelSearchByButton();
    };

    QEventLoop loop;
    QObject::connect(&manager, &SearchManager::searchResultsChanged, &loop, printNew);
    QObject::connect(&manager, &SearchManager::searchFinished, &loop, &QEventLoop::quit);
    QTimer tick;
    bool cancelled = false;
    QObject::connect(&tick, &QTimer::timeout, &loop, [&] {
        if (gInterrupted && !cancelled) {
            cancelled = true;
            manager.cancelSearchByButton();
        }
        progress.show(manager.getFilteredSearchResultArray().size(), manager.totalFiles());
    });
    tick.start(kProgressMillis);
    if (manager.performSearchWithBytes(needle, root) != SearchManager::StartResult::Started)
        endProcess(usageError(QStringLiteral("the search could not start")));
    loop.exec();
    tick.stop();
    printNew();
    progress.clear();

    QList<SearchItemPtr>& items = manager.getFilteredSearchResultArray();
    const bool printsRest = (options.sortKey || !packagesHeld.empty()) && !options.countOnly;
    if (printsRest && !gInterrupted && gWriteError.load() == 0) {
        // A package's size is its contents' sum, counted on other threads.
        if (options.longFormat || options.sortKey == SearchSortKey::Size)
            manager.waitForPackageSizes();
        if (options.sortKey) {
            SearchResultSort::sort(items, *options.sortKey, true);
            for (const SearchItemPtr& item : std::as_const(items))
                if (gInterrupted || !printLine(*item))
                    break;
        } else {
            for (const qsizetype index : packagesHeld)
                if (gInterrupted || !printLine(*items.at(index)))
                    break;
        }
        if (!gInterrupted)
            flushLines();
    }
    endProcess(finish(static_cast<long>(items.size()), static_cast<long>(manager.totalFiles()), options,
                      manager.foldersSkipped()));
}

// The tray program's index answers at once, through a pipe (no message size limit); its paths are
// printed as the walk prints them.
int searchIndex(const QByteArray& root, const QByteArray& needle, const Options& options)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        std::fprintf(stderr, "trovix search: %s\n", std::strerror(errno));
        return kExitError;
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(QStringLiteral("com.quorbel.trovix"), QStringLiteral("/Index"),
                                       QStringLiteral("com.quorbel.trovix.Index"), QStringLiteral("QueryToFd"));
    call << needle << root << 0 << QVariant::fromValue(QDBusUnixFileDescriptor(ends[1]));
    ::close(ends[1]);
    QDBusPendingCall pending =
        bus.isConnected() ? bus.asyncCall(call, 60000) : QDBusPendingCall::fromError(QDBusError());
    // The call keeps a copy of the write end, so no end of file comes: the program writes every path
    // before it replies, so once the reply is in, what the pipe holds is the rest.
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    const char terminator = options.nulSeparated ? '\0' : '\n';
    long found = 0;
    std::vector<char> buffer(256 * 1024);
    const auto drain = [&] {
        for (;;) {
            const ssize_t got = ::read(ends[0], buffer.data(), buffer.size());
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                return;
            for (ssize_t i = 0; i < got; ++i) {
                if (buffer[static_cast<size_t>(i)] == '\0') {
                    ++found;
                    buffer[static_cast<size_t>(i)] = terminator;
                }
            }
            if (!options.countOnly)
                writeAll(buffer.data(), static_cast<size_t>(got));
        }
    };
    while (!pending.isFinished()) {
        pollfd readable{ends[0], POLLIN, 0};
        ::poll(&readable, 1, 20);
        drain();
    }
    drain();
    ::close(ends[0]);
    pending.waitForFinished();
    const QDBusReply<qlonglong> reply = pending.reply();
    if (!reply.isValid()) {
        const QDBusError error = reply.error();
        QString why;
        if (!bus.isConnected())
            why = QStringLiteral("no session bus");
        else if (error.type() == QDBusError::ServiceUnknown || error.type() == QDBusError::UnknownObject)
            why = QStringLiteral("the tray program is not running");
        else
            why = error.message();
        std::fprintf(stderr, "trovix search: no index available: %s; search without --index to walk the disk\n",
                     why.toLocal8Bit().constData());
        return kExitNoIndex;
    }
    return finish(found, found, options, 0);
}

} // namespace

int runSearch(const QStringList& args)
{
    Options options;
    if (const int status = parse(args, options); status >= 0)
        return status;
    if (options.needle.isEmpty())
        return usageError(QStringLiteral("the search text is empty: nothing to search"));
    const QByteArray needle = rawArgument(options.needle, args);
    if (needle.size() >= static_cast<qsizetype>(kSearchNeedleCapacity)) {
        QString message = SearchManager::templateTooLongMessage(needle.size());
        message[0] = message[0].toLower();
        message.chop(1);
        return usageError(message);
    }

    const QByteArray given =
        options.folder.isEmpty() ? QFile::encodeName(defaultFolder()) : rawArgument(options.folder, args);
    const QByteArray rootBytes = SearchPaths::cleanFolder(given);
    struct stat info
    {
    };
    if (rootBytes.isEmpty() || ::stat(rootBytes.constData(), &info) != 0) {
        std::fprintf(stderr, "trovix search: %s: %s\n", given.constData(), std::strerror(errno));
        return kExitError;
    }
    if (!S_ISDIR(info.st_mode)) {
        std::fprintf(stderr, "trovix search: %s: not a folder\n", rootBytes.constData());
        return kExitError;
    }
    if (const int fd = ::open(rootBytes.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); fd >= 0) {
        ::close(fd);
    } else {
        std::fprintf(stderr, "trovix search: %s: %s\n", rootBytes.constData(), std::strerror(errno));
        return kExitError;
    }

    if (options.fromIndex) {
        if (options.longFormat || options.filter != SearchItemClass::All || options.sortKey)
            return usageError(QStringLiteral("--index prints paths only; --long, --filter and --sort need the walk"));
        gWriteError = 0;
        return searchIndex(rootBytes, needle, options);
    }
    if (options.verbose)
        walkerSetVerbose(true);
    // Progress would mix with the paths on a terminal; it is shown when the results go elsewhere.
    Progress progress(isatty(STDERR_FILENO) && (options.countOnly || !isatty(STDOUT_FILENO)));

    gInterrupted = 0;
    gWriteError = 0;
    struct sigaction action
    {
    };
    action.sa_handler = onInterrupt;
    // A second Ctrl-C ends the process at once.
    action.sa_flags = SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    walkerResume();

    const bool classify = options.longFormat || options.filter != SearchItemClass::All || options.sortKey;
    if (classify)
        searchClassified(rootBytes, needle, options, progress);
    searchUnclassified(rootBytes, needle, options, progress);
}

} // namespace cli
