// Announcements come in all the time: a known device's must not come to cost more heap allocations unnoticed.
#include "allocationcount.h"
#include "bytes.h"
#include "fakedevice.h"
#include "udp.h"
#include "zorvdevice.h"
#include "zorvscan.h"

#include <QtCore/QScopedPointer>
#include <QtTest/QtTest>

// What it takes today. When it takes less, the limit goes down with it.
static const int mostForAChange = 2;

static const int interval = 10; // seconds
static const quint16 scanPort = 31416;
static const char deviceAddress[] = "10.77.0.2";

class TestScanAllocations : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void allocationsAreCounted();
    void changedAnnouncementTakesFew();
    void sameAnnouncementTakesNone();

private:
    int allocationsFor(const QByteArray &announcement);
    ZorvDevice *known() const { return m_scan->findChild<ZorvDevice *>(text("KM-2044817")); }

    QScopedPointer<FakeDevice> m_device;
    QScopedPointer<Udp> m_peer;
    QScopedPointer<ZorvScan> m_scan;
};

void TestScanAllocations::initTestCase()
{
    m_device.reset(new FakeDevice);
    m_peer.reset(new Udp(deviceAddress));
    m_scan.reset(new ZorvScan(m_device->settings(), interval, nullptr));
    m_scan->pendingDatagrams(); // its own announcement, which comes back to it
    for (int i = 0; i < 3; ++i)
        allocationsFor(testData("one-interface.json")); // the device is known, and what is made once is made
}

void TestScanAllocations::cleanupTestCase()
{
    m_scan.reset();
    m_peer.reset();
    m_device.reset();
}

// A datagram to an address of this host lies in the scan's socket as soon as it is sent.
int TestScanAllocations::allocationsFor(const QByteArray &announcement)
{
    if (!m_peer->send(announcement, deviceAddress, scanPort))
        qFatal("the datagram could not be sent");
    const int before = allocationCount();
    m_scan->pendingDatagrams();
    return allocationCount() - before;
}

void TestScanAllocations::allocationsAreCounted()
{
    const int before = allocationCount();
    const QScopedPointer<QByteArray> text(new QByteArray(100, 'x')); // the object, and what is in it
    QCOMPARE(allocationCount() - before, 2);
}

void TestScanAllocations::changedAnnouncementTakesFew()
{
    QVERIFY(known());
    QByteArray announcement = testData("one-interface.json");
    announcement.replace("\"expiration\":22", "\"expiration\":33");
    const int made = allocationsFor(announcement);
    QCOMPARE(known()->rawJson(), QString::fromLatin1(announcement.constData()));
    QVERIFY2(made <= mostForAChange, QByteArray::number(made).constData());
}

void TestScanAllocations::sameAnnouncementTakesNone()
{
    allocationsFor(testData("one-interface.json"));
    QVERIFY(known());
    QCOMPARE(allocationsFor(testData("one-interface.json")), 0);
}

QTEST_MAIN(TestScanAllocations)
#include "tst_scanallocations.moc"
