#include "lingeringclose.h"

#include <QtCore/QSocketNotifier>

#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>

// Reads and discards what is there. True while more may come.
static bool readSome(int descriptor, int *bytesLeft)
{
    char bytes[16384];
    while (*bytesLeft > 0) {
        const ssize_t received = recv(descriptor, bytes, sizeof bytes, 0);
        if (received <= 0)
            return received == -1 && errno == EAGAIN;
        *bytesLeft -= int(received);
    }
    return false;
}

bool LingeringClose::close(int descriptor, QObject *parent)
{
    shutdown(descriptor, SHUT_WR);
    int bytesLeft = maximalBytes;
    if (readSome(descriptor, &bytesLeft)) {
        new LingeringClose(descriptor, bytesLeft, parent);
        return false;
    }
    ::close(descriptor);
    return true;
}

LingeringClose::LingeringClose(int descriptor, int bytesLeft, QObject *parent)
    : QObject(parent)
    , m_descriptor(descriptor)
    , m_bytesLeft(bytesLeft)
    , m_readable(new QSocketNotifier(descriptor, QSocketNotifier::Read, this))
{
    connect(m_readable, SIGNAL(activated(int)), this, SLOT(discardReceived()));
    m_timer.start(maximalTime, this);
}

LingeringClose::~LingeringClose()
{
    delete m_readable;
    ::close(m_descriptor);
}

void LingeringClose::discardReceived()
{
    if (!readSome(m_descriptor, &m_bytesLeft))
        deleteLater();
}

void LingeringClose::timerEvent(QTimerEvent *)
{
    deleteLater();
}
