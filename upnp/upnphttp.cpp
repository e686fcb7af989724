#include "upnphttp.h"

#include "filesender.h"
#include "httpconnection.h"
#include "httpmessages.h"
#include "rootdesc.h"
#include "upnpsettings.h"

#include <QtCore/QDateTime>
#include <QtCore/QDebug>
#include <QtCore/QFile>
#include <QtCore/QTimerEvent>

#include <sys/resource.h>

static const char descriptionPath[] = "/rootDesc.xml";
static const char iconPath[] = "/icons/kelta_icon48.png";
static const char iconFile[] = "/var/www/icons/kelta_icon48.png";

// Descriptors that stay free for the log, for files and for asking the kernel about interfaces.
static const rlim_t reservedDescriptors = 16;
static const int acceptRetryPeriod = 200; // ms

// The kernel gives out the lowest free number, so the newest number tells how many are in use.
static bool areDescriptorsScarce(qtcompat::SocketDescriptor newest)
{
    struct rlimit limit = {};
    return getrlimit(RLIMIT_NOFILE, &limit) == 0 && rlim_t(newest) + reservedDescriptors >= limit.rlim_cur;
}

UpnpHttp::UpnpHttp(UpnpSettings *deviceSettings, QObject *parent)
    : QTcpServer(parent)
    , settings(deviceSettings)
{
    qtcompat::connectAcceptError(this, SLOT(pauseAccepting()));
    listen(qtcompat::anyIPv4<QHostAddress>(), settings->getHttpPort());
}

void UpnpHttp::incomingConnection(qtcompat::SocketDescriptor socketDescriptor)
{
    HttpConnection *socket = new HttpConnection(this);
    connect(socket, SIGNAL(readyRead()), this, SLOT(readyRead()));
    connect(socket, SIGNAL(disconnected()), this, SLOT(disconnected()));
    socket->setSocketDescriptor(socketDescriptor, QAbstractSocket::ConnectedState, QIODevice::ReadWrite);
    if (areDescriptorsScarce(socketDescriptor))
        pauseAccepting();
}

// No pending connection is ever kept, so a maximum of none stops the accepting at once.
void UpnpHttp::pauseAccepting()
{
    setMaxPendingConnections(0);
    m_retryTimer.start(acceptRetryPeriod, this);
}

void UpnpHttp::acceptAgain()
{
    m_retryTimer.stop();
    setMaxPendingConnections(1);
    qtcompat::resumeAccepting(this);
}

void UpnpHttp::timerEvent(QTimerEvent *event)
{
    if (event->timerId() == m_retryTimer.timerId())
        acceptAgain();
}

void UpnpHttp::disconnected()
{
    sender()->deleteLater();
    if (m_retryTimer.isActive())
        acceptAgain();
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
    qDebug() << connection->peerAddress().toString() << QString::fromLatin1(request.path.constData());
    if (request.path == descriptionPath)
        sendDescription(connection);
    else if (request.path == iconPath)
        sendIcon(connection);
    else
        sendAndClose(connection, http::pathNotFound(settings->getServerHeader()));
}

void UpnpHttp::sendDescription(QTcpSocket *socket)
{
    const QHostAddress peer = socket->peerAddress();
    rootdesc::Values values;
    values.presentationUrl = settings->getPresentationUrl(peer);
    values.hostname = settings->getHostname();
    values.manufacturer = settings->getManufacturer();
    values.manufacturerUrl = settings->getUrl();
    values.modelDescription = settings->getModelDescription();
    values.modelName = settings->getModelName();
    values.modelNumber = settings->getModelNr();
    values.modelUrl = settings->getModelUrl();
    values.serialNumber = settings->getSerial();
    values.uuid = settings->getUuid(peer);
    const QByteArray document = rootdesc::document(values);
    sendAndClose(socket, http::descriptionHeader(document.size(), settings->getServerHeader(), QDateTime::currentDateTime()) + document);
}

void UpnpHttp::sendIcon(QTcpSocket *socket)
{
    QScopedPointer<QFile> icon(new QFile(QLatin1String(iconFile)));
    if (!icon->open(QIODevice::ReadOnly)) {
        sendAndClose(socket, http::iconNotFound());
        return;
    }
    socket->write(http::iconHeader(icon->size(), settings->getServerHeader(), QDateTime::currentDateTime()));
    socket->flush();
    FileSender::send(int(socket->socketDescriptor()), icon.take(), this);
    socket->close();
}

void UpnpHttp::sendAndClose(QTcpSocket *socket, const QByteArray &answer)
{
    socket->write(answer);
    socket->flush();
    socket->close();
}
