#include "descriptorlimit.h"

#include "bytes.h"
#include "caughtlog.h"
#include "qtversions.h"

#include <QtTest/QtTest>

#include <sys/resource.h>

class TestDescriptorLimit : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void limitIsThatOfTheEventLoop_data();
    void limitIsThatOfTheEventLoop();
    void hardLimitStays();

private:
    struct rlimit m_before;
};

void TestDescriptorLimit::init()
{
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &m_before), 0);
    if (m_before.rlim_max < 4096)
        SKIP("the machine gives too few descriptors");
}

void TestDescriptorLimit::cleanup()
{
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &m_before), 0);
}

static rlim_t softLimitFrom(rlim_t before, rlim_t hard)
{
    struct rlimit limit = { before, hard };
    setrlimit(RLIMIT_NOFILE, &limit);
    limitDescriptorsToEventLoop();
    getrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur;
}

void TestDescriptorLimit::limitIsThatOfTheEventLoop_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("withSelect"); // what an event loop with select() makes of it

    QTest::newRow("few") << 64 << 64;
    QTest::newRow("as many as select() knows") << 1024 << 1024;
    QTest::newRow("one more") << 1025 << 1024;
    QTest::newRow("many") << 4096 << 1024;
}

void TestDescriptorLimit::limitIsThatOfTheEventLoop()
{
    QFETCH(int, before);
    QFETCH(int, withSelect);
    CaughtLog log;
    QCOMPARE(int(softLimitFrom(rlim_t(before), m_before.rlim_max)), qtversions::hasEventLoopWithSelect() ? withSelect : before);
    QCOMPARE(log.warnings(), QStringList());
}

void TestDescriptorLimit::hardLimitStays()
{
    softLimitFrom(4096, m_before.rlim_max);
    struct rlimit after = {};
    getrlimit(RLIMIT_NOFILE, &after);
    QVERIFY(after.rlim_max == m_before.rlim_max);
}

QTEST_APPLESS_MAIN(TestDescriptorLimit)
#include "tst_descriptorlimit.moc"
