#include "VolumeName.h"

#include <QDir>
#include <QFileInfo>
#include <QStorageInfo>

#include <array>
#include <charconv>
#include <cmath>

namespace VolumeName {

namespace {

constexpr double kStep = 1.0 / 1024.0;

// printf's "%.Nf" in the C locale: correctly rounded, ties to even (Qt's own formatting rounds ties up,
// which would print 1152 bytes as 1.13 KB instead of 1.12 KB).
QString fixed(double v, int decimals)
{
    std::array<char, 512> buf{};
    const auto res = std::to_chars(buf.data(), buf.data() + buf.size(), v, std::chars_format::fixed, decimals);
    return QString::fromLatin1(buf.data(), res.ptr - buf.data());
}

// A plain number formatter: no grouping, 0 to maxDecimals fraction digits.
QString plainNumber(double v, int maxDecimals)
{
    QString text = fixed(v, maxDecimals);
    if (text.contains(QLatin1Char('.'))) {
        while (text.endsWith(QLatin1Char('0')))
            text.chop(1);
        if (text.endsWith(QLatin1Char('.')))
            text.chop(1);
    }
    return text;
}

QString dot1(quint64 size, bool threeDigits)
{
    if (size < 1024)
        return QStringLiteral("%1 B").arg(size);
    double v = static_cast<double>(size) * kStep;
    int k = 1;
    while (v >= 1024.0) {
        v *= kStep;
        ++k;
    }
    static const std::array<const char*, 6> units = {" B", " KB", " MB", " GB", " TB", " PB"};
    // Only from an exbibyte up does k pass PB; such a size gets no unit at all.
    const QString unit = k < int(units.size()) ? QString::fromLatin1(units[static_cast<size_t>(k)]) : QString();
    const int decimals = !threeDigits ? 1 : (v < 10.0 ? 2 : (v < 100.0 ? 1 : 0));
    QString text = plainNumber(v, decimals).replace(QLatin1Char(','), QLatin1Char('.')) + unit;
    if (text.startsWith(QLatin1Char('.')))
        text.prepend(QLatin1Char('0'));
    return text;
}

} // namespace

QString stringFromSize(qint64 size)
{
    if (size <= 999)
        return QStringLiteral("%1 bytes").arg(size);
    static const char* const units[] = {"KB", "MB", "GB", "TB"};
    double v = static_cast<double>(size) * kStep;
    int unit = 0;
    // The unit changes at 1000 while the divisor stays 1024, so 1000 bytes read 0.98 KB; the unit is chosen
    // before rounding, so 1,023,999 bytes read 1000 KB.
    while (v >= 1000.0 && unit < 3) {
        v *= kStep;
        ++unit;
    }
    const int decimals = v < 10.0 ? 2 : (v < 100.0 ? 1 : 0);
    return fixed(v, decimals) + QLatin1Char(' ') + QLatin1String(units[unit]);
}

QString formatMemoryStringDot0(quint64 size)
{
    if (size == 0)
        return QStringLiteral("Zero Bytes");
    if (size < 1024)
        return QStringLiteral("%1 B").arg(size);
    static const std::array<const char*, 6> units = {"B", "KB", "MB", "GB", "TB", "PB"};
    double v = static_cast<double>(size);
    for (const char* unit : units) {
        if (v < 1024.0) {
            double whole = 0;
            const double fraction = std::modf(v, &whole);
            const bool oneDecimal = fraction >= 0.05 && fraction < 0.95 && fraction != 0.0 && v < 10.0;
            return fixed(v, oneDecimal ? 1 : 0) + QLatin1Char(' ') + QLatin1String(unit);
        }
        v *= kStep;
    }
    // 1024 PB or more: v was divided once past PB.
    return fixed(v * 1024.0, 0) + QStringLiteral(" PB");
}

QString formatMemoryStringDot1(quint64 size)
{
    return dot1(size, false);
}

QString formatMemoryStringDot1With3DigitsExactly(quint64 size)
{
    return dot1(size, true);
}

QString formatMemoryStringDot0NSnum(quint64 size)
{
    return formatMemoryStringDot0(size);
}

QString formatMemoryStringDot0NSnum(const QVariant& number)
{
    return formatMemoryStringDot0(number.toULongLong());
}

QString formatMemoryStringDot1NSnum(quint64 size)
{
    return formatMemoryStringDot1(size);
}

QString formatMemoryStringDot1NSnum(const QVariant& number)
{
    return formatMemoryStringDot1(number.toULongLong());
}

QString convertToStringFromFileSize(quint64 size)
{
    return formatMemoryStringDot1(size);
}

QString convertToStringFromFileSizeSpecial(quint64 size)
{
    const QString text = formatMemoryStringDot1(size);
    const QStringList parts = text.split(QLatin1Char('.'));
    if (parts.size() == 2 && parts[0].size() >= 2) {
        const QStringList rest = parts[1].split(QLatin1Char(' '));
        if (rest.size() == 2)
            return parts[0] + QLatin1Char(' ') + rest[1];
    }
    return text;
}

QString convertToStringFromFileSizeOnlyMB(quint64 size)
{
    const double m = static_cast<double>(size) / 1048576.0;
    if (m > 1024.0) {
        // Whole 1024-MB blocks, then the rest with at least three digits: a thousands grouping in base 1024.
        const float blocks = std::floor(static_cast<float>(m / 1024.0));
        const quint64 rest = static_cast<quint64>(m) % 1024;
        return fixed(static_cast<double>(blocks), 0) + QLatin1Char(' ') +
               QStringLiteral("%1").arg(rest, 3, 10, QLatin1Char('0')) + QStringLiteral(" MB");
    }
    if (m > 1.0)
        return fixed(m, 1) + QStringLiteral(" MB");
    const double k = m * 1024.0;
    if (k > 1.0)
        return fixed(k, 0) + QStringLiteral(" KB");
    return fixed(k * 1024.0, 0) + QStringLiteral(" B");
}

std::optional<QString> volumeName(const QString& path)
{
    if (path.isEmpty() || !QFileInfo::exists(path))
        return std::nullopt;
    const QStorageInfo storage(path);
    if (!storage.isValid() || !storage.isReady())
        return std::nullopt;
    return storage.name();
}

QString getDisplayNameAtPath(const QString& path)
{
    if (path.isEmpty())
        return QString();
    const QString clean = QDir::cleanPath(path);
    const QString name = QFileInfo(clean).fileName();
    if (!name.isEmpty())
        return name;
    const QString volume = volumeName(clean).value_or(QString());
    return volume.isEmpty() ? clean : volume;
}

QString shfTeamIdentifierPrefix()
{
    return QStringLiteral("Q7K2M9X4TB.");
}

bool isParentPathForPath(const QString& path, const QString& other)
{
    return other.size() > path.size() && other.startsWith(path) && other.at(path.size()) == QLatin1Char('/');
}

qsizetype numberOccurencesSubstring(const QString& text, const QString& needle)
{
    if (needle.isEmpty())
        return 0;
    qsizetype count = 0;
    for (qsizetype at = text.indexOf(needle); at >= 0; at = text.indexOf(needle, at + needle.size()))
        ++count;
    return count;
}

} // namespace VolumeName
