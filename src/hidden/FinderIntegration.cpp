#include "FinderIntegration.h"

#include "core/Settings.h"
#include "core/UserDefaults.h"
#include "hidden/PluginKit.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QProcess>

#include <algorithm>
#include <optional>

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

// Installing and removing touch the same files: a run that overtook an earlier one would leave the
// earlier choice in place. So a run waits for the one before it; of the waiting ones only the latest
// matters. Runs are not waited for by the caller; they go on if the caller is gone, and the program
// waits for them when it quits (a run cut short would leave half the entries).
struct FinderIntegration::Sequence : std::enable_shared_from_this<Sequence>
{
    QString program;
    QProcess* running = nullptr;
    std::optional<QStringList> next;

    void request(const QStringList& arguments)
    {
        if (running) {
            next = arguments;
            return;
        }
        start(arguments);
    }

    void start(const QStringList& arguments)
    {
        auto* process = new QProcess(QCoreApplication::instance());
        running = process;
        process->setProcessChannelMode(QProcess::ForwardedChannels);
        process->setStandardInputFile(QProcess::nullDevice());
        auto self = shared_from_this();
        auto done = [self, process] {
            if (self->running != process)
                return;
            self->running = nullptr;
            process->deleteLater();
            if (self->next) {
                const QStringList queued = *std::exchange(self->next, std::nullopt);
                self->start(queued);
            }
        };
        QObject::connect(process, &QProcess::finished, process, done);
        QObject::connect(process, &QProcess::errorOccurred, process, [done](QProcess::ProcessError error) {
            if (error == QProcess::FailedToStart)
                done();
        });
        if (QCoreApplication* app = QCoreApplication::instance())
            QObject::connect(app, &QCoreApplication::aboutToQuit, process, [self] { self->settle(kQueryTimeoutMs); });
        process->start(program, arguments);
    }

    // Blocks until the runs asked for have ended (or the time is up), so a question sees their result.
    void settle(int timeoutMs)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (running && !deadline.hasExpired()) {
            // Ending a run starts the next one from within the wait (finished() is emitted there).
            if (!running->waitForFinished(int(std::max<qint64>(1, deadline.remainingTime()))))
                break;
        }
    }
};

FinderIntegration::FinderIntegration(UserDefaults& defaults, QString program, QStringList arguments)
    : m_defaults(defaults)
    , m_program(std::move(program))
    , m_arguments(std::move(arguments))
    , m_sequence(std::make_shared<Sequence>())
{
    m_sequence->program = m_program;
}

void FinderIntegration::run(const QStringList& arguments)
{
    m_sequence->request(arguments);
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
    m_sequence->settle(kQueryTimeoutMs);
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
    run(toolArguments(m_arguments, {"-e", "use", "-i", PluginKit::kExtensionId}));
    m_defaults.setObject(true, SettingsKey::FinderIntegration);
    if (m_checkbox)
        m_checkbox(1);
}

void FinderIntegration::disableFinderSyncExtension()
{
    run(toolArguments(m_arguments, {"-e", "ignore", "-i", PluginKit::kExtensionId}));
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
