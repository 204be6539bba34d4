#include "UserDefaults.h"

#include "HomeFolder.h"
#include "NotificationCenter.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLockFile>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kDateTag = QStringLiteral("$date");
const QString kDataTag = QStringLiteral("$data");
const QString kUrlTag = QStringLiteral("$url");
// QJsonDocument reads "1.0" as the integer 1. Before parsing, every number written with a decimal point
// or an exponent is turned into a string with this prefix, which reads back as a double.
const QString kDoubleMark = QString(QChar(0)) + QLatin1Char('#');

// A double's JSON text, with a decimal point or an exponent even when it is whole.
QByteArray doubleText(double d)
{
    if (!std::isfinite(d))
        return "null";
    QByteArray text = QByteArray::number(d, 'g', QLocale::FloatingPointShortest);
    if (!text.contains('.') && !text.contains('e'))
        text += ".0";
    return text;
}

QByteArray markDoubles(const QByteArray& text)
{
    static const QRegularExpression number(QStringLiteral("^-?(0|[1-9][0-9]*)(\\.[0-9]+)?([eE][+-]?[0-9]+)?$"));
    QByteArray out;
    out.reserve(text.size() + text.size() / 8);
    bool inString = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char c = text.at(i);
        if (inString) {
            out += c;
            if (c == '\\' && i + 1 < text.size())
                out += text.at(++i);
            else if (c == '"')
                inString = false;
            continue;
        }
        if (c == '"') {
            inString = true;
            out += c;
            continue;
        }
        if (c != '-' && (c < '0' || c > '9')) {
            out += c;
            continue;
        }
        qsizetype end = i;
        while (end < text.size() && std::strchr("0123456789+-.eE", text.at(end)) && text.at(end) != '\0')
            ++end;
        const QByteArray token = text.mid(i, end - i);
        const bool fractional = token.contains('.') || token.contains('e') || token.contains('E');
        if (fractional && number.match(QString::fromLatin1(token)).hasMatch())
            out += "\"\\u0000#" + token + '"';
        else
            out += token;
        i = end - 1;
    }
    return out;
}

bool isNumeric(const QVariant& v)
{
    switch (v.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::Double:
    case QMetaType::Float:
        return true;
    default:
        return false;
    }
}

bool isWholeNumber(const QVariant& v)
{
    return isNumeric(v) && v.typeId() != QMetaType::Double && v.typeId() != QMetaType::Float;
}

// Integers of every width count as one kind, so a stored qint64 equals the int a caller hands in; an
// integer never equals a double, as each reads back as its own kind.
int typeKind(const QVariant& v)
{
    if (isWholeNumber(v))
        return QMetaType::LongLong;
    if (v.typeId() == QMetaType::Float)
        return QMetaType::Double;
    if (v.typeId() == QMetaType::QStringList)
        return QMetaType::QVariantList;
    return v.typeId();
}

bool sameValue(const QVariant& a, const QVariant& b)
{
    return a.isValid() == b.isValid() && typeKind(a) == typeKind(b) && a == b;
}

QJsonValue toJson(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Long:
    case QMetaType::ULong:
        return QJsonValue(value.toLongLong());
    case QMetaType::Double:
    case QMetaType::Float:
        // QJsonValue itself turns a whole double into an integer.
        return kDoubleMark + QString::fromLatin1(doubleText(value.toDouble()));
    case QMetaType::QDateTime:
        return QJsonObject{{kDateTag, value.toDateTime().toUTC().toString(Qt::ISODateWithMs)}};
    case QMetaType::QByteArray:
        return QJsonObject{{kDataTag, QString::fromLatin1(value.toByteArray().toBase64())}};
    case QMetaType::QUrl:
        return QJsonObject{{kUrlTag, value.toUrl().toString(QUrl::FullyEncoded)}};
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        QJsonArray array;
        for (const QVariant& item : value.toList())
            array.append(toJson(item));
        return array;
    }
    case QMetaType::QVariantMap: {
        QJsonObject object;
        const QVariantMap map = value.toMap();
        for (auto it = map.begin(); it != map.end(); ++it)
            object.insert(it.key(), toJson(it.value()));
        return object;
    }
    default:
        return value.toString();
    }
}

// A tagged value ({"$date": ...}) whose content does not parse stays the dictionary it is, so that a
// rewrite puts it back as it was.
QVariant fromTagged(const QJsonObject& object)
{
    if (object.size() != 1 || !object.begin().value().isString())
        return {};
    const QString tag = object.begin().key();
    const QString text = object.begin().value().toString();
    if (tag == kDateTag) {
        const QDateTime date = QDateTime::fromString(text, Qt::ISODateWithMs);
        return date.isValid() ? QVariant(date) : QVariant();
    }
    if (tag == kDataTag) {
        const auto decoded = QByteArray::fromBase64Encoding(text.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
        return decoded ? QVariant(*decoded) : QVariant();
    }
    if (tag == kUrlTag) {
        const QUrl url(text, QUrl::StrictMode);
        return url.isValid() ? QVariant(url) : QVariant();
    }
    return {};
}

QVariant fromJson(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        return value.toBool();
    case QJsonValue::Double:
        // The parser keeps "1" an integer and "1.0" a double.
        return value.toVariant();
    case QJsonValue::String:
        if (value.toString().startsWith(kDoubleMark))
            return value.toString().mid(kDoubleMark.size()).toDouble();
        return value.toString();
    case QJsonValue::Array: {
        QVariantList list;
        for (const QJsonValue& item : value.toArray())
            list.append(fromJson(item));
        return list;
    }
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        if (QVariant tagged = fromTagged(object); tagged.isValid())
            return tagged;
        QVariantMap map;
        for (auto it = object.begin(); it != object.end(); ++it)
            map.insert(it.key(), fromJson(it.value()));
        return map;
    }
    default:
        return {};
    }
}

// JSON text of a value. QJsonDocument writes the double 1.0 as "1", which reads back as an integer;
// here a double always carries a decimal point or an exponent (the marked strings above).
void writeJson(QByteArray& out, const QJsonValue& value, int depth)
{
    const QByteArray indent((depth + 1) * 4, ' ');
    switch (value.type()) {
    case QJsonValue::Double: {
        const QVariant number = value.toVariant();
        if (isWholeNumber(number)) {
            out += QByteArray::number(number.toLongLong());
            break;
        }
        out += doubleText(number.toDouble());
        break;
    }
    case QJsonValue::Array: {
        const QJsonArray array = value.toArray();
        if (array.isEmpty()) {
            out += "[]";
            break;
        }
        out += "[\n";
        for (qsizetype i = 0; i < array.size(); ++i) {
            out += indent;
            writeJson(out, array.at(i), depth + 1);
            out += i + 1 < array.size() ? ",\n" : "\n";
        }
        out += QByteArray(depth * 4, ' ') + ']';
        break;
    }
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        if (object.isEmpty()) {
            out += "{}";
            break;
        }
        out += "{\n";
        for (auto it = object.begin(); it != object.end(); ++it) {
            out += indent;
            writeJson(out, QJsonValue(it.key()), depth + 1);
            out += ": ";
            writeJson(out, it.value(), depth + 1);
            out += std::next(it) != object.end() ? ",\n" : "\n";
        }
        out += QByteArray(depth * 4, ' ') + '}';
        break;
    }
    case QJsonValue::String:
        if (value.toString().startsWith(kDoubleMark)) {
            out += value.toString().mid(kDoubleMark.size()).toLatin1();
            break;
        }
        [[fallthrough]];
    default: {
        // Strings, booleans and null as the standard writer escapes them.
        const QByteArray wrapped = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
        out += wrapped.mid(1, wrapped.size() - 2);
        break;
    }
    }
}

struct DomainFile
{
    enum Status { Missing, Parsed, Corrupt, Unreadable };
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
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(markDoubles(data), &error);
    if (error.error != QJsonParseError::NoError) {
        result.reason = error.errorString();
    } else if (!doc.isObject()) {
        result.reason = QStringLiteral("not a JSON object");
    } else {
        result.status = DomainFile::Parsed;
        result.object = doc.object();
    }
    return result;
}

QVariantMap valuesOf(const QJsonObject& object)
{
    QVariantMap map;
    for (auto it = object.begin(); it != object.end(); ++it)
        map.insert(it.key(), fromJson(it.value()));
    return map;
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
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/trovix/")
           + domainName + QStringLiteral(".json");
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
    const QString aside = m_filePath + QStringLiteral(".corrupt-")
                          + QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-hhmmss"));
    if (QFile::rename(m_filePath, aside)) {
        reportOnce(QStringLiteral("could not be read (%1); kept as %2, starting with defaults").arg(file.reason, aside));
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
    NotificationCenter::defaultCenter().post(didChangeNotificationName(), this,
                                             {{QStringLiteral("keys"), changed}});
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
        const QString aside = m_filePath + QStringLiteral(".corrupt-")
                              + QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-hhmmss"));
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
    QByteArray text;
    writeJson(text, merged, 0);
    text += '\n';
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit()) {
        std::fprintf(stderr, "trovix: cannot write settings %s: %s\n", qPrintable(m_filePath),
                     qPrintable(file.errorString()));
        return false;
    }
    m_pending.clear();
    adopt(valuesOf(merged));
    return true;
}
