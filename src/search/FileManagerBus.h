#pragma once

#include <QByteArray>
#include <QList>

#include <functional>

// The session's file manager over org.freedesktop.FileManager1: reveal items in a window, show their
// properties. Paths are native bytes, sent as percent-encoded file URIs so that any name survives.
// The callback runs on the calling thread's event loop with whether a file manager answered without
// error; the caller falls back (open the parent folder, its own information dialog) when none did.
namespace FileManagerBus {
using Answered = std::function<void(bool answered)>;
void showItems(const QList<QByteArray>& paths, Answered answered);
void showItemProperties(const QList<QByteArray>& paths, Answered answered);
void showFolders(const QList<QByteArray>& paths, Answered answered);
// "file://" + the path percent-encoded byte by byte ("/" kept).
QByteArray fileUri(const QByteArray& path);
} // namespace FileManagerBus
