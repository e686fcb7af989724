#include "deviceindex.h"
#include "zorvdevice.h"

#include <QtTest/QtTest>

static const int interval = 10; // seconds

static QByteArray announcing(const QByteArray &uuid)
{
    return "{\"params\":{\"device\":{\"uuid\":\"" + uuid + "\"},\"expiration\":22}}";
}

class TestDeviceIndex : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_index.reset(new DeviceIndex); }
    void cleanup() { qDeleteAll(m_owner.children()); }

    void foundByUuid();
    void foundByText();
    void sameHashKeepsDevicesApart();
    void removedByTheDevice();
    void removalOfAStranger();
    void timeOfTheIndexIsTheDevices();
    void timeGoesWithADeviceThatLeaves();

private:
    ZorvDevice *add(const QByteArray &uuid);

    QObject m_owner;
    QScopedPointer<DeviceIndex> m_index;
};

ZorvDevice *TestDeviceIndex::add(const QByteArray &uuid)
{
    ZorvDevice *device = new ZorvDevice(QString::fromLatin1(uuid.constData(), uuid.size()), announcing(uuid), interval, &m_owner);
    m_index->insert(uuid, device);
    return device;
}

void TestDeviceIndex::foundByUuid()
{
    ZorvDevice *device = add("A");
    QVERIFY(m_index->find("A"));
    QCOMPARE(m_index->find("A")->device, device);
    QVERIFY(!m_index->find("B"));
    QCOMPARE(m_index->size(), 1);
}

void TestDeviceIndex::foundByText()
{
    ZorvDevice *device = add("A");
    QVERIFY(m_index->findUnchanged("A", announcing("A")));
    QCOMPARE(m_index->findUnchanged("A", announcing("A"))->device, device);
    QVERIFY(!m_index->findUnchanged("A", announcing("A") + ' '));
    QVERIFY(!m_index->findUnchanged("B", announcing("B")));
}

// Two uuids that Qt's hash does not tell apart; among so many there are some.
static QList<QByteArray> uuidsOfOneHash()
{
    QHash<uint, QByteArray> met;
    quint64 number = 1;
    for (int i = 0; i < 1000000; ++i) {
        number = number * Q_UINT64_C(6364136223846793005) + 1;
        const QByteArray uuid = QByteArray::number(number);
        const uint hash = qHash(uuid);
        if (met.contains(hash))
            return QList<QByteArray>() << met.value(hash) << uuid;
        met.insert(hash, uuid);
    }
    return QList<QByteArray>();
}

void TestDeviceIndex::sameHashKeepsDevicesApart()
{
    const QList<QByteArray> uuids = uuidsOfOneHash();
    QCOMPARE(uuids.size(), 2);
    ZorvDevice *const first = add(uuids.first());
    QVERIFY(!m_index->find(uuids.last()));
    ZorvDevice *const second = add(uuids.last());
    QCOMPARE(m_index->find(uuids.first())->device, first);
    QCOMPARE(m_index->find(uuids.last())->device, second);
    QCOMPARE(m_index->findUnchanged(uuids.first(), announcing(uuids.first()))->device, first);
    QCOMPARE(m_index->findUnchanged(uuids.last(), announcing(uuids.last()))->device, second);
    m_index->remove(first);
    QVERIFY(!m_index->find(uuids.first()));
    QCOMPARE(m_index->find(uuids.last())->device, second);
}

void TestDeviceIndex::removedByTheDevice()
{
    ZorvDevice *first = add("A");
    ZorvDevice *second = add("B");
    QCOMPARE(m_index->remove(first), announcing("A").size());
    QCOMPARE(m_index->size(), 1);
    QCOMPARE(m_index->remove(first), 0);
    QCOMPARE(m_index->find("B")->device, second);
}

// Another object of the same name
void TestDeviceIndex::removalOfAStranger()
{
    add("A");
    QObject stranger;
    stranger.setObjectName(QLatin1String("A"));
    QCOMPARE(m_index->remove(&stranger), 0);
    QCOMPARE(m_index->size(), 1);
}

static bool isExpired(ZorvDevice *device)
{
    const QPointer<ZorvDevice> watched(device);
    device->checkExpired();
    QCoreApplication::sendPostedEvents(device, QEvent::DeferredDelete);
    return !watched;
}

void TestDeviceIndex::timeOfTheIndexIsTheDevices()
{
    ZorvDevice *silent = add("A");
    ZorvDevice *heard = add("B");
    const qint64 anHour = 3600 * 1000;
    m_index->find("A")->lastSeen -= anHour;
    m_index->find("B")->lastSeen -= anHour;
    heard->touch();
    QVERIFY(isExpired(silent));
    QVERIFY(!isExpired(heard));
}

void TestDeviceIndex::timeGoesWithADeviceThatLeaves()
{
    ZorvDevice *device = add("A");
    m_index->find("A")->lastSeen -= 3600 * 1000;
    m_index->remove(device);
    m_index.reset();
    QVERIFY(isExpired(device));
}

QTEST_MAIN(TestDeviceIndex)
#include "tst_deviceindex.moc"
