#ifndef DEVICEINDEX_H
#define DEVICEINDEX_H

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QString>

class QObject;
class ZorvDevice;

// The known devices by uuid, and of each what is needed to take in a repeated announcement without a look at the device's
// object: with thousands of devices no cache holds those. The devices are not owned.
class DeviceIndex
{
public:
    struct Entry
    {
        ZorvDevice *device;
        QByteArray text; // its last announcement; shares the device's memory
        qint64 lastSeen; // milliseconds since 1970
    };

    // The hash of a uuid in Latin-1. Differs from process to process: nobody on the network can prepare uuids that have
    // the same one and would all have to be compared.
    static quint64 hashOf(const char *uuid, int size);

    // The device of this uuid whose last announcement is this text; null if there is none. Of the uuid its hash is enough:
    // the same text names the same device.
    Entry *findUnchanged(quint64 hash, const QByteArray &text);
    // The device of this uuid, or null. Entries stay where they are until they are removed.
    Entry *find(quint64 hash, const QString &uuid);
    void insert(quint64 hash, const Entry &entry);
    // Of a device that is being destroyed. Returns the size of its announcement in bytes, 0 if it was not there.
    int remove(const QObject *device);

    // Tells the devices when they were last seen.
    void tellLastSeen() const;

    int size() const { return m_entries.size(); }

private:
    typedef QMultiHash<quint64, Entry> Entries;
    Entries m_entries;
};

#endif
