#ifndef SAMPLES_H
#define SAMPLES_H

#include <QtCore/QByteArray>

// The announcement of a device as the network carries it. Each number makes another device, each version (0 to 9) another
// text of the same device.
QByteArray sampleAnnouncement(int number, int version = 0);

// The same with another uuid, and another expiration in seconds.
QByteArray sampleAnnouncementOf(const QByteArray &uuid, int expiration, int version = 0);

#endif
