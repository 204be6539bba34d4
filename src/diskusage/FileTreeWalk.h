#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>

#ifndef STATX_ATTR_MOUNT_ROOT
#define STATX_ATTR_MOUNT_ROOT 0x00002000 // Linux 5.8; older C libraries lack the name
#endif

// Visits every entry that is not a folder below one root folder, on the root's file system: getdents64
// on each folder and one statx per entry, never following symbolic links. Folders are not visited
// themselves; mount points below the root (another file system or a bind mount) are neither entered nor
// visited. The folders still to read are kept on an explicit stack, so depth costs no thread stack.
//
// When the root holds more than one folder, helper threads take folders from that stack; the visitor is
// then called on several threads at once, each with its own worker number in [0, threadCount()), so a
// caller keeps one accumulator per worker and needs no lock.
// Cancellation: set *cancel; each thread stops before its next folder.
class FileTreeWalk
{
public:
    struct Options {
        int threads = 0;                           // 0: one per core, at most 8; 1: on the calling thread only
        const std::atomic<bool>* cancel = nullptr;
        unsigned statxMask = STATX_TYPE | STATX_BLOCKS; // what the visitor needs besides the type
    };

    // A folder that could not be opened or read to its end, with errno.
    struct Unreadable {
        std::string path;
        int error = 0;
    };
    static constexpr std::size_t kMaxUnreadable = 100;

    using Visitor = std::function<void(int worker, std::string_view folder, const char* name, const struct statx& st)>;

    FileTreeWalk(std::string root, Options options);

    int threadCount() const { return m_threads; }
    // False when the root is missing or not a folder (a symbolic link to a folder is followed).
    bool run(const Visitor& visit);

    bool wasCancelled() const { return m_cancelled; }
    // At most kMaxUnreadable are kept; unreadableCount() counts them all.
    const std::vector<Unreadable>& unreadable() const { return m_unreadable; }
    std::uint64_t unreadableCount() const { return m_unreadableCount; }

private:
    struct Shared;
    struct Worker;

    std::string m_root;
    Options m_options;
    int m_threads;
    bool m_cancelled = false;
    std::vector<Unreadable> m_unreadable;
    std::uint64_t m_unreadableCount = 0;
};
