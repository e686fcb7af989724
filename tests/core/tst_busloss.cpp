#include "busloss.h"

#include "bytes.h"
#include "caughtlog.h"
#include "qtversions.h"
#include "termsignal.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QScopedPointer>
#include <QtCore/QTimerEvent>
#include <QtDBus/QDBusConnection>
#include <QtTest/QtTest>

#include <cerrno>
#include <signal.h>
#include <unistd.h>

static const char neededService[] = "test.Needed";
static const char programName[] = "some name";

static int executions = 0;
static QByteArray executed; // the program, and what it was given

// The program's own comes before that of the C library.
extern "C" int execv(const char *program, char *const arguments[]) noexcept
{
    ++executions;
    executed = program;
    for (int i = 0; arguments[i]; ++i)
        executed += '|' + QByteArray(arguments[i]);
    errno = ENOENT;
    return -1;
}

class TestBusLoss : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void nothingIsDoneWhileTheBusIsThere();
    void lossIsLoggedOnceAndProbedEverySecond();
    void busThatStaysAwayForAMinuteIsProbedEveryTenSeconds();
    void busThatCameBackIsProbedEverySecondAgain();
    void probesThatFailAreCountedAnewOnceTheBusWasThere();
    void programIsExecutedOnceTheServiceIsThere();
    void serviceIsWaitedForDuringSixtyProbes();
    void probesWithoutABusDoNotCountForTheService();
    void failedExecutionIsOneWarningAndTriedWithEachProbe();
    void lossAfterSigtermIsNoMatter();
    void sigtermEndsTheProbes();

private:
    void probe(int times);
    QList<int> periods() { return qtversions::timerPeriods(m_loss.data()); }
    void takeBusAway();
    void bringBusBack();

    QString m_socket; // of the bus
    bool m_isAway;
    QScopedPointer<CaughtLog> m_log;
    QScopedPointer<BusLoss> m_loss;
};

void TestBusLoss::init()
{
    m_isAway = false;
    m_socket = QString::fromLocal8Bit(qgetenv("DBUS_SYSTEM_BUS_ADDRESS").constData()).section(QLatin1Char('='), 1).section(QLatin1Char(','), 0, 0);
    QVERIFY(QFile::exists(m_socket));
    QVERIFY(QDBusConnection::systemBus().isConnected());
    executions = 0;
    executed.clear();
    m_log.reset(new CaughtLog);
    m_loss.reset(new BusLoss(text(neededService), programName, nullptr));
}

void TestBusLoss::cleanup()
{
    m_loss.reset();
    m_log.reset();
    bringBusBack();
    QDBusConnection::systemBus().unregisterService(text(neededService));
    for (int i = 0; i < 2; ++i) {
        close(termSocketPair[i]);
        termSocketPair[i] = -1;
    }
}

// As its timer does, without the wait.
void TestBusLoss::probe(int times)
{
    for (int i = 0; i < times; ++i) {
        QTimerEvent event(0);
        QCoreApplication::sendEvent(m_loss.data(), &event);
    }
}

// Who is connected stays connected; nobody else can connect.
void TestBusLoss::takeBusAway()
{
    m_isAway = QFile::rename(m_socket, m_socket + text(".away"));
    QVERIFY(m_isAway);
}

void TestBusLoss::bringBusBack()
{
    if (m_isAway)
        m_isAway = !QFile::rename(m_socket + text(".away"), m_socket);
    QVERIFY(!m_isAway);
}

void TestBusLoss::nothingIsDoneWhileTheBusIsThere()
{
    QVERIFY(periods().isEmpty());
    QCOMPARE(m_log->lines(), QStringList());
}

void TestBusLoss::lossIsLoggedOnceAndProbedEverySecond()
{
    for (int i = 0; i < 2; ++i) {
        QVERIFY(QMetaObject::invokeMethod(m_loss.data(), "disconnected"));
        QCOMPARE(m_log->lines(), QStringList(text("warning: system bus lost, starting again once it is back")));
        QCOMPARE(periods(), QList<int>() << 1000);
    }
}

void TestBusLoss::busThatStaysAwayForAMinuteIsProbedEveryTenSeconds()
{
    QVERIFY(QMetaObject::invokeMethod(m_loss.data(), "disconnected"));
    takeBusAway();
    probe(59);
    QCOMPARE(periods(), QList<int>() << 1000);
    probe(1);
    QCOMPARE(periods(), QList<int>() << 10000);
    probe(100);
    QCOMPARE(periods(), QList<int>() << 10000);
    QCOMPARE(executions, 0);
}

void TestBusLoss::busThatCameBackIsProbedEverySecondAgain()
{
    QVERIFY(QMetaObject::invokeMethod(m_loss.data(), "disconnected"));
    takeBusAway();
    probe(60);
    QCOMPARE(periods(), QList<int>() << 10000);
    bringBusBack();
    probe(1);
    QCOMPARE(periods(), QList<int>() << 1000);
}

void TestBusLoss::probesThatFailAreCountedAnewOnceTheBusWasThere()
{
    QVERIFY(QMetaObject::invokeMethod(m_loss.data(), "disconnected"));
    takeBusAway();
    probe(59);
    bringBusBack();
    probe(1);
    takeBusAway();
    probe(59);
    QCOMPARE(periods(), QList<int>() << 1000);
    probe(1);
    QCOMPARE(periods(), QList<int>() << 10000);
}

void TestBusLoss::programIsExecutedOnceTheServiceIsThere()
{
    QVERIFY(QMetaObject::invokeMethod(m_loss.data(), "disconnected"));
    probe(3);
    QCOMPARE(executions, 0);
    QVERIFY(QDBusConnection::systemBus().registerService(text(neededService)));
    probe(1);
    QCOMPARE(executions, 1);
    QCOMPARE(executed, QByteArray("/proc/self/exe|some name"));
}

void TestBusLoss::serviceIsWaitedForDuringSixtyProbes()
{
    QVERIFY(QMetaObject::invokeMethod(m_loss.data(), "disconnected"));
    probe(60);
    QCOMPARE(executions, 0);
    probe(1);
    QCOMPARE(executions, 1);
}

void TestBusLoss::probesWithoutABusDoNotCountForTheService()
{
    QVERIFY(QMetaObject::invokeMethod(m_loss.data(), "disconnected"));
    takeBusAway();
    probe(100);
    bringBusBack();
    probe(60);
    QCOMPARE(executions, 0);
    probe(1);
    QCOMPARE(executions, 1);
}

void TestBusLoss::failedExecutionIsOneWarningAndTriedWithEachProbe()
{
    QVERIFY(QDBusConnection::systemBus().registerService(text(neededService)));
    QVERIFY(QMetaObject::invokeMethod(m_loss.data(), "disconnected"));
    m_log->clear();
    for (int tries = 1; tries <= 3; ++tries) {
        probe(1);
        QCOMPARE(executions, tries);
        QCOMPARE(m_log->lines(), QStringList(text("warning: starting again failed: No such file or directory")));
        QCOMPARE(periods(), QList<int>() << 1000);
    }
}

void TestBusLoss::lossAfterSigtermIsNoMatter()
{
    createTermSocketPair();
    termSignalHandler(SIGTERM);
    QVERIFY(QMetaObject::invokeMethod(m_loss.data(), "disconnected"));
    QVERIFY(periods().isEmpty());
    QCOMPARE(m_log->lines(), QStringList());
}

// A program that was executed again would not go on saying byebye.
void TestBusLoss::sigtermEndsTheProbes()
{
    createTermSocketPair();
    QVERIFY(QDBusConnection::systemBus().registerService(text(neededService)));
    QVERIFY(QMetaObject::invokeMethod(m_loss.data(), "disconnected"));
    QCOMPARE(periods(), QList<int>() << 1000);
    termSignalHandler(SIGTERM);
    probe(1);
    QVERIFY(periods().isEmpty());
    QCOMPARE(executions, 0);
}

QTEST_MAIN(TestBusLoss)
#include "tst_busloss.moc"
