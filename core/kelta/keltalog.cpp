#include "keltalog.h"

#include "qtcompat.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <syslog.h>

namespace kelta
{

Keltalog keltalog;

static const qint64 maximalLinesAtOnce = 1000;
static const qint64 lineInterval = 5000; // ms, in the long run

static int severityOf(QtMsgType type)
{
    switch (type) {
    case QtWarningMsg:
        return LOG_WARNING;
    case QtCriticalMsg:
        return LOG_CRIT;
    case QtFatalMsg:
        return LOG_ALERT;
    default:
        return LOG_DEBUG;
    }
}

// Qt writes these at every introspection of an object with slots that have no D-Bus form, so any local
// program could fill the system log with them.
static bool isIntrospectionNoise(const char *text)
{
    static const char *const beginnings[] = { "Skipped method ", "Invalid return type in method ", "Unregistered input type in parameter list: " };
    for (const char *beginning : beginnings) {
        if (std::strncmp(text, beginning, std::strlen(beginning)) == 0)
            return true;
    }
    return false;
}

// "Nov  3 09:05:07", English in every locale, as syslog daemons read it.
static QByteArray timestamp()
{
    static const char months[][4] = { "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec" };
    const time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    char text[32];
    snprintf(text, sizeof text, "%s %2d %02d:%02d:%02d", months[local.tm_mon], local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return QByteArray(text);
}

Keltalog::Keltalog()
    : m_facility(FacilityUser)
    , m_threshold(LOG_DEBUG)
    , m_usedLines(0)
{
    m_clock.start();
}

void Keltalog::open(const QString &ident, Facility facility, Option)
{
    m_ident = ident.toLocal8Bit();
    m_facility = facility;
    qtcompat::installMessageSink(receiveQtMessage);
}

void Keltalog::setSyslogLevelWarning()
{
    m_threshold = LOG_WARNING;
}

void Keltalog::msg(QtMsgType type, const char *format, ...)
{
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    write(type, text);
}

void Keltalog::receiveQtMessage(QtMsgType type, const char *text)
{
    if (!isIntrospectionNoise(text))
        keltalog.write(type, text);
}

// Some warnings are written as often as a program on the device asks for what fails. The rate is above that of any
// trouble of the daemon's own.
bool Keltalog::isWithinRate(int severity)
{
    if (severity < LOG_WARNING)
        return true;
    const qint64 regained = m_clock.elapsed() / lineInterval;
    m_usedLines = qMax(m_usedLines, regained);
    if (m_usedLines - regained >= maximalLinesAtOnce)
        return false;
    ++m_usedLines;
    return true;
}

void Keltalog::write(QtMsgType type, const char *text)
{
    const int severity = severityOf(type);
    if (severity > m_threshold)
        return;
    QByteArray line;
    line += '<';
    line += QByteArray::number(m_facility | severity);
    line += '>';
    line += timestamp();
    line += ' ';
    line += m_ident;
    line += ": ";
    line += text;
    const QMutexLocker locker(&m_mutex);
    if (isWithinRate(severity))
        m_socket.send(line);
}

} // namespace kelta
