#include "dbusvalue.h"
#include "fakeclock.h"
#include "zorvdevice.h"

#include <QtCore/QPointer>
#include <QtTest/QtTest>

static const int defaultExpiration = 10;

// Runs what deleteLater() has left for the event loop.
static void reachEventLoop()
{
    QCoreApplication::sendPostedEvents(0, QEvent::DeferredDelete);
}

static QByteArray announcing(const QByteArray &expiration)
{
    return "{\"params\":{\"device\":{\"uuid\":\"A\"},\"expiration\":" + expiration + "}}";
}

static QString repeated(const char *text, int times)
{
    return QString::fromLatin1(text).repeated(times);
}

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

class tst_ZorvDevice : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

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

    void value_data();
    void value();
    void jsonValue_data();
    void jsonValue();
    void deepListsAreWalkedToTheirEnd();
    void longPathsFinishAtOnce_data();
    void longPathsFinishAtOnce();
    void textThatParsesToNoObjectHasNoValues();
    void rawJsonEndsAtTheFirstNul();
    void rawJsonIsReadAsLatin1();
    void encodingsOfTheAnnouncement();

    void summaryFollowsTheAnnouncement();
    void summaryOfWhatHoldsNoValues_data();
    void summaryOfWhatHoldsNoValues();
    void summaryOfAPlainValue_data();
    void summaryOfAPlainValue();
    void familyTypeIsTheAnnouncedOne_data();
    void familyTypeIsTheAnnouncedOne();
    void summaryTellsItsSize();
    void moreSummariesAndValuesThanAreKept();
    void whatIsAskedForAgainIsKeptHoweverOftenTheTextHasChanged();

    void nameIsTheUuid();
    void methodsOfTheInterface();

private:
    ZorvDevice *make(const QByteArray &json);
    QPointer<ZorvDevice> m_device;
    QObject *m_owner;
};

void tst_ZorvDevice::init()
{
    m_owner = new QObject;
}

void tst_ZorvDevice::cleanup()
{
    delete m_owner;
}

ZorvDevice *tst_ZorvDevice::make(const QByteArray &json)
{
    m_device = new ZorvDevice(latin1("A"), json, defaultExpiration, m_owner);
    return m_device;
}

void tst_ZorvDevice::staysForThreeTimesItsExpiration_data()
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

void tst_ZorvDevice::staysForThreeTimesItsExpiration()
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
void tst_ZorvDevice::expirationOfWhatHoldsNoValues_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("params is a number") << QByteArray("{\"params\":22}");
    QTest::newRow("params is a text") << QByteArray("{\"params\":\"22\"}");
}

void tst_ZorvDevice::expirationOfWhatHoldsNoValues()
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

void tst_ZorvDevice::unusableAnnouncementIsDeletedInTheEventLoop_data()
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

void tst_ZorvDevice::unusableAnnouncementIsDeletedInTheEventLoop()
{
    QFETCH(QByteArray, json);
    make(json);
    QVERIFY(m_device);
    QCOMPARE(m_device->rawJson(), QString::fromLatin1(json.constData()));
    reachEventLoop();
    QVERIFY(!m_device);
}

void tst_ZorvDevice::expiredDeviceIsDeletedInTheEventLoopOnly()
{
    make(announcing("1"));
    fakeclock::advance(4000);
    m_device->checkExpired();
    m_device->checkExpired();
    QVERIFY(m_device);
    QCOMPARE(m_device->jsonValue(latin1("params/expiration")), latin1("1"));
    reachEventLoop();
    QVERIFY(!m_device);
}

void tst_ZorvDevice::wholeSecondsCount()
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

void tst_ZorvDevice::clockThatGoesBackExpiresNothing()
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

void tst_ZorvDevice::updateSetsTheTimeAnew()
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

void tst_ZorvDevice::updateKeepsTheExpirationOfTheFirst_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("longer") << announcing("1000");
    QTest::newRow("shorter") << announcing("1");
    QTest::newRow("fraction") << announcing("6.6");
    QTest::newRow("missing") << QByteArray("{\"params\":{}}");
    QTest::newRow("does not parse") << QByteArray("{\"params\":");
    QTest::newRow("empty") << QByteArray();
}

void tst_ZorvDevice::updateKeepsTheExpirationOfTheFirst()
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

void tst_ZorvDevice::unusableDeviceIsRefreshedUntilTheEventLoop()
{
    make(announcing("6.6"));
    m_device->update(announcing("22"));
    QCOMPARE(m_device->jsonValue(latin1("params/expiration")), latin1("22"));
    reachEventLoop();
    QVERIFY(!m_device);
}

void tst_ZorvDevice::updateReplacesTextAndValues()
{
    make("{\"params\":{\"expiration\":22,\"x\":\"old\"}}");
    QCOMPARE(m_device->jsonValue(latin1("params/x")), latin1("old"));
    const QByteArray next("{\"params\":{\"expiration\":22,\"x\":\"new\"}}");
    m_device->update(next);
    QCOMPARE(m_device->rawJson(), latin1(next.constData()));
    QCOMPARE(m_device->jsonValue(latin1("params/x")), latin1("new"));
}

void tst_ZorvDevice::refreshedTextThatDoesNotParseHasNoValues()
{
    make(announcing("22"));
    QCOMPARE(m_device->jsonValue(latin1("params/expiration")), latin1("22"));
    m_device->update("{\"params\":{\"expiration\":22");
    QVERIFY(m_device->value(latin1("params")).toMap().isEmpty());
    QCOMPARE(m_device->jsonValue(latin1("params/expiration")), QString());
    QCOMPARE(m_device->rawJson(), latin1("{\"params\":{\"expiration\":22"));
    m_device->update(announcing("23"));
    QCOMPARE(m_device->jsonValue(latin1("params/expiration")), latin1("23"));
}

static const char document[] = "{\"params\":{\"expiration\":22,"
                               "\"text\":\"t\",\"yes\":true,\"no\":false,\"nothing\":null,\"large\":9007199254740993,\"third\":0.1,"
                               "\"none\":[],\"void\":{},\"\":{\"\":\"empty\",\"k\":\"below\"},"
                               "\"device\":{\"name\":\"kelta\"},"
                               "\"list\":[{\"zz\":1,\"w\":{\"vv\":2}},{\"zz\":\"x\"},{\"other\":0}],"
                               "\"lists\":[[{\"zz\":1},{\"zz\":2}],[{\"zz\":3}]],"
                               "\"numbers\":[5,\"6\"],\"holes\":[[],{},null],"
                               "\"bb\":{\"b\":[{\"bb\":{\"b\":{\"b\":1}}},{\"b\":2}]},"
                               "\"q\":[{\"arams\":{\"q\":{\"a\":5}}},{\"a\":1}],"
                               "\"e\":[{\"params\":{\"e\":{\"\":9}}},{\"\":1}],"
                               "\"l\":[{\"w\":[{\"a\":1,\"arams\":{\"l\":{\"w\":{\"a\":2}}}}]}],"
                               "\"x/y\":\"unreachable\""
                               "}}";

static QVariantList list(const QVariant &element)
{
    QVariantList result;
    result.append(element);
    return result;
}

void tst_ZorvDevice::value_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QVariant>("expected");
    const QVariant none;
    QVariantMap device;
    device.insert(latin1("name"), latin1("kelta"));
    QTest::newRow("text") << latin1("params/device/name") << QVariant(latin1("kelta"));
    QTest::newRow("number") << latin1("params/expiration") << QVariant(Q_INT64_C(22));
    QTest::newRow("object") << latin1("params/device") << QVariant(device);
    QTest::newRow("null") << latin1("params/nothing") << none;
    QTest::newRow("no such key") << latin1("params/device/serial") << none;
    QTest::newRow("no such key in the middle") << latin1("params/nobody/name") << none;
    QTest::newRow("keys are case-sensitive") << latin1("params/Device/name") << none;
    QTest::newRow("empty path") << QString() << none;
    QTest::newRow("behind a null") << latin1("params/nothing/x") << none;
    QTest::newRow("slash at the beginning") << latin1("/params/text") << none;
    QTest::newRow("empty parts are keys") << latin1("params//") << QVariant(latin1("empty"));
    QTest::newRow("empty part in the middle") << latin1("params//k") << QVariant(latin1("below"));
    QTest::newRow("a key with a slash cannot be named") << latin1("params/x/y") << none;

    QTest::newRow("empty object") << latin1("params/void") << QVariant(QVariantMap());
    QTest::newRow("empty list") << latin1("params/none") << QVariant(QVariantList());
    QTest::newRow("behind an empty object") << latin1("params/void/x/y") << QVariant(QVariantMap());
    QTest::newRow("behind an empty list") << latin1("params/none/x") << none;
    QTest::newRow("behind an empty list, a slash only") << latin1("params/none/") << none;
    QTest::newRow("behind a text") << latin1("params/text/x") << QVariant(latin1("t"));
    QTest::newRow("behind a number") << latin1("params/expiration/x/y/") << QVariant(Q_INT64_C(22));
    QTest::newRow("behind false") << latin1("params/no/x") << QVariant(false);
    QTest::newRow("longer than the announcement") << latin1("params/text/") + repeated("x/", 5000) << QVariant(latin1("t"));
    QTest::newRow("a key longer than the announcement") << latin1("params/") + repeated("x", 5000) << none;
    QTest::newRow("a key longer than the announcement, behind a text") << latin1("params/text/") + repeated("x", 5000)
                                                                       << QVariant(latin1("t"));

    const QVariant one(Q_INT64_C(1));
    const QVariant two(Q_INT64_C(2));
    QTest::newRow("through a list") << latin1("params/list/zz") << QVariant(QVariantList() << one << latin1("x") << none);
    QTest::newRow("through a list, two parts") << latin1("params/list/w/vv") << QVariant(QVariantList() << two << none << none);
    QTest::newRow("through lists of lists") << latin1("params/lists/zz")
                                            << QVariant(list(QVariantList() << one << two) + list(list(Q_INT64_C(3))));
    QTest::newRow("through a list of plain values") << latin1("params/numbers/zz")
                                                    << QVariant(QVariantList() << Q_INT64_C(5) << latin1("6"));
    QTest::newRow("through a list, longer than the announcement") << latin1("params/numbers/zz/") + repeated("x", 5000)
                                                                  << QVariant(QVariantList() << Q_INT64_C(5) << latin1("6"));
    QTest::newRow("through a list by a key longer than the announcement") << latin1("params/list/") + repeated("x", 5000)
                                                                          << QVariant(QVariantList() << none << none << none);
    QTest::newRow("through a list of empty lists and objects") << latin1("params/holes/zz")
                                                               << QVariant(QVariantList() << none << QVariant(QVariantMap()) << none);
    // Behind a list, the elements are asked for the path from the first place on where it has the part's text.
    QTest::newRow("the part occurs earlier, in another part") << latin1("params/bb/b/b") << QVariant(QVariantList() << one << none);
    QTest::newRow("the part occurs earlier, within a word") << latin1("params/q/a") << QVariant(QVariantList() << Q_INT64_C(5) << none);
    QTest::newRow("in a list in a list, the part occurs before the first list") << latin1("params/l/w/a") << QVariant(list(list(Q_INT64_C(1))));
    QTest::newRow("an empty part occurs at the beginning") << latin1("params/e/") << QVariant(QVariantList() << Q_INT64_C(9) << none);
}

void tst_ZorvDevice::value()
{
    QFETCH(QString, path);
    QFETCH(QVariant, expected);
    make(document);
    const QVariant got = m_device->value(path);
    QCOMPARE(got.userType(), expected.userType());
    QCOMPARE(got, expected);
    QCOMPARE(m_device->value(path), expected);
}

void tst_ZorvDevice::jsonValue_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    QTest::newRow("text") << latin1("params/text") << latin1("t");
    QTest::newRow("number") << latin1("params/expiration") << latin1("22");
    QTest::newRow("more than a double holds") << latin1("params/large") << latin1("9007199254740993");
    QTest::newRow("fraction") << latin1("params/third") << latin1("0.1");
    QTest::newRow("true") << latin1("params/yes") << latin1("true");
    QTest::newRow("false") << latin1("params/no") << latin1("false");
    QTest::newRow("null") << latin1("params/nothing") << QString();
    QTest::newRow("object") << latin1("params/device") << QString();
    QTest::newRow("list") << latin1("params/list") << QString();
    QTest::newRow("through a list") << latin1("params/list/zz") << QString();
    QTest::newRow("through a list of numbers") << latin1("params/numbers/zz") << QString();
    QTest::newRow("behind an empty list") << latin1("params/none/x") << QString();
    QTest::newRow("behind an empty object") << latin1("params/void/x") << QString();
    QTest::newRow("a path that does not exist") << latin1("no/such/path") << QString();
    QTest::newRow("a path that goes on behind a number") << latin1("params/expiration/x") << latin1("22");
    QTest::newRow("a path that goes on behind a number, twice") << latin1("params/expiration/x/y") << latin1("22");
    QTest::newRow("a path that goes on behind a text") << latin1("params/text/x") << latin1("t");
    QTest::newRow("slash at the end") << latin1("params/text/") << latin1("t");
    QTest::newRow("empty path") << QString() << QString();
}

void tst_ZorvDevice::jsonValue()
{
    QFETCH(QString, path);
    QFETCH(QString, expected);
    make(document);
    QCOMPARE(m_device->jsonValue(path), expected);
}

void tst_ZorvDevice::deepListsAreWalkedToTheirEnd()
{
    const int depth = 4000;
    make("{\"params\":{\"expiration\":22,\"deep\":" + QByteArray(depth, '[') + "{\"zz\":1}" + QByteArray(depth, ']') + "}}");
    reachEventLoop();
    QVERIFY(m_device);
    QVariant found = m_device->value(latin1("params/deep/zz"));
    int levels = 0;
    while (found.userType() == QMetaType::QVariantList) {
        QCOMPARE(found.toList().size(), 1);
        const QVariant inner = found.toList().first();
        found = inner;
        ++levels;
    }
    QCOMPARE(levels, depth);
    QCOMPARE(found, QVariant(Q_INT64_C(1)));
    QCOMPARE(m_device->jsonValue(latin1("params/deep/zz")), QString());
}

void tst_ZorvDevice::longPathsFinishAtOnce_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    const QString none;
    const QByteArray objects = "{\"params\":{\"expiration\":22,\"\":" + QByteArray("{\"\":").repeated(4000) + "1" + QByteArray(4002, '}');
    const QByteArray lists = "{\"params\":{\"expiration\":22,\"l\":" + QByteArray(4000, '[') + "1" + QByteArray(4000, ']') + "}}";
    const QByteArray manyLists = "{\"params\":{\"expiration\":22,\"l\":[" + QByteArray("[[1]],").repeated(9000) + "1]}}";
    const QByteArray numbers = "{\"params\":{\"expiration\":22,\"l\":[" + QByteArray("1,").repeated(32000) + "1]}}";
    const QByteArray objectsInAList = "{\"params\":{\"expiration\":22,\"l\":[" + QByteArray("{\"\":1},").repeated(8000) + "1]}}";
    const QByteArray longKey = "{\"params\":{\"expiration\":22,\"" + QByteArray(50000, 'a') + "\":[[1]]}}";
    const QByteArray turns = "{\"params\":{\"expiration\":22,\"l\":[" + QByteArray("{\"aaaaaaaa\":[{\"aaaaaaaa\":[1]}]},").repeated(1800) + "1]}}";
    const QString slashes = repeated("/", 1000000);
    QTest::newRow("slashes") << QByteArray(document) << slashes << none;
    QTest::newRow("slashes behind a text") << QByteArray(document) << latin1("params/text") + slashes << latin1("t");
    QTest::newRow("slashes through nested objects") << objects << latin1("params") + slashes << latin1("1");
    QTest::newRow("slashes through nested lists") << lists << latin1("params/l") + slashes << none;
    QTest::newRow("slashes through many lists") << manyLists << latin1("params/l") + slashes << none;
    QTest::newRow("a long key") << QByteArray(document) << latin1("params/") + repeated("k", 1000000) << none;
    QTest::newRow("a long key through many numbers") << numbers << latin1("params/l/") + repeated("k", 1000000) << none;
    QTest::newRow("a key as long as the announcement through many numbers") << numbers << latin1("params/l/") + repeated("k", 60000) << none;
    QTest::newRow("a key as long as the announcement through many objects") << objectsInAList << latin1("params/l/") + repeated("k", 60000) << none;
    QTest::newRow("a long key behind nested lists") << lists << latin1("params/l/") + repeated("k", 1000000) << none;
    QTest::newRow("a long key behind many lists") << manyLists << latin1("params/l/") + repeated("k", 1000000) << none;
    QTest::newRow("a part that nearly occurs in a key before it") << longKey << latin1("params/") + repeated("a", 50000) + latin1("/b") + repeated("a", 25000) << none;
    QTest::newRow("a part that occurs late in a key before it") << longKey << latin1("params/") + repeated("a", 50000) + latin1("/") + repeated("a", 25000) + latin1("b") << none;
    QTest::newRow("keys and lists in turn, and a part that occurs early") << turns << latin1("params/l") + repeated("/aaaaaaaa", 100000) << none;
    QTest::newRow("many keys behind nested lists") << lists << latin1("params/l") + repeated("/k", 500000) << none;
    QTest::newRow("a path again and again") << QByteArray(document) << repeated("params/", 150000) << none;
}

void tst_ZorvDevice::longPathsFinishAtOnce()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, path);
    QFETCH(QString, expected);
    make(json);
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(m_device->jsonValue(path), expected);
    const QByteArray took = "took " + QByteArray::number(timer.elapsed()) + " ms";
    QVERIFY2(timer.elapsed() < 5000, took.constData());
}

void tst_ZorvDevice::textThatParsesToNoObjectHasNoValues()
{
    make(announcing("22"));
    m_device->update("[1,2]");
    QCOMPARE(m_device->jsonValue(QString()), QString());
    QCOMPARE(m_device->jsonValue(latin1("params")), QString());
    QVERIFY(m_device->value(latin1("params")).toMap().isEmpty());
    m_device->update("{}");
    QCOMPARE(m_device->jsonValue(latin1("params")), QString());
    QVERIFY(m_device->value(latin1("params")).toMap().isEmpty());
}

void tst_ZorvDevice::rawJsonEndsAtTheFirstNul()
{
    make(announcing("22"));
    m_device->update(QByteArray("{\"a\":1}\0{\"b\":2}", 15));
    QCOMPARE(m_device->rawJson(), latin1("{\"a\":1}"));
    m_device->update(QByteArray("\0abc", 4));
    QCOMPARE(m_device->rawJson(), QString());
    m_device->update(QByteArray());
    QCOMPARE(m_device->rawJson(), QString());
}

void tst_ZorvDevice::rawJsonIsReadAsLatin1()
{
    make(announcing("22"));
    m_device->update("\"\303\251\200\377\"");
    const QChar expected[] = { QLatin1Char('"'), QChar(0xc3), QChar(0xa9), QChar(0x80), QChar(0xff), QLatin1Char('"') };
    QCOMPARE(m_device->rawJson(), QString(expected, 6));
}

void tst_ZorvDevice::encodingsOfTheAnnouncement()
{
    make("{\"params\":{\"expiration\":22,\"name\":\"\303\251\"}}");
    QCOMPARE(m_device->jsonValue(latin1("params/name")), QString(QChar(0xe9)));
    m_device->update("{\"params\":{\"name\":\"\\u00e9\\ud83d\\ude00\"}}");
    const QChar expected[] = { QChar(0xe9), QChar(0xd83d), QChar(0xde00) };
    QCOMPARE(m_device->jsonValue(latin1("params/name")), QString(expected, 3));
}

static QByteArray named(const QByteArray &name, const QByteArray &interface = "{\"mtu\":1500}")
{
    return "{\"params\":{\"device\":{\"uuid\":\"A\",\"name\":\"" + name + "\",\"type\":\"T\",\"familyType\":\"F\",\"firmwareVersion\":\"1\"},"
                                                                          "\"netSettings\":{\"interface\":"
        + interface + "},\"expiration\":22}}";
}

static QVariantMap summaryNamed(const char *name)
{
    QVariantMap summary;
    summary.insert(latin1("mtu"), Q_INT64_C(1500));
    summary.insert(latin1("uuid"), latin1("A"));
    summary.insert(latin1("name"), latin1(name));
    summary.insert(latin1("type"), latin1("T"));
    summary.insert(latin1("familyType"), latin1("F"));
    summary.insert(latin1("version"), latin1("1"));
    return summary;
}

void tst_ZorvDevice::summaryFollowsTheAnnouncement()
{
    make(named("first"));
    QCOMPARE(m_device->summary(), summaryNamed("first"));
    QCOMPARE(m_device->summary(), summaryNamed("first"));
    QCOMPARE(m_device->jsonValue(latin1("params/device/name")), latin1("first"));
    QCOMPARE(m_device->summary(), summaryNamed("first"));
    m_device->touch();
    QCOMPARE(m_device->summary(), summaryNamed("first"));
    m_device->update(named("other"));
    QCOMPARE(m_device->jsonValue(latin1("params/device/name")), latin1("other"));
    QCOMPARE(m_device->summary(), summaryNamed("other"));
    m_device->update(named("first"));
    QCOMPARE(m_device->summary(), summaryNamed("first"));
    QCOMPARE(m_device->jsonValue(latin1("params/device/name")), latin1("first"));
}

void tst_ZorvDevice::summaryOfWhatHoldsNoValues_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("does not parse") << QByteArray("{\"params\":");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("list") << QByteArray("[{\"params\":{\"device\":{\"name\":\"n\"}}}]");
    QTest::newRow("empty object") << QByteArray("{}");
    QTest::newRow("params is a list") << QByteArray("{\"params\":[{\"device\":{\"name\":\"n\"}}]}");
    QTest::newRow("device and network settings are lists") << QByteArray("{\"params\":{\"device\":[{\"name\":\"n\"}],"
                                                                         "\"netSettings\":[{\"interface\":{\"mtu\":1}}]}}");
}

void tst_ZorvDevice::summaryOfWhatHoldsNoValues()
{
    QFETCH(QByteArray, json);
    QVariantMap expected;
    expected.insert(latin1("uuid"), latin1("A"));
    expected.insert(latin1("name"), QString());
    expected.insert(latin1("type"), QString());
    expected.insert(latin1("familyType"), QString());
    expected.insert(latin1("version"), QString());
    make(named("n"));
    QCOMPARE(m_device->summary(), summaryNamed("n"));
    m_device->update(json);
    QCOMPARE(m_device->summary(), expected);
    QCOMPARE(m_device->summary(), expected);
    m_device->update(named("n"));
    QCOMPARE(m_device->summary(), summaryNamed("n"));
}

// Its texts are looked up like every value: a plain one is what is found behind it.
void tst_ZorvDevice::summaryOfAPlainValue_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("params is a text") << QByteArray("{\"params\":\"p\"}");
    QTest::newRow("device is a text") << QByteArray("{\"params\":{\"device\":\"p\",\"netSettings\":[]}}");
}

void tst_ZorvDevice::summaryOfAPlainValue()
{
    QFETCH(QByteArray, json);
    QVariantMap expected;
    expected.insert(latin1("uuid"), latin1("A"));
    expected.insert(latin1("name"), latin1("p"));
    expected.insert(latin1("type"), latin1("p"));
    expected.insert(latin1("familyType"), latin1("p"));
    expected.insert(latin1("version"), latin1("p"));
    make(named("n"));
    m_device->update(json);
    QCOMPARE(m_device->summary(), expected);
    QCOMPARE(m_device->jsonValue(latin1("params/device/name")), latin1("p"));
}

void tst_ZorvDevice::familyTypeIsTheAnnouncedOne_data()
{
    QTest::addColumn<QByteArray>("announced");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QString>("inSummary");
    QTest::newRow("text") << QByteArray("\"Kelta\"") << latin1("Kelta") << latin1("Kelta");
    QTest::newRow("number") << QByteArray("7") << latin1("7") << latin1("7");
    QTest::newRow("zero character") << QByteArray("\"Kel\\u0000ta\"") << latin1("Kel") + QChar(0) + latin1("ta") << latin1("Kelta");
    QTest::newRow("half a pair") << QByteArray("\"Kelta\\ud800\"") << latin1("Kelta") + QChar(0xd800) << latin1("Kelta");
    QTest::newRow("missing") << QByteArray("null") << QString() << QString();
}

void tst_ZorvDevice::familyTypeIsTheAnnouncedOne()
{
    QFETCH(QByteArray, announced);
    QFETCH(QString, expected);
    QFETCH(QString, inSummary);
    make(named("n"));
    m_device->update("{\"params\":{\"device\":{\"familyType\":" + announced + "}}}");
    for (int time = 0; time < 3; ++time) {
        QString family(latin1("other"));
        const QVariantMap summary = m_device->summary(0, &family);
        QCOMPARE(family, expected);
        QCOMPARE(summary.value(latin1("familyType")), QVariant(inSummary));
    }
    QString family;
    m_device->update(named("n"));
    m_device->summary(0, &family);
    QCOMPARE(family, latin1("F"));
}

void tst_ZorvDevice::summaryTellsItsSize()
{
    make(named("n"));
    for (int time = 0; time < 3; ++time) {
        int size = 0;
        const QVariantMap summary = m_device->summary(&size);
        QCOMPARE(size, dbusvalue::marshalledSize(summary));
    }
    int size = 0;
    m_device->update(named("n", "{\"mtu\":\"" + QByteArray(10000, '1') + "\"}"));
    const QVariantMap summary = m_device->summary(&size);
    QCOMPARE(size, dbusvalue::marshalledSize(summary));
    QVERIFY(size > 10000);
}

// What is asked for is right whether there was room to keep it or not.
void tst_ZorvDevice::moreSummariesAndValuesThanAreKept()
{
    const int many = 300;
    const QByteArray filler(60000, 'f');
    for (int round = 0; round < 2; ++round) {
        QObject owner;
        QList<ZorvDevice *> devices;
        for (int i = 0; i < many; ++i) {
            const QByteArray json = named("n" + QByteArray::number(i), "{\"mtu\":\"" + filler + "\"}");
            devices.append(new ZorvDevice(latin1("A"), json, defaultExpiration, &owner));
        }
        for (int time = 0; time < 2; ++time) {
            for (int i = 0; i < many; ++i) {
                QVariantMap expected = summaryNamed(("n" + QByteArray::number(i)).constData());
                expected.insert(latin1("mtu"), latin1(filler.constData()));
                QCOMPARE(devices.at(i)->summary(), expected);
                QCOMPARE(devices.at(i)->jsonValue(latin1("params/device/name")), latin1("n") + QString::number(i));
            }
        }
    }
}

// What is kept shares its memory with what was given out before; what is made again does not.
void tst_ZorvDevice::whatIsAskedForAgainIsKeptHoweverOftenTheTextHasChanged()
{
    const QByteArray filler(60000, 'f');
    const QString path = latin1("params/device/name");
    ZorvDevice listed(latin1("A"), named("n", "{}"), defaultExpiration, 0);
    ZorvDevice lookedAt(latin1("B"), named("n", "{}"), defaultExpiration, 0);
    for (int round = 0; round < 400; ++round) {
        const QByteArray json = named("n" + QByteArray::number(round), "{\"mtu\":\"" + filler + "\"}");
        listed.update(json);
        lookedAt.update(json);
        const QString name = listed.summary().value(latin1("name")).toString();
        const QString value = lookedAt.value(path).toString();
        QVERIFY(listed.summary().value(latin1("name")).toString().constData() == name.constData());
        QVERIFY(lookedAt.value(path).toString().constData() == value.constData());
    }
}

void tst_ZorvDevice::nameIsTheUuid()
{
    const QString uuid = latin1("a/b \"c\" \351") + repeated("u", 60000);
    const ZorvDevice device(uuid, announcing("22"), defaultExpiration, 0);
    QCOMPARE(device.objectName(), uuid);
}

void tst_ZorvDevice::methodsOfTheInterface()
{
    const QMetaObject *meta = &ZorvDevice::staticMetaObject;
    QCOMPARE(latin1(meta->className()), latin1("ZorvDevice"));
    QCOMPARE(latin1(meta->superClass()->className()), latin1("QObject"));
    QCOMPARE(meta->classInfoCount(), 0);
    QCOMPARE(meta->propertyCount(), meta->propertyOffset());
    QCOMPARE(meta->methodCount() - meta->methodOffset(), 2);
    QCOMPARE(meta->indexOfSlot("jsonValue(QString)"), meta->methodOffset());
    QCOMPARE(meta->indexOfSlot("rawJson()"), meta->methodOffset() + 1);
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        QCOMPARE(latin1(meta->method(i).typeName()), latin1("QString"));
        QCOMPARE(meta->method(i).access(), QMetaMethod::Public);
    }
    QCOMPARE(meta->method(meta->methodOffset()).parameterNames(), QList<QByteArray>() << "path");
}

QTEST_MAIN(tst_ZorvDevice)
#include "tst_zorvdevice.moc"
