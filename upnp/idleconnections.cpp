#include "idleconnections.h"

#include <QtCore/QSocketNotifier>

#include <sys/epoll.h>
#include <unistd.h>

static const int maximalEventsPerPass = 64;

IdleConnections::IdleConnections(QObject *parent)
    : QObject(parent)
    , m_epoll(epoll_create1(EPOLL_CLOEXEC))
    , m_notifier(nullptr)
{
    if (m_epoll == -1)
        return;
    m_notifier = new QSocketNotifier(m_epoll, QSocketNotifier::Read, this);
    connect(m_notifier, SIGNAL(activated(int)), this, SLOT(takeReadable()));
}

IdleConnections::~IdleConnections()
{
    delete m_notifier;
    for (QSet<int>::const_iterator i = m_descriptors.constBegin(); i != m_descriptors.constEnd(); ++i)
        close(*i);
    if (m_epoll != -1)
        close(m_epoll);
}

bool IdleConnections::add(int descriptor)
{
    struct epoll_event event = {};
    // One event is enough: afterwards the kernel reports nothing more of the connection, and removes it when it is closed.
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.fd = descriptor;
    if (epoll_ctl(m_epoll, EPOLL_CTL_ADD, descriptor, &event) != 0)
        return false;
    m_descriptors.insert(descriptor);
    return true;
}

void IdleConnections::takeReadable()
{
    struct epoll_event events[maximalEventsPerPass];
    const int count = epoll_wait(m_epoll, events, maximalEventsPerPass, 0);
    for (int i = 0; i < count; ++i) {
        m_descriptors.remove(events[i].data.fd);
        emit readable(events[i].data.fd);
    }
}
