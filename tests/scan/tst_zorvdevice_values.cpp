#include "bytes.h"
#include "devicetest.h"
#include "eventloop.h"
#include "zorvdevice.h"

#include <QtTest/QtTest>

#include <ctime>

static QString repeated(const char *text, int times)
{
    return QString::fromLatin1(text).repeated(times);
}

static const char document[] = "{\"params\":{\"expiration\":22,"
                               "\"text\":\"t\",\"yes\":true,\"no\":false,\"nothing\":null,\"large\":9007199254740993,\"third\":0.1,\"long\":0.1234567890123456,"
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

// What it tells of its announcement, value by value.
class TestZorvDeviceValues : public DeviceTest
{
    Q_OBJECT

private slots:
    void value_data();
    void value();
    void aKeyLongerThanTheAnnouncementIsNotTheEmptyKey();
    void jsonValue_data();
    void jsonValue();
    void deepListsAreWalkedToTheirEnd();
    void longPathsFinishAtOnce_data();
    void longPathsFinishAtOnce();
    void textThatParsesToNoObjectHasNoValues();
    void rawJsonEndsAtTheFirstNul();
    void rawJsonIsReadAsLatin1();
    void encodingsOfTheAnnouncement();
    void nameIsTheUuid();
    void methodsOfTheInterface();
};

void TestZorvDeviceValues::value_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QVariant>("expected");
    const QVariant none;
    QVariantMap device;
    device.insert(text("name"), text("kelta"));
    QTest::newRow("text") << text("params/device/name") << QVariant(text("kelta"));
    QTest::newRow("number") << text("params/expiration") << QVariant(Q_INT64_C(22));
    QTest::newRow("object") << text("params/device") << QVariant(device);
    QTest::newRow("null") << text("params/nothing") << none;
    QTest::newRow("no such key") << text("params/device/serial") << none;
    QTest::newRow("no such key in the middle") << text("params/nobody/name") << none;
    QTest::newRow("keys are case-sensitive") << text("params/Device/name") << none;
    QTest::newRow("empty path") << QString() << none;
    QTest::newRow("behind a null") << text("params/nothing/x") << none;
    QTest::newRow("slash at the beginning") << text("/params/text") << none;
    QTest::newRow("empty parts are keys") << text("params//") << QVariant(text("empty"));
    QTest::newRow("empty part in the middle") << text("params//k") << QVariant(text("below"));
    QTest::newRow("a key with a slash cannot be named") << text("params/x/y") << none;

    QTest::newRow("empty object") << text("params/void") << QVariant(QVariantMap());
    QTest::newRow("empty list") << text("params/none") << QVariant(QVariantList());
    QTest::newRow("behind an empty object") << text("params/void/x/y") << QVariant(QVariantMap());
    QTest::newRow("behind an empty list") << text("params/none/x") << none;
    QTest::newRow("behind an empty list, a slash only") << text("params/none/") << none;
    QTest::newRow("behind a text") << text("params/text/x") << QVariant(text("t"));
    QTest::newRow("behind a number") << text("params/expiration/x/y/") << QVariant(Q_INT64_C(22));
    QTest::newRow("behind false") << text("params/no/x") << QVariant(false);
    QTest::newRow("longer than the announcement") << text("params/text/") + repeated("x/", 5000) << QVariant(text("t"));
    QTest::newRow("a key longer than the announcement") << text("params/") + repeated("x", 5000) << none;
    QTest::newRow("a key longer than the announcement, behind a text") << text("params/text/") + repeated("x", 5000)
                                                                       << QVariant(text("t"));

    const QVariant one(Q_INT64_C(1));
    const QVariant two(Q_INT64_C(2));
    QTest::newRow("through a list") << text("params/list/zz") << QVariant(QVariantList() << one << text("x") << none);
    QTest::newRow("through a list, two parts") << text("params/list/w/vv") << QVariant(QVariantList() << two << none << none);
    QTest::newRow("through lists of lists") << text("params/lists/zz")
                                            << QVariant(list(QVariantList() << one << two) + list(list(Q_INT64_C(3))));
    QTest::newRow("through a list of plain values") << text("params/numbers/zz")
                                                    << QVariant(QVariantList() << Q_INT64_C(5) << text("6"));
    QTest::newRow("through a list, longer than the announcement") << text("params/numbers/zz/") + repeated("x", 5000)
                                                                  << QVariant(QVariantList() << Q_INT64_C(5) << text("6"));
    QTest::newRow("through a list by a key longer than the announcement") << text("params/list/") + repeated("x", 5000)
                                                                          << QVariant(QVariantList() << none << none << none);
    QTest::newRow("through a list of empty lists and objects") << text("params/holes/zz")
                                                               << QVariant(QVariantList() << none << QVariant(QVariantMap()) << none);
    // Behind a list, the elements are asked for the path from the first place on where it has the part's text.
    QTest::newRow("the part occurs earlier, in another part") << text("params/bb/b/b") << QVariant(QVariantList() << one << none);
    QTest::newRow("the part occurs earlier, within a word") << text("params/q/a") << QVariant(QVariantList() << Q_INT64_C(5) << none);
    QTest::newRow("in a list in a list, the part occurs before the first list") << text("params/l/w/a") << QVariant(list(list(Q_INT64_C(1))));
    QTest::newRow("an empty part occurs at the beginning") << text("params/e/") << QVariant(QVariantList() << Q_INT64_C(9) << none);
}

void TestZorvDeviceValues::value()
{
    QFETCH(QString, path);
    QFETCH(QVariant, expected);
    make(document);
    const QVariant got = m_device->value(path);
    QCOMPARE(got.userType(), expected.userType());
    QCOMPARE(got, expected);
    QCOMPARE(m_device->value(path), expected);
}

void TestZorvDeviceValues::aKeyLongerThanTheAnnouncementIsNotTheEmptyKey()
{
    make("{\"\":\"t\",\"params\":{\"expiration\":22}}");
    QCOMPARE(m_device->value(QString()), QVariant(text("t")));
    QCOMPARE(m_device->value(repeated("x", 5000)), QVariant());
}

void TestZorvDeviceValues::jsonValue_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    QTest::newRow("text") << text("params/text") << text("t");
    QTest::newRow("number") << text("params/expiration") << text("22");
    QTest::newRow("more than a double holds") << text("params/large") << text("9007199254740993");
    QTest::newRow("fraction") << text("params/third") << text("0.1");
    QTest::newRow("fraction of more than 15 digits") << text("params/long") << text("0.123456789012346");
    QTest::newRow("true") << text("params/yes") << text("true");
    QTest::newRow("false") << text("params/no") << text("false");
    QTest::newRow("null") << text("params/nothing") << QString();
    QTest::newRow("object") << text("params/device") << QString();
    QTest::newRow("list") << text("params/list") << QString();
    QTest::newRow("through a list") << text("params/list/zz") << QString();
    QTest::newRow("through a list of numbers") << text("params/numbers/zz") << QString();
    QTest::newRow("behind an empty list") << text("params/none/x") << QString();
    QTest::newRow("behind an empty object") << text("params/void/x") << QString();
    QTest::newRow("a path that does not exist") << text("no/such/path") << QString();
    QTest::newRow("a path that goes on behind a number") << text("params/expiration/x") << text("22");
    QTest::newRow("a path that goes on behind a number, twice") << text("params/expiration/x/y") << text("22");
    QTest::newRow("a path that goes on behind a text") << text("params/text/x") << text("t");
    QTest::newRow("slash at the end") << text("params/text/") << text("t");
    QTest::newRow("empty path") << QString() << QString();
}

void TestZorvDeviceValues::jsonValue()
{
    QFETCH(QString, path);
    QFETCH(QString, expected);
    make(document);
    QCOMPARE(m_device->jsonValue(path), expected);
}

void TestZorvDeviceValues::deepListsAreWalkedToTheirEnd()
{
    const int depth = 4000;
    make("{\"params\":{\"expiration\":22,\"deep\":" + QByteArray(depth, '[') + "{\"zz\":1}" + QByteArray(depth, ']') + "}}");
    reachEventLoop();
    QVERIFY(m_device);
    QVariant found = m_device->value(text("params/deep/zz"));
    int levels = 0;
    while (found.userType() == QMetaType::QVariantList) {
        QCOMPARE(found.toList().size(), 1);
        const QVariant inner = found.toList().first();
        found = inner;
        ++levels;
    }
    QCOMPARE(levels, depth);
    QCOMPARE(found, QVariant(Q_INT64_C(1)));
    QCOMPARE(m_device->jsonValue(text("params/deep/zz")), QString());
}

void TestZorvDeviceValues::longPathsFinishAtOnce_data()
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
    QTest::newRow("slashes behind a text") << QByteArray(document) << text("params/text") + slashes << text("t");
    QTest::newRow("slashes through nested objects") << objects << text("params") + slashes << text("1");
    QTest::newRow("slashes through nested lists") << lists << text("params/l") + slashes << none;
    QTest::newRow("slashes through many lists") << manyLists << text("params/l") + slashes << none;
    QTest::newRow("a long key") << QByteArray(document) << text("params/") + repeated("k", 1000000) << none;
    QTest::newRow("a long key through many numbers") << numbers << text("params/l/") + repeated("k", 1000000) << none;
    QTest::newRow("a key as long as the announcement through many numbers") << numbers << text("params/l/") + repeated("k", 60000) << none;
    QTest::newRow("a key as long as the announcement through many objects") << objectsInAList << text("params/l/") + repeated("k", 60000) << none;
    QTest::newRow("a long key behind nested lists") << lists << text("params/l/") + repeated("k", 1000000) << none;
    QTest::newRow("a long key behind many lists") << manyLists << text("params/l/") + repeated("k", 1000000) << none;
    QTest::newRow("a part that nearly occurs in a key before it") << longKey << text("params/") + repeated("a", 50000) + text("/b") + repeated("a", 25000) << none;
    QTest::newRow("a part that occurs late in a key before it") << longKey << text("params/") + repeated("a", 50000) + text("/") + repeated("a", 25000) + text("b") << none;
    QTest::newRow("keys and lists in turn, and a part that occurs early") << turns << text("params/l") + repeated("/aaaaaaaa", 100000) << none;
    QTest::newRow("many keys behind nested lists") << lists << text("params/l") + repeated("/k", 500000) << none;
    QTest::newRow("a path again and again") << QByteArray(document) << repeated("params/", 150000) << none;
}

void TestZorvDeviceValues::longPathsFinishAtOnce()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, path);
    QFETCH(QString, expected);
    make(json);
    const std::clock_t begun = std::clock(); // of the processor: what else runs does not count
    QCOMPARE(m_device->jsonValue(path), expected);
    const qint64 took = qint64(std::clock() - begun) * 1000 / CLOCKS_PER_SEC;
    QVERIFY2(took < 5000, QByteArray("took " + QByteArray::number(took) + " ms").constData());
}

void TestZorvDeviceValues::textThatParsesToNoObjectHasNoValues()
{
    make(announcing("22"));
    m_device->update("[1,2]");
    QCOMPARE(m_device->jsonValue(QString()), QString());
    QCOMPARE(m_device->jsonValue(text("params")), QString());
    QVERIFY(m_device->value(text("params")).toMap().isEmpty());
    m_device->update("{}");
    QCOMPARE(m_device->jsonValue(text("params")), QString());
    QVERIFY(m_device->value(text("params")).toMap().isEmpty());
}

void TestZorvDeviceValues::rawJsonEndsAtTheFirstNul()
{
    make(announcing("22"));
    m_device->update(QByteArray("{\"a\":1}\0{\"b\":2}", 15));
    QCOMPARE(m_device->rawJson(), text("{\"a\":1}"));
    m_device->update(QByteArray("\0abc", 4));
    QCOMPARE(m_device->rawJson(), QString());
    m_device->update(QByteArray());
    QCOMPARE(m_device->rawJson(), QString());
}

void TestZorvDeviceValues::rawJsonIsReadAsLatin1()
{
    make(announcing("22"));
    m_device->update("\"\303\251\200\377\"");
    const QChar expected[] = { QLatin1Char('"'), QChar(0xc3), QChar(0xa9), QChar(0x80), QChar(0xff), QLatin1Char('"') };
    QCOMPARE(m_device->rawJson(), QString(expected, 6));
}

void TestZorvDeviceValues::encodingsOfTheAnnouncement()
{
    make("{\"params\":{\"expiration\":22,\"name\":\"\303\251\"}}");
    QCOMPARE(m_device->jsonValue(text("params/name")), QString(QChar(0xe9)));
    m_device->update("{\"params\":{\"name\":\"\\u00e9\\ud83d\\ude00\"}}");
    const QChar expected[] = { QChar(0xe9), QChar(0xd83d), QChar(0xde00) };
    QCOMPARE(m_device->jsonValue(text("params/name")), QString(expected, 3));
}

void TestZorvDeviceValues::nameIsTheUuid()
{
    const QString uuid = text("a/b \"c\" \351") + repeated("u", 60000);
    const ZorvDevice device(uuid, announcing("22"), defaultExpiration, 0);
    QCOMPARE(device.objectName(), uuid);
}

void TestZorvDeviceValues::methodsOfTheInterface()
{
    const QMetaObject *meta = &ZorvDevice::staticMetaObject;
    QCOMPARE(text(meta->className()), text("ZorvDevice"));
    QCOMPARE(text(meta->superClass()->className()), text("QObject"));
    QCOMPARE(meta->classInfoCount(), 0);
    QCOMPARE(meta->propertyCount(), meta->propertyOffset());
    QCOMPARE(meta->methodCount() - meta->methodOffset(), 2);
    QCOMPARE(meta->indexOfSlot("jsonValue(QString)"), meta->methodOffset());
    QCOMPARE(meta->indexOfSlot("rawJson()"), meta->methodOffset() + 1);
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        QCOMPARE(text(meta->method(i).typeName()), text("QString"));
        QCOMPARE(meta->method(i).access(), QMetaMethod::Public);
    }
    QCOMPARE(meta->method(meta->methodOffset()).parameterNames(), QList<QByteArray>() << "path");
}

QTEST_MAIN(TestZorvDeviceValues)
#include "tst_zorvdevice_values.moc"
