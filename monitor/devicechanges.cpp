#include "devicechanges.h"

#include "dbusvalue.h"

DeviceChanges::DeviceChanges()
    : m_sizes()
    , m_more(0)
{
}

void DeviceChanges::enter(const QString &uuid, Kind kind)
{
    if (m_sizes[kind] >= maximalListed || uuid.size() > maximalUuidLength) {
        ++m_more;
        return;
    }
    m_kinds.insert(uuid, kind);
    ++m_sizes[kind];
}

void DeviceChanges::add(const QString &uuid, Kind kind)
{
    const QMap<QString, Kind>::iterator known = m_kinds.find(uuid);
    if (known == m_kinds.end()) {
        enter(uuid, kind);
        return;
    }
    const Kind before = known.value();
    if (before == kind || (before == Appeared && kind == Changed))
        return;
    m_kinds.erase(known);
    --m_sizes[before];
    if (before != Appeared)
        enter(uuid, kind == Gone ? Gone : Changed);
}

QStringList DeviceChanges::listed(Kind kind) const
{
    QStringList uuids;
    QMap<QString, Kind>::const_iterator i = m_kinds.constBegin();
    for (; i != m_kinds.constEnd(); ++i) {
        if (i.value() == kind)
            uuids.append(dbusvalue::sanitized(i.key()));
    }
    return uuids;
}
