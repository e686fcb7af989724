#ifndef DEVICEINDEX_H
#define DEVICEINDEX_H

#include <QtCore/QByteArray>
#include <QtCore/QHash>

class QObject;
class ZorvDevice;

// The known devices by uuid, and of each what is needed to take in a repeated announcement without a look at the device's
// object: with thousands of devices no cache holds those. The devices are not owned. uuids are in Latin-1.
class DeviceIndex
{
public:
    struct Entry
    {
        ZorvDevice *device;
        QByteArray text; // its last announcement; shares the device's memory
        qint64 lastSeen; // milliseconds since 1970; the device's own time is kept here
    };

    DeviceIndex() { }

    // The device of this uuid whose last announcement is this text; null if there is none. The entry stays where it is
    // until it is removed.
    Entry *findUnchanged(const QByteArray &uuid, const QByteArray &text);
    // The device of this uuid, or null.
    Entry *find(const QByteArray &uuid);
    // uuid: the device's name.
    void insert(const QByteArray &uuid, ZorvDevice *device);
    // Of a device that is being destroyed, or leaves. Returns the size of its announcement in bytes, 0 if it was not there.
    int remove(QObject *device);

    int size() const { return m_entries.size(); }

private:
    Q_DISABLE_COPY(DeviceIndex)

    typedef QMultiHash<uint, Entry> Entries; // by the hash of the uuid
    Entries m_entries;
};

#endif
