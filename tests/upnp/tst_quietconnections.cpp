#include "quietconnections.h"

#include "bytes.h"
#include "waitfor.h"

#include <QtTest/QtTest>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

class TestQuietConnections : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void connectionThatStirsIsGivenBackOnce();
    void connectionWhosePeerLeavesIsGivenBack();
    void manyStirAtTheSameTime();
    void whatWasGivenBackIsNotClosed();
    void whatIsLeftIsClosed();
    void whatIsNoConnectionIsNotTaken();

private:
    QScopedPointer<QuietConnections> m_quiet;
    QScopedPointer<QSignalSpy> m_stirred;
    int m_own;
    int m_peer;
};

static bool isOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) != -1;
}

void TestQuietConnections::init()
{
    m_quiet.reset(new QuietConnections(nullptr));
    m_stirred.reset(new QSignalSpy(m_quiet.data(), SIGNAL(stirred(int))));
    int pair[2];
    QCOMPARE(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    m_own = pair[0];
    m_peer = pair[1];
}

void TestQuietConnections::cleanup()
{
    m_quiet.reset();
    if (isOpen(m_own))
        close(m_own);
    if (isOpen(m_peer))
        close(m_peer);
}

void TestQuietConnections::connectionThatStirsIsGivenBackOnce()
{
    QVERIFY(m_quiet->add(m_own));
    QCOMPARE(write(m_peer, "x", 1), ssize_t(1));
    QVERIFY(waitFor([this] { return m_stirred->size() == 1; }));
    QCOMPARE(m_stirred->at(0).at(0).toInt(), m_own);
    QCOMPARE(write(m_peer, "x", 1), ssize_t(1));
    // Another one that stirs later shows that this one had its time.
    int pair[2];
    QCOMPARE(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    QVERIFY(m_quiet->add(pair[0]));
    close(pair[1]);
    QVERIFY(waitFor([this] { return m_stirred->size() == 2; }));
    QCOMPARE(m_stirred->at(1).at(0).toInt(), pair[0]);
    close(pair[0]);
}

void TestQuietConnections::connectionWhosePeerLeavesIsGivenBack()
{
    QVERIFY(m_quiet->add(m_own));
    close(m_peer);
    QVERIFY(waitFor([this] { return m_stirred->size() == 1; }));
    QCOMPARE(m_stirred->at(0).at(0).toInt(), m_own);
}

void TestQuietConnections::manyStirAtTheSameTime()
{
    static const int number = 200;
    int pairs[number][2];
    for (int(&pair)[2] : pairs) {
        QCOMPARE(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
        QVERIFY(m_quiet->add(pair[0]));
        close(pair[1]);
    }
    QVERIFY(waitFor([this] { return m_stirred->size() == number; }));
    QSet<int> descriptors;
    for (int i = 0; i < number; ++i) {
        descriptors.insert(m_stirred->at(i).at(0).toInt());
        close(pairs[i][0]);
    }
    QCOMPARE(descriptors.size(), number);
}

void TestQuietConnections::whatWasGivenBackIsNotClosed()
{
    QVERIFY(m_quiet->add(m_own));
    QCOMPARE(write(m_peer, "x", 1), ssize_t(1));
    QVERIFY(waitFor([this] { return m_stirred->size() == 1; }));
    m_quiet.reset();
    QVERIFY(isOpen(m_own));
}

void TestQuietConnections::whatIsLeftIsClosed()
{
    QVERIFY(m_quiet->add(m_own));
    m_quiet.reset();
    QVERIFY(!isOpen(m_own));
}

void TestQuietConnections::whatIsNoConnectionIsNotTaken()
{
    QVERIFY(!m_quiet->add(-1));
    m_quiet.reset();
    QVERIFY(isOpen(m_own));
}

QTEST_MAIN(TestQuietConnections)

#include "tst_quietconnections.moc"
