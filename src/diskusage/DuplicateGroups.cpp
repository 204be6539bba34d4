#include "DuplicateGroups.h"

QString DuplicateGroups::extensionOf(const QString& name)
{
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot <= 0)
        return QString();
    return name.mid(dot + 1);
}

void DuplicateGroups::addObject(int item, const QString& name, std::uint64_t size)
{
    m_byExtension[extensionOf(name)][size].push_back(item);
}

void DuplicateGroups::calculateTotalSizeOfDuplicates(std::uint64_t* totalSize, std::uint64_t* totalCount) const
{
    std::uint64_t size = 0;
    std::uint64_t count = 0;
    for (const auto& bySize : m_byExtension)
        for (auto it = bySize.cbegin(); it != bySize.cend(); ++it)
            if (it.value().size() >= 2) {
                size += it.key() * it.value().size();
                count += it.value().size();
            }
    if (totalSize)
        *totalSize = size;
    if (totalCount)
        *totalCount = count;
}

std::vector<DuplicateGroups::Group> DuplicateGroups::groups() const
{
    std::vector<Group> result;
    for (const auto& bySize : m_byExtension)
        for (auto it = bySize.cbegin(); it != bySize.cend(); ++it)
            if (it.value().size() >= 2)
                result.push_back({it.key(), it.value()});
    return result;
}
