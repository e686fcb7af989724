#include "upnpsettings.h"

#include "addresstext.h"
#include "bareboxconfigproxy.h"
#include "debugmessages.h"
#include "device.h"
#include "fwconfigglobals.h"
#include "fwversionproxy.h"
#include "interfaces.h"
#include "syscfgmgrglobals.h"
#include "systemconstantsproxy.h"

#include <QtCore/QFile>
#include <QtCore/QStringList>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingReply>

static const char hostnameFile[] = "/proc/sys/kernel/hostname";
static const char kernelUuidFile[] = "/proc/sys/kernel/random/uuid";
static const char uuidVariable[] = "UUID";
static const int serialNumberType = 2; // among the types of system information
static const int maximalReadTries = 3;
static const int urlSize = 32; // fits every URL with an IPv4 address: built with one allocation

static QByteArray local8BitUpToNul(const QString &text)
{
    return QByteArray(text.toLocal8Bit().constData());
}

// The whole file, without white space around. A part of it is worse than nothing, so a read error counts like a file that
// does not open; both are tried again, since such an error may be gone the next time.
static bool readFile(const char *name, QByteArray *content)
{
    for (int tries = 0; tries < maximalReadTries; ++tries) {
        QFile file(QString::fromLatin1(name));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray bytes = file.readAll();
        if (file.error() == QFile::NoError) {
            *content = bytes.trimmed();
            return true;
        }
    }
    return false;
}

// Asked for directly, not through the proxy's accessor: that one fails for a value of another type,
// while here any value that QVariant can convert to a text is good.
static QByteArray propertyText(const QDBusAbstractInterface &proxy, const char *name)
{
    QDBusMessage get = QDBusMessage::createMethodCall(proxy.service(), proxy.path(),
        QLatin1String("org.freedesktop.DBus.Properties"), QLatin1String("Get"));
    get << proxy.interface() << QString::fromLatin1(name);
    const QDBusPendingReply<QDBusVariant> reply(proxy.connection().call(get));
    return reply.isValid() ? local8BitUpToNul(reply.value().variant().toString()) : QByteArray();
}

UpnpSettings::UpnpSettings(const QByteArray &manufacturerName, const QByteArray &manufacturerUrl, const QByteArray &model,
    const QByteArray &description, const QByteArray &modelWebAddress, QObject *parent)
    : QObject(parent)
    , manufacturer(manufacturerName)
    , url(manufacturerUrl)
    , modelName(model)
    , modelDescription(description)
    , modelUrl(modelWebAddress)
    , multicastAddress(QLatin1String("239.255.255.250"))
    , udpPort(1900)
    , httpPort(8200)
    , hostnameWatcher(QLatin1String(hostnameFile))
    , serviceWatcher(this)
{
    connect(&serviceWatcher, SIGNAL(serviceAvail(QString)), this, SLOT(serviceAvail(QString)));
    serviceWatcher.startListening(QStringList() << kelta::FwConfigGlobals::SERVICE_PATH_NAME << QLatin1String("net.connman"));
    connect(&hostnameWatcher, SIGNAL(fileChanged(QString)), this, SLOT(hostnameChanged()));
    modelNameLower = modelName.toLower();

    // The UUID is asked for first and waited for last, so that the other answers come meanwhile.
    BareboxConfigProxy bootloader(kelta::FwConfigGlobals::SERVICE_PATH_NAME, kelta::FwConfigGlobals::SYSTEMVARIABLES_PATH,
        QDBusConnection::systemBus(), nullptr);
    QDBusPendingReply<QString> storedUuid = bootloader.get(QLatin1String(uuidVariable));
    readVersion();
    readSerial();
    subscribeToConnman();
    storedUuid.waitForFinished();
    if (storedUuid.isValid() && !storedUuid.value().isEmpty())
        uuid = storedUuid.value().toLatin1();
    else
        makeUuid(bootloader);
    autoipUuid = uuid + '0';
    readMacAddress();
}

void UpnpSettings::readVersion()
{
    const FwVersionProxy version(kelta::FwConfigGlobals::SERVICE_PATH_NAME, kelta::FwConfigGlobals::FW_VERSION_PATH,
        QDBusConnection::systemBus(), nullptr);
    if (!version.isValid())
        return;
    hostname = propertyText(version, "hostname");
    modelNr = propertyText(version, "zorvversion");
}

void UpnpSettings::readSerial()
{
    SystemConstantsProxy constants(kelta::FwConfigGlobals::SERVICE_PATH_NAME, kelta::FwConfigGlobals::SYSTEMCONSTANTS_PATH,
        QDBusConnection::systemBus(), nullptr);
    if (!constants.isValid())
        return;
    QDBusPendingReply<QString> reply = constants.get(kelta::SysCfgMgrGlobals::SYSINFOTYPE_STR[serialNumberType]);
    reply.waitForFinished();
    if (reply.isValid())
        serial = local8BitUpToNul(reply.value());
}

// Over a connection that has been lost Qt subscribes to nothing, and may call that a success.
void UpnpSettings::subscribeToConnman()
{
    QDBusConnection bus = QDBusConnection::systemBus();
    bool subscribed = bus.isConnected();
    // With the signature: Qt ends the process over a container that comes in place of the name or the variant.
    if (subscribed)
        subscribed = bus.connect(QLatin1String("net.connman"), QString(),
            QLatin1String("net.connman.Service"), QLatin1String("PropertyChanged"), QLatin1String("sv"),
            this, SLOT(connmanPropertyChanged(QString, QDBusVariant)));
    if (!subscribed || !bus.isConnected())
        qFatal("connman signal connect failed");
}

// The replies of "set" and "save" are not waited for: the device is the same whether they succeed or not.
void UpnpSettings::makeUuid(BareboxConfigProxy &bootloader)
{
    if (!readFile(kernelUuidFile, &uuid))
        return;
    bootloader.set(QLatin1String(uuidVariable), QString::fromLatin1(uuid.constData()));
    bootloader.save();
}

void UpnpSettings::readMacAddress()
{
    const QString colons = networkInterface(QLatin1String(DEVICE_INTERFACE)).hardwareAddress();
    macAddress = QLatin1String("0x") + QString(colons).remove(QLatin1Char(':'));
}

void UpnpSettings::hostnameChanged()
{
    QByteArray name;
    if (!readFile(hostnameFile, &name))
        return;
    emit aboutToChange();
    hostname = name;
    emit changed();
    debugMessage() << "new hostname:" << hostname;
}

bool UpnpSettings::isLinkLocal(const QHostAddress &src) const
{
    return !autoipAddress.isNull() && isLinkLocalIpv4(src);
}

QByteArray UpnpSettings::getManufacturer() const
{
    return manufacturer;
}

QByteArray UpnpSettings::getUrl() const
{
    return url;
}

QByteArray UpnpSettings::getModelName() const
{
    return modelName;
}

QByteArray UpnpSettings::getModelNameLower() const
{
    return modelNameLower;
}

QByteArray UpnpSettings::getModelDescription() const
{
    return modelDescription;
}

QByteArray UpnpSettings::getModelUrl() const
{
    return modelUrl;
}

QByteArray UpnpSettings::getModelNr() const
{
    return modelNr;
}

QByteArray UpnpSettings::getSerial() const
{
    return serial;
}

QByteArray UpnpSettings::getUuid(const QHostAddress &src) const
{
    return isLinkLocal(src) ? autoipUuid : uuid;
}

QByteArray UpnpSettings::getHostname() const
{
    return hostname;
}

QString UpnpSettings::strHostname() const
{
    return QString::fromLatin1(hostname.constData());
}

QByteArray UpnpSettings::getPresentationUrl(const QHostAddress &src) const
{
    QByteArray text;
    text.reserve(urlSize);
    text.append("http://");
    appendAddress(&text, isLinkLocal(src) ? autoipAddress : address);
    return text;
}

QByteArray UpnpSettings::getHttpUrl(const QHostAddress &src) const
{
    QByteArray text = getPresentationUrl(src);
    text.append(':').append(QByteArray::number(httpPort)).append('/');
    return text;
}

QByteArray UpnpSettings::getMulticastUrl() const
{
    QByteArray text;
    appendAddress(&text, multicastAddress);
    text.append(':').append(QByteArray::number(udpPort));
    return text;
}

QByteArray UpnpSettings::getServerHeader() const
{
    QByteArray text;
    text.reserve(modelName.size() + modelNr.size() + 16);
    text.append(modelName).append('/').append(modelNr).append(", UPnP/1.0");
    return text;
}

QHostAddress UpnpSettings::getAddress() const
{
    return address;
}

QHostAddress UpnpSettings::getMulticastAddress() const
{
    return multicastAddress;
}

QHostAddress UpnpSettings::getAutoipAddress() const
{
    return autoipAddress;
}

QHostAddress UpnpSettings::getGateway() const
{
    return gateway;
}

QString UpnpSettings::getAddressStr() const
{
    return address.toString();
}

QString UpnpSettings::getMulticastAddressStr() const
{
    return multicastAddress.toString();
}

QString UpnpSettings::getAutoipAddressStr() const
{
    return autoipAddress.toString();
}

quint16 UpnpSettings::getUdpPort() const
{
    return udpPort;
}

quint16 UpnpSettings::getHttpPort() const
{
    return httpPort;
}

QString UpnpSettings::getNetworkConfigMethod() const
{
    return networkConfigMethod;
}

QString UpnpSettings::getMacAddress() const
{
    return macAddress;
}
