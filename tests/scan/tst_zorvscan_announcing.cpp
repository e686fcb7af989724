#include "bytes.h"
#include "network.h"
#include "qtversions.h"
#include "scantest.h"
#include "waitfor.h"
#include "zorvdevice.h"
#include "zorvscan.h"

#include <QtTest/QtTest>

// What it announces, and when.
class TestZorvScanAnnouncing : public ScanTest
{
    Q_OBJECT

private slots:
    void firstAnnouncementGoesOutDuringConstruction();
    void nextAnnouncementsGoOutEveryInterval();
    void timerRunsEveryInterval();
    void ownAnnouncementComesBack();
    void sendAnnouncementSendsTheTextOnce();
    void configChangedDoesNotSend();
    void timerEventOfAnyIdAnnounces();
};

void TestZorvScanAnnouncing::firstAnnouncementGoesOutDuringConstruction()
{
    ZorvScan scan(m_settings, interval, 0);
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << testData("one-interface.json"));
    QCOMPARE(scan.socketState(), 4);
    QVERIFY(isMember());
    QCOMPARE(takeWarnings(), QStringList());
    scan.sendAnnouncement();
    QCOMPARE(int(m_peer->next().port), 31416);
}

void TestZorvScanAnnouncing::nextAnnouncementsGoOutEveryInterval()
{
    QElapsedTimer timer;
    timer.start();
    ZorvScan scan(m_settings, 1, 0);
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << testData("interval-1.json"));
    QList<QByteArray> sent;
    QVERIFY(waitFor([&] { return (sent += m_peer->upToNow()).size() >= 2; }, 20000));
    QVERIFY(timer.elapsed() >= 2000);
    QCOMPARE(sent.first(), testData("interval-1.json"));
    QCOMPARE(sent.last(), testData("interval-1.json"));
}

void TestZorvScanAnnouncing::timerRunsEveryInterval()
{
    ZorvScan scan(m_settings, 7, 0);
    QCOMPARE(qtversions::exactTimerPeriods(&scan), QList<int>() << 7000);
    scan.setupMulticast();
    scan.configChanged();
    tick(scan);
    QCOMPARE(qtversions::exactTimerPeriods(&scan), QList<int>() << 7000);
}

void TestZorvScanAnnouncing::ownAnnouncementComesBack()
{
    ZorvScan scan(m_settings, interval, 0);
    QVERIFY(waitFor([&] { return deviceNamed(scan, "KM-2044817"); }));
    QCOMPARE(deviceNamed(scan, "KM-2044817")->rawJson(), text(testData("one-interface.json").constData()));
    const QVariantList all = scan.allChilds();
    QCOMPARE(all.size(), 1);
    QCOMPARE(all.first().toMap().value(text("uuid")), QVariant(text("KM-2044817")));
    QCOMPARE(all.first().toMap().value(text("name")), QVariant(text("kelta")));
}

void TestZorvScanAnnouncing::sendAnnouncementSendsTheTextOnce()
{
    ZorvScan scan(m_settings, interval, 0);
    m_peer->upToNow();
    QVERIFY(network::ip("addr add 169.254.3.4/16 dev eth0"));
    scan.sendAnnouncement();
    QVERIFY(network::ip("addr del 169.254.3.4/16 dev eth0"));
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << testData("one-interface.json"));
}

void TestZorvScanAnnouncing::configChangedDoesNotSend()
{
    ZorvScan scan(m_settings, interval, 0);
    QVERIFY(network::ip("addr add 169.254.3.4/16 dev eth0"));
    tick(scan);
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << testData("one-interface.json") << testData("one-interface.json"));
    scan.configChanged();
    QVERIFY(network::ip("addr del 169.254.3.4/16 dev eth0"));
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>());
    tick(scan);
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << testData("two-ipv4.json"));
    scan.configChanged();
    scan.sendAnnouncement();
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << testData("one-interface.json"));
}

void TestZorvScanAnnouncing::timerEventOfAnyIdAnnounces()
{
    ZorvScan scan(m_settings, interval, 0);
    m_peer->upToNow();
    tick(scan, 424242);
    tick(scan, 0);
    tick(scan, -1);
    QCOMPARE(m_peer->upToNow().size(), 3);
}

QTEST_MAIN(TestZorvScanAnnouncing)
#include "tst_zorvscan_announcing.moc"
