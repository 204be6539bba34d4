#pragma once

#include <QFileInfo>
#include <QString>

#include <sys/inotify.h>
#include <unistd.h>

// Counts the writes of one file from now on (a rename or link onto its name, or a write closed on it),
// through inotify on its folder, so a test can tell one write from two or from none.
class WriteCounter
{
public:
    explicit WriteCounter(const QString& filePath)
        : m_name(QFileInfo(filePath).fileName().toLocal8Bit())
        , m_fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        if (m_fd >= 0)
            inotify_add_watch(m_fd, QFileInfo(filePath).absolutePath().toLocal8Bit().constData(),
                              IN_MOVED_TO | IN_CLOSE_WRITE | IN_CREATE);
    }
    ~WriteCounter()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    WriteCounter(const WriteCounter&) = delete;
    WriteCounter& operator=(const WriteCounter&) = delete;

    bool isValid() const { return m_fd >= 0; }

    // The writes seen so far.
    int count()
    {
        alignas(inotify_event) char buffer[8192];
        for (;;) {
            const ssize_t n = ::read(m_fd, buffer, sizeof buffer);
            if (n <= 0)
                break;
            for (ssize_t offset = 0; offset < n;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
                if (event->len > 0 && m_name == event->name)
                    ++m_count;
                offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
        return m_count;
    }

private:
    QByteArray m_name;
    int m_fd;
    int m_count = 0;
};
