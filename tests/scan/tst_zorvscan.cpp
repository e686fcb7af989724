#include "deviceservices.h"
#include "fakeclock.h"
#include "ownprogram.h"
#include "qtcompat.h"
#include "upnpsettings.h"
#include "wirepeer.h"
#include "zorvdevice.h"
#include "zorvscan.h"

#include <QtCore/QFile>
#include <QtDBus/QtDBus>
#include <QtNetwork/QUdpSocket>
#include <QtTest/QtTest>

#include <ctime>

static const int interval = 10;

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

static QStringList warnings;

static void record(QtMsgType type, const char *text)
{
    if (type == QtWarningMsg)
        warnings.append(QString::fromLocal8Bit(text));
    else if (type != QtDebugMsg)
        fprintf(stderr, "%s\n", text);
}

static QStringList takeWarnings()
{
    const QStringList taken = warnings;
    warnings.clear();
    return taken;
}

static QStringList portWarnings()
{
    return QStringList() << latin1("The bound address is already in use") << latin1("zorvlisten port not bound!");
}

// Lets the event loop run until the condition holds; false when it does not in time.
template <class Condition>
static bool within(int milliseconds, Condition holds)
{
    QElapsedTimer timer;
    timer.start();
    while (!holds()) {
        if (timer.hasExpired(milliseconds))
            return false;
        QTest::qWait(2);
    }
    return true;
}

static void reachEventLoop()
{
    QCoreApplication::sendPostedEvents(0, QEvent::DeferredDelete);
}

static void tick(ZorvScan &scan, int id = 1)
{
    QTimerEvent event(id);
    QCoreApplication::sendEvent(&scan, &event);
}

static QList<ZorvDevice *> devicesOf(const ZorvScan &scan)
{
    return scan.findChildren<ZorvDevice *>();
}

static ZorvDevice *deviceNamed(const ZorvScan &scan, const char *uuid)
{
    return scan.findChild<ZorvDevice *>(latin1(uuid));
}

static QByteArray announcing(const QByteArray &uuid, const QByteArray &expiration = "22", const QByteArray &family = "Kelta",
    const QByteArray &interface = "{\"name\":\"eth0\",\"type\":\"ethernet\",\"ipv4\":[],\"ipv6\":[],\"configurationMethod\":\"dhcp\"}")
{
    return "{\"params\":{\"device\":{\"name\":\"n-" + uuid + "\",\"uuid\":\"" + uuid + "\",\"type\":\"" + family
        + " CODESYS\",\"familyType\":\"" + family + "\",\"firmwareVersion\":\"2.0\"},\"netSettings\":{\"interface\":" + interface + "},\"expiration\":" + expiration + "}}";
}

static QByteArray contentOf(const char *file)
{
    QFile data(QLatin1String(TEST_DATA) + latin1(file));
    return data.open(QIODevice::ReadOnly) ? data.readAll() : QByteArray("no such file");
}

// Whether this host has asked for the group on eth0. The kernel writes 239.255.77.76 as 4C4DFFEF.
static bool isMember()
{
    QFile memberships(latin1("/proc/net/igmp"));
    return memberships.open(QIODevice::ReadOnly) && memberships.readAll().contains("4C4DFFEF");
}

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

// Puts datagrams straight into the socket's queue, without the way over the wire.
class Loopback
{
public:
    Loopback()
        : m_socket(socket(AF_INET, SOCK_DGRAM, 0))
    {
    }
    ~Loopback() { close(m_socket); }

    bool send(const QByteArray &data) { return sendTo(m_socket, data, "127.0.0.1", 31416); }

    // Has the scan take one datagram in.
    void feed(ZorvScan &scan, const QByteArray &data)
    {
        QVERIFY(send(data));
        scan.pendingDatagrams();
    }

private:
    int m_socket;
};

// The scan's own announcement comes back to it: takes it out of the queue, which then is empty.
static void drain(ZorvScan &scan)
{
    QUdpSocket *socket = scan.findChild<QUdpSocket *>();
    while (socket->hasPendingDatagrams())
        scan.pendingDatagrams();
    qDeleteAll(devicesOf(scan));
}

// The same, and what else was heard stays.
static void drainOwn(ZorvScan &scan)
{
    QUdpSocket *socket = scan.findChild<QUdpSocket *>();
    while (socket->hasPendingDatagrams())
        scan.pendingDatagrams();
    delete deviceNamed(scan, "KM-2044817");
}

class tst_ZorvScan : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void firstAnnouncementGoesOutDuringConstruction();
    void nextAnnouncementsGoOutEveryInterval();
    void ownAnnouncementComesBack();
    void sendAnnouncementSendsTheTextOnce();
    void configChangedDoesNotSend();
    void timerEventOfAnyIdAnnounces();

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

    void oneChildForEachUuid();
    void pendingDatagramsReadsOneAtMost();
    void pendingDatagramsReadsOneAtMostOfKnownDevicesToo();
    void pendingDatagramsWithoutADatagram();
    void burstOfKnownDevicesIsOneReport();
    void newcomerEndsTheReport();
    void burstWithSeveralConnections();
    void emptyDatagramsOfABurst();
    void longBurst();
    void unusableAndUsableAnnouncementTogether();
    void refreshCountsAtOnce();
    void datagramsThatAreNone_data();
    void datagramsThatAreNone();
    void longestDatagram();
    void shortDatagramAfterALongOne();
    void sameUuidReplacesTheText();
    void sameTextAgainKeepsTheDeviceAndItsValues();
    void deviceIsRemovedAtTheFirstTickAfterItsExpiration();
    void expiredDeviceIsCreatedAfresh();
    void refreshedBetweenTickAndEventLoop();
    void unusableAnnouncementIsForgottenInTheEventLoop();
    void sameUnusableAnnouncementAgainSavesNothing();
    void childrenThatAreNoDevices();
    void anotherOwnerOfADevice();
    void roomForAnnouncementsIsUsedToTheLastByte();
    void twentyThousandDevicesAreKnownAtMost();
    void tenThousandDevices();
    void chosenNamesCostNoMore_data();
    void chosenNamesCostNoMore();
    void renamedDevice();
    void deviceDeletedByHand();
    void deviceFromElsewhere();
    void destructionWithDevices();

    void allChildsFiltersByFamily();
    void familyOfCharactersThatTheBusCannotCarry();
    void summaryOfADevice();
    void summaryWhoseInterfaceIsNoObject_data();
    void summaryWhoseInterfaceIsNoObject();
    void numbersInTheDeviceAreTexts();

    void methodsOfTheInterface();

private:
    bool networkUp();

    DeviceServices m_services;
    UpnpSettings *m_settings;
    WirePeer *m_peer;
};

void tst_ZorvScan::initTestCase()
{
    QVERIFY2(!qgetenv("SIMDEVICE_PEER").isEmpty(), "to be started on a network of its own");
    qtcompat::installMessageSink(record);
    QVERIFY(m_services.start());
    m_settings = new UpnpSettings("Zorv", "http://www.zorv.example", "Kelta", "a device", "http://www.zorv.example/kelta", this);
    m_settings->configureIp();
    m_peer = new WirePeer;
}

bool tst_ZorvScan::networkUp()
{
    return ip("link set eth0 up") && ip("route replace default dev eth0") && m_peer->isReached();
}

void tst_ZorvScan::cleanupTestCase()
{
    delete m_peer;
    delete m_settings;
}

void tst_ZorvScan::init()
{
    m_peer->upToNow();
    warnings.clear();
    QVERIFY(!isMember());
}

void tst_ZorvScan::cleanup()
{
    QVERIFY(networkUp());
}

void tst_ZorvScan::firstAnnouncementGoesOutDuringConstruction()
{
    ZorvScan scan(m_settings, interval, 0);
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << contentOf("one-interface.json"));
    QCOMPARE(scan.socketState(), 4);
    QVERIFY(isMember());
    QCOMPARE(takeWarnings(), QStringList());
    scan.sendAnnouncement();
    QCOMPARE(int(m_peer->next().port), 31416);
}

void tst_ZorvScan::nextAnnouncementsGoOutEveryInterval()
{
    QElapsedTimer timer;
    timer.start();
    ZorvScan scan(m_settings, 1, 0);
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << contentOf("interval-1.json"));
    QList<QByteArray> sent;
    QVERIFY(within(20000, [&] { return (sent += m_peer->upToNow()).size() >= 2; }));
    QVERIFY(timer.elapsed() >= 2000);
    QCOMPARE(sent.first(), contentOf("interval-1.json"));
    QCOMPARE(sent.last(), contentOf("interval-1.json"));
}

void tst_ZorvScan::ownAnnouncementComesBack()
{
    ZorvScan scan(m_settings, interval, 0);
    QVERIFY(within(10000, [&] { return deviceNamed(scan, "KM-2044817"); }));
    QCOMPARE(deviceNamed(scan, "KM-2044817")->rawJson(), latin1(contentOf("one-interface.json").constData()));
    const QVariantList all = scan.allChilds();
    QCOMPARE(all.size(), 1);
    QCOMPARE(all.first().toMap().value(latin1("uuid")), QVariant(latin1("KM-2044817")));
    QCOMPARE(all.first().toMap().value(latin1("name")), QVariant(latin1("kelta")));
}

void tst_ZorvScan::sendAnnouncementSendsTheTextOnce()
{
    ZorvScan scan(m_settings, interval, 0);
    m_peer->upToNow();
    QVERIFY(ip("addr add 169.254.3.4/16 dev eth0"));
    scan.sendAnnouncement();
    QVERIFY(ip("addr del 169.254.3.4/16 dev eth0"));
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << contentOf("one-interface.json"));
}

void tst_ZorvScan::configChangedDoesNotSend()
{
    ZorvScan scan(m_settings, interval, 0);
    QVERIFY(ip("addr add 169.254.3.4/16 dev eth0"));
    tick(scan);
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << contentOf("one-interface.json") << contentOf("one-interface.json"));
    scan.configChanged();
    QVERIFY(ip("addr del 169.254.3.4/16 dev eth0"));
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>());
    tick(scan);
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << contentOf("two-ipv4.json"));
    scan.configChanged();
    scan.sendAnnouncement();
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << contentOf("one-interface.json"));
}

void tst_ZorvScan::timerEventOfAnyIdAnnounces()
{
    ZorvScan scan(m_settings, interval, 0);
    m_peer->upToNow();
    tick(scan, 424242);
    tick(scan, 0);
    tick(scan, -1);
    QCOMPARE(m_peer->upToNow().size(), 3);
}

void tst_ZorvScan::secondSetupSucceedsSilently()
{
    ZorvScan scan(m_settings, interval, 0);
    QCOMPARE(scan.setupMulticast(), 0);
    QCOMPARE(scan.setupMulticast(), 0);
    QCOMPARE(takeWarnings(), QStringList());
    QCOMPARE(scan.socketState(), 4);
}

void tst_ZorvScan::eachSuccessfulSetupConnectsOnceMore()
{
    for (int setups = 1; setups <= 16; ++setups) {
        ZorvScan scan(m_settings, interval, 0);
        for (int i = 1; i < setups; ++i)
            QCOMPARE(scan.setupMulticast(), 0);
        drain(scan);
        Loopback loopback;
        for (int i = 0; i < 18; ++i)
            QVERIFY(loopback.send(announcing(QByteArray::number(i))));
        QVERIFY(QMetaObject::invokeMethod(scan.findChild<QUdpSocket *>(), "readyRead"));
        QCOMPARE(devicesOf(scan).size(), setups);
    }
}

// A program that sets up again and again does not make each report dearer for ever.
void tst_ZorvScan::setupConnectsSixteenTimesAtMost()
{
    ZorvScan scan(m_settings, interval, 0);
    for (int i = 0; i < 30; ++i)
        QCOMPARE(scan.setupMulticast(), 0);
    drain(scan);
    Loopback loopback;
    for (int i = 0; i < 40; ++i)
        QVERIFY(loopback.send(announcing(QByteArray::number(i))));
    for (int reports = 1; reports <= 2; ++reports) {
        QVERIFY(QMetaObject::invokeMethod(scan.findChild<QUdpSocket *>(), "readyRead"));
        QCOMPARE(devicesOf(scan).size(), 16 * reports);
    }
}

void tst_ZorvScan::portTaken()
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
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << contentOf("one-interface.json") << contentOf("one-interface.json") << contentOf("one-interface.json") << contentOf("one-interface.json") << contentOf("one-interface.json"));
    QVERIFY(!isMember());

    blocker.release();
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());
    QCOMPARE(scan.socketState(), 4);
    QVERIFY(isMember());
    const WireDatagram announcement = m_peer->next();
    QCOMPARE(announcement.data, contentOf("one-interface.json"));
    QCOMPARE(int(announcement.port), 31416);
    QVERIFY(m_peer->announce(announcing("A")));
    QVERIFY(within(10000, [&] { return deviceNamed(scan, "A"); }));

    m_peer->upToNow();
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());
    QCOMPARE(m_peer->upToNow().size(), 1);
}

static void verifyJoinFailed(const QStringList &said)
{
    QCOMPARE(said.size(), 1);
    QVERIFY2(said.first().startsWith(latin1("join multicast failed: ")), said.first().toLocal8Bit().constData());
}

void tst_ZorvScan::networkDownAtStart()
{
    QVERIFY(ip("link set eth0 down"));
    ZorvScan scan(m_settings, interval, 0);
    verifyJoinFailed(takeWarnings());
    QCOMPARE(scan.setupMulticast(), -2);
    verifyJoinFailed(takeWarnings());
    for (int i = 0; i < 3; ++i) {
        tick(scan);
        verifyJoinFailed(takeWarnings());
    }
    QCOMPARE(scan.socketState(), 4);
    QVERIFY(!isMember());

    QVERIFY(networkUp());
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());
    QVERIFY(isMember());
    QCOMPARE(m_peer->next().data, contentOf("one-interface.json"));
    QVERIFY(m_peer->announce(announcing("A")));
    QVERIFY(within(10000, [&] { return deviceNamed(scan, "A"); }));
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());
    QCOMPARE(scan.setupMulticast(), 0);
    QCOMPARE(takeWarnings(), QStringList());
}

void tst_ZorvScan::datagramsBeforeTheJoinDoNotMakeItDeaf()
{
    QVERIFY(ip("link set eth0 down"));
    ZorvScan scan(m_settings, interval, 0);
    Loopback loopback;
    for (int i = 0; i < 3; ++i)
        QVERIFY(loopback.send(announcing("early-" + QByteArray::number(i))));
    QSignalSpy noticed(scan.findChild<QUdpSocket *>(), SIGNAL(readyRead()));
    QVERIFY(within(10000, [&] { return !noticed.isEmpty(); }));

    QVERIFY(networkUp());
    tick(scan);
    QVERIFY(isMember());
    QVERIFY(m_peer->announce(announcing("late")));
    QVERIFY(within(10000, [&] { return deviceNamed(scan, "late"); }));
    QVERIFY(deviceNamed(scan, "early-0"));
    QVERIFY(deviceNamed(scan, "early-2"));
}

void tst_ZorvScan::pendingIsTheResultOfTheLastSetup()
{
    ZorvScan scan(m_settings, interval, 0);
    QVERIFY(ip("link set eth0 down"));
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());

    QCOMPARE(scan.setupMulticast(), -2);
    verifyJoinFailed(takeWarnings());
    tick(scan);
    verifyJoinFailed(takeWarnings());

    QVERIFY(networkUp());
    QCOMPARE(scan.setupMulticast(), 0);
    QVERIFY(ip("link set eth0 down"));
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());
}

void tst_ZorvScan::missingInterfaceIsRetried()
{
    QVERIFY(ip("route del default"));
    QVERIFY(ip("addr del 10.77.0.2/24 dev eth0"));
    ZorvScan scan(m_settings, interval, 0);
    verifyJoinFailed(takeWarnings());
    QVERIFY(ip("addr add 10.77.0.2/24 dev eth0"));
    tick(scan);
    verifyJoinFailed(takeWarnings());
    QVERIFY(ip("route add 239.0.0.0/8 dev eth0"));
    tick(scan);
    QCOMPARE(takeWarnings(), QStringList());
    QVERIFY(ip("route del 239.0.0.0/8 dev eth0"));
    QVERIFY(m_peer->announce(announcing("A")));
    QVERIFY(within(10000, [&] { return deviceNamed(scan, "A"); }));
}

void tst_ZorvScan::withoutConnmanSignalsTheProcessEnds()
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(latin1("DBUS_SYSTEM_BUS_ADDRESS"), latin1("unix:path=/nowhere"));
    process.setProcessEnvironment(environment);
    startOwnProgram(&process, "without-bus");
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitStatus(), QProcess::CrashExit);
    QVERIFY(process.readAllStandardError().contains("Connman property connect failed!"));
}

void tst_ZorvScan::onlineRejoinsAndRefreshesTheTextWithoutSending()
{
    QVERIFY(ip("link set eth0 down"));
    ZorvScan scan(m_settings, interval, 0);
    QVERIFY(networkUp());
    QVERIFY(ip("addr add 169.254.3.4/16 dev eth0"));
    takeWarnings();
    m_peer->upToNow();
    scan.connmanServicePropertyChanged(latin1("State"), QDBusVariant(latin1("online")));
    QVERIFY(ip("addr del 169.254.3.4/16 dev eth0"));
    QVERIFY(isMember());
    QCOMPARE(takeWarnings(), QStringList());
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>());
    tick(scan);
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << contentOf("two-ipv4.json"));
    QCOMPARE(takeWarnings(), QStringList());
}

void tst_ZorvScan::onlineWhileThePortIsTakenIsRetried()
{
    PortBlocker blocker;
    ZorvScan scan(m_settings, interval, 0);
    takeWarnings();
    scan.connmanServicePropertyChanged(latin1("State"), QDBusVariant(latin1("online")));
    QCOMPARE(takeWarnings(), portWarnings());
    blocker.release();
    tick(scan);
    QCOMPARE(scan.socketState(), 4);
    QVERIFY(isMember());
}

void tst_ZorvScan::otherConnmanReportsChangeNothing_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("ready") << latin1("State") << QVariant(latin1("ready"));
    QTest::newRow("idle") << latin1("State") << QVariant(latin1("idle"));
    QTest::newRow("other case") << latin1("State") << QVariant(latin1("Online"));
    QTest::newRow("blank behind it") << latin1("State") << QVariant(latin1("online "));
    QTest::newRow("empty") << latin1("State") << QVariant(QString());
    QTest::newRow("a number") << latin1("State") << QVariant(4);
    QTest::newRow("nothing") << latin1("State") << QVariant();
    QTest::newRow("another property") << latin1("IPv4") << QVariant(latin1("online"));
    QTest::newRow("other case of the property") << latin1("state") << QVariant(latin1("online"));
}

void tst_ZorvScan::otherConnmanReportsChangeNothing()
{
    QFETCH(QString, name);
    QFETCH(QVariant, value);
    PortBlocker blocker;
    ZorvScan scan(m_settings, interval, 0);
    takeWarnings();
    QVERIFY(ip("addr add 169.254.3.4/16 dev eth0"));
    scan.connmanServicePropertyChanged(name, QDBusVariant(value));
    QVERIFY(ip("addr del 169.254.3.4/16 dev eth0"));
    QCOMPARE(takeWarnings(), QStringList()); // there was no attempt to bind the port
    m_peer->upToNow();
    scan.sendAnnouncement();
    QCOMPARE(m_peer->upToNow(), QList<QByteArray>() << contentOf("one-interface.json"));
}

void tst_ZorvScan::onlineOnTheBusOfAnySender()
{
    PortBlocker blocker;
    ZorvScan scan(m_settings, interval, 0);
    takeWarnings();
    blocker.release();
    QDBusConnection stranger = QDBusConnection::connectToBus(QString::fromLocal8Bit(qgetenv("DBUS_SYSTEM_BUS_ADDRESS").constData()), latin1("stranger"));
    QDBusMessage signal = QDBusMessage::createSignal(latin1("/any/path"), latin1("net.connman.Service"), latin1("PropertyChanged"));
    signal << latin1("State") << QVariant::fromValue(QDBusVariant(latin1("online")));
    QVERIFY(stranger.send(signal));
    QVERIFY(within(10000, [&] { return scan.socketState() == 4; }));
    QVERIFY(isMember());
    QDBusConnection::disconnectFromBus(latin1("stranger"));
}

void tst_ZorvScan::oneChildForEachUuid()
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
        QCOMPARE(devices.at(i)->objectName(), latin1("D") + QString::number(i));
        QCOMPARE(devices.at(i)->parent(), static_cast<QObject *>(&scan));
    }
}

void tst_ZorvScan::pendingDatagramsReadsOneAtMost()
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

void tst_ZorvScan::pendingDatagramsReadsOneAtMostOfKnownDevicesToo()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    const QByteArray text = announcing("A");
    loopback.feed(scan, text);
    QVERIFY(loopback.send(text + ' '));
    QVERIFY(loopback.send(text + "  "));
    for (int blanks = 1; blanks <= 2; ++blanks) {
        scan.pendingDatagrams();
        QCOMPARE(deviceNamed(scan, "A")->rawJson(), QString::fromLatin1(text.constData()) + QString(blanks, QLatin1Char(' ')));
    }
}

void tst_ZorvScan::pendingDatagramsWithoutADatagram()
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
    QVERIFY(within(10000, [&] { return deviceNamed(scan, "B"); }));
    QCOMPARE(takeWarnings(), QStringList());
}

static void report(ZorvScan &scan)
{
    QVERIFY(QMetaObject::invokeMethod(scan.findChild<QUdpSocket *>(), "readyRead"));
}

void tst_ZorvScan::burstOfKnownDevicesIsOneReport()
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
    QCOMPARE(deviceNamed(scan, "A")->rawJson(), latin1(announcing("A", "39").constData()));
    QCOMPARE(deviceNamed(scan, "B")->rawJson(), latin1(announcing("B", "39").constData()));
}

void tst_ZorvScan::newcomerEndsTheReport()
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
    QCOMPARE(deviceNamed(scan, "A")->rawJson(), latin1(announcing("A", "30").constData()));
    report(scan);
    QCOMPARE(deviceNamed(scan, "A")->rawJson(), latin1(announcing("A", "31").constData()));
}

// Each connection takes one, and the last of them the rest.
void tst_ZorvScan::burstWithSeveralConnections()
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
        QCOMPARE(deviceNamed(scan, "A")->rawJson(), latin1(announcing("A", "39").constData()));
    }
}

void tst_ZorvScan::emptyDatagramsOfABurst()
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
    QVERIFY(within(10000, [&] { return deviceNamed(scan, "A")->rawJson() == latin1(announcing("A", "39").constData()); }));
}

// More than fit into the socket by default: those that were lost come again.
void tst_ZorvScan::longBurst()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A"));
    for (int i = 0; i < 5000; ++i)
        QVERIFY(loopback.send(announcing("A", QByteArray::number(i))));
    QVERIFY(within(10000, [&] {
        return loopback.send(announcing("A", "22")) && deviceNamed(scan, "A")->rawJson() == latin1(announcing("A", "22").constData());
    }));
}

// Not only at the next tick
void tst_ZorvScan::refreshCountsAtOnce()
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

// The second one does not refresh the entry of the first, which is on its way out: it makes one that stays.
void tst_ZorvScan::unusableAndUsableAnnouncementTogether()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    QVERIFY(loopback.send(announcing("A", "6.6")));
    QVERIFY(loopback.send(announcing("A", "22")));
    QVERIFY(loopback.send(announcing("last")));
    QVERIFY(within(10000, [&] { return deviceNamed(scan, "last"); }));
    reachEventLoop();
    QVERIFY(deviceNamed(scan, "A"));
    QCOMPARE(devicesOf(scan).size(), 2);
}

void tst_ZorvScan::datagramsThatAreNone_data()
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

void tst_ZorvScan::datagramsThatAreNone()
{
    QFETCH(QByteArray, datagram);
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    QVERIFY(loopback.send(datagram));
    QVERIFY(loopback.send(announcing("next")));
    QVERIFY(within(10000, [&] { return deviceNamed(scan, "next"); }));
    QCOMPARE(devicesOf(scan).size(), 1);
    QCOMPARE(takeWarnings(), QStringList());
}

void tst_ZorvScan::longestDatagram()
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

void tst_ZorvScan::shortDatagramAfterALongOne()
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
    QCOMPARE(deviceNamed(scan, "short")->rawJson(), latin1(announcing("short").constData()));
    QCOMPARE(deviceNamed(scan, "long")->rawJson(), latin1(whole.constData()));
    loopback.feed(scan, announcing("long"));
    QCOMPARE(deviceNamed(scan, "long")->rawJson(), latin1(announcing("long").constData()));
}

void tst_ZorvScan::sameUuidReplacesTheText()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A", "22", "Kelta"));
    const QByteArray next = announcing("A", "22", "Other");
    loopback.feed(scan, next);
    loopback.feed(scan, announcing("B"));
    QCOMPARE(devicesOf(scan).size(), 2);
    QCOMPARE(deviceNamed(scan, "A")->rawJson(), latin1(next.constData()));
    QCOMPARE(deviceNamed(scan, "A")->jsonValue(latin1("params/device/familyType")), latin1("Other"));
}

void tst_ZorvScan::sameTextAgainKeepsTheDeviceAndItsValues()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    const QByteArray texts[] = { announcing("A", "1", "Kelta"), announcing("A", "1", "Kelt2") };
    loopback.feed(scan, texts[0]);
    ZorvDevice *const device = deviceNamed(scan, "A");
    for (int i = 0; i < 8; ++i) {
        // Each text comes twice in a row, and in all for far longer than a device is kept that says nothing.
        const QByteArray &text = texts[i / 2 % 2];
        fakeclock::advance(3000);
        loopback.feed(scan, text);
        tick(scan);
        reachEventLoop();
        drainOwn(scan);
        QCOMPARE(deviceNamed(scan, "A"), device);
        QCOMPARE(device->rawJson(), latin1(text.constData()));
        QCOMPARE(scan.allChilds().size(), i / 2 % 2 == 0 ? 1 : 0);
        QCOMPARE(scan.allChilds(latin1("Kelt2")).size(), i / 2 % 2);
    }
    fakeclock::advance(4000);
    tick(scan);
    reachEventLoop();
    QVERIFY(!deviceNamed(scan, "A"));
}

void tst_ZorvScan::deviceIsRemovedAtTheFirstTickAfterItsExpiration()
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

void tst_ZorvScan::expiredDeviceIsCreatedAfresh()
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

void tst_ZorvScan::refreshedBetweenTickAndEventLoop()
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

void tst_ZorvScan::unusableAnnouncementIsForgottenInTheEventLoop()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A", "6.6"));
    QCOMPARE(devicesOf(scan).size(), 1);
    // Refreshed, not created
    loopback.feed(scan, announcing("A", "22"));
    QCOMPARE(devicesOf(scan).size(), 1);
    QCOMPARE(deviceNamed(scan, "A")->jsonValue(latin1("params/expiration")), latin1("22"));
    reachEventLoop();
    QCOMPARE(devicesOf(scan).size(), 0);
    loopback.feed(scan, announcing("A", "22"));
    reachEventLoop();
    QCOMPARE(devicesOf(scan).size(), 1);
}

void tst_ZorvScan::sameUnusableAnnouncementAgainSavesNothing()
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

void tst_ZorvScan::childrenThatAreNoDevices()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    QObject *other = new QObject(&scan);
    other->setObjectName(latin1("A"));
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

void tst_ZorvScan::anotherOwnerOfADevice()
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

// Processor time, which others on this machine do not change: that of feeding known devices.
static double secondsToRefresh(ZorvScan &scan, Loopback &loopback, int total)
{
    double best = 1e9;
    for (int attempt = 0; attempt < 3; ++attempt) {
        const clock_t begin = clock();
        for (int i = 0; i < 2000; ++i)
            loopback.feed(scan, announcing("D" + QByteArray::number(i % total + (total > 2000 ? total - 2000 : 0))));
        best = qMin(best, double(clock() - begin) / CLOCKS_PER_SEC);
    }
    return best;
}

static QByteArray ofSize(const QByteArray &uuid, int size)
{
    return announcing(uuid).leftJustified(size, ' ');
}

static int textSizeOf(const ZorvScan &scan)
{
    int size = 0;
    const QList<ZorvDevice *> devices = devicesOf(scan);
    for (int i = 0; i < devices.size(); ++i)
        size += devices.at(i)->rawJson().size();
    return size;
}

void tst_ZorvScan::roomForAnnouncementsIsUsedToTheLastByte()
{
    const int room = 32 * 1024 * 1024;
    const int large = 60000;
    const QStringList warning(latin1("zorvscan: too many devices announce themselves, further ones are ignored"));
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, ofSize("small", 400));
    for (int left = room - 400; left > 0; left -= large) {
        const int size = qMin(left, large);
        if (size < large) {
            loopback.feed(scan, ofSize("last", size + 1));
            QVERIFY(!deviceNamed(scan, "last"));
            QCOMPARE(takeWarnings(), warning);
        }
        loopback.feed(scan, ofSize(size < large ? "last" : QByteArray::number(left), size));
    }
    QVERIFY(deviceNamed(scan, "last"));
    QCOMPARE(textSizeOf(scan), room);

    // A known one's text may grow by what another one has given up.
    const QByteArray known = QByteArray::number(room - 400);
    const QByteArray another = QByteArray::number(room - 400 - large);
    loopback.feed(scan, ofSize(another, large - 5));
    QCOMPARE(textSizeOf(scan), room - 5);
    loopback.feed(scan, ofSize(known, large + 6));
    QCOMPARE(textSizeOf(scan), room - 5);
    loopback.feed(scan, ofSize(known, large + 5));
    QCOMPARE(textSizeOf(scan), room);

    // So may a small one's in any case.
    loopback.feed(scan, ofSize("small", 2049));
    QCOMPARE(textSizeOf(scan), room);
    loopback.feed(scan, ofSize("small", 2048));
    QCOMPARE(textSizeOf(scan), room + 1648);
    loopback.feed(scan, ofSize("small", 2049));
    QCOMPARE(textSizeOf(scan), room + 1648);
    // What does not grow needs no room.
    loopback.feed(scan, ofSize(known, large + 5).replace("2.0", "2.1"));
    QVERIFY(deviceNamed(scan, known.constData())->rawJson().contains(latin1("2.1")));
    QCOMPARE(takeWarnings(), QStringList()); // once an hour
}

void tst_ZorvScan::twentyThousandDevicesAreKnownAtMost()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    for (int i = 0; i < 20000; ++i)
        loopback.feed(scan, announcing("D" + QByteArray::number(i)));
    QCOMPARE(devicesOf(scan).size(), 20000);
    QCOMPARE(takeWarnings(), QStringList());
    loopback.feed(scan, announcing("late"));
    QCOMPARE(devicesOf(scan).size(), 20000);
    QVERIFY(!deviceNamed(scan, "late"));
    QCOMPARE(takeWarnings(), QStringList(latin1("zorvscan: too many devices announce themselves, further ones are ignored")));
    loopback.feed(scan, announcing("D7", "30"));
    QCOMPARE(deviceNamed(scan, "D7")->rawJson(), latin1(announcing("D7", "30").constData()));
    delete deviceNamed(scan, "D8");
    loopback.feed(scan, announcing("late"));
    QVERIFY(deviceNamed(scan, "late"));
    QCOMPARE(takeWarnings(), QStringList());
}

void tst_ZorvScan::tenThousandDevices()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    const int many = 10000;
    for (int i = 0; i < 10; ++i)
        loopback.feed(scan, announcing("D" + QByteArray::number(i)));
    const double withTen = secondsToRefresh(scan, loopback, 10);
    for (int i = 10; i < many; ++i)
        loopback.feed(scan, announcing("D" + QByteArray::number(i)));
    QCOMPARE(devicesOf(scan).size(), many);
    const double withMany = secondsToRefresh(scan, loopback, many);
    QCOMPARE(devicesOf(scan).size(), many);
    const QByteArray took = QByteArray::number(withTen) + " s with ten, " + QByteArray::number(withMany) + " s with ten thousand";
    QVERIFY2(withMany < withTen * 8, took.constData());

    QCOMPARE(scan.allChilds().size(), many);
    QCOMPARE(scan.allChilds().first().toMap().value(latin1("uuid")), QVariant(latin1("D0")));
    QCOMPARE(scan.allChilds().last().toMap().value(latin1("uuid")), QVariant(latin1("D9999")));

    fakeclock::advance(67000);
    loopback.feed(scan, announcing("D5"));
    tick(scan);
    reachEventLoop();
    QCOMPARE(devicesOf(scan).size(), 1);
    QVERIFY(deviceNamed(scan, "D5"));
}

// A name for each number, of as many pieces as there are bits.
static QByteArray nameOf(int number, const QByteArray &zero, const QByteArray &one)
{
    QByteArray name;
    for (int bit = 0; bit < 15; ++bit)
        name += number >> bit & 1 ? one : zero;
    return name;
}

static QList<QByteArray> chosenNames(const QByteArray &zero, const QByteArray &one)
{
    QList<QByteArray> names;
    for (int i = 0; i < 20000; ++i)
        names.append(nameOf(i, zero, one));
    return names;
}

// As many and as long ones
static QList<QByteArray> randomNames()
{
    QList<QByteArray> names;
    quint64 random = 1;
    for (int i = 0; i < 20000; ++i) {
        QByteArray name;
        while (name.size() < 30) {
            random = random * Q_UINT64_C(6364136223846793005) + 1;
            name += char('A' + (random >> 40) % 26);
        }
        names.append(name);
    }
    return names;
}

// What all devices of these names cost together, in seconds of processor time.
struct Cost
{
    double learning;
    double refreshing;
    double changing;
    double leaving;
};

static double secondsSince(clock_t begin)
{
    return double(clock() - begin) / CLOCKS_PER_SEC;
}

static double secondsToFeed(ZorvScan &scan, const QList<QByteArray> &names, const QByteArray &expiration)
{
    Loopback loopback;
    const clock_t begin = clock();
    for (int i = 0; i < names.size(); ++i)
        loopback.feed(scan, announcing(names.at(i), expiration));
    return secondsSince(begin);
}

static Cost costOf(UpnpSettings *settings, const QList<QByteArray> &names)
{
    ZorvScan scan(settings, interval, 0);
    drain(scan);
    Cost cost = {};
    cost.learning = secondsToFeed(scan, names, "22");
    cost.refreshing = secondsToFeed(scan, names, "22");
    cost.changing = secondsToFeed(scan, names, "33");
    const int known = devicesOf(scan).size();
    fakeclock::advance(67000);
    const clock_t begin = clock();
    tick(scan);
    reachEventLoop();
    cost.leaving = secondsSince(begin);
    if (known != names.size() || !devicesOf(scan).isEmpty())
        qFatal("%d devices are known, and %d have stayed", known, int(devicesOf(scan).size()));
    return cost;
}

void tst_ZorvScan::chosenNamesCostNoMore_data()
{
    QTest::addColumn<QByteArray>("zero");
    QTest::addColumn<QByteArray>("one");
    QTest::newRow("one hash in Qt 5") << QByteArray("Aa") << QByteArray("BB");
    QTest::newRow("one hash in Qt 4") << QByteArray("Aa") << QByteArray("BQ");
    QTest::newRow("all but alike") << QByteArray("aa") << QByteArray("ab");
}

void tst_ZorvScan::chosenNamesCostNoMore()
{
    QFETCH(QByteArray, zero);
    QFETCH(QByteArray, one);
    const Cost usual = costOf(m_settings, randomNames());
    const Cost chosen = costOf(m_settings, chosenNames(zero, one));
    const double costs[][2] = { { usual.learning, chosen.learning }, { usual.refreshing, chosen.refreshing },
        { usual.changing, chosen.changing }, { usual.leaving, chosen.leaving } };
    for (int i = 0; i < 4; ++i) {
        const QByteArray took = QByteArray::number(i) + ": " + QByteArray::number(costs[i][1]) + " s, others " + QByteArray::number(costs[i][0]) + " s";
        QVERIFY2(costs[i][1] < costs[i][0] * 3, took.constData());
    }
}

void tst_ZorvScan::renamedDevice()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A"));
    ZorvDevice *renamed = deviceNamed(scan, "A");
    renamed->setObjectName(latin1("B"));
    loopback.feed(scan, announcing("A"));
    QCOMPARE(devicesOf(scan).size(), 2);
    QVERIFY(deviceNamed(scan, "A") && deviceNamed(scan, "A") != renamed);

    tick(scan);
    drainOwn(scan);
    loopback.feed(scan, announcing("B"));
    QCOMPARE(devicesOf(scan).size(), 2);
    QCOMPARE(renamed->jsonValue(latin1("params/device/uuid")), latin1("B"));
    delete renamed;
    loopback.feed(scan, announcing("A"));
    QCOMPARE(devicesOf(scan).size(), 1);
    loopback.feed(scan, announcing("B"));
    QCOMPARE(devicesOf(scan).size(), 2);
}

void tst_ZorvScan::deviceDeletedByHand()
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

void tst_ZorvScan::deviceFromElsewhere()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    ZorvDevice *device = new ZorvDevice(latin1("A"), announcing("A"), interval, &scan);
    tick(scan);
    drainOwn(scan);
    loopback.feed(scan, announcing("A", "33"));
    QCOMPARE(devicesOf(scan).size(), 1);
    QCOMPARE(device->jsonValue(latin1("params/expiration")), latin1("33"));
}

void tst_ZorvScan::destructionWithDevices()
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

static QStringList uuidsOf(const QVariantList &summaries)
{
    QStringList result;
    for (int i = 0; i < summaries.size(); ++i)
        result.append(summaries.at(i).toMap().value(latin1("uuid")).toString());
    return result;
}

void tst_ZorvScan::allChildsFiltersByFamily()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    QCOMPARE(scan.allChilds(), QVariantList());
    QCOMPARE(scan.allChilds(QString()), QVariantList());
    Loopback loopback;
    loopback.feed(scan, announcing("k1", "22", "Kelta"));
    loopback.feed(scan, announcing("other", "22", "Other"));
    loopback.feed(scan, announcing("lower", "22", "kelta"));
    loopback.feed(scan, announcing("longer", "22", "Kelta2"));
    loopback.feed(scan, announcing("nothing", "22", ""));
    loopback.feed(scan, "{\"params\":{\"uuid\":\"bare\",\"expiration\":22}}");
    loopback.feed(scan, announcing("k2", "22", "Kelta"));
    const QStringList keltas = QStringList() << latin1("k1") << latin1("k2");
    QCOMPARE(uuidsOf(scan.allChilds()), keltas);
    QCOMPARE(uuidsOf(scan.allChilds(latin1("Kelta"))), keltas);
    QCOMPARE(uuidsOf(scan.allChilds(latin1("Other"))), QStringList() << latin1("other"));
    QCOMPARE(uuidsOf(scan.allChilds(latin1("kelta"))), QStringList() << latin1("lower"));
    QCOMPARE(uuidsOf(scan.allChilds(latin1("Kelta CODESYS"))), QStringList());
    QCOMPARE(uuidsOf(scan.allChilds(latin1("Kelt"))), QStringList());
    const QStringList all = QStringList() << latin1("k1") << latin1("other") << latin1("lower") << latin1("longer") << latin1("nothing") << latin1("bare") << latin1("k2");
    QCOMPARE(uuidsOf(scan.allChilds(QString())), all);
    QCOMPARE(uuidsOf(scan.allChilds(latin1(""))), all);
}

// Compared with what was announced, not with what of it the bus can carry.
void tst_ZorvScan::familyOfCharactersThatTheBusCannotCarry()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A", "22", "Kel\\u0000ta"));
    loopback.feed(scan, announcing("B", "22", "Kelta"));
    for (int time = 0; time < 2; ++time) {
        QCOMPARE(scan.allChilds().size(), 1);
        QCOMPARE(scan.allChilds().first().toMap().value(latin1("uuid")), QVariant(latin1("B")));
        QCOMPARE(scan.allChilds(QString()).size(), 2);
        QCOMPARE(scan.allChilds(latin1("Kel") + QChar(0) + latin1("ta")).size(), 1);
    }
}

void tst_ZorvScan::summaryOfADevice()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A", "22", "Kelta", "{\"name\":\"eth0\",\"type\":\"ethernet\",\"uuid\":\"x\",\"version\":7,\"familyType\":[],"
                                                       "\"ipv4\":[{\"address\":\"10.77.0.9\",\"netmask\":\"255.255.255.0\"}],\"ipv6\":[],"
                                                       "\"configurationMethod\":\"dhcp\",\"more\":5}"));
    QVariantMap address;
    address.insert(latin1("address"), latin1("10.77.0.9"));
    address.insert(latin1("netmask"), latin1("255.255.255.0"));
    QVariantMap expected;
    expected.insert(latin1("ipv4"), QVariantList() << QVariant(address));
    expected.insert(latin1("ipv6"), QVariantList());
    expected.insert(latin1("configurationMethod"), latin1("dhcp"));
    expected.insert(latin1("more"), Q_INT64_C(5));
    expected.insert(latin1("uuid"), latin1("A"));
    expected.insert(latin1("name"), latin1("n-A"));
    expected.insert(latin1("version"), latin1("2.0"));
    expected.insert(latin1("type"), latin1("Kelta CODESYS"));
    expected.insert(latin1("familyType"), latin1("Kelta"));
    QCOMPARE(scan.allChilds(), QVariantList() << QVariant(expected));
}

void tst_ZorvScan::summaryWhoseInterfaceIsNoObject_data()
{
    QTest::addColumn<QByteArray>("interface");
    QTest::newRow("null") << QByteArray("null");
    QTest::newRow("text") << QByteArray("\"eth0\"");
    QTest::newRow("number") << QByteArray("0");
    QTest::newRow("list") << QByteArray("[{\"name\":\"eth0\"}]");
    QTest::newRow("empty object") << QByteArray("{}");
    QTest::newRow("object of null") << QByteArray("{\"ipv4\":null}");
}

void tst_ZorvScan::summaryWhoseInterfaceIsNoObject()
{
    QFETCH(QByteArray, interface);
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A", "22", "Kelta", interface));
    QVariantMap expected;
    expected.insert(latin1("uuid"), latin1("A"));
    expected.insert(latin1("name"), latin1("n-A"));
    expected.insert(latin1("version"), latin1("2.0"));
    expected.insert(latin1("type"), latin1("Kelta CODESYS"));
    expected.insert(latin1("familyType"), latin1("Kelta"));
    QCOMPARE(scan.allChilds(), QVariantList() << QVariant(expected));
}

void tst_ZorvScan::numbersInTheDeviceAreTexts()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, "{\"params\":{\"device\":{\"uuid\":\"A\",\"name\":5,\"firmwareVersion\":1.5,\"type\":null,\"familyType\":true},\"expiration\":22}}");
    const QVariantMap summary = scan.allChilds(latin1("true")).value(0).toMap();
    QCOMPARE(summary.value(latin1("uuid")), QVariant(latin1("A")));
    QCOMPARE(summary.value(latin1("name")), QVariant(latin1("5")));
    QCOMPARE(summary.value(latin1("version")), QVariant(latin1("1.5")));
    QCOMPARE(summary.value(latin1("type")), QVariant(latin1("")));
    QCOMPARE(summary.value(latin1("familyType")), QVariant(latin1("true")));
}

void tst_ZorvScan::methodsOfTheInterface()
{
    static const struct
    {
        const char *signature;
        const char *result;
        const char *parameters;
    } expected[] = {
        { "setupMulticast()", "int", "" },
        { "sendAnnouncement()", "", "" },
        { "socketState()", "int", "" },
        { "allChilds(QString)", "QVariantList", "type" },
        { "allChilds()", "QVariantList", "" },
        { "pendingDatagrams()", "", "" },
        { "configChanged()", "", "" },
        { "connmanServicePropertyChanged(QString,QDBusVariant)", "", "name,map" },
    };
    const QMetaObject *meta = &ZorvScan::staticMetaObject;
    QCOMPARE(latin1(meta->className()), latin1("ZorvScan"));
    QCOMPARE(latin1(meta->superClass()->className()), latin1("QObject"));
    QCOMPARE(meta->classInfoCount(), 0);
    QCOMPARE(meta->propertyCount(), meta->propertyOffset());
    for (int i = meta->methodOffset() + 8; i < meta->methodCount(); ++i)
        QCOMPARE(meta->method(i).access(), QMetaMethod::Private); // the bus does not see it
    for (int i = 0; i < 8; ++i) {
        const int index = meta->methodOffset() + i;
        const QMetaMethod method = meta->method(index);
        QCOMPARE(meta->indexOfSlot(expected[i].signature), index);
        QCOMPARE(latin1(method.typeName()).replace(latin1("void"), QString()), latin1(expected[i].result));
        QStringList parameters;
        const QList<QByteArray> names = method.parameterNames();
        for (int n = 0; n < names.size(); ++n)
            parameters.append(latin1(names.at(n).constData()));
        QCOMPARE(parameters.join(latin1(",")), latin1(expected[i].parameters));
        QCOMPARE(method.access(), QMetaMethod::Public);
    }
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (argc == 2 && qstrcmp(argv[1], "without-bus") == 0)
        ZorvScan(0, interval, 0);
    tst_ZorvScan test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_zorvscan.moc"
