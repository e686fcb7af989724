#include "upnpreceiver.h"

#include "qtcompat.h"
#include "termsignal.h"
#include "upnpsettings.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDebug>
#include <QtCore/QSocketNotifier>
#include <QtNetwork/QNetworkInterface>
#include <QtNetwork/QUdpSocket>

#include <netinet/in.h>
#include <sys/socket.h>

static const char multicastInterface[] = "eth0";
static const unsigned char multicastTtl = 32;
static const int announcementPeriod = 100000; // ms

static const int maximalDatagramSize = 65536; // bytes

// More than a socket holds by default. Under a lasting flood the event loop still gets its turn.
static const int maximalDatagramsPerPass = 1000;

UpnpReceiver::UpnpReceiver(UpnpSettings *deviceSettings, QObject *parent)
    : QObject(parent)
    , udpSocket(new QUdpSocket(this))
    , settings(deviceSettings)
    , termNotifier(nullptr)
    , joinResult(1)
    , m_receiveBuffer(maximalDatagramSize, Qt::Uninitialized)
{
    udpSocket->bind(qtcompat::anyIPv4<QHostAddress>(), settings->getUdpPort(), QUdpSocket::ShareAddress);
    setupMulticast();
    connect(udpSocket, SIGNAL(readyRead()), this, SLOT(processDatagrams()));
    udpSocket->open(QIODevice::ReadWrite);

    createTermSocketPair();
    termNotifier = new QSocketNotifier(termSocketPair[1], QSocketNotifier::Read, this);
    connect(termNotifier, SIGNAL(activated(int)), this, SLOT(sendByeBye()));

    qtcompat::startExactTimer(this, announcementPeriod);
    sendAlive();
}

void UpnpReceiver::setupMulticast()
{
    if (joinResult == 0)
        return;
    const int descriptor = int(udpSocket->socketDescriptor());
    if (setsockopt(descriptor, IPPROTO_IP, IP_MULTICAST_TTL, &multicastTtl, sizeof multicastTtl) != 0)
        qWarning("setsocketopt ttl failed");

    const QNetworkInterface interface = QNetworkInterface::interfaceFromName(QLatin1String(multicastInterface));
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
        settings->getUuid(address), QDateTime::currentDateTime() };
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

// Reads without asking first what there is to be read: after a damaged datagram Qt says that there is nothing, and
// reports no other one before somebody reads.
void UpnpReceiver::processDatagrams()
{
    for (int i = 0; i < maximalDatagramsPerPass; ++i) {
        QHostAddress requester;
        quint16 port = 0;
        const qint64 size = udpSocket->readDatagram(m_receiveBuffer.data(), m_receiveBuffer.size(), &requester, &port);
        if (size < 0)
            return;
        answer(QByteArray::fromRawData(m_receiveBuffer.constData(), int(size)), requester, port);
    }
}

void UpnpReceiver::answer(const QByteArray &datagram, const QHostAddress &requester, quint16 port)
{
    const ssdp::AnswerKind kind = ssdp::answerKind(datagram, [&] { return settings->getUuid(requester); });
    if (kind == ssdp::NoAnswer)
        return;
    const ssdp::Answer answer = { settings->getHttpUrl(requester), settings->getServerHeader(), settings->getUuid(requester),
        QDateTime::currentDateTime() };
    udpSocket->writeDatagram(kind == ssdp::RootDeviceAnswer ? ssdp::rootDeviceAnswer(answer) : ssdp::uuidAnswer(answer),
        requester, port);
}

void UpnpReceiver::timerEvent(QTimerEvent *)
{
    qDebug("sending alive datagram:");
    sendAlive();
}

void UpnpReceiver::termSignal()
{
    sendByeBye();
    QCoreApplication::quit();
}
