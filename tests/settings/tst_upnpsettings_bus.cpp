#include "bytes.h"
#include "caughtlog.h"
#include "fakefwconfig.h"
#include "ownprogram.h"
#include "qtversions.h"
#include "settingstest.h"
#include "testbus.h"
#include "upnpsettings.h"
#include "waitfor.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QProcess>
#include <QtCore/QRegExp>
#include <QtCore/QXmlStreamReader>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCall>
#include <QtTest/QtTest>

// What it looks like on the bus.
class TestUpnpSettingsBus : public SettingsTest
{
    Q_OBJECT

private slots:
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
    QDBusMessage callOverTheBus(const char *path, const char *interface, const char *method);
};

void TestUpnpSettingsBus::methodTableIsFixed()
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

void TestUpnpSettingsBus::thereAreNoPropertiesAndNoClassInformation()
{
    const QMetaObject &meta = UpnpSettings::staticMetaObject;
    QCOMPARE(meta.propertyCount(), meta.propertyOffset());
    QCOMPARE(meta.classInfoCount(), meta.classInfoOffset());
    QCOMPARE(meta.enumeratorCount(), meta.enumeratorOffset());
    QCOMPARE(QByteArray(meta.superClass()->className()), QByteArray("QObject"));
}

// The settings live on the connection that the call comes in on, so the event loop has to run meanwhile.
QDBusMessage TestUpnpSettingsBus::callOverTheBus(const char *path, const char *interface, const char *method)
{
    const QDBusConnection client = connectToTestBus(text("client"));
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

void TestUpnpSettingsBus::busSeesItsMethodsAndNoSignals()
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

void TestUpnpSettingsBus::busCallsAreAnswered_data()
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

void TestUpnpSettingsBus::busCallsAreAnswered()
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

void TestUpnpSettingsBus::configureIpOnTheBusTellsTheChangeInProcess()
{
    makeSettings();
    QVERIFY(QDBusConnection::systemBus().registerObject(text("/settings"), m_settings.data(), QDBusConnection::ExportAllSlots));
    Listener listener(m_settings.data(), hostnameOf);
    const QDBusMessage reply = callOverTheBus("/settings", "local.UpnpSettings", "configureIp");
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QCOMPARE(listener.seen, QStringList(text("changed dev1")));
    QCOMPARE(m_service->calls(), QStringList(text("/network GetAll com.zorv.fwconfig.network local.NetworkInterface")));
}

void TestUpnpSettingsBus::protectedSlotsAndSignalsAreNotOnTheBus_data()
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

void TestUpnpSettingsBus::protectedSlotsAndSignalsAreNotOnTheBus()
{
    QFETCH(QByteArray, method);
    makeSettings();
    QVERIFY(QDBusConnection::systemBus().registerObject(text("/settings"), m_settings.data(), QDBusConnection::ExportAllSlots));
    Listener listener(m_settings.data(), hostnameOf);
    const QDBusMessage reply = callOverTheBus("/settings", "local.UpnpSettings", method.constData());
    QCOMPARE(reply.type(), QDBusMessage::ErrorMessage);
    QCOMPARE(reply.errorName(), text("org.freedesktop.DBus.Error.UnknownMethod"));
    QCOMPARE(listener.seen, QStringList());
}

// The process would end here, so it is done in another one: this program with one argument.
void TestUpnpSettingsBus::missingBusIsFatal()
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
    TestUpnpSettingsBus test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_upnpsettings_bus.moc"
