#ifndef KELTALOG_H
#define KELTALOG_H

#include "syslogsocket.h"

#include <QtCore/QByteArray>
#include <QtCore/QElapsedTimer>
#include <QtCore/QMutex>
#include <QtCore/QString>

namespace kelta
{

// The system log of the process. Once open, it also carries Qt's own message channels
// (qDebug(), qWarning(), qCritical(), qFatal()) under the same ident, facility and threshold.
// A log that is absent, broken or read by nobody loses messages; it never stops the process.
// Texts are in the local 8-bit encoding. Every thread may write, once open() and setSyslogLevelWarning() have returned.
// Debug messages and warnings are written at a bounded rate: 1,000 at once, and one every five seconds in the long run. Critical
// and fatal messages are written always.
class Keltalog
{
public:
    // Values are those of <syslog.h>.
    enum Facility {
        FacilityUser = 8,
        FacilityDaemon = 24,
        FacilityLocal6 = 176
    };
    enum Option {
        NoOption = 0
    };

    Keltalog();

    // Names the lines of this process and takes over Qt's message channels. Debug messages pass until a
    // threshold is set. No option of <syslog.h> is supported.
    void open(const QString &ident, Facility facility, Option option);

    // From now on only warnings, critical and fatal messages are written.
    void setSyslogLevelWarning();

    // Writes one printf-style message, cut after 1,023 bytes; does nothing below the threshold.
    void msg(QtMsgType type, const char *format, ...) __attribute__((format(printf, 3, 4)));

private:
    static void receiveQtMessage(QtMsgType type, const char *text);
    void write(QtMsgType type, const char *text);
    bool isWithinRate(int severity);

    QMutex m_mutex; // QtDBus writes messages from a thread of its own
    SyslogSocket m_socket;
    QByteArray m_ident;
    int m_facility;
    int m_threshold;
    qint64 m_usedLines; // since the clock was started
    QElapsedTimer m_clock;
};

extern Keltalog keltalog;

} // namespace kelta

#endif
