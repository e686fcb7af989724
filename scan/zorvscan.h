#ifndef ZORVSCAN_H
#define ZORVSCAN_H

#include "datagrambuffer.h"
#include "deviceindex.h"

#include <QtCore/QByteArray>
#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>
#include <QtCore/QVariant>
#include <QtDBus/QDBusVariant>
#include <QtNetwork/QHostAddress>

class QUdpSocket;
class RegistryListener;
class UpnpSettings;
class ZorvDevice;

// The device's end of the maker's own discovery protocol: announces this device to the group 239.255.77.76, port 31416,
// and keeps one child object for every device that announces itself there, this one included.
//
// The number of devices and the memory they take are bounded far above any real network: further ones are ignored,
// with a warning an hour, until known ones have expired.
//
// Exported on the system bus with its children, where the interface is called local.ZorvScan: the public slots are
// its methods, in this order. Hence no Q_CLASSINFO, and no slot is moved or added lightly.
class ZorvScan : public QObject
{
    Q_OBJECT

public:
    // Tries to join the group, starts announcing every interval (seconds) and sends the first announcement.
    // The settings are not owned and must outlive the scan.
    // Ends the process with a fatal message when connman's signals cannot be subscribed.
    ZorvScan(UpnpSettings *deviceSettings, int announcementInterval, QObject *parent);

    // How many datagrams were received so far, by what was done with them.
    struct Counts
    {
        quint64 taken; // announcements of new devices, and whatever text of known ones; this device's own included
        quint64 withoutUuid; // they name no device
        quint64 unusable; // of devices not known yet: they do not parse, or name no whole number of seconds as their expiration
        quint64 withoutRoom; // beyond the bounds of number and memory
    };
    const Counts &counts() const { return m_counts; }
    // Devices in the registry, this one included.
    int deviceCount() const { return m_devices.size(); }
    // There is one listener, or null. Not owned; it must outlive the scan, or the event loop.
    void setListener(RegistryListener *listener) { m_listener = listener; }

public slots:
    // Binds the port, joins the group on the interface of the route to it, and connects readyRead() of the socket. Every
    // successful call adds one datagram to those that are read for each readyRead(), up to 16, and reads one datagram.
    // Returns 0, or -1 (port not bound), -2 (group not joined), -3 (not connected), each with a warning.
    // After a failure it is called again before every announcement of the timer.
    int setupMulticast();
    // Sends the announcement as it was built last. When it cannot be sent it is lost, without a message.
    void sendAnnouncement();
    // QAbstractSocket::SocketState: 0 unconnected, 4 bound.
    int socketState();
    // One summary (ZorvDevice::summary()) for every known device of the family type, of any family where the type
    // is empty. Summaries beyond the 24 MiB of one reply are left out.
    QVariantList allChilds(const QString &type);
    // The devices of the family "Kelta".
    QVariantList allChilds();
    // Takes one received datagram, if there is one, into the registry.
    void pendingDatagrams();
    // Builds the announcement again from the settings; the next announcement of the timer sends it.
    void configChanged();
    // When the state of a service becomes "online", of whatever service: setupMulticast() and configChanged().
    void connmanServicePropertyChanged(const QString &name, const QDBusVariant &map);

private slots:
    // For readyRead() of the socket: reads one datagram for each set-up, then the backlog.
    void readSocket();

protected:
    void timerEvent(QTimerEvent *event) override;
    void childEvent(QChildEvent *event) override;

private:
    void subscribeToConnman();
    bool bindPort();
    bool joinGroup();
    bool receive();
    bool receiveMore();
    void handleDatagram();
    void readBacklog();
    void refresh();
    void add();
    void replaceText(ZorvDevice *known);
    void refuse();
    void checkDevices();

    QUdpSocket *m_socket;
    const QHostAddress m_group;
    const quint16 m_port;
    UpnpSettings *m_settings;
    int m_interval; // seconds
    DatagramBuffer m_received; // with the datagram that is being processed
    QByteArray m_uuid; // the part of it that names the device, not a copy
    QByteArray m_announcement;
    bool m_multicastPending; // the last set-up failed
    int m_readsPerSignal; // of the socket; 0: not connected yet
    Counts m_counts;
    RegistryListener *m_listener; // or null
    bool m_hasNewcomer; // a device was added since the last report of the socket was dealt with
    DeviceIndex m_devices; // the children that are devices
    QElapsedTimer m_sinceFullWarning;
};

#endif
