#include "syslogsocket.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#ifndef _PATH_LOG
#define _PATH_LOG "/dev/log"
#endif

namespace kelta
{

SyslogSocket::SyslogSocket()
    : m_descriptor(-1)
    , m_isStream(false)
{
}

SyslogSocket::~SyslogSocket()
{
    close();
}

void SyslogSocket::send(const QByteArray &line)
{
    if (m_descriptor != -1 && trySend(line))
        return;
    close();
    connectToLog();
    if (m_descriptor != -1)
        trySend(line);
}

// False when the connection is of no more use; a full queue is no reason to connect anew.
bool SyslogSocket::trySend(const QByteArray &line)
{
    // On a stream the terminating zero separates the lines.
    const size_t length = size_t(line.size()) + (m_isStream ? 1 : 0);
    return ::send(m_descriptor, line.constData(), length, MSG_NOSIGNAL | MSG_DONTWAIT) != -1
        || errno == EAGAIN || errno == ENOBUFS || errno == EMSGSIZE;
}

void SyslogSocket::connectToLog()
{
    if (!connectToLog(SOCK_DGRAM) && errno == EPROTOTYPE)
        connectToLog(SOCK_STREAM);
}

bool SyslogSocket::connectToLog(int socketType)
{
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, _PATH_LOG);
    m_descriptor = socket(AF_UNIX, socketType | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (m_descriptor == -1)
        return false;
    m_isStream = socketType == SOCK_STREAM;
    if (connect(m_descriptor, reinterpret_cast<const struct sockaddr *>(&address), sizeof address) == 0)
        return true;
    const int reason = errno;
    close();
    errno = reason;
    return false;
}

void SyslogSocket::close()
{
    if (m_descriptor != -1)
        ::close(m_descriptor);
    m_descriptor = -1;
}

} // namespace kelta
