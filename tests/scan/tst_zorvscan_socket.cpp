#include "bytes.h"
#include "network.h"
#include "ownprogram.h"
#include "scantest.h"
#include "testbus.h"
#include "waitfor.h"
#include "zorvdevice.h"
#include "zorvscan.h"

#include <QtDBus/QtDBus>
#include <QtNetwork/QUdpSocket>
#include <QtTest/QtTest>

// Another program that has the port and does not share it.
class PortBlocker
{
public:
    PortBlocker()
        : m_socket(socket(AF_INET, SOCK_DGRAM, 0))
    {
        const sockaddr_in any = inetAddress("0.0.0.0", 31416);
        holds = bind(m_socket, reinterpret_cast<const sockaddr *>(&any), sizeof any) == 0;
    }
    ~PortBlocker() { release(); }

    void release()
    {
        if (m_socket != -1)
            close(m_socket);
        m_socket = -1;
    }

    bool holds;

private:
    int m_socket;
};

// Binding the port and joining the group, and when that is tried again.
class TestZorvScanSocket : public ScanTest
{
    Q_OBJECT

private slots:
    void secondSetupSucceedsSilently();
    void eachSuccessfulSetupConnectsOnceMore();
    void setupConnectsSixteenTimesAtMost();
    void portTaken();
    void networkDownAtStart();
    void datagramsBeforeTheJoinDoNotMakeItDeaf();
    void pendingIsTheResultOfTheLastSetup();
    void missingInterfaceIsRetried();
    void withoutConnmanSignalsTheProcessEnds();
    void onlineRejoinsAndRefreshesTheTextWithoutSending();
    void onlineWhileThePortIsTakenIsRetried();
    void otherConnmanReportsChangeNothing_data();
    void otherConnmanReportsChangeNothing();
    void onlineOnTheBusOfAnySender();
};

void TestZorvScanSocket::secondSetupSucceedsSilently()
{
    ZorvScan scan(m_settings, interval, 0);
    QCOMPARE(scan.setupMulticast(), 0);
    QCOMPARE(scan.setupMulticast(), 0);
    QCOMPARE(takeWarnings(), QStringList());
    QCOMPARE(scan.socketState(), 4);
}

void TestZorvScanSocket::eachSuccessfulSetupConnectsOnceMore()
{
    for (int setups = 1; setups <= 16; ++setups) {
        ZorvScan scan(m_settings, interval, 0);
        for (int i = 1; i < setups; ++i)
            QCOMPARE(scan.setupMulticast(), 0);
        drain(scan);
        Loopback loopback;
        for (int i = 0; i < 18; ++i)
            QVERIFY(loopback.send(announcing(QByteArray::number(i))));
        report(scan);
        QCOMPARE(devicesOf(scan).size(), setups);
    }
}

// A program that sets up again and again does not make each report dearer for ever.
void TestZorvScanSocket::setupConnectsSixteenTimesAtMost()
{
    ZorvScan scan(m_settings, interval, 0);
    for (int i = 0; i < 30; ++i)
        QCOMPARE(scan.setupMulticast(), 0);
    drain(scan);
    Loopback loopback;
    for (int i = 0; i < 40; ++i)
        QVERIFY(loopback.send(announcing(QByteArray::number(i))));
    for (int reports = 1; reports <= 2; ++reports) {
        report(scan);
        QCOMPARE(devicesOf(scan).size(), 16 * reports);
    }
}

static QStringList portWarnings()
{
    return QStringList() << text("The bound address is already in use") << text("zorvlisten port not bound!");
}

void TestZorvScanSocket::portTaken()
{
    PortBlocker blocker;
    QVERIFY(blocker.holds);
    ZorvScan scan(m_settings, interval, 0);
    QCOMPARE(takeWarnings(), portWarnings());
    QCOMPARE(scan.setupMulticast(), -1);
    QCOMPARE(takeWarnings(), portWarnings());
    for (int i = 0; i < 3; ++i) {
        tick(scan);
        QCOMPARE(takeWarnings(), portWarnings());
        QCOMPARE(scan.socketState(), 0);
    }
    scan.sendAnnouncement();
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << testData("one-interface.json") << testData("one-interface.json") << testData("one-interface.json") << testData("one-interface.json") << testData("one-interface.json"));
    QVERIFY(!isMember());

    blocker.release();
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());
    QCOMPARE(scan.socketState(), 4);
    QVERIFY(isMember());
    const WireDatagram announcement = m_peer->next();
    QCOMPARE(announcement.data, testData("one-interface.json"));
    QCOMPARE(int(announcement.port), 31416);
    QVERIFY(m_peer->announce(announcing("A")));
    QVERIFY(waitFor([&] { return deviceNamed(scan, "A"); }));

    m_peer->upToNow();
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());
    QCOMPARE(m_peer->upToNow().size(), 1);
}

static void verifyJoinFailed(const ZorvScan &scan, const QStringList &said)
{
    const QString reason = scan.findChild<QUdpSocket *>()->errorString();
    QVERIFY(!reason.isEmpty());
    QCOMPARE(said, QStringList(text("join multicast failed: ") + reason));
}

void TestZorvScanSocket::networkDownAtStart()
{
    QVERIFY(network::ip("link set eth0 down"));
    ZorvScan scan(m_settings, interval, 0);
    verifyJoinFailed(scan, takeWarnings());
    QCOMPARE(scan.setupMulticast(), -2);
    verifyJoinFailed(scan, takeWarnings());
    for (int i = 0; i < 3; ++i) {
        tick(scan);
        verifyJoinFailed(scan, takeWarnings());
    }
    QCOMPARE(scan.socketState(), 4);
    QVERIFY(!isMember());

    QVERIFY(networkUp());
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());
    QVERIFY(isMember());
    QCOMPARE(m_peer->next().data, testData("one-interface.json"));
    QVERIFY(m_peer->announce(announcing("A")));
    QVERIFY(waitFor([&] { return deviceNamed(scan, "A"); }));
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());
    QCOMPARE(scan.setupMulticast(), 0);
    QCOMPARE(takeWarnings(), QStringList());
}

void TestZorvScanSocket::datagramsBeforeTheJoinDoNotMakeItDeaf()
{
    QVERIFY(network::ip("link set eth0 down"));
    ZorvScan scan(m_settings, interval, 0);
    Loopback loopback;
    for (int i = 0; i < 3; ++i)
        QVERIFY(loopback.send(announcing("early-" + QByteArray::number(i))));
    QSignalSpy noticed(scan.findChild<QUdpSocket *>(), SIGNAL(readyRead()));
    QVERIFY(waitFor([&] { return !noticed.isEmpty(); }));

    QVERIFY(networkUp());
    tick(scan);
    QVERIFY(isMember());
    QVERIFY(m_peer->announce(announcing("late")));
    QVERIFY(waitFor([&] { return deviceNamed(scan, "late"); }));
    QVERIFY(deviceNamed(scan, "early-0"));
    QVERIFY(deviceNamed(scan, "early-2"));
}

void TestZorvScanSocket::pendingIsTheResultOfTheLastSetup()
{
    ZorvScan scan(m_settings, interval, 0);
    QVERIFY(network::ip("link set eth0 down"));
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());

    QCOMPARE(scan.setupMulticast(), -2);
    verifyJoinFailed(scan, takeWarnings());
    tick(scan);
    verifyJoinFailed(scan, takeWarnings());

    QVERIFY(networkUp());
    QCOMPARE(scan.setupMulticast(), 0);
    QVERIFY(network::ip("link set eth0 down"));
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());
}

void TestZorvScanSocket::missingInterfaceIsRetried()
{
    QVERIFY(network::ip("route del default"));
    QVERIFY(network::ip("addr del 10.77.0.2/24 dev eth0"));
    ZorvScan scan(m_settings, interval, 0);
    verifyJoinFailed(scan, takeWarnings());
    QVERIFY(network::ip("addr add 10.77.0.2/24 dev eth0"));
    tick(scan);
    verifyJoinFailed(scan, takeWarnings());
    QVERIFY(network::ip("route add 239.0.0.0/8 dev eth0"));
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());
    QVERIFY(network::ip("route del 239.0.0.0/8 dev eth0"));
    QVERIFY(m_peer->announce(announcing("A")));
    QVERIFY(waitFor([&] { return deviceNamed(scan, "A"); }));
}

void TestZorvScanSocket::withoutConnmanSignalsTheProcessEnds()
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(text("DBUS_SYSTEM_BUS_ADDRESS"), text("unix:path=/nowhere"));
    process.setProcessEnvironment(environment);
    startOwnProgram(&process, "without-bus");
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitStatus(), QProcess::CrashExit);
    QVERIFY(process.readAllStandardError().contains("Connman property connect failed!"));
}

void TestZorvScanSocket::onlineRejoinsAndRefreshesTheTextWithoutSending()
{
    QVERIFY(network::ip("link set eth0 down"));
    ZorvScan scan(m_settings, interval, 0);
    QVERIFY(networkUp());
    QVERIFY(network::ip("addr add 169.254.3.4/16 dev eth0"));
    takeWarnings();
    m_peer->upToNow();
    scan.connmanServicePropertyChanged(text("State"), QDBusVariant(text("online")));
    QVERIFY(network::ip("addr del 169.254.3.4/16 dev eth0"));
    QVERIFY(isMember());
    QCOMPARE(takeWarnings(), QStringList());
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>());
    tick(scan);
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << testData("two-ipv4.json"));
    QCOMPARE(takeWarnings(), QStringList());
}

void TestZorvScanSocket::onlineWhileThePortIsTakenIsRetried()
{
    PortBlocker blocker;
    ZorvScan scan(m_settings, interval, 0);
    takeWarnings();
    scan.connmanServicePropertyChanged(text("State"), QDBusVariant(text("online")));
    QCOMPARE(takeWarnings(), portWarnings());
    blocker.release();
    tick(scan);
    QCOMPARE(scan.socketState(), 4);
    QVERIFY(isMember());
}

void TestZorvScanSocket::otherConnmanReportsChangeNothing_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("ready") << text("State") << QVariant(text("ready"));
    QTest::newRow("idle") << text("State") << QVariant(text("idle"));
    QTest::newRow("other case") << text("State") << QVariant(text("Online"));
    QTest::newRow("blank behind it") << text("State") << QVariant(text("online "));
    QTest::newRow("empty") << text("State") << QVariant(QString());
    QTest::newRow("a number") << text("State") << QVariant(4);
    QTest::newRow("nothing") << text("State") << QVariant();
    QTest::newRow("another property") << text("IPv4") << QVariant(text("online"));
    QTest::newRow("other case of the property") << text("state") << QVariant(text("online"));
}

void TestZorvScanSocket::otherConnmanReportsChangeNothing()
{
    QFETCH(QString, name);
    QFETCH(QVariant, value);
    PortBlocker blocker;
    ZorvScan scan(m_settings, interval, 0);
    takeWarnings();
    QVERIFY(network::ip("addr add 169.254.3.4/16 dev eth0"));
    scan.connmanServicePropertyChanged(name, QDBusVariant(value));
    QVERIFY(network::ip("addr del 169.254.3.4/16 dev eth0"));
    QCOMPARE(takeWarnings(), QStringList()); // there was no attempt to bind the port
    m_peer->upToNow();
    scan.sendAnnouncement();
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << testData("one-interface.json"));
}

void TestZorvScanSocket::onlineOnTheBusOfAnySender()
{
    PortBlocker blocker;
    ZorvScan scan(m_settings, interval, 0);
    takeWarnings();
    blocker.release();
    QDBusConnection stranger = connectToTestBus(text("stranger"));
    QDBusMessage signal = QDBusMessage::createSignal(text("/any/path"), text("net.connman.Service"), text("PropertyChanged"));
    signal << text("State") << QVariant::fromValue(QDBusVariant(text("online")));
    QVERIFY(stranger.send(signal));
    QVERIFY(waitFor([&] { return scan.socketState() == 4; }));
    QVERIFY(isMember());
    QDBusConnection::disconnectFromBus(text("stranger"));
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (argc == 2 && qstrcmp(argv[1], "without-bus") == 0)
        ZorvScan(0, interval, 0);
    TestZorvScanSocket test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_zorvscan_socket.moc"
