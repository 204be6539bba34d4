#include "LoginItem.h"

#include "util/DesktopEntry.h"

#include <QFileInfo>

LoginItem LoginItem::itemFromServiceManagementDictionary(const QVariantMap& job)
{
    LoginItem item;
    item.setupWithServiceManagementDictionary(job);
    return item;
}

bool LoginItem::jobIsSandboxed(const QVariantMap& job)
{
    if (!job.contains(QStringLiteral("PID")))
        return true;
    if (job.contains(QStringLiteral("EnableTransactions")))
        return true;
    if (!job.contains(QStringLiteral("ProgramArguments")))
        return true;
    // A number, not a text that reads as one.
    const QVariant onDemand = job.value(QStringLiteral("OnDemand"));
    return onDemand.isValid() && onDemand.typeId() != QMetaType::QString && onDemand.canConvert<double>() &&
           onDemand.toDouble() == 0;
}

// The program is the one to start only when it is there; otherwise the item is known by its label alone.
void LoginItem::setupWithServiceManagementDictionary(const QVariantMap& job)
{
    const QString program = job.value(QStringLiteral("Program")).toString();
    m_bundleIdentifier = job.value(QStringLiteral("Label")).toString();
    const QFileInfo info(program);
    if (!program.isEmpty() && info.isFile() && info.isExecutable()) {
        m_executablePath = program;
        if (job.contains(QStringLiteral("Name")))
            m_applicationName = job.value(QStringLiteral("Name")).toString();
    } else {
        m_executablePath.reset();
        m_applicationName.reset();
    }
}

QVariantMap LoginItem::jobFromAutostartEntry(const QString& path)
{
    const QMap<QString, QString> entry = DesktopEntry::read(path);
    if (entry.value(QStringLiteral("Type")) != QLatin1String("Application") || !entry.contains(QStringLiteral("Exec")))
        return {};
    const QStringList arguments = DesktopEntry::execArguments(entry.value(QStringLiteral("Exec")));
    QString label = QFileInfo(path).fileName();
    label.chop(int(qstrlen(".desktop")));
    QVariantMap job{{QStringLiteral("Label"), label},
                    {QStringLiteral("Program"), arguments.value(0)},
                    {QStringLiteral("ProgramArguments"), arguments}};
    if (entry.contains(QStringLiteral("Name")))
        job.insert(QStringLiteral("Name"), entry.value(QStringLiteral("Name")));
    return job;
}
