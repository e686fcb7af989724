#include "bytes.h"
#include "qtversions.h"
#include "scantest.h"
#include "socketroom.h"
#include "waitfor.h"
#include "zorvdevice.h"
#include "zorvscan.h"

#include <QtNetwork/QUdpSocket>
#include <QtTest/QtTest>

// How many datagrams are read at a time, and which ones are announcements.
class TestZorvScanReceiving : public ScanTest
{
    Q_OBJECT

private slots:
    void pendingDatagramsReadsOneAtMost();
    void pendingDatagramsReadsOneAtMostOfKnownDevicesToo();
    void pendingDatagramsWithoutADatagram();
    void burstOfKnownDevicesIsOneReport();
    void newcomerEndsTheReport();
    void burstWithSeveralConnections();
    void emptyDatagramsOfABurst();
    void longBurst();
    void thousandDatagramsMoreAreTakenInOneReport();
    void datagramsThatAreNone_data();
    void datagramsThatAreNone();
    void longestDatagram();
    void shortDatagramAfterALongOne();
};

void TestZorvScanReceiving::pendingDatagramsReadsOneAtMost()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    for (int i = 0; i < 3; ++i)
        QVERIFY(loopback.send(announcing(QByteArray::number(i))));
    for (int i = 1; i <= 3; ++i) {
        scan.pendingDatagrams();
        QCOMPARE(devicesOf(scan).size(), i);
    }
}

void TestZorvScanReceiving::pendingDatagramsReadsOneAtMostOfKnownDevicesToo()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    const QByteArray announcement = announcing("A");
    loopback.feed(scan, announcement);
    QVERIFY(loopback.send(announcement + ' '));
    QVERIFY(loopback.send(announcement + "  "));
    for (int blanks = 1; blanks <= 2; ++blanks) {
        scan.pendingDatagrams();
        QCOMPARE(deviceNamed(scan, "A")->rawJson(), QString::fromLatin1(announcement.constData()) + QString(blanks, QLatin1Char(' ')));
    }
}

void TestZorvScanReceiving::pendingDatagramsWithoutADatagram()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A"));
    delete deviceNamed(scan, "A");
    for (int i = 0; i < 100; ++i)
        scan.pendingDatagrams();
    QCOMPARE(devicesOf(scan).size(), 0); // what was received last is not taken again
    QVERIFY(m_peer->announce(announcing("B")));
    QVERIFY(waitFor([&] { return deviceNamed(scan, "B"); }));
    QCOMPARE(takeWarnings(), QStringList());
}

void TestZorvScanReceiving::burstOfKnownDevicesIsOneReport()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A"));
    loopback.feed(scan, announcing("B"));
    report(scan); // after newcomers the event loop comes first
    for (int i = 30; i < 40; ++i) {
        QVERIFY(loopback.send(announcing("A", QByteArray::number(i))));
        QVERIFY(loopback.send("nothing of interest"));
        QVERIFY(loopback.send(announcing("B", QByteArray::number(i))));
    }
    report(scan);
    QVERIFY(!scan.findChild<QUdpSocket *>()->hasPendingDatagrams());
    QCOMPARE(deviceNamed(scan, "A")->rawJson(), text(announcing("A", "39").constData()));
    QCOMPARE(deviceNamed(scan, "B")->rawJson(), text(announcing("B", "39").constData()));
}

void TestZorvScanReceiving::newcomerEndsTheReport()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A"));
    report(scan);
    QVERIFY(loopback.send(announcing("A", "30")));
    QVERIFY(loopback.send(announcing("B")));
    QVERIFY(loopback.send(announcing("A", "31")));
    report(scan);
    QVERIFY(deviceNamed(scan, "B"));
    QCOMPARE(deviceNamed(scan, "A")->rawJson(), text(announcing("A", "30").constData()));
    report(scan);
    QCOMPARE(deviceNamed(scan, "A")->rawJson(), text(announcing("A", "31").constData()));
}

// Each connection takes one, and the last of them the rest.
void TestZorvScanReceiving::burstWithSeveralConnections()
{
    ZorvScan scan(m_settings, interval, 0);
    QCOMPARE(scan.setupMulticast(), 0);
    QCOMPARE(scan.setupMulticast(), 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A"));
    report(scan);
    for (int round = 0; round < 3; ++round) {
        for (int i = 30; i < 40; ++i)
            QVERIFY(loopback.send(announcing("A", QByteArray::number(i))));
        report(scan);
        QVERIFY(!scan.findChild<QUdpSocket *>()->hasPendingDatagrams());
        QCOMPARE(deviceNamed(scan, "A")->rawJson(), text(announcing("A", "39").constData()));
    }
}

void TestZorvScanReceiving::emptyDatagramsOfABurst()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A"));
    for (int i = 30; i < 40; ++i) {
        QVERIFY(loopback.send(QByteArray()));
        QVERIFY(loopback.send(announcing("A", QByteArray::number(i))));
        QVERIFY(loopback.send(QByteArray()));
    }
    QVERIFY(waitFor([&] { return deviceNamed(scan, "A")->rawJson() == text(announcing("A", "39").constData()); }));
}

// More than fit into the socket by default: those that were lost come again.
void TestZorvScanReceiving::longBurst()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A"));
    for (int i = 0; i < 5000; ++i)
        QVERIFY(loopback.send(announcing("A", QByteArray::number(i))));
    QVERIFY(waitFor([&] {
        return loopback.send(announcing("A", "22")) && deviceNamed(scan, "A")->rawJson() == text(announcing("A", "22").constData());
    }));
}

// So that the event loop gets its turn under a flood.
void TestZorvScanReceiving::thousandDatagramsMoreAreTakenInOneReport()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    if (!holdsManyDatagrams(int(scan.findChild<QUdpSocket *>()->socketDescriptor())))
        SKIP("no socket may be that large here");
    Loopback loopback;
    loopback.feed(scan, announcing("A"));
    report(scan);
    const quint64 before = scan.counts().taken;
    for (int i = 0; i < 2003; ++i)
        QVERIFY(loopback.send(announcing("A")));
    const quint64 taken[] = { 1001, 2002, 2003, 2003 };
    for (quint64 number : taken) {
        report(scan);
        QCOMPARE(scan.counts().taken - before, number);
    }
}

void TestZorvScanReceiving::datagramsThatAreNone_data()
{
    QTest::addColumn<QByteArray>("datagram");
    QTest::newRow("zero length") << QByteArray();
    QTest::newRow("without params, with a uuid") << QByteArray("{\"device\":{\"uuid\":\"A\"},\"expiration\":22}");
    QTest::newRow("params first") << QByteArray("\"params\":{\"uuid\":\"A\",\"expiration\":22}");
    QTest::newRow("empty uuid") << announcing("");
    QTest::newRow("cut in the uuid") << QByteArray("{\"params\":{\"device\":{\"uuid\":\"A");
    QTest::newRow("one byte") << QByteArray("{");
    QTest::newRow("64 zero bytes") << QByteArray(64, '\0');
}

void TestZorvScanReceiving::datagramsThatAreNone()
{
    QFETCH(QByteArray, datagram);
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    QVERIFY(loopback.send(datagram));
    QVERIFY(loopback.send(announcing("next")));
    QVERIFY(waitFor([&] { return deviceNamed(scan, "next"); }));
    QCOMPARE(devicesOf(scan).size(), 1);
    QCOMPARE(takeWarnings(), QStringList());
}

void TestZorvScanReceiving::longestDatagram()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    const QByteArray start = announcing("A");
    const QByteArray whole = start + QByteArray(65507 - start.size(), ' ');
    loopback.feed(scan, whole);
    QVERIFY(deviceNamed(scan, "A"));
    QCOMPARE(deviceNamed(scan, "A")->rawJson().size(), 65507);
    loopback.feed(scan, "{\"params\":{\"uuid\":\"" + QByteArray(60000, 'u') + "\",\"expiration\":22}}");
    QCOMPARE(devicesOf(scan).size(), 2);
    QCOMPARE(devicesOf(scan).last()->objectName().size(), 60000);
}

void TestZorvScanReceiving::shortDatagramAfterALongOne()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    const QByteArray start = announcing("long");
    const QByteArray whole = start + QByteArray(30000 - start.size(), ' ');
    loopback.feed(scan, whole);
    loopback.feed(scan, QByteArray());
    loopback.feed(scan, "{\"params\"");
    loopback.feed(scan, announcing("short"));
    QCOMPARE(devicesOf(scan).size(), 2);
    QCOMPARE(deviceNamed(scan, "short")->rawJson(), text(announcing("short").constData()));
    QCOMPARE(deviceNamed(scan, "long")->rawJson(), text(whole.constData()));
    loopback.feed(scan, announcing("long"));
    QCOMPARE(deviceNamed(scan, "long")->rawJson(), text(announcing("long").constData()));
}

QTEST_MAIN(TestZorvScanReceiving)
#include "tst_zorvscan_receiving.moc"
