#include "util/DateExtra.h"

#include "support/ManualClock.h"

#include <QTest>

#include <ctime>

#include <thread>
#include <vector>

namespace {
QDateTime at(int y, int mo, int d, int h = 0, int mi = 0, int s = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s));
}

// Saturday 7 March 2026, 15:07:00 local time.
const QDateTime kNow = at(2026, 3, 7, 15, 7, 0);

template <typename... Texts> void textRow(const char* name, const QDateTime& date, Texts... texts)
{
    ((QTest::newRow(name) << date) << ... << QString::fromUtf8(texts));
}

QList<qint64> fields(const DateExtra::Interval& iv)
{
    return {iv.year, iv.month, iv.weekOfYear, iv.day, iv.hour, iv.minute, iv.second};
}
} // namespace

class TestDateExtra : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    // First in the file, so the formatter's first use happens on several threads at once.
    void sameDayTimeFromManyThreads()
    {
        ManualClock clock(kNow);
        // Made here: local-time arithmetic goes through the C library's time-zone state, which the thread
        // sanitizer cannot see being locked.
        const QDateTime date = kNow.addSecs(60);
        std::vector<std::thread> threads;
        std::vector<QString> results(8);
        for (size_t i = 0; i < results.size(); ++i) {
            threads.emplace_back([&clock, &results, &date, i] {
                for (int n = 0; n < 200; ++n)
                    results[i] = DateExtra::timeDescriptionIfSameDay(date, clock).value_or(QString());
            });
        }
        for (std::thread& t : threads)
            t.join();
        for (const QString& r : results)
            QCOMPARE(r, QStringLiteral("3:08PM"));
    }

    void timeDescriptionIfSameDay_data()
    {
        QTest::addColumn<QDateTime>("date");
        QTest::addColumn<QString>("expected"); // "-": not today
        textRow("just after midnight", at(2026, 3, 7, 0, 30), "12:30AM");
        textRow("midday", at(2026, 3, 7, 12, 5), "12:05PM");
        textRow("later today", at(2026, 3, 7, 23, 59, 59), "11:59PM");
        textRow("yesterday late", at(2026, 3, 6, 23, 59, 59), "-");
        textRow("tomorrow", at(2026, 3, 8, 0, 0), "-");
        textRow("same day last year", at(2025, 3, 7, 15, 7), "-");
        textRow("no date", QDateTime(), "-");
    }
    void timeDescriptionIfSameDay()
    {
        QFETCH(QDateTime, date);
        ManualClock clock(kNow);
        QTEST(DateExtra::timeDescriptionIfSameDay(date, clock).value_or(QStringLiteral("-")), "expected");
    }

    void relativeTexts_data()
    {
        QTest::addColumn<QDateTime>("date");
        QTest::addColumn<QString>("shortText");
        QTest::addColumn<QString>("extended");
        textRow("4 s", kNow.addSecs(-4), "just now", "Just now");
        textRow("5 s", kNow.addSecs(-5), "just now", "5 seconds ago");
        textRow("59 s", kNow.addSecs(-59), "just now", "59 seconds ago");
        // The short texts' first letter is the Cyrillic a.
        textRow("60 s", kNow.addSecs(-60), "\u0430 minute ago", "A minute ago");
        textRow("119 s", kNow.addSecs(-119), "\u0430 minute ago", "A minute ago");
        textRow("120 s", kNow.addSecs(-120), "2 minutes ago", "2 minutes ago");
        textRow("59 min 59 s", kNow.addSecs(-3599), "59 minutes ago", "59 minutes ago");
        textRow("1 h", kNow.addSecs(-3600), "\u0430n hour ago", "An hour ago");
        textRow("23 h 59 min", kNow.addSecs(-86340), "23 hours ago", "23 hours ago");
        textRow("1 day", at(2026, 3, 6, 15, 7), "yesterday", "Opened 1 day ago");
        textRow("2 days", at(2026, 3, 5, 15, 7), "Mar, 5", "Opened 2 days ago");
        textRow("6 days 23 h", at(2026, 2, 28, 16, 7), "Feb, 28", "Opened 6 days ago");
        textRow("7 days", at(2026, 2, 28, 15, 7), "1 week ago", "Opened more than 1 week ago");
        textRow("27 days 23:59", at(2026, 2, 7, 15, 8), "3 weeks ago", "Opened more than 3 weeks ago");
        // February has 28 days: a calendar month, not four weeks.
        textRow("one calendar month", at(2026, 2, 7, 15, 7), "1 month ago", "Opened more than 1 month ago");
        textRow("31 Jan to 7 Mar", at(2026, 1, 31, 12, 0), "1 month ago", "Opened more than 1 month ago");
        textRow("11 months", at(2025, 3, 7, 15, 8), "11 months ago", "Opened more than 11 months ago");
        textRow("1 year", at(2025, 3, 7, 15, 7), "1 year ago", "Opened more than 1 year ago");
        textRow("a year ahead", at(2027, 3, 7, 15, 7), "just now", "Just now");
    }
    void relativeTexts()
    {
        QFETCH(QDateTime, date);
        ManualClock clock(kNow);
        QTEST(DateExtra::stringDateIntervalSinceNow(date, clock), "shortText");
        QTEST(DateExtra::stringDateIntervalSinceNowExtended(date, clock), "extended");
    }

    void calendarInterval_data()
    {
        QTest::addColumn<QDateTime>("from");
        QTest::addColumn<QDateTime>("to");
        QTest::addColumn<QList<qint64>>("expected"); // years, months, weeks, days, hours, minutes, seconds
        // 366 days across a leap day is one year and one day, not one year and a remainder of hours.
        QTest::newRow("across a leap day")
            << at(2023, 3, 7, 10, 0) << at(2024, 3, 7, 12, 30, 15) << QList<qint64>{1, 0, 0, 0, 2, 30, 15};
        QTest::newRow("months, weeks and days")
            << at(2026, 1, 10) << at(2026, 3, 29, 1) << QList<qint64>{0, 2, 2, 5, 1, 0, 0};
        QTest::newRow("backwards") << at(2026, 3, 29, 1) << at(2026, 1, 10) << QList<qint64>{0, -2, -2, -5, -1, 0, 0};
    }
    void calendarInterval()
    {
        QFETCH(QDateTime, from);
        QFETCH(QDateTime, to);
        QTEST(fields(DateExtra::calendarInterval(from, to)), "expected");
    }

    void shortStringDate()
    {
        QCOMPARE(DateExtra::shortStringDate(QDateTime::fromSecsSinceEpoch(0)), QString());
        QCOMPARE(DateExtra::shortStringDate(at(2026, 12, 31, 23, 59)), QStringLiteral("Dec, 31"));
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        const QString german = DateExtra::shortStringDate(at(2026, 3, 7));
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        QCOMPARE(german, QStringLiteral(u"M\u00e4r, 7"));
    }

    void sameDayAndMonth_data()
    {
        QTest::addColumn<QDateTime>("a");
        QTest::addColumn<QDateTime>("b");
        QTest::addColumn<bool>("sameDay");
        QTest::addColumn<bool>("sameMonth");
        QTest::newRow("both ends of a day") << at(2026, 3, 7) << at(2026, 3, 7, 23, 59, 59) << true << true;
        QTest::newRow("across midnight") << at(2026, 3, 7, 23, 59, 59) << at(2026, 3, 8) << false << true;
        QTest::newRow("across a month") << at(2026, 3, 31, 23, 59) << at(2026, 4, 1) << false << false;
        QTest::newRow("same day, other month") << at(2026, 3, 7) << at(2026, 4, 7) << false << false;
        QTest::newRow("same month, other year") << at(2026, 3, 7) << at(2025, 3, 7) << false << false;
        QTest::newRow("no other date") << kNow << QDateTime() << false << false;
    }
    void sameDayAndMonth()
    {
        QFETCH(QDateTime, a);
        QFETCH(QDateTime, b);
        QFETCH(bool, sameDay);
        QFETCH(bool, sameMonth);
        QCOMPARE(DateExtra::isTheSameDay(a, b), sameDay);
        QCOMPARE(DateExtra::isNewDay(a, b), !sameDay);
        QCOMPARE(DateExtra::isTheSameMonth(a, b), sameMonth);
        QCOMPARE(DateExtra::isNewMonth(a, b), !sameMonth);
    }

    void dayAndMonthNumbers_data()
    {
        QTest::addColumn<QDateTime>("date");
        QTest::addColumn<int>("daysInMonth");
        QTest::addColumn<QString>("monthName");
        QTest::newRow("leap February") << at(2024, 2, 10) << 29 << "February";
        QTest::newRow("common February") << at(2025, 2, 28) << 28 << "February";
        QTest::newRow("century February") << at(2100, 2, 1) << 28 << "February";
        QTest::newRow("April") << at(2026, 4, 30) << 30 << "April";
        QTest::newRow("New Year's Eve") << at(2026, 12, 31, 23, 59) << 31 << "December";
    }
    void dayAndMonthNumbers()
    {
        QFETCH(QDateTime, date);
        QFETCH(QString, monthName);
        QCOMPARE(DateExtra::getDayNumber(date), date.date().day());
        QCOMPARE(DateExtra::getMonthNumber(date), date.date().month());
        QTEST(DateExtra::getDayCountInMonth(date), "daysInMonth");
        QCOMPARE(DateExtra::getMonthName(date).value_or(QString()), monthName);
        QCOMPARE(DateExtra::getMonthNameByNum(date.date().month()).value_or(QString()), monthName);
    }

    void monthNumberOutOfRangeHasNoName()
    {
        QVERIFY(!DateExtra::getMonthNameByNum(0));
        QVERIFY(!DateExtra::getMonthNameByNum(13));
    }

    void shifts_data()
    {
        QTest::addColumn<QDateTime>("date");
        QTest::addColumn<int>("months");
        QTest::addColumn<int>("years");
        QTest::addColumn<QDateTime>("expected");
        QTest::newRow("next month, time kept") << at(2026, 3, 7, 15, 7, 9) << 1 << 0 << at(2026, 4, 7, 15, 7, 9);
        QTest::newRow("zero") << at(2026, 12, 31, 8) << 0 << 0 << at(2026, 12, 31, 8);
        QTest::newRow("wraps into last year") << at(2026, 1, 15) << -1 << 0 << at(2025, 12, 15);
        QTest::newRow("31 Jan + 1 clamps") << at(2026, 1, 31) << 1 << 0 << at(2026, 2, 28);
        QTest::newRow("31 Mar - 1 clamps to leap day") << at(2024, 3, 31) << -1 << 0 << at(2024, 2, 29);
        QTest::newRow("more than a year back") << at(2026, 3, 7) << -30 << 0 << at(2023, 9, 7);
        QTest::newRow("31 Aug + 18 clamps") << at(2026, 8, 31, 6) << 18 << 0 << at(2028, 2, 29, 6);
        QTest::newRow("29 Feb + 1 year") << at(2024, 2, 29, 10, 11, 12) << 0 << 1 << at(2025, 2, 28, 10, 11, 12);
        QTest::newRow("29 Feb - 1 year") << at(2024, 2, 29) << 0 << -1 << at(2023, 2, 28);
        QTest::newRow("29 Feb + 76 years to 2100") << at(2024, 2, 29) << 0 << 76 << at(2100, 2, 28);
    }
    void shifts()
    {
        QFETCH(QDateTime, date);
        QFETCH(int, months);
        QFETCH(int, years);
        QTEST(years ? DateExtra::dateWithYearsSinceDate(date, years) : DateExtra::dateWithMonthsSinceDate(date, months),
              "expected");
    }

    void shiftsFromNowUseTheClock()
    {
        ManualClock clock(at(2024, 2, 29, 9, 30));
        QCOMPARE(DateExtra::dateWithMonthsSinceNow(1, clock), at(2024, 3, 29, 9, 30));
        QCOMPARE(DateExtra::dateWithYearsSinceNow(1, clock), at(2025, 2, 28, 9, 30));
        QCOMPARE(DateExtra::dateWithMonthsSinceNow(-12, clock), at(2023, 2, 28, 9, 30));
    }

    void dayClampedToMonth_data()
    {
        QTest::addColumn<int>("year");
        QTest::addColumn<int>("month");
        QTest::addColumn<int>("day");
        QTest::addColumn<int>("calendar"); // QCalendar::System, -1 for none
        QTest::addColumn<int>("expected");
        QTest::newRow("fits") << 2026 << 3 << 7 << -1 << 7;
        QTest::newRow("31 February") << 2026 << 2 << 31 << -1 << 28;
        QTest::newRow("30 February, leap year") << 2024 << 2 << 30 << -1 << 29;
        QTest::newRow("month 14 is next February") << 2026 << 14 << 31 << -1 << 28;
        QTest::newRow("1900 is common in Gregorian") << 1900 << 2 << 29 << int(QCalendar::System::Gregorian) << 28;
        QTest::newRow("1900 is leap in Julian") << 1900 << 2 << 29 << int(QCalendar::System::Julian) << 29;
    }
    void dayClampedToMonth()
    {
        QFETCH(int, year);
        QFETCH(int, month);
        QFETCH(int, day);
        QFETCH(int, calendar);
        std::optional<QCalendar> cal;
        if (calendar >= 0)
            cal = QCalendar(static_cast<QCalendar::System>(calendar));
        const DateExtra::DateComponents c =
            DateExtra::checkDayInMonthForDateComponents({year, month, day, 1, 2, 3}, cal);
        QTEST(c.day, "expected");
        QCOMPARE(c.year, year);
        QCOMPARE(c.month, month);
        QCOMPARE(c.hour, 1);
    }

    void utcRecord_data()
    {
        QTest::addColumn<QByteArray>("record");
        QTest::addColumn<QDateTime>("expected"); // invalid: nil
        const auto utc = [](int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
            return QDateTime(QDate(y, mo, d), QTime(h, mi, s), Qt::UTC);
        };
        QTest::newRow("all zero") << QByteArray(8, '\0') << QDateTime();
        QTest::newRow("too short") << QByteArray::fromHex("00008051010000") << QDateTime();
        QTest::newRow("one day") << QByteArray::fromHex("0000805101000000") << utc(1904, 1, 2);
        QTest::newRow("high seconds ignored") << QByteArray::fromHex("0100000000000000") << utc(1904, 1, 1);
        QTest::newRow("high seconds and a date") << QByteArray::fromHex("0700001bd1e50000") << utc(2026, 3, 7);
        QTest::newRow("fraction counts as 2^32 s")
            << QByteArray::fromHex("0000000000000100") << utc(2040, 2, 6, 6, 28, 16);
    }
    void utcRecord()
    {
        QFETCH(QByteArray, record);
        QFETCH(QDateTime, expected);
        const std::optional<QDateTime> date = DateExtra::convertUTCtoNSDate(record);
        QCOMPARE(date.has_value(), expected.isValid());
        QCOMPARE(date.value_or(QDateTime()), expected);
    }

    // The cached texts are the plain routine's, in a zone with summer time, for dates on both sides of
    // its changes and of every unit's boundary, with milliseconds below, equal to and above those of
    // "now", met in an order that fills each second's entries from a different fraction first.
    void intervalTextCacheMatchesTheRoutine()
    {
        const QByteArray savedZone = qgetenv("TZ");
        qputenv("TZ", "Europe/Berlin");
        tzset();
        // Just after the spring change (29 March 2026, 02:00 -> 03:00) and the autumn one (25 October
        // 2026, 03:00 -> 02:00), and a day after the spring one, at one second to the hour.
        const QList<QDateTime> nows = {
            QDateTime(QDate(2026, 3, 29), QTime(3, 30, 10, 250)), QDateTime(QDate(2026, 10, 25), QTime(2, 30, 0, 999)),
            QDateTime(QDate(2026, 10, 25), QTime(2, 0, 0, 0)), QDateTime(QDate(2026, 3, 30), QTime(1, 59, 59, 1))};
        const QList<qint64> offsets = {
            0,          1,          59,          60,          61,          3599,      3600,      3601,      7199,
            7200,       86399,      86400,       86401,       2 * 86400,   6 * 86400, 7 * 86400, 8 * 86400, 29 * 86400,
            31 * 86400, 32 * 86400, 364 * 86400, 366 * 86400, 800 * 86400, -1,        -61,       -3600};
        int checked = 0;
        for (const QDateTime& now : nows) {
            ManualClock clock(now);
            DateExtra::IntervalTextCache cache(clock);
            QCOMPARE(cache.now(), now);
            const qint64 second = now.toMSecsSinceEpoch() / 1000;
            const int nowFraction = static_cast<int>(now.toMSecsSinceEpoch() % 1000);
            QList<int> fractions = {999, 0, 1, 998, nowFraction, nowFraction + 1, nowFraction - 1, 500};
            fractions.removeIf([](int f) { return f < 0 || f > 999; });
            for (int fraction : std::as_const(fractions)) {
                for (qint64 offset : offsets) {
                    const qint64 date = (second - offset) * 1000 + fraction;
                    const QString expected =
                        DateExtra::stringDateIntervalSinceNow(QDateTime::fromMSecsSinceEpoch(date, Qt::UTC), clock);
                    QCOMPARE(QString::fromUtf8(cache.utf8Text(date)), expected);
                    ++checked;
                }
            }
        }
        QVERIFY(checked > 600);
        if (savedZone.isNull())
            qunsetenv("TZ");
        else
            qputenv("TZ", savedZone);
        tzset();
    }

    // Dates before 1970 count their milliseconds up from their second too: 0.6 s before 1970 is not in
    // the first second of 1970, though both lie below "now"'s half second (a minute apart or not).
    void intervalTextCacheSplitsSecondsBefore1970()
    {
        ManualClock clock(QDateTime::fromMSecsSinceEpoch(59500, Qt::UTC));
        DateExtra::IntervalTextCache cache(clock);
        for (qint64 date : {qint64(-600), qint64(100), qint64(-1000), qint64(-999), qint64(0), qint64(59500)})
            QCOMPARE(QString::fromUtf8(cache.utf8Text(date)),
                     DateExtra::stringDateIntervalSinceNow(QDateTime::fromMSecsSinceEpoch(date, Qt::UTC), clock));
    }
};

QTEST_GUILESS_MAIN(TestDateExtra)
#include "TestDateExtra.moc"
