#include "upnpsettings.h"

#include "bytes.h"
#include "caughtlog.h"
#include "dbustypes.h"
#include "fakefwconfig.h"
#include "network.h"
#include "ownprogram.h"
#include "qtversions.h"
#include "waitfor.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QMetaMethod>
#include <QtCore/QProcess>
#include <QtCore/QRegExp>
#include <QtCore/QScopedPointer>
#include <QtCore/QTextCodec>
#include <QtCore/QXmlStreamReader>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCall>
#include <QtDBus/QDBusPendingReply>
#include <QtTest/QtTest>

static const char hostnameFile[] = "/proc/sys/kernel/hostname";
static const char readHostname[] = "/fwversion Get com.zorv.fwconfig.fwversion hostname";
static const char readVersion[] = "/fwversion Get com.zorv.fwconfig.fwversion zorvversion";
static const char readSerial[] = "/systemconstants get SERIALNUMBER";
static const char readUuid[] = "/systemvariables get UUID";

static const QHostAddress nobody;
static const QHostAddress regularPeer(QLatin1String("192.168.1.5"));
static const QHostAddress linkLocalPeer(QLatin1String("169.254.7.7"));

// Writes down each signal together with the host name at that moment.
class Listener : public QObject
{
    Q_OBJECT

public:
    explicit Listener(UpnpSettings *sender)
        : speaks(false)
        , settings(sender)
    {
        connect(settings, SIGNAL(aboutToChange()), this, SLOT(aboutToChange()));
        connect(settings, SIGNAL(changed()), this, SLOT(changed()));
        connect(settings, SIGNAL(networkReady()), this, SLOT(networkReady()));
    }

    QList<QByteArray> seen;
    bool speaks; // of changed(), in the log

public slots:
    void aboutToChange() { seen << "aboutToChange " + settings->getHostname(); }
    void changed()
    {
        seen << "changed " + settings->getHostname();
        if (speaks)
            qDebug("heard changed()");
    }
    void networkReady() { seen << "networkReady"; }

private:
    UpnpSettings *settings;
};

class TestUpnpSettings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

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

    void changedHostNameFileIsFollowed();
    void hostNameIsLoggedAfterTheSignal();
    void sameHostNameIsToldAgain();
    void hostNameIsTrimmed();
    void hostNameFileThatCannotBeReadIsIgnored();
    void hostNameAsTextEndsAtAZeroByte();
    void hostNameAsTextIsLatin1();

    void methodTableIsFixed();
    void thereAreNoPropertiesAndNoClassInformation();
    void busSeesItsMethodsAndNoSignals();
    void busCallsAreAnswered_data();
    void busCallsAreAnswered();
    void configureIpOnTheBusTellsTheChangeInProcess();
    void protectedSlotsAndSignalsAreNotOnTheBus_data();
    void protectedSlotsAndSignalsAreNotOnTheBus();

    void missingBusIsFatal();

private:
    void makeSettings();
    void addLinkLocalAddress();
    QDBusMessage callOverTheBus(const char *path, const char *interface, const char *method);

    QScopedPointer<FakeFwConfig> m_service;
    QScopedPointer<UpnpSettings> m_settings;
};

static UpnpSettings *newSettings()
{
    return new UpnpSettings("Zorv", "http://www.zorv.example", "Kelta", "Zorv Kelta industrial measurement", "http://www.zorv.example/kelta", nullptr);
}

static bool writeHostname(const QByteArray &name)
{
    QFile file(QString::fromLatin1(hostnameFile));
    return file.open(QIODevice::WriteOnly) && file.write(name + '\n') == name.size() + 1;
}

void TestUpnpSettings::initTestCase()
{
    registerDbusTypes();
}

void TestUpnpSettings::init()
{
    QVERIFY(network::reset());
    QVERIFY(writeHostname("kelta"));
    m_service.reset(new FakeFwConfig);
    m_service->answer(readUuid, text("abc"));
    m_service->answer(readSerial, text("K-000123"));
    m_service->answerProperty("hostname", text("dev1"));
    m_service->answerProperty("zorvversion", text("1.4.2"));
    m_service->start();
}

void TestUpnpSettings::cleanup()
{
    m_settings.reset();
    m_service.reset();
}

void TestUpnpSettings::makeSettings()
{
    m_settings.reset(newSettings());
    m_service->forgetCalls();
}

void TestUpnpSettings::addLinkLocalAddress()
{
    QVERIFY(network::ip("address add 169.254.1.2/16 dev eth0"));
    m_settings->configureIp();
    QCOMPARE(m_settings->getAutoipAddressStr(), text("169.254.1.2"));
}

void TestUpnpSettings::constructorArgumentsAreKept()
{
    makeSettings();
    QCOMPARE(m_settings->getManufacturer(), QByteArray("Zorv"));
    QCOMPARE(m_settings->getUrl(), QByteArray("http://www.zorv.example"));
    QCOMPARE(m_settings->getModelName(), QByteArray("Kelta"));
    QCOMPARE(m_settings->getModelNameLower(), QByteArray("kelta"));
    QCOMPARE(m_settings->getModelDescription(), QByteArray("Zorv Kelta industrial measurement"));
    QCOMPARE(m_settings->getModelUrl(), QByteArray("http://www.zorv.example/kelta"));
}

void TestUpnpSettings::modelNameIsLoweredAsLatin1()
{
    const UpnpSettings settings("", "", "KELTA-X9 \xc3\x84\xd7", "", "", nullptr);
    QCOMPARE(settings.getModelName(), QByteArray("KELTA-X9 \xc3\x84\xd7"));
    QCOMPARE(settings.getModelNameLower(), QByteArray("kelta-x9 \xe3\x84\xd7"));
}

void TestUpnpSettings::servicesAreAskedInOrder()
{
    m_settings.reset(newSettings());
    QCOMPARE(m_service->calls(), QStringList() << text(readUuid) << text(readHostname) << text(readVersion) << text(readSerial));
}

void TestUpnpSettings::identityComesFromTheServices()
{
    makeSettings();
    QCOMPARE(m_settings->getHostname(), QByteArray("dev1"));
    QCOMPARE(m_settings->strHostname(), text("dev1"));
    QCOMPARE(m_settings->getModelNr(), QByteArray("1.4.2"));
    QCOMPARE(m_settings->getSerial(), QByteArray("K-000123"));
    QCOMPARE(m_settings->getUuid(nobody), QByteArray("abc"));
}

void TestUpnpSettings::missingServicesLeaveTheIdentityEmpty()
{
    m_service->stop();
    makeSettings();
    QCOMPARE(m_settings->getHostname(), QByteArray());
    QCOMPARE(m_settings->strHostname(), QString());
    QCOMPARE(m_settings->getModelNr(), QByteArray());
    QCOMPARE(m_settings->getSerial(), QByteArray());
    QCOMPARE(m_settings->getServerHeader(), QByteArray("Kelta/, UPnP/1.0"));
}

void TestUpnpSettings::failedReadsLeaveTheirValuesEmpty()
{
    m_service->fail(readHostname);
    m_service->fail(readSerial);
    makeSettings();
    QCOMPARE(m_settings->getHostname(), QByteArray());
    QCOMPARE(m_settings->getModelNr(), QByteArray("1.4.2"));
    QCOMPARE(m_settings->getSerial(), QByteArray());
}

void TestUpnpSettings::propertiesOfOtherTypesBecomeText_data()
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

void TestUpnpSettings::propertiesOfOtherTypesBecomeText()
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

void TestUpnpSettings::barePropertyValuesAreNoValues_data()
{
    QTest::addColumn<QVariant>("value");

    TextMap map;
    map.insert(text("a"), text("b"));
    QTest::newRow("text") << QVariant(text("1.4.3"));
    QTest::newRow("number") << QVariant(142);
    QTest::newRow("dictionary") << QVariant::fromValue(map);
}

void TestUpnpSettings::barePropertyValuesAreNoValues()
{
    QFETCH(QVariant, value);
    m_service->answer(readVersion, value);
    makeSettings();
    QCOMPARE(m_settings->getModelNr(), QByteArray());
    QCOMPARE(m_settings->getHostname(), QByteArray("dev1"));
}

void TestUpnpSettings::serialNumberThatIsNoTextIsEmpty_data()
{
    QTest::addColumn<QVariant>("value");

    TextMap map;
    map.insert(text("a"), text("b"));
    const TextPair pair = { text("a"), text("b") };
    QTest::newRow("dictionary") << QVariant::fromValue(map);
    QTest::newRow("list of numbers") << QVariant::fromValue(QList<int>() << 1);
    QTest::newRow("structure") << QVariant::fromValue(pair);
}

void TestUpnpSettings::serialNumberThatIsNoTextIsEmpty()
{
    QFETCH(QVariant, value);
    m_service->answer(readSerial, value);
    makeSettings();
    QCOMPARE(m_settings->getSerial(), QByteArray());
}

void TestUpnpSettings::textsAreInTheLocalEncoding()
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
void TestUpnpSettings::textsEndAtTheirFirstZeroByte()
{
    m_service->answerProperty("hostname", QByteArray("dev1\0x", 6));
    m_service->answerProperty("zorvversion", QByteArray("1.4\0.2", 6));
    makeSettings();
    QCOMPARE(m_settings->getHostname(), QByteArray("dev1"));
    QCOMPARE(m_settings->getModelNr(), QByteArray("1.4"));
}

void TestUpnpSettings::hostNameOfTheServiceIsNotTheKernels()
{
    QVERIFY(writeHostname("other"));
    makeSettings();
    QCOMPARE(m_settings->getHostname(), QByteArray("dev1"));
}

void TestUpnpSettings::storedUuidIsNeverRewritten()
{
    m_settings.reset(newSettings());
    QCOMPARE(m_settings->getUuid(nobody), QByteArray("abc"));
    m_settings->configureIp();
    QVERIFY(m_service->calls().last().startsWith(text("/network GetAll")));
    QVERIFY(m_service->calls().filter(text("set ")).isEmpty());
    QVERIFY(m_service->calls().filter(text("save")).isEmpty());
}

void TestUpnpSettings::missingUuidIsTakenFromTheKernelAndStored_data()
{
    QTest::addColumn<QVariantList>("reply");

    QTest::newRow("empty") << (QVariantList() << text(""));
    QTest::newRow("error") << QVariantList();
    QTest::newRow("number") << (QVariantList() << 5);
    QTest::newRow("list of texts") << (QVariantList() << (QStringList() << text("abc")));
    QTest::newRow("wrapped text") << (QVariantList() << QVariant::fromValue(QDBusVariant(text("abc"))));
}

void TestUpnpSettings::missingUuidIsTakenFromTheKernelAndStored()
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

void TestUpnpSettings::freshUuidIsUsedWithoutTheService()
{
    m_service->stop();
    makeSettings();
    const QByteArray first = m_settings->getUuid(nobody);
    QCOMPARE(first.size(), 36);
    makeSettings();
    QVERIFY(m_settings->getUuid(nobody) != first);
}

// An empty folder over that of the file takes it away, also from root.
void TestUpnpSettings::unreadableKernelFileLeavesTheUuidEmpty()
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

void TestUpnpSettings::failedStoringIsNotNoticed()
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

void TestUpnpSettings::storedUuidIsLatin1()
{
    m_service->answer(readUuid, text("\xe9-1"));
    makeSettings();
    QCOMPARE(m_settings->getUuid(nobody), QByteArray("\xe9-1"));
}

void TestUpnpSettings::linkLocalPeersGetTheLinkLocalIdentity_data()
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

void TestUpnpSettings::linkLocalPeersGetTheLinkLocalIdentity()
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

void TestUpnpSettings::withoutALinkLocalAddressEveryPeerGetsTheRegularIdentity()
{
    makeSettings();
    m_settings->configureIp();
    QVERIFY(m_settings->getAutoipAddress().isNull());
    QCOMPARE(m_settings->getUuid(linkLocalPeer), QByteArray("abc"));
    QCOMPARE(m_settings->getHttpUrl(linkLocalPeer), QByteArray("http://10.77.0.2:8200/"));
    QCOMPARE(m_settings->getUuid(regularPeer), QByteArray("abc"));
}

void TestUpnpSettings::unknownAddressesLeaveTheUrlsEmpty()
{
    makeSettings();
    QCOMPARE(m_settings->getPresentationUrl(nobody), QByteArray("http://"));
    QCOMPARE(m_settings->getHttpUrl(nobody), QByteArray("http://:8200/"));
    QCOMPARE(m_settings->getPresentationUrl(linkLocalPeer), QByteArray("http://"));
}

void TestUpnpSettings::portsAndGroupAreFixed()
{
    makeSettings();
    addLinkLocalAddress();
    QCOMPARE(m_settings->getUdpPort(), quint16(1900));
    QCOMPARE(m_settings->getHttpPort(), quint16(8200));
    QCOMPARE(m_settings->getMulticastAddress(), QHostAddress(text("239.255.255.250")));
    QCOMPARE(m_settings->getMulticastAddressStr(), text("239.255.255.250"));
    QCOMPARE(m_settings->getMulticastUrl(), QByteArray("239.255.255.250:1900"));
}

void TestUpnpSettings::serverHeaderNamesModelAndVersion()
{
    makeSettings();
    QCOMPARE(m_settings->getServerHeader(), QByteArray("Kelta/1.4.2, UPnP/1.0"));
}

void TestUpnpSettings::macAddressHasNoColonsAndUpperCase()
{
    makeSettings();
    QCOMPARE(m_settings->getMacAddress(), text("0x001122AABBCC"));
}

void TestUpnpSettings::missingInterfaceLeavesThePrefixOfTheMacAddress()
{
    QVERIFY(network::ip("link set eth0 down"));
    QVERIFY(network::ip("link set eth0 name eth9"));
    makeSettings();
    QVERIFY(network::ip("link set eth9 name eth0"));
    QCOMPARE(m_settings->getMacAddress(), text("0x"));
}

void TestUpnpSettings::networkIsUnknownUntilItIsRead()
{
    makeSettings();
    QVERIFY(m_settings->getAddress().isNull());
    QVERIFY(m_settings->getAutoipAddress().isNull());
    QVERIFY(m_settings->getGateway().isNull());
    QCOMPARE(m_settings->getAddressStr(), QString());
    QCOMPARE(m_settings->getAutoipAddressStr(), QString());
    QCOMPARE(m_settings->getNetworkConfigMethod(), QString());
}

void TestUpnpSettings::changedHostNameFileIsFollowed()
{
    makeSettings();
    Listener listener(m_settings.data());
    CaughtLog log;
    QVERIFY(writeHostname("dev2"));
    QVERIFY(waitFor([&] { return listener.seen.size() >= 2; }));
    QVERIFY(listener.seen.size() == 2 || qtversions::mayReportAWriteTwice());
    QCOMPARE(listener.seen.mid(0, 2), QList<QByteArray>() << "aboutToChange dev1"
                                                          << "changed dev2");
    QCOMPARE(log.lines().mid(0, 1), QList<QString>() << text("debug: new hostname: \"dev2\""));
    QVERIFY(log.lines().size() == 1 || qtversions::mayReportAWriteTwice());
    QCOMPARE(m_settings->strHostname(), text("dev2"));
    // And again: the file stays watched.
    QVERIFY(writeHostname("dev3"));
    QVERIFY(waitFor([&] { return listener.seen.last() == "changed dev3"; }));
    QVERIFY(listener.seen.size() == 4 || qtversions::mayReportAWriteTwice());
}

void TestUpnpSettings::hostNameIsLoggedAfterTheSignal()
{
    makeSettings();
    Listener listener(m_settings.data());
    listener.speaks = true;
    CaughtLog log;
    QVERIFY(writeHostname("dev2"));
    QVERIFY(waitFor([&] { return log.lines().size() >= 2; }));
    QCOMPARE(QStringList(log.lines().mid(0, 2)), QStringList() << text("debug: heard changed()") << text("debug: new hostname: \"dev2\""));
}

void TestUpnpSettings::sameHostNameIsToldAgain()
{
    QVERIFY(writeHostname("dev1"));
    makeSettings();
    Listener listener(m_settings.data());
    QVERIFY(writeHostname("dev1"));
    QVERIFY(waitFor([&] { return listener.seen.size() >= 2; }));
    QVERIFY(listener.seen.size() == 2 || qtversions::mayReportAWriteTwice());
    QCOMPARE(listener.seen.mid(0, 2), QList<QByteArray>() << "aboutToChange dev1"
                                                          << "changed dev1");
}

void TestUpnpSettings::hostNameIsTrimmed()
{
    makeSettings();
    QVERIFY(writeHostname("  dev4\t"));
    QVERIFY(QMetaObject::invokeMethod(m_settings.data(), "hostnameChanged"));
    QCOMPARE(m_settings->getHostname(), QByteArray("dev4"));
}

// A mount over the file makes it unreadable, also for root.
void TestUpnpSettings::hostNameFileThatCannotBeReadIsIgnored()
{
    makeSettings();
    Listener listener(m_settings.data());
    CaughtLog log;
    QCOMPARE(QProcess::execute(text("mount"), QStringList() << text("-t") << text("tmpfs") << text("none") << text("/proc/sys/kernel")), 0);
    const bool invoked = QMetaObject::invokeMethod(m_settings.data(), "hostnameChanged");
    QCOMPARE(QProcess::execute(text("umount"), QStringList(text("/proc/sys/kernel"))), 0);
    QVERIFY(invoked);
    QCOMPARE(listener.seen, QList<QByteArray>());
    QCOMPARE(log.lines(), QStringList());
    QCOMPARE(m_settings->getHostname(), QByteArray("dev1"));
}

void TestUpnpSettings::hostNameAsTextEndsAtAZeroByte()
{
    makeSettings();
    QFile file(text("/run/hostname"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("dev5\0x\n", 7);
    file.close();
    QCOMPARE(QProcess::execute(text("mount"), QStringList() << text("--bind") << text("/run/hostname") << text(hostnameFile)), 0);
    const bool invoked = QMetaObject::invokeMethod(m_settings.data(), "hostnameChanged");
    QCOMPARE(QProcess::execute(text("umount"), QStringList(text(hostnameFile))), 0);
    QVERIFY(invoked);
    QCOMPARE(m_settings->getHostname(), QByteArray("dev5\0x", 6));
    QCOMPARE(m_settings->strHostname(), text("dev5"));
}

void TestUpnpSettings::hostNameAsTextIsLatin1()
{
    makeSettings();
    QVERIFY(writeHostname("d\xe9v"));
    QVERIFY(QMetaObject::invokeMethod(m_settings.data(), "hostnameChanged"));
    QCOMPARE(m_settings->getHostname(), QByteArray("d\xe9v"));
    QCOMPARE(m_settings->strHostname(), text("d\xe9v"));
}

void TestUpnpSettings::methodTableIsFixed()
{
    static const char *const table[] = {
        "signal void aboutToChange() ",
        "signal void changed() ",
        "signal void networkReady() ",
        "public slot QByteArray getManufacturer() ",
        "public slot QByteArray getUrl() ",
        "public slot QByteArray getModelName() ",
        "public slot QByteArray getModelNameLower() ",
        "public slot QByteArray getModelDescription() ",
        "public slot QByteArray getModelUrl() ",
        "public slot QByteArray getModelNr() ",
        "public slot QByteArray getSerial() ",
        "public slot QByteArray getUuid(QHostAddress) src",
        "public slot QByteArray getHostname() ",
        "public slot QString strHostname() ",
        "public slot QByteArray getPresentationUrl(QHostAddress) src",
        "public slot QByteArray getHttpUrl(QHostAddress) src",
        "public slot QByteArray getMulticastUrl() ",
        "public slot QByteArray getServerHeader() ",
        "public slot QHostAddress getAddress() ",
        "public slot QHostAddress getMulticastAddress() ",
        "public slot QHostAddress getAutoipAddress() ",
        "public slot QHostAddress getGateway() ",
        "public slot QString getAddressStr() ",
        "public slot QString getMulticastAddressStr() ",
        "public slot QString getAutoipAddressStr() ",
        "public slot quint16 getUdpPort() ",
        "public slot quint16 getHttpPort() ",
        "public slot QString getNetworkConfigMethod() ",
        "public slot QString getMacAddress() ",
        "public slot void configureIp() ",
        "protected slot void hostnameChanged() ",
        "protected slot void connmanPropertyChanged(QString,QDBusVariant) name,value",
        "protected slot void serviceAvail(QString) service",
    };
    const QMetaObject &meta = UpnpSettings::staticMetaObject;
    QCOMPARE(QByteArray(meta.className()), QByteArray("UpnpSettings"));
    int index = meta.methodOffset();
    for (const char *line : table) {
        QVERIFY(index < meta.methodCount());
        QCOMPARE(qtversions::described(meta.method(index++)), QByteArray(line));
    }
    QCOMPARE(index, meta.methodCount());
}

void TestUpnpSettings::thereAreNoPropertiesAndNoClassInformation()
{
    const QMetaObject &meta = UpnpSettings::staticMetaObject;
    QCOMPARE(meta.propertyCount(), meta.propertyOffset());
    QCOMPARE(meta.classInfoCount(), meta.classInfoOffset());
    QCOMPARE(meta.enumeratorCount(), meta.enumeratorOffset());
    QCOMPARE(QByteArray(meta.superClass()->className()), QByteArray("QObject"));
}

// The settings live on the connection that the call comes in on, so the event loop has to run meanwhile.
QDBusMessage TestUpnpSettings::callOverTheBus(const char *path, const char *interface, const char *method)
{
    const QString address = QString::fromLocal8Bit(qgetenv("DBUS_SYSTEM_BUS_ADDRESS").constData());
    const QDBusConnection client = QDBusConnection::connectToBus(address, text("client"));
    const QDBusMessage call = QDBusMessage::createMethodCall(QDBusConnection::systemBus().baseService(), text(path), text(interface), text(method));
    const QDBusPendingCall pending = client.asyncCall(call);
    const bool answered = waitFor([&] { return pending.isFinished(); });
    const QDBusMessage reply = answered ? pending.reply() : QDBusMessage();
    QDBusConnection::disconnectFromBus(text("client"));
    return reply;
}

// "getUdpPort -> q", "-> (s)" for an argument that goes in; signals and properties as "signal x", "property x".
static QStringList interfaceIn(const QString &xml, const QString &interface)
{
    QStringList members;
    QXmlStreamReader reader(xml);
    bool isInside = false;
    while (!reader.atEnd()) {
        reader.readNext();
        const QString name = reader.attributes().value(QLatin1String("name")).toString();
        if (reader.isStartElement() && reader.name() == QLatin1String("interface"))
            isInside = name == interface;
        else if (!reader.isStartElement() || !isInside)
            continue;
        else if (reader.name() == QLatin1String("method"))
            members << name;
        else if (reader.name() == QLatin1String("arg") && reader.attributes().value(QLatin1String("direction")) == QLatin1String("out"))
            members.last() += QLatin1String(" -> ") + reader.attributes().value(QLatin1String("type")).toString();
        else if (reader.name() == QLatin1String("arg"))
            members.last() += QLatin1String(" <- ") + reader.attributes().value(QLatin1String("type")).toString();
        else if (reader.name() != QLatin1String("annotation"))
            members << reader.name().toString() + QLatin1Char(' ') + name;
    }
    return members;
}

void TestUpnpSettings::busSeesItsMethodsAndNoSignals()
{
    makeSettings();
    QVERIFY(QDBusConnection::systemBus().registerObject(text("/settings"), m_settings.data(), QDBusConnection::ExportAllSlots));
    CaughtLog noise;
    const QDBusMessage reply = callOverTheBus("/settings", "org.freedesktop.DBus.Introspectable", "Introspect");
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QStringList members = interfaceIn(reply.arguments().first().toString(), text("local.UpnpSettings"));
    // Whether the slots with host addresses are described at all is a matter of the Qt version.
    static const char *const withHostAddress[] = { "getUuid", "getPresentationUrl", "getHttpUrl", "getAddress", "getMulticastAddress", "getAutoipAddress", "getGateway" };
    for (const char *name : withHostAddress) {
        for (int i = members.size() - 1; i >= 0; --i) {
            if (members.at(i).section(QLatin1Char(' '), 0, 0) == text(name))
                members.removeAt(i);
        }
    }
    QCOMPARE(members, QStringList() << text("getManufacturer -> ay") << text("getUrl -> ay") << text("getModelName -> ay") << text("getModelNameLower -> ay") << text("getModelDescription -> ay") << text("getModelUrl -> ay") << text("getModelNr -> ay") << text("getSerial -> ay") << text("getHostname -> ay") << text("strHostname -> s") << text("getMulticastUrl -> ay") << text("getServerHeader -> ay") << text("getAddressStr -> s") << text("getMulticastAddressStr -> s") << text("getAutoipAddressStr -> s") << text("getUdpPort -> q") << text("getHttpPort -> q") << text("getNetworkConfigMethod -> s") << text("getMacAddress -> s") << text("configureIp"));
}

void TestUpnpSettings::busCallsAreAnswered_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("signature");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("manufacturer") << QByteArray("getManufacturer") << text("ay") << QVariant(QByteArray("Zorv"));
    QTest::newRow("manufacturer's address") << QByteArray("getUrl") << text("ay") << QVariant(QByteArray("http://www.zorv.example"));
    QTest::newRow("model") << QByteArray("getModelName") << text("ay") << QVariant(QByteArray("Kelta"));
    QTest::newRow("model in lower case") << QByteArray("getModelNameLower") << text("ay") << QVariant(QByteArray("kelta"));
    QTest::newRow("description") << QByteArray("getModelDescription") << text("ay") << QVariant(QByteArray("Zorv Kelta industrial measurement"));
    QTest::newRow("model's address") << QByteArray("getModelUrl") << text("ay") << QVariant(QByteArray("http://www.zorv.example/kelta"));
    QTest::newRow("version") << QByteArray("getModelNr") << text("ay") << QVariant(QByteArray("1.4.2"));
    QTest::newRow("serial number") << QByteArray("getSerial") << text("ay") << QVariant(QByteArray("K-000123"));
    QTest::newRow("host name") << QByteArray("getHostname") << text("ay") << QVariant(QByteArray("dev1"));
    QTest::newRow("host name as text") << QByteArray("strHostname") << text("s") << QVariant(text("dev1"));
    QTest::newRow("group and port") << QByteArray("getMulticastUrl") << text("ay") << QVariant(QByteArray("239.255.255.250:1900"));
    QTest::newRow("server header") << QByteArray("getServerHeader") << text("ay") << QVariant(QByteArray("Kelta/1.4.2, UPnP/1.0"));
    QTest::newRow("address") << QByteArray("getAddressStr") << text("s") << QVariant(text("10.77.0.2"));
    QTest::newRow("group") << QByteArray("getMulticastAddressStr") << text("s") << QVariant(text("239.255.255.250"));
    QTest::newRow("link-local address") << QByteArray("getAutoipAddressStr") << text("s") << QVariant(text("169.254.1.2"));
    QTest::newRow("SSDP port") << QByteArray("getUdpPort") << text("q") << QVariant::fromValue(ushort(1900));
    QTest::newRow("HTTP port") << QByteArray("getHttpPort") << text("q") << QVariant::fromValue(ushort(8200));
    QTest::newRow("method") << QByteArray("getNetworkConfigMethod") << text("s") << QVariant(text("static"));
    QTest::newRow("hardware address") << QByteArray("getMacAddress") << text("s") << QVariant(text("0x001122AABBCC"));
    QTest::newRow("network query") << QByteArray("configureIp") << text("") << QVariant();
}

void TestUpnpSettings::busCallsAreAnswered()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, signature);
    QFETCH(QVariant, value);
    QVariantMap configured;
    configured.insert(text("dhcp"), false);
    m_service->answerNetwork(configured);
    makeSettings();
    addLinkLocalAddress();
    QVERIFY(QDBusConnection::systemBus().registerObject(text("/settings"), m_settings.data(), QDBusConnection::ExportAllSlots));
    const QDBusMessage reply = callOverTheBus("/settings", "local.UpnpSettings", method.constData());
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QCOMPARE(reply.signature(), signature);
    QCOMPARE(reply.arguments().value(0), value);
}

void TestUpnpSettings::configureIpOnTheBusTellsTheChangeInProcess()
{
    makeSettings();
    QVERIFY(QDBusConnection::systemBus().registerObject(text("/settings"), m_settings.data(), QDBusConnection::ExportAllSlots));
    Listener listener(m_settings.data());
    const QDBusMessage reply = callOverTheBus("/settings", "local.UpnpSettings", "configureIp");
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QCOMPARE(listener.seen, QList<QByteArray>() << "changed dev1");
    QCOMPARE(m_service->calls(), QStringList(text("/network GetAll com.zorv.fwconfig.network local.NetworkInterface")));
}

void TestUpnpSettings::protectedSlotsAndSignalsAreNotOnTheBus_data()
{
    QTest::addColumn<QByteArray>("method");

    QTest::newRow("hostnameChanged") << QByteArray("hostnameChanged");
    QTest::newRow("serviceAvail") << QByteArray("serviceAvail");
    QTest::newRow("connmanPropertyChanged") << QByteArray("connmanPropertyChanged");
    QTest::newRow("changed") << QByteArray("changed");
    QTest::newRow("aboutToChange") << QByteArray("aboutToChange");
    QTest::newRow("networkReady") << QByteArray("networkReady");
    QTest::newRow("deleteLater") << QByteArray("deleteLater");
}

void TestUpnpSettings::protectedSlotsAndSignalsAreNotOnTheBus()
{
    QFETCH(QByteArray, method);
    makeSettings();
    QVERIFY(QDBusConnection::systemBus().registerObject(text("/settings"), m_settings.data(), QDBusConnection::ExportAllSlots));
    Listener listener(m_settings.data());
    const QDBusMessage reply = callOverTheBus("/settings", "local.UpnpSettings", method.constData());
    QCOMPARE(reply.type(), QDBusMessage::ErrorMessage);
    QCOMPARE(reply.errorName(), text("org.freedesktop.DBus.Error.UnknownMethod"));
    QCOMPARE(listener.seen, QList<QByteArray>());
}

// The process would end here, so it is done in another one: this program with one argument.
void TestUpnpSettings::missingBusIsFatal()
{
    QProcess process;
    QStringList environment = QProcess::systemEnvironment().filter(QRegExp(text("^(?!DBUS_SYSTEM_BUS_ADDRESS=)")));
    environment << text("DBUS_SYSTEM_BUS_ADDRESS=unix:path=/run/no-bus-here");
    process.setEnvironment(environment);
    startOwnProgram(&process, "--only-construct");
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitStatus(), QProcess::CrashExit);
    QVERIFY(process.readAllStandardError().contains("connman signal connect failed"));
    QCOMPARE(process.readAllStandardOutput(), QByteArray());
}

// Without a program name Qt calls the exported interface local.UpnpSettings, as in the daemon.
int main(int argc, char *argv[])
{
    static char noName[] = "";
    char *applicationArguments[] = { noName, nullptr };
    int applicationArgumentCount = 1;
    const QCoreApplication application(applicationArgumentCount, applicationArguments);
    if (argc == 2 && QByteArray(argv[1]) == "--only-construct") {
        delete newSettings();
        puts("constructed");
        return 0;
    }
    TestUpnpSettings test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_upnpsettings.moc"
