#include "bytes.h"
#include "scantest.h"
#include "zorvscan.h"

#include <QtDBus/QtDBus>
#include <QtTest/QtTest>

// What callers on the bus get.
class TestZorvScanBus : public ScanTest
{
    Q_OBJECT

private slots:
    void allChildsFiltersByFamily();
    void familyOfCharactersThatTheBusCannotCarry();
    void summaryOfADevice();
    void summaryWhoseInterfaceIsNoObject_data();
    void summaryWhoseInterfaceIsNoObject();
    void numbersInTheDeviceAreTexts();
    void methodsOfTheInterface();
};

static QStringList uuidsOf(const QVariantList &summaries)
{
    QStringList result;
    for (int i = 0; i < summaries.size(); ++i)
        result.append(summaries.at(i).toMap().value(text("uuid")).toString());
    return result;
}

void TestZorvScanBus::allChildsFiltersByFamily()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    QCOMPARE(scan.allChilds(), QVariantList());
    QCOMPARE(scan.allChilds(QString()), QVariantList());
    Loopback loopback;
    loopback.feed(scan, announcing("k1", "22", "Kelta"));
    loopback.feed(scan, announcing("other", "22", "Other"));
    loopback.feed(scan, announcing("lower", "22", "kelta"));
    loopback.feed(scan, announcing("longer", "22", "Kelta2"));
    loopback.feed(scan, announcing("nothing", "22", ""));
    loopback.feed(scan, "{\"params\":{\"uuid\":\"bare\",\"expiration\":22}}");
    loopback.feed(scan, announcing("k2", "22", "Kelta"));
    const QStringList keltas = QStringList() << text("k1") << text("k2");
    QCOMPARE(uuidsOf(scan.allChilds()), keltas);
    QCOMPARE(uuidsOf(scan.allChilds(text("Kelta"))), keltas);
    QCOMPARE(uuidsOf(scan.allChilds(text("Other"))), QStringList() << text("other"));
    QCOMPARE(uuidsOf(scan.allChilds(text("kelta"))), QStringList() << text("lower"));
    QCOMPARE(uuidsOf(scan.allChilds(text("Kelta CODESYS"))), QStringList());
    QCOMPARE(uuidsOf(scan.allChilds(text("Kelt"))), QStringList());
    const QStringList all = QStringList() << text("k1") << text("other") << text("lower") << text("longer") << text("nothing") << text("bare") << text("k2");
    QCOMPARE(uuidsOf(scan.allChilds(QString())), all);
    QCOMPARE(uuidsOf(scan.allChilds(text(""))), all);
}

// Compared with what was announced, not with what of it the bus can carry.
void TestZorvScanBus::familyOfCharactersThatTheBusCannotCarry()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A", "22", "Kel\\u0000ta"));
    loopback.feed(scan, announcing("B", "22", "Kelta"));
    for (int time = 0; time < 2; ++time) {
        QCOMPARE(scan.allChilds().size(), 1);
        QCOMPARE(scan.allChilds().first().toMap().value(text("uuid")), QVariant(text("B")));
        QCOMPARE(scan.allChilds(QString()).size(), 2);
        QCOMPARE(scan.allChilds(text("Kel") + QChar(0) + text("ta")).size(), 1);
    }
}

void TestZorvScanBus::summaryOfADevice()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A", "22", "Kelta", "{\"name\":\"eth0\",\"type\":\"ethernet\",\"uuid\":\"x\",\"version\":7,\"familyType\":[],"
                                                       "\"ipv4\":[{\"address\":\"10.77.0.9\",\"netmask\":\"255.255.255.0\"}],\"ipv6\":[],"
                                                       "\"configurationMethod\":\"dhcp\",\"more\":5}"));
    QVariantMap address;
    address.insert(text("address"), text("10.77.0.9"));
    address.insert(text("netmask"), text("255.255.255.0"));
    QVariantMap expected;
    expected.insert(text("ipv4"), QVariantList() << QVariant(address));
    expected.insert(text("ipv6"), QVariantList());
    expected.insert(text("configurationMethod"), text("dhcp"));
    expected.insert(text("more"), Q_INT64_C(5));
    expected.insert(text("uuid"), text("A"));
    expected.insert(text("name"), text("n-A"));
    expected.insert(text("version"), text("2.0"));
    expected.insert(text("type"), text("Kelta CODESYS"));
    expected.insert(text("familyType"), text("Kelta"));
    QCOMPARE(scan.allChilds(), QVariantList() << QVariant(expected));
}

void TestZorvScanBus::summaryWhoseInterfaceIsNoObject_data()
{
    QTest::addColumn<QByteArray>("interface");
    QTest::newRow("null") << QByteArray("null");
    QTest::newRow("text") << QByteArray("\"eth0\"");
    QTest::newRow("number") << QByteArray("0");
    QTest::newRow("list") << QByteArray("[{\"name\":\"eth0\"}]");
    QTest::newRow("empty object") << QByteArray("{}");
    QTest::newRow("object of null") << QByteArray("{\"ipv4\":null}");
}

void TestZorvScanBus::summaryWhoseInterfaceIsNoObject()
{
    QFETCH(QByteArray, interface);
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, announcing("A", "22", "Kelta", interface));
    QVariantMap expected;
    expected.insert(text("uuid"), text("A"));
    expected.insert(text("name"), text("n-A"));
    expected.insert(text("version"), text("2.0"));
    expected.insert(text("type"), text("Kelta CODESYS"));
    expected.insert(text("familyType"), text("Kelta"));
    QCOMPARE(scan.allChilds(), QVariantList() << QVariant(expected));
}

void TestZorvScanBus::numbersInTheDeviceAreTexts()
{
    ZorvScan scan(m_settings, interval, 0);
    drain(scan);
    Loopback loopback;
    loopback.feed(scan, "{\"params\":{\"device\":{\"uuid\":\"A\",\"name\":5,\"firmwareVersion\":1.5,\"type\":null,\"familyType\":true},\"expiration\":22}}");
    const QVariantMap summary = scan.allChilds(text("true")).value(0).toMap();
    QCOMPARE(summary.value(text("uuid")), QVariant(text("A")));
    QCOMPARE(summary.value(text("name")), QVariant(text("5")));
    QCOMPARE(summary.value(text("version")), QVariant(text("1.5")));
    QCOMPARE(summary.value(text("type")), QVariant(text("")));
    QCOMPARE(summary.value(text("familyType")), QVariant(text("true")));
}

void TestZorvScanBus::methodsOfTheInterface()
{
    static const struct
    {
        const char *signature;
        const char *result;
        const char *parameters;
    } expected[] = {
        { "setupMulticast()", "int", "" },
        { "sendAnnouncement()", "", "" },
        { "socketState()", "int", "" },
        { "allChilds(QString)", "QVariantList", "type" },
        { "allChilds()", "QVariantList", "" },
        { "pendingDatagrams()", "", "" },
        { "configChanged()", "", "" },
        { "connmanServicePropertyChanged(QString,QDBusVariant)", "", "name,map" },
    };
    const QMetaObject *meta = &ZorvScan::staticMetaObject;
    QCOMPARE(text(meta->className()), text("ZorvScan"));
    QCOMPARE(text(meta->superClass()->className()), text("QObject"));
    QCOMPARE(meta->classInfoCount(), 0);
    QCOMPARE(meta->propertyCount(), meta->propertyOffset());
    for (int i = meta->methodOffset() + 8; i < meta->methodCount(); ++i)
        QCOMPARE(meta->method(i).access(), QMetaMethod::Private); // the bus does not see it
    for (int i = 0; i < 8; ++i) {
        const int index = meta->methodOffset() + i;
        const QMetaMethod method = meta->method(index);
        QCOMPARE(meta->indexOfSlot(expected[i].signature), index);
        QCOMPARE(text(method.typeName()).replace(text("void"), QString()), text(expected[i].result));
        QStringList parameters;
        const QList<QByteArray> names = method.parameterNames();
        for (int n = 0; n < names.size(); ++n)
            parameters.append(text(names.at(n).constData()));
        QCOMPARE(parameters.join(text(",")), text(expected[i].parameters));
        QCOMPARE(method.access(), QMetaMethod::Public);
    }
}

QTEST_MAIN(TestZorvScanBus)
#include "tst_zorvscan_bus.moc"
