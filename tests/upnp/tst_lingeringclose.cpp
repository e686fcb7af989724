#include "lingeringclose.h"

#include "qtversions.h"
#include "waitfor.h"

#include <QtCore/QAbstractEventDispatcher>
#include <QtTest/QtTest>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

class TestLingeringClose : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void peerIsToldAtOnce();
    void whatThePeerSendsIsReadAwayUntilItCloses();
    void singleBytesAreReadAwayAsWell();
    void peerThatHasClosedIsNotWaitedFor();
    void peerThatHasResetIsNotWaitedFor();
    void peerThatNeverClosesIsLeftAfterAWhile();
    void peerThatNeverStopsIsLeft();
    void peerIsLeftAfterSoManyBytes();
    void peerIsKeptWithOneByteLess();
    void connectionEndsWithTheParent();

private:
    int lingering() const { return m_parent->findChildren<LingeringClose *>().size(); }
    // Sends until nothing goes any more. Returns whether that is because the other end is closed.
    bool sendMuch();
    bool sendBytes(int number);

    QScopedPointer<QObject> m_parent;
    int m_own;
    int m_peer;
};

static bool isOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) != -1;
}

void TestLingeringClose::init()
{
    int pair[2];
    QCOMPARE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair), 0);
    m_own = pair[0];
    m_peer = pair[1];
    m_parent.reset(new QObject);
}

void TestLingeringClose::cleanup()
{
    m_parent.reset();
    close(m_peer);
}

bool TestLingeringClose::sendMuch()
{
    static const char bytes[4096] = {};
    while (send(m_peer, bytes, sizeof bytes, MSG_NOSIGNAL) > 0) { }
    return errno == EPIPE;
}

void TestLingeringClose::peerIsToldAtOnce()
{
    LingeringClose::close(m_own, m_parent.data());
    char byte;
    QCOMPARE(recv(m_peer, &byte, 1, 0), ssize_t(0));
    QCOMPARE(lingering(), 1);
}

void TestLingeringClose::whatThePeerSendsIsReadAwayUntilItCloses()
{
    LingeringClose::close(m_own, m_parent.data());
    QVERIFY(!sendMuch());
    QTest::qWait(1);
    QVERIFY(!sendMuch());
    QVERIFY(isOpen(m_own));
    shutdown(m_peer, SHUT_WR);
    QVERIFY(waitFor([this] { return lingering() == 0; }, LingeringClose::maximalTime / 2));
    QVERIFY(!isOpen(m_own));
}

void TestLingeringClose::singleBytesAreReadAwayAsWell()
{
    QVERIFY(sendBytes(1));
    QVERIFY(!LingeringClose::close(m_own, m_parent.data()));
    for (int i = 0; i < 3; ++i) {
        int waiting = 0;
        QVERIFY(sendBytes(1));
        QVERIFY(waitFor([&] { return ioctl(m_own, FIONREAD, &waiting) == 0 && waiting == 0; }));
        QCOMPARE(lingering(), 1);
    }
}

void TestLingeringClose::peerThatHasClosedIsNotWaitedFor()
{
    QVERIFY(!sendMuch());
    shutdown(m_peer, SHUT_WR);
    LingeringClose::close(m_own, m_parent.data());
    QCOMPARE(lingering(), 0);
    QVERIFY(!isOpen(m_own));
}

// It closed with something unread.
void TestLingeringClose::peerThatHasResetIsNotWaitedFor()
{
    QCOMPARE(send(m_own, "x", 1, MSG_NOSIGNAL), ssize_t(1));
    close(m_peer);
    m_peer = -1;
    QVERIFY(LingeringClose::close(m_own, m_parent.data()));
    QCOMPARE(lingering(), 0);
    QVERIFY(!isOpen(m_own));
}

void TestLingeringClose::peerThatNeverClosesIsLeftAfterAWhile()
{
    LingeringClose::close(m_own, m_parent.data());
    QCOMPARE(qtversions::timerPeriods(m_parent->findChild<LingeringClose *>()), QList<int>() << 2000);
    QVERIFY(waitFor([this] { return lingering() == 0; }));
    QVERIFY(!isOpen(m_own));
}

void TestLingeringClose::peerThatNeverStopsIsLeft()
{
    LingeringClose::close(m_own, m_parent.data());
    QVERIFY(waitFor([this] { return sendMuch(); }));
    QVERIFY(waitFor([this] { return lingering() == 0; }));
}

// False when the other end is closed before.
bool TestLingeringClose::sendBytes(int number)
{
    static const char bytes[4096] = {};
    return waitFor([&] {
        ssize_t sent = 0;
        while (number > 0 && (sent = send(m_peer, bytes, size_t(qMin(number, int(sizeof bytes))), MSG_NOSIGNAL)) > 0)
            number -= int(sent);
        return number == 0;
    });
}

// Well before its time is over
void TestLingeringClose::peerIsLeftAfterSoManyBytes()
{
    LingeringClose::close(m_own, m_parent.data());
    QVERIFY(sendBytes(8 * 1024 * 1024));
    QVERIFY(waitFor([this] { return lingering() == 0; }, LingeringClose::maximalTime / 2));
    QVERIFY(!isOpen(m_own));
}

// However long the bytes take here
void TestLingeringClose::peerIsKeptWithOneByteLess()
{
    LingeringClose::close(m_own, m_parent.data());
    QVERIFY(QAbstractEventDispatcher::instance()->unregisterTimers(m_parent->findChild<LingeringClose *>()));
    QVERIFY(sendBytes(8 * 1024 * 1024 - 1));
    int waiting = 0;
    QVERIFY(waitFor([&] { return ioctl(m_own, FIONREAD, &waiting) == 0 && waiting == 0; }));
    QCOMPARE(lingering(), 1);
    QVERIFY(sendBytes(1));
    QVERIFY(waitFor([this] { return lingering() == 0; }, LingeringClose::maximalTime / 2));
}

void TestLingeringClose::connectionEndsWithTheParent()
{
    LingeringClose::close(m_own, m_parent.data());
    m_parent.reset(new QObject);
    QVERIFY(!isOpen(m_own));
}

QTEST_MAIN(TestLingeringClose)

#include "tst_lingeringclose.moc"
