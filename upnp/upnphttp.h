#ifndef UPNPHTTP_H
#define UPNPHTTP_H

#include "connectionacceptor.h"
#include "datecache.h"
#include "qtcompat.h"

#include <QtCore/QBasicTimer>
#include <QtCore/QScopedPointer>
#include <QtCore/QSharedPointer>
#include <QtNetwork/QTcpServer>

class HttpConnection;
class QFile;
class UpnpSettings;

namespace http
{
struct Request;
}

// The description server: answers one GET per connection, with the device description, with the icon or with 404,
// and closes the connection. Everything else a peer sends is read and never answered.
//
// Any number of peers may hold connections open (ConnectionAcceptor).
class UpnpHttp : public QTcpServer, private ConnectionServer
{
    Q_OBJECT

public:
    // Listens on the HTTP port of the settings, on every IPv4 address. A port that another program has is left to it,
    // without a message. Any other failure, such as no descriptor or no memory, is tried again every second.
    // The settings are not owned and must outlive the server.
    UpnpHttp(UpnpSettings *deviceSettings, QObject *parent);
    ~UpnpHttp();

    // Answers with a description, and with an icon that is there; those that a peer did not wait for count as well.
    quint64 descriptionsServed() const { return m_descriptionsServed; }
    quint64 iconsServed() const { return m_iconsServed; }

protected:
    void incomingConnection(qtcompat::SocketDescriptor socketDescriptor) override;
    void timerEvent(QTimerEvent *event) override;

private slots:
    void readyRead();
    void disconnected();

private:
    void startListening();
    bool tryToListen();
    bool isPortTaken() const;
    void takeOverAccepting();
    Outcome serve(int descriptor) override;
    Outcome answerAndClose(int descriptor, const QByteArray &answer, bool isRequestWhole);
    Outcome closeAnswered(int descriptor, bool isRequestWhole);
    void takeOver(int descriptor) override;
    HttpConnection *makeSocket(qtcompat::SocketDescriptor socketDescriptor);
    QByteArray answerTo(const http::Request &request, const QHostAddress &peer);
    QByteArray description(const QHostAddress &peer);
    void sendIcon(HttpConnection *connection);
    QSharedPointer<QFile> openIcon();
    void sendAndClose(HttpConnection *connection, const QByteArray &answer);
    void closeAnswered(HttpConnection *connection);

    UpnpSettings *m_settings;
    DateCache m_date;
    QScopedPointer<ConnectionAcceptor> m_acceptor; // null until the port is listened on
    QWeakPointer<QFile> m_icon; // there while peers are reading it
    quint64 m_descriptionsServed;
    quint64 m_iconsServed;
    QBasicTimer m_listenTimer; // runs while the port could not be listened on
};

#endif
