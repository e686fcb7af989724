#include "monitor.h"

#include "fakeclock.h"
#include "qtversions.h"
#include "waitfor.h"

#include <QtTest/QtTest>

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

// What a signal tells: "appeared|changed|gone|more"
static QString told(const QList<QVariant> &signal)
{
    QStringList parts;
    for (int i = 0; i < 3; ++i)
        parts << signal.at(i).toStringList().join(latin1(","));
    parts << QString::number(signal.at(3).toUInt());
    return parts.join(latin1("|"));
}

// Without the objects that count: what they count, the black-box tests see.
class TestMonitor : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void noTimerRunsBeforeSomethingChanges();
    void everyKindOfChangeIsTold_data();
    void everyKindOfChangeIsTold();
    void noTimerRunsOnceTheChangesAreTold();
    void changesAreToldAfterASecond();
    void furtherChangesDoNotPutTheSignalOff();
    void eachSignalTellsOfItsOwnSecond();
    void changesThatUndoEachOtherAreNotTold();
    void sinceIsThePresentTimeLessTheTimeThatItRuns();
    void sinceIsNeverBefore1970();

private:
    QString nextSignal();

    QScopedPointer<Monitor> m_monitor;
    QScopedPointer<QSignalSpy> m_signals;
};

void TestMonitor::init()
{
    m_monitor.reset(new Monitor(nullptr, nullptr, nullptr, nullptr));
    m_signals.reset(new QSignalSpy(m_monitor.data(), SIGNAL(DevicesChanged(QStringList, QStringList, QStringList, uint))));
}

// What is told when the second is over.
QString TestMonitor::nextSignal()
{
    QTimerEvent event(0);
    QCoreApplication::sendEvent(m_monitor.data(), &event);
    return m_signals->size() == 1 ? told(m_signals->takeFirst()) : QString::number(m_signals->size()) + latin1(" signals");
}

void TestMonitor::noTimerRunsBeforeSomethingChanges()
{
    QCOMPARE(qtversions::timerPeriods(m_monitor.data()), QList<int>());
}

void TestMonitor::everyKindOfChangeIsTold_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("signal");
    QTest::newRow("appeared") << 0 << latin1("x|||0");
    QTest::newRow("changed") << 1 << latin1("|x||0");
    QTest::newRow("gone") << 2 << latin1("||x|0");
}

void TestMonitor::everyKindOfChangeIsTold()
{
    QFETCH(int, kind);
    if (kind == 0)
        m_monitor->deviceAppeared(latin1("x"));
    else if (kind == 1)
        m_monitor->deviceChanged(latin1("x"));
    else
        m_monitor->deviceGone(latin1("x"));
    QCOMPARE(qtversions::exactTimerPeriods(m_monitor.data()), QList<int>() << 1000);
    QTEST(nextSignal(), "signal");
}

void TestMonitor::noTimerRunsOnceTheChangesAreTold()
{
    for (int i = 0; i < 2; ++i) {
        m_monitor->deviceAppeared(latin1("x"));
        QCOMPARE(qtversions::timerPeriods(m_monitor.data()), QList<int>() << 1000);
        QCOMPARE(nextSignal(), latin1("x|||0"));
        QCOMPARE(qtversions::timerPeriods(m_monitor.data()), QList<int>());
    }
}

void TestMonitor::changesAreToldAfterASecond()
{
    QElapsedTimer timer;
    timer.start();
    m_monitor->deviceAppeared(latin1("x"));
    QVERIFY(waitFor([this] { return !m_signals->isEmpty(); }));
    QVERIFY(timer.elapsed() >= 999); // Qt counts whole milliseconds
    QCOMPARE(told(m_signals->at(0)), latin1("x|||0"));
    QCOMPARE(qtversions::timerPeriods(m_monitor.data()), QList<int>());
}

void TestMonitor::furtherChangesDoNotPutTheSignalOff()
{
    m_monitor->deviceAppeared(latin1("x"));
    m_monitor->deviceChanged(latin1("y"));
    m_monitor->deviceGone(latin1("z"));
    QCOMPARE(qtversions::timerPeriods(m_monitor.data()), QList<int>() << 1000);
    QCOMPARE(nextSignal(), latin1("x|y|z|0"));
}

void TestMonitor::eachSignalTellsOfItsOwnSecond()
{
    m_monitor->deviceAppeared(QString(256, QLatin1Char('x')));
    QCOMPARE(nextSignal(), latin1("|||1"));
    m_monitor->deviceGone(latin1("y"));
    QCOMPARE(nextSignal(), latin1("||y|0"));
}

void TestMonitor::changesThatUndoEachOtherAreNotTold()
{
    m_monitor->deviceAppeared(latin1("x"));
    m_monitor->deviceGone(latin1("x"));
    QCOMPARE(nextSignal(), latin1("0 signals"));
    QCOMPARE(qtversions::timerPeriods(m_monitor.data()), QList<int>());
}

// The wall clock stands still here, and the time that the monitor runs goes on.
void TestMonitor::sinceIsThePresentTimeLessTheTimeThatItRuns()
{
    QElapsedTimer longer;
    longer.start();
    m_monitor.reset(new Monitor(nullptr, nullptr, nullptr, nullptr));
    QElapsedTimer shorter;
    shorter.start();
    QTest::qSleep(1500);
    const qint64 least = shorter.elapsed();
    const qint64 since = qint64(m_monitor->since());
    const qint64 most = longer.elapsed();
    QVERIFY(since <= (fakeclock::milliseconds - least) / 1000);
    QVERIFY(since >= (fakeclock::milliseconds - most) / 1000);
}

void TestMonitor::sinceIsNeverBefore1970()
{
    const qint64 now = fakeclock::milliseconds;
    fakeclock::milliseconds = 0;
    QTest::qSleep(1100); // it has run longer than the clock says
    const qulonglong since = m_monitor->since();
    fakeclock::milliseconds = now;
    QCOMPARE(since, Q_UINT64_C(0));
}

QTEST_MAIN(TestMonitor)
#include "tst_monitor.moc"
