#include "announcement.h"

#include <QtCore/QFile>
#include <QtTest/QtTest>

using announcement::Interface;
using announcement::Ipv4Address;
using announcement::Ipv6Address;
using announcement::Values;

Q_DECLARE_METATYPE(announcement::Values)

static Interface noAddress(const char *name)
{
    Interface interface = { QString::fromUtf8(name), false, QList<Ipv4Address>(), QList<Ipv6Address>() };
    return interface;
}

static Interface plus(Interface interface, const char *address, const char *netmask)
{
    Ipv4Address entry = { QString::fromLatin1(address), QString::fromLatin1(netmask) };
    interface.ipv4.append(entry);
    return interface;
}

static Interface plus(Interface interface, const char *address, int prefixLength)
{
    Ipv6Address entry = { QString::fromLatin1(address), prefixLength };
    interface.ipv6.append(entry);
    return interface;
}

static Interface wired(const char *name = "eth0")
{
    return plus(noAddress(name), "10.77.0.2", "255.255.255.0");
}

static Interface loopback()
{
    Interface interface = plus(noAddress("lo"), "127.0.0.1", "255.0.0.0");
    interface.isLoopback = true;
    return interface;
}

static Values with(const QList<Interface> &interfaces)
{
    Values values;
    values.hostname = "kelta";
    values.serial = "KM-2044817";
    values.modelName = "Kelta";
    values.hasCodesys = false;
    values.firmwareVersion = "1.4.2";
    values.interfaces = interfaces;
    values.configurationMethod = QLatin1String("dhcp");
    values.gateway = QHostAddress(QLatin1String("10.77.0.1"));
    values.interval = 10;
    return values;
}

static Values usual()
{
    return with(QList<Interface>() << wired());
}

static void row(const char *name, const Values &values, const char *file)
{
    QTest::newRow(name) << values << QString::fromLatin1(file);
}

static QByteArray contentOf(const QString &file)
{
    QFile data(QLatin1String(TEST_DATA) + file + QLatin1String(".json"));
    return data.open(QIODevice::ReadOnly) ? data.readAll() : QByteArray("no such file: ") + data.fileName().toLatin1();
}

class tst_Announcement : public QObject
{
    Q_OBJECT

private slots:
    void text_data();
    void text();
    void expirationIsThatOfTheInterval_data();
    void expirationIsThatOfTheInterval();
    void uuidIn_data();
    void uuidIn();
    void longUuidIsKeptWhole();
    void everyCutOfAnAnnouncementIsReadWithinItsEnd();

private:
    void interfaceRows();
    void gatewayRows();
    void copiedTextRows();
    void uuidRows();
    void notOfThisProtocolRows();
    void missingKeyRows();
};

void tst_Announcement::interfaceRows()
{
    typedef QList<Interface> Interfaces;
    row("one interface", usual(), "one-interface");
    row("no interface: netSettings stays open", with(Interfaces()), "no-interface");
    row("two interfaces: the whole block twice",
        with(Interfaces() << wired() << plus(plus(noAddress("eth1"), "192.168.1.20", "255.255.0.0"), "2001:db8::20", 64)),
        "two-interfaces");
    row("two IPv4 addresses yield two objects and no trailing comma",
        with(Interfaces() << plus(wired(), "169.254.3.4", "255.255.0.0")), "two-ipv4");
    row("no IPv4 and no IPv6 address yield empty arrays", with(Interfaces() << noAddress("eth0")), "no-address");

    Interface ipv6 = plus(plus(noAddress("eth0"), "fe80::1%eth0", 64), "2001:db8::2", 128);
    ipv6 = plus(plus(ipv6, "fe80::3%eth1", 10), "fe80::4%ETH0", 0);
    row("fe80::1%eth0 is announced as fe80::1, the prefix unquoted",
        with(Interfaces() << plus(plus(ipv6, "fe80::5%eth01", 64), "fe80::6%eth0%eth0", 64)), "several-ipv6");

    row("loopback, can0 and can1 are never listed",
        with(Interfaces() << loopback() << wired("can0") << wired() << wired("can1")), "one-interface");
    row("every name that begins with can is left out",
        with(Interfaces() << wired("can") << wired("canary") << wired()), "one-interface");
    row("loopback alone is no interface", with(Interfaces() << loopback()), "no-interface");
    row("can is meant case-sensitively", with(Interfaces() << wired("CAN0")), "capital-can");
    Interface named = wired();
    named.name = QString::fromUtf8("\303\251\342\202\2540"); // e acute, euro sign, 0
    Values values = with(Interfaces() << named);
    values.configurationMethod = QString::fromUtf8("h\303\244nd\342\202\254"); // a umlaut, euro sign
    row("names outside Latin-1", values, "interface-outside-latin1");
}

void tst_Announcement::gatewayRows()
{
    Values values = usual();
    values.gateway = QHostAddress(QLatin1String("2001::1"));
    row("IPv6 gateway", values, "gateway-ipv6");
    values.gateway = QHostAddress();
    row("a gateway that is not set is an empty ipv6Address", values, "gateway-not-set");
}

void tst_Announcement::copiedTextRows()
{
    Values values = usual();
    values.hasCodesys = true;
    row("CODESYS belongs to type, not to familyType", values, "codesys");

    values = usual();
    values.hostname = "ke\"lt\\a";
    values.serial = "KM\"-\\";
    values.modelName = "Ke\\\"l";
    values.firmwareVersion = "1\\.4\"";
    values.configurationMethod = QLatin1String("d\"\\");
    row("quotes and backslashes are not escaped", values, "not-escaped");

    values = usual();
    values.hostname = "k\303\251\377\001";
    values.serial = "\200";
    values.modelName = "\376";
    values.hasCodesys = true;
    values.firmwareVersion = "\344\366";
    row("bytes are copied as they are", values, "eight-bit");

    values = usual();
    values.hostname = values.serial = values.modelName = values.firmwareVersion = QByteArray();
    values.configurationMethod = QString();
    values.gateway = QHostAddress();
    row("nothing known", values, "nothing-known");
}

void tst_Announcement::text_data()
{
    QTest::addColumn<Values>("values");
    QTest::addColumn<QString>("file");
    interfaceRows();
    gatewayRows();
    copiedTextRows();
    Values values = usual();
    values.interval = 3;
    row("interval 3 gives the expiration 6.6", values, "interval-3");
    values.interval = 1;
    row("interval 1 gives the expiration 2.2", values, "interval-1");
}

void tst_Announcement::text()
{
    QFETCH(Values, values);
    QFETCH(QString, file);
    const QByteArray got = announcement::text(values);
    const QByteArray expected = contentOf(file);
    int same = 0;
    while (same < qMin(got.size(), expected.size()) && got.at(same) == expected.at(same))
        ++same;
    const QByteArray message = "from byte " + QByteArray::number(same) + " on:\n" + got.mid(same) + "\ninstead of:\n" + expected.mid(same);
    QVERIFY2(got == expected, message.constData());
}

void tst_Announcement::expirationIsThatOfTheInterval_data()
{
    QTest::addColumn<int>("interval");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("10") << 10 << QByteArray("22");
    QTest::newRow("3") << 3 << QByteArray("6.6");
    QTest::newRow("1") << 1 << QByteArray("2.2");
    QTest::newRow("5") << 5 << QByteArray("11");
    QTest::newRow("7") << 7 << QByteArray("15.4");
    QTest::newRow("zero") << 0 << QByteArray("0");
    QTest::newRow("minus one") << -1 << QByteArray("-2.2");
    QTest::newRow("six significant digits") << 454545 << QByteArray("999999");
    QTest::newRow("seven digits need an exponent") << 1000000 << QByteArray("2.2e+06");
}

void tst_Announcement::expirationIsThatOfTheInterval()
{
    QFETCH(int, interval);
    QFETCH(QByteArray, expected);
    Values values = usual();
    values.interval = interval;
    const QByteArray text = announcement::text(values);
    QCOMPARE(text.mid(text.lastIndexOf(':')), ':' + expected + "}}");
}

static void uuidRow(const char *name, const QByteArray &datagram, const QString &uuid = QString())
{
    QTest::newRow(name) << datagram << uuid;
}

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

void tst_Announcement::uuidRows()
{
    uuidRow("an announcement", contentOf(latin1("one-interface")), latin1("KM-2044817"));
    uuidRow("white space around the colon", "{\"params\":{\"uuid\" \t\r\n: \n \"A\"}}", latin1("A"));
    uuidRow("white space inside", "{\"params\":{\"uuid\":\" A b \"}}", latin1(" A b "));
    uuidRow("a slash", "{\"params\":{\"uuid\":\"a/b\"}}", latin1("a/b"));
    uuidRow("the first of two", "{\"params\":{\"uuid\":\"one\",\"uuid\":\"two\"}}", latin1("one"));
    uuidRow("one before params does not count", "{\"uuid\":\"early\",\"params\":{\"uuid\":\"late\"}}", latin1("late"));
    uuidRow("the first wherever it stands", "{\"params\":{\"x\":{\"uuid\":\"deep\"},\"device\":{\"uuid\":\"own\"}}}", latin1("deep"));
    uuidRow("the key as a value", "{\"params\":{\"x\":\"uuid\",\"name\":\"n\"}}", latin1("n"));
    uuidRow("the value is a number: the next string", "{\"params\":{\"uuid\":5,\"name\":\"n\"}}", latin1("name"));
    uuidRow("an escaped quote ends it", "{\"params\":{\"uuid\":\"a\\\"b\"}}", latin1("a\\"));
    uuidRow("no JSON at all", " \"params\" \"uuid\" : \"A\"", latin1("A"));
    uuidRow("params is the first of two", " \"params\"\"uuid\":\"A\" \"params\"\"uuid\":\"B\"", latin1("A"));
    uuidRow("capital letters are another key", "{\"params\":{\"UUID\":\"A\",\"uuid\":\"b\"}}", latin1("b"));
    uuidRow("bytes above ASCII are Latin-1", "{\"params\":{\"uuid\":\"\303\251\200\377\"}}", latin1("\303\251\200\377"));
    const QByteArray nul("{\"params\":\0{\"uuid\"\0:\"A\"}}", 25);
    uuidRow("NUL outside of the quotes", nul, latin1("A"));
    uuidRow("UTF-16 hides the keys", QByteArray("{\0\"\0p\0a\0r\0a\0m\0s\0\"\0:\0\"\0u\0u\0i\0d\0\"\0:\0\"\0A\0\"\0", 40));
}

void tst_Announcement::notOfThisProtocolRows()
{
    uuidRow("empty", "");
    uuidRow("no params, though a uuid", "{\"uuid\":\"A\"}");
    uuidRow("params at position 0", "\"params\":{\"uuid\":\"A\"}");
    uuidRow("params at position 0 and again", "\"params\":{\"params\":{\"uuid\":\"A\"}}");
    uuidRow("params at position 1", "{\"params\":{\"uuid\":\"A\"}}", latin1("A"));
    uuidRow("params without quotes", "{params:{\"uuid\":\"A\"}}");
    uuidRow("no colon behind the key", "{\"params\":{\"uuid\"}}");
    uuidRow("nothing behind the key", "{\"params\":{\"uuid\"");
    uuidRow("nothing behind the colon", "{\"params\":{\"uuid\":");
    uuidRow("no quotes behind the colon", "{\"params\":{\"uuid\":5}}");
    uuidRow("no second quote", "{\"params\":{\"uuid\":\"A}}");
    uuidRow("ends with the first quote", "{\"params\":{\"uuid\":\"");
    uuidRow("adjacent quotes", "{\"params\":{\"uuid\":\"\",\"name\":\"n\"}}");
}

// The search for the colon then begins at position 5.
void tst_Announcement::missingKeyRows()
{
    uuidRow("no uuid: the colon of params", "{\"params\":{\"name\":\"n\"}}", latin1("name"));
    uuidRow("no uuid: a colon at position 5", "{\"abc:\"x\",\"params\"}", latin1("x"));
    uuidRow("no uuid: a colon at position 4 is passed", "{\"ab:\"x\",\"params\":\"p\"}", latin1("p"));
    uuidRow("no uuid and no colon from position 5 on", "{\":x \"params\" \"A\"");
    uuidRow("no uuid: one before params is not looked for", "{\"uuid\":\"A\",\"params\":1}", latin1("A"));
    uuidRow("no uuid: nor one at position 4 before an empty text", "{\"x\": \"\",\"params\":\"A\"}", latin1("A"));
    uuidRow("no uuid: adjacent quotes", "{ \"x\": \"\",\"params\":\"A\"}");
}

static QString uuidText(const QByteArray &datagram)
{
    const announcement::Span uuid = announcement::uuidIn(datagram);
    return QString::fromLatin1(datagram.constData() + uuid.begin, uuid.size);
}

void tst_Announcement::uuidIn_data()
{
    QTest::addColumn<QByteArray>("datagram");
    QTest::addColumn<QString>("uuid");
    uuidRows();
    notOfThisProtocolRows();
    missingKeyRows();
}

void tst_Announcement::uuidIn()
{
    QFETCH(QByteArray, datagram);
    QFETCH(QString, uuid);
    QCOMPARE(uuidText(datagram), uuid);
}

void tst_Announcement::longUuidIsKeptWhole()
{
    const QByteArray uuid(60000, 'u');
    QCOMPARE(uuidText("{\"params\":{\"uuid\":\"" + uuid + "\"}}"), QString::fromLatin1(uuid.constData(), uuid.size()));
    QCOMPARE(uuidText("{\"params\":{\"uuid\":\"" + uuid), QString());
}

void tst_Announcement::everyCutOfAnAnnouncementIsReadWithinItsEnd()
{
    const QByteArray whole = contentOf(latin1("one-interface"));
    const int complete = whole.indexOf("KM-2044817\"") + 11;
    for (int size = 0; size <= whole.size(); ++size) {
        // An array of exactly this size, so that a look behind its end is noticed.
        const QByteArray cut(whole.constData(), size);
        const QString uuid = uuidText(cut);
        if (size >= complete)
            QCOMPARE(uuid, latin1("KM-2044817"));
        else if (!cut.contains("\"params\""))
            QCOMPARE(uuid, QString());
        else if (!cut.contains("\"uuid\""))
            QCOMPARE(uuid, latin1("2.0")); // behind the first colon from position 5 on, that of "jsonrpc"
        else
            QCOMPARE(uuid, QString());
    }
}

QTEST_APPLESS_MAIN(tst_Announcement)
#include "tst_announcement.moc"
