#ifndef SAMPLES_H
#define SAMPLES_H

#include <QtCore/QByteArray>

// The announcement of a device as the network carries it. Each number makes another device.
QByteArray sampleAnnouncement(int number);

#endif
