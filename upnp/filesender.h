#ifndef FILESENDER_H
#define FILESENDER_H

#include <QtCore/QObject>
#include <QtCore/QSharedPointer>

#include <sys/types.h>

class QFile;
class QSocketNotifier;

// Sends a file over a stream socket, from the file to the socket inside the kernel (sendfile(2)).
// A peer that reads slowly gets every byte while the event loop goes on.
class FileSender : public QObject
{
    Q_OBJECT

public:
    // Sends the first size bytes of the open file. What the socket does not take at once follows later, through a
    // duplicate of its descriptor: the caller may close its own at any time.
    // Sending ends early when the connection is gone or the file has become shorter.
    static void send(int socketDescriptor, const QSharedPointer<QFile> &file, off_t size, QObject *parent);

    ~FileSender();

private slots:
    void sendMore();

private:
    FileSender(int socketDescriptor, const QSharedPointer<QFile> &file, off_t offset, off_t size, QObject *parent);

    QSharedPointer<QFile> m_file;
    off_t m_offset;
    off_t m_size;
    int m_descriptor;
    QSocketNotifier *m_writable;
};

#endif
