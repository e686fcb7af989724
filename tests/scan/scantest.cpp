#include "scantest.h"

#include "bytes.h"
#include "caughtlog.h"
#include "network.h"
#include "upnpsettings.h"
#include "zorvdevice.h"
#include "zorvscan.h"

#include <QtCore/QFile>
#include <QtNetwork/QUdpSocket>
#include <QtTest/QtTest>

ScanTest::ScanTest()
    : m_settings(nullptr)
    , m_peer(nullptr)
{
}

ScanTest::~ScanTest() = default;

void ScanTest::initTestCase()
{
    QVERIFY2(!qgetenv("SIMDEVICE_PEER").isEmpty(), "to be started on a network of its own");
    QVERIFY(m_services.start());
    m_settings = new UpnpSettings("Zorv", "http://www.zorv.example", "Kelta", "a device", "http://www.zorv.example/kelta", this);
    m_settings->configureIp();
    m_peer = new WirePeer;
}

void ScanTest::cleanupTestCase()
{
    delete m_peer;
    delete m_settings;
}

void ScanTest::init()
{
    m_log.reset(new CaughtLog);
    m_peer->upToNow();
    QVERIFY(!isMember());
}

void ScanTest::cleanup()
{
    m_log.reset();
    QVERIFY(networkUp());
}

bool ScanTest::networkUp()
{
    return network::ip("link set eth0 up") && network::ip("route replace default dev eth0") && m_peer->isReached();
}

QStringList ScanTest::takeWarnings()
{
    const QStringList taken = m_log->warnings();
    m_log->clear();
    return taken;
}

Loopback::Loopback()
    : m_socket(socket(AF_INET, SOCK_DGRAM, 0))
{
}

Loopback::~Loopback()
{
    close(m_socket);
}

bool Loopback::send(const QByteArray &data)
{
    return sendTo(m_socket, data, "127.0.0.1", 31416);
}

void Loopback::feed(ZorvScan &scan, const QByteArray &data)
{
    QVERIFY(send(data));
    scan.pendingDatagrams();
}

QByteArray announcing(const QByteArray &uuid, const QByteArray &expiration, const QByteArray &family, const QByteArray &interface)
{
    return "{\"params\":{\"device\":{\"name\":\"n-" + uuid + "\",\"uuid\":\"" + uuid + "\",\"type\":\"" + family
        + " CODESYS\",\"familyType\":\"" + family + "\",\"firmwareVersion\":\"2.0\"},\"netSettings\":{\"interface\":" + interface + "},\"expiration\":" + expiration + "}}";
}

bool isMember()
{
    QFile memberships(text("/proc/net/igmp"));
    return memberships.open(QIODevice::ReadOnly) && memberships.readAll().contains("4C4DFFEF"); // how the kernel writes 239.255.77.76
}

QList<ZorvDevice *> devicesOf(const ZorvScan &scan)
{
    return scan.findChildren<ZorvDevice *>();
}

ZorvDevice *deviceNamed(const ZorvScan &scan, const char *uuid)
{
    return scan.findChild<ZorvDevice *>(text(uuid));
}

static void readAll(ZorvScan &scan)
{
    const QUdpSocket *socket = scan.findChild<QUdpSocket *>();
    while (socket->hasPendingDatagrams())
        scan.pendingDatagrams();
}

void drain(ZorvScan &scan)
{
    readAll(scan);
    qDeleteAll(devicesOf(scan));
}

void drainOwn(ZorvScan &scan)
{
    readAll(scan);
    delete deviceNamed(scan, "KM-2044817");
}

void tick(ZorvScan &scan, int id)
{
    QTimerEvent event(id);
    QCoreApplication::sendEvent(&scan, &event);
}

void report(ZorvScan &scan)
{
    QVERIFY(QMetaObject::invokeMethod(scan.findChild<QUdpSocket *>(), "readyRead"));
}
