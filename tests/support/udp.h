#ifndef UDP_H
#define UDP_H

#include <QtCore/QByteArray>

// A plain UDP socket of another host's program. Receiving runs the event loop.
class Udp
{
public:
    // Bound to the address and port, shared with others; port 0 takes any free one.
    explicit Udp(const char *address, quint16 port = 0);
    ~Udp();

    quint16 port() const;
    // Joins the group on the interface that has the address.
    bool join(const char *group, const char *interfaceAddress);
    bool send(const QByteArray &datagram, const char *address, quint16 port);

    // The next datagram; empty when none comes.
    QByteArray receive();
    // The next datagram if it is there already.
    QByteArray receiveNow();
    // Of the last datagram received.
    quint16 senderPort() const { return m_senderPort; }
    int timeToLive() const { return m_timeToLive; }

private:
    Udp(const Udp &);
    Udp &operator=(const Udp &);

    int m_descriptor;
    quint16 m_senderPort;
    int m_timeToLive;
};

#endif
