#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>

#include <utility>

// Hands work to the GUI ("main") thread. The call is dropped when ctx is gone by then, so a closed
// window never receives a late callback.
namespace MainQueue {

template <typename Fn>
void async(QObject* ctx, Fn&& fn)
{
    QMetaObject::invokeMethod(ctx, std::forward<Fn>(fn), Qt::QueuedConnection);
}

// For objects without a context of their own: runs on the application object's thread.
template <typename Fn>
void async(Fn&& fn)
{
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::forward<Fn>(fn), Qt::QueuedConnection);
}

} // namespace MainQueue
