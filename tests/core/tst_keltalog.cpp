// The system log as the daemon writes it, read at /dev/log.
#include "keltalog.h"
#include "syslogsocket.h"

#include "bytes.h"
#include "fakeclock.h"
#include "qtversions.h"

#include <QtCore/QDateTime>
#include <QtCore/QDebug>
#include <QtCore/QElapsedTimer>
#include <QtCore/QScopedPointer>
#include <QtTest/QtTest>

#include <cerrno>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

// As QElapsedTimer has it in this thread; that of QtTest looks for tests that take too long.
static thread_local qint64 secondsPassed = 0;

// Comes before that of the C library.
extern "C" int clock_gettime(clockid_t clock, struct timespec *now) noexcept
{
    const int result = int(syscall(SYS_clock_gettime, clock, now));
    if (clock == CLOCK_MONOTONIC)
        now->tv_sec += time_t(secondsPassed);
    return result;
}

using kelta::Keltalog;
using kelta::SyslogSocket;

// The syslog daemon's end. Lines are there as soon as they are sent.
class LogDaemon
{
public:
    explicit LogDaemon(int type = SOCK_DGRAM)
        : m_type(type)
        , m_descriptor(socket(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
        , m_accepted(-1)
    {
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        qstrcpy(address.sun_path, "/dev/log");
        unlink("/dev/log");
        if (bind(m_descriptor, reinterpret_cast<const struct sockaddr *>(&address), sizeof address) != 0)
            qFatal("/dev/log cannot be bound");
        if (type == SOCK_STREAM)
            listen(m_descriptor, 5);
    }
    ~LogDaemon()
    {
        close(m_descriptor);
        close(m_accepted);
        unlink("/dev/log");
    }

    // The next line as it came; empty when there is none.
    QByteArray next()
    {
        int source = m_descriptor;
        if (m_type == SOCK_STREAM) {
            if (m_accepted == -1)
                m_accepted = accept4(m_descriptor, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            source = m_accepted;
        }
        char buffer[65536];
        const ssize_t size = recv(source, buffer, sizeof buffer, 0);
        return size > 0 ? QByteArray(buffer, int(size)) : QByteArray();
    }

private:
    Q_DISABLE_COPY(LogDaemon)

    int m_type;
    int m_descriptor;
    int m_accepted;
};

class TestKeltalog : public QObject
{
    Q_OBJECT

private slots:
    void facilitiesAreThoseOfSyslog();
    void messagesCarryFacilityAndSeverity_data();
    void messagesCarryFacilityAndSeverity();
    void linesNameTimeAndIdent_data();
    void linesNameTimeAndIdent();
    void thresholdLetsWarningsPass_data();
    void thresholdLetsWarningsPass();
    void qtMessagesTakeTheSameWay();
    void formatsAreFilledIn();
    void percentSignsOfQtMessagesAreText();
    void longMessagesAreCutButSent();
    void messagesOfUpTo1023BytesAreWhole();
    void aThousandWarningsAtOnceAreWritten();
    void aWarningEachFiveSecondsIsWritten();
    void introspectionNoiseIsDropped_data();
    void introspectionNoiseIsDropped();
    void missingLogLosesMessages();
    void logThatComesLaterIsFound();
    void restartedLogIsFoundAgain();
    void logThatNobodyReadsLosesMessages();
    void streamLogGetsZeroBytesBetweenLines();
    void streamLogLeavesNoDescriptorOpen();
    void streamLogThatGoesAwayEndsNothing();
    void streamLogThatNobodyReadsKeepsItsConnection();
    void errorFromBeforeIsNoneOfTheSocket();
    void socketWithoutALogLeavesOtherDescriptorsAlone();
    void socketSendsTheBytesAsTheyAre();
    void lineLongerThanADatagramIsLostAlone();
    // The last one: the process's own log cannot be opened up again.
    void thresholdHoldsForQtMessages();
};

void TestKeltalog::facilitiesAreThoseOfSyslog()
{
    QCOMPARE(int(Keltalog::FacilityUser), int(LOG_USER));
    QCOMPARE(int(Keltalog::FacilityDaemon), int(LOG_DAEMON));
    QCOMPARE(int(Keltalog::FacilityLocal6), int(LOG_LOCAL6));
    QCOMPARE(int(Keltalog::FacilityLocal6), 176);
    QCOMPARE(int(Keltalog::NoOption), 0);
}

static void openLog(Keltalog *log, Keltalog::Facility facility = Keltalog::FacilityLocal6)
{
    log->open(text("upnp"), facility, Keltalog::NoOption);
}

static QByteArray priorityOf(const QByteArray &line)
{
    return line.left(line.indexOf('>') + 1);
}

static QByteArray messageOf(const QByteArray &line)
{
    return line.mid(line.indexOf("upnp: "));
}

void TestKeltalog::messagesCarryFacilityAndSeverity_data()
{
    QTest::addColumn<int>("facility");
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("priority");

    // Local use 6 is 22 * 8 = 176; debug 7, warning 4, critical 2, alert 1.
    QTest::newRow("debug") << 176 << int(QtDebugMsg) << QByteArray("<183>");
    QTest::newRow("warning") << 176 << int(QtWarningMsg) << QByteArray("<180>");
    QTest::newRow("critical") << 176 << int(QtCriticalMsg) << QByteArray("<178>");
    QTest::newRow("fatal") << 176 << int(QtFatalMsg) << QByteArray("<177>");
    QTest::newRow("daemon's warning") << 24 << int(QtWarningMsg) << QByteArray("<28>");
    QTest::newRow("user's critical") << 8 << int(QtCriticalMsg) << QByteArray("<10>");
}

void TestKeltalog::messagesCarryFacilityAndSeverity()
{
    QFETCH(int, facility);
    QFETCH(int, type);
    QFETCH(QByteArray, priority);
    LogDaemon daemon;
    Keltalog log;
    openLog(&log, Keltalog::Facility(facility));
    log.msg(QtMsgType(type), "registering dbus connection failed.");
    const QByteArray line = daemon.next();
    QCOMPARE(priorityOf(line), priority);
    QCOMPARE(messageOf(line), QByteArray("upnp: registering dbus connection failed."));
    QCOMPARE(daemon.next(), QByteArray());
}

void TestKeltalog::linesNameTimeAndIdent_data()
{
    QTest::addColumn<QDateTime>("now");
    QTest::addColumn<QByteArray>("timestamp");

    const char *const months[] = { "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec" };
    for (int i = 0; i < 12; ++i)
        QTest::newRow(months[i]) << QDateTime(QDate(2026, i + 1, 3), QTime(9, 5, 7)) << months[i] + QByteArray("  3 09:05:07");
    QTest::newRow("two digits") << QDateTime(QDate(2026, 11, 21), QTime(23, 59, 59)) << QByteArray("Nov 21 23:59:59");
}

void TestKeltalog::linesNameTimeAndIdent()
{
    QFETCH(QDateTime, now);
    QFETCH(QByteArray, timestamp);
    fakeclock::milliseconds = now.toMSecsSinceEpoch();
    LogDaemon daemon;
    Keltalog log;
    log.open(text("another name"), Keltalog::FacilityLocal6, Keltalog::NoOption);
    log.msg(QtWarningMsg, "a message");
    QVERIFY(compareBytes(daemon.next(), "<180>" + timestamp + " another name: a message"));
}

void TestKeltalog::thresholdLetsWarningsPass_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("priority");

    QTest::newRow("debug") << int(QtDebugMsg) << QByteArray();
    QTest::newRow("warning") << int(QtWarningMsg) << QByteArray("<180>");
    QTest::newRow("critical") << int(QtCriticalMsg) << QByteArray("<178>");
    QTest::newRow("fatal") << int(QtFatalMsg) << QByteArray("<177>");
}

void TestKeltalog::thresholdLetsWarningsPass()
{
    QFETCH(int, type);
    QFETCH(QByteArray, priority);
    LogDaemon daemon;
    Keltalog log;
    openLog(&log);
    log.setSyslogLevelWarning();
    log.msg(QtMsgType(type), "first");
    QCOMPARE(priorityOf(daemon.next()), priority);
    log.msg(QtCriticalMsg, "last");
    QCOMPARE(messageOf(daemon.next()), QByteArray("upnp: last"));
}

void TestKeltalog::qtMessagesTakeTheSameWay()
{
    LogDaemon daemon;
    openLog(&kelta::keltalog);
    qDebug("sending alive");
    qWarning("setsockopt: no address");
    qCritical("critical");
    qDebug() << "ip:" << text("10.0.0.5");
    QByteArray line = daemon.next();
    QCOMPARE(priorityOf(line), QByteArray("<183>"));
    QCOMPARE(messageOf(line), QByteArray("upnp: sending alive"));
    line = daemon.next();
    QCOMPARE(priorityOf(line), QByteArray("<180>"));
    QCOMPARE(messageOf(line), QByteArray("upnp: setsockopt: no address"));
    line = daemon.next();
    QCOMPARE(priorityOf(line), QByteArray("<178>"));
    QCOMPARE(messageOf(daemon.next()), qtversions::streamed("upnp: ip: \"10.0.0.5\""));
    QCOMPARE(daemon.next(), QByteArray());
}

void TestKeltalog::formatsAreFilledIn()
{
    LogDaemon daemon;
    Keltalog log;
    openLog(&log);
    log.msg(QtCriticalMsg, "%s: %d %%", "port", 1900);
    QCOMPARE(messageOf(daemon.next()), QByteArray("upnp: port: 1900 %"));
}

void TestKeltalog::percentSignsOfQtMessagesAreText()
{
    LogDaemon daemon;
    openLog(&kelta::keltalog);
    qWarning("%s", "100%s %n %d");
    QCOMPARE(messageOf(daemon.next()), QByteArray("upnp: 100%s %n %d"));
}

void TestKeltalog::longMessagesAreCutButSent()
{
    LogDaemon daemon;
    Keltalog log;
    openLog(&log);
    const QByteArray longText(100000, 'x');
    log.msg(QtWarningMsg, "begin %s", longText.constData());
    const QByteArray message = messageOf(daemon.next());
    QVERIFY(message.startsWith("upnp: begin xxx"));
    QVERIFY(message.size() < longText.size());
}

void TestKeltalog::messagesOfUpTo1023BytesAreWhole()
{
    LogDaemon daemon;
    Keltalog log;
    openLog(&log);
    for (int size = 1020; size < 1030; ++size) {
        log.msg(QtWarningMsg, "%s", QByteArray(size, 'x').constData());
        QCOMPARE(messageOf(daemon.next()), "upnp: " + QByteArray(qMin(size, 1023), 'x'));
    }
}

void TestKeltalog::aThousandWarningsAtOnceAreWritten()
{
    LogDaemon daemon;
    QElapsedTimer timer;
    timer.start();
    Keltalog log;
    openLog(&log);
    int written = 0;
    for (int i = 0; i < 1500; ++i) {
        log.msg(i % 2 ? QtWarningMsg : QtDebugMsg, "line %d", i);
        written += !daemon.next().isEmpty();
    }
    const int regained = int(timer.elapsed() / 5000); // one each five seconds, on a very slow machine
    QVERIFY2(written >= 1000 && written <= 1000 + regained, qPrintable(QString::number(written)));
    for (int i = 0; i < 10; ++i) {
        log.msg(QtCriticalMsg, "critical");
        QCOMPARE(messageOf(daemon.next()), QByteArray("upnp: critical"));
    }
}

static int warningsWritten(Keltalog *log, LogDaemon *daemon)
{
    int written = 0;
    for (int i = 0; i < 1200; ++i) {
        log->msg(QtWarningMsg, "line %d", i);
        written += !daemon->next().isEmpty();
    }
    return written;
}

// However long nothing was written, there are no more than a thousand at once. An hour and a half has 1,080 times five seconds.
void TestKeltalog::aWarningEachFiveSecondsIsWritten()
{
    LogDaemon daemon;
    QElapsedTimer timer;
    timer.start();
    Keltalog log;
    openLog(&log);
    const int seconds[] = { 0, 4000, 5400, 5, 50, 5400 };
    const int lines[] = { 1000, 800, 1000, 1, 10, 1000 };
    for (int i = 0; i < 6; ++i) {
        secondsPassed += seconds[i];
        const int written = warningsWritten(&log, &daemon);
        const int regained = int((timer.elapsed() - secondsPassed * 1000) / 5000); // on a very slow machine
        QVERIFY2(written >= lines[i] && written <= lines[i] + regained, qPrintable(QString::number(written)));
    }
}

void TestKeltalog::introspectionNoiseIsDropped_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<bool>("isWritten");

    QTest::newRow("skipped method") << QByteArray("Skipped method \"getUuid\" : Type not registered with QtDBus in parameter list: QHostAddress") << false;
    QTest::newRow("result type") << QByteArray("Invalid return type in method \"getAddress\" : \"QHostAddress\"") << false;
    QTest::newRow("parameter type") << QByteArray("Unregistered input type in parameter list: QHostAddress") << false;
    QTest::newRow("beginning of another parameter list") << QByteArray("Unregistered input type in parameter list:") << true;
    QTest::newRow("beginning of another result type") << QByteArray("Invalid return type in method") << true;
    QTest::newRow("same words elsewhere") << QByteArray("a Skipped method ") << true;
    QTest::newRow("other words") << QByteArray("Skipped") << true;
    QTest::newRow("empty") << QByteArray("") << true;
}

void TestKeltalog::introspectionNoiseIsDropped()
{
    QFETCH(QByteArray, message);
    QFETCH(bool, isWritten);
    LogDaemon daemon;
    openLog(&kelta::keltalog);
    qWarning("%s", message.constData());
    QCOMPARE(messageOf(daemon.next()), isWritten ? "upnp: " + message : QByteArray());
    QCOMPARE(daemon.next(), QByteArray());
}

void TestKeltalog::missingLogLosesMessages()
{
    Keltalog log;
    openLog(&log);
    log.msg(QtCriticalMsg, "lost");
    LogDaemon daemon;
    QCOMPARE(daemon.next(), QByteArray());
}

void TestKeltalog::logThatComesLaterIsFound()
{
    Keltalog log;
    openLog(&log);
    log.msg(QtCriticalMsg, "lost");
    LogDaemon daemon;
    log.msg(QtCriticalMsg, "found");
    QCOMPARE(messageOf(daemon.next()), QByteArray("upnp: found"));
}

void TestKeltalog::restartedLogIsFoundAgain()
{
    QScopedPointer<LogDaemon> daemon(new LogDaemon);
    Keltalog log;
    openLog(&log);
    for (int i = 0; i < 3; ++i) {
        log.msg(QtCriticalMsg, "run %d", i);
        QCOMPARE(messageOf(daemon->next()), "upnp: run " + QByteArray::number(i));
        daemon.reset();
        log.msg(QtCriticalMsg, "lost");
        daemon.reset(new LogDaemon);
    }
}

// Neither waits nor fails; what fitted in is there, and a log that is emptied gets lines again.
void TestKeltalog::logThatNobodyReadsLosesMessages()
{
    LogDaemon daemon;
    Keltalog log;
    openLog(&log);
    for (int i = 0; i < 10000; ++i)
        log.msg(QtCriticalMsg, "line %d", i);
    int kept = 0;
    for (QByteArray line = daemon.next(); !line.isEmpty(); line = daemon.next())
        QCOMPARE(messageOf(line), "upnp: line " + QByteArray::number(kept++));
    QVERIFY(kept > 0);
    QVERIFY(kept < 10000);
    log.msg(QtCriticalMsg, "again");
    QCOMPARE(messageOf(daemon.next()), QByteArray("upnp: again"));
}

void TestKeltalog::streamLogGetsZeroBytesBetweenLines()
{
    LogDaemon daemon(SOCK_STREAM);
    SyslogSocket socket;
    socket.send("<180>first");
    socket.send("<180>second");
    QCOMPARE(daemon.next(), QByteArray("<180>first\0<180>second\0", 23));
}

static int lowestFreeDescriptor()
{
    const int number = dup(STDIN_FILENO);
    close(number);
    return number;
}

// It is tried with a datagram socket first.
void TestKeltalog::streamLogLeavesNoDescriptorOpen()
{
    LogDaemon daemon(SOCK_STREAM);
    const int before = lowestFreeDescriptor();
    {
        SyslogSocket socket;
        socket.send("<180>first");
        QVERIFY(lowestFreeDescriptor() > before);
    }
    QCOMPARE(lowestFreeDescriptor(), before);
}

void TestKeltalog::streamLogThatGoesAwayEndsNothing()
{
    signal(SIGPIPE, SIG_DFL);
    SyslogSocket socket;
    {
        LogDaemon daemon(SOCK_STREAM);
        socket.send("<180>first");
        QCOMPARE(daemon.next(), QByteArray("<180>first\0", 11));
    }
    socket.send("<180>lost");
    socket.send("<180>lost");
    LogDaemon daemon(SOCK_STREAM);
    socket.send("<180>next");
    QCOMPARE(daemon.next(), QByteArray("<180>next\0", 10));
}

void TestKeltalog::streamLogThatNobodyReadsKeepsItsConnection()
{
    LogDaemon daemon(SOCK_STREAM);
    SyslogSocket socket;
    for (int i = 0; i < 10000; ++i)
        socket.send("<180>" + QByteArray(100, 'x'));
    int read = 0;
    for (QByteArray bytes = daemon.next(); !bytes.isEmpty(); bytes = daemon.next())
        read += bytes.size();
    QVERIFY(read > 0 && read < 10000 * 106);
    socket.send("<180>again");
    QVERIFY(daemon.next().endsWith(QByteArray("<180>again\0", 11)));
}

void TestKeltalog::errorFromBeforeIsNoneOfTheSocket()
{
    LogDaemon daemon;
    SyslogSocket socket;
    errno = EPROTOTYPE; // as for a log that takes streams
    socket.send("<180>first");
    QCOMPARE(daemon.next(), QByteArray("<180>first"));
}

void TestKeltalog::socketWithoutALogLeavesOtherDescriptorsAlone()
{
    const int null = open("/dev/null", O_RDONLY);
    QCOMPARE(dup2(null, STDIN_FILENO), STDIN_FILENO);
    {
        SyslogSocket unused;
        SyslogSocket socket;
        socket.send("<180>lost");
        socket.send("<180>lost");
    }
    QVERIFY(fcntl(STDIN_FILENO, F_GETFD) != -1);
    close(null);
}

void TestKeltalog::socketSendsTheBytesAsTheyAre()
{
    LogDaemon daemon;
    SyslogSocket socket;
    const QByteArray line("<180>\xe9 100%\tx", 13);
    socket.send(line);
    QVERIFY(compareBytes(daemon.next(), line));
    QCOMPARE(daemon.next(), QByteArray());
}

void TestKeltalog::lineLongerThanADatagramIsLostAlone()
{
    LogDaemon daemon;
    SyslogSocket socket;
    socket.send(QByteArray(4 * 1024 * 1024, 'x'));
    socket.send("<180>next");
    QCOMPARE(daemon.next(), QByteArray("<180>next"));
}

void TestKeltalog::thresholdHoldsForQtMessages()
{
    LogDaemon daemon;
    openLog(&kelta::keltalog);
    kelta::keltalog.setSyslogLevelWarning();
    qDebug("not written");
    qWarning("written");
    QCOMPARE(messageOf(daemon.next()), QByteArray("upnp: written"));
    QCOMPARE(daemon.next(), QByteArray());
}

QTEST_APPLESS_MAIN(TestKeltalog)

#include "tst_keltalog.moc"
