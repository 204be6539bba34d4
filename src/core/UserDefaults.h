#pragma once

#include <QDateTime>
#include <QString>
#include <QVariant>
#include <QVariantMap>

// One settings domain kept in a JSON file. Values keep their type: booleans, integers, doubles,
// strings, dates ({"$date": ISO-8601}), data ({"$data": base64}), lists and dictionaries.
// Every change is written at once, atomically. A file that cannot be parsed is renamed aside
// (".corrupt-<time>") and reported once; the domain then starts empty. The user's file is never
// overwritten: when it can be neither read nor moved aside, the domain stays read-only.
class UserDefaults
{
public:
    explicit UserDefaults(QString filePath);

    // The program's own domain and the suite shared with the file-manager extensions, both under
    // $XDG_CONFIG_HOME/trovix/.
    static UserDefaults& standardUserDefaults();
    static UserDefaults& suite(const QString& suiteName);
    static QString domainPath(const QString& domainName);

    QString filePath() const { return m_filePath; }
    bool isWritable() const { return !m_readOnly; }

    // An invalid QVariant when absent.
    QVariant objectForKey(const QString& key) const;
    bool contains(const QString& key) const { return m_values.contains(key); }
    // True when the stored value is a number (integer or double), not a string or a boolean.
    bool isNumber(const QString& key) const;

    // Conversions as the platform does them: absent gives false / 0 / empty; a string that reads as a
    // number converts; anything else gives the zero value.
    bool boolForKey(const QString& key) const;
    qint64 integerForKey(const QString& key) const;
    double doubleForKey(const QString& key) const;
    QString stringForKey(const QString& key) const;
    QDateTime dateForKey(const QString& key) const;

    // Typed reads with a default for an absent key.
    bool getBoolValueForKey(const QString& key, bool defaultValue) const;
    quint64 getUnsignedLongLongValueForKey(const QString& key, quint64 defaultValue) const;
    QVariantList getArrayValueForKey(const QString& key, const QVariantList& defaultValue) const;
    void saveBoolValue(bool value, const QString& key);
    void saveUnsignedLongLongValue(quint64 value, const QString& key);
    void saveArrayValue(const QVariantList& value, const QString& key);

    // Both write only when a value differs from the stored one (type included: 1 and 1.0 differ).
    void setObject(const QVariant& value, const QString& key);
    // Several keys in one write; an invalid value removes its key.
    void setValues(const QVariantMap& values);
    void removeObjectForKey(const QString& key);
    // Forgets every key of the domain and removes its file.
    void removePersistentDomain();
    // Writes the domain to disk; false when it could not (the reason went to standard error).
    bool synchronize();
    // Re-reads the file, for domains that other programs write too.
    void reload();

    QVariantMap dictionaryRepresentation() const { return m_values; }

private:
    void load();

    QString m_filePath;
    QVariantMap m_values;
    bool m_readOnly = false;
};
