#pragma once

#include <QString>

#include <atomic>
#include <cstdint>

// The shared entry to folder sizes. It keeps no state, so walks on several threads need no lock.
class SizeCalculation
{
public:
    static SizeCalculation& sharedInstance();

    // Allocated bytes below path (SizeCalculationTask's rules). With ignoreRootDSStore, a ".DS_Store"
    // directly inside the folder is taken off again (never below 0): a folder that holds nothing else
    // reads as empty. cancel, when given, stops the walk early; entries, when given, receives the number
    // of entries counted.
    std::uint64_t fastFolderSizeOfItemWithPath(const QString& path, bool ignoreRootDSStore,
                                               const std::atomic<bool>* cancel = nullptr,
                                               std::uint64_t* entries = nullptr) const;
    std::uint64_t fastSizeOfFolderAtPath(const QString& path) const;
    std::uint64_t sizeIgnoreRootDSStoreForFolderAtPath(const QString& path,
                                                       const std::atomic<bool>* cancel = nullptr,
                                                       std::uint64_t* entries = nullptr) const;
};
