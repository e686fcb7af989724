// What the tests of ZorvScan share.
#ifndef SCANTEST_H
#define SCANTEST_H

#include "deviceservices.h"
#include "eventloop.h"
#include "wirepeer.h"

#include <QtCore/QObject>
#include <QtCore/QScopedPointer>

class CaughtLog;
class UpnpSettings;
class ZorvDevice;
class ZorvScan;

static const int interval = 10; // seconds

// A device with its services, and another host on the wire. After each test its network is up again.
class ScanTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

protected:
    ScanTest();
    ~ScanTest();

    bool networkUp();
    // Those since the last call.
    QStringList takeWarnings();

    UpnpSettings *m_settings;
    WirePeer *m_peer;

private:
    DeviceServices m_services;
    QScopedPointer<CaughtLog> m_log;
};

// Puts datagrams straight into the socket's queue, without the way over the wire.
class Loopback
{
public:
    Loopback();
    ~Loopback();

    bool send(const QByteArray &data);

    // Has the scan take one datagram in.
    void feed(ZorvScan &scan, const QByteArray &data);

private:
    Q_DISABLE_COPY(Loopback)

    int m_socket;
};

QByteArray announcing(const QByteArray &uuid, const QByteArray &expiration = "22", const QByteArray &family = "Kelta",
    const QByteArray &interface = "{\"name\":\"eth0\",\"type\":\"ethernet\",\"ipv4\":[],\"ipv6\":[],\"configurationMethod\":\"dhcp\"}");

// Whether this host has asked for the group on eth0.
bool isMember();

QList<ZorvDevice *> devicesOf(const ZorvScan &scan);
ZorvDevice *deviceNamed(const ZorvScan &scan, const char *uuid);

// The scan's own announcement comes back to it: takes it out of the queue, which then is empty.
void drain(ZorvScan &scan);
// The same, and what else was heard stays.
void drainOwn(ZorvScan &scan);

void tick(ZorvScan &scan, int id = 1);
// The socket has something to read.
void report(ZorvScan &scan);

#endif
