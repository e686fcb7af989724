#include "filesender.h"

#include "lingeringclose.h"

#include <QtCore/QFile>
#include <QtCore/QSocketNotifier>

#include <cerrno>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <unistd.h>

FileSender::Outcome FileSender::sendHead(int socketDescriptor, QByteArray *head)
{
    while (!head->isEmpty()) {
        const ssize_t sent = ::send(socketDescriptor, head->constData(), size_t(head->size()), MSG_NOSIGNAL);
        if (sent == -1)
            return errno == EAGAIN ? Blocked : Done;
        head->remove(0, int(sent));
    }
    return Done;
}

FileSender::Outcome FileSender::sendFile(int socketDescriptor, Rest *rest)
{
    while (rest->offset < rest->size) {
        const ssize_t sent = sendfile(socketDescriptor, rest->file->handle(), &rest->offset, size_t(rest->size - rest->offset));
        if (sent <= 0)
            return sent == -1 && errno == EAGAIN ? Blocked : Done;
    }
    return Done;
}

FileSender::Outcome FileSender::sendSome(int socketDescriptor, Rest *rest)
{
    if (sendHead(socketDescriptor, &rest->head) == Blocked)
        return Blocked;
    return rest->head.isEmpty() ? sendFile(socketDescriptor, rest) : Done;
}

bool FileSender::send(int socketDescriptor, const QByteArray &head, const QSharedPointer<QFile> &file, off_t size, QObject *parent)
{
    Rest rest = { head, file, 0, size };
    if (sendSome(socketDescriptor, &rest) == Done)
        return true;
    const int duplicate = fcntl(socketDescriptor, F_DUPFD_CLOEXEC, 0);
    if (duplicate == -1)
        return true;
    new FileSender(duplicate, rest, parent);
    return false;
}

FileSender::FileSender(int socketDescriptor, const Rest &rest, QObject *parent)
    : QObject(parent)
    , m_rest(rest)
    , m_descriptor(socketDescriptor)
    , m_writable(new QSocketNotifier(socketDescriptor, QSocketNotifier::Write, this))
{
    connect(m_writable, SIGNAL(activated(int)), this, SLOT(sendMore()));
}

FileSender::~FileSender()
{
    delete m_writable;
    if (m_descriptor != -1)
        close(m_descriptor);
}

void FileSender::sendMore()
{
    if (sendSome(m_descriptor, &m_rest) == Blocked)
        return;
    m_writable->setEnabled(false);
    LingeringClose::close(m_descriptor, parent());
    m_descriptor = -1;
    deleteLater();
}
