#ifndef REGISTRY_H
#define REGISTRY_H

#include "upnpsettings.h"
#include "zorvscan.h"

#include <QtCore/QByteArray>
#include <QtNetwork/QUdpSocket>

// The device's registry of others, and a socket that announces to it. No service is on its bus, so the settings are empty.
class Registry
{
public:
    Registry();

protected:
    void send(const QByteArray &announcement);

    ZorvScan &scan() { return m_scan; }

private:
    UpnpSettings m_settings;
    ZorvScan m_scan;
    QUdpSocket m_sender;
};

// Processor time of this thread, in seconds
double processorTime();

#endif
