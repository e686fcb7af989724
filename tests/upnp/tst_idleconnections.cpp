#include "idleconnections.h"

#include "bytes.h"
#include "caughtlog.h"
#include "fewerdescriptors.h"
#include "waitfor.h"

#include <QtTest/QtTest>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

class TestIdleConnections : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void connectionWithBytesIsReadableOnce();
    void connectionWhosePeerLeavesIsReadable();
    void manyAreReadableAtTheSameTime();
    void whatWasReadableIsNotClosed();
    void whatIsLeftIsClosed();
    void whatIsNoConnectionIsNotTaken();
    void withoutADescriptorOfItsOwnItTakesNoneAndIsSilent();

private:
    QScopedPointer<IdleConnections> m_idle;
    QScopedPointer<QSignalSpy> m_readable;
    int m_own;
    int m_peer;
};

static bool isOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) != -1;
}

void TestIdleConnections::init()
{
    m_idle.reset(new IdleConnections(nullptr));
    m_readable.reset(new QSignalSpy(m_idle.data(), SIGNAL(readable(int))));
    int pair[2];
    QCOMPARE(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    m_own = pair[0];
    m_peer = pair[1];
}

void TestIdleConnections::cleanup()
{
    m_idle.reset();
    if (isOpen(m_own))
        close(m_own);
    if (isOpen(m_peer))
        close(m_peer);
}

void TestIdleConnections::connectionWithBytesIsReadableOnce()
{
    QVERIFY(m_idle->add(m_own));
    QCOMPARE(write(m_peer, "x", 1), ssize_t(1));
    QVERIFY(waitFor([this] { return m_readable->size() == 1; }));
    QCOMPARE(m_readable->at(0).at(0).toInt(), m_own);
    QCOMPARE(write(m_peer, "x", 1), ssize_t(1));
    // Another one that is readable later shows that this one had its time.
    int pair[2];
    QCOMPARE(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    QVERIFY(m_idle->add(pair[0]));
    close(pair[1]);
    QVERIFY(waitFor([this] { return m_readable->size() == 2; }));
    QCOMPARE(m_readable->at(1).at(0).toInt(), pair[0]);
    close(pair[0]);
}

void TestIdleConnections::connectionWhosePeerLeavesIsReadable()
{
    QVERIFY(m_idle->add(m_own));
    close(m_peer);
    QVERIFY(waitFor([this] { return m_readable->size() == 1; }));
    QCOMPARE(m_readable->at(0).at(0).toInt(), m_own);
}

void TestIdleConnections::manyAreReadableAtTheSameTime()
{
    static const int number = 200;
    int pairs[number][2];
    for (int(&pair)[2] : pairs) {
        QCOMPARE(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
        QVERIFY(m_idle->add(pair[0]));
        close(pair[1]);
    }
    QVERIFY(waitFor([this] { return m_readable->size() == number; }));
    QSet<int> descriptors;
    for (int i = 0; i < number; ++i) {
        descriptors.insert(m_readable->at(i).at(0).toInt());
        close(pairs[i][0]);
    }
    QCOMPARE(descriptors.size(), number);
}

void TestIdleConnections::whatWasReadableIsNotClosed()
{
    QVERIFY(m_idle->add(m_own));
    QCOMPARE(write(m_peer, "x", 1), ssize_t(1));
    QVERIFY(waitFor([this] { return m_readable->size() == 1; }));
    m_idle.reset();
    QVERIFY(isOpen(m_own));
}

void TestIdleConnections::whatIsLeftIsClosed()
{
    QVERIFY(m_idle->add(m_own));
    QVERIFY(m_idle->add(m_peer));
    m_idle.reset();
    QVERIFY(!isOpen(m_own));
    QVERIFY(!isOpen(m_peer));
}

void TestIdleConnections::whatIsNoConnectionIsNotTaken()
{
    QVERIFY(!m_idle->add(-1));
    m_idle.reset();
    QVERIFY(isOpen(m_own));
}

void TestIdleConnections::withoutADescriptorOfItsOwnItTakesNoneAndIsSilent()
{
    CaughtLog log;
    {
        const FewerDescriptors none(0);
        m_idle.reset(new IdleConnections(nullptr));
    }
    QVERIFY(!m_idle->add(m_own));
    QCOMPARE(log.lines(), QStringList());
}

QTEST_MAIN(TestIdleConnections)

#include "tst_idleconnections.moc"
