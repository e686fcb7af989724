#include "deviceindex.h"
#include "zorvdevice.h"

#include <QtTest/QtTest>

static const int interval = 10; // seconds
static const quint64 someHash = 4711;

static QByteArray announcing(const QByteArray &uuid)
{
    return "{\"params\":{\"device\":{\"uuid\":\"" + uuid + "\"},\"expiration\":22}}";
}

class TestDeviceIndex : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { qDeleteAll(m_owner.children()); }

    void foundByUuid();
    void foundByText();
    void sameHashKeepsDevicesApart();
    void removedByTheDevice();
    void removalOfAStranger();
    void devicesAreToldWhenTheyWereLastSeen();
    void hashDependsOnEveryByte();

private:
    ZorvDevice *make(const QByteArray &uuid);
    void insert(quint64 hash, ZorvDevice *device, qint64 lastSeen = 0);

    QObject m_owner;
    DeviceIndex m_index;
};

void TestDeviceIndex::init()
{
    m_index = DeviceIndex();
}

ZorvDevice *TestDeviceIndex::make(const QByteArray &uuid)
{
    return new ZorvDevice(QString::fromLatin1(uuid.constData(), uuid.size()), announcing(uuid), interval, &m_owner);
}

void TestDeviceIndex::insert(quint64 hash, ZorvDevice *device, qint64 lastSeen)
{
    const DeviceIndex::Entry entry = { device, device->text(), lastSeen };
    m_index.insert(hash, entry);
}

void TestDeviceIndex::foundByUuid()
{
    ZorvDevice *device = make("A");
    insert(someHash, device);
    QVERIFY(m_index.find(someHash, QLatin1String("A")));
    QCOMPARE(m_index.find(someHash, QLatin1String("A"))->device, device);
    QVERIFY(!m_index.find(someHash, QLatin1String("B")));
    QVERIFY(!m_index.find(someHash + 1, QLatin1String("A")));
}

void TestDeviceIndex::foundByText()
{
    ZorvDevice *device = make("A");
    insert(someHash, device);
    QVERIFY(m_index.findUnchanged(someHash, announcing("A")));
    QCOMPARE(m_index.findUnchanged(someHash, announcing("A"))->device, device);
    QVERIFY(!m_index.findUnchanged(someHash, announcing("A") + ' '));
    QVERIFY(!m_index.findUnchanged(someHash + 1, announcing("A")));
}

void TestDeviceIndex::sameHashKeepsDevicesApart()
{
    ZorvDevice *first = make("A");
    ZorvDevice *second = make("B");
    insert(someHash, first);
    insert(someHash, second);
    QCOMPARE(m_index.size(), 2);
    QCOMPARE(m_index.find(someHash, QLatin1String("A"))->device, first);
    QCOMPARE(m_index.find(someHash, QLatin1String("B"))->device, second);
    QCOMPARE(m_index.findUnchanged(someHash, announcing("A"))->device, first);
    QCOMPARE(m_index.findUnchanged(someHash, announcing("B"))->device, second);
}

void TestDeviceIndex::removedByTheDevice()
{
    ZorvDevice *first = make("A");
    ZorvDevice *second = make("B");
    insert(DeviceIndex::hashOf("A", 1), first);
    insert(DeviceIndex::hashOf("B", 1), second);
    QCOMPARE(m_index.remove(first), announcing("A").size());
    QCOMPARE(m_index.size(), 1);
    QCOMPARE(m_index.remove(first), 0);
    QCOMPARE(m_index.find(DeviceIndex::hashOf("B", 1), QLatin1String("B"))->device, second);
}

// Another object of the same name
void TestDeviceIndex::removalOfAStranger()
{
    insert(DeviceIndex::hashOf("A", 1), make("A"));
    QObject stranger;
    stranger.setObjectName(QLatin1String("A"));
    QCOMPARE(m_index.remove(&stranger), 0);
    QCOMPARE(m_index.size(), 1);
}

void TestDeviceIndex::devicesAreToldWhenTheyWereLastSeen()
{
    const QPointer<ZorvDevice> fresh = make("A");
    const QPointer<ZorvDevice> silent = make("B");
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    insert(someHash, fresh, now);
    insert(someHash + 1, silent, now - 3600 * 1000);
    m_index.tellLastSeen();
    fresh->checkExpired();
    silent->checkExpired();
    QCoreApplication::sendPostedEvents(0, QEvent::DeferredDelete);
    QVERIFY(fresh);
    QVERIFY(!silent);
}

void TestDeviceIndex::hashDependsOnEveryByte()
{
    const QByteArray uuid = "KM-2044817";
    const quint64 hash = DeviceIndex::hashOf(uuid.constData(), uuid.size());
    QCOMPARE(DeviceIndex::hashOf(QByteArray(uuid.constData(), uuid.size()).constData(), uuid.size()), hash);
    for (int i = 0; i < uuid.size(); ++i) {
        QByteArray other = uuid;
        other[i] = char(other.at(i) ^ 1);
        QVERIFY(DeviceIndex::hashOf(other.constData(), other.size()) != hash);
        QVERIFY(DeviceIndex::hashOf(uuid.constData(), i) != hash);
    }
}

QTEST_MAIN(TestDeviceIndex)
#include "tst_deviceindex.moc"
