#pragma once

#include "FileTreeWalk.h"

#include <QString>

#include <cstdint>
#include <string>
#include <vector>

// The allocated size (space on disk) of everything below one folder, by FileTreeWalk's rules: files,
// symbolic links and every other non-folder count their allocated blocks; folders add nothing
// themselves; symbolic links are not followed; a file with several hard links counts once for each link
// met; mount points below the root are neither entered nor counted. A root that is not a folder gives 0.
// Big trees are walked on several threads; the sum is the same.
class SizeCalculationTask
{
public:
    using Options = FileTreeWalk::Options;

    explicit SizeCalculationTask(const QString& folderPath, Options options = Options());

    // Walks once; a second call has nothing left to walk and returns 0.
    std::uint64_t calculate();

    std::uint64_t totalSize() const { return m_totalSize; }
    std::uint64_t entryCount() const { return m_entryCount; }
    bool wasCancelled() const { return m_cancelled; }
    // Folders that could not be read (at most FileTreeWalk::kMaxUnreadable kept), and how many in all.
    const std::vector<FileTreeWalk::Unreadable>& unreadable() const { return m_unreadable; }
    std::uint64_t unreadableCount() const { return m_unreadableCount; }

private:
    std::string m_root;
    bool m_used = false;
    Options m_options;
    std::uint64_t m_totalSize = 0;
    std::uint64_t m_entryCount = 0;
    std::uint64_t m_unreadableCount = 0;
    std::vector<FileTreeWalk::Unreadable> m_unreadable;
    bool m_cancelled = false;
};
