#include "interfaces.h"

#include "bytes.h"
#include "network.h"

#include <QtTest/QtTest>

#include <cerrno>
#include <dlfcn.h>
#include <ifaddrs.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

static int asked = 0; // how often Qt has asked the kernel
static int refusals = 0; // still to come

static bool isRefused()
{
    ++asked;
    if (refusals == 0)
        return false;
    --refusals;
    errno = ENOMEM;
    return true;
}

// These come before those of the C library: Qt 5 asks by a socket of its own, Qt 4 by getifaddrs().
extern "C" int socket(int domain, int type, int protocol) noexcept
{
    if (domain == AF_NETLINK && isRefused())
        return -1;
    return int(syscall(SYS_socket, domain, type, protocol));
}

extern "C" int getifaddrs(struct ifaddrs **addresses) noexcept
{
    typedef int (*Function)(struct ifaddrs **);
    if (isRefused())
        return -1;
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getifaddrs"))(addresses);
}

class TestInterfaces : public QObject
{
    Q_OBJECT

private slots:
    void loopbackIsAmongThem();
    void interfaceIsFoundByItsName();
    void unknownNameGivesAnInvalidOne();
    void refusedAnswerIsAskedForUpToFourTimes_data();
    void refusedAnswerIsAskedForUpToFourTimes();
    void answerIsWholeWithAnAddressOfTheLoopback();
};

void TestInterfaces::loopbackIsAmongThem()
{
    const QList<QNetworkInterface> all = networkInterfaces();
    int loopbacks = 0;
    for (int i = 0; i < all.size(); ++i)
        loopbacks += all.at(i).flags() & QNetworkInterface::IsLoopBack ? 1 : 0;
    QCOMPARE(loopbacks, 1);
}

void TestInterfaces::interfaceIsFoundByItsName()
{
    const QNetworkInterface found = networkInterface(text("lo"));
    QVERIFY(found.isValid());
    QCOMPARE(found.name(), text("lo"));
    QVERIFY(!found.addressEntries().isEmpty());
}

void TestInterfaces::unknownNameGivesAnInvalidOne()
{
    QVERIFY(!networkInterface(text("nothing0")).isValid());
    QVERIFY(!networkInterface(QString()).isValid());
}

void TestInterfaces::refusedAnswerIsAskedForUpToFourTimes_data()
{
    QTest::addColumn<int>("refused");
    QTest::addColumn<bool>("isAnswered");

    QTest::newRow("never") << 0 << true;
    QTest::newRow("once") << 1 << true;
    QTest::newRow("three times") << 3 << true;
    QTest::newRow("four times") << 4 << false;
}

void TestInterfaces::refusedAnswerIsAskedForUpToFourTimes()
{
    QFETCH(int, refused);
    QFETCH(bool, isAnswered);
    refusals = refused;
    const bool found = networkInterface(text("lo")).isValid();
    const int left = refusals;
    refusals = 0;
    QCOMPARE(found, isAnswered);
    QCOMPARE(left, 0);
}

static int timesAsked()
{
    asked = 0;
    QNetworkInterface::allInterfaces();
    const int once = asked;
    asked = 0;
    networkInterfaces();
    return once > 0 ? asked / once : 0;
}

void TestInterfaces::answerIsWholeWithAnAddressOfTheLoopback()
{
    QVERIFY(network::reset());
    QCOMPARE(timesAsked(), 1);
    QVERIFY(network::ip("address flush dev lo"));
    QCOMPARE(timesAsked(), 4);
    QVERIFY(network::ip("address add 127.0.0.1/8 dev lo"));
    QVERIFY(network::ip("address flush dev eth0"));
    QCOMPARE(timesAsked(), 1);
}

QTEST_MAIN(TestInterfaces)

#include "tst_interfaces.moc"
