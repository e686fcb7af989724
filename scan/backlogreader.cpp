#include "backlogreader.h"

#include "zorvscan.h"

#include <QtNetwork/QUdpSocket>

BacklogReader::BacklogReader(ZorvScan *scan, QUdpSocket *socket)
    : QObject(socket)
    , m_scan(scan)
    , m_socket(socket)
{
}

void BacklogReader::moveLast()
{
    disconnect(m_socket, SIGNAL(readyRead()), this, SLOT(readOn()));
    connect(m_socket, SIGNAL(readyRead()), this, SLOT(readOn()));
}

void BacklogReader::readOn()
{
    m_scan->takeBacklog();
}
