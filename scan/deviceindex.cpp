#include "deviceindex.h"

#include "zorvdevice.h"

static const int leastSlots = 16;

// Without a copy of the uuid as a text.
static bool isNamed(const ZorvDevice *device, const QByteArray &uuid)
{
    const QString name = device->objectName();
    if (name.size() != uuid.size())
        return false;
    const QChar *const units = name.constData();
    const char *const bytes = uuid.constData();
    int i = name.size();
    while (i > 0 && units[i - 1].unicode() == uchar(bytes[i - 1])) // the ends differ more often than the beginnings
        --i;
    return i == 0;
}

DeviceIndex::DeviceIndex()
    : m_key(siphash::randomKey())
    , m_slots(leastSlots, Slot()) // Qt 4 does not clear them by itself
    , m_size(0)
    , m_textSize(0)
{
}

DeviceIndex::~DeviceIndex()
{
    for (int i = 0; i < m_slots.size(); ++i) {
        if (m_slots.at(i).device)
            m_slots.at(i).device->m_index = nullptr;
    }
}

ZorvDevice *DeviceIndex::find(const QByteArray &uuid) const
{
    const quint64 hash = hashOf(uuid);
    for (int i = home(hash); m_slots.at(i).device; i = next(i)) {
        const Slot &slot = m_slots.at(i);
        if (slot.hash == hash && isNamed(slot.device, uuid))
            return slot.device;
    }
    return nullptr;
}

// The text first: while it is compared, the processor fetches the name, which lies elsewhere.
ZorvDevice *DeviceIndex::findUnchanged(const QByteArray &uuid, const QByteArray &text) const
{
    const quint64 hash = hashOf(uuid);
    for (int i = home(hash); m_slots.at(i).device; i = next(i)) {
        const Slot &slot = m_slots.at(i);
        if (slot.hash == hash && slot.device->says(text) && isNamed(slot.device, uuid))
            return slot.device;
    }
    return nullptr;
}

// A name that has not changed is found to be the same without a look at its characters: it still shares their memory.
void DeviceIndex::enter(ZorvDevice *device)
{
    const QString name = device->objectName();
    const bool isThere = device->m_index == this;
    if (isThere && device->m_enteredName.constData() == name.constData())
        return;
    if (isThere)
        remove(device);
    device->m_enteredName = name;
    const Slot slot = { hashOf(name.toLatin1()), device };
    insert(slot);
}

void DeviceIndex::insert(const Slot &slot)
{
    if ((m_size + 1) * 4 > m_slots.size() * 3)
        resize(m_slots.size() * 2);
    int place = home(slot.hash);
    while (m_slots.at(place).device)
        place = next(place);
    put(slot, place);
    slot.device->m_index = this;
    ++m_size;
    m_textSize += slot.device->textSize();
}

void DeviceIndex::put(const Slot &slot, int place)
{
    m_slots[place] = slot;
    slot.device->m_place = place;
}

void DeviceIndex::remove(ZorvDevice *device)
{
    if (device->m_index != this)
        return;
    device->m_index = nullptr;
    fill(device->m_place);
    --m_size;
    m_textSize -= device->textSize();
    if (m_slots.size() > leastSlots && m_size * 8 < m_slots.size())
        resize(m_slots.size() / 2);
}

// What is behind moves up wherever a search for it would end at the hole.
void DeviceIndex::fill(int hole)
{
    const int mask = m_slots.size() - 1;
    for (int i = next(hole); m_slots.at(i).device; i = next(i)) {
        const int holeDistance = (hole - home(m_slots.at(i).hash)) & mask;
        const int deviceDistance = (i - home(m_slots.at(i).hash)) & mask;
        if (holeDistance > deviceDistance)
            continue;
        put(m_slots.at(i), hole);
        hole = i;
    }
    m_slots[hole].device = nullptr;
}

void DeviceIndex::resize(int count)
{
    const QVector<Slot> old = m_slots;
    m_slots = QVector<Slot>(count, Slot());
    for (int i = 0; i < old.size(); ++i) {
        if (!old.at(i).device)
            continue;
        int place = home(old.at(i).hash);
        while (m_slots.at(place).device)
            place = next(place);
        put(old.at(i), place);
    }
}
