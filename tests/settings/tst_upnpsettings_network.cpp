#include "bytes.h"
#include "caughtlog.h"
#include "dbustypes.h"
#include "fakeconnman.h"
#include "fakefwconfig.h"
#include "network.h"
#include "qtversions.h"
#include "settingstest.h"
#include "upnpsettings.h"
#include "waitfor.h"

#include <QtCore/QScopedPointer>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtTest/QtTest>

static QString oneText(const QHostAddress &address, const QString &asText)
{
    return address.toString() == asText ? asText : asText + text(" beside ") + address.toString();
}

static QString networkOf(const UpnpSettings &settings)
{
    return (QStringList() << oneText(settings.getAddress(), settings.getAddressStr())
                          << oneText(settings.getAutoipAddress(), settings.getAutoipAddressStr()) << settings.getGateway().toString() << settings.getNetworkConfigMethod())
        .join(text("|"));
}

// How the settings follow the network: eth0, the configuration service and connman.
class TestUpnpSettingsNetwork : public SettingsTest
{
    Q_OBJECT

protected slots:
    void init();
    void cleanup();

private slots:
    void queryHasTwoArguments();
    void configureIpTellsOnlyThatItChanged();
    void configureIpLogsTheAddressAfterTheSignal();
    void methodAndGatewayComeFromTheService_data();
    void methodAndGatewayComeFromTheService();
    void invalidRepliesLeaveMethodAndGateway_data();
    void invalidRepliesLeaveMethodAndGateway();
    void missingServiceLeavesMethodAndGateway();
    void regularAndLinkLocalAddressesAreToldApart();
    void lastAddressOfEachKindWins();
    void onlyAddressCountsAsTheRegularOne_data();
    void onlyAddressCountsAsTheRegularOne();
    void linkLocalAddressNeedsTheSecondPointOnTheInterface();
    void interfaceWithoutAddressesKeepsTheOldOnes();
    void missingInterfaceKeepsTheOldAddresses();
    void serviceComingBackIsAskedAgain();
    void onlyTheConfigurationServiceStartsAQuery();

    void onlyReadyMakesTheNetworkReady_data();
    void onlyReadyMakesTheNetworkReady();
    void everyReadyIsTold();
    void readyIsLoggedAfterTheSignal();
    void ipv4ChangeIsLoggedBetweenTheSignals();
    void ipv4ChangeIsToldBeforeAndAfter();
    void logOfAnIpv4ChangeShowsTheAddressAsGateway();
    void linkLocalAddressOfConnmanLeavesTheRegularOne();
    void prefixOfConnmanHasNoSecondPoint();
    void emptyDictionaryClearsEverythingButTheLinkLocalAddress();
    void missingEntriesReadAsEmptyTexts_data();
    void missingEntriesReadAsEmptyTexts();
    void badAddressesOfConnmanAreNull();
    void lastServiceToReportWins();
    void otherPropertiesAreIgnored_data();
    void otherPropertiesAreIgnored();
    void valuesOfOtherTypesReadAsEmpty_data();
    void valuesOfOtherTypesReadAsEmpty();
    void signalsOfOtherSignaturesAreNotDelivered_data();
    void signalsOfOtherSignaturesAreNotDelivered();
    void statesOfOtherTypesAreIgnored_data();
    void statesOfOtherTypesAreIgnored();
    void signalsOfOtherServicesAreNotDelivered();

private:
    void makeSettings();
    bool allSignalsArrived();
    QString state() const { return networkOf(*m_settings); }

    QScopedPointer<FakeConnman> m_connman;
    QScopedPointer<Listener> m_listener;
};

static QVariantMap configuration(const QVariant &dhcp, const QVariant &gateway)
{
    QVariantMap map;
    if (dhcp.isValid())
        map.insert(text("dhcp"), dhcp);
    if (gateway.isValid())
        map.insert(text("gateway"), gateway);
    return map;
}

static QVariantMap ipv4(const char *method, const char *address, const char *gateway)
{
    QVariantMap map;
    if (method)
        map.insert(text("Method"), text(method));
    if (address)
        map.insert(text("Address"), text(address));
    if (gateway)
        map.insert(text("Gateway"), text(gateway));
    return map;
}

static const char getAll[] = "/network GetAll com.zorv.fwconfig.network local.NetworkInterface";

void TestUpnpSettingsNetwork::init()
{
    SettingsTest::init();
    m_connman.reset(new FakeConnman);
}

void TestUpnpSettingsNetwork::cleanup()
{
    m_listener.reset();
    m_settings.reset();
    m_connman.reset();
    SettingsTest::cleanup();
}

// With the address of eth0, the link-local address 169.254.1.1, the gateway 10.77.0.1 and the method "dhcp".
void TestUpnpSettingsNetwork::makeSettings()
{
    m_service->answerNetwork(configuration(true, text("10.77.0.1")));
    CaughtLog log;
    SettingsTest::makeSettings();
    QVERIFY(network::ip("address add 169.254.1.1/16 dev eth0"));
    m_settings->configureIp();
    QVERIFY(network::ip("address del 169.254.1.1/16 dev eth0"));
    QCOMPARE(state(), text("10.77.0.2|169.254.1.1|10.77.0.1|dhcp"));
    m_listener.reset(new Listener(m_settings.data(), networkOf));
    m_service->forgetCalls();
}

// A last signal was sent and seen, so that everything sent before has been seen, too.
bool TestUpnpSettingsNetwork::allSignalsArrived()
{
    m_connman->propertyChanged("State", text("ready"));
    if (!waitFor([this] { return !m_listener->seen.isEmpty() && m_listener->seen.last() == text("networkReady"); }))
        return false;
    m_listener->seen.removeLast();
    return true;
}

void TestUpnpSettingsNetwork::queryHasTwoArguments()
{
    makeSettings();
    m_settings->configureIp();
    QCOMPARE(m_service->calls(), QStringList(text(getAll)));
}

void TestUpnpSettingsNetwork::configureIpTellsOnlyThatItChanged()
{
    makeSettings();
    m_service->answerNetwork(configuration(false, text("10.77.0.9")));
    m_settings->configureIp();
    QCOMPARE(m_listener->seen, QStringList(text("changed 10.77.0.2|169.254.1.1|10.77.0.9|static")));
}

void TestUpnpSettingsNetwork::configureIpLogsTheAddressAfterTheSignal()
{
    makeSettings();
    CaughtLog log;
    m_listener->speaks = true;
    m_settings->configureIp();
    QCOMPARE(log.lines(), QStringList() << text("debug: heard changed()") << text("debug: ip: \"10.77.0.2\""));
}

void TestUpnpSettingsNetwork::methodAndGatewayComeFromTheService_data()
{
    QTest::addColumn<QVariantMap>("configured");
    QTest::addColumn<QString>("gatewayAndMethod");

    QTest::newRow("dhcp") << configuration(true, text("10.77.0.8")) << text("10.77.0.8|dhcp");
    QTest::newRow("static") << configuration(false, text("10.77.0.8")) << text("10.77.0.8|static");
    QTest::newRow("dhcp as a number") << configuration(1, text("10.77.0.8")) << text("10.77.0.8|dhcp");
    QTest::newRow("dhcp as the number zero") << configuration(0, text("10.77.0.8")) << text("10.77.0.8|static");
    QTest::newRow("dhcp as a text") << configuration(text("true"), text("10.77.0.8")) << text("10.77.0.8|dhcp");
    QTest::newRow("dhcp as the text false") << configuration(text("false"), text("10.77.0.8")) << text("10.77.0.8|static");
    QTest::newRow("dhcp as an empty text") << configuration(text(""), text("10.77.0.8")) << text("10.77.0.8|static");
    QTest::newRow("dhcp as a list") << configuration(QVariantList() << true, text("10.77.0.8")) << text("10.77.0.8|static");
    QTest::newRow("no dhcp leaves the method") << configuration(QVariant(), text("10.77.0.8")) << text("10.77.0.8|dhcp");
    QTest::newRow("no gateway leaves the gateway") << configuration(false, QVariant()) << text("10.77.0.1|static");
    QTest::newRow("empty gateway clears it") << configuration(true, text("")) << text("|dhcp");
    QTest::newRow("no address as gateway clears it") << configuration(true, text("none")) << text("|dhcp");
    QTest::newRow("number as gateway clears it") << configuration(true, 5) << text("|dhcp");
    QTest::newRow("short gateway clears it") << configuration(true, text("10.5")) << text("|dhcp");
    QTest::newRow("gateway as a list clears it") << configuration(true, QVariantList() << text("10.77.0.8")) << text("|dhcp");
    QTest::newRow("nothing") << QVariantMap() << text("10.77.0.1|dhcp");
}

void TestUpnpSettingsNetwork::methodAndGatewayComeFromTheService()
{
    QFETCH(QVariantMap, configured);
    QFETCH(QString, gatewayAndMethod);
    makeSettings();
    m_service->answerNetwork(configured);
    m_settings->configureIp();
    QCOMPARE(m_listener->seen, QStringList(text("changed 10.77.0.2|169.254.1.1|") + gatewayAndMethod));
}

void TestUpnpSettingsNetwork::invalidRepliesLeaveMethodAndGateway_data()
{
    QTest::addColumn<QVariantList>("reply");

    TextMap texts;
    texts.insert(text("dhcp"), text("false"));
    texts.insert(text("gateway"), text("10.77.0.8"));
    const TextPair pair = { text("gateway"), text("10.77.0.8") };
    QTest::newRow("an error") << QVariantList();
    QTest::newRow("texts by name") << (QVariantList() << QVariant::fromValue(texts));
    QTest::newRow("text") << (QVariantList() << text("gateway"));
    QTest::newRow("list of numbers") << (QVariantList() << QVariant::fromValue(QList<int>() << 1));
    QTest::newRow("structure") << (QVariantList() << QVariant::fromValue(pair));
}

void TestUpnpSettingsNetwork::invalidRepliesLeaveMethodAndGateway()
{
    QFETCH(QVariantList, reply);
    makeSettings();
    if (reply.isEmpty())
        m_service->fail(getAll);
    else
        m_service->answer(getAll, reply);
    QVERIFY(network::ip("address add 10.77.0.4/24 dev eth0"));
    m_settings->configureIp();
    QCOMPARE(m_listener->seen, QStringList(text("changed 10.77.0.4|169.254.1.1|10.77.0.1|dhcp")));
}

void TestUpnpSettingsNetwork::missingServiceLeavesMethodAndGateway()
{
    makeSettings();
    m_service->stop();
    m_settings->configureIp();
    QCOMPARE(m_listener->seen, QStringList(text("changed 10.77.0.2|169.254.1.1|10.77.0.1|dhcp")));
}

void TestUpnpSettingsNetwork::regularAndLinkLocalAddressesAreToldApart()
{
    makeSettings();
    QVERIFY(network::ip("address flush dev eth0"));
    QVERIFY(network::ip("address add 169.254.3.4/16 dev eth0"));
    QVERIFY(network::ip("address add 10.77.0.7/24 dev eth0"));
    m_settings->configureIp();
    QCOMPARE(state(), text("10.77.0.7|169.254.3.4|10.77.0.1|dhcp"));
}

void TestUpnpSettingsNetwork::lastAddressOfEachKindWins()
{
    makeSettings();
    QVERIFY(network::ip("address flush dev eth0"));
    QVERIFY(network::ip("address add 10.77.0.5/24 dev eth0"));
    QVERIFY(network::ip("address add 169.254.3.4/16 dev eth0"));
    QVERIFY(network::ip("address add 10.77.0.6/24 dev eth0"));
    QVERIFY(network::ip("address add 169.254.3.5/16 dev eth0"));
    m_settings->configureIp();
    QCOMPARE(state(), text("10.77.0.6|169.254.3.5|10.77.0.1|dhcp"));
}

void TestUpnpSettingsNetwork::onlyAddressCountsAsTheRegularOne_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("command");

    QTest::newRow("link-local") << text("169.254.7.8") << text("address add 169.254.7.8/16 dev eth0");
    QTest::newRow("IPv6") << text("fd00:77::2") << text("-6 address add fd00:77::2/64 dev eth0 nodad");
}

void TestUpnpSettingsNetwork::onlyAddressCountsAsTheRegularOne()
{
    QFETCH(QString, address);
    QFETCH(QString, command);
    makeSettings();
    QVERIFY(network::ip("address flush dev eth0"));
    if (command.startsWith(text("-6")) && !network::enableIpv6())
        SKIP("the machine has no such addresses");
    QVERIFY(network::ip(command.toLatin1().constData()));
    m_settings->configureIp();
    QCOMPARE(state().toLower(), address + text("|169.254.1.1|10.77.0.1|dhcp"));
}

void TestUpnpSettingsNetwork::linkLocalAddressNeedsTheSecondPointOnTheInterface()
{
    makeSettings();
    QVERIFY(network::ip("address flush dev eth0"));
    QVERIFY(network::ip("address add 169.253.1.1/16 dev eth0"));
    QVERIFY(network::ip("address add 169.25.4.1/16 dev eth0"));
    m_settings->configureIp();
    QCOMPARE(state(), text("169.25.4.1|169.254.1.1|10.77.0.1|dhcp"));
}

void TestUpnpSettingsNetwork::interfaceWithoutAddressesKeepsTheOldOnes()
{
    makeSettings();
    QVERIFY(network::ip("address flush dev eth0"));
    m_settings->configureIp();
    QCOMPARE(m_listener->seen, QStringList(text("changed 10.77.0.2|169.254.1.1|10.77.0.1|dhcp")));
}

void TestUpnpSettingsNetwork::missingInterfaceKeepsTheOldAddresses()
{
    makeSettings();
    QVERIFY(network::ip("link set eth0 down"));
    QVERIFY(network::ip("link set eth0 name eth9"));
    m_settings->configureIp();
    QVERIFY(network::ip("link set eth9 name eth0"));
    QCOMPARE(m_listener->seen, QStringList(text("changed 10.77.0.2|169.254.1.1|10.77.0.1|dhcp")));
}

void TestUpnpSettingsNetwork::serviceComingBackIsAskedAgain()
{
    makeSettings();
    m_service->stop();
    m_service->answerNetwork(configuration(false, text("10.77.0.9")));
    m_service->start();
    QVERIFY(waitFor([this] { return !m_listener->seen.isEmpty(); }));
    QCOMPARE(m_listener->seen, QStringList(text("changed 10.77.0.2|169.254.1.1|10.77.0.9|static")));
    QCOMPARE(m_service->calls(), QStringList(text(getAll)));
}

void TestUpnpSettingsNetwork::onlyTheConfigurationServiceStartsAQuery()
{
    makeSettings();
    const char *const others[] = { "net.connman", "", "com.zorv.fwconfig2", "com.zorv.FWCONFIG", "com.zorv" };
    for (const char *other : others)
        QVERIFY(QMetaObject::invokeMethod(m_settings.data(), "serviceAvail", Q_ARG(QString, text(other))));
    QCOMPARE(m_listener->seen, QStringList());
    QCOMPARE(m_service->calls(), QStringList());
    QVERIFY(QMetaObject::invokeMethod(m_settings.data(), "serviceAvail", Q_ARG(QString, text("com.zorv.fwconfig"))));
    QCOMPARE(m_listener->seen.size(), 1);
    QCOMPARE(m_service->calls(), QStringList(text(getAll)));
}

void TestUpnpSettingsNetwork::onlyReadyMakesTheNetworkReady_data()
{
    QTest::addColumn<QString>("connmanState");

    QTest::newRow("online") << text("online");
    QTest::newRow("idle") << text("idle");
    QTest::newRow("association") << text("association");
    QTest::newRow("configuration") << text("configuration");
    QTest::newRow("disconnect") << text("disconnect");
    QTest::newRow("failure") << text("failure");
    QTest::newRow("upper case") << text("Ready");
    QTest::newRow("blank behind it") << text("ready ");
    QTest::newRow("longer word") << text("readying");
    QTest::newRow("empty") << text("");
}

void TestUpnpSettingsNetwork::onlyReadyMakesTheNetworkReady()
{
    QFETCH(QString, connmanState);
    makeSettings();
    CaughtLog log;
    m_connman->propertyChanged("State", connmanState);
    QVERIFY(allSignalsArrived());
    QCOMPARE(m_listener->seen, QStringList());
    QCOMPARE(log.lines(), QStringList(text("debug: network ready")));
}

void TestUpnpSettingsNetwork::everyReadyIsTold()
{
    makeSettings();
    CaughtLog log;
    m_connman->propertyChanged("State", text("ready"));
    m_connman->propertyChanged("State", text("ready"), "/net/connman/service/wifi");
    QVERIFY(waitFor([this] { return m_listener->seen.size() == 2; }));
    QCOMPARE(m_listener->seen, QStringList() << text("networkReady") << text("networkReady"));
    QCOMPARE(log.lines(), QStringList() << text("debug: network ready") << text("debug: network ready"));
}

void TestUpnpSettingsNetwork::readyIsLoggedAfterTheSignal()
{
    makeSettings();
    CaughtLog log;
    m_listener->speaks = true;
    QVERIFY(allSignalsArrived());
    QCOMPARE(log.lines(), QStringList() << text("debug: heard networkReady()") << text("debug: network ready"));
}

void TestUpnpSettingsNetwork::ipv4ChangeIsLoggedBetweenTheSignals()
{
    makeSettings();
    CaughtLog log;
    m_listener->speaks = true;
    m_connman->propertyChanged("IPv4", ipv4("dhcp", "10.0.0.5", "10.0.0.1"));
    QVERIFY(waitFor([this] { return m_listener->seen.size() == 2; }));
    QCOMPARE(log.lines(), QStringList() << text("debug: heard aboutToChange()") << text("debug: config method: \"dhcp\"") << text("debug: ip: \"10.0.0.5\"") << text("debug: gateway: \"10.0.0.5\"") << text("debug: heard changed()"));
}

void TestUpnpSettingsNetwork::ipv4ChangeIsToldBeforeAndAfter()
{
    makeSettings();
    m_connman->propertyChanged("IPv4", ipv4("manual", "10.0.0.5", "10.0.0.1"));
    QVERIFY(allSignalsArrived());
    QCOMPARE(m_listener->seen, QStringList() << text("aboutToChange 10.77.0.2|169.254.1.1|10.77.0.1|dhcp") << text("changed 10.0.0.5|169.254.1.1|10.0.0.1|manual"));
}

void TestUpnpSettingsNetwork::logOfAnIpv4ChangeShowsTheAddressAsGateway()
{
    makeSettings();
    CaughtLog log;
    m_connman->propertyChanged("IPv4", ipv4("dhcp", "10.0.0.5", "10.0.0.1"));
    QVERIFY(allSignalsArrived());
    QCOMPARE(log.lines(), QStringList() << text("debug: config method: \"dhcp\"") << text("debug: ip: \"10.0.0.5\"") << text("debug: gateway: \"10.0.0.5\"") << text("debug: network ready"));
    QCOMPARE(m_settings->getGateway(), QHostAddress(text("10.0.0.1")));
}

void TestUpnpSettingsNetwork::linkLocalAddressOfConnmanLeavesTheRegularOne()
{
    makeSettings();
    CaughtLog log;
    m_connman->propertyChanged("IPv4", ipv4("auto", "169.254.3.4", nullptr));
    QVERIFY(allSignalsArrived());
    QCOMPARE(m_listener->seen, QStringList() << text("aboutToChange 10.77.0.2|169.254.1.1|10.77.0.1|dhcp") << text("changed 10.77.0.2|169.254.3.4||auto"));
    QCOMPARE(log.lines(), QStringList() << text("debug: config method: \"auto\"") << text("debug: ip: \"10.77.0.2\"") << text("debug: gateway: \"10.77.0.2\"") << text("debug: network ready"));
}

void TestUpnpSettingsNetwork::prefixOfConnmanHasNoSecondPoint()
{
    makeSettings();
    // No address at all, but one that begins like a link-local one.
    m_connman->propertyChanged("IPv4", ipv4("auto", "169.2545", nullptr));
    QVERIFY(allSignalsArrived());
    QCOMPARE(state(), text("10.77.0.2|||auto"));
}

void TestUpnpSettingsNetwork::emptyDictionaryClearsEverythingButTheLinkLocalAddress()
{
    makeSettings();
    CaughtLog log;
    m_connman->propertyChanged("IPv4", QVariantMap());
    QVERIFY(allSignalsArrived());
    QCOMPARE(m_listener->seen, QStringList() << text("aboutToChange 10.77.0.2|169.254.1.1|10.77.0.1|dhcp") << text("changed |169.254.1.1||"));
    QVERIFY(m_settings->getAddress().isNull());
    QVERIFY(m_settings->getGateway().isNull());
    QCOMPARE(log.lines(), QStringList() << text("debug: config method: \"\"") << text("debug: ip: \"\"") << text("debug: gateway: \"\"") << text("debug: network ready"));
}

void TestUpnpSettingsNetwork::missingEntriesReadAsEmptyTexts_data()
{
    QTest::addColumn<QVariantMap>("value");
    QTest::addColumn<QString>("after");

    QTest::newRow("no method") << ipv4(nullptr, "10.0.0.5", "10.0.0.1") << text("10.0.0.5|169.254.1.1|10.0.0.1|");
    QTest::newRow("no address") << ipv4("dhcp", nullptr, "10.0.0.1") << text("|169.254.1.1|10.0.0.1|dhcp");
    QTest::newRow("no gateway") << ipv4("dhcp", "10.0.0.5", nullptr) << text("10.0.0.5|169.254.1.1||dhcp");
    QVariantMap lowerCase;
    lowerCase.insert(text("address"), text("10.0.0.5"));
    QTest::newRow("names in lower case") << lowerCase << text("|169.254.1.1||");
    QVariantMap others = ipv4("fixed", "10.0.0.5", "10.0.0.1");
    others.insert(text("Netmask"), text("255.255.255.0"));
    others.insert(text("Zone"), 7);
    QTest::newRow("others beside them") << others << text("10.0.0.5|169.254.1.1|10.0.0.1|fixed");
}

void TestUpnpSettingsNetwork::missingEntriesReadAsEmptyTexts()
{
    QFETCH(QVariantMap, value);
    QFETCH(QString, after);
    makeSettings();
    m_connman->propertyChanged("IPv4", value);
    QVERIFY(allSignalsArrived());
    QCOMPARE(state(), after);
}

void TestUpnpSettingsNetwork::badAddressesOfConnmanAreNull()
{
    makeSettings();
    m_connman->propertyChanged("IPv4", ipv4("dhcp", "10.5", "0x10.1.1.1"));
    QVERIFY(allSignalsArrived());
    QCOMPARE(state(), text("|169.254.1.1||dhcp"));
}

void TestUpnpSettingsNetwork::lastServiceToReportWins()
{
    makeSettings();
    m_connman->propertyChanged("IPv4", ipv4("dhcp", "10.0.0.5", "10.0.0.1"), "/net/connman/service/ethernet");
    m_connman->propertyChanged("IPv4", ipv4("manual", "10.9.0.5", "10.9.0.1"), "/net/connman/service/wifi");
    QVERIFY(allSignalsArrived());
    QCOMPARE(m_listener->seen.size(), 4);
    QCOMPARE(state(), text("10.9.0.5|169.254.1.1|10.9.0.1|manual"));
}

void TestUpnpSettingsNetwork::otherPropertiesAreIgnored_data()
{
    QTest::addColumn<QByteArray>("name");

    QTest::newRow("IPv4.Configuration") << QByteArray("IPv4.Configuration");
    QTest::newRow("IPv6") << QByteArray("IPv6");
    QTest::newRow("Strength") << QByteArray("Strength");
    QTest::newRow("lower case") << QByteArray("ipv4");
    QTest::newRow("empty") << QByteArray("");
}

void TestUpnpSettingsNetwork::otherPropertiesAreIgnored()
{
    QFETCH(QByteArray, name);
    makeSettings();
    CaughtLog log;
    m_connman->propertyChanged(name.constData(), ipv4("manual", "10.0.0.5", "10.0.0.1"));
    m_connman->propertyChanged(name.constData(), text("ready"));
    QVERIFY(allSignalsArrived());
    QCOMPARE(m_listener->seen, QStringList());
    QCOMPARE(log.lines(), QStringList(text("debug: network ready")));
    QCOMPARE(state(), text("10.77.0.2|169.254.1.1|10.77.0.1|dhcp"));
}

static void addValuesOfOtherTypes()
{
    TextMap texts;
    texts.insert(text("Address"), text("10.0.0.5"));
    const TextPair pair = { text("Address"), text("10.0.0.5") };
    QTest::newRow("texts by name") << QVariant::fromValue(texts);
    QTest::newRow("structure") << QVariant::fromValue(pair);
    QTest::newRow("list of numbers") << QVariant::fromValue(QList<int>() << 1 << 2);
    QTest::newRow("list of variants") << QVariant(QVariantList() << text("Address") << text("10.0.0.5"));
    QTest::newRow("list of dictionaries") << QVariant::fromValue(QList<TextMap>() << texts);
    QTest::newRow("list of texts") << QVariant(QStringList() << text("Address") << text("10.0.0.5"));
    QTest::newRow("byte array") << QVariant(QByteArray("10.0.0.5"));
    QTest::newRow("text") << QVariant(text("10.0.0.5"));
    QTest::newRow("empty text") << QVariant(text(""));
    QTest::newRow("number") << QVariant(5);
    QTest::newRow("boolean") << QVariant(true);
    QTest::newRow("fraction") << QVariant(1.5);
    QTest::newRow("variant in a variant") << QVariant::fromValue(QDBusVariant(ipv4("dhcp", "10.0.0.5", "10.0.0.1")));
    QTest::newRow("ready in a variant in a variant") << QVariant::fromValue(QDBusVariant(text("ready")));
}

void TestUpnpSettingsNetwork::valuesOfOtherTypesReadAsEmpty_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("after");

    addValuesOfOtherTypes();
}

void TestUpnpSettingsNetwork::valuesOfOtherTypesReadAsEmpty()
{
    QFETCH(QVariant, value);
    makeSettings();
    m_connman->propertyChanged("IPv4", value);
    QVERIFY(allSignalsArrived());
    QCOMPARE(m_listener->seen, QStringList() << text("aboutToChange 10.77.0.2|169.254.1.1|10.77.0.1|dhcp") << text("changed |169.254.1.1||"));
}

void TestUpnpSettingsNetwork::signalsOfOtherSignaturesAreNotDelivered_data()
{
    QTest::addColumn<QVariantList>("arguments");

    QTest::newRow("bare text") << (QVariantList() << text("State") << text("ready"));
    QTest::newRow("name alone") << (QVariantList() << text("IPv4"));
    QTest::newRow("nothing") << QVariantList();
    QTest::newRow("number for a name") << (QVariantList() << 7 << QVariant::fromValue(QDBusVariant(text("ready"))));
    QTest::newRow("bare dictionary") << (QVariantList() << text("IPv4") << ipv4("dhcp", "10.0.0.5", "10.0.0.1"));
    QTest::newRow("list of numbers") << (QVariantList() << text("IPv4") << QVariant::fromValue(QList<int>() << 1));
    QTest::newRow("structure") << (QVariantList() << text("IPv4") << QVariant::fromValue(TextPair()));
    QTest::newRow("dictionary for a name") << (QVariantList() << ipv4("dhcp", "10.0.0.5", "10.0.0.1") << QVariant::fromValue(QDBusVariant(text("ready"))));
}

void TestUpnpSettingsNetwork::signalsOfOtherSignaturesAreNotDelivered()
{
    QFETCH(QVariantList, arguments);
    makeSettings();
    m_connman->propertyChangedWith(arguments);
    QVERIFY(allSignalsArrived());
    QCOMPARE(m_listener->seen, QStringList());
    QCOMPARE(state(), text("10.77.0.2|169.254.1.1|10.77.0.1|dhcp"));
}

void TestUpnpSettingsNetwork::statesOfOtherTypesAreIgnored_data()
{
    QTest::addColumn<QVariant>("value");

    addValuesOfOtherTypes();
}

void TestUpnpSettingsNetwork::statesOfOtherTypesAreIgnored()
{
    QFETCH(QVariant, value);
    makeSettings();
    m_connman->propertyChanged("State", value);
    QVERIFY(allSignalsArrived());
    QCOMPARE(m_listener->seen, QStringList());
}

void TestUpnpSettingsNetwork::signalsOfOtherServicesAreNotDelivered()
{
    makeSettings();
    QDBusMessage signal = QDBusMessage::createSignal(text("/net/connman/service/ethernet"), text("net.connman.Service"), text("PropertyChanged"));
    signal << text("IPv4") << QVariant::fromValue(QDBusVariant(ipv4("dhcp", "10.0.0.5", "10.0.0.1")));
    QVERIFY(QDBusConnection::systemBus().send(signal));
    QVERIFY(allSignalsArrived());
    QCOMPARE(m_listener->seen, QStringList());
}

QTEST_MAIN(TestUpnpSettingsNetwork)

#include "tst_upnpsettings_network.moc"
