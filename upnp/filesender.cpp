#include "filesender.h"

#include <QtCore/QFile>
#include <QtCore/QSocketNotifier>

#include <cerrno>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <unistd.h>

// Sends what the socket takes. True while more is to be sent later.
static bool sendSome(int socketDescriptor, const QFile &file, off_t *offset, off_t size)
{
    while (*offset < size) {
        const ssize_t sent = sendfile(socketDescriptor, file.handle(), offset, size_t(size - *offset));
        if (sent > 0 || (sent == -1 && errno == EINTR))
            continue;
        return sent == -1 && errno == EAGAIN;
    }
    return false;
}

void FileSender::send(int socketDescriptor, const QSharedPointer<QFile> &file, off_t size, QObject *parent)
{
    off_t offset = 0;
    if (!sendSome(socketDescriptor, *file, &offset, size))
        return;
    const int duplicate = fcntl(socketDescriptor, F_DUPFD_CLOEXEC, 0);
    if (duplicate != -1)
        new FileSender(duplicate, file, offset, size, parent);
}

FileSender::FileSender(int socketDescriptor, const QSharedPointer<QFile> &file, off_t offset, off_t size, QObject *parent)
    : QObject(parent)
    , m_file(file)
    , m_offset(offset)
    , m_size(size)
    , m_descriptor(socketDescriptor)
    , m_writable(new QSocketNotifier(socketDescriptor, QSocketNotifier::Write, this))
{
    connect(m_writable, SIGNAL(activated(int)), this, SLOT(sendMore()));
}

FileSender::~FileSender()
{
    delete m_writable;
    close(m_descriptor);
}

void FileSender::sendMore()
{
    if (sendSome(m_descriptor, *m_file, &m_offset, m_size))
        return;
    m_writable->setEnabled(false);
    deleteLater();
}
