// The least that a Qt program of this kind takes: a bus name with an object, the three sockets, one announcement,
// a timer, the event loop.
#include "qtcompat.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>
#include <QtDBus/QDBusConnection>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QUdpSocket>

static const char alive[] = "NOTIFY * HTTP/1.1\r\nHOST:239.255.255.250:1900\r\nNTS:ssdp:alive\r\n\r\n";

int main(int argc, char **argv)
{
    QDBusConnection bus = QDBusConnection::systemBus();
    bus.registerService(QLatin1String("com.zorv.upnpvelorn"));
    const QCoreApplication application(argc, argv);
    QObject object;
    bus.registerObject(QLatin1String("/zorvscan"), &object, QDBusConnection::ExportAllSlots);

    const QHostAddress group(QLatin1String("239.255.255.250"));
    QUdpSocket search;
    QUdpSocket scan;
    QTcpServer description;
    search.bind(qtcompat::anyIPv4<QHostAddress>(), 1900, QUdpSocket::ShareAddress);
    scan.bind(qtcompat::anyIPv4<QHostAddress>(), 31416, QUdpSocket::ShareAddress);
    description.listen(qtcompat::anyIPv4<QHostAddress>(), 8200);
    search.joinMulticastGroup(group);
    search.writeDatagram(alive, sizeof alive - 1, group, 1900);

    QTimer tick;
    tick.start(10000);
    return QCoreApplication::exec();
}
