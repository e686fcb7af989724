#include "bytes.h"
#include "dbusvalue.h"
#include "devicetest.h"
#include "zorvdevice.h"

#include <QtTest/QtTest>

// Its entry in the list of devices.
class TestZorvDeviceSummary : public DeviceTest
{
    Q_OBJECT

private slots:
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
    void whatIsKeptTakesRoomOnceHoweverOftenItIsAskedFor();
    void roomIsGivenBackOnceHoweverOftenTheTextChanges();
    void roomOfValuesIsGivenBackToTheLastByte();
    void roomOfSummariesIsGivenBackToTheLastByte();
};

static QByteArray named(const QByteArray &name, const QByteArray &interface = "{\"mtu\":1500}")
{
    return "{\"params\":{\"device\":{\"uuid\":\"A\",\"name\":\"" + name + "\",\"type\":\"T\",\"familyType\":\"F\",\"firmwareVersion\":\"1\"},"
                                                                          "\"netSettings\":{\"interface\":"
        + interface + "},\"expiration\":22}}";
}

static QByteArray withFiller(int size)
{
    return named("n", "{\"mtu\":\"" + QByteArray(size, 'f') + "\"}");
}

static QVariantMap summaryNamed(const char *name)
{
    QVariantMap summary;
    summary.insert(text("mtu"), Q_INT64_C(1500));
    summary.insert(text("uuid"), text("A"));
    summary.insert(text("name"), text(name));
    summary.insert(text("type"), text("T"));
    summary.insert(text("familyType"), text("F"));
    summary.insert(text("version"), text("1"));
    return summary;
}

void TestZorvDeviceSummary::summaryFollowsTheAnnouncement()
{
    make(named("first"));
    QCOMPARE(m_device->summary(), summaryNamed("first"));
    QCOMPARE(m_device->summary(), summaryNamed("first"));
    QCOMPARE(m_device->jsonValue(text("params/device/name")), text("first"));
    QCOMPARE(m_device->summary(), summaryNamed("first"));
    m_device->touch();
    QCOMPARE(m_device->summary(), summaryNamed("first"));
    m_device->update(named("other"));
    QCOMPARE(m_device->jsonValue(text("params/device/name")), text("other"));
    QCOMPARE(m_device->summary(), summaryNamed("other"));
    m_device->update(named("first"));
    QCOMPARE(m_device->summary(), summaryNamed("first"));
    QCOMPARE(m_device->jsonValue(text("params/device/name")), text("first"));
}

void TestZorvDeviceSummary::summaryOfWhatHoldsNoValues_data()
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

void TestZorvDeviceSummary::summaryOfWhatHoldsNoValues()
{
    QFETCH(QByteArray, json);
    QVariantMap expected;
    expected.insert(text("uuid"), text("A"));
    expected.insert(text("name"), QString());
    expected.insert(text("type"), QString());
    expected.insert(text("familyType"), QString());
    expected.insert(text("version"), QString());
    make(named("n"));
    QCOMPARE(m_device->summary(), summaryNamed("n"));
    m_device->update(json);
    QCOMPARE(m_device->summary(), expected);
    QCOMPARE(m_device->summary(), expected);
    m_device->update(named("n"));
    QCOMPARE(m_device->summary(), summaryNamed("n"));
}

// Its texts are looked up like every value: a plain one is what is found behind it.
void TestZorvDeviceSummary::summaryOfAPlainValue_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("params is a text") << QByteArray("{\"params\":\"p\"}");
    QTest::newRow("device is a text") << QByteArray("{\"params\":{\"device\":\"p\",\"netSettings\":[]}}");
}

void TestZorvDeviceSummary::summaryOfAPlainValue()
{
    QFETCH(QByteArray, json);
    QVariantMap expected;
    expected.insert(text("uuid"), text("A"));
    expected.insert(text("name"), text("p"));
    expected.insert(text("type"), text("p"));
    expected.insert(text("familyType"), text("p"));
    expected.insert(text("version"), text("p"));
    make(named("n"));
    m_device->update(json);
    QCOMPARE(m_device->summary(), expected);
    QCOMPARE(m_device->jsonValue(text("params/device/name")), text("p"));
}

void TestZorvDeviceSummary::familyTypeIsTheAnnouncedOne_data()
{
    QTest::addColumn<QByteArray>("announced");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QString>("inSummary");
    QTest::newRow("text") << QByteArray("\"Kelta\"") << text("Kelta") << text("Kelta");
    QTest::newRow("number") << QByteArray("7") << text("7") << text("7");
    QTest::newRow("zero character") << QByteArray("\"Kel\\u0000ta\"") << text("Kel") + QChar(0) + text("ta") << text("Kelta");
    QTest::newRow("half a pair") << QByteArray("\"Kelta\\ud800\"") << text("Kelta") + QChar(0xd800) << text("Kelta");
    QTest::newRow("missing") << QByteArray("null") << QString() << QString();
}

void TestZorvDeviceSummary::familyTypeIsTheAnnouncedOne()
{
    QFETCH(QByteArray, announced);
    QFETCH(QString, expected);
    QFETCH(QString, inSummary);
    make(named("n"));
    m_device->update("{\"params\":{\"device\":{\"familyType\":" + announced + "}}}");
    for (int time = 0; time < 3; ++time) {
        QString family(text("other"));
        const QVariantMap summary = m_device->summary(0, &family);
        QCOMPARE(family, expected);
        QCOMPARE(summary.value(text("familyType")), QVariant(inSummary));
    }
    QString family;
    m_device->update(named("n"));
    m_device->summary(0, &family);
    QCOMPARE(family, text("F"));
}

void TestZorvDeviceSummary::summaryTellsItsSize()
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
void TestZorvDeviceSummary::moreSummariesAndValuesThanAreKept()
{
    const int many = 300;
    const QByteArray filler(60000, 'f');
    for (int round = 0; round < 2; ++round) {
        QObject owner;
        QList<ZorvDevice *> devices;
        for (int i = 0; i < many; ++i) {
            const QByteArray json = named("n" + QByteArray::number(i), "{\"mtu\":\"" + filler + "\"}");
            devices.append(new ZorvDevice(text("A"), json, defaultExpiration, &owner));
        }
        for (int time = 0; time < 2; ++time) {
            for (int i = 0; i < many; ++i) {
                QVariantMap expected = summaryNamed(("n" + QByteArray::number(i)).constData());
                expected.insert(text("mtu"), text(filler.constData()));
                QCOMPARE(devices.at(i)->summary(), expected);
                QCOMPARE(devices.at(i)->jsonValue(text("params/device/name")), text("n") + QString::number(i));
            }
        }
    }
}

// What is kept shares its memory with what was given out before; what is made again does not.
static bool keepsSummary(ZorvDevice *device)
{
    const QString name = device->summary().value(text("name")).toString();
    return device->summary().value(text("name")).toString().constData() == name.constData();
}

static bool keepsValues(ZorvDevice *device)
{
    const QString path = text("params/device/name");
    const QString name = device->value(path).toString();
    return device->value(path).toString().constData() == name.constData();
}

void TestZorvDeviceSummary::whatIsAskedForAgainIsKeptHoweverOftenTheTextHasChanged()
{
    const QByteArray filler(60000, 'f');
    ZorvDevice listed(text("A"), named("n", "{}"), defaultExpiration, 0);
    ZorvDevice lookedAt(text("B"), named("n", "{}"), defaultExpiration, 0);
    for (int round = 0; round < 400; ++round) {
        const QByteArray json = named("n" + QByteArray::number(round), "{\"mtu\":\"" + filler + "\"}");
        listed.update(json);
        lookedAt.update(json);
        QVERIFY(keepsSummary(&listed));
        QVERIFY(keepsValues(&lookedAt));
    }
}

void TestZorvDeviceSummary::whatIsKeptTakesRoomOnceHoweverOftenItIsAskedFor()
{
    const QByteArray json = withFiller(60000);
    ZorvDevice first(text("A"), json, defaultExpiration, 0);
    for (int time = 0; time < 400; ++time) {
        first.summary();
        first.value(text("params/device/name"));
    }
    ZorvDevice second(text("B"), json, defaultExpiration, 0);
    QVERIFY(keepsSummary(&second));
    QVERIFY(keepsValues(&second));
}

// How many of three hundred devices have their summary and their values kept: more than there is room for.
static void countKept(int *summaries, int *values)
{
    const QByteArray json = withFiller(60000);
    QObject owner;
    *summaries = *values = 0;
    for (int i = 0; i < 300; ++i) {
        ZorvDevice *const device = new ZorvDevice(text("A"), json, defaultExpiration, &owner);
        *summaries += keepsSummary(device);
        *values += keepsValues(device);
    }
}

// With its family type.
static int sizeOfKeptSummary(const QByteArray &json)
{
    ZorvDevice device(text("A"), json, defaultExpiration, 0);
    return dbusvalue::marshalledSize(device.summary()) + int(sizeof(QChar));
}

void TestZorvDeviceSummary::roomIsGivenBackOnceHoweverOftenTheTextChanges()
{
    int summariesBefore = 0;
    int valuesBefore = 0;
    countKept(&summariesBefore, &valuesBefore);

    const QByteArray json = withFiller(60000);
    make(json);
    QCOMPARE(summariesBefore, 12 * 1024 * 1024 / sizeOfKeptSummary(json));
    QCOMPARE(valuesBefore, 4 * 1024 * 1024 / json.size());

    m_device->value(text("params/device/name"));
    for (int time = 0; time < 100; ++time)
        m_device->update(named("n"));
    m_device->update("[" + QByteArray(60000, ' ') + "]"); // it holds no values: nothing is kept of it
    for (int time = 0; time < 100; ++time)
        m_device->value(text("params/device/name"));

    int summaries = 0;
    int values = 0;
    countKept(&summaries, &values);
    QCOMPARE(summaries, summariesBefore);
    QCOMPARE(values, valuesBefore);
}

// If one byte were left each time, or one too much given back, it would show when the room is filled to the last byte.
static void giveRoomBackAThousandTimes(ZorvDevice *device)
{
    for (int time = 0; time < 1000; ++time) {
        device->summary();
        device->value(text("params/device/name"));
        device->update(named("n"));
    }
}

// So many with this text, and a small one for which there is no room.
static void fill(QList<ZorvDevice *> *devices, const QByteArray &json, int count, QObject *owner)
{
    for (int i = 0; i < count; ++i)
        devices->append(new ZorvDevice(text("A"), json, defaultExpiration, owner));
    devices->append(new ZorvDevice(text("A"), named("n"), defaultExpiration, owner));
}

void TestZorvDeviceSummary::roomOfValuesIsGivenBackToTheLastByte()
{
    const int size = 32 * 1024;
    const QByteArray json = withFiller(size - withFiller(0).size());
    QCOMPARE(json.size(), size);

    make(named("n"));
    giveRoomBackAThousandTimes(m_device);
    QObject owner;
    QList<ZorvDevice *> devices;
    fill(&devices, json, 4 * 1024 * 1024 / size, &owner);
    for (int i = 0; i < devices.size() - 1; ++i)
        QVERIFY(keepsValues(devices.at(i)));
    QVERIFY(!keepsValues(devices.last()));
}

void TestZorvDeviceSummary::roomOfSummariesIsGivenBackToTheLastByte()
{
    const int size = 48 * 1024;
    const QByteArray json = withFiller(size - sizeOfKeptSummary(withFiller(0)));
    QCOMPARE(sizeOfKeptSummary(json), size);

    make(named("n"));
    giveRoomBackAThousandTimes(m_device);
    QObject owner;
    QList<ZorvDevice *> devices;
    fill(&devices, json, 12 * 1024 * 1024 / size, &owner);
    for (int i = 0; i < devices.size() - 1; ++i)
        QVERIFY(keepsSummary(devices.at(i)));
    QVERIFY(!keepsSummary(devices.last()));
}

QTEST_MAIN(TestZorvDeviceSummary)
#include "tst_zorvdevice_summary.moc"
