#include "termsignal.h"

#include "bytes.h"
#include "ownprogram.h"
#include "waitfor.h"

#include <QtCore/QCoreApplication>
#include <QtTest/QtTest>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

class TestTermSignal : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void beforeThereIsAPairNoSignalHasArrived();
    void pairIsAConnectedPairOfLocalStreamSockets();
    void handlerWritesTheByteOne_data();
    void handlerWritesTheByteOne();
    void handlerLosesItsByteWhenNobodyReads();
    void handlerWithoutAPairDoesNothing();
    void installedHandlerReceivesSigterm();
    void installedHandlerRestartsInterruptedCalls();
    void missingPairIsFatal();
};

static const int firstPair[2] = { termSocketPair[0], termSocketPair[1] };

void TestTermSignal::init()
{
    createTermSocketPair();
}

void TestTermSignal::cleanup()
{
    signal(SIGTERM, SIG_DFL);
    for (int i = 0; i < 2; ++i) {
        close(termSocketPair[i]);
        termSocketPair[i] = -1;
    }
}

static int option(int descriptor, int name)
{
    int value = -1;
    socklen_t size = sizeof value;
    return getsockopt(descriptor, SOL_SOCKET, name, &value, &size) == 0 ? value : -1;
}

static QByteArray waitingBytes()
{
    char buffer[16];
    const ssize_t size = recv(termSocketPair[1], buffer, sizeof buffer, MSG_DONTWAIT);
    return size > 0 ? QByteArray(buffer, int(size)) : QByteArray();
}

// Neither end is the standard input.
void TestTermSignal::beforeThereIsAPairNoSignalHasArrived()
{
    cleanup();
    std::copy(firstPair, firstPair + 2, termSocketPair);
    int input[2];
    QVERIFY(socketpair(AF_UNIX, SOCK_STREAM, 0, input) == 0 && write(input[1], "x", 1) == 1);
    QCOMPARE(dup2(input[0], STDIN_FILENO), STDIN_FILENO);
    QVERIFY(!hasTermSignalArrived());
    termSignalHandler(SIGTERM);
    char byte = 0;
    QCOMPARE(recv(input[1], &byte, 1, MSG_DONTWAIT), ssize_t(-1));
    close(input[0]);
    close(input[1]);
}

void TestTermSignal::pairIsAConnectedPairOfLocalStreamSockets()
{
    QVERIFY(termSocketPair[0] != termSocketPair[1]);
    for (int descriptor : termSocketPair) {
        QCOMPARE(option(descriptor, SO_DOMAIN), int(AF_UNIX));
        QCOMPARE(option(descriptor, SO_TYPE), int(SOCK_STREAM));
    }
    QCOMPARE(int(write(termSocketPair[0], "ab", 2)), 2);
    QCOMPARE(waitingBytes(), QByteArray("ab"));
}

void TestTermSignal::handlerWritesTheByteOne_data()
{
    QTest::addColumn<int>("number");

    QTest::newRow("SIGTERM") << int(SIGTERM);
    QTest::newRow("another signal") << int(SIGHUP);
    QTest::newRow("no signal") << 0;
}

void TestTermSignal::handlerWritesTheByteOne()
{
    QFETCH(int, number);
    termSignalHandler(number);
    QCOMPARE(waitingBytes(), QByteArray("\x01"));
    QCOMPARE(waitingBytes(), QByteArray());
}

void TestTermSignal::handlerLosesItsByteWhenNobodyReads()
{
    // Until the pair is full; then once more, which must come back.
    const int flags = fcntl(termSocketPair[0], F_GETFL);
    fcntl(termSocketPair[0], F_SETFL, flags | O_NONBLOCK);
    const QByteArray filling(4096, 'f');
    while (write(termSocketPair[0], filling.constData(), size_t(filling.size())) > 0) { }
    while (write(termSocketPair[0], "f", 1) > 0) { }
    fcntl(termSocketPair[0], F_SETFL, flags);
    termSignalHandler(SIGTERM);
    QCOMPARE(waitingBytes(), QByteArray(16, 'f'));
}

void TestTermSignal::handlerWithoutAPairDoesNothing()
{
    cleanup();
    termSignalHandler(SIGTERM);
    QCOMPARE(termSocketPair[0], -1);
}

void TestTermSignal::installedHandlerReceivesSigterm()
{
    QCOMPARE(installTermSignalHandler(), 0);
    QVERIFY(!hasTermSignalArrived());
    QCOMPARE(raise(SIGTERM), 0);
    QVERIFY(hasTermSignalArrived());
    QCOMPARE(raise(SIGTERM), 0);
    QVERIFY(hasTermSignalArrived());
    QCOMPARE(waitingBytes(), QByteArray("\x01\x01"));
}

void TestTermSignal::installedHandlerRestartsInterruptedCalls()
{
    QCOMPARE(installTermSignalHandler(), 0);
    struct sigaction installed = {};
    QCOMPARE(sigaction(SIGTERM, nullptr, &installed), 0);
    QVERIFY(installed.sa_handler == termSignalHandler);
    QVERIFY(installed.sa_flags & SA_RESTART);
    sigset_t none;
    sigemptyset(&none);
    for (int number = 1; number < NSIG; ++number)
        QCOMPARE(sigismember(&installed.sa_mask, number), sigismember(&none, number));
}

// The process would end here, so it is done in another one: this program with one argument.
void TestTermSignal::missingPairIsFatal()
{
    QProcess process;
    startOwnProgram(&process, "--without-descriptors");
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitStatus(), QProcess::CrashExit);
    QVERIFY(process.readAllStandardError().contains("Couldn't create TERM socketpair"));
    QCOMPARE(process.readAllStandardOutput(), QByteArray());
}

static int createWithoutDescriptors()
{
    const struct rlimit three = { 3, 3 };
    setrlimit(RLIMIT_NOFILE, &three);
    createTermSocketPair();
    std::puts("created");
    return 0;
}

int main(int argc, char *argv[])
{
    if (argc == 2 && QByteArray(argv[1]) == "--without-descriptors")
        return createWithoutDescriptors();
    const QCoreApplication application(argc, argv);
    TestTermSignal test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_termsignal.moc"
