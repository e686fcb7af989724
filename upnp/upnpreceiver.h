#ifndef UPNPRECEIVER_H
#define UPNPRECEIVER_H

#include "datagrambuffer.h"
#include "datecache.h"
#include "ssdpmessages.h"

#include <QtCore/QByteArray>
#include <QtCore/QObject>

class QHostAddress;
class QSocketNotifier;
class QUdpSocket;
class UpnpSettings;

// Speaks SSDP for the device: announces it to the group of the settings, every 100 seconds and on demand,
// and answers searches. The texts are in ssdpmessages.h.
//
// SIGTERM makes it announce the departure on every further pass of the event loop: the byte that the signal
// handler wrote is left unread. Meant: the process is ended by SIGKILL (test_sigterm).
class UpnpReceiver : public QObject
{
    Q_OBJECT

public:
    // Binds the SSDP port, joins the group if the network permits, creates termSocketPair and sends the first
    // announcement. When the socket pair cannot be created, the process ends with a fatal message. Joining is tried again
    // with the timer, binding only here; a datagram that cannot be sent is lost.
    // The settings are not owned and must outlive the receiver.
    UpnpReceiver(UpnpSettings *deviceSettings, QObject *parent);

    // Those whose answer the system refused to send count as well.
    quint64 searchesAnswered() const { return m_searchesAnswered; }

public slots:
    // Joins the SSDP group on eth0, with multicast TTL 32. Does nothing once that succeeded; until then it is tried
    // again before every announcement of the timer.
    void setupMulticast();
    // One announcement for the regular address and, where there is one, another for the link-local address. What cannot be
    // sent is lost.
    void sendAlive();
    // Byebye for the same addresses; what cannot be sent is lost.
    void sendByeBye();

protected slots:
    // Reads up to 1,000 datagrams that wait in the socket, answers the searches and drops everything else.
    void processDatagrams();
    virtual void timerEvent(QTimerEvent *timerevent);
    // Says byebye and leaves the event loop. Meant: connected to nothing.
    void termSignal();

private:
    void bindPort();
    ssdp::Announcement announcementFor(const QHostAddress &address) const;
    void multicast(const QByteArray &message);
    void answer(const QByteArray &datagram, const QHostAddress &requester, quint16 port);

    QUdpSocket *udpSocket;
    UpnpSettings *settings;
    QSocketNotifier *termNotifier;
    qint32 joinResult; // 0 once the group is joined
    DatagramBuffer m_received;
    DateCache m_answerDate;
    quint64 m_searchesAnswered;
};

#endif
