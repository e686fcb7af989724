#ifndef UPNPHTTP_H
#define UPNPHTTP_H

#include "datecache.h"
#include "qtcompat.h"

#include <QtCore/QBasicTimer>
#include <QtCore/QScopedPointer>
#include <QtCore/QSharedPointer>
#include <QtNetwork/QTcpServer>

class HttpConnection;
class QFile;
class QSocketNotifier;
class QuietConnections;
class UpnpSettings;

namespace http
{
struct Request;
}

// The description server: answers one GET per connection, with the device description, with the icon or with 404,
// and closes the connection. Everything else a peer sends is read and never answered.
//
// Any number of peers may hold connections open; when the descriptors of the process become scarce, further ones
// wait in the kernel until one is free again.
class UpnpHttp : public QTcpServer
{
    Q_OBJECT

public:
    // Listens on the HTTP port of the settings, on every IPv4 address; a port that is taken goes unnoticed. For want
    // of descriptors or memory it is tried again every second.
    // The settings are not owned and must outlive the server.
    UpnpHttp(UpnpSettings *deviceSettings, QObject *parent);
    ~UpnpHttp();

    // To peers that asked for them; what a peer did not wait for counts as well.
    quint64 descriptionsServed() const { return m_descriptionsServed; }
    quint64 iconsServed() const { return m_iconsServed; }

protected:
    void incomingConnection(qtcompat::SocketDescriptor socketDescriptor) override;
    void timerEvent(QTimerEvent *event) override;

private slots:
    void readyRead();
    void disconnected();
    void acceptConnections();
    void serve(int descriptor);

private:
    void startListening();
    bool tryToListen();
    bool isPortTaken() const;
    void takeOverAccepting();
    // True when the connection is done with, also below.
    bool serveNow(int descriptor);
    void waitForBytes(int descriptor);
    bool answerAndClose(int descriptor, const QByteArray &answer, bool isRequestWhole);
    bool closeAnswered(int descriptor, bool isRequestWhole);
    void closeConnection(int descriptor);
    HttpConnection *makeSocket(qtcompat::SocketDescriptor socketDescriptor);
    void stopAccepting();
    void tryAcceptingAgain();
    QByteArray answerTo(const http::Request &request, const QHostAddress &peer);
    QByteArray description(const QHostAddress &peer);
    void sendIcon(HttpConnection *connection);
    QSharedPointer<QFile> openIcon();
    void sendAndClose(HttpConnection *connection, const QByteArray &answer);
    void closeAnswered(HttpConnection *connection);

    UpnpSettings *settings;
    DateCache m_date;
    QScopedPointer<QSocketNotifier> m_acceptable;
    QuietConnections *m_quiet;
    QWeakPointer<QFile> m_icon; // there while peers are reading it
    quint64 m_descriptionsServed;
    quint64 m_iconsServed;
    QBasicTimer m_retryTimer; // runs while accepting is paused
    QBasicTimer m_listenTimer; // runs while the port could not be listened on
};

#endif
