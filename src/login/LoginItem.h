#pragma once

#include <QString>
#include <QVariantMap>

#include <optional>

// One job that starts at login. Jobs are described as dictionaries with the keys "Label", "Program",
// "ProgramArguments", "PID", "OnDemand" and "EnableTransactions"; an autostart entry gives its file name
// (without ".desktop") as the label and its Exec line as program and arguments.
class LoginItem
{
public:
    static LoginItem itemFromServiceManagementDictionary(const QVariantMap& job);
    static bool jobIsSandboxed(const QVariantMap& job);
    // The job an autostart entry describes; empty when the file is no usable entry.
    static QVariantMap jobFromAutostartEntry(const QString& path);

    void setupWithServiceManagementDictionary(const QVariantMap& job);

    QString bundleIdentifier() const { return m_bundleIdentifier; }
    std::optional<QString> executablePath() const { return m_executablePath; }
    QString applicationName() const { return m_applicationName.value_or(m_bundleIdentifier); }

private:
    QString m_bundleIdentifier;
    std::optional<QString> m_executablePath;
    std::optional<QString> m_applicationName;
};
