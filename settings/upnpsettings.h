#ifndef UPNPSETTINGS_H
#define UPNPSETTINGS_H

#include "filewatch.h"
#include "remotedbuswatcher.h"

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtDBus/QDBusVariant>
#include <QtNetwork/QHostAddress>

class BareboxConfigProxy;

// Who the device is and how it is reached: the one source of every identity and network value that the
// daemon sends. Readers ask at the moment of sending, or anew at every changed().
//
// The identity is read once, in the constructor, from the device's configuration service and from the kernel; afterwards
// only the host name and the four network values (address, link-local address, gateway, method) change.
//
// Exported on the system bus, where the interface is called local.UpnpSettings: the public slots with a D-Bus
// form are its methods, in this order. Hence no Q_CLASSINFO, and no slot is moved or added lightly.
class UpnpSettings : public QObject
{
    Q_OBJECT

public:
    // The texts are 8-bit, as sent. Blocks while the configuration service answers, at most for the default
    // D-Bus time-out each; values it does not give stay empty. A missing UUID is replaced by one of the
    // kernel's, which is stored in the boot loader's variables.
    // Ends the process with a fatal message when connman's signals cannot be subscribed.
    UpnpSettings(const QByteArray &manufacturerName, const QByteArray &manufacturerUrl, const QByteArray &model,
        const QByteArray &description, const QByteArray &modelWebAddress, QObject *parent);

signals:
    // The host name, or the network by connman's signal, is about to change; the getters still give the old values.
    void aboutToChange();
    // It has changed; the getters give the new values.
    void changed();
    // A connman service became ready. Repeated for every such report.
    void networkReady();

public slots:
    // Byte arrays are 8-bit texts as they are sent; values that are not known are empty.
    QByteArray getManufacturer() const;
    // The manufacturer's web address.
    QByteArray getUrl() const;
    QByteArray getModelName() const;
    QByteArray getModelNameLower() const;
    QByteArray getModelDescription() const;
    QByteArray getModelUrl() const;
    // The firmware version text.
    QByteArray getModelNr() const;
    QByteArray getSerial() const;
    // src is the peer that asks; in messages of the device's own, its link-local address, or null for the regular one. An address
    // in 169.254/16 is given the link-local variant of UUID and URLs, provided that the device has a link-local address.
    QByteArray getUuid(const QHostAddress &src) const;
    QByteArray getHostname() const;
    // The host name up to its first zero byte, read as Latin-1.
    QString strHostname() const;
    // "http://192.168.1.20": no port, no slash. Just "http://" while there is no address.
    QByteArray getPresentationUrl(const QHostAddress &src) const;
    // "http://192.168.1.20:8200/"
    QByteArray getHttpUrl(const QHostAddress &src) const;
    // "239.255.255.250:1900"
    QByteArray getMulticastUrl() const;
    // "Kelta/1.4.2, UPnP/1.0"
    QByteArray getServerHeader() const;
    // The regular address, the SSDP group, the link-local address, and the gateway. Null while unknown. The addresses are those of
    // eth0 at the start and after configureIp(), later what a service of connman reported last.
    QHostAddress getAddress() const;
    QHostAddress getMulticastAddress() const;
    QHostAddress getAutoipAddress() const;
    QHostAddress getGateway() const;
    // The texts of null addresses are empty.
    QString getAddressStr() const;
    QString getMulticastAddressStr() const;
    QString getAutoipAddressStr() const;
    // The ports of SSDP and of the description server.
    quint16 getUdpPort() const;
    quint16 getHttpPort() const;
    // "dhcp", "static" or connman's word for it; empty while unknown.
    QString getNetworkConfigMethod() const;
    // "0x" and the twelve upper-case hexadecimal digits of eth0; just "0x" without eth0.
    QString getMacAddress() const;

    // Reads the addresses of eth0 from the system, and method and gateway from the configuration service
    // (blocking, at most for the default D-Bus time-out). Emits changed(), never aboutToChange().
    void configureIp();

protected slots:
    void hostnameChanged();
    void connmanPropertyChanged(const QString &name, const QDBusVariant &value);
    void serviceAvail(const QString &service);

private:
    void readVersion();
    void readSerial();
    void subscribeToConnman();
    void makeUuid(BareboxConfigProxy &bootloader);
    void readMacAddress();
    bool isLinkLocal(const QHostAddress &src) const;

    void readInterfaceAddresses();
    void applyNetworkConfiguration(const QVariantMap &configuration);
    void applyConnmanIpv4(const QVariantMap &ipv4);

    QByteArray manufacturer;
    QByteArray url;
    QByteArray modelName;
    QByteArray modelNameLower;
    QByteArray modelDescription;
    QByteArray modelUrl;
    QByteArray modelNr;
    QByteArray serial;
    QByteArray uuid;
    QByteArray autoipUuid; // always uuid + "0"
    QByteArray hostname;
    QHostAddress address;
    QHostAddress multicastAddress;
    QHostAddress autoipAddress;
    quint16 udpPort;
    quint16 httpPort;
    QString networkConfigMethod;
    QString macAddress;
    QHostAddress gateway;
    FileWatch hostnameWatcher;
    RemoteDbusWatcher serviceWatcher;
};

#endif
