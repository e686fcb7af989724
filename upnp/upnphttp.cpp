#include "upnphttp.h"

#include "filesender.h"
#include "httpconnection.h"
#include "httpmessages.h"
#include "rootdesc.h"
#include "upnpsettings.h"

#include <QtCore/QDateTime>
#include <QtCore/QDebug>
#include <QtCore/QFile>
#include <QtCore/QSocketNotifier>
#include <QtCore/QTimerEvent>

#include <cerrno>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

static const char descriptionPath[] = "/rootDesc.xml";
static const char iconPath[] = "/icons/kelta_icon48.png";
static const char iconFile[] = "/var/www/icons/kelta_icon48.png";

// Descriptors that stay free for the log, for files and for asking the kernel about interfaces.
static const rlim_t reservedDescriptors = 16;
static const int acceptRetryPeriod = 200; // ms
static const int maximalAcceptsPerPass = 50;

// The kernel gives out the lowest free number, so a number tells how many are in use.
static bool isNearTheLimit(int descriptor)
{
    struct rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    return rlim_t(descriptor) + qMin(reservedDescriptors, limit.rlim_cur / 4) >= limit.rlim_cur;
}

static bool areDescriptorsScarce(int anyDescriptor)
{
    const int lowestFree = fcntl(anyDescriptor, F_DUPFD_CLOEXEC, 0);
    if (lowestFree == -1)
        return true;
    close(lowestFree);
    return isNearTheLimit(lowestFree);
}

UpnpHttp::UpnpHttp(UpnpSettings *deviceSettings, QObject *parent)
    : QTcpServer(parent)
    , settings(deviceSettings)
    , m_date(http::dateText)
{
    if (listen(qtcompat::anyIPv4<QHostAddress>(), settings->getHttpPort()))
        takeOverAccepting();
}

UpnpHttp::~UpnpHttp()
{
}

// When descriptors run out, QTcpServer either stops for good or takes the whole processor, so it is not left to it.
void UpnpHttp::takeOverAccepting()
{
    const QList<QSocketNotifier *> own = findChildren<QSocketNotifier *>();
    for (int i = 0; i < own.size(); ++i)
        own.at(i)->setEnabled(false);
    m_acceptable.reset(new QSocketNotifier(int(socketDescriptor()), QSocketNotifier::Read));
    connect(m_acceptable.data(), SIGNAL(activated(int)), this, SLOT(acceptConnections()));
}

void UpnpHttp::acceptConnections()
{
    for (int i = 0; i < maximalAcceptsPerPass; ++i) {
        const int descriptor = accept4(int(socketDescriptor()), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (descriptor == -1) {
            if (errno != EAGAIN && errno != ECONNABORTED && errno != EINTR)
                stopAccepting();
            return;
        }
        incomingConnection(descriptor);
        if (isNearTheLimit(descriptor)) {
            stopAccepting();
            return;
        }
    }
}

void UpnpHttp::stopAccepting()
{
    m_acceptable->setEnabled(false);
    m_retryTimer.start(acceptRetryPeriod, this);
}

void UpnpHttp::tryAcceptingAgain()
{
    if (areDescriptorsScarce(int(socketDescriptor())))
        return;
    m_retryTimer.stop();
    m_acceptable->setEnabled(true);
}

void UpnpHttp::timerEvent(QTimerEvent *event)
{
    if (event->timerId() == m_retryTimer.timerId())
        tryAcceptingAgain();
}

void UpnpHttp::incomingConnection(qtcompat::SocketDescriptor socketDescriptor)
{
    HttpConnection *socket = new HttpConnection(this);
    connect(socket, SIGNAL(readyRead()), this, SLOT(readyRead()));
    connect(socket, SIGNAL(disconnected()), this, SLOT(disconnected()));
    socket->setSocketDescriptor(socketDescriptor, QAbstractSocket::ConnectedState, QIODevice::ReadWrite);
}

void UpnpHttp::disconnected()
{
    sender()->deleteLater();
    if (m_retryTimer.isActive())
        tryAcceptingAgain();
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
    sendAndClose(socket, http::descriptionHeader(document.size(), settings->getServerHeader(), m_date.now()) + document);
}

void UpnpHttp::sendIcon(QTcpSocket *socket)
{
    const QSharedPointer<QFile> icon = openIcon();
    if (!icon) {
        sendAndClose(socket, http::iconNotFound());
        return;
    }
    const qint64 size = icon->size();
    socket->write(http::iconHeader(size, settings->getServerHeader(), m_date.now()));
    socket->flush();
    FileSender::send(int(socket->socketDescriptor()), icon, size, this);
    socket->close();
}

static bool isSameFile(const QFile &a, const QFile &b)
{
    struct stat first = {};
    struct stat second = {};
    return fstat(a.handle(), &first) == 0 && fstat(b.handle(), &second) == 0
        && first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// Peers that read the same file at the same time share a descriptor of it: there may be as many as descriptors.
QSharedPointer<QFile> UpnpHttp::openIcon()
{
    QSharedPointer<QFile> icon(new QFile(QLatin1String(iconFile)));
    if (!icon->open(QIODevice::ReadOnly))
        return QSharedPointer<QFile>();
    QSharedPointer<QFile> shared = m_icon.toStrongRef();
    if (shared && isSameFile(*shared, *icon))
        return shared;
    m_icon = icon;
    return icon;
}

void UpnpHttp::sendAndClose(QTcpSocket *socket, const QByteArray &answer)
{
    socket->write(answer);
    socket->flush();
    socket->close();
}
