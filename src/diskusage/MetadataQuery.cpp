#include "MetadataQuery.h"

#include "FileTreeWalk.h"
#include "util/MainQueue.h"

#include <QFile>
#include <QPointer>
#include <QThreadPool>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <fcntl.h>

namespace {

std::int64_t lastUsed(const struct statx& st)
{
    return std::max<std::int64_t>(st.stx_atime.tv_sec, st.stx_mtime.tv_sec);
}

constexpr unsigned kMask = STATX_SIZE | STATX_ATIME | STATX_MTIME;

} // namespace

bool MetadataPredicate::matches(std::uint64_t size, const char* name) const
{
    if (size <= sizeAbove || (sizeBelow && size >= *sizeBelow))
        return false;
    if (nameSuffix.isEmpty())
        return true;
    const QByteArray suffix = QFile::encodeName(nameSuffix);
    const std::size_t length = std::strlen(name);
    return length >= std::size_t(suffix.size())
           && std::memcmp(name + length - std::size_t(suffix.size()), suffix.constData(), std::size_t(suffix.size()))
                  == 0;
}

MetadataQuery::MetadataQuery(QObject* parent)
    : QObject(parent)
{
}

MetadataQuery::~MetadataQuery()
{
    stopQuery();
}

std::vector<MetadataItem> MetadataQuery::gather(const MetadataPredicate& predicate, const QStringList& scopes,
                                                const std::atomic<bool>* cancel, std::uint64_t* unreadable)
{
    std::vector<MetadataItem> results;
    for (const QString& scope : scopes) {
        if (cancel && *cancel)
            break;
        const QByteArray native = QFile::encodeName(scope);
        struct statx st;
        if (::statx(AT_FDCWD, native.constData(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE | kMask, &st) != 0)
            continue;
        if (!S_ISDIR(st.stx_mode)) {
            const char* slash = std::strrchr(native.constData(), '/');
            if (S_ISREG(st.stx_mode) && predicate.matches(st.stx_size, slash ? slash + 1 : native.constData()))
                results.push_back({scope, st.stx_size, lastUsed(st)});
            continue;
        }
        FileTreeWalk::Options options;
        options.cancel = cancel;
        options.statxMask = kMask;
        FileTreeWalk walk(native.toStdString(), options);
        std::vector<std::vector<MetadataItem>> found(std::size_t(walk.threadCount()));
        walk.run([&](int worker, std::string_view folder, const char* name, const struct statx& entry) {
            if (!S_ISREG(entry.stx_mode) || !predicate.matches(entry.stx_size, name))
                return;
            QByteArray path;
            path.reserve(qsizetype(folder.size() + 1 + std::strlen(name)));
            path.append(folder.data(), qsizetype(folder.size()));
            if (!folder.empty() && folder.back() != '/')
                path.append('/');
            path.append(name);
            found[std::size_t(worker)].push_back({QFile::decodeName(path), entry.stx_size, lastUsed(entry)});
        });
        for (auto& part : found)
            std::move(part.begin(), part.end(), std::back_inserter(results));
        if (unreadable)
            *unreadable += walk.unreadableCount();
    }
    return results;
}

bool MetadataQuery::startQuery()
{
    if (m_gathering || m_scopes.isEmpty())
        return false;
    m_gathering = true;
    m_results.clear();
    m_unreadable = 0;
    m_cancel = std::make_shared<std::atomic<bool>>(false);
    QThreadPool::globalInstance()->start(
        [cancel = m_cancel, predicate = m_predicate, scopes = m_scopes, self = QPointer(this)] {
            std::uint64_t unreadable = 0;
            auto results = gather(predicate, scopes, cancel.get(), &unreadable);
            if (*cancel)
                return;
            // The pointer is only read on the query's own (main) thread.
            MainQueue::async([self, cancel, results, unreadable] {
                if (!self || *cancel)
                    return;
                self->m_results = results;
                self->m_unreadable = unreadable;
                self->m_gathering = false;
                emit self->didFinishGathering();
            });
        });
    return true;
}

void MetadataQuery::stopQuery()
{
    if (m_cancel && m_gathering)
        *m_cancel = true;
    m_gathering = false;
}
