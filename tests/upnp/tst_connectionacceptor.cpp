#include "connectionacceptor.h"

#include "qtversions.h"
#include "waitfor.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QTimer>
#include <QtTest/QtTest>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

static bool isOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) != -1;
}

static void closeAll(QList<int> *descriptors)
{
    for (int i = 0; i < descriptors->size(); ++i)
        close(descriptors->at(i));
    descriptors->clear();
}

// Keeps every connection, until it is told to do something else.
class RecordingServer : public ConnectionServer
{
public:
    enum Manner { Keep,
        CloseAtOnce,
        WaitForBytes,
        CloseAndSayNothing };

    RecordingServer()
        : manner(Keep)
        , lastTakenOver(-1)
    {
    }

    ~RecordingServer()
    {
        closeAll(&kept);
    }

    Outcome serve(int descriptor) override
    {
        served.append(descriptor);
        char byte = 0;
        if (manner == WaitForBytes && recv(descriptor, &byte, 1, MSG_PEEK) == -1)
            return NothingReceived;
        if (manner == CloseAtOnce || manner == CloseAndSayNothing) {
            close(descriptor);
            return manner == CloseAtOnce ? Closed : NothingReceived;
        }
        kept.append(descriptor);
        return TakenOver;
    }

    void takeOver(int descriptor) override
    {
        lastTakenOver = descriptor;
    }

    Manner manner;
    QList<int> served;
    QList<int> kept;
    int lastTakenOver;
};

class TestConnectionAcceptor : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void connectionsAreHandedToTheServer();
    void connectionWithoutBytesIsServedAgainWhenTheyCome();
    void connectionWithoutBytesIsServedAgainWhenThePeerLeaves();
    void connectionThatCannotWaitIsTakenOver();
    void nothingIsAcceptedWhileDescriptorsAreScarce();
    void acceptingGoesOnAsSoonAsADescriptorIsClosed();
    void acceptingGoesOnByItselfBeforeLong();
    void whileItPausesItChecksFiveTimesASecond();
    void aQuarterOfFewDescriptorsStaysFree_data();
    void aQuarterOfFewDescriptorsStaysFree();
    void closedConnectionsDoNotPauseAccepting();
    void idleConnectionsEndWithTheAcceptor();

private:
    int connectPeer();
    void lowerLimitTo(int limit);
    int fillToTheLimit();

    RecordingServer m_server;
    QScopedPointer<ConnectionAcceptor> m_acceptor;
    int m_listening;
    QList<int> m_occupied; // the numbers below those that the test looks at: the reserve is 16 from a limit of 64 on
    QList<int> m_peers;
    struct rlimit m_limit;
};

void TestConnectionAcceptor::init()
{
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &m_limit), 0);
    m_server.manner = RecordingServer::Keep;
    do
        m_occupied.append(open("/dev/null", O_RDONLY | O_CLOEXEC));
    while (m_occupied.last() < 64);
    m_listening = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    QCOMPARE(listen(m_listening, 50), 0);
    m_acceptor.reset(new ConnectionAcceptor(m_listening, &m_server, nullptr));
}

void TestConnectionAcceptor::cleanup()
{
    m_acceptor.reset();
    close(m_listening);
    closeAll(&m_occupied);
    closeAll(&m_peers);
    closeAll(&m_server.kept);
    m_server.served.clear();
    m_server.lastTakenOver = -1;
    setrlimit(RLIMIT_NOFILE, &m_limit);
}

int TestConnectionAcceptor::connectPeer()
{
    struct sockaddr_in address = {};
    socklen_t size = sizeof address;
    getsockname(m_listening, reinterpret_cast<struct sockaddr *>(&address), &size);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int peer = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (peer == -1 || ::connect(peer, reinterpret_cast<struct sockaddr *>(&address), size) != 0)
        qFatal("the listening socket is not connected to");
    m_peers.append(peer);
    return peer;
}

void TestConnectionAcceptor::lowerLimitTo(int limit)
{
    struct rlimit lowered = m_limit;
    lowered.rlim_cur = rlim_t(limit);
    setrlimit(RLIMIT_NOFILE, &lowered);
}

// Three peers, of whom two are let in; the third waits. Returns the server's end of the first one.
int TestConnectionAcceptor::fillToTheLimit()
{
    connectPeer();
    connectPeer();
    const int lowestFree = connectPeer() + 1;
    lowerLimitTo(lowestFree + 1 + 16);
    waitFor([this] { return m_server.served.size() >= 2; });
    return m_server.served.value(0, -1);
}

void TestConnectionAcceptor::connectionsAreHandedToTheServer()
{
    connectPeer();
    connectPeer();
    QVERIFY(waitFor([this] { return m_server.served.size() == 2; }));
    QVERIFY(fcntl(m_server.served.at(0), F_GETFL) & O_NONBLOCK);
    QVERIFY(fcntl(m_server.served.at(0), F_GETFD) & FD_CLOEXEC);
}

void TestConnectionAcceptor::connectionWithoutBytesIsServedAgainWhenTheyCome()
{
    m_server.manner = RecordingServer::WaitForBytes;
    const int peer = connectPeer();
    QVERIFY(waitFor([this] { return m_server.served.size() == 1; }));
    QCOMPARE(send(peer, "x", 1, 0), ssize_t(1));
    QVERIFY(waitFor([this] { return m_server.served.size() == 2; }));
    QCOMPARE(m_server.served.at(1), m_server.served.at(0));
    QCOMPARE(m_server.kept, QList<int>() << m_server.served.at(0));
}

void TestConnectionAcceptor::connectionWithoutBytesIsServedAgainWhenThePeerLeaves()
{
    m_server.manner = RecordingServer::WaitForBytes;
    const int peer = connectPeer();
    QVERIFY(waitFor([this] { return m_server.served.size() == 1; }));
    shutdown(peer, SHUT_WR);
    QVERIFY(waitFor([this] { return m_server.served.size() == 2; }));
    QCOMPARE(m_server.served.at(1), m_server.served.at(0));
}

void TestConnectionAcceptor::connectionThatCannotWaitIsTakenOver()
{
    m_server.manner = RecordingServer::CloseAndSayNothing; // so that the kernel refuses the descriptor
    connectPeer();
    QVERIFY(waitFor([this] { return m_server.lastTakenOver != -1; }));
    QCOMPARE(m_server.lastTakenOver, m_server.served.at(0));
}

void TestConnectionAcceptor::nothingIsAcceptedWhileDescriptorsAreScarce()
{
    fillToTheLimit();
    QVERIFY(!waitFor([this] { return m_server.served.size() == 3; }, 500));
}

void TestConnectionAcceptor::acceptingGoesOnAsSoonAsADescriptorIsClosed()
{
    const int first = fillToTheLimit();
    m_server.kept.removeAll(first);
    close(first);
    m_acceptor->descriptorClosed();
    QCoreApplication::processEvents();
    QCOMPARE(m_server.served.size(), 3);
}

// Five times a second. A busy machine delays the later timer as well, and its event loop calls timers in the order in which
// they are due.
void TestConnectionAcceptor::acceptingGoesOnByItselfBeforeLong()
{
    QElapsedTimer sincePause;
    sincePause.start();
    const int first = fillToTheLimit();
    QTimer later;
    later.setSingleShot(true);
    later.start(300);
    m_server.kept.removeAll(first);
    close(first);
    QVERIFY(waitFor([&] { return m_server.served.size() == 3 || !later.isActive(); }));
    QCoreApplication::processEvents(); // both were due: what the first one lets in is seen in the next pass
    QCOMPARE(m_server.served.size(), 3);
    QVERIFY(sincePause.elapsed() >= 180); // a coarse timer may be 5 % early
}

void TestConnectionAcceptor::whileItPausesItChecksFiveTimesASecond()
{
    QCOMPARE(qtversions::timerPeriods(m_acceptor.data()), QList<int>());
    m_acceptor->descriptorClosed(); // no matter where nothing pauses
    QCOMPARE(qtversions::timerPeriods(m_acceptor.data()), QList<int>());
    fillToTheLimit();
    QCOMPARE(m_server.served.size(), 2);
    QCOMPARE(qtversions::timerPeriods(m_acceptor.data()), QList<int>() << 200);
    m_acceptor->descriptorClosed(); // not enough are free
    QCOMPARE(qtversions::timerPeriods(m_acceptor.data()), QList<int>() << 200);
    closeAll(&m_server.kept);
    m_acceptor->descriptorClosed();
    QCOMPARE(qtversions::timerPeriods(m_acceptor.data()), QList<int>());
    QVERIFY(waitFor([this] { return m_server.served.size() == 3; }));
    QCOMPARE(qtversions::timerPeriods(m_acceptor.data()), QList<int>());
}

void TestConnectionAcceptor::aQuarterOfFewDescriptorsStaysFree_data()
{
    QTest::addColumn<int>("limit");
    QTest::addColumn<int>("reserve");
    QTest::newRow("40") << 40 << 10;
    QTest::newRow("63") << 63 << 15;
    QTest::newRow("64") << 64 << 16;
    QTest::newRow("71") << 71 << 16;
}

// The lower numbers become free before, so that what is accepted has them.
void TestConnectionAcceptor::aQuarterOfFewDescriptorsStaysFree()
{
    QFETCH(int, limit);
    QFETCH(int, reserve);
    for (int i = 0; i < 5; ++i)
        connectPeer();
    // Two numbers below the last one that pauses, and this one; the peers have those above.
    while (!m_occupied.isEmpty() && m_occupied.last() >= limit - reserve - 2)
        close(m_occupied.takeLast());
    lowerLimitTo(limit);
    QVERIFY(waitFor([this] { return m_server.served.size() >= 3; }));
    QVERIFY(!waitFor([this] { return m_server.served.size() > 3; }, 50));
    QCOMPARE(m_server.served, QList<int>() << limit - reserve - 2 << limit - reserve - 1 << limit - reserve);
}

void TestConnectionAcceptor::closedConnectionsDoNotPauseAccepting()
{
    m_server.manner = RecordingServer::CloseAtOnce;
    fillToTheLimit();
    QCoreApplication::processEvents();
    QCOMPARE(m_server.served.size(), 3);
}

void TestConnectionAcceptor::idleConnectionsEndWithTheAcceptor()
{
    m_server.manner = RecordingServer::WaitForBytes;
    connectPeer();
    QVERIFY(waitFor([this] { return m_server.served.size() == 1; }));
    m_acceptor.reset();
    QVERIFY(!isOpen(m_server.served.at(0)));
}

QTEST_MAIN(TestConnectionAcceptor)

#include "tst_connectionacceptor.moc"
