#include "peer.h"

#include "waitfor.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

static struct sockaddr_in socketAddress(const char *address, quint16 port)
{
    struct sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    inet_pton(AF_INET, address, &result.sin_addr);
    return result;
}

// The kernel makes the connection whether or not the server has accepted it yet, so connecting may block.
Peer::Peer(const char *from)
    : m_descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    , m_atEnd(false)
    , m_wasReset(false)
{
    const struct sockaddr_in local = socketAddress(from, 0);
    const struct sockaddr_in server = socketAddress("10.77.0.2", 8200);
    if (bind(m_descriptor, reinterpret_cast<const struct sockaddr *>(&local), sizeof local) != 0
        || connect(m_descriptor, reinterpret_cast<const struct sockaddr *>(&server), sizeof server) != 0) {
        close(m_descriptor);
        m_descriptor = -1;
        return;
    }
    fcntl(m_descriptor, F_SETFL, fcntl(m_descriptor, F_GETFL) | O_NONBLOCK);
}

Peer::~Peer()
{
    if (m_descriptor != -1)
        close(m_descriptor);
}

bool Peer::send(const QByteArray &bytes)
{
    int sent = 0;
    bool broken = false;
    const auto sendMore = [&] {
        const ssize_t result = ::send(m_descriptor, bytes.constData() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
        if (result > 0)
            sent += int(result);
        broken = result == -1 && errno != EAGAIN && errno != EINTR;
        return broken || sent == bytes.size();
    };
    return waitFor(sendMore) && !broken;
}

void Peer::read(int maximum)
{
    QByteArray buffer(maximum, '\0');
    const ssize_t result = recv(m_descriptor, buffer.data(), size_t(maximum), 0);
    if (result > 0)
        m_received += buffer.left(int(result));
    else if (result == 0)
        m_atEnd = true;
    else if (errno == ECONNRESET)
        m_wasReset = true;
}

bool Peer::isAtEnd()
{
    read();
    return m_atEnd;
}

bool Peer::readToEnd()
{
    return waitFor([this] { return isAtEnd() || m_wasReset; }) && !m_wasReset;
}

void Peer::endWriting()
{
    shutdown(m_descriptor, SHUT_WR);
}

void Peer::reset()
{
    const struct linger noLinger = { 1, 0 };
    setsockopt(m_descriptor, SOL_SOCKET, SO_LINGER, &noLinger, sizeof noLinger);
    close(m_descriptor);
    m_descriptor = -1;
}
