#ifndef WIREPEER_H
#define WIREPEER_H

#include <QtCore/QByteArray>
#include <QtCore/QList>

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

struct WireDatagram
{
    QByteArray data;
    quint16 port; // of the sender
};

inline sockaddr_in inetAddress(const char *address, quint16 port)
{
    sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    inet_pton(AF_INET, address, &result.sin_addr);
    return result;
}

inline bool sendTo(int socket, const QByteArray &data, const char *address, quint16 port)
{
    const sockaddr_in to = inetAddress(address, port);
    return sendto(socket, data.constData(), size_t(data.size()), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to) == data.size();
}

// The other host on the wire, a member of the announcements' group.
class WirePeer
{
public:
    WirePeer()
        : m_socket(-1)
    {
        const int home = ::open("/proc/self/ns/net", O_RDONLY);
        const int there = ::open(("/run/netns/" + qgetenv("SIMDEVICE_PEER")).constData(), O_RDONLY);
        if (setns(there, CLONE_NEWNET) == 0) {
            m_socket = socket(AF_INET, SOCK_DGRAM, 0);
            joinGroup();
            setns(home, CLONE_NEWNET);
        }
        close(there);
        close(home);
    }
    ~WirePeer() { close(m_socket); }

    bool announce(const QByteArray &data) { return sendTo(m_socket, data, "239.255.77.76", 31416); }

    // The next datagram, waited for; without data when none comes.
    WireDatagram next()
    {
        pollfd readable = { m_socket, POLLIN, 0 };
        WireDatagram result = { QByteArray(), 0 };
        if (poll(&readable, 1, 10000) == 1) {
            sockaddr_in from = {};
            socklen_t fromSize = sizeof from;
            result.data.resize(65536);
            const ssize_t size = recvfrom(m_socket, result.data.data(), 65536, 0, reinterpret_cast<sockaddr *>(&from), &fromSize);
            result.data.resize(int(size));
            result.port = ntohs(from.sin_port);
        }
        return result;
    }

    // Waits until what this host sends arrives there. An interface that was set up takes a moment.
    bool isReached()
    {
        for (int attempt = 0; attempt < 1000; ++attempt) {
            mark("is anybody there?");
            pollfd readable = { m_socket, POLLIN, 0 };
            if (poll(&readable, 1, 10) == 1) {
                upToNow();
                return true;
            }
        }
        return false;
    }

    // Everything that was sent to the group up to now.
    QList<QByteArray> upToNow()
    {
        mark("that is all");
        QList<QByteArray> result;
        for (QByteArray data = next().data; data != "that is all"; data = next().data) {
            result.append(data);
            if (data.isEmpty())
                break;
        }
        return result;
    }

private:
    static void mark(const char *text)
    {
        const int marking = socket(AF_INET, SOCK_DGRAM, 0);
        sendTo(marking, text, "239.255.77.76", 31416);
        close(marking);
    }

    void joinGroup()
    {
        const int yes = 1;
        setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        const sockaddr_in group = inetAddress("239.255.77.76", 31416);
        ip_mreq member = {};
        member.imr_multiaddr = group.sin_addr;
        member.imr_interface = inetAddress("10.77.0.3", 0).sin_addr;
        if (bind(m_socket, reinterpret_cast<const sockaddr *>(&group), sizeof group) != 0
            || setsockopt(m_socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &member, sizeof member) != 0)
            qFatal("the other host cannot join the group");
    }

    int m_socket;
};

#endif
