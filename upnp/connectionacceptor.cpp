#include "connectionacceptor.h"

#include "idleconnections.h"

#include <QtCore/QSocketNotifier>

#include <cerrno>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

// Descriptors that stay free for the log, for files and for asking the kernel about interfaces.
static const rlim_t reservedDescriptors = 16;
static const int pausePeriod = 200; // ms
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

ConnectionAcceptor::ConnectionAcceptor(int listeningDescriptor, ConnectionServer *server, QObject *parent)
    : QObject(parent)
    , m_listeningDescriptor(listeningDescriptor)
    , m_server(server)
    , m_acceptable(new QSocketNotifier(listeningDescriptor, QSocketNotifier::Read, this))
    , m_idle(new IdleConnections(this))
{
    connect(m_acceptable, SIGNAL(activated(int)), this, SLOT(acceptConnections()));
    connect(m_idle, SIGNAL(readable(int)), this, SLOT(serveReadable(int)));
}

void ConnectionAcceptor::acceptConnections()
{
    for (int i = 0; i < maximalAcceptsPerPass; ++i) {
        const int descriptor = accept4(m_listeningDescriptor, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (descriptor == -1) {
            if (errno != EAGAIN && errno != ECONNABORTED && errno != EINTR)
                pause();
            return;
        }
        if (serve(descriptor) != ConnectionServer::Closed && isNearTheLimit(descriptor)) {
            pause();
            return;
        }
    }
}

ConnectionServer::Outcome ConnectionAcceptor::serve(int descriptor)
{
    const ConnectionServer::Outcome outcome = m_server->serve(descriptor);
    if (outcome == ConnectionServer::NothingReceived)
        keep(descriptor);
    return outcome;
}

void ConnectionAcceptor::keep(int descriptor)
{
    if (!m_idle->add(descriptor))
        m_server->takeOver(descriptor);
}

void ConnectionAcceptor::serveReadable(int descriptor)
{
    if (serve(descriptor) == ConnectionServer::Closed)
        descriptorClosed();
}

void ConnectionAcceptor::descriptorClosed()
{
    if (m_pause.isActive())
        resumeIfPossible();
}

void ConnectionAcceptor::pause()
{
    m_acceptable->setEnabled(false);
    m_pause.start(pausePeriod, this);
}

void ConnectionAcceptor::timerEvent(QTimerEvent *)
{
    resumeIfPossible();
}

void ConnectionAcceptor::resumeIfPossible()
{
    if (areDescriptorsScarce(m_listeningDescriptor))
        return;
    m_pause.stop();
    m_acceptable->setEnabled(true);
}
