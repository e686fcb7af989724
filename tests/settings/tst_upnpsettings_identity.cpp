#include "bytes.h"
#include "caughtlog.h"
#include "dbustypes.h"
#include "fakefwconfig.h"
#include "network.h"
#include "settingstest.h"
#include "upnpsettings.h"
#include "waitfor.h"

#include <QtCore/QProcess>
#include <QtCore/QRegExp>
#include <QtCore/QTextCodec>
#include <QtTest/QtTest>

static const char readHostname[] = "/fwversion Get com.zorv.fwconfig.fwversion hostname";
static const char readVersion[] = "/fwversion Get com.zorv.fwconfig.fwversion zorvversion";

static const QHostAddress nobody;
static const QHostAddress regularPeer(QLatin1String("192.168.1.5"));
static const QHostAddress linkLocalPeer(QLatin1String("169.254.7.7"));

// Who the device is, and where it is reached.
class TestUpnpSettingsIdentity : public SettingsTest
{
    Q_OBJECT

private slots:
    void constructorArgumentsAreKept();
    void modelNameIsLoweredAsLatin1();
    void servicesAreAskedInOrder();
    void identityComesFromTheServices();
    void missingServicesLeaveTheIdentityEmpty();
    void failedReadsLeaveTheirValuesEmpty();
    void propertiesOfOtherTypesBecomeText_data();
    void propertiesOfOtherTypesBecomeText();
    void barePropertyValuesAreNoValues_data();
    void barePropertyValuesAreNoValues();
    void serialNumberThatIsNoTextIsEmpty_data();
    void serialNumberThatIsNoTextIsEmpty();
    void textsAreInTheLocalEncoding();
    void textsEndAtTheirFirstZeroByte();
    void hostNameOfTheServiceIsNotTheKernels();

    void storedUuidIsNeverRewritten();
    void missingUuidIsTakenFromTheKernelAndStored_data();
    void missingUuidIsTakenFromTheKernelAndStored();
    void freshUuidIsUsedWithoutTheService();
    void unreadableKernelFileLeavesTheUuidEmpty();
    void failedStoringIsNotNoticed();
    void storedUuidIsLatin1();

    void linkLocalPeersGetTheLinkLocalIdentity_data();
    void linkLocalPeersGetTheLinkLocalIdentity();
    void withoutALinkLocalAddressEveryPeerGetsTheRegularIdentity();
    void unknownAddressesLeaveTheUrlsEmpty();
    void portsAndGroupAreFixed();
    void serverHeaderNamesModelAndVersion();
    void macAddressHasNoColonsAndUpperCase();
    void missingInterfaceLeavesThePrefixOfTheMacAddress();
    void networkIsUnknownUntilItIsRead();
};

void TestUpnpSettingsIdentity::constructorArgumentsAreKept()
{
    makeSettings();
    QCOMPARE(m_settings->getManufacturer(), QByteArray("Zorv"));
    QCOMPARE(m_settings->getUrl(), QByteArray("http://www.zorv.example"));
    QCOMPARE(m_settings->getModelName(), QByteArray("Kelta"));
    QCOMPARE(m_settings->getModelNameLower(), QByteArray("kelta"));
    QCOMPARE(m_settings->getModelDescription(), QByteArray("Zorv Kelta industrial measurement"));
    QCOMPARE(m_settings->getModelUrl(), QByteArray("http://www.zorv.example/kelta"));
}

void TestUpnpSettingsIdentity::modelNameIsLoweredAsLatin1()
{
    const UpnpSettings settings("", "", "KELTA-X9 \xc3\x84\xd7", "", "", nullptr);
    QCOMPARE(settings.getModelName(), QByteArray("KELTA-X9 \xc3\x84\xd7"));
    QCOMPARE(settings.getModelNameLower(), QByteArray("kelta-x9 \xe3\x84\xd7"));
}

void TestUpnpSettingsIdentity::servicesAreAskedInOrder()
{
    m_settings.reset(newSettings());
    QCOMPARE(m_service->calls(), QStringList() << text(readUuid) << text(readHostname) << text(readVersion) << text(readSerial));
}

void TestUpnpSettingsIdentity::identityComesFromTheServices()
{
    makeSettings();
    QCOMPARE(m_settings->getHostname(), QByteArray("dev1"));
    QCOMPARE(m_settings->strHostname(), text("dev1"));
    QCOMPARE(m_settings->getModelNr(), QByteArray("1.4.2"));
    QCOMPARE(m_settings->getSerial(), QByteArray("K-000123"));
    QCOMPARE(m_settings->getUuid(nobody), QByteArray("abc"));
}

void TestUpnpSettingsIdentity::missingServicesLeaveTheIdentityEmpty()
{
    m_service->stop();
    makeSettings();
    QCOMPARE(m_settings->getHostname(), QByteArray());
    QCOMPARE(m_settings->strHostname(), QString());
    QCOMPARE(m_settings->getModelNr(), QByteArray());
    QCOMPARE(m_settings->getSerial(), QByteArray());
    QCOMPARE(m_settings->getServerHeader(), QByteArray("Kelta/, UPnP/1.0"));
}

void TestUpnpSettingsIdentity::failedReadsLeaveTheirValuesEmpty()
{
    m_service->fail(readHostname);
    m_service->fail(readSerial);
    makeSettings();
    QCOMPARE(m_settings->getHostname(), QByteArray());
    QCOMPARE(m_settings->getModelNr(), QByteArray("1.4.2"));
    QCOMPARE(m_settings->getSerial(), QByteArray());
}

void TestUpnpSettingsIdentity::propertiesOfOtherTypesBecomeText_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("asText");

    TextMap map;
    map.insert(text("a"), text("b"));
    QTest::newRow("number") << QVariant(142) << QByteArray("142");
    QTest::newRow("negative number") << QVariant(-1) << QByteArray("-1");
    QTest::newRow("boolean") << QVariant(true) << QByteArray("true");
    QTest::newRow("fraction") << QVariant(1.5) << QByteArray("1.5");
    QTest::newRow("bytes") << QVariant(QByteArray("1.4.3")) << QByteArray("1.4.3");
    QTest::newRow("empty text") << QVariant(text("")) << QByteArray();
    QTest::newRow("list of texts") << QVariant(QStringList() << text("1") << text("2")) << QByteArray();
    QTest::newRow("dictionary") << QVariant::fromValue(map) << QByteArray();
    QTest::newRow("list of numbers") << QVariant::fromValue(QList<int>() << 1) << QByteArray();
    QTest::newRow("variant in a variant") << QVariant::fromValue(QDBusVariant(text("1.4.3"))) << QByteArray();
}

void TestUpnpSettingsIdentity::propertiesOfOtherTypesBecomeText()
{
    QFETCH(QVariant, value);
    QFETCH(QByteArray, asText);
    m_service->answerProperty("zorvversion", value);
    m_service->answerProperty("hostname", value);
    makeSettings();
    QCOMPARE(m_settings->getModelNr(), asText);
    QCOMPARE(m_settings->getHostname(), asText);
    QCOMPARE(m_settings->getServerHeader(), "Kelta/" + asText + ", UPnP/1.0");
}

void TestUpnpSettingsIdentity::barePropertyValuesAreNoValues_data()
{
    QTest::addColumn<QVariant>("value");

    TextMap map;
    map.insert(text("a"), text("b"));
    QTest::newRow("text") << QVariant(text("1.4.3"));
    QTest::newRow("number") << QVariant(142);
    QTest::newRow("dictionary") << QVariant::fromValue(map);
}

void TestUpnpSettingsIdentity::barePropertyValuesAreNoValues()
{
    QFETCH(QVariant, value);
    m_service->answer(readVersion, value);
    makeSettings();
    QCOMPARE(m_settings->getModelNr(), QByteArray());
    QCOMPARE(m_settings->getHostname(), QByteArray("dev1"));
}

void TestUpnpSettingsIdentity::serialNumberThatIsNoTextIsEmpty_data()
{
    QTest::addColumn<QVariant>("value");

    TextMap map;
    map.insert(text("a"), text("b"));
    const TextPair pair = { text("a"), text("b") };
    QTest::newRow("dictionary") << QVariant::fromValue(map);
    QTest::newRow("list of numbers") << QVariant::fromValue(QList<int>() << 1);
    QTest::newRow("structure") << QVariant::fromValue(pair);
}

void TestUpnpSettingsIdentity::serialNumberThatIsNoTextIsEmpty()
{
    QFETCH(QVariant, value);
    m_service->answer(readSerial, value);
    makeSettings();
    QCOMPARE(m_settings->getSerial(), QByteArray());
}

void TestUpnpSettingsIdentity::textsAreInTheLocalEncoding()
{
    m_service->answer(readSerial, text("K-\xe9"));
    m_service->answerProperty("hostname", text("d\xe9v"));
    m_service->answerProperty("zorvversion", text("1.\xe9"));
    QTextCodec *const before = QTextCodec::codecForLocale();
    const char *const encodings[] = { "UTF-8", "ISO-8859-1" };
    for (const char *encoding : encodings) {
        QTextCodec *const codec = QTextCodec::codecForName(encoding);
        QTextCodec::setCodecForLocale(codec);
        makeSettings();
        QTextCodec::setCodecForLocale(before);
        QCOMPARE(m_settings->getSerial(), codec->fromUnicode(text("K-\xe9")));
        QCOMPARE(m_settings->getHostname(), codec->fromUnicode(text("d\xe9v")));
        QCOMPARE(m_settings->getModelNr(), codec->fromUnicode(text("1.\xe9")));
    }
}

// A D-Bus text cannot hold a zero byte, but an array of bytes can.
void TestUpnpSettingsIdentity::textsEndAtTheirFirstZeroByte()
{
    m_service->answerProperty("hostname", QByteArray("dev1\0x", 6));
    m_service->answerProperty("zorvversion", QByteArray("1.4\0.2", 6));
    makeSettings();
    QCOMPARE(m_settings->getHostname(), QByteArray("dev1"));
    QCOMPARE(m_settings->getModelNr(), QByteArray("1.4"));
}

void TestUpnpSettingsIdentity::hostNameOfTheServiceIsNotTheKernels()
{
    QVERIFY(writeHostname("other"));
    makeSettings();
    QCOMPARE(m_settings->getHostname(), QByteArray("dev1"));
}

void TestUpnpSettingsIdentity::storedUuidIsNeverRewritten()
{
    m_settings.reset(newSettings());
    QCOMPARE(m_settings->getUuid(nobody), QByteArray("abc"));
    m_settings->configureIp();
    QVERIFY(m_service->calls().last().startsWith(text("/network GetAll")));
    QVERIFY(m_service->calls().filter(text("set ")).isEmpty());
    QVERIFY(m_service->calls().filter(text("save")).isEmpty());
}

void TestUpnpSettingsIdentity::missingUuidIsTakenFromTheKernelAndStored_data()
{
    QTest::addColumn<QVariantList>("reply");

    QTest::newRow("empty") << (QVariantList() << text(""));
    QTest::newRow("error") << QVariantList();
    QTest::newRow("number") << (QVariantList() << 5);
    QTest::newRow("list of texts") << (QVariantList() << (QStringList() << text("abc")));
    QTest::newRow("wrapped text") << (QVariantList() << QVariant::fromValue(QDBusVariant(text("abc"))));
}

void TestUpnpSettingsIdentity::missingUuidIsTakenFromTheKernelAndStored()
{
    QFETCH(QVariantList, reply);
    if (reply.isEmpty())
        m_service->fail(readUuid);
    else
        m_service->answer(readUuid, reply);
    m_settings.reset(newSettings());
    const QString uuid = QString::fromLatin1(m_settings->getUuid(nobody).constData());
    QVERIFY(QRegExp(text("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}")).exactMatch(uuid));
    QVERIFY(waitFor([this] { return m_service->calls().contains(text("/systemvariables save")); }));
    QCOMPARE(m_service->calls(), QStringList() << text(readUuid) << text(readHostname) << text(readVersion) << text(readSerial) << text("/systemvariables set UUID ") + uuid << text("/systemvariables save"));
    addLinkLocalAddress();
    QCOMPARE(m_settings->getUuid(linkLocalPeer), uuid.toLatin1() + '0');
}

void TestUpnpSettingsIdentity::freshUuidIsUsedWithoutTheService()
{
    m_service->stop();
    makeSettings();
    const QByteArray first = m_settings->getUuid(nobody);
    QCOMPARE(first.size(), 36);
    makeSettings();
    QVERIFY(m_settings->getUuid(nobody) != first);
}

// An empty folder over that of the file takes it away, also from root.
void TestUpnpSettingsIdentity::unreadableKernelFileLeavesTheUuidEmpty()
{
    m_service->answer(readUuid, text(""));
    QCOMPARE(QProcess::execute(text("mount"), QStringList() << text("-t") << text("tmpfs") << text("none") << text("/proc/sys/kernel/random")), 0);
    CaughtLog log;
    m_settings.reset(newSettings());
    QCOMPARE(QProcess::execute(text("umount"), QStringList(text("/proc/sys/kernel/random"))), 0);
    addLinkLocalAddress();
    QCOMPARE(m_settings->getUuid(nobody), QByteArray());
    QCOMPARE(m_settings->getUuid(linkLocalPeer), QByteArray("0"));
    QCOMPARE(QStringList(m_service->calls().mid(0, 4)), QStringList() << text(readUuid) << text(readHostname) << text(readVersion) << text(readSerial));
    QVERIFY(m_service->calls().last().startsWith(text("/network GetAll")));
    QCOMPARE(m_service->calls().size(), 5);
    QCOMPARE(log.warnings(), QStringList());
}

void TestUpnpSettingsIdentity::failedStoringIsNotNoticed()
{
    m_service->answer(readUuid, text(""));
    CaughtLog log;
    m_settings.reset(newSettings());
    // Neither call has an answer set, so both fail.
    QVERIFY(waitFor([this] { return m_service->calls().contains(text("/systemvariables save")); }));
    m_settings->configureIp();
    QCOMPARE(log.warnings(), QStringList());
    QCOMPARE(m_settings->getUuid(nobody).size(), 36);
}

void TestUpnpSettingsIdentity::storedUuidIsLatin1()
{
    m_service->answer(readUuid, text("\xe9-1"));
    makeSettings();
    QCOMPARE(m_settings->getUuid(nobody), QByteArray("\xe9-1"));
}

void TestUpnpSettingsIdentity::linkLocalPeersGetTheLinkLocalIdentity_data()
{
    QTest::addColumn<QString>("peer");
    QTest::addColumn<bool>("isLinkLocal");

    QTest::newRow("regular") << text("192.168.1.5") << false;
    QTest::newRow("link-local") << text("169.254.7.7") << true;
    QTest::newRow("the device itself") << text("169.254.1.2") << true;
    QTest::newRow("no address") << text("") << false;
    QTest::newRow("just beside") << text("169.253.7.7") << false;
    QTest::newRow("digits elsewhere") << text("10.169.254.7") << false;
    QTest::newRow("IPv6") << text("fe80::1") << false;
    QTest::newRow("mapped into IPv6") << text("::ffff:169.254.7.7") << false;
}

void TestUpnpSettingsIdentity::linkLocalPeersGetTheLinkLocalIdentity()
{
    QFETCH(QString, peer);
    QFETCH(bool, isLinkLocal);
    makeSettings();
    addLinkLocalAddress();
    const QHostAddress src(peer);
    QCOMPARE(m_settings->getUuid(src), QByteArray(isLinkLocal ? "abc0" : "abc"));
    QCOMPARE(m_settings->getPresentationUrl(src), QByteArray(isLinkLocal ? "http://169.254.1.2" : "http://10.77.0.2"));
    QCOMPARE(m_settings->getHttpUrl(src), QByteArray(isLinkLocal ? "http://169.254.1.2:8200/" : "http://10.77.0.2:8200/"));
}

void TestUpnpSettingsIdentity::withoutALinkLocalAddressEveryPeerGetsTheRegularIdentity()
{
    makeSettings();
    m_settings->configureIp();
    QVERIFY(m_settings->getAutoipAddress().isNull());
    QCOMPARE(m_settings->getUuid(linkLocalPeer), QByteArray("abc"));
    QCOMPARE(m_settings->getHttpUrl(linkLocalPeer), QByteArray("http://10.77.0.2:8200/"));
    QCOMPARE(m_settings->getUuid(regularPeer), QByteArray("abc"));
}

void TestUpnpSettingsIdentity::unknownAddressesLeaveTheUrlsEmpty()
{
    makeSettings();
    QCOMPARE(m_settings->getPresentationUrl(nobody), QByteArray("http://"));
    QCOMPARE(m_settings->getHttpUrl(nobody), QByteArray("http://:8200/"));
    QCOMPARE(m_settings->getPresentationUrl(linkLocalPeer), QByteArray("http://"));
}

void TestUpnpSettingsIdentity::portsAndGroupAreFixed()
{
    makeSettings();
    addLinkLocalAddress();
    QCOMPARE(m_settings->getUdpPort(), quint16(1900));
    QCOMPARE(m_settings->getHttpPort(), quint16(8200));
    QCOMPARE(m_settings->getMulticastAddress(), QHostAddress(text("239.255.255.250")));
    QCOMPARE(m_settings->getMulticastAddressStr(), text("239.255.255.250"));
    QCOMPARE(m_settings->getMulticastUrl(), QByteArray("239.255.255.250:1900"));
}

void TestUpnpSettingsIdentity::serverHeaderNamesModelAndVersion()
{
    makeSettings();
    QCOMPARE(m_settings->getServerHeader(), QByteArray("Kelta/1.4.2, UPnP/1.0"));
}

void TestUpnpSettingsIdentity::macAddressHasNoColonsAndUpperCase()
{
    makeSettings();
    QCOMPARE(m_settings->getMacAddress(), text("0x001122AABBCC"));
}

void TestUpnpSettingsIdentity::missingInterfaceLeavesThePrefixOfTheMacAddress()
{
    QVERIFY(network::ip("link set eth0 down"));
    QVERIFY(network::ip("link set eth0 name eth9"));
    makeSettings();
    QVERIFY(network::ip("link set eth9 name eth0"));
    QCOMPARE(m_settings->getMacAddress(), text("0x"));
}

void TestUpnpSettingsIdentity::networkIsUnknownUntilItIsRead()
{
    makeSettings();
    QVERIFY(m_settings->getAddress().isNull());
    QVERIFY(m_settings->getAutoipAddress().isNull());
    QVERIFY(m_settings->getGateway().isNull());
    QCOMPARE(m_settings->getAddressStr(), QString());
    QCOMPARE(m_settings->getAutoipAddressStr(), QString());
    QCOMPARE(m_settings->getNetworkConfigMethod(), QString());
}

QTEST_MAIN(TestUpnpSettingsIdentity)
#include "tst_upnpsettings_identity.moc"
