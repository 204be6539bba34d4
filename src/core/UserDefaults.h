#pragma once

#include <QDateTime>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QVariant>
#include <QVariantMap>

class QFileSystemWatcher;
class QTimer;

// One settings domain kept in a JSON file that several processes share. Values keep their type:
// booleans, integers, doubles (always written with a decimal point), strings, dates ({"$date": ISO-8601}),
// data ({"$data": base64}), URLs ({"$url": text}), lists and dictionaries; a tagged value that does not
// parse is kept as it stands. A change is written at once: under a lock file the current file is re-read,
// only the keys this process changed are replaced, and the result is saved atomically. Changes other
// processes make are followed while an event loop runs (valuesChanged()).
// Only a regular file of at most kMaxFileSize bytes is read. One that cannot be parsed (or is not a
// regular file) is renamed aside (".corrupt-<time>") and reported once; the domain then starts empty.
// One that cannot be read at all stays where it is and the domain runs read-only on defaults.
class UserDefaults : public QObject
{
    Q_OBJECT
public:
    static constexpr qint64 kMaxFileSize = 4 * 1024 * 1024;

    explicit UserDefaults(QString filePath);
    ~UserDefaults() override;

    // The program's own domain and the suite shared with the file-manager extensions, both under
    // $XDG_CONFIG_HOME/trovix/.
    static UserDefaults& standardUserDefaults();
    static UserDefaults& suite(const QString& suiteName);
    static QString domainPath(const QString& domainName);
    // Posted on the default notification centre, object = the store, user info "keys" = the keys another
    // process changed.
    static QString didChangeNotificationName();

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
    // Writes this process's changes into the file; with none, re-reads it. False when the changes could
    // not be written (the reason went to standard error).
    bool synchronize();
    // Re-reads the file; this process's unwritten changes stay.
    void reload();

    QVariantMap dictionaryRepresentation() const { return m_values; }

Q_SIGNALS:
    // Keys whose values changed because another process wrote the file.
    void valuesChanged(const QStringList& keys);

private:
    void load();
    void adopt(QVariantMap values);
    void watch();
    void rearmWatch();
    void reportOnce(const QString& message);

    QString m_filePath;
    QVariantMap m_values;
    // Keys this process changed that are not in the file yet.
    QSet<QString> m_pending;
    bool m_readOnly = false;
    bool m_reported = false;
    // Both belong to the application object (see watch()).
    QPointer<QFileSystemWatcher> m_watcher;
    QPointer<QTimer> m_reloadTimer;
    QString m_watchedFolder;
};
