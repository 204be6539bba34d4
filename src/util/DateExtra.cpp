#include "DateExtra.h"

#include <QLocale>

#include <algorithm>
#include <array>
#include <limits>

namespace DateExtra {

namespace {

Interval forwardInterval(const QDateTime& from, const QDateTime& to)
{
    Interval iv;
    // Whole months first: adding months clamps the day (31 January + 1 month = 28 February), so the count
    // can only be one too high.
    int months = (to.date().year() - from.date().year()) * 12 + (to.date().month() - from.date().month());
    while (months > 0 && from.addMonths(months) > to)
        --months;
    QDateTime cursor = from.addMonths(months);
    iv.year = months / 12;
    iv.month = months % 12;

    qint64 days = cursor.date().daysTo(to.date());
    while (days > 0 && cursor.addDays(days) > to)
        --days;
    cursor = cursor.addDays(days);
    iv.weekOfYear = static_cast<int>(days / 7);
    iv.day = static_cast<int>(days % 7);

    const qint64 secs = cursor.secsTo(to);
    iv.hour = static_cast<int>(secs / 3600);
    iv.minute = static_cast<int>(secs % 3600 / 60);
    iv.second = secs % 60;
    return iv;
}

int floorDiv(qint64 a, int b, int* remainder)
{
    qint64 q = a / b;
    qint64 r = a % b;
    if (r < 0) {
        r += b;
        --q;
    }
    *remainder = static_cast<int>(r);
    return static_cast<int>(q);
}

// The year and month 1..12 that a lenient (year, month) pair stands for.
void normalizeMonth(const DateComponents& c, int* year, int* month)
{
    int rem = 0;
    *year = c.year + floorDiv(qint64(c.month) - 1, 12, &rem);
    *month = rem + 1;
}

} // namespace

Interval calendarInterval(const QDateTime& from, const QDateTime& to)
{
    if (!from.isValid() || !to.isValid())
        return {};
    const QDateTime a = from.toLocalTime();
    const QDateTime b = to.toLocalTime();
    if (b >= a)
        return forwardInterval(a, b);
    Interval iv = forwardInterval(b, a);
    return {-iv.year, -iv.month, -iv.weekOfYear, -iv.day, -iv.hour, -iv.minute, -iv.second};
}

DateComponents componentsOf(const QDateTime& date)
{
    const QDateTime local = date.toLocalTime();
    const QDate d = local.date();
    const QTime t = local.time();
    return {d.year(), d.month(), d.day(), t.hour(), t.minute(), t.second()};
}

QDateTime dateFromComponents(const DateComponents& components, const std::optional<QCalendar>& calendar)
{
    const QCalendar cal = calendar.value_or(QCalendar());
    int year = 0;
    int month = 0;
    normalizeMonth(components, &year, &month);
    const QDate date = QDate(year, month, 1, cal).addDays(components.day - 1);
    if (!date.isValid())
        return {};
    const QTime time(components.hour, components.minute, components.second);
    if (time.isValid())
        return QDateTime(date, time);
    return QDateTime(date, QTime(0, 0))
        .addSecs(qint64(components.hour) * 3600 + qint64(components.minute) * 60 + components.second);
}

QString stringDateIntervalSinceNow(const QDateTime& date, const Clock& clock)
{
    const Interval iv = calendarInterval(date, clock.now());
    if (iv.year >= 1)
        return iv.year == 1 ? QStringLiteral("1 year ago") : QStringLiteral("%1 years ago").arg(iv.year);
    if (iv.month >= 1)
        return iv.month == 1 ? QStringLiteral("1 month ago") : QStringLiteral("%1 months ago").arg(iv.month);
    if (iv.weekOfYear >= 1)
        return iv.weekOfYear == 1 ? QStringLiteral("1 week ago") : QStringLiteral("%1 weeks ago").arg(iv.weekOfYear);
    if (iv.day >= 1)
        return iv.day == 1 ? QStringLiteral("yesterday") : shortStringDate(date);
    // The first letter of these two is the Cyrillic a, as the texts have always been.
    if (iv.hour >= 1)
        return iv.hour == 1 ? QStringLiteral(u"\u0430n hour ago") : QStringLiteral("%1 hours ago").arg(iv.hour);
    if (iv.minute >= 1)
        return iv.minute == 1 ? QStringLiteral(u"\u0430 minute ago") : QStringLiteral("%1 minutes ago").arg(iv.minute);
    // With no whole minute the seconds are always below 60: the second text is never reached.
    if (iv.second < 60)
        return QStringLiteral("just now");
    return QStringLiteral("%1 seconds ago").arg(iv.second);
}

namespace {

// Answers one fixed instant.
class FixedClock final : public Clock
{
public:
    explicit FixedClock(const QDateTime& now)
        : m_now(now)
    {
    }
    QDateTime now() const override { return m_now; }
    Handle callAfter(int, QObject*, std::function<void()>) override { return {}; }

private:
    QDateTime m_now;
};

} // namespace

IntervalTextCache::IntervalTextCache(const Clock& clock)
    : m_now(clock.now())
{
    const qint64 msecs = m_now.toMSecsSinceEpoch();
    m_nowFraction = static_cast<int>((msecs % 1000 + 1000) % 1000);
}

const QByteArray& IntervalTextCache::utf8Text(qint64 msecsSinceEpoch)
{
    // Floor division: the milliseconds of a date before 1970 count up from its second too.
    qint64 second = msecsSinceEpoch / 1000;
    if (msecsSinceEpoch % 1000 < 0)
        --second;
    const auto fraction = static_cast<int>(msecsSinceEpoch - second * 1000);
    const int order = fraction < m_nowFraction ? 0 : fraction == m_nowFraction ? 1 : 2;
    auto [it, added] = m_texts.try_emplace(second * 3 + order);
    if (added) {
        const FixedClock clock(m_now);
        it->second =
            stringDateIntervalSinceNow(QDateTime::fromMSecsSinceEpoch(msecsSinceEpoch, Qt::UTC), clock).toUtf8();
    }
    return it->second;
}

QString stringDateIntervalSinceNowExtended(const QDateTime& date, const Clock& clock)
{
    const Interval iv = calendarInterval(date, clock.now());
    if (iv.year >= 1)
        return iv.year == 1 ? QStringLiteral("Opened more than 1 year ago")
                            : QStringLiteral("Opened more than %1 years ago").arg(iv.year);
    if (iv.month >= 1)
        return iv.month == 1 ? QStringLiteral("Opened more than 1 month ago")
                             : QStringLiteral("Opened more than %1 months ago").arg(iv.month);
    if (iv.weekOfYear >= 1)
        return iv.weekOfYear == 1 ? QStringLiteral("Opened more than 1 week ago")
                                  : QStringLiteral("Opened more than %1 weeks ago").arg(iv.weekOfYear);
    if (iv.day >= 1)
        return iv.day == 1 ? QStringLiteral("Opened 1 day ago") : QStringLiteral("Opened %1 days ago").arg(iv.day);
    if (iv.hour >= 1)
        return iv.hour == 1 ? QStringLiteral("An hour ago") : QStringLiteral("%1 hours ago").arg(iv.hour);
    if (iv.minute >= 1)
        return iv.minute == 1 ? QStringLiteral("A minute ago") : QStringLiteral("%1 minutes ago").arg(iv.minute);
    if (iv.second < 5)
        return QStringLiteral("Just now");
    return QStringLiteral("%1 seconds ago").arg(iv.second);
}

std::optional<QString> timeDescriptionIfSameDay(const QDateTime& date, const Clock& clock)
{
    if (!date.isValid() || date.toLocalTime().date() != clock.now().toLocalTime().date())
        return std::nullopt;
    // One formatter for the process; the static's initialisation is what makes first use from two
    // threads safe, and after it the locale is only read. English AM/PM whatever the user's locale.
    static const QLocale formatter(QLocale::English, QLocale::UnitedStates);
    return formatter.toString(date.toLocalTime().time(), QStringLiteral("h:mmAP"));
}

QString shortStringDate(const QDateTime& date)
{
    if (!date.isValid() || date.toMSecsSinceEpoch() == 0)
        return QString();
    const QDate d = date.toLocalTime().date();
    const int month = std::clamp(d.month(), 1, 12);
    return QStringLiteral("%1, %2").arg(QLocale().monthName(month, QLocale::LongFormat).left(3)).arg(d.day());
}

bool isTheSameDay(const QDateTime& date, const QDateTime& other)
{
    return date.isValid() && other.isValid() && date.toLocalTime().date() == other.toLocalTime().date();
}

bool isNewDay(const QDateTime& date, const QDateTime& other)
{
    return !isTheSameDay(date, other);
}

bool isTheSameMonth(const QDateTime& date, const QDateTime& other)
{
    if (!date.isValid() || !other.isValid())
        return false;
    const QDate a = date.toLocalTime().date();
    const QDate b = other.toLocalTime().date();
    return a.year() == b.year() && a.month() == b.month();
}

bool isNewMonth(const QDateTime& date, const QDateTime& other)
{
    return !isTheSameMonth(date, other);
}

int getDayNumber(const QDateTime& date)
{
    return date.toLocalTime().date().day();
}

int getMonthNumber(const QDateTime& date)
{
    return date.toLocalTime().date().month();
}

int getDayCountInMonth(const QDateTime& date)
{
    return date.toLocalTime().date().daysInMonth();
}

std::optional<QString> getMonthName(const QDateTime& date)
{
    return getMonthNameByNum(getMonthNumber(date));
}

std::optional<QString> getMonthNameByNum(qint64 month)
{
    static const std::array<const char*, 13> names = {" ",       "January",  "February", "March",  "April",
                                                      "May",     "June",     "July",     "August", "September",
                                                      "October", "November", "December"};
    if (month > 0 && month < qint64(names.size()))
        return QString::fromLatin1(names[static_cast<size_t>(month)]);
    return std::nullopt;
}

QDateTime dateWithMonthsSinceDate(const QDateTime& date, qint32 monthsCount)
{
    if (!date.isValid())
        return {};
    DateComponents c = componentsOf(date);
    // One wrap only; a month still outside 1..12 rolls on when the date is built.
    const qint64 t = qint64(c.month) + monthsCount;
    if (t >= 13) {
        c.month = static_cast<int>(t - 12);
        c.year += 1;
    } else if (t <= 0) {
        c.month = static_cast<int>(t + 12);
        c.year -= 1;
    } else {
        c.month = static_cast<int>(t);
    }
    return dateFromComponents(checkDayInMonthForDateComponents(c));
}

QDateTime dateWithMonthsSinceNow(qint32 monthsCount, const Clock& clock)
{
    return dateWithMonthsSinceDate(clock.now(), monthsCount);
}

QDateTime dateWithYearsSinceDate(const QDateTime& date, qint32 yearsCount)
{
    if (!date.isValid())
        return {};
    DateComponents c = componentsOf(date);
    const qint64 year = qint64(c.year) + yearsCount;
    if (year > std::numeric_limits<int>::max() || year < std::numeric_limits<int>::min())
        return {};
    c.year = static_cast<int>(year);
    return dateFromComponents(checkDayInMonthForDateComponents(c));
}

QDateTime dateWithYearsSinceNow(qint32 yearsCount, const Clock& clock)
{
    return dateWithYearsSinceDate(clock.now(), yearsCount);
}

DateComponents checkDayInMonthForDateComponents(DateComponents components, const std::optional<QCalendar>& calendar)
{
    const QCalendar cal = calendar.value_or(QCalendar());
    const int day = components.day;
    components.day = 1;
    const QDate first = dateFromComponents(components, cal).date();
    if (!first.isValid()) {
        components.day = day;
        return components;
    }
    const int days = cal.daysInMonth(first.month(cal), first.year(cal));
    components.day = std::min(day, days);
    return components;
}

std::optional<QDateTime> convertUTCtoNSDate(QByteArrayView record)
{
    if (record.size() != 8)
        return std::nullopt;
    if (std::all_of(record.begin(), record.end(), [](char b) { return b == 0; }))
        return std::nullopt;
    // Bytes 2..7, little-endian: the low seconds plus the fraction field times 2^32.
    quint64 seconds = 0;
    for (int i = 7; i >= 2; --i)
        seconds = (seconds << 8) | static_cast<quint8>(record[i]);
    static const QDateTime epoch1904(QDate(1904, 1, 1), QTime(0, 0), Qt::UTC);
    return epoch1904.addSecs(static_cast<qint64>(seconds));
}

} // namespace DateExtra
