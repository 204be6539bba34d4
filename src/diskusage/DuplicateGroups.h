#pragma once

#include <QHash>
#include <QString>

#include <cstdint>
#include <vector>

// Groups candidate files by extension, then by exact size: two files of the same extension and the same
// length count as duplicates (contents are not read). Every copy of a group counts, the first included.
class DuplicateGroups
{
public:
    // "" for a name without an extension; a leading dot alone (".bashrc") makes no extension.
    static QString extensionOf(const QString& name);

    void addObject(int item, const QString& name, std::uint64_t size);

    // Over every group of two or more: size x copies, and the number of copies.
    void calculateTotalSizeOfDuplicates(std::uint64_t* totalSize, std::uint64_t* totalCount) const;

    // The groups of two or more, as item lists, with their size.
    struct Group {
        std::uint64_t size = 0;
        std::vector<int> items;
    };
    std::vector<Group> groups() const;

private:
    QHash<QString, QHash<std::uint64_t, std::vector<int>>> m_byExtension;
};
