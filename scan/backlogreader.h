#ifndef BACKLOGREADER_H
#define BACKLOGREADER_H

#include <QtCore/QObject>

class QUdpSocket;
class ZorvScan;

// Has the scan read on after each report of its socket, so that a burst of datagrams costs one turn of the event loop and
// not one for each of them. Not a slot of the scan: those are all on the bus.
class BacklogReader : public QObject
{
    Q_OBJECT

public:
    // Belongs to the socket, and works once it is moved behind the scan's own connection.
    BacklogReader(ZorvScan *scan, QUdpSocket *socket);

    // Behind all connections that readyRead() has by now: reads on when they have read.
    void moveLast();

private slots:
    void readOn();

private:
    ZorvScan *m_scan;
    QUdpSocket *m_socket;
};

#endif
