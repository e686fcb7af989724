#include "zorvscan.h"

#include "announcement.h"
#include "device.h"
#include "fwconfigglobals.h"
#include "qtcompat.h"
#include "registrylistener.h"
#include "sharedport.h"
#include "upnpsettings.h"
#include "zorvdevice.h"

#include <QtCore/QChildEvent>
#include <QtCore/QDateTime>
#include <QtDBus/QDBusConnection>
#include <QtNetwork/QUdpSocket>

#include <cerrno>

#include <sys/socket.h>

static const char groupAddress[] = "239.255.77.76";
static const quint16 announcementPort = 31416;
static const char ownFamily[] = DEVICE_MODEL_NAME;

// Each set-up adds one, and there may be many in the life of a device. More than this would change nothing but the time
// a datagram takes.
static const int maximalReadsPerSignal = 16;

// More than a socket holds by default. Under a lasting flood the event loop still gets its turn.
static const int maximalBacklog = 1000;

static const int maximalDevices = 20000;
static const int maximalRegistrySize = 32 * 1024 * 1024;
static const int alwaysAcceptedSize = 2048; // bytes of one announcement of a known device
static const qint64 fullWarningPeriod = 3600000; // ms, an hour

// Below the 32 MiB at which a system bus drops the connection of a sender.
static const int maximalReplySize = 24 * 1024 * 1024;

ZorvScan::ZorvScan(UpnpSettings *deviceSettings, int announcementInterval, QObject *parent)
    : QObject(parent)
    , m_socket(new QUdpSocket(this))
    , m_group(QLatin1String(groupAddress))
    , m_port(announcementPort)
    , m_settings(deviceSettings)
    , m_interval(announcementInterval)
    , m_multicastPending(true)
    , m_readsPerSignal(0)
    , m_counts()
    , m_listener(nullptr)
    , m_hasNewcomer(false)
{
    m_sinceFullWarning.invalidate(); // Qt 4 does not
    subscribeToConnman();
    setupMulticast();
    qtcompat::startExactTimer(this, m_interval * 1000);
    configChanged();
    sendAnnouncement();
}

void ZorvScan::subscribeToConnman()
{
    // With the signature: Qt ends the process over a container that comes in place of the name or the variant.
    const bool subscribed = QDBusConnection::systemBus().connect(QString(), QString(),
        QLatin1String("net.connman.Service"), QLatin1String("PropertyChanged"), QLatin1String("sv"),
        this, SLOT(connmanServicePropertyChanged(QString, QDBusVariant)));
    if (!subscribed)
        qFatal("Connman property connect failed!");
}

int ZorvScan::setupMulticast()
{
    m_multicastPending = true;
    if (!bindPort()) {
        qWarning("zorvlisten port not bound!");
        return -1;
    }
    if (!joinGroup()) {
        qWarning("join multicast failed: %s", m_socket->errorString().toLocal8Bit().constData());
        return -2;
    }
    if (m_readsPerSignal == 0 && !connect(m_socket, SIGNAL(readyRead()), this, SLOT(readSocket()))) {
        qWarning("connect to multicast readyRead slot failed!");
        return -3;
    }
    // Meant: each set-up adds a read (tst_zorvscan_socket).
    m_readsPerSignal = qMin(m_readsPerSignal + 1, maximalReadsPerSignal);
    m_multicastPending = false;
    // There is no readyRead() after a datagram that came before the signal was connected, until it is read.
    pendingDatagrams();
    return 0;
}

bool ZorvScan::bindPort()
{
    if (m_socket->state() == QAbstractSocket::BoundState)
        return true;
    if (bindShared(m_socket, m_port, QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint))
        return true;
    qWarning("%s", m_socket->errorString().toLocal8Bit().constData());
    return false;
}

// The socket's error() tells nothing of a failed join; errno does, and "in use" means that the group is joined already.
bool ZorvScan::joinGroup()
{
    errno = 0;
    return m_socket->joinMulticastGroup(m_group) || errno == EADDRINUSE;
}

// A socket that sends before it is bound is bound to a random port for good, so another one sends meanwhile.
void ZorvScan::sendAnnouncement()
{
    if (m_socket->state() == QAbstractSocket::BoundState)
        m_socket->writeDatagram(m_announcement, m_group, m_port);
    else
        QUdpSocket().writeDatagram(m_announcement, m_group, m_port);
}

int ZorvScan::socketState()
{
    return m_socket->state();
}

QVariantList ZorvScan::allChilds()
{
    return allChilds(QLatin1String(ownFamily));
}

void ZorvScan::configChanged()
{
    announcement::Values values;
    values.hostname = m_settings->getHostname();
    values.serial = m_settings->getSerial();
    values.modelName = m_settings->getModelName();
    values.hasCodesys = kelta::FwConfigGlobals::hasCodesys();
    values.firmwareVersion = m_settings->getModelNr();
    values.interfaces = announcement::interfacesOfThisMachine();
    values.configurationMethod = m_settings->getNetworkConfigMethod();
    values.gateway = m_settings->getGateway();
    values.interval = m_interval;
    m_announcement = announcement::text(values);
}

void ZorvScan::connmanServicePropertyChanged(const QString &name, const QDBusVariant &map)
{
    if (name == QLatin1String("State") && map.variant().toString() == QLatin1String("online")) {
        setupMulticast();
        configChanged();
    }
}

void ZorvScan::timerEvent(QTimerEvent *)
{
    if (m_multicastPending)
        setupMulticast();
    checkDevices();
    sendAnnouncement();
}

// Qt 4 has no signal for another object name, and a child event says too little of a device that gets this parent: so the
// index is brought up to date here.
void ZorvScan::checkDevices()
{
    const QObjectList snapshot = children();
    for (int i = 0; i < snapshot.size(); ++i) {
        ZorvDevice *device = qobject_cast<ZorvDevice *>(snapshot.at(i));
        if (!device)
            continue;
        m_devices.enter(device);
        if (device->checkExpired() && m_listener)
            m_listener->deviceGone(device->objectName());
    }
}

// Without asking first whether a datagram waits: after one with a wrong checksum there is no readyRead() before a read.
bool ZorvScan::receive()
{
    return m_received.setSize(int(m_socket->readDatagram(m_received.bytes(), DatagramBuffer::Size)));
}

// Without Qt, at a tenth of its cost. Once QUdpSocket has read a datagram, its readyRead() comes for the next one, even when
// others are read here.
bool ZorvScan::receiveMore()
{
    return m_received.setSize(int(recv(int(m_socket->socketDescriptor()), m_received.bytes(), DatagramBuffer::Size, 0)));
}

void ZorvScan::pendingDatagrams()
{
    if (receive())
        handleDatagram();
}

void ZorvScan::readSocket()
{
    bool hasReceived = false;
    for (int i = 0; i < m_readsPerSignal; ++i) {
        hasReceived = receive();
        if (hasReceived)
            handleDatagram();
    }
    if (hasReceived)
        readBacklog();
    m_hasNewcomer = false;
}

// So a burst costs one pass of the event loop, not one for each datagram. It ends after a device that was not known: its
// announcement may be unusable, and then the event loop deletes it before the next datagram is read.
void ZorvScan::readBacklog()
{
    for (int i = 0; i < maximalBacklog && !m_hasNewcomer && receiveMore(); ++i)
        handleDatagram();
}

void ZorvScan::handleDatagram()
{
    const announcement::Span uuid = announcement::uuidIn(m_received.datagram());
    if (uuid.size == 0) {
        ++m_counts.withoutUuid;
        return;
    }
    m_uuid.setRawData(m_received.datagram().constData() + uuid.begin, uint(uuid.size));
    refresh();
}

// Nearly every announcement repeats the last one, and then only last-seen is updated.
void ZorvScan::refresh()
{
    if (ZorvDevice *unchanged = m_devices.findUnchanged(m_uuid, m_received.datagram())) {
        unchanged->touch();
        ++m_counts.taken;
    } else if (ZorvDevice *known = m_devices.find(m_uuid)) {
        replaceText(known);
    } else if (m_devices.size() < maximalDevices && m_devices.textSize() + m_received.datagram().size() <= maximalRegistrySize) {
        add();
    } else {
        refuse();
    }
}

void ZorvScan::add()
{
    const QString name = QString::fromLatin1(m_uuid.constData(), m_uuid.size());
    ZorvDevice *device = new ZorvDevice(name, m_received.datagram(), m_interval, this);
    m_devices.enter(device);
    m_hasNewcomer = true;
    ++(device->isLeaving() ? m_counts.unusable : m_counts.taken);
    if (m_listener && !device->isLeaving())
        m_listener->deviceAppeared(name);
}

// A known device does not expire because the registry is full: its last announcement stays.
void ZorvScan::replaceText(ZorvDevice *known)
{
    const int size = m_received.datagram().size();
    const int oldSize = known->textSize();
    if (size > qMax(oldSize, alwaysAcceptedSize) && m_devices.textSize() + size - oldSize > maximalRegistrySize) {
        known->touch();
        refuse();
        return;
    }
    ++m_counts.taken;
    const bool isToldOf = m_listener && !known->isLeaving() && !known->isRepeatedBy(m_received.datagram());
    known->update(m_received.datagram());
    if (isToldOf)
        m_listener->deviceChanged(known->objectName());
}

void ZorvScan::refuse()
{
    ++m_counts.withoutRoom;
    if (m_sinceFullWarning.isValid() && m_sinceFullWarning.elapsed() < fullWarningPeriod)
        return;
    qWarning("zorvscan: too many devices announce themselves, further ones are ignored");
    m_sinceFullWarning.start();
}

// A device in its QObject destructor is no ZorvDevice any more: it has left the index by itself.
void ZorvScan::childEvent(QChildEvent *event)
{
    if (event->removed()) {
        if (ZorvDevice *device = qobject_cast<ZorvDevice *>(event->child()))
            m_devices.remove(device);
    }
}

QVariantList ZorvScan::allChilds(const QString &type)
{
    QVariantList summaries;
    int replySize = 0;
    const QObjectList &all = children();
    for (int i = 0; i < all.size(); ++i) {
        ZorvDevice *device = qobject_cast<ZorvDevice *>(all.at(i));
        if (!device)
            continue;
        int size = 0;
        QString family;
        const QVariantMap summary = device->summary(&size, &family);
        if (!type.isEmpty() && family != type)
            continue;
        if (replySize + size > maximalReplySize)
            continue;
        replySize += size;
        summaries.append(summary);
    }
    return summaries;
}
