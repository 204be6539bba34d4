#include "UserDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>

#include <cmath>
#include <cstdio>
#include <map>
#include <memory>

namespace {

const QString kDateTag = QStringLiteral("$date");
const QString kDataTag = QStringLiteral("$data");

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
        return value.toDouble();
    case QMetaType::QDateTime:
        return QJsonObject{{kDateTag, value.toDateTime().toUTC().toString(Qt::ISODateWithMs)}};
    case QMetaType::QByteArray:
        return QJsonObject{{kDataTag, QString::fromLatin1(value.toByteArray().toBase64())}};
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

QVariant fromJson(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        return value.toBool();
    case QJsonValue::Double: {
        // JSON has one number type: whole numbers read back as integers.
        const double d = value.toDouble();
        if (std::trunc(d) == d && std::abs(d) < 9.0e15)
            return QVariant::fromValue<qint64>(static_cast<qint64>(d));
        return d;
    }
    case QJsonValue::String:
        return value.toString();
    case QJsonValue::Array: {
        QVariantList list;
        for (const QJsonValue& item : value.toArray())
            list.append(fromJson(item));
        return list;
    }
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        if (object.size() == 1 && object.contains(kDateTag))
            return QDateTime::fromString(object.value(kDateTag).toString(), Qt::ISODateWithMs);
        if (object.size() == 1 && object.contains(kDataTag))
            return QByteArray::fromBase64(object.value(kDataTag).toString().toLatin1());
        QVariantMap map;
        for (auto it = object.begin(); it != object.end(); ++it)
            map.insert(it.key(), fromJson(it.value()));
        return map;
    }
    default:
        return {};
    }
}

bool isNumeric(const QVariant& v);

// Integers of every width count as one kind, so a stored qint64 equals the int a caller hands in; an
// integer never equals a double, as each reads back as its own kind.
int typeKind(const QVariant& v)
{
    if (isNumeric(v) && v.typeId() != QMetaType::Double && v.typeId() != QMetaType::Float)
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

} // namespace

UserDefaults::UserDefaults(QString filePath)
    : m_filePath(std::move(filePath))
{
    load();
}

QString UserDefaults::domainPath(const QString& domainName)
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/trovix/")
           + domainName + QStringLiteral(".json");
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

void UserDefaults::load()
{
    m_values.clear();
    m_readOnly = false;
    QFile file(m_filePath);
    if (!file.exists())
        return;
    QJsonParseError error{};
    QJsonDocument doc;
    const bool opened = file.open(QIODevice::ReadOnly);
    if (opened)
        doc = QJsonDocument::fromJson(file.readAll(), &error);
    file.close();
    if (opened && error.error == QJsonParseError::NoError && doc.isObject()) {
        m_values = fromJson(doc.object()).toMap();
        return;
    }
    QString reason = QStringLiteral("not a JSON object");
    if (!opened)
        reason = file.errorString();
    else if (error.error != QJsonParseError::NoError)
        reason = error.errorString();
    const QString aside = m_filePath + QStringLiteral(".corrupt-")
                          + QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-hhmmss"));
    if (QFile::rename(m_filePath, aside)) {
        std::fprintf(stderr, "trovix: settings file %s could not be read (%s); kept as %s, starting with defaults\n",
                     qPrintable(m_filePath), qPrintable(reason), qPrintable(aside));
    } else {
        m_readOnly = true;
        std::fprintf(stderr, "trovix: settings file %s could not be read (%s) nor moved aside; "
                             "settings will not be saved this session\n",
                     qPrintable(m_filePath), qPrintable(reason));
    }
}

void UserDefaults::reload()
{
    if (!m_readOnly)
        load();
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
    if (m_values.remove(key) > 0)
        synchronize();
}

void UserDefaults::removePersistentDomain()
{
    m_values.clear();
    if (!m_readOnly)
        QFile::remove(m_filePath);
}

bool UserDefaults::synchronize()
{
    if (m_readOnly)
        return false;
    QDir().mkpath(QFileInfo(m_filePath).absolutePath());
    QSaveFile file(m_filePath);
    if (!file.open(QIODevice::WriteOnly)) {
        std::fprintf(stderr, "trovix: cannot write settings %s: %s\n", qPrintable(m_filePath),
                     qPrintable(file.errorString()));
        return false;
    }
    file.write(QJsonDocument(toJson(m_values).toObject()).toJson(QJsonDocument::Indented));
    if (!file.commit()) {
        std::fprintf(stderr, "trovix: cannot write settings %s: %s\n", qPrintable(m_filePath),
                     qPrintable(file.errorString()));
        return false;
    }
    return true;
}
