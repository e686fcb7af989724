// The part of UpnpSettings that follows the network: the addresses of eth0, the network configuration
// of the configuration service, and connman.
#include "upnpsettings.h"

#include "addresstext.h"
#include "dbusmap.h"
#include "debugmessages.h"
#include "device.h"
#include "fwconfigglobals.h"
#include "interfaces.h"

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingReply>

static QDBusPendingReply<QVariantMap> askForNetworkConfiguration()
{
    QDBusMessage getAll = QDBusMessage::createMethodCall(kelta::FwConfigGlobals::SERVICE_PATH_NAME, kelta::FwConfigGlobals::FW_NETWORK_PATH,
        QLatin1String("org.freedesktop.DBus.Properties"), QLatin1String("GetAll"));
    // Meant: two arguments, where the standard has one. The configuration service answers only to both.
    getAll << kelta::FwConfigGlobals::FW_NETWORK_INTERFACE << QString::fromLatin1("local.NetworkInterface");
    return QDBusConnection::systemBus().call(getAll);
}

// Meant: no aboutToChange() here, other than on connman's way (tst_upnpsettings_network).
void UpnpSettings::configureIp()
{
    const QDBusPendingReply<QVariantMap> reply = askForNetworkConfiguration();
    readInterfaceAddresses();
    if (reply.isValid())
        applyNetworkConfiguration(mapFromArgument(reply.argumentAt(0)));
    emit changed();
    debugMessage() << "ip:" << address.toString();
}

void UpnpSettings::readInterfaceAddresses()
{
    const QList<QNetworkAddressEntry> entries = networkInterface(QLatin1String(DEVICE_INTERFACE)).addressEntries();
    if (entries.size() == 1) {
        // Meant: an only address counts as the regular one, even when it is link-local or IPv6 (tst_upnpsettings_network).
        address = entries.first().ip();
        return;
    }
    for (int i = 0; i < entries.size(); ++i) {
        const QHostAddress ip = entries.at(i).ip();
        if (ip.protocol() != QAbstractSocket::IPv4Protocol)
            continue;
        if (isLinkLocalIpv4(ip))
            autoipAddress = ip;
        else
            address = ip;
    }
}

void UpnpSettings::applyNetworkConfiguration(const QVariantMap &configuration)
{
    if (configuration.contains(QLatin1String("dhcp"))) {
        const bool dhcp = configuration.value(QLatin1String("dhcp")).toBool();
        networkConfigMethod = QLatin1String(dhcp ? "dhcp" : "static");
    }
    if (configuration.contains(QLatin1String("gateway")))
        gateway = addressFromText(configuration.value(QLatin1String("gateway")).toString());
}

void UpnpSettings::serviceAvail(const QString &service)
{
    if (service == kelta::FwConfigGlobals::SERVICE_PATH_NAME)
        configureIp();
}

void UpnpSettings::connmanPropertyChanged(const QString &name, const QDBusVariant &value)
{
    if (name == QLatin1String("State")) {
        if (value.variant().toString() == QLatin1String("ready")) {
            emit networkReady();
            debugMessage() << "network ready";
        }
    } else if (name == QLatin1String("IPv4")) {
        emit aboutToChange();
        applyConnmanIpv4(mapFromArgument(value.variant()));
        emit changed();
    }
}

// Missing entries read as empty texts and clear what they stand for.
void UpnpSettings::applyConnmanIpv4(const QVariantMap &ipv4)
{
    networkConfigMethod = ipv4.value(QLatin1String("Method")).toString();
    debugMessage() << "config method:" << networkConfigMethod;

    const QString text = ipv4.value(QLatin1String("Address")).toString();
    if (text.startsWith(QLatin1String("169.254")))
        autoipAddress = addressFromText(text);
    else
        address = addressFromText(text);
    debugMessage() << "ip:" << address.toString();

    gateway = addressFromText(ipv4.value(QLatin1String("Gateway")).toString());
    // Meant: this line shows the address, not the gateway (tst_upnpsettings_network).
    debugMessage() << "gateway:" << address.toString();
}
