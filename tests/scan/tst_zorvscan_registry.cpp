#include "bytes.h"
#include "fakeclock.h"
#include "registrylistener.h"
#include "scantest.h"
#include "waitfor.h"
#include "zorvdevice.h"
#include "zorvscan.h"

#include <QtTest/QtTest>

// Which devices are known: they appear, are refreshed and leave.
class TestZorvScanRegistry : public ScanTest
{
    Q_OBJECT

private slots:
    void oneChildForEachUuid();
    void refreshCountsAtOnce();
    void sameUuidReplacesTheText();
    void sameTextAgainKeepsTheDeviceAndItsValues();
    void deviceIsRemovedAtTheFirstTickAfterItsExpiration();
    void expiredDeviceIsCreatedAfresh();
    void refreshedBetweenTickAndEventLoop();
    void unusableAnnouncementIsForgottenInTheEventLoop();
    void sameUnusableAnnouncementAgainSavesNothing();
    void unusableAndUsableAnnouncementTogether();
    void childrenThatAreNoDevices();
    void anotherOwnerOfADevice();
    void renamedDevice();
    void deviceDeletedByHand();
    void deviceFromElsewhere();
    void destructionWithDevices();
    void everyDatagramIsCountedAndEveryChangeIsTold_data();
    void everyDatagramIsCountedAndEveryChangeIsTold();
};

// Writes down what it is told.
class Listener : public RegistryListener
{
public:
    void deviceAppeared(const QString &uuid) override { told << text("appeared ") + uuid; }
    void deviceChanged(const QString &uuid) override { told << text("changed ") + uuid; }
    void deviceGone(const QString &uuid) override { told << text("gone ") + uuid; }

    QStringList told;
};

void TestZorvScanRegistry::oneChildForEachUuid()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 5; ++i)
            loopback.feed(scan, announcing("D" + QByteArray::number(i)));
    }
    const QList<ZorvDevice *> devices = devicesOf(scan);
    QCOMPARE(devices.size(), 5);
    for (int i = 0; i < 5; ++i) {
        QCOMPARE(devices.at(i)->objectName(), text("D") + QString::number(i));
        QCOMPARE(devices.at(i)->parent(), static_cast<QObject *>(&scan));
    }
}

// Not only at the next tick
void TestZorvScanRegistry::refreshCountsAtOnce()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A"));
    loopback.feed(scan, announcing("B"));
    fakeclock::advance(60000);
    loopback.feed(scan, announcing("A"));
    deviceNamed(scan, "B")->update(announcing("B", "23"));
    fakeclock::advance(60000);
    deviceNamed(scan, "A")->checkExpired();
    deviceNamed(scan, "B")->checkExpired();
    tick(scan);
    reachEventLoop();
    QVERIFY(deviceNamed(scan, "A"));
    QVERIFY(deviceNamed(scan, "B"));
    fakeclock::advance(7000);
    deviceNamed(scan, "A")->checkExpired();
    reachEventLoop();
    QVERIFY(!deviceNamed(scan, "A"));
}

void TestZorvScanRegistry::sameUuidReplacesTheText()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A", "22", "Kelta"));
    const QByteArray next = announcing("A", "22", "Other");
    loopback.feed(scan, next);
    loopback.feed(scan, announcing("B"));
    QCOMPARE(devicesOf(scan).size(), 2);
    QCOMPARE(deviceNamed(scan, "A")->rawJson(), text(next.constData()));
    QCOMPARE(deviceNamed(scan, "A")->jsonValue(text("params/device/familyType")), text("Other"));
}

void TestZorvScanRegistry::sameTextAgainKeepsTheDeviceAndItsValues()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    const QByteArray texts[] = { announcing("A", "1", "Kelta"), announcing("A", "1", "Kelt2") };
    loopback.feed(scan, texts[0]);
    ZorvDevice *const device = deviceNamed(scan, "A");
    for (int i = 0; i < 8; ++i) {
        // Each text comes twice in a row, and in all for far longer than a device is kept that says nothing.
        const QByteArray &announced = texts[i / 2 % 2];
        fakeclock::advance(3000);
        loopback.feed(scan, announced);
        tick(scan);
        reachEventLoop();
        drainOwn(scan);
        QCOMPARE(deviceNamed(scan, "A"), device);
        QCOMPARE(device->rawJson(), text(announced.constData()));
        QCOMPARE(scan.allChilds().size(), i / 2 % 2 == 0 ? 1 : 0);
        QCOMPARE(scan.allChilds(text("Kelt2")).size(), i / 2 % 2);
    }
    fakeclock::advance(4000);
    tick(scan);
    reachEventLoop();
    QVERIFY(!deviceNamed(scan, "A"));
}

void TestZorvScanRegistry::deviceIsRemovedAtTheFirstTickAfterItsExpiration()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("short", "1"));
    loopback.feed(scan, announcing("22 s", "22"));
    loopback.feed(scan, announcing("fresh", "22"));
    fakeclock::advance(66000);
    tick(scan);
    QVERIFY(deviceNamed(scan, "short")); // until the event loop
    reachEventLoop();
    QVERIFY(!deviceNamed(scan, "short"));
    QVERIFY(deviceNamed(scan, "22 s"));
    drain(scan);
    loopback.feed(scan, announcing("22 s", "22"));
    fakeclock::advance(33000);
    loopback.feed(scan, announcing("fresh", "22"));
    fakeclock::advance(34000);
    QVERIFY(deviceNamed(scan, "22 s"));
    QCOMPARE(scan.allChilds(QString()).size(), 2); // it is the tick that removes
    tick(scan);
    reachEventLoop();
    QVERIFY(!deviceNamed(scan, "22 s"));
    QVERIFY(deviceNamed(scan, "fresh"));
}

void TestZorvScanRegistry::expiredDeviceIsCreatedAfresh()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A", "1"));
    loopback.feed(scan, announcing("B", "1000"));
    for (int round = 0; round < 3; ++round) {
        fakeclock::advance(4000);
        tick(scan);
        reachEventLoop();
        QVERIFY(!deviceNamed(scan, "A"));
        loopback.feed(scan, announcing("B", "1000"));
        drain(scan);
        loopback.feed(scan, announcing("B", "1000"));
        loopback.feed(scan, announcing("A", "1"));
        loopback.feed(scan, announcing("A", "1"));
        QCOMPARE(devicesOf(scan).size(), 2);
    }
    // Created afresh, so with the expiration that is announced now
    fakeclock::advance(4000);
    tick(scan);
    reachEventLoop();
    drain(scan);
    loopback.feed(scan, announcing("A", "100"));
    fakeclock::advance(300000);
    tick(scan);
    reachEventLoop();
    QVERIFY(deviceNamed(scan, "A"));
}

void TestZorvScanRegistry::refreshedBetweenTickAndEventLoop()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A", "1"));
    fakeclock::advance(4000);
    tick(scan);
    drain(scan);
    loopback.feed(scan, announcing("A", "1"));
    loopback.feed(scan, announcing("A", "1"));
    QCOMPARE(devicesOf(scan).size(), 1);
    reachEventLoop();
    loopback.feed(scan, announcing("A", "1"));
    QCOMPARE(devicesOf(scan).size(), 1);
    QCOMPARE(scan.allChilds().size(), 1);
}

void TestZorvScanRegistry::unusableAnnouncementIsForgottenInTheEventLoop()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A", "6.6"));
    QCOMPARE(devicesOf(scan).size(), 1);
    // Refreshed, not created
    loopback.feed(scan, announcing("A", "22"));
    QCOMPARE(devicesOf(scan).size(), 1);
    QCOMPARE(deviceNamed(scan, "A")->jsonValue(text("params/expiration")), text("22"));
    reachEventLoop();
    QCOMPARE(devicesOf(scan).size(), 0);
    loopback.feed(scan, announcing("A", "22"));
    reachEventLoop();
    QCOMPARE(devicesOf(scan).size(), 1);
}

void TestZorvScanRegistry::sameUnusableAnnouncementAgainSavesNothing()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A", "6.6"));
    loopback.feed(scan, announcing("A", "6.6"));
    QCOMPARE(devicesOf(scan).size(), 1);
    reachEventLoop();
    QCOMPARE(devicesOf(scan).size(), 0);
    loopback.feed(scan, announcing("A", "6.6"));
    QCOMPARE(devicesOf(scan).size(), 1);
    reachEventLoop();
    QCOMPARE(devicesOf(scan).size(), 0);
}

// The second one does not refresh the entry of the first, which is on its way out: it makes one that stays.
void TestZorvScanRegistry::unusableAndUsableAnnouncementTogether()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    QVERIFY(loopback.send(announcing("A", "6.6")));
    QVERIFY(loopback.send(announcing("A", "22")));
    QVERIFY(loopback.send(announcing("last")));
    QVERIFY(waitFor([&] { return deviceNamed(scan, "last"); }));
    reachEventLoop();
    QVERIFY(deviceNamed(scan, "A"));
    QCOMPARE(devicesOf(scan).size(), 2);
}

void TestZorvScanRegistry::childrenThatAreNoDevices()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    QObject *other = new QObject(&scan);
    other->setObjectName(text("A"));
    loopback.feed(scan, announcing("A"));
    QCOMPARE(devicesOf(scan).size(), 1);
    QCOMPARE(scan.allChilds().size(), 1);
    delete other;
    loopback.feed(scan, announcing("A"));
    QCOMPARE(devicesOf(scan).size(), 1);
    tick(scan);
    reachEventLoop();
    QVERIFY(deviceNamed(scan, "A"));
}

void TestZorvScanRegistry::anotherOwnerOfADevice()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A"));
    QObject elsewhere;
    deviceNamed(scan, "A")->setParent(&elsewhere);
    QCOMPARE(scan.allChilds().size(), 0);
    loopback.feed(scan, announcing("A"));
    QCOMPARE(devicesOf(scan).size(), 1);
}

void TestZorvScanRegistry::renamedDevice()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A"));
    ZorvDevice *renamed = deviceNamed(scan, "A");
    renamed->setObjectName(text("B"));
    loopback.feed(scan, announcing("A"));
    QCOMPARE(devicesOf(scan).size(), 2);
    QVERIFY(deviceNamed(scan, "A") && deviceNamed(scan, "A") != renamed);

    tick(scan);
    drainOwn(scan);
    loopback.feed(scan, announcing("B"));
    QCOMPARE(devicesOf(scan).size(), 2);
    QCOMPARE(renamed->jsonValue(text("params/device/uuid")), text("B"));
    delete renamed;
    loopback.feed(scan, announcing("A"));
    QCOMPARE(devicesOf(scan).size(), 1);
    loopback.feed(scan, announcing("B"));
    QCOMPARE(devicesOf(scan).size(), 2);
}

void TestZorvScanRegistry::deviceDeletedByHand()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A"));
    loopback.feed(scan, announcing("B"));
    delete deviceNamed(scan, "A");
    loopback.feed(scan, announcing("B"));
    QCOMPARE(devicesOf(scan).size(), 1);
    loopback.feed(scan, announcing("A"));
    QCOMPARE(devicesOf(scan).size(), 2);
}

void TestZorvScanRegistry::deviceFromElsewhere()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    ZorvDevice *device = new ZorvDevice(text("A"), announcing("A"), interval, &scan);
    tick(scan);
    drainOwn(scan);
    loopback.feed(scan, announcing("A", "33"));
    QCOMPARE(devicesOf(scan).size(), 1);
    QCOMPARE(device->jsonValue(text("params/expiration")), text("33"));
}

void TestZorvScanRegistry::destructionWithDevices()
{
    QList<QPointer<ZorvDevice>> devices;
    {
        ZorvScan scan(m_settings, interval, 0);
        drain(scan);
        Loopback loopback;
        loopback.feed(scan, announcing("A"));
        loopback.feed(scan, announcing("B", "6.6"));
        loopback.feed(scan, announcing("C", "1"));
        fakeclock::advance(4000);
        tick(scan);
        const QList<ZorvDevice *> all = devicesOf(scan);
        for (int i = 0; i < all.size(); ++i)
            devices.append(all.at(i));
        QCOMPARE(devices.size(), 3);
    }
    for (int i = 0; i < devices.size(); ++i)
        QVERIFY(!devices.at(i));
    reachEventLoop();
    QVERIFY(!isMember());
}

// "taken, without uuid, unusable, without room; devices"
static QString counted(const ZorvScan &scan)
{
    const ZorvScan::Counts &counts = scan.counts();
    return text("%1,%2,%3,%4;%5").arg(counts.taken).arg(counts.withoutUuid).arg(counts.unusable).arg(counts.withoutRoom).arg(scan.deviceCount());
}

void TestZorvScanRegistry::everyDatagramIsCountedAndEveryChangeIsTold_data()
{
    QTest::addColumn<bool>("isListening");
    QTest::newRow("somebody listens") << true;
    QTest::newRow("nobody listens") << false;
}

void TestZorvScanRegistry::everyDatagramIsCountedAndEveryChangeIsTold()
{
    QFETCH(bool, isListening);
    struct Step
    {
        QByteArray datagram;
        const char *told;
        const char *counted;
    };
    const Step steps[] = {
        { "junk", "", "1,1,0,0;0" },
        { announcing("A"), "appeared A", "2,1,0,0;1" },
        { announcing("A"), "", "3,1,0,0;1" },
        { announcing("A") + ' ', "", "4,1,0,0;1" },
        { announcing("A", "23"), "changed A", "5,1,0,0;1" },
        { announcing("U", "6.6"), "", "5,1,1,0;2" },
        { announcing("U", "6.6"), "", "6,1,1,0;2" }, // known, until the event loop
        { announcing("U", "22"), "", "7,1,1,0;2" },
        { announcing("B"), "appeared B", "8,1,1,0;3" },
        { QByteArray(1, '\0'), "", "8,2,1,0;3" },
    };
    const auto expected = [&](const char *told) { return isListening && *told ? QStringList(text(told)) : QStringList(); };
    Listener listener;
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    QCOMPARE(counted(scan), text("1,0,0,0;0")); // its own
    if (isListening)
        scan.setListener(&listener);
    Loopback loopback;
    for (const Step &step : steps) {
        loopback.feed(scan, step.datagram);
        QCOMPARE(listener.told, expected(step.told));
        QCOMPARE(counted(scan), text(step.counted));
        listener.told.clear();
    }
    reachEventLoop(); // U leaves, of which nobody was told
    QCOMPARE(listener.told, QStringList());
    QCOMPARE(counted(scan), text("8,2,1,0;2"));
    fakeclock::advance(60000);
    loopback.feed(scan, announcing("B"));
    fakeclock::advance(7000);
    for (const char *told : { "gone A", "" }) {
        tick(scan);
        QCOMPARE(listener.told, expected(told));
        listener.told.clear();
    }
}

QTEST_MAIN(TestZorvScanRegistry)
#include "tst_zorvscan_registry.moc"
