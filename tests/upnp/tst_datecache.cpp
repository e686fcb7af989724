#include "datecache.h"

#include "fakeclock.h"

#include <QtTest/QtTest>

static int formatted = 0;

static QByteArray countedText(qint64 time)
{
    ++formatted;
    return QDateTime::fromMSecsSinceEpoch(time).toString(QLatin1String("yyyy-MM-dd hh:mm:ss")).toLatin1();
}

static QByteArray noText(qint64)
{
    ++formatted;
    return QByteArray();
}

static QByteArray secondOfNow(qint64 time)
{
    return QByteArray::number(time / 1000);
}

static const qint64 moment = Q_INT64_C(1772625787) * 1000;

class TestDateCache : public QObject
{
    Q_OBJECT

private slots:
    void init() { formatted = 0; }

    void textIsMadeOncePerSecond();
    void nextSecondHasAnotherText();
    void clockThatJumpsIsFollowed_data();
    void clockThatJumpsIsFollowed();
    void firstSecondOf1970IsFormattedToo();
    void nowFollowsTheWallClock_data();
    void nowFollowsTheWallClock();
};

void TestDateCache::textIsMadeOncePerSecond()
{
    DateCache date(countedText);
    const QByteArray first = date.at(moment);
    for (int millisecond = 1; millisecond < 1000; ++millisecond)
        QCOMPARE(date.at(moment + millisecond), first);
    QCOMPARE(formatted, 1);
    QCOMPARE(first, countedText(moment));
}

void TestDateCache::nextSecondHasAnotherText()
{
    DateCache date(countedText);
    QCOMPARE(date.at(moment + 999), countedText(moment));
    QCOMPARE(date.at(moment + 1000), countedText(moment + 1000));
    QVERIFY(countedText(moment) != countedText(moment + 1000));
}

void TestDateCache::clockThatJumpsIsFollowed_data()
{
    QTest::addColumn<qint64>("jump");

    QTest::newRow("a day forwards") << Q_INT64_C(86400000);
    QTest::newRow("a day backwards") << -Q_INT64_C(86400000);
    QTest::newRow("a second backwards") << -Q_INT64_C(1000);
    QTest::newRow("to 1970") << -moment;
}

void TestDateCache::clockThatJumpsIsFollowed()
{
    QFETCH(qint64, jump);
    DateCache date(countedText);
    date.at(moment);
    QCOMPARE(date.at(moment + jump), countedText(moment + jump));
    QCOMPARE(date.at(moment), countedText(moment));
}

void TestDateCache::firstSecondOf1970IsFormattedToo()
{
    DateCache date(countedText);
    QCOMPARE(date.at(0), countedText(0));
    DateCache empty(noText);
    QCOMPARE(empty.at(0), QByteArray());
}

void TestDateCache::nowFollowsTheWallClock_data()
{
    QTest::addColumn<qint64>("passed");

    QTest::newRow("a second") << Q_INT64_C(1000);
    QTest::newRow("a day") << Q_INT64_C(86400000);
    QTest::newRow("a day backwards") << -Q_INT64_C(86400000);
}

void TestDateCache::nowFollowsTheWallClock()
{
    QFETCH(qint64, passed);
    DateCache date(secondOfNow);
    QCOMPARE(date.now(), secondOfNow(fakeclock::milliseconds));
    fakeclock::advance(passed);
    QCOMPARE(date.now(), secondOfNow(fakeclock::milliseconds));
}

QTEST_APPLESS_MAIN(TestDateCache)

#include "tst_datecache.moc"
