#include "bytes.h"
#include "devicetest.h"
#include "eventloop.h"
#include "fakeclock.h"
#include "zorvdevice.h"

#include <QtTest/QtTest>

// How long a device stays known, and what an update changes.
class TestZorvDeviceExpiration : public DeviceTest
{
    Q_OBJECT

private slots:
    void staysForThreeTimesItsExpiration_data();
    void staysForThreeTimesItsExpiration();
    void expirationOfWhatHoldsNoValues_data();
    void expirationOfWhatHoldsNoValues();
    void unusableAnnouncementIsDeletedInTheEventLoop_data();
    void unusableAnnouncementIsDeletedInTheEventLoop();
    void expiredDeviceIsDeletedInTheEventLoopOnly();
    void wholeSecondsCount();
    void clockThatGoesBackExpiresNothing();
    void updateSetsTheTimeAnew();
    void updateKeepsTheExpirationOfTheFirst_data();
    void updateKeepsTheExpirationOfTheFirst();
    void unusableDeviceIsRefreshedUntilTheEventLoop();
    void updateReplacesTextAndValues();
    void refreshedTextThatDoesNotParseHasNoValues();
};

void TestZorvDeviceExpiration::staysForThreeTimesItsExpiration_data()
{
    QTest::addColumn<QByteArray>("expiration");
    QTest::addColumn<qint64>("seconds");
    QTest::newRow("22 stays for 66 seconds") << QByteArray("22") << Q_INT64_C(66);
    QTest::newRow("1") << QByteArray("1") << Q_INT64_C(3);
    QTest::newRow("zero") << QByteArray("0") << Q_INT64_C(0);
    QTest::newRow("plus sign") << QByteArray("+7") << Q_INT64_C(21);
    QTest::newRow("22.0 is a whole number") << QByteArray("22.0") << Q_INT64_C(66);
    QTest::newRow("1e1 is a whole number") << QByteArray("1e1") << Q_INT64_C(30);
    QTest::newRow("1e6 is a whole number") << QByteArray("1e6") << Q_INT64_C(3000000);
    QTest::newRow("too large for a double reads as zero") << QByteArray("1e400") << Q_INT64_C(0);
    QTest::newRow("64 bits wrap around") << QByteArray("18446744073709551638") << Q_INT64_C(66);
    QTest::newRow("a text of digits") << QByteArray("\"22\"") << Q_INT64_C(66);
    QTest::newRow("leading zeros are decimal") << QByteArray("\"022\"") << Q_INT64_C(66);
    QTest::newRow("the last of repeated keys") << QByteArray("5,\"expiration\":7") << Q_INT64_C(21);
    if (sizeof(time_t) < sizeof(qint64))
        return; // the clock ends before
    QTest::newRow("largest that three times fits an int") << QByteArray("715827882") << Q_INT64_C(2147483646);
    QTest::newRow("three times does not fit an int") << QByteArray("715827883") << Q_INT64_C(2147483647);
    QTest::newRow("largest int") << QByteArray("2147483647") << Q_INT64_C(2147483647);
}

void TestZorvDeviceExpiration::staysForThreeTimesItsExpiration()
{
    QFETCH(QByteArray, expiration);
    QFETCH(qint64, seconds);
    make(announcing(expiration));
    reachEventLoop();
    QVERIFY(m_device);
    fakeclock::advance(seconds * 1000);
    m_device->checkExpired();
    reachEventLoop();
    QVERIFY(m_device);
    fakeclock::advance(1000);
    m_device->checkExpired();
    reachEventLoop();
    QVERIFY(!m_device);
}

// It is looked up like every value, so it is also found where there is one value in place of an object.
void TestZorvDeviceExpiration::expirationOfWhatHoldsNoValues_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("params is a number") << QByteArray("{\"params\":22}");
    QTest::newRow("params is a text") << QByteArray("{\"params\":\"22\"}");
}

void TestZorvDeviceExpiration::expirationOfWhatHoldsNoValues()
{
    QFETCH(QByteArray, json);
    make(json);
    reachEventLoop();
    QVERIFY(m_device);
    fakeclock::advance(66999);
    m_device->checkExpired();
    reachEventLoop();
    QVERIFY(m_device);
    fakeclock::advance(1);
    m_device->checkExpired();
    reachEventLoop();
    QVERIFY(!m_device);
}

void TestZorvDeviceExpiration::unusableAnnouncementIsDeletedInTheEventLoop_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("fraction 6.6") << announcing("6.6");
    QTest::newRow("fraction 2.2") << announcing("2.2");
    QTest::newRow("text of a fraction") << announcing("\"6.6\"");
    QTest::newRow("word") << announcing("\"soon\"");
    QTest::newRow("empty text") << announcing("\"\"");
    QTest::newRow("hexadecimal text") << announcing("\"0x16\"");
    QTest::newRow("number and unit") << announcing("\"22 s\"");
    QTest::newRow("null") << announcing("null");
    QTest::newRow("true") << announcing("true");
    QTest::newRow("empty list") << announcing("[]");
    QTest::newRow("list") << announcing("[22]");
    QTest::newRow("empty object") << announcing("{}");
    QTest::newRow("object") << announcing("{\"expiration\":22}");
    QTest::newRow("one more than an int") << announcing("2147483648");
    QTest::newRow("one less than an int") << announcing("-2147483649");
    QTest::newRow("1e20") << announcing("1e20");
    QTest::newRow("missing") << QByteArray("{\"params\":{\"uuid\":\"A\"}}");
    QTest::newRow("outside of params") << QByteArray("{\"expiration\":22,\"params\":{}}");
    QTest::newRow("other case") << QByteArray("{\"params\":{\"Expiration\":22}}");
    QTest::newRow("params is a word") << QByteArray("{\"params\":\"soon\"}");
    QTest::newRow("params is null") << QByteArray("{\"params\":null}");
    QTest::newRow("params is an empty object") << QByteArray("{\"params\":{}}");
    QTest::newRow("params is an empty list") << QByteArray("{\"params\":[]}");
    QTest::newRow("params is a list of a number") << QByteArray("{\"params\":[22]}");
    QTest::newRow("params is a list of objects") << QByteArray("{\"params\":[{\"expiration\":22}]}");
    QTest::newRow("no object") << QByteArray("22");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("cut off") << QByteArray("{\"params\":{\"expiration\":22}");
    QTest::newRow("cut within an escape") << QByteArray("{\"params\":{\"expiration\":22},\"x\":\"\\u00");
    QTest::newRow("one brace too many") << announcing("22") + '}';
    QTest::newRow("NUL behind the end") << announcing("22") + QByteArray(1, '\0');
    QTest::newRow("64,000 opened lists") << announcing(QByteArray(64000, '['));
    QTest::newRow("32,000 nested lists") << announcing(QByteArray(32000, '[') + QByteArray(32000, ']'));
}

void TestZorvDeviceExpiration::unusableAnnouncementIsDeletedInTheEventLoop()
{
    QFETCH(QByteArray, json);
    make(json);
    QVERIFY(m_device);
    QCOMPARE(m_device->rawJson(), QString::fromLatin1(json.constData()));
    reachEventLoop();
    QVERIFY(!m_device);
}

void TestZorvDeviceExpiration::expiredDeviceIsDeletedInTheEventLoopOnly()
{
    make(announcing("1"));
    fakeclock::advance(4000);
    m_device->checkExpired();
    m_device->checkExpired();
    QVERIFY(m_device);
    QCOMPARE(m_device->jsonValue(text("params/expiration")), text("1"));
    reachEventLoop();
    QVERIFY(!m_device);
}

void TestZorvDeviceExpiration::wholeSecondsCount()
{
    make(announcing("22"));
    fakeclock::advance(66999);
    m_device->checkExpired();
    reachEventLoop();
    QVERIFY(m_device);
    fakeclock::advance(1);
    m_device->checkExpired();
    reachEventLoop();
    QVERIFY(!m_device);
}

void TestZorvDeviceExpiration::clockThatGoesBackExpiresNothing()
{
    make(announcing("0"));
    fakeclock::advance(-3600000);
    m_device->checkExpired();
    reachEventLoop();
    QVERIFY(m_device);

    make(announcing("-1"));
    m_device->checkExpired();
    reachEventLoop();
    QVERIFY2(!m_device, "a negative expiration is over at once");
}

void TestZorvDeviceExpiration::updateSetsTheTimeAnew()
{
    make(announcing("22"));
    fakeclock::advance(60000);
    m_device->update(announcing("22"));
    fakeclock::advance(66000);
    m_device->checkExpired();
    reachEventLoop();
    QVERIFY(m_device);
    fakeclock::advance(1000);
    m_device->checkExpired();
    reachEventLoop();
    QVERIFY(!m_device);
}

void TestZorvDeviceExpiration::updateKeepsTheExpirationOfTheFirst_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("longer") << announcing("1000");
    QTest::newRow("shorter") << announcing("1");
    QTest::newRow("fraction") << announcing("6.6");
    QTest::newRow("missing") << QByteArray("{\"params\":{}}");
    QTest::newRow("does not parse") << QByteArray("{\"params\":");
    QTest::newRow("empty") << QByteArray();
}

void TestZorvDeviceExpiration::updateKeepsTheExpirationOfTheFirst()
{
    QFETCH(QByteArray, json);
    make(announcing("22"));
    m_device->update(json);
    reachEventLoop();
    QVERIFY(m_device);
    fakeclock::advance(66000);
    m_device->checkExpired();
    reachEventLoop();
    QVERIFY(m_device);
    fakeclock::advance(1000);
    m_device->checkExpired();
    reachEventLoop();
    QVERIFY(!m_device);
}

void TestZorvDeviceExpiration::unusableDeviceIsRefreshedUntilTheEventLoop()
{
    make(announcing("6.6"));
    m_device->update(announcing("22"));
    QCOMPARE(m_device->jsonValue(text("params/expiration")), text("22"));
    reachEventLoop();
    QVERIFY(!m_device);
}

void TestZorvDeviceExpiration::updateReplacesTextAndValues()
{
    make("{\"params\":{\"expiration\":22,\"x\":\"old\"}}");
    QCOMPARE(m_device->jsonValue(text("params/x")), text("old"));
    const QByteArray next("{\"params\":{\"expiration\":22,\"x\":\"new\"}}");
    m_device->update(next);
    QCOMPARE(m_device->rawJson(), text(next.constData()));
    QCOMPARE(m_device->jsonValue(text("params/x")), text("new"));
}

void TestZorvDeviceExpiration::refreshedTextThatDoesNotParseHasNoValues()
{
    make(announcing("22"));
    QCOMPARE(m_device->jsonValue(text("params/expiration")), text("22"));
    m_device->update("{\"params\":{\"expiration\":22");
    QVERIFY(m_device->value(text("params")).toMap().isEmpty());
    QCOMPARE(m_device->jsonValue(text("params/expiration")), QString());
    QCOMPARE(m_device->rawJson(), text("{\"params\":{\"expiration\":22"));
    m_device->update(announcing("23"));
    QCOMPARE(m_device->jsonValue(text("params/expiration")), text("23"));
}

QTEST_MAIN(TestZorvDeviceExpiration)
#include "tst_zorvdevice_expiration.moc"
