#pragma once

#include <QString>
#include <QVariant>

#include <optional>

// Size texts and a few path and string helpers. Sizes divide by 1024 but name the units KB, MB, GB...
// Numbers are always printed with a decimal point, whatever the user's locale; ties round to even.
namespace VolumeName {

// The size text of the panel, the memory labels and the disk-usage view.
QString stringFromSize(qint64 size);

// "Zero Bytes", "1023 B", "1.5 KB", "2 KB", "16 MB": one decimal only below 10 of a unit.
QString formatMemoryStringDot0(quint64 size);
// "1023 B", "1.5 KB", "2 KB", "1.2 GB": at most one decimal, trailing zero dropped.
QString formatMemoryStringDot1(quint64 size);
// As Dot1 with three significant digits: "1.25 GB", "12.5 GB", "125 GB".
QString formatMemoryStringDot1With3DigitsExactly(quint64 size);
// The same two from a number value (its unsigned 64-bit reading; no value reads 0).
QString formatMemoryStringDot0NSnum(quint64 size);
QString formatMemoryStringDot0NSnum(const QVariant& number);
QString formatMemoryStringDot1NSnum(quint64 size);
QString formatMemoryStringDot1NSnum(const QVariant& number);

// The size column of the search results: the Dot1 text.
QString convertToStringFromFileSize(quint64 size);
// The Dot1 text with the decimal cut off (not rounded) at two or more integer digits: "12.5 MB" -> "12 MB".
QString convertToStringFromFileSizeSpecial(quint64 size);
// Megabytes, with base-1024 "thousands": 1536 MB -> "1 512 MB"; "512.0 MB", "900 KB", "0 B".
QString convertToStringFromFileSizeOnlyMB(quint64 size);

// The name (label) of the mounted file system that holds the path; empty when it has none, nullopt when
// the path or its mount can't be read.
std::optional<QString> volumeName(const QString& path);
// The name a file manager shows for the path: its last component, or the volume's name for a mount root.
QString getDisplayNameAtPath(const QString& path);
// Team prefix of the shared application group.
QString shfTeamIdentifierPrefix();

// True when `other` lies strictly inside `path`: it starts with `path` followed by "/". Literal comparison,
// so "/" is the parent of nothing and a path is not its own parent.
bool isParentPathForPath(const QString& path, const QString& other);
// Non-overlapping occurrences of needle in text ("aaaa" holds "aa" twice); an empty needle counts 0.
qsizetype numberOccurencesSubstring(const QString& text, const QString& needle);

} // namespace VolumeName
