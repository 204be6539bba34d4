#include "SettingsJson.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QStringList>
#include <QUrl>

#include <cmath>
#include <cstring>

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
        // Unmarked numbers: whole ones come as integers (and ones beyond 64 bits as doubles).
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
        return SettingsJson::valuesOf(object);
    }
    default:
        return {};
    }
}

// Writes count items between the brackets, one to a line, indented four spaces a level.
template <typename WriteItem>
void writeContainer(QByteArray& out, char open, char close, qsizetype count, int depth, WriteItem writeItem)
{
    out += open;
    if (count > 0) {
        const QByteArray indent((depth + 1) * 4, ' ');
        out += '\n';
        for (qsizetype i = 0; i < count; ++i) {
            out += indent;
            writeItem(i);
            out += i + 1 < count ? ",\n" : "\n";
        }
        out += QByteArray(depth * 4, ' ');
    }
    out += close;
}

// JSON text of a value. QJsonDocument writes the double 1.0 as "1", which reads back as an integer;
// here a double always carries a decimal point or an exponent (the marked strings above).
void writeJson(QByteArray& out, const QJsonValue& value, int depth)
{
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
        writeContainer(out, '[', ']', array.size(), depth,
                       [&](qsizetype i) { writeJson(out, array.at(i), depth + 1); });
        break;
    }
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        const QStringList keys = object.keys();
        writeContainer(out, '{', '}', keys.size(), depth, [&](qsizetype i) {
            writeJson(out, QJsonValue(keys.at(i)), depth + 1);
            out += ": ";
            writeJson(out, object.value(keys.at(i)), depth + 1);
        });
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

} // namespace

namespace SettingsJson {

bool isNumeric(const QVariant& value)
{
    return ::isNumeric(value);
}

bool sameValue(const QVariant& a, const QVariant& b)
{
    return ::sameValue(a, b);
}

QJsonValue toJson(const QVariant& value)
{
    return ::toJson(value);
}

QVariant fromJson(const QJsonValue& value)
{
    return ::fromJson(value);
}

QVariantMap valuesOf(const QJsonObject& object)
{
    QVariantMap map;
    for (auto it = object.begin(); it != object.end(); ++it)
        map.insert(it.key(), ::fromJson(it.value()));
    return map;
}

std::optional<QJsonObject> parseObject(const QByteArray& text, QString* error)
{
    QJsonParseError parseError{};
    const QJsonDocument doc = QJsonDocument::fromJson(markDoubles(text), &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        *error = parseError.errorString();
        return std::nullopt;
    }
    if (!doc.isObject()) {
        *error = QStringLiteral("not a JSON object");
        return std::nullopt;
    }
    return doc.object();
}

QByteArray serialize(const QJsonObject& object)
{
    QByteArray text;
    writeJson(text, object, 0);
    return text + '\n';
}

} // namespace SettingsJson
