#include "FileManagerBus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QMetaObject>
#include <QStringList>
#include <QTimer>

namespace FileManagerBus {
namespace {

void call(const char* method, const QList<QByteArray>& paths, Answered answered)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        // Still later, from the event loop, as a bus answer would be.
        QTimer::singleShot(0, [answered] {
            if (answered)
                answered(false);
        });
        return;
    }
    QStringList uris;
    uris.reserve(paths.size());
    for (const QByteArray& path : paths)
        uris.append(QString::fromLatin1(fileUri(path)));
    QDBusMessage message = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QString::fromLatin1(method));
    // No startup notification id: the file manager raises its window as it sees fit.
    message << uris << QString();
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(message));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [answered](QDBusPendingCallWatcher* w) {
        const bool ok = !w->isError();
        if (!ok)
            qInfo("trovix: the file manager did not answer: %s", qPrintable(w->error().message()));
        w->deleteLater();
        if (answered)
            answered(ok);
    });
}

} // namespace

void showItems(const QList<QByteArray>& paths, Answered answered)
{
    call("ShowItems", paths, std::move(answered));
}

void showItemProperties(const QList<QByteArray>& paths, Answered answered)
{
    call("ShowItemProperties", paths, std::move(answered));
}

void showFolders(const QList<QByteArray>& paths, Answered answered)
{
    call("ShowFolders", paths, std::move(answered));
}

QByteArray fileUri(const QByteArray& path)
{
    // Everything but the unreserved characters and "/" is escaped, so any byte survives.
    return "file://" + path.toPercentEncoding("/");
}

} // namespace FileManagerBus
