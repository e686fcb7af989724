// The dates of messages are those of QDateTime, in whatever language. Runs in several environments.
#include "localdate.h"

#include "qtversions.h"

#include <QtCore/QDateTime>
#include <QtTest/QtTest>

#include <ctime>

static const qint64 second = 1000; // ms
static const qint64 hour = 3600 * second;
static const qint64 day = 24 * hour;
static const qint64 newYear2026 = Q_INT64_C(1767225600000);

static QString qtText(qint64 moment, const char *format)
{
    return QDateTime::fromMSecsSinceEpoch(moment).toString(QLatin1String(format));
}

static void compareWithQt(qint64 moment)
{
    const QString twoDigits = qtText(moment, "ddd, dd MMM yyyy hh:mm:ss");
    const QString noLeadingZero = qtText(moment, "ddd, dd MMM yyyy hh:mm:s");
    QCOMPARE(localdate::text(moment, localdate::TwoDigits, localdate::Utf8), twoDigits.toUtf8());
    QCOMPARE(localdate::text(moment, localdate::TwoDigits, localdate::Local8Bit), twoDigits.toLocal8Bit());
    QCOMPARE(localdate::text(moment, localdate::NoLeadingZero, localdate::Utf8), noLeadingZero.toUtf8());
    QCOMPARE(localdate::text(moment, localdate::NoLeadingZero, localdate::Local8Bit), noLeadingZero.toLocal8Bit());
}

static void live(const char *timeZone)
{
    setenv("TZ", timeZone, 1); // qputenv() of Qt 4 never frees the one before
    tzset();
}

class TestLocalDate : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { live("UTC"); }

    void everyDayOfFourYears();
    void everySecondOfAMinute();
    void everyHourOfADay();
    void yearsToCome();
    void lastYearOfACentury();
    void timesBefore1970();
    void partsOfASecondAreCut();
    void summerTimeBeginsAndEnds();
    void leapSecondIsWrittenAsQtDoes();
    void changeOfTheTimeZoneIsFollowed();
    void namesAreInTheLanguageOfTheSystem();
};

void TestLocalDate::everyDayOfFourYears()
{
    for (int i = 0; i < 4 * 366; ++i)
        compareWithQt(newYear2026 + i * day);
}

void TestLocalDate::everySecondOfAMinute()
{
    for (int i = 0; i < 60; ++i)
        compareWithQt(newYear2026 + i * second);
}

void TestLocalDate::everyHourOfADay()
{
    for (int i = 0; i < 24; ++i)
        compareWithQt(newYear2026 + i * hour + 61 * second);
}

void TestLocalDate::yearsToCome()
{
    for (int zone = 0; zone < 2; ++zone) {
        compareWithQt(0);
        for (int i = 0; i < 200 * 12; ++i)
            compareWithQt(newYear2026 + i * 30 * day);
        live("CET-1CEST,M3.5.0,M10.5.0/3");
    }
}

void TestLocalDate::lastYearOfACentury()
{
    compareWithQt(Q_INT64_C(946598400000)); // 31 December 1999
}

void TestLocalDate::timesBefore1970()
{
    const qint64 before[] = { 1, 999, 1000, 1001, hour, 400 * day };
    for (qint64 moment : before)
        compareWithQt(-moment);
}

void TestLocalDate::partsOfASecondAreCut()
{
    compareWithQt(newYear2026 + 1);
    compareWithQt(newYear2026 + 999);
}

void TestLocalDate::summerTimeBeginsAndEnds()
{
    live("CET-1CEST,M3.5.0,M10.5.0/3");
    for (int i = 0; i < 365 * 24; ++i)
        compareWithQt(newYear2026 + i * hour);
}

// The end of a date, in the digits of the system
static QByteArray hours(int number)
{
    return QDateTime(QDate(2026, 1, 1), QTime(number, 0)).toString(QLatin1String("hh:mm:ss")).toUtf8();
}

// Qt's minutes have sixty seconds.
void TestLocalDate::leapSecondIsWrittenAsQtDoes()
{
    live("right/UTC");
    const qint64 leapSecondOf2016 = Q_INT64_C(1483228826000);
    const std::time_t seconds = std::time_t(leapSecondOf2016 / second);
    if (std::localtime(&seconds)->tm_sec != 60)
        SKIP("the machine has no time zones with leap seconds");
    for (qint64 moment = leapSecondOf2016 - second; moment <= leapSecondOf2016 + second; moment += second)
        compareWithQt(moment);
}

void TestLocalDate::changeOfTheTimeZoneIsFollowed()
{
    live("UTC");
    const QByteArray before = localdate::text(newYear2026, localdate::TwoDigits, localdate::Utf8);
    QVERIFY(before.endsWith(hours(0)));
    setenv("TZ", "EST5", 1);
    const QByteArray after = localdate::text(newYear2026, localdate::TwoDigits, localdate::Utf8);
    QVERIFY(after.endsWith(hours(19)));
}

void TestLocalDate::namesAreInTheLanguageOfTheSystem()
{
    const bool isGerman = qgetenv("LANGUAGE_OF_DATES") == "de";
    const QByteArray text = localdate::text(newYear2026 + 9 * 31 * day, localdate::TwoDigits, localdate::Utf8);
    QCOMPARE(bool(text.contains("Oct")), !isGerman);
    QCOMPARE(bool(text.contains("Okt")), isGerman);
}

QTEST_APPLESS_MAIN(TestLocalDate)
#include "tst_localdate.moc"
