#include "UserDefaults.h"

#include "HomeFolder.h"
#include "NotificationCenter.h"
#include "SettingsJson.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QJsonObject>
#include <QLockFile>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using SettingsJson::isNumeric;
using SettingsJson::sameValue;
using SettingsJson::toJson;
using SettingsJson::valuesOf;

struct DomainFile
{
    enum Status
    {
        Missing,
        Parsed,
        Corrupt,
        Unreadable
    };
    Status status = Missing;
    QJsonObject object;
    QString reason;
};

QString errnoText()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

// Reads the file without ever blocking or reading without end: a FIFO opens without waiting, and
// anything but a regular file of bounded size counts as corrupt.
DomainFile readDomainFile(const QString& path)
{
    DomainFile result;
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return result;
        result.status = errno == ELOOP ? DomainFile::Corrupt : DomainFile::Unreadable;
        result.reason = errnoText();
        return result;
    }
    struct stat st
    {
    };
    QByteArray data;
    result.status = DomainFile::Corrupt;
    if (::fstat(fd, &st) != 0) {
        result.status = DomainFile::Unreadable;
        result.reason = errnoText();
    } else if (!S_ISREG(st.st_mode)) {
        result.reason = QStringLiteral("not a regular file");
    } else if (st.st_size > UserDefaults::kMaxFileSize) {
        result.reason = QStringLiteral("larger than %1 bytes").arg(UserDefaults::kMaxFileSize);
    } else {
        // The size may change while reading: read on until the end, but never past the limit.
        const qsizetype cap = UserDefaults::kMaxFileSize + 1;
        data.resize(std::min<qsizetype>(qsizetype(st.st_size) + 4096, cap));
        qsizetype got = 0;
        for (;;) {
            if (got == data.size()) {
                if (data.size() == cap)
                    break;
                data.resize(std::min<qsizetype>(data.size() * 2, cap));
            }
            const ssize_t n = ::read(fd, data.data() + got, size_t(data.size() - got));
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0) {
                result.status = DomainFile::Unreadable;
                result.reason = errnoText();
                break;
            }
            if (n == 0)
                break;
            got += n;
        }
        data.truncate(got);
        if (result.reason.isEmpty() && got > UserDefaults::kMaxFileSize)
            result.reason = QStringLiteral("larger than %1 bytes").arg(UserDefaults::kMaxFileSize);
    }
    ::close(fd);
    if (!result.reason.isEmpty())
        return result;
    if (auto object = SettingsJson::parseObject(data, &result.reason)) {
        result.status = DomainFile::Parsed;
        result.object = std::move(*object);
    }
    return result;
}

} // namespace

UserDefaults::UserDefaults(QString filePath)
    : m_filePath(std::move(filePath))
{
    load();
    watch();
}

UserDefaults::~UserDefaults()
{
    delete m_reloadTimer.data();
}

QString UserDefaults::domainPath(const QString& domainName)
{
    // Also links in the check that stops a process without a home before it writes under "/".
    HomeFolder::ensure();
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/trovix/") +
           domainName + QStringLiteral(".json");
}

QString UserDefaults::didChangeNotificationName()
{
    return QStringLiteral("UserDefaultsDidChangeNotification");
}

UserDefaults& UserDefaults::standardUserDefaults()
{
    static UserDefaults defaults(domainPath(QStringLiteral("com.quorbel.trovix")));
    return defaults;
}

UserDefaults& UserDefaults::suite(const QString& suiteName)
{
    // Suites live as long as the process, like the platform's own.
    static std::map<QString, std::unique_ptr<UserDefaults>> suites;
    auto& slot = suites[suiteName];
    if (!slot)
        slot = std::make_unique<UserDefaults>(domainPath(suiteName));
    return *slot;
}

void UserDefaults::reportOnce(const QString& message)
{
    if (m_reported)
        return;
    m_reported = true;
    std::fprintf(stderr, "trovix: settings file %s %s\n", qPrintable(m_filePath), qPrintable(message));
}

void UserDefaults::load()
{
    m_values.clear();
    m_pending.clear();
    m_readOnly = false;
    const DomainFile file = readDomainFile(m_filePath);
    switch (file.status) {
    case DomainFile::Missing:
        return;
    case DomainFile::Parsed:
        m_values = valuesOf(file.object);
        return;
    case DomainFile::Unreadable:
        // The user's values are still in there: leave the file alone and change nothing this session.
        m_readOnly = true;
        reportOnce(QStringLiteral("cannot be read (%1); using defaults, and settings will not be saved "
                                  "this session")
                       .arg(file.reason));
        return;
    case DomainFile::Corrupt:
        break;
    }
    const QString aside = m_filePath + QStringLiteral(".corrupt-") +
                          QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-hhmmss"));
    if (QFile::rename(m_filePath, aside)) {
        reportOnce(
            QStringLiteral("could not be read (%1); kept as %2, starting with defaults").arg(file.reason, aside));
    } else {
        m_readOnly = true;
        reportOnce(QStringLiteral("could not be read (%1) nor moved aside; settings will not be saved this session")
                       .arg(file.reason));
    }
}

void UserDefaults::adopt(QVariantMap values)
{
    // This process's unwritten changes win over what the file says.
    for (const QString& key : std::as_const(m_pending)) {
        if (m_values.contains(key))
            values.insert(key, m_values.value(key));
        else
            values.remove(key);
    }
    QStringList changed;
    for (auto it = values.begin(); it != values.end(); ++it) {
        if (!sameValue(m_values.value(it.key()), it.value()))
            changed.append(it.key());
    }
    for (auto it = m_values.begin(); it != m_values.end(); ++it) {
        if (!values.contains(it.key()))
            changed.append(it.key());
    }
    m_values = std::move(values);
    if (changed.isEmpty())
        return;
    Q_EMIT valuesChanged(changed);
    NotificationCenter::defaultCenter().post(didChangeNotificationName(), this, {{QStringLiteral("keys"), changed}});
}

void UserDefaults::reload()
{
    if (m_readOnly)
        return;
    // A file caught half-written by a program that does not replace it atomically parses as garbage:
    // keep the current values and wait for its next change.
    const DomainFile file = readDomainFile(m_filePath);
    if (file.status == DomainFile::Parsed)
        adopt(valuesOf(file.object));
    else if (file.status == DomainFile::Missing)
        adopt({});
}

namespace {
// One watcher for every store of the process (inotify instances are few per user), owned by the
// application object so that a store outliving it never touches a dead event loop.
QFileSystemWatcher* sharedWatcher()
{
    static QPointer<QFileSystemWatcher> watcher;
    if (!watcher && QCoreApplication::instance())
        watcher = new QFileSystemWatcher(QCoreApplication::instance());
    return watcher;
}
} // namespace

void UserDefaults::watch()
{
    if (m_readOnly)
        return;
    m_watcher = sharedWatcher();
    if (!m_watcher)
        return;
    m_reloadTimer = new QTimer(m_watcher);
    m_reloadTimer->setSingleShot(true);
    m_reloadTimer->setInterval(50);
    QObject::connect(m_reloadTimer, &QTimer::timeout, this, [this] {
        rearmWatch();
        reload();
    });
    QObject::connect(m_watcher, &QFileSystemWatcher::fileChanged, this, [this](const QString& path) {
        if (path == m_filePath)
            m_reloadTimer->start();
    });
    QObject::connect(m_watcher, &QFileSystemWatcher::directoryChanged, this, [this](const QString& path) {
        if (path == m_watchedFolder)
            m_reloadTimer->start();
    });
    rearmWatch();
}

void UserDefaults::rearmWatch()
{
    if (!m_watcher)
        return;
    // The folder sees the file replaced; the file itself sees writes in place. A replaced file is a new
    // inode, so the file watch is renewed each time. Until the folder exists, its nearest parent is
    // watched. Paths are never dropped, as other stores may share them.
    QFileInfo folder(QFileInfo(m_filePath).absolutePath());
    while (!folder.exists() && !folder.isRoot())
        folder = QFileInfo(folder.absolutePath());
    m_watchedFolder = folder.absoluteFilePath();
    if (!m_watcher->directories().contains(m_watchedFolder))
        m_watcher->addPath(m_watchedFolder);
    if (m_watcher->files().contains(m_filePath))
        m_watcher->removePath(m_filePath);
    const QFileInfo file(m_filePath);
    if (file.isFile() && file.isReadable())
        m_watcher->addPath(m_filePath);
}

QVariant UserDefaults::objectForKey(const QString& key) const
{
    return m_values.value(key);
}

bool UserDefaults::isNumber(const QString& key) const
{
    return isNumeric(m_values.value(key));
}
bool UserDefaults::boolForKey(const QString& key) const
{
    const QVariant v = m_values.value(key);
    if (v.typeId() == QMetaType::Bool)
        return v.toBool();
    if (isNumeric(v))
        return v.toDouble() != 0.0;
    if (v.typeId() == QMetaType::QString) {
        const QString s = v.toString().trimmed().toLower();
        return s == QLatin1String("yes") || s == QLatin1String("true") || s.toLongLong() != 0;
    }
    return false;
}

qint64 UserDefaults::integerForKey(const QString& key) const
{
    const QVariant v = m_values.value(key);
    if (v.typeId() == QMetaType::Bool)
        return v.toBool() ? 1 : 0;
    if (v.typeId() == QMetaType::Double)
        return static_cast<qint64>(v.toDouble());
    if (isNumeric(v))
        return v.toLongLong();
    if (v.typeId() == QMetaType::QString)
        return static_cast<qint64>(v.toString().trimmed().toDouble());
    return 0;
}

double UserDefaults::doubleForKey(const QString& key) const
{
    const QVariant v = m_values.value(key);
    if (v.typeId() == QMetaType::Bool)
        return v.toBool() ? 1.0 : 0.0;
    if (isNumeric(v))
        return v.toDouble();
    if (v.typeId() == QMetaType::QString)
        return v.toString().trimmed().toDouble();
    return 0.0;
}

QString UserDefaults::stringForKey(const QString& key) const
{
    const QVariant v = m_values.value(key);
    if (v.typeId() == QMetaType::QString)
        return v.toString();
    if (isNumeric(v))
        return v.toString();
    return {};
}

QDateTime UserDefaults::dateForKey(const QString& key) const
{
    const QVariant v = m_values.value(key);
    return v.typeId() == QMetaType::QDateTime ? v.toDateTime() : QDateTime();
}

bool UserDefaults::getBoolValueForKey(const QString& key, bool defaultValue) const
{
    return contains(key) ? boolForKey(key) : defaultValue;
}

quint64 UserDefaults::getUnsignedLongLongValueForKey(const QString& key, quint64 defaultValue) const
{
    if (!contains(key))
        return defaultValue;
    const QVariant v = m_values.value(key);
    return v.typeId() == QMetaType::ULongLong ? v.toULongLong() : static_cast<quint64>(integerForKey(key));
}

QVariantList UserDefaults::getArrayValueForKey(const QString& key, const QVariantList& defaultValue) const
{
    const QVariant v = m_values.value(key);
    return v.typeId() == QMetaType::QVariantList ? v.toList() : defaultValue;
}

void UserDefaults::saveBoolValue(bool value, const QString& key)
{
    setObject(value, key);
}

void UserDefaults::saveUnsignedLongLongValue(quint64 value, const QString& key)
{
    setObject(QVariant::fromValue<qint64>(static_cast<qint64>(value)), key);
}

void UserDefaults::saveArrayValue(const QVariantList& value, const QString& key)
{
    setObject(value, key);
}

void UserDefaults::setObject(const QVariant& value, const QString& key)
{
    setValues({{key, value}});
}

void UserDefaults::setValues(const QVariantMap& values)
{
    bool changed = false;
    for (auto it = values.begin(); it != values.end(); ++it) {
        if (sameValue(m_values.value(it.key()), it.value()))
            continue;
        changed = true;
        m_pending.insert(it.key());
        if (it.value().isValid())
            m_values.insert(it.key(), it.value());
        else
            m_values.remove(it.key());
    }
    if (changed)
        synchronize();
}

void UserDefaults::removeObjectForKey(const QString& key)
{
    setValues({{key, QVariant()}});
}

void UserDefaults::removePersistentDomain()
{
    m_values.clear();
    m_pending.clear();
    if (!m_readOnly)
        QFile::remove(m_filePath);
}

bool UserDefaults::synchronize()
{
    if (m_readOnly)
        return false;
    if (m_pending.isEmpty()) {
        reload();
        return true;
    }
    QDir().mkpath(QFileInfo(m_filePath).absolutePath());
    // Between reading the file and replacing it no other writer may come in, or its keys would be lost.
    QLockFile lock(m_filePath + QStringLiteral(".lock"));
    lock.setStaleLockTime(10000);
    if (!lock.tryLock(5000))
        std::fprintf(stderr, "trovix: settings lock %s is held elsewhere; writing anyway\n",
                     qPrintable(m_filePath + QStringLiteral(".lock")));

    const DomainFile current = readDomainFile(m_filePath);
    QJsonObject merged;
    switch (current.status) {
    case DomainFile::Missing:
        break;
    case DomainFile::Parsed:
        merged = current.object;
        break;
    case DomainFile::Unreadable:
        m_readOnly = true;
        reportOnce(QStringLiteral("cannot be read (%1); settings will not be saved this session").arg(current.reason));
        return false;
    case DomainFile::Corrupt: {
        // Spoilt while this process ran: keep it aside and write out what this process knows.
        const QString aside = m_filePath + QStringLiteral(".corrupt-") +
                              QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-hhmmss"));
        if (!QFile::rename(m_filePath, aside)) {
            m_readOnly = true;
            reportOnce(QStringLiteral("could not be read (%1) nor moved aside; settings will not be saved "
                                      "this session")
                           .arg(current.reason));
            return false;
        }
        reportOnce(QStringLiteral("could not be read (%1); kept as %2").arg(current.reason, aside));
        merged = toJson(m_values).toObject();
        break;
    }
    }
    // Only the keys this process changed; everything else stays exactly as the file has it.
    for (const QString& key : std::as_const(m_pending)) {
        if (m_values.contains(key))
            merged.insert(key, toJson(m_values.value(key)));
        else
            merged.remove(key);
    }

    QSaveFile file(m_filePath);
    const QByteArray text = SettingsJson::serialize(merged);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit()) {
        std::fprintf(stderr, "trovix: cannot write settings %s: %s\n", qPrintable(m_filePath),
                     qPrintable(file.errorString()));
        return false;
    }
    m_pending.clear();
    adopt(valuesOf(merged));
    return true;
}
