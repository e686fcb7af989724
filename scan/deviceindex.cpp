#include "deviceindex.h"

#include "zorvdevice.h"

// The same text names the same device, so of the uuid its hash is enough.
DeviceIndex::Entry *DeviceIndex::findUnchanged(const QByteArray &uuid, const QByteArray &text)
{
    const uint hash = qHash(uuid);
    for (Entries::iterator i = m_entries.find(hash); i != m_entries.end() && i.key() == hash; ++i) {
        if (i.value().text == text)
            return &i.value();
    }
    return nullptr;
}

DeviceIndex::Entry *DeviceIndex::find(const QByteArray &uuid)
{
    const uint hash = qHash(uuid);
    const QString name = QString::fromLatin1(uuid.constData(), uuid.size());
    for (Entries::iterator i = m_entries.find(hash); i != m_entries.end() && i.key() == hash; ++i) {
        if (i.value().device->objectName() == name)
            return &i.value();
    }
    return nullptr;
}

void DeviceIndex::insert(const QByteArray &uuid, ZorvDevice *device)
{
    const Entry entry = { device, device->text(), 0 };
    device->keepLastSeenAt(&m_entries.insert(qHash(uuid), entry).value().lastSeen);
}

// One that is being destroyed is no ZorvDevice any more, but still has its name.
int DeviceIndex::remove(QObject *device)
{
    const uint hash = qHash(device->objectName().toLatin1());
    for (Entries::iterator i = m_entries.find(hash); i != m_entries.end() && i.key() == hash; ++i) {
        if (i.value().device != device)
            continue;
        if (ZorvDevice *living = qobject_cast<ZorvDevice *>(device))
            living->keepLastSeenAt(nullptr);
        const int textSize = i.value().text.size();
        m_entries.erase(i);
        return textSize;
    }
    return 0;
}
