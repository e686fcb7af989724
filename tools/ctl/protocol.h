#ifndef PROTOCOL_H
#define PROTOCOL_H

#include <QtCore/QtGlobal>

// What is the same on every device: where it is reached, and who else is on the bus. What differs is in device.h.
namespace protocol
{

static const char searchGroup[] = "239.255.255.250";
static const quint16 searchPort = 1900;

static const char announcementGroup[] = "239.255.77.76";
static const quint16 announcementPort = 31416;

static const quint16 httpPort = 8200;
static const char descriptionPath[] = "/rootDesc.xml";

static const char connmanName[] = "net.connman";

} // namespace protocol

#endif
