#include "upnpreceiver.h"

#include "bytes.h"
#include "caughtlog.h"
#include "fakedevice.h"
#include "network.h"
#include "qtversions.h"
#include "socketroom.h"
#include "termsignal.h"
#include "udp.h"
#include "upnpsettings.h"
#include "waitfor.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QScopedPointer>
#include <QtCore/QTimer>
#include <QtCore/QTimerEvent>
#include <QtNetwork/QUdpSocket>
#include <QtTest/QtTest>

#include <cerrno>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

static const char group[] = "239.255.255.250";
static const quint16 ssdpPort = 1900;
static const char announcementDate[] = "ddd, dd MMM yyyy hh:mm:ss";
static const char answerDate[] = "ddd, dd MMM yyyy hh:mm:s";
static const char searchForAll[] = "M-SEARCH * HTTP/1.1\r\nST: ssdp:all\r\n\r\n";

static int bindsToFail = 0;
static int binds = 0;

// The program's own comes before that of the C library.
extern "C" int bind(int descriptor, const struct sockaddr *address, socklen_t size) noexcept
{
    // Qt binds sockets of its own as well.
    const bool isOfPort = address->sa_family == AF_INET && reinterpret_cast<const struct sockaddr_in *>(address)->sin_port == htons(ssdpPort);
    binds += isOfPort;
    if (isOfPort && bindsToFail > 0) {
        --bindsToFail;
        errno = ENOMEM;
        return -1;
    }
    return int(syscall(SYS_bind, descriptor, address, size));
}

static int failedReceives = 0;

// Qt 4 receives by it, too, but only what is there.
extern "C" ssize_t recvfrom(int descriptor, void *bytes, size_t size, int flags, struct sockaddr *sender, socklen_t *senderSize)
{
    const ssize_t received = ssize_t(syscall(SYS_recvfrom, descriptor, bytes, size, flags, sender, senderSize));
    failedReceives += received == -1;
    return received;
}

class TestUpnpReceiver : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void constructorSendsOneAliveSetBeforeTheEventLoopRuns();
    void constructorAnnouncesWithoutAnInterface();
    void constructorAnnouncesWithoutAnAddress();
    void constructorJoinsTheGroup();
    void multicastHasATimeToLiveOf32();
    void announcementsComeFromTheSsdpPort();
    void portThatIsTakenIsSilentAndAnnouncementsStillGoOut();
    void portIsBoundByTheLastOfFourTries_data();
    void portIsBoundByTheLastOfFourTries();

    void missingInterfaceIsJoinedLater();
    void interfaceWithoutAddressIsJoinedLater();
    void failedJoinIsTriedAgain();
    void joinedReceiverDoesNothingOnASecondReady();
    void timeToLiveIsSetUntilTheGroupIsJoined();
    void refusedTimeToLiveIsAWarning();
    void firstAddressDecidesTheInterface();
    void firstAddressThatIsNotIpv4LeavesTheInterfaceToTheKernel();

    void aliveForOneAddressIsOneDatagram();
    void aliveForTwoAddressesIsTwoDatagrams();
    void byeByeForOneAddressIsOneDatagram();
    void byeByeForTwoAddressesHasTheShortUsn();
    void valuesAreThoseOfTheMoment();
    void byeByeThenAliveLeaveInThisOrder();

    void timerRunsEvery100Seconds();
    void everyTimerEventAnnounces();

    void searchIsAnsweredToItsSender();
    void linkLocalSearcherGetsTheLinkLocalAnswer();
    void multicastSearchIsAnswered();
    void burstIsAnsweredInOrderInOneCall();
    void emptyDatagramIsNotTheEndOfABurst();
    void passEndsWhereNothingIsLeft();
    void thousandDatagramsAreTakenInOnePass();
    void answersAloneAreCounted();
    void everySearcherOfABurstGetsItsOwnVariant();
    void otherDatagramsAreDroppedSilently_data();
    void otherDatagramsAreDroppedSilently();

    void terminationSaysByeByeAgainAndAgain();
    void terminationLeavesTheEventLoopRunning();
    void searchesAreAnsweredAfterTermination();
    void termSignalSlotSaysByeByeAndQuits();
    void destructionSaysNothing();

    void methodTableIsFixed();

private:
    void makeReceiver();
    bool nothingMoreWasSent();

    QScopedPointer<FakeDevice> m_device;
    QScopedPointer<Udp> m_listener;
    QScopedPointer<UpnpReceiver> m_receiver;
};

#define announcement(name, actual) withDateOf(actual, "DATE: ", announcementDate, testData(name))
#define answer(name, actual) withDateOf(actual, "DATE: ", answerDate, testData(name))

void TestUpnpReceiver::init()
{
    m_device.reset(new FakeDevice);
    m_listener.reset(new Udp(group, ssdpPort));
    QVERIFY(m_listener->join(group, "10.77.0.2"));
}

void TestUpnpReceiver::cleanup()
{
    m_receiver.reset();
    m_listener.reset();
    m_device.reset();
    for (int i = 0; i < 2; ++i) {
        close(termSocketPair[i]);
        termSocketPair[i] = -1;
    }
}

// A receiver whose first announcement has been heard.
void TestUpnpReceiver::makeReceiver()
{
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    QVERIFY(!m_listener->receive().isEmpty());
    if (!m_device->settings()->getAutoipAddress().isNull())
        QVERIFY(!m_listener->receive().isEmpty());
}

// Datagrams keep their order, so what was sent before the mark has come before it.
bool TestUpnpReceiver::nothingMoreWasSent()
{
    Udp marker("10.77.0.2");
    return marker.send("mark", group, ssdpPort) && m_listener->receive() == "mark";
}

// The members of the group on an interface, as the kernel counts them.
static int membersOn(const char *interface)
{
    QFile file(text("/proc/net/igmp"));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    bool isInside = false;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (int i = 0; i < lines.size(); ++i) {
        const QByteArray &line = lines.at(i);
        if (!line.startsWith('\t'))
            isInside = line.simplified().split(' ').value(1) == interface;
        else if (isInside && line.contains("FAFFFFEF"))
            return line.simplified().split(' ').value(1).toInt();
    }
    return 0;
}

static int membersOnEth0()
{
    return membersOn("eth0");
}

void TestUpnpReceiver::constructorSendsOneAliveSetBeforeTheEventLoopRuns()
{
    CaughtLog log;
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    const QByteArray alive = m_listener->receiveNow();
    QVERIFY(compareBytes(alive, announcement("alive.msg", alive)));
    QCOMPARE(log.lines(), QStringList() << text("debug: multicast join succeded.") << text("debug: sending alive"));
    QVERIFY(nothingMoreWasSent());
}

void TestUpnpReceiver::constructorAnnouncesWithoutAnInterface()
{
    QVERIFY(network::ip("route add 239.0.0.0/8 dev lo"));
    QVERIFY(m_listener->join(group, "127.0.0.1"));
    QVERIFY(network::ip("link set eth0 down"));
    QVERIFY(network::ip("link set eth0 name eth9"));
    CaughtLog log;
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    const QByteArray alive = m_listener->receive();
    QVERIFY(network::ip("route del 239.0.0.0/8 dev lo"));
    QVERIFY(network::ip("link set eth9 name eth0"));
    QVERIFY(compareBytes(alive, announcement("alive.msg", alive)));
    QCOMPARE(log.lines(), QStringList() << text("warning: setsockopt: interface invalid") << text("debug: sending alive"));
}

void TestUpnpReceiver::constructorAnnouncesWithoutAnAddress()
{
    QVERIFY(network::ip("route add 239.0.0.0/8 dev lo"));
    QVERIFY(m_listener->join(group, "127.0.0.1"));
    QVERIFY(network::ip("address flush dev eth0"));
    CaughtLog log;
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    const QByteArray alive = m_listener->receive();
    QVERIFY(network::ip("route del 239.0.0.0/8 dev lo"));
    QVERIFY(compareBytes(alive, announcement("alive.msg", alive)));
    QCOMPARE(log.lines(), QStringList() << text("warning: setsockopt: no address") << text("debug: sending alive"));
}

void TestUpnpReceiver::constructorJoinsTheGroup()
{
    m_listener.reset();
    QCOMPARE(membersOnEth0(), 0);
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    QCOMPARE(membersOnEth0(), 1);
}

void TestUpnpReceiver::multicastHasATimeToLiveOf32()
{
    makeReceiver();
    QCOMPARE(m_listener->timeToLive(), 32);
}

void TestUpnpReceiver::announcementsComeFromTheSsdpPort()
{
    makeReceiver();
    QCOMPARE(m_listener->senderPort(), ssdpPort);
}

void TestUpnpReceiver::portThatIsTakenIsSilentAndAnnouncementsStillGoOut()
{
    // Another program that does not share the port.
    const int owner = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(ssdpPort);
    address.sin_addr.s_addr = htonl(0x0a4d0002);
    QCOMPARE(bind(owner, reinterpret_cast<const struct sockaddr *>(&address), sizeof address), 0);
    CaughtLog log;
    binds = 0;
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    const int tried = binds;
    const QByteArray alive = m_listener->receive();
    close(owner);
    QCOMPARE(tried, 2); // by each option once: the port stays taken
    QVERIFY(compareBytes(alive, announcement("alive.msg", alive)));
    QVERIFY(m_listener->senderPort() != ssdpPort);
    QCOMPARE(log.warnings(), QStringList());
}

void TestUpnpReceiver::portIsBoundByTheLastOfFourTries_data()
{
    QTest::addColumn<int>("failures");
    QTest::addColumn<bool>("isBound");
    // Each try binds twice.
    QTest::newRow("first") << 1 << true;
    QTest::newRow("all but the last") << 7 << true;
    QTest::newRow("all") << 8 << false;
}

void TestUpnpReceiver::portIsBoundByTheLastOfFourTries()
{
    QFETCH(int, failures);
    bindsToFail = failures;
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    QCOMPARE(bindsToFail, 0);
    QVERIFY(m_listener->receive().contains("ssdp:alive"));
    QTEST(m_listener->senderPort() == ssdpPort, "isBound");
}

void TestUpnpReceiver::missingInterfaceIsJoinedLater()
{
    m_listener.reset();
    QVERIFY(network::ip("link set eth0 down"));
    QVERIFY(network::ip("link set eth0 name eth9"));
    CaughtLog log;
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    m_receiver->setupMulticast();
    QVERIFY(network::ip("link set eth9 name eth0"));
    QVERIFY(network::ip("link set eth0 up"));
    QCOMPARE(log.lines(), QStringList() << text("warning: setsockopt: interface invalid") << text("debug: sending alive") << text("warning: setsockopt: interface invalid"));
    QCOMPARE(membersOnEth0(), 0);
    log.clear();
    m_receiver->setupMulticast();
    QCOMPARE(log.lines(), QStringList(text("debug: multicast join succeded.")));
    QCOMPARE(membersOnEth0(), 1);
}

void TestUpnpReceiver::interfaceWithoutAddressIsJoinedLater()
{
    m_listener.reset();
    QVERIFY(network::ip("address flush dev eth0"));
    CaughtLog log;
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    QCOMPARE(log.warnings(), QStringList(text("setsockopt: no address")));
    QCOMPARE(membersOnEth0(), 0);
    QVERIFY(network::reset());
    log.clear();
    m_receiver->setupMulticast();
    QCOMPARE(log.lines(), QStringList(text("debug: multicast join succeded.")));
    QCOMPARE(membersOnEth0(), 1);
}

static bool writeMembershipLimit(const QByteArray &number)
{
    QFile file(text("/proc/sys/net/ipv4/igmp_max_memberships"));
    return file.open(QIODevice::WriteOnly) && file.write(number) == number.size();
}

void TestUpnpReceiver::failedJoinIsTriedAgain()
{
    m_listener.reset();
    QVERIFY(writeMembershipLimit("0"));
    CaughtLog log;
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    m_receiver->setupMulticast();
    QVERIFY(writeMembershipLimit("20"));
    QCOMPARE(log.lines(), QStringList() << text("warning: setsockopt multicast join failed") << text("debug: sending alive") << text("warning: setsockopt multicast join failed"));
    QCOMPARE(membersOnEth0(), 0);
    log.clear();
    m_receiver->setupMulticast();
    QCOMPARE(log.lines(), QStringList(text("debug: multicast join succeded.")));
    QCOMPARE(membersOnEth0(), 1);
}

void TestUpnpReceiver::joinedReceiverDoesNothingOnASecondReady()
{
    m_listener.reset();
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    QCOMPARE(membersOnEth0(), 1);
    CaughtLog log;
    m_receiver->setupMulticast();
    // Not even when there is nothing left to join on.
    QVERIFY(network::ip("address flush dev eth0"));
    m_receiver->setupMulticast();
    QCOMPARE(log.lines(), QStringList());
}

static void setTimeToLive(const QUdpSocket *socket, unsigned char hops)
{
    QCOMPARE(setsockopt(int(socket->socketDescriptor()), IPPROTO_IP, IP_MULTICAST_TTL, &hops, sizeof hops), 0);
}

static int timeToLive(const QUdpSocket *socket)
{
    unsigned char hops = 0;
    socklen_t size = sizeof hops;
    return getsockopt(int(socket->socketDescriptor()), IPPROTO_IP, IP_MULTICAST_TTL, &hops, &size) == 0 ? hops : -1;
}

void TestUpnpReceiver::timeToLiveIsSetUntilTheGroupIsJoined()
{
    m_listener.reset();
    QVERIFY(network::ip("address flush dev eth0"));
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    const QUdpSocket *const socket = m_receiver->findChild<QUdpSocket *>();
    setTimeToLive(socket, 7);
    m_receiver->setupMulticast();
    QCOMPARE(timeToLive(socket), 32);
    QVERIFY(network::reset());
    setTimeToLive(socket, 7);
    m_receiver->setupMulticast();
    QCOMPARE(timeToLive(socket), 32);
    setTimeToLive(socket, 7);
    m_receiver->setupMulticast();
    QCOMPARE(timeToLive(socket), 7);
}

// No descriptor is left for the socket, so there is none to set an option on.
void TestUpnpReceiver::refusedTimeToLiveIsAWarning()
{
    m_listener.reset();
    QVERIFY(network::ip("address flush dev eth0"));
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    m_receiver->findChild<QUdpSocket *>()->close();
    CaughtLog log;
    m_receiver->setupMulticast();
    QCOMPARE(log.lines(), QStringList() << text("warning: setsocketopt ttl failed") << text("warning: setsockopt: no address"));
}

void TestUpnpReceiver::firstAddressDecidesTheInterface()
{
    m_listener.reset();
    if (!network::enableIpv6())
        SKIP("the machine has no such addresses");
    QVERIFY(network::ip("-6 address add fd00:77::2/64 dev eth0 nodad"));
    QVERIFY(network::ip("route add 239.0.0.0/8 dev lo"));
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    const int onEth0 = membersOn("eth0");
    const int onLoopback = membersOn("lo");
    QVERIFY(network::ip("route del 239.0.0.0/8 dev lo"));
    QCOMPARE(onEth0, 1);
    QCOMPARE(onLoopback, 0);
}

// What has no IPv4 address reads as 0.0.0.0: then the route to the group decides.
void TestUpnpReceiver::firstAddressThatIsNotIpv4LeavesTheInterfaceToTheKernel()
{
    m_listener.reset();
    if (!network::enableIpv6())
        SKIP("the machine has no such addresses");
    QVERIFY(network::ip("address flush dev eth0"));
    QVERIFY(network::ip("-6 address add fd00:77::2/64 dev eth0 nodad"));
    QVERIFY(network::ip("route add 239.0.0.0/8 dev lo"));
    CaughtLog log;
    m_receiver.reset(new UpnpReceiver(m_device->settings(), nullptr));
    const int onEth0 = membersOn("eth0");
    const int onLoopback = membersOn("lo");
    QVERIFY(network::ip("route del 239.0.0.0/8 dev lo"));
    QCOMPARE(QStringList(log.lines().mid(0, 1)), QStringList(text("debug: multicast join succeded.")));
    QCOMPARE(onEth0, 0);
    QCOMPARE(onLoopback, 1);
}

void TestUpnpReceiver::aliveForOneAddressIsOneDatagram()
{
    makeReceiver();
    CaughtLog log;
    m_receiver->sendAlive();
    const QByteArray alive = m_listener->receive();
    QVERIFY(compareBytes(alive, announcement("alive.msg", alive)));
    QVERIFY(nothingMoreWasSent());
    QCOMPARE(log.lines(), QStringList(text("debug: sending alive")));
}

void TestUpnpReceiver::aliveForTwoAddressesIsTwoDatagrams()
{
    QVERIFY(m_device->addLinkLocalAddress());
    makeReceiver();
    CaughtLog log;
    m_receiver->sendAlive();
    const QByteArray first = m_listener->receive();
    const QByteArray second = m_listener->receive();
    QVERIFY(compareBytes(first, announcement("alive.msg", first)));
    QVERIFY(compareBytes(second, announcement("autoip_alive.msg", second)));
    QVERIFY(nothingMoreWasSent());
    QCOMPARE(log.lines(), QStringList(text("debug: sending alive")));
}

void TestUpnpReceiver::byeByeForOneAddressIsOneDatagram()
{
    makeReceiver();
    CaughtLog log;
    m_receiver->sendByeBye();
    const QByteArray byeBye = m_listener->receive();
    QVERIFY(compareBytes(byeBye, announcement("byebye.msg", byeBye)));
    QVERIFY(nothingMoreWasSent());
    QCOMPARE(log.lines(), QStringList(text("debug: sending byebye")));
}

void TestUpnpReceiver::byeByeForTwoAddressesHasTheShortUsn()
{
    QVERIFY(m_device->addLinkLocalAddress());
    makeReceiver();
    m_receiver->sendByeBye();
    const QByteArray first = m_listener->receive();
    const QByteArray second = m_listener->receive();
    QVERIFY(compareBytes(first, announcement("byebye.msg", first)));
    QVERIFY(compareBytes(second, announcement("autoip_byebye.msg", second)));
    QVERIFY(nothingMoreWasSent());
}

void TestUpnpReceiver::valuesAreThoseOfTheMoment()
{
    makeReceiver();
    QVERIFY(network::ip("address del 192.168.1.20/24 dev eth0"));
    m_device->settings()->configureIp();
    m_receiver->sendAlive();
    const QByteArray alive = m_listener->receive();
    QVERIFY(compareBytes(alive, announcement("alive.msg", alive).replace("192.168.1.20", "10.77.0.2")));
}

void TestUpnpReceiver::byeByeThenAliveLeaveInThisOrder()
{
    makeReceiver();
    m_receiver->sendByeBye();
    m_receiver->sendAlive();
    QVERIFY(m_listener->receive().contains("\r\nNTS:ssdp:byebye\r\n"));
    QVERIFY(m_listener->receive().contains("\r\nNTS:ssdp:alive\r\n"));
    QVERIFY(nothingMoreWasSent());
}

void TestUpnpReceiver::timerRunsEvery100Seconds()
{
    makeReceiver();
    QCOMPARE(qtversions::exactTimerPeriods(m_receiver.data()), QList<int>() << 100000);
    // Announcing in between neither adds a timer nor takes it away.
    m_receiver->sendAlive();
    m_receiver->sendByeBye();
    QCOMPARE(qtversions::exactTimerPeriods(m_receiver.data()), QList<int>() << 100000);
}

void TestUpnpReceiver::everyTimerEventAnnounces()
{
    makeReceiver();
    const int ids[] = { 1, 4711, -1, 0 };
    for (int id : ids) {
        CaughtLog log;
        QTimerEvent event(id);
        QVERIFY(QCoreApplication::sendEvent(m_receiver.data(), &event));
        const QByteArray alive = m_listener->receive();
        QVERIFY(compareBytes(alive, announcement("alive.msg", alive)));
        QVERIFY(nothingMoreWasSent());
        QCOMPARE(log.lines(), QStringList() << text("debug: sending alive datagram:") << text("debug: sending alive"));
    }
}

void TestUpnpReceiver::searchIsAnsweredToItsSender()
{
    makeReceiver();
    Udp searcher("10.77.0.2");
    Udp bystander("10.77.0.2");
    QVERIFY(searcher.send(searchForAll, "10.77.0.2", ssdpPort));
    const QByteArray received = searcher.receive();
    QVERIFY(compareBytes(received, answer("rootdevice_answer.msg", received)));
    QCOMPARE(searcher.senderPort(), ssdpPort);
    QVERIFY(nothingMoreWasSent());
    QCOMPARE(searcher.receiveNow(), QByteArray());
    QCOMPARE(bystander.receiveNow(), QByteArray());
}

void TestUpnpReceiver::linkLocalSearcherGetsTheLinkLocalAnswer()
{
    QVERIFY(m_device->addLinkLocalAddress());
    makeReceiver();
    Udp searcher("169.254.7.8");
    QVERIFY(searcher.send("M-SEARCH * HTTP/1.1\r\nST: uuid:4b1c9d3e-7a52-4f0e-9c1d-2f6f3a7b8e900\r\n\r\n", "10.77.0.2", ssdpPort));
    const QByteArray received = searcher.receive();
    QByteArray expected = answer("rootdevice_answer.msg", received);
    expected.replace("192.168.1.20", "169.254.7.8").replace("8e90::", "8e900::");
    QVERIFY(compareBytes(received, expected));
}

void TestUpnpReceiver::multicastSearchIsAnswered()
{
    makeReceiver();
    Udp searcher("10.77.0.2");
    QVERIFY(searcher.send(searchForAll, group, ssdpPort));
    const QByteArray received = searcher.receive();
    QVERIFY(compareBytes(received, answer("rootdevice_answer.msg", received)));
}

// Sees every UDP datagram that reaches this host, in order.
class Sniffer
{
public:
    Sniffer()
        : m_descriptor(socket(AF_INET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_UDP))
    {
    }
    ~Sniffer() { close(m_descriptor); }

    // The destination ports of the datagrams from this port so far.
    QList<quint16> destinationsOf(quint16 source)
    {
        for (;;) {
            uchar packet[2048];
            const ssize_t size = recv(m_descriptor, packet, sizeof packet, 0);
            if (size < 0)
                return m_destinations;
            const int udp = (packet[0] & 0xf) * 4;
            if (quint16(packet[udp] << 8 | packet[udp + 1]) == source)
                m_destinations << quint16(packet[udp + 2] << 8 | packet[udp + 3]);
        }
    }

private:
    Q_DISABLE_COPY(Sniffer)

    int m_descriptor;
    QList<quint16> m_destinations;
};

void TestUpnpReceiver::burstIsAnsweredInOrderInOneCall()
{
    makeReceiver();
    Udp third("10.77.0.2");
    Udp first("10.77.0.2");
    Udp second("10.77.0.2");
    Sniffer sniffer;
    QVERIFY(first.send(searchForAll, "10.77.0.2", ssdpPort));
    QVERIFY(second.send("NOTIFY * HTTP/1.1\r\n\r\n", "10.77.0.2", ssdpPort));
    QVERIFY(second.send(searchForAll, "10.77.0.2", ssdpPort));
    QVERIFY(third.send(searchForAll, "10.77.0.2", ssdpPort));
    QVERIFY(first.send(searchForAll, "10.77.0.2", ssdpPort));
    QVERIFY(QMetaObject::invokeMethod(m_receiver.data(), "processDatagrams"));
    QCOMPARE(sniffer.destinationsOf(ssdpPort), QList<quint16>() << first.port() << second.port() << third.port() << first.port());
    Udp *const searchers[] = { &first, &second, &third, &first };
    for (Udp *searcher : searchers) {
        const QByteArray received = searcher->receiveNow();
        QVERIFY(compareBytes(received, answer("rootdevice_answer.msg", received)));
    }
    for (Udp *searcher : searchers)
        QCOMPARE(searcher->receiveNow(), QByteArray());
}

void TestUpnpReceiver::emptyDatagramIsNotTheEndOfABurst()
{
    makeReceiver();
    QVERIFY(QMetaObject::invokeMethod(m_receiver.data(), "processDatagrams")); // its own announcement
    Udp searcher("10.77.0.2");
    QVERIFY(searcher.send("", "10.77.0.2", ssdpPort));
    QVERIFY(searcher.send(searchForAll, "10.77.0.2", ssdpPort));
    QVERIFY(searcher.send("", "10.77.0.2", ssdpPort));
    QVERIFY(searcher.send(searchForAll, "10.77.0.2", ssdpPort));
    QVERIFY(QMetaObject::invokeMethod(m_receiver.data(), "processDatagrams"));
    for (int i = 0; i < 2; ++i) {
        const QByteArray received = searcher.receiveNow();
        QVERIFY(compareBytes(received, answer("rootdevice_answer.msg", received)));
    }
}

void TestUpnpReceiver::passEndsWhereNothingIsLeft()
{
    makeReceiver();
    QVERIFY(QMetaObject::invokeMethod(m_receiver.data(), "processDatagrams")); // its own announcement
    Udp searcher("10.77.0.2");
    for (int i = 0; i < 3; ++i)
        QVERIFY(searcher.send(searchForAll, "10.77.0.2", ssdpPort));
    failedReceives = 0;
    QVERIFY(QMetaObject::invokeMethod(m_receiver.data(), "processDatagrams"));
    QCOMPARE(m_receiver->searchesAnswered(), Q_UINT64_C(3));
    QCOMPARE(failedReceives, 1);
}

// So that the event loop gets its turn under a flood.
void TestUpnpReceiver::thousandDatagramsAreTakenInOnePass()
{
    makeReceiver();
    QVERIFY(QMetaObject::invokeMethod(m_receiver.data(), "processDatagrams")); // its own announcement
    if (!holdsManyDatagrams(int(m_receiver->findChild<QUdpSocket *>()->socketDescriptor())))
        SKIP("no socket may be that large here");
    Udp searcher("10.77.0.2");
    for (int i = 0; i < 2002; ++i)
        QVERIFY(searcher.send(searchForAll, "10.77.0.2", ssdpPort));
    const quint64 answered[] = { 1000, 2000, 2002, 2002 };
    for (quint64 number : answered) {
        QVERIFY(QMetaObject::invokeMethod(m_receiver.data(), "processDatagrams"));
        QCOMPARE(m_receiver->searchesAnswered(), number);
    }
}

void TestUpnpReceiver::answersAloneAreCounted()
{
    makeReceiver();
    QVERIFY(QMetaObject::invokeMethod(m_receiver.data(), "processDatagrams"));
    QCOMPARE(m_receiver->searchesAnswered(), Q_UINT64_C(0));
    Udp searcher("10.77.0.2");
    for (int i = 1; i <= 3; ++i) {
        QVERIFY(searcher.send("M-SEARCH * HTTP/1.1\r\nST: urn:x\r\n\r\n", "10.77.0.2", ssdpPort));
        QVERIFY(searcher.send(searchForAll, "10.77.0.2", ssdpPort));
        QVERIFY(QMetaObject::invokeMethod(m_receiver.data(), "processDatagrams"));
        QCOMPARE(m_receiver->searchesAnswered(), quint64(i));
    }
}

void TestUpnpReceiver::everySearcherOfABurstGetsItsOwnVariant()
{
    QVERIFY(m_device->addLinkLocalAddress());
    makeReceiver();
    Udp first("10.77.0.2");
    Udp linkLocal("169.254.7.8");
    Udp last("10.77.0.2");
    Udp *const searchers[] = { &first, &linkLocal, &last };
    for (Udp *searcher : searchers)
        QVERIFY(searcher->send(searchForAll, "10.77.0.2", ssdpPort));
    QVERIFY(QMetaObject::invokeMethod(m_receiver.data(), "processDatagrams"));
    QVERIFY(first.receiveNow().contains("LOCATION: http://192.168.1.20:8200/"));
    QVERIFY(linkLocal.receiveNow().contains("LOCATION: http://169.254.7.8:8200/"));
    QVERIFY(last.receiveNow().contains("LOCATION: http://192.168.1.20:8200/"));
}

void TestUpnpReceiver::otherDatagramsAreDroppedSilently_data()
{
    QTest::addColumn<QByteArray>("datagram");

    QTest::newRow("NOTIFY of another device") << QByteArray("NOTIFY * HTTP/1.1\r\nNT: upnp:rootdevice\r\nNTS: ssdp:alive\r\n\r\n");
    QTest::newRow("search for something else") << QByteArray("M-SEARCH * HTTP/1.1\r\nST: urn:schemas-upnp-org:device:Basic:1\r\n\r\n");
    QTest::newRow("search in lower case") << QByteArray("m-search * HTTP/1.1\r\nST: ssdp:all\r\n\r\n");
    QTest::newRow("blank before the search") << QByteArray(" M-SEARCH * HTTP/1.1\r\nST: ssdp:all\r\n\r\n");
    QTest::newRow("nothing at all") << QByteArray();
    QTest::newRow("one byte") << QByteArray("M");
    QTest::newRow("zero bytes") << QByteArray(100, '\0');
    QTest::newRow("the greatest datagram") << QByteArray(65507, 'M');
}

void TestUpnpReceiver::otherDatagramsAreDroppedSilently()
{
    QFETCH(QByteArray, datagram);
    makeReceiver();
    CaughtLog log;
    Udp searcher("10.77.0.2");
    QVERIFY(searcher.send(datagram, "10.77.0.2", ssdpPort));
    // The next search is answered, and its answer is the first and only one.
    QVERIFY(searcher.send(searchForAll, "10.77.0.2", ssdpPort));
    QVERIFY(searcher.receive().startsWith("HTTP/1.1 200 OK\r\n"));
    QVERIFY(nothingMoreWasSent());
    QCOMPARE(searcher.receiveNow(), QByteArray());
    QCOMPARE(log.lines(), QStringList());
}

void TestUpnpReceiver::terminationSaysByeByeAgainAndAgain()
{
    makeReceiver();
    QVERIFY(nothingMoreWasSent());
    termSignalHandler(SIGTERM);
    for (int i = 0; i < 3; ++i) {
        const QByteArray byeBye = m_listener->receive();
        QVERIFY(compareBytes(byeBye, announcement("byebye.msg", byeBye)));
    }
    // The byte is still there.
    char byte = 0;
    QCOMPARE(int(recv(termSocketPair[1], &byte, 1, MSG_PEEK | MSG_DONTWAIT)), 1);
    QCOMPARE(int(byte), 1);
}

void TestUpnpReceiver::terminationLeavesTheEventLoopRunning()
{
    makeReceiver();
    termSignalHandler(SIGTERM);
    struct Leaver : QObject
    {
        explicit Leaver(Udp *udp)
            : listener(udp)
            , heard(0)
        {
            startTimer(0);
        }
        void timerEvent(QTimerEvent *) override
        {
            heard += listener->receiveNow().contains("ssdp:byebye") ? 1 : 0;
            if (heard == 3)
                QCoreApplication::exit(7);
        }
        Udp *listener;
        int heard;
    };
    Leaver leaver(m_listener.data());
    QCOMPARE(QCoreApplication::exec(), 7);
}

void TestUpnpReceiver::searchesAreAnsweredAfterTermination()
{
    makeReceiver();
    termSignalHandler(SIGTERM);
    QVERIFY(m_listener->receive().contains("ssdp:byebye"));
    Udp searcher("10.77.0.2");
    QVERIFY(searcher.send(searchForAll, "10.77.0.2", ssdpPort));
    QVERIFY(searcher.receive().startsWith("HTTP/1.1 200 OK\r\n"));
}

void TestUpnpReceiver::termSignalSlotSaysByeByeAndQuits()
{
    makeReceiver();
    QTimer::singleShot(0, m_receiver.data(), SLOT(termSignal()));
    QCOMPARE(QCoreApplication::exec(), 0);
    const QByteArray byeBye = m_listener->receiveNow();
    QVERIFY(compareBytes(byeBye, announcement("byebye.msg", byeBye)));
    QVERIFY(nothingMoreWasSent());
}

void TestUpnpReceiver::destructionSaysNothing()
{
    makeReceiver();
    CaughtLog log;
    m_receiver.reset();
    QVERIFY(nothingMoreWasSent());
    QCOMPARE(log.lines(), QStringList());
    // The pair outlives the receiver.
    QCOMPARE(int(write(termSocketPair[0], "x", 1)), 1);
}

void TestUpnpReceiver::methodTableIsFixed()
{
    static const char *const table[] = {
        "public slot void setupMulticast() ",
        "public slot void sendAlive() ",
        "public slot void sendByeBye() ",
        "protected slot void processDatagrams() ",
        "protected slot void timerEvent(QTimerEvent*) timerevent",
        "protected slot void termSignal() ",
    };
    const QMetaObject &meta = UpnpReceiver::staticMetaObject;
    QCOMPARE(QByteArray(meta.className()), QByteArray("UpnpReceiver"));
    QCOMPARE(QByteArray(meta.superClass()->className()), QByteArray("QObject"));
    int index = meta.methodOffset();
    for (const char *line : table) {
        QVERIFY(index < meta.methodCount());
        QCOMPARE(qtversions::described(meta.method(index++)), QByteArray(line));
    }
    QCOMPARE(index, meta.methodCount());
    QCOMPARE(meta.propertyCount(), meta.propertyOffset());
    QCOMPARE(meta.classInfoCount(), meta.classInfoOffset());
}

QTEST_MAIN(TestUpnpReceiver)

#include "tst_upnpreceiver.moc"
