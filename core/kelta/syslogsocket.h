#ifndef SYSLOGSOCKET_H
#define SYSLOGSOCKET_H

#include <QtCore/QByteArray>

namespace kelta
{

// The sending end of /dev/log (RFC 3164, section 4.1, as local programs write it).
// syslog(3) blocks when nobody reads from /dev/log; this socket drops the line instead.
// Not thread-safe: Keltalog locks it.
class SyslogSocket
{
public:
    SyslogSocket();
    ~SyslogSocket();

    // Sends one line, connecting first where needed; a syslog daemon that was restarted is found again.
    // A line that cannot be sent at once is lost.
    void send(const QByteArray &line);

private:
    Q_DISABLE_COPY(SyslogSocket)

    bool trySend(const QByteArray &line);
    void connectToLog();
    bool connectToLog(int socketType);
    void close();

    int m_descriptor;
    bool m_isStream;
};

} // namespace kelta

#endif
