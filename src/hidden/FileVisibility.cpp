#include "FileVisibility.h"

#include "platform/HiddenFlag.h"

#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>

namespace {

Q_LOGGING_CATEGORY(lcVisibility, "trovix.visibility")

const char* const kMethod = "-[QBPurgeController performSetVisibility:forFilesArray:]";

} // namespace

FileVisibility::FileVisibility(ScriptRunner& scripts, AccessCheck userFolderAccessible)
    : m_scripts(scripts), m_userFolderAccessible(std::move(userFolderAccessible))
{
}

QStringList FileVisibility::pathsFromNotificationObject(const QVariant& object)
{
    if (object.typeId() != QMetaType::QString)
        return {};
    return object.toString().split(QStringLiteral(", "));
}

void FileVisibility::hideSelectedFiles(const QVariant& notificationObject, Completion completion)
{
    const QStringList paths = pathsFromNotificationObject(notificationObject);
    if (!paths.isEmpty())
        setVisibility(false, paths, std::move(completion));
}

void FileVisibility::showSelectedFiles(const QVariant& notificationObject, Completion completion)
{
    const QStringList paths = pathsFromNotificationObject(notificationObject);
    if (!paths.isEmpty())
        setVisibility(true, paths, std::move(completion));
}

void FileVisibility::setVisibility(bool visible, const QStringList& paths, Completion completion)
{
    getUserFolderAccessWithCompletion([this, visible, paths, completion = std::move(completion)](bool granted) {
        if (granted)
            performSetVisibility(visible, paths, completion);
    });
}

// The answer is deliberately not passed on: performSetVisibility checks the access again itself.
void FileVisibility::getUserFolderAccessWithCompletion(const std::function<void(bool)>& completion)
{
    (void)m_userFolderAccessible();
    completion(true);
}

void FileVisibility::performSetVisibility(bool visible, const QStringList& paths, Completion completion)
{
    if (!m_userFolderAccessible()) {
        qCCritical(lcVisibility, "Invalid parameter not satisfying: %s", "NO");
        qCWarning(lcVisibility, "Something has gone wrong.");
        if (completion)
            completion(QStringList(QStringLiteral("cannot read and write the home folder")));
        return;
    }

    QStringList errors;
    QStringList folders;
    for (const QString& given : paths) {
        // "folder/" names the folder itself, not an empty name inside it.
        const QString path = given.isEmpty() ? given : QDir::cleanPath(given);
        const QFileInfo info(path);
        // Any program on the session bus may send requests: a relative path names nothing for sure.
        if (!QDir::isAbsolutePath(path)) {
            const QString error = QStringLiteral("\"%1\": not an absolute path").arg(path);
            qCWarning(lcVisibility, "%s %s", kMethod, qPrintable(error));
            errors.append(error);
            continue;
        }
        if (auto error = HiddenFlag::setHidden(path, !visible)) {
            qCWarning(lcVisibility, "%s %s", kMethod, qPrintable(*error));
            errors.append(*error);
            continue;
        }
        if (!folders.contains(info.absolutePath()))
            folders.append(info.absolutePath());
        const QString name = info.fileName();
        if (!visible || !name.startsWith(QLatin1Char('.')))
            continue;
        const QString shown = info.dir().filePath(name.mid(1));
        if (auto error = HiddenFlag::renameNoReplace(path, shown)) {
            qCWarning(lcVisibility, "%s %s", kMethod, qPrintable(*error));
            errors.append(*error);
            continue;
        }
        // A stale line for the new name would hide the file again.
        if (auto error = HiddenFlag::setHidden(shown, false))
            qCWarning(lcVisibility, "%s %s", kMethod, qPrintable(*error));
    }

    m_scripts.executeAppleScript(
        QStringLiteral("UpdateFinderFolderRepresentation"), folders,
        [errors, completion](const QStringList&, const std::optional<ScriptError>& error) {
            if (error)
                qCWarning(lcVisibility, "%s %s", kMethod, qPrintable(error->localizedDescription()));
            if (completion)
                completion(errors);
        });
}
