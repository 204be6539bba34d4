#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <optional>

// The settings files' JSON: values keep their type across a rewrite. Doubles are always written with a
// decimal point or an exponent (1.0, not 1) and read back as doubles; dates, data and URLs are tagged
// objects ({"$date": ISO-8601}, {"$data": base64}, {"$url": text}); a tagged object whose content does not
// parse stays the dictionary it is, so a rewrite puts it back unchanged.
namespace SettingsJson {

bool isNumeric(const QVariant& value);
// Equal in value and in the kind it reads back as: integers of every width are one kind, 1 is not 1.0.
bool sameValue(const QVariant& a, const QVariant& b);

QJsonValue toJson(const QVariant& value);
QVariant fromJson(const QJsonValue& value);
QVariantMap valuesOf(const QJsonObject& object);

// The object a file's text holds; nullopt, with the reason, when it is not one.
std::optional<QJsonObject> parseObject(const QByteArray& text, QString* error);
QByteArray serialize(const QJsonObject& object);

} // namespace SettingsJson
