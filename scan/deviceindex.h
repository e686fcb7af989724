#ifndef DEVICEINDEX_H
#define DEVICEINDEX_H

#include "siphash.h"

#include <QtCore/QByteArray>
#include <QtCore/QVector>

class ZorvDevice;

// Finds the devices of a registry by uuid, which is their object name. It stores pointers to them and nothing else of them.
// uuids are in Latin-1.
//
// The devices are not owned. One that is destroyed leaves by itself. One that is renamed is no longer found by its old name,
// and by its new one from the next enter() on.
//
// Whatever the uuids are, they cost the same: strangers choose them, but not the key of their hashes.
class DeviceIndex
{
public:
    DeviceIndex();
    ~DeviceIndex();

    // The device of this uuid, or null.
    ZorvDevice *find(const QByteArray &uuid) const;
    // The device of this uuid whose last announcement is this text, or null.
    ZorvDevice *findUnchanged(const QByteArray &uuid, const QByteArray &text) const;
    // Takes the device in, under the name that it has now; one that is there already moves when its name has changed.
    // It must not be in another index.
    void enter(ZorvDevice *device);
    // Does nothing for a device that is not in this index.
    void remove(ZorvDevice *device);

    int size() const { return m_size; }
    // Of the last announcements of all its devices, in bytes.
    int textSize() const { return m_textSize; }
    // For devices: the last announcement of one in the index has become so many bytes longer.
    void textHasGrown(int bytes) { m_textSize += bytes; }

private:
    Q_DISABLE_COPY(DeviceIndex)

    // By open addressing: a device is in the first slot from its hash's on that was free. Never more than three of four
    // slots are taken, so all searches are short.
    struct Slot
    {
        quint64 hash;
        ZorvDevice *device; // null: free
    };

    int home(quint64 hash) const { return int(hash & quint64(m_slots.size() - 1)); }
    int next(int place) const { return (place + 1) & (m_slots.size() - 1); }
    quint64 hashOf(const QByteArray &uuid) const { return siphash::hash<1, 3>(m_key, uuid); }
    void insert(const Slot &slot);
    void put(const Slot &slot, int place);
    void fill(int hole);
    void resize(int count);

    const siphash::Key m_key;
    QVector<Slot> m_slots; // their number is a power of two
    int m_size;
    int m_textSize;
};

#endif
