#include "deviceindex.h"

#include "zorvdevice.h"

#include <cstring>

#include <sys/auxv.h>

// Some of the random bytes that the kernel gives every process
static quint64 secretNumber()
{
    quint64 number = 0;
    if (const unsigned long random = getauxval(AT_RANDOM))
        std::memcpy(&number, reinterpret_cast<const void *>(random), sizeof number); // NOLINT(performance-no-int-to-ptr)
    return number;
}

// FNV-1a with a basis of its own (draft-eastlake-fnv)
quint64 DeviceIndex::hashOf(const char *uuid, int size)
{
    static const quint64 basis = Q_UINT64_C(0xcbf29ce484222325) ^ secretNumber();
    quint64 hash = basis;
    for (int i = 0; i < size; ++i)
        hash = (hash ^ uchar(uuid[i])) * Q_UINT64_C(0x100000001b3);
    return hash;
}

DeviceIndex::Entry *DeviceIndex::findUnchanged(quint64 hash, const QByteArray &text)
{
    for (Entries::iterator i = m_entries.find(hash); i != m_entries.end() && i.key() == hash; ++i) {
        if (i.value().text == text)
            return &i.value();
    }
    return nullptr;
}

DeviceIndex::Entry *DeviceIndex::find(quint64 hash, const QString &uuid)
{
    for (Entries::iterator i = m_entries.find(hash); i != m_entries.end() && i.key() == hash; ++i) {
        if (i.value().device->objectName() == uuid)
            return &i.value();
    }
    return nullptr;
}

void DeviceIndex::insert(quint64 hash, const Entry &entry)
{
    m_entries.insert(hash, entry);
}

// It is no ZorvDevice any more, but still has its name.
int DeviceIndex::remove(const QObject *device)
{
    const QByteArray uuid = device->objectName().toLatin1();
    const quint64 hash = hashOf(uuid.constData(), uuid.size());
    for (Entries::iterator i = m_entries.find(hash); i != m_entries.end() && i.key() == hash; ++i) {
        if (i.value().device == device) {
            const int textSize = i.value().text.size();
            m_entries.erase(i);
            return textSize;
        }
    }
    return 0;
}

void DeviceIndex::tellLastSeen() const
{
    for (Entries::const_iterator i = m_entries.constBegin(); i != m_entries.constEnd(); ++i)
        i.value().device->touch(i.value().lastSeen);
}
