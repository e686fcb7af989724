#include "addresstext.h"
#include "bytes.h"

#include <QtTest/QtTest>

Q_DECLARE_METATYPE(QHostAddress)

class TestAddressText : public QObject
{
    Q_OBJECT

private slots:
    void fourDecimalPartsAreAnAddress_data();
    void fourDecimalPartsAreAnAddress();
    void ipv6TextsAreAddresses_data();
    void ipv6TextsAreAddresses();
    void everythingElseIsTheNullAddress_data();
    void everythingElseIsTheNullAddress();
    void bytesAreThoseOfTheText_data();
    void bytesAreThoseOfTheText();
    void everyPartIsReadAndWritten();
    void linkLocalIsWhatBeginsWith169254_data();
    void linkLocalIsWhatBeginsWith169254();
};

void TestAddressText::fourDecimalPartsAreAnAddress_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<quint32>("address");

    QTest::newRow("customary") << text("10.0.0.5") << quint32(0x0a000005);
    QTest::newRow("link-local") << text("169.254.3.4") << quint32(0xa9fe0304);
    QTest::newRow("highest") << text("255.255.255.255") << quint32(0xffffffff);
    QTest::newRow("zeros") << text("0.0.0.0") << quint32(0);
    QTest::newRow("leading zeros are decimal") << text("010.001.08.09") << quint32(0x0a010809);
    QTest::newRow("white space around") << text(" 10.0.0.5\n") << quint32(0x0a000005);
}

void TestAddressText::fourDecimalPartsAreAnAddress()
{
    QFETCH(QString, input);
    QFETCH(quint32, address);
    const QHostAddress result = addressFromText(input);
    QVERIFY(!result.isNull());
    QCOMPARE(result.protocol(), QAbstractSocket::IPv4Protocol);
    QCOMPARE(result.toIPv4Address(), address);
}

void TestAddressText::ipv6TextsAreAddresses_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("lowerCase");

    QTest::newRow("link-local") << text("fe80::211:22ff:feaa:bbcc") << text("fe80::211:22ff:feaa:bbcc");
    QTest::newRow("upper case") << text("FE80::1") << text("fe80::1");
    QTest::newRow("loopback") << text("::1") << text("::1");
}

void TestAddressText::ipv6TextsAreAddresses()
{
    QFETCH(QString, input);
    QFETCH(QString, lowerCase);
    const QHostAddress result = addressFromText(input);
    QCOMPARE(result.protocol(), QAbstractSocket::IPv6Protocol);
    QCOMPARE(result.toString().toLower(), lowerCase);
}

void TestAddressText::everythingElseIsTheNullAddress_data()
{
    QTest::addColumn<QString>("input");

    QTest::newRow("empty") << QString();
    QTest::newRow("blank") << text(" ");
    QTest::newRow("word") << text("none");
    QTest::newRow("host name") << text("gateway.local.example.org");
    QTest::newRow("number") << text("5");
    QTest::newRow("one part as a big number") << text("3232235777");
    QTest::newRow("two parts") << text("10.5");
    QTest::newRow("three parts") << text("10.0.5");
    QTest::newRow("five parts") << text("10.0.0.5.1");
    QTest::newRow("empty part") << text("10..0.5");
    QTest::newRow("point at the end") << text("10.0.0.");
    QTest::newRow("part above 255") << text("10.0.0.256");
    QTest::newRow("negative part") << text("10.0.0.-5");
    QTest::newRow("hexadecimal part") << text("0x10.1.1.1");
    QTest::newRow("huge part") << text("10.0.0.4294967301");
    QTest::newRow("netmask behind it") << text("10.0.0.5/24");
    QTest::newRow("port behind it") << text("10.0.0.5:80");
    QTest::newRow("two addresses") << text("10.0.0.5 10.0.0.6");
    QTest::newRow("broken IPv6") << text("fe80::1::2");
    QTest::newRow("fraction of an IPv6 address") << text("fe80:1");
}

void TestAddressText::everythingElseIsTheNullAddress()
{
    QFETCH(QString, input);
    QCOMPARE(addressFromText(input), QHostAddress());
    QVERIFY(addressFromText(input).isNull());
}

static void addAddresses()
{
    QTest::addColumn<QHostAddress>("address");

    QTest::newRow("null") << QHostAddress();
    QTest::newRow("customary") << QHostAddress(text("192.168.1.20"));
    QTest::newRow("parts of one digit") << QHostAddress(text("1.2.3.4"));
    QTest::newRow("parts of two digits") << QHostAddress(text("10.20.30.99"));
    QTest::newRow("parts with zeros inside") << QHostAddress(text("100.101.110.200"));
    QTest::newRow("zeros") << QHostAddress(text("0.0.0.0"));
    QTest::newRow("highest") << QHostAddress(text("255.255.255.255"));
    QTest::newRow("link-local") << QHostAddress(text("169.254.7.8"));
    QTest::newRow("below link-local") << QHostAddress(text("169.253.255.255"));
    QTest::newRow("above link-local") << QHostAddress(text("169.255.0.0"));
    QTest::newRow("IPv6") << QHostAddress(text("fe80::211:22ff:feaa:bbcc"));
    QTest::newRow("IPv6 with an interface") << QHostAddress(text("fe80::1%eth0"));
    QTest::newRow("IPv4 mapped into IPv6") << QHostAddress(text("::ffff:169.254.7.8"));
}

void TestAddressText::bytesAreThoseOfTheText_data()
{
    addAddresses();
}

void TestAddressText::bytesAreThoseOfTheText()
{
    QFETCH(QHostAddress, address);
    QByteArray bytes = "http://";
    appendAddress(&bytes, address);
    QVERIFY(compareBytes(bytes, "http://" + address.toString().toLatin1()));
}

void TestAddressText::everyPartIsReadAndWritten()
{
    for (quint32 part = 0; part < 256; ++part) {
        const QHostAddress address(part << 24 | (255 - part) << 16 | part << 8 | (part ^ 0x55));
        QByteArray bytes;
        appendAddress(&bytes, address);
        QCOMPARE(bytes, address.toString().toLatin1());
        QCOMPARE(addressFromText(address.toString()), address);
    }
}

void TestAddressText::linkLocalIsWhatBeginsWith169254_data()
{
    addAddresses();
}

void TestAddressText::linkLocalIsWhatBeginsWith169254()
{
    QFETCH(QHostAddress, address);
    QCOMPARE(isLinkLocalIpv4(address), address.toString().startsWith(text("169.254")));
}

QTEST_APPLESS_MAIN(TestAddressText)

#include "tst_addresstext.moc"
