#pragma once

#include "util/Clock.h"

#include <QByteArrayView>
#include <QCalendar>
#include <QDateTime>
#include <QString>

#include <optional>
#include <unordered_map>

// Relative date texts ("3 hours ago"), same-day times and month arithmetic. Every routine works in local
// time and the Gregorian calendar; an invalid QDateTime stands for "no date". Routines that depend on
// "now" read it from the clock they are given, so tests fix it.
namespace DateExtra {

// Calendar components of the interval between two dates, largest unit first (as a calendar counts them,
// so 31 January to 1 March is one month and one day). Negative when `to` lies before `from`.
struct Interval
{
    int year = 0;
    int month = 0;
    int weekOfYear = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    qint64 second = 0;
};
Interval calendarInterval(const QDateTime& from, const QDateTime& to);

// Lenient calendar fields: a month outside 1..12 rolls into the neighbouring years when a date is built.
struct DateComponents
{
    int year = 1;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
};
DateComponents componentsOf(const QDateTime& date);
QDateTime dateFromComponents(const DateComponents& components, const std::optional<QCalendar>& calendar = {});

// "just now", "а minute ago", "yesterday", "Mar, 7", "2 weeks ago", ...
QString stringDateIntervalSinceNow(const QDateTime& date, const Clock& clock = Clock::system());
// The texts of stringDateIntervalSinceNow for many dates against one "now", read once, each worked out
// once: a date's text depends only on its second and on whether its milliseconds are below, equal to or
// above those of "now", and a listing of files holds few distinct seconds. One thread.
class IntervalTextCache
{
public:
    explicit IntervalTextCache(const Clock& clock = Clock::system());
    // UTF-8; msecsSinceEpoch is a UTC instant.
    const QByteArray& utf8Text(qint64 msecsSinceEpoch);
    QDateTime now() const { return m_now; }

private:
    QDateTime m_now;
    int m_nowFraction = 0;
    std::unordered_map<qint64, QByteArray> m_texts;
};
// "Just now", "Opened 3 days ago", "Opened more than 1 month ago", ...
QString stringDateIntervalSinceNowExtended(const QDateTime& date, const Clock& clock = Clock::system());
// "3:07PM" when the date falls on today, else nullopt. Safe from any thread.
std::optional<QString> timeDescriptionIfSameDay(const QDateTime& date, const Clock& clock = Clock::system());
// "Mar, 7" (first three letters of the locale's month name); empty for the 1970 reference date.
QString shortStringDate(const QDateTime& date);

// Same year, month and day; an invalid `other` is never the same day (and so always a new one).
bool isTheSameDay(const QDateTime& date, const QDateTime& other);
bool isNewDay(const QDateTime& date, const QDateTime& other);
bool isTheSameMonth(const QDateTime& date, const QDateTime& other);
bool isNewMonth(const QDateTime& date, const QDateTime& other);

int getDayNumber(const QDateTime& date);
int getMonthNumber(const QDateTime& date);
int getDayCountInMonth(const QDateTime& date);
std::optional<QString> getMonthName(const QDateTime& date);
// English month name for 1..12, nullopt otherwise.
std::optional<QString> getMonthNameByNum(qint64 month);

// The date shifted by whole months or years, time of day kept, the day clamped to the target month's length
// (31 March - 1 month is 28 or 29 February; 29 February + 1 year is 28 February).
QDateTime dateWithMonthsSinceDate(const QDateTime& date, qint32 monthsCount);
QDateTime dateWithMonthsSinceNow(qint32 monthsCount, const Clock& clock = Clock::system());
QDateTime dateWithYearsSinceDate(const QDateTime& date, qint32 yearsCount);
QDateTime dateWithYearsSinceNow(qint32 yearsCount, const Clock& clock = Clock::system());

// The components with the day clamped to the length of their month (no calendar: the Gregorian one).
DateComponents checkDayInMonthForDateComponents(DateComponents components,
                                                const std::optional<QCalendar>& calendar = {});

// A classic 8-byte UTC date-time record (16-bit high seconds, 32-bit low seconds, 16-bit fraction, little-endian)
// as a date; nullopt for an all-zero record or one that is not 8 bytes long. Only bytes 2..7 count, read as one
// 48-bit number of seconds since 1904-01-01 UTC: the high seconds are ignored and the fraction is not scaled.
std::optional<QDateTime> convertUTCtoNSDate(QByteArrayView record);

} // namespace DateExtra
