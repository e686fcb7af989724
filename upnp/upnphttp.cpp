#include "upnphttp.h"

#include "connectionacceptor.h"
#include "debugmessages.h"
#include "device.h"
#include "filesender.h"
#include "httpconnection.h"
#include "httpmessages.h"
#include "lingeringclose.h"
#include "rootdesc.h"
#include "upnpsettings.h"

#include <QtCore/QFile>
#include <QtCore/QSocketNotifier>
#include <QtCore/QTimerEvent>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

static const char descriptionPath[] = "/rootDesc.xml";
static const char iconPath[] = DEVICE_ICON_PATH;
static const char iconFile[] = DEVICE_ICON_FILE;

static const int listenRetryPeriod = 1000; // ms

// Those of control points have 100 to 500 bytes.
static const int maximalShortRequestSize = 4096;

UpnpHttp::UpnpHttp(UpnpSettings *deviceSettings, QObject *parent)
    : QTcpServer(parent)
    , m_settings(deviceSettings)
    , m_date(http::dateText)
    , m_descriptionsServed(0)
    , m_iconsServed(0)
{
    signal(SIGPIPE, SIG_IGN); // sendfile(2) has no other way not to raise it
    startListening();
}

UpnpHttp::~UpnpHttp()
{
}

bool UpnpHttp::tryToListen()
{
    return listen(qtcompat::anyIPv4<QHostAddress>(), m_settings->getHttpPort());
}

bool UpnpHttp::isPortTaken() const
{
    return serverError() == QAbstractSocket::AddressInUseError;
}

// A port that is taken stays taken. It is tried twice, since without SO_REUSEADDR, which may have been refused, old
// connections take it as well. Any other failure is expected to be gone later: no descriptor, no memory.
void UpnpHttp::startListening()
{
    if (tryToListen() || (isPortTaken() && tryToListen())) {
        m_listenTimer.stop();
        takeOverAccepting();
    } else if (isPortTaken()) {
        m_listenTimer.stop();
    } else if (!m_listenTimer.isActive()) {
        m_listenTimer.start(listenRetryPeriod, this);
    }
}

// When descriptors run out, QTcpServer either stops for good or takes the whole processor, so accepting is not left to it.
// This relies on listen() having made the one notifier that Qt accepts by, below the server, and on nothing enabling it
// again (tst_upnphttp).
void UpnpHttp::takeOverAccepting()
{
    const QList<QSocketNotifier *> own = findChildren<QSocketNotifier *>();
    for (int i = 0; i < own.size(); ++i)
        own.at(i)->setEnabled(false);
    m_acceptor.reset(new ConnectionAcceptor(int(socketDescriptor()), this, nullptr));
}

void UpnpHttp::timerEvent(QTimerEvent *)
{
    startListening();
}

static QHostAddress peerOf(int descriptor)
{
    struct sockaddr_in peer = {};
    socklen_t size = sizeof peer;
    if (getpeername(descriptor, reinterpret_cast<struct sockaddr *>(&peer), &size) != 0)
        return QHostAddress();
    return QHostAddress(ntohl(peer.sin_addr.s_addr));
}

static QByteArray firstLine(const char *bytes, ssize_t size)
{
    const void *lineEnd = std::memchr(bytes, '\n', size_t(size));
    return lineEnd ? QByteArray(bytes, int(static_cast<const char *>(lineEnd) - bytes) + 1) : QByteArray();
}

// Nearly every request comes whole and gets a short answer: it is answered without a QTcpSocket, which would cost several
// times as much as everything else. Other requests are only looked at (MSG_PEEK): a QTcpSocket reads them.
ConnectionServer::Outcome UpnpHttp::serve(int descriptor)
{
    char bytes[maximalShortRequestSize];
    const ssize_t size = recv(descriptor, bytes, sizeof bytes, MSG_PEEK);
    if (size == -1 && errno == EAGAIN)
        return NothingReceived;
    if (size <= 0) {
        ::close(descriptor);
        return Closed;
    }
    const http::Request request = http::parseRequestLine(firstLine(bytes, size));
    if (request.method != "GET" || request.path == iconPath || size == maximalShortRequestSize) {
        takeOver(descriptor);
        return TakenOver;
    }
    // Closing would reset the connection if something were left unread.
    const ssize_t taken = recv(descriptor, bytes, sizeof bytes, 0);
    return answerAndClose(descriptor, answerTo(request, peerOf(descriptor)), http::isRequestEnd(bytes, int(taken)));
}

ConnectionServer::Outcome UpnpHttp::answerAndClose(int descriptor, const QByteArray &answer, bool isRequestWhole)
{
    const ssize_t sent = send(descriptor, answer.constData(), size_t(answer.size()), MSG_NOSIGNAL);
    if (sent == answer.size() || (sent == -1 && errno != EAGAIN))
        return closeAnswered(descriptor, isRequestWhole);
    // More than the kernel takes at once
    sendAndClose(makeSocket(descriptor), answer.mid(qMax(0, int(sent))));
    return TakenOver;
}

// While more of the request may come, closing would reset the connection.
ConnectionServer::Outcome UpnpHttp::closeAnswered(int descriptor, bool isRequestWhole)
{
    if (!isRequestWhole)
        return LingeringClose::close(descriptor, this) ? Closed : TakenOver;
    ::close(descriptor);
    return Closed;
}

void UpnpHttp::takeOver(int descriptor)
{
    incomingConnection(descriptor);
}

// As accepting is not left to Qt, only takeOver() calls it.
void UpnpHttp::incomingConnection(qtcompat::SocketDescriptor socketDescriptor)
{
    makeSocket(socketDescriptor);
}

HttpConnection *UpnpHttp::makeSocket(qtcompat::SocketDescriptor socketDescriptor)
{
    HttpConnection *socket = new HttpConnection(this);
    connect(socket, SIGNAL(readyRead()), this, SLOT(readyRead()));
    connect(socket, SIGNAL(disconnected()), this, SLOT(disconnected()));
    socket->setSocketDescriptor(socketDescriptor, QAbstractSocket::ConnectedState, QIODevice::ReadWrite);
    return socket;
}

// Meant: one line for each signal. What stands behind a line that is no GET waits for the next signal and is
// then judged the same way (tst_upnphttp).
void UpnpHttp::readyRead()
{
    HttpConnection *connection = static_cast<HttpConnection *>(sender());
    QByteArray line;
    if (!connection->takeLine(&line))
        return;
    const http::Request request = http::parseRequestLine(line);
    if (request.method != "GET")
        return;
    if (request.path == iconPath)
        sendIcon(connection);
    else
        sendAndClose(connection, answerTo(request, connection->peerAddress()));
}

QByteArray UpnpHttp::answerTo(const http::Request &request, const QHostAddress &peer)
{
    debugMessage() << peer.toString() << QString::fromLatin1(request.path.constData());
    return request.path == descriptionPath ? description(peer) : http::pathNotFound(m_settings->getServerHeader());
}

QByteArray UpnpHttp::description(const QHostAddress &peer)
{
    ++m_descriptionsServed;
    rootdesc::Values values;
    values.presentationUrl = m_settings->getPresentationUrl(peer);
    values.hostname = m_settings->getHostname();
    values.manufacturer = m_settings->getManufacturer();
    values.manufacturerUrl = m_settings->getUrl();
    values.modelDescription = m_settings->getModelDescription();
    values.modelName = m_settings->getModelName();
    values.modelNumber = m_settings->getModelNr();
    values.modelUrl = m_settings->getModelUrl();
    values.serialNumber = m_settings->getSerial();
    values.uuid = m_settings->getUuid(peer);
    const QByteArray document = rootdesc::document(values);
    return http::descriptionHeader(document.size(), m_settings->getServerHeader(), m_date.now()).append(document);
}

void UpnpHttp::sendIcon(HttpConnection *connection)
{
    debugMessage() << connection->peerAddress().toString() << QString::fromLatin1(iconPath);
    const QSharedPointer<QFile> icon = openIcon();
    if (!icon) {
        sendAndClose(connection, http::iconNotFound());
        return;
    }
    ++m_iconsServed;
    const qint64 size = icon->size();
    const QByteArray header = http::iconHeader(size, m_settings->getServerHeader(), m_date.now());
    if (FileSender::send(int(connection->socketDescriptor()), header, icon, size, this))
        closeAnswered(connection);
    else
        connection->close();
}

static bool isSameFile(const QFile &a, const QFile &b)
{
    struct stat first = {};
    struct stat second = {};
    return fstat(a.handle(), &first) == 0 && fstat(b.handle(), &second) == 0
        && first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// The descriptor, or -1. Opening anything but a regular file may wait, or do something.
static int openRegularFile(const char *name)
{
    const int descriptor = open(name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat status = {};
    if (descriptor == -1 || (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)))
        return descriptor;
    close(descriptor);
    return -1;
}

// Peers that read the same file at the same time share one descriptor of it: there may be as many peers as descriptors.
QSharedPointer<QFile> UpnpHttp::openIcon()
{
    const int descriptor = openRegularFile(iconFile);
    if (descriptor == -1)
        return QSharedPointer<QFile>();
    QSharedPointer<QFile> icon(new QFile);
    if (!icon->open(descriptor, QIODevice::ReadOnly, QFile::AutoCloseHandle))
        return QSharedPointer<QFile>();
    QSharedPointer<QFile> shared = m_icon.toStrongRef();
    if (shared && isSameFile(*shared, *icon))
        return shared;
    m_icon = icon;
    return icon;
}

void UpnpHttp::sendAndClose(HttpConnection *connection, const QByteArray &answer)
{
    connection->write(answer);
    connection->flush();
    closeAnswered(connection);
}

void UpnpHttp::closeAnswered(HttpConnection *connection)
{
    // Sending closes it when the peer is gone.
    const bool mayLinger = connection->isOpen() && connection->bytesToWrite() == 0 && !connection->takeEndOfRequest();
    const int duplicate = mayLinger ? fcntl(int(connection->socketDescriptor()), F_DUPFD_CLOEXEC, 0) : -1;
    connection->close();
    if (duplicate != -1)
        LingeringClose::close(duplicate, this);
}

// What FileSender and LingeringClose close is noticed at the acceptor's next check.
void UpnpHttp::disconnected()
{
    sender()->deleteLater();
    if (m_acceptor)
        m_acceptor->descriptorClosed();
}
