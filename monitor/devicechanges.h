#ifndef DEVICECHANGES_H
#define DEVICECHANGES_H

#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

// The changes of the devices in a period, each uuid in one list at most: a device that appeared and went again is in none, one
// that went and came back has changed.
//
// Its memory is bounded: a list holds at most maximalListed uuids of at most maximalUuidLength characters. Further changes are
// only counted, in more(), where one device may count several times.
class DeviceChanges
{
public:
    enum { maximalListed = 100,
        maximalUuidLength = 255 };

    DeviceChanges();

    void addAppeared(const QString &uuid) { add(uuid, Appeared); }
    void addChanged(const QString &uuid) { add(uuid, Changed); }
    void addGone(const QString &uuid) { add(uuid, Gone); }

    bool isEmpty() const { return m_kinds.isEmpty() && m_more == 0; }
    // Sorted, and without the characters that the bus cannot carry.
    QStringList appeared() const { return listed(Appeared); }
    QStringList changed() const { return listed(Changed); }
    QStringList gone() const { return listed(Gone); }
    uint more() const { return m_more; }

private:
    enum Kind { Appeared,
        Changed,
        Gone };

    void add(const QString &uuid, Kind kind);
    void enter(const QString &uuid, Kind kind);
    QStringList listed(Kind kind) const;

    // A tree, not a hash: strangers choose the uuids.
    QMap<QString, Kind> m_kinds;
    int m_sizes[3]; // of the lists
    uint m_more;
};

#endif
