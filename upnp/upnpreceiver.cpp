#include "upnpreceiver.h"

#include "device.h"
#include "interfaces.h"
#include "qtcompat.h"
#include "sharedport.h"
#include "termsignal.h"
#include "upnpsettings.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QDebug>
#include <QtCore/QSocketNotifier>
#include <QtNetwork/QUdpSocket>

#include <netinet/in.h>
#include <sys/socket.h>

static const unsigned char multicastTtl = 32;
static const int announcementPeriod = 100000; // ms
static const int maximalBindTries = 4;

// More than a socket holds by default. Under a lasting flood the event loop still gets its turn.
static const int maximalDatagramsPerPass = 1000;

UpnpReceiver::UpnpReceiver(UpnpSettings *deviceSettings, QObject *parent)
    : QObject(parent)
    , udpSocket(new QUdpSocket(this))
    , settings(deviceSettings)
    , termNotifier(nullptr)
    , joinResult(1)
    , m_answerDate(ssdp::answerDate)
    , m_searchesAnswered(0)
{
    bindPort();
    setupMulticast();
    connect(udpSocket, SIGNAL(readyRead()), this, SLOT(processDatagrams()));
    udpSocket->open(QIODevice::ReadWrite);

    createTermSocketPair();
    termNotifier = new QSocketNotifier(termSocketPair[1], QSocketNotifier::Read, this);
    connect(termNotifier, SIGNAL(activated(int)), this, SLOT(sendByeBye()));

    qtcompat::startExactTimer(this, announcementPeriod);
    sendAlive();
}

// It has to succeed here: a socket that has sent is bound to a random port for good. So a failure that may pass (no descriptor,
// no memory) is tried again at once; a port that another program has is not.
void UpnpReceiver::bindPort()
{
    for (int tries = 0; tries < maximalBindTries; ++tries) {
        if (bindShared(udpSocket, settings->getUdpPort(), QUdpSocket::ShareAddress)
            || udpSocket->error() == QAbstractSocket::AddressInUseError)
            return;
    }
}

void UpnpReceiver::setupMulticast()
{
    if (joinResult == 0)
        return;
    const int descriptor = int(udpSocket->socketDescriptor());
    if (setsockopt(descriptor, IPPROTO_IP, IP_MULTICAST_TTL, &multicastTtl, sizeof multicastTtl) != 0)
        qWarning("setsocketopt ttl failed");

    const QNetworkInterface interface = networkInterface(QLatin1String(DEVICE_INTERFACE));
    if (!interface.isValid()) {
        qWarning("setsockopt: interface invalid");
        return;
    }
    const QList<QNetworkAddressEntry> addresses = interface.addressEntries();
    if (addresses.isEmpty()) {
        qWarning("setsockopt: no address");
        return;
    }
    struct ip_mreq membership = {};
    membership.imr_multiaddr.s_addr = htonl(settings->getMulticastAddress().toIPv4Address());
    membership.imr_interface.s_addr = htonl(addresses.first().ip().toIPv4Address());
    joinResult = setsockopt(descriptor, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership);
    if (joinResult != 0)
        qWarning("setsockopt multicast join failed");
    else
        qDebug("multicast join succeded.");
}

ssdp::Announcement UpnpReceiver::announcementFor(const QHostAddress &address) const
{
    return ssdp::Announcement{ settings->getMulticastUrl(), settings->getHttpUrl(address), settings->getServerHeader(),
        settings->getUuid(address), QDateTime::currentMSecsSinceEpoch() };
}

void UpnpReceiver::multicast(const QByteArray &message)
{
    udpSocket->writeDatagram(message, settings->getMulticastAddress(), settings->getUdpPort());
}

void UpnpReceiver::sendAlive()
{
    qDebug("sending alive");
    multicast(ssdp::alive(announcementFor(QHostAddress())));
    const QHostAddress autoip = settings->getAutoipAddress();
    if (!autoip.isNull())
        multicast(ssdp::alive(announcementFor(autoip)));
}

void UpnpReceiver::sendByeBye()
{
    qDebug("sending byebye");
    multicast(ssdp::byeBye(announcementFor(QHostAddress())));
    const QHostAddress autoip = settings->getAutoipAddress();
    if (!autoip.isNull())
        multicast(ssdp::autoipByeBye(announcementFor(autoip)));
    udpSocket->flush();
}

// Receives without Qt, at a tenth of its cost. False when nothing is there.
static bool receive(int descriptor, DatagramBuffer *buffer, QHostAddress *sender, quint16 *port)
{
    struct sockaddr_in from = {};
    socklen_t fromSize = sizeof from;
    const ssize_t received = recvfrom(descriptor, buffer->bytes(), DatagramBuffer::Size, 0,
        reinterpret_cast<struct sockaddr *>(&from), &fromSize);
    buffer->setSize(int(received));
    sender->setAddress(ntohl(from.sin_addr.s_addr));
    *port = ntohs(from.sin_port);
    return received >= 0;
}

// QUdpSocket reads the first datagram of a pass: otherwise it emits no further readyRead(). It is not asked first whether a
// datagram waits: after one with a wrong checksum it says that there is none.
void UpnpReceiver::processDatagrams()
{
    QHostAddress requester;
    quint16 port = 0;
    const int size = int(udpSocket->readDatagram(m_received.bytes(), DatagramBuffer::Size, &requester, &port));
    if (size < 0)
        return;
    m_received.setSize(size);
    const int descriptor = int(udpSocket->socketDescriptor());
    int count = 0;
    do {
        answer(m_received.datagram(), requester, port);
    } while (++count < maximalDatagramsPerPass && receive(descriptor, &m_received, &requester, &port));
}

// Sends without Qt, at a tenth of its cost. The socket is bound to IPv4, so the receiver's address is one of those.
static void send(int descriptor, const QByteArray &datagram, const QHostAddress &receiver, quint16 port)
{
    struct sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(receiver.toIPv4Address());
    to.sin_port = htons(port);
    sendto(descriptor, datagram.constData(), size_t(datagram.size()), 0,
        reinterpret_cast<const struct sockaddr *>(&to), sizeof to);
}

void UpnpReceiver::answer(const QByteArray &datagram, const QHostAddress &requester, quint16 port)
{
    const ssdp::AnswerKind kind = ssdp::answerKind(datagram, [&] { return settings->getUuid(requester); });
    if (kind == ssdp::NoAnswer)
        return;
    ++m_searchesAnswered;
    const ssdp::Answer answer = { settings->getHttpUrl(requester), settings->getServerHeader(), settings->getUuid(requester),
        m_answerDate.now() };
    send(int(udpSocket->socketDescriptor()), kind == ssdp::RootDeviceAnswer ? ssdp::rootDeviceAnswer(answer) : ssdp::uuidAnswer(answer),
        requester, port);
}

void UpnpReceiver::timerEvent(QTimerEvent *)
{
    setupMulticast(); // nothing, once the group is joined
    qDebug("sending alive datagram:");
    sendAlive();
}

void UpnpReceiver::termSignal()
{
    sendByeBye();
    QCoreApplication::quit();
}
