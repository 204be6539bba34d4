#include "FinderIntegration.h"

#include "core/Settings.h"
#include "core/UserDefaults.h"
#include "hidden/PluginKit.h"

#include <QProcess>

namespace {

constexpr int kQueryTimeoutMs = 5000;

QStringList toolArguments(const QStringList& prefix, std::initializer_list<const char*> own)
{
    QStringList args = prefix;
    for (const char* a : own)
        args.append(QString::fromLatin1(a));
    return args;
}

} // namespace

FinderIntegration::FinderIntegration(UserDefaults& defaults, QString program, QStringList arguments)
    : m_defaults(defaults), m_program(std::move(program)), m_arguments(std::move(arguments))
{
}

void FinderIntegration::finderIntegration()
{
    const bool notFirst = m_defaults.boolForKey(SettingsKey::IsNotFirstLaunch);
    bool wanted = true;
    if (notFirst)
        wanted = m_defaults.boolForKey(SettingsKey::FinderIntegration);
    else
        m_defaults.setObject(true, SettingsKey::IsNotFirstLaunch);

    getHinderIntegrationEnabledWithCompletion([&](bool enabled, const QString&) {
        if (enabled != wanted && notFirst)
            wanted = enabled;
    });
    apply(wanted);
}

void FinderIntegration::getHinderIntegrationEnabledWithCompletion(
    const std::function<void(bool, const QString&)>& completion)
{
    QProcess tool;
    tool.setProcessChannelMode(QProcess::SeparateChannels);
    tool.setStandardErrorFile(QProcess::nullDevice());
    tool.start(m_program, toolArguments(m_arguments, {"-m", "-A", "-i", PluginKit::kExtensionId}));
    // The first output is the answer; a tool that ends without printing has not enabled anything.
    const QByteArray output = tool.waitForReadyRead(kQueryTimeoutMs) ? tool.readAllStandardOutput() : QByteArray();
    if (!tool.waitForFinished(kQueryTimeoutMs))
        tool.kill();
    completion(!output.isEmpty() && QString::fromUtf8(output).startsWith(QLatin1Char('+')), QString());
}

void FinderIntegration::enableFinderSyncExtension()
{
    QProcess::startDetached(m_program, toolArguments(m_arguments, {"-e", "use", "-i", PluginKit::kExtensionId}));
    m_defaults.setObject(true, SettingsKey::FinderIntegration);
    if (m_checkbox)
        m_checkbox(1);
}

void FinderIntegration::disableFinderSyncExtension()
{
    QProcess::startDetached(m_program,
                            toolArguments(m_arguments, {"-e", "ignore", "-i", PluginKit::kExtensionId}));
    m_defaults.setObject(false, SettingsKey::FinderIntegration);
    if (m_checkbox)
        m_checkbox(0);
}

void FinderIntegration::toggleFinderIntegration(int state)
{
    apply(state == 1);
}

void FinderIntegration::apply(bool enabled)
{
    if (enabled)
        enableFinderSyncExtension();
    else
        disableFinderSyncExtension();
}
