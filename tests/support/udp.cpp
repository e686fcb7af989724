#include "udp.h"

#include "waitfor.h"

#include <arpa/inet.h>
#include <cstring>
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

Udp::Udp(const char *address, quint16 port)
    : m_descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
    , m_senderPort(0)
    , m_timeToLive(-1)
{
    const int on = 1;
    // Two sockets with the option could get the same port from the kernel.
    if (port != 0)
        setsockopt(m_descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(m_descriptor, IPPROTO_IP, IP_RECVTTL, &on, sizeof on);
    const struct sockaddr_in local = socketAddress(address, port);
    if (bind(m_descriptor, reinterpret_cast<const struct sockaddr *>(&local), sizeof local) != 0)
        qFatal("%s, port %d, cannot be bound", address, port);
}

Udp::~Udp()
{
    close(m_descriptor);
}

quint16 Udp::port() const
{
    struct sockaddr_in local = {};
    socklen_t size = sizeof local;
    getsockname(m_descriptor, reinterpret_cast<struct sockaddr *>(&local), &size);
    return ntohs(local.sin_port);
}

bool Udp::join(const char *group, const char *interfaceAddress)
{
    struct ip_mreq membership = {};
    membership.imr_multiaddr = socketAddress(group, 0).sin_addr;
    membership.imr_interface = socketAddress(interfaceAddress, 0).sin_addr;
    return setsockopt(m_descriptor, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0;
}

bool Udp::send(const QByteArray &datagram, const char *address, quint16 port)
{
    const struct sockaddr_in to = socketAddress(address, port);
    return sendto(m_descriptor, datagram.constData(), size_t(datagram.size()), 0, reinterpret_cast<const struct sockaddr *>(&to), sizeof to) == datagram.size();
}

QByteArray Udp::receiveNow()
{
    char buffer[65536];
    union {
        struct cmsghdr header;
        char space[CMSG_SPACE(sizeof(int))];
    } control;
    struct sockaddr_in from = {};
    struct iovec part = { buffer, sizeof buffer };
    struct msghdr message = {};
    message.msg_name = &from;
    message.msg_namelen = sizeof from;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = &control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(m_descriptor, &message, 0);
    if (size < 0)
        return QByteArray();
    m_senderPort = ntohs(from.sin_port);
    const struct cmsghdr *const header = CMSG_FIRSTHDR(&message);
    if (header && header->cmsg_level == IPPROTO_IP && header->cmsg_type == IP_TTL)
        std::memcpy(&m_timeToLive, CMSG_DATA(header), sizeof m_timeToLive);
    return QByteArray(buffer, int(size));
}

QByteArray Udp::receive()
{
    QByteArray datagram;
    waitFor([&] {
        datagram = receiveNow();
        return !datagram.isEmpty();
    });
    return datagram;
}
