#include "localdate.h"

#include <QtCore/QDateTime>
#include <QtCore/QString>

#include <cstring>
#include <ctime>

namespace
{

bool isPosixName(const QByteArray &locale)
{
    const QByteArray name = locale.left(int(std::strcspn(locale.constData(), ".@")));
    return name == "C" || name == "POSIX";
}

// Qt takes the names of days and months by one variable, digits by another, and what its locale lacks by a third. So only
// where none of those that count names another locale is it sure what Qt would write.
bool isPosixLocale()
{
    static const char *const variables[] = { "LC_NUMERIC", "LC_TIME", "LANG" };
    const QByteArray all = qgetenv("LC_ALL");
    if (!all.isEmpty())
        return isPosixName(all);
    for (const char *variable : variables) {
        const QByteArray locale = qgetenv(variable);
        if (!locale.isEmpty() && !isPosixName(locale))
            return false;
    }
    return true;
}

void appendTwoDigits(QByteArray *text, int number)
{
    *text += char('0' + number / 10);
    *text += char('0' + number % 10);
}

// What Qt writes in that locale, without its tables of all others, which take some 190 KiB as soon as one date is asked for.
QByteArray posixText(const std::tm &time, localdate::Seconds seconds)
{
    static const char days[][4] = { "Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat" };
    static const char months[][4] = { "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec" };

    QByteArray text;
    text.reserve(32);
    text.append(days[time.tm_wday]).append(", ");
    appendTwoDigits(&text, time.tm_mday);
    text.append(' ').append(months[time.tm_mon]).append(' ');
    appendTwoDigits(&text, (time.tm_year + 1900) / 100);
    appendTwoDigits(&text, time.tm_year % 100);
    text += ' ';
    appendTwoDigits(&text, time.tm_hour);
    text += ':';
    appendTwoDigits(&text, time.tm_min);
    text += ':';
    if (seconds == localdate::NoLeadingZero && time.tm_sec < 10)
        text += char('0' + time.tm_sec);
    else
        appendTwoDigits(&text, time.tm_sec);
    return text;
}

// False when Qt has rules of its own: from 2038 on it takes the summer time of 2037, and it knows no leap seconds.
bool toLocalTime(qint64 moment, std::tm *time)
{
    const qint64 startOf2038 = Q_INT64_C(2145916800000);
    const qint64 aDay = 86400000; // for all time zones
    if (moment < 0 || moment > startOf2038 - aDay)
        return false;
    const std::time_t second = std::time_t(moment / 1000);
    tzset(); // localtime_r() alone would not notice another time zone
    return localtime_r(&second, time) && time->tm_sec < 60;
}

QByteArray qtText(qint64 moment, localdate::Seconds seconds, localdate::Encoding encoding)
{
    const char *const format = seconds == localdate::TwoDigits ? "ddd, dd MMM yyyy hh:mm:ss" : "ddd, dd MMM yyyy hh:mm:s";
    const QString text = QDateTime::fromMSecsSinceEpoch(moment).toString(QLatin1String(format));
    return encoding == localdate::Utf8 ? text.toUtf8() : text.toLocal8Bit();
}

} // namespace

QByteArray localdate::text(qint64 moment, Seconds seconds, Encoding encoding)
{
    static const bool isPosix = isPosixLocale();
    std::tm time = {};
    if (isPosix && toLocalTime(moment, &time))
        return posixText(time, seconds);
    return qtText(moment, seconds, encoding);
}
