#include "announcementlistener.h"

#include "protocol.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

static const int maximalSize = 65536;

static struct sockaddr_in groupAddress()
{
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(protocol::announcementPort);
    inet_pton(AF_INET, protocol::announcementGroup, &address.sin_addr);
    return address;
}

AnnouncementListener::AnnouncementListener()
    : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    if (m_socket == -1 || !open())
        m_problem = QString::fromLocal8Bit(std::strerror(errno));
}

AnnouncementListener::~AnnouncementListener()
{
    if (m_socket != -1)
        close(m_socket);
}

static bool setOption(int descriptor, int option)
{
    const int on = 1;
    return setsockopt(descriptor, SOL_SOCKET, option, &on, sizeof on) == 0;
}

// Shares the port by SO_REUSEADDR where that is enough. Sockets with SO_REUSEPORT are a group of which newer kernels choose any
// one for what a single one of them has joined: the daemon would miss announcements.
static bool bindShared(int descriptor, const struct sockaddr_in &shared)
{
    const struct sockaddr *const address = reinterpret_cast<const struct sockaddr *>(&shared);
    if (!setOption(descriptor, SO_REUSEADDR))
        return false;
    if (bind(descriptor, address, sizeof shared) == 0)
        return true;
    return errno == EADDRINUSE && setOption(descriptor, SO_REUSEPORT) && bind(descriptor, address, sizeof shared) == 0;
}

// The group is joined where the daemon joins: on the interface of the route to it.
bool AnnouncementListener::open()
{
    const struct sockaddr_in address = groupAddress();
    struct ip_mreq membership = {};
    membership.imr_multiaddr = address.sin_addr;
    return bindShared(m_socket, address)
        && setsockopt(m_socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0;
}

QByteArray AnnouncementListener::next(int timeout)
{
    struct pollfd readable = { m_socket, POLLIN, 0 };
    if (poll(&readable, 1, timeout) <= 0)
        return QByteArray();
    QByteArray datagram(maximalSize, '\0');
    const ssize_t size = recv(m_socket, datagram.data(), size_t(datagram.size()), 0);
    datagram.resize(int(qMax(ssize_t(0), size)));
    return datagram;
}
