#include "MacOSVersion.h"

#include <QDebug>
#include <QFile>
#include <QStringList>
#include <QXmlStreamReader>

MacOSVersion& MacOSVersion::GetInstance()
{
    static MacOSVersion instance(readProductVersion(QString::fromLatin1(kSystemVersionPath)));
    return instance;
}

MacOSVersion::MacOSVersion(std::optional<QString> systemVersion)
    : m_systemVersion(std::move(systemVersion))
{
    const auto atLeast = [this](const char* v) { return isMacOSHasVersion(QString::fromLatin1(v), false, true); };
    m_is_10_9 = atLeast("10.9");
    m_is_10_10 = atLeast("10.10");
    m_is_10_11 = atLeast("10.11");
    m_is_10_13 = atLeast("10.13");
    m_is_10_14 = atLeast("10.14");
}

std::optional<QString> MacOSVersion::readProductVersion(const QString& plistPath)
{
    QFile file(plistPath);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    // An XML property list: the <string> right after <key>ProductVersion</key>.
    QXmlStreamReader xml(&file);
    bool nextIsVersion = false;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == QLatin1String("key")) {
            nextIsVersion = xml.readElementText() == QLatin1String("ProductVersion");
        } else if (nextIsVersion) {
            if (xml.name() == QLatin1String("string"))
                return xml.readElementText();
            return std::nullopt;
        }
    }
    return std::nullopt;
}

int MacOSVersion::compareVersions(const QString& a, const QString& b)
{
    const QStringList pa = a.split(QLatin1Char('.'));
    const QStringList pb = b.split(QLatin1Char('.'));
    for (qsizetype i = 0; i < std::max(pa.size(), pb.size()); ++i) {
        const qlonglong x = i < pa.size() ? pa[i].toLongLong() : 0;
        const qlonglong y = i < pb.size() ? pb[i].toLongLong() : 0;
        if (x != y)
            return x < y ? -1 : 1;
    }
    return 0;
}

bool MacOSVersion::isMacOSHasVersion(const std::optional<QString>& version, bool orLower, bool orHigher) const
{
    if (!version || !m_systemVersion)
        return true;
    if (orLower && orHigher)
        return true;
    const int order = compareVersions(*version, *m_systemVersion); // V against S
    if (orHigher)
        return order <= 0;
    if (orLower)
        return order >= 0;
    return order == 0;
}

QString MacOSVersion::printTestToCheckMacOSVersion(const QString& version, bool orLower, bool orHigher) const
{
    QString line = version;
    if (orLower)
        line += QLatin1String(" < ");
    if (orHigher)
        line += QLatin1String(" > ");
    line += isMacOSHasVersion(version, orLower, orHigher) ? QLatin1String(" = YES") : QLatin1String(" = NO");
    qDebug().noquote() << line;
    return line;
}

QString MacOSVersion::printTestToCheckMacOSVersion(const QString& version) const
{
    return printTestToCheckMacOSVersion(version, false, false);
}

void MacOSVersion::runTests() const
{
    static const char* const versions[] = {"10.8", "10.8.4", "10.8.4.9", "10.8.5", "10.8.6", "10.9", "10.9.2",
                                           "10.9.4", "10.9.5", "10.9.6", "10.10", "10.10.1", "10.10.2", "10.10.4"};
    for (const char* v : versions) {
        const QString version = QString::fromLatin1(v);
        printTestToCheckMacOSVersion(version);
        printTestToCheckMacOSVersion(version, true, false);
        printTestToCheckMacOSVersion(version, false, true);
    }
}
