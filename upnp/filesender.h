#ifndef FILESENDER_H
#define FILESENDER_H

#include <QtCore/QObject>
#include <QtCore/QScopedPointer>

#include <sys/types.h>

class QFile;
class QSocketNotifier;

// Sends a file over a stream socket, from the file to the socket inside the kernel (sendfile(2)).
// A peer that reads slowly gets every byte while the event loop goes on.
class FileSender : public QObject
{
    Q_OBJECT

public:
    // Sends the open file, of which it becomes the owner, from its beginning. What the socket does not take at
    // once follows later, through a duplicate of its descriptor: the caller may close its own at any time.
    // Sending ends early when the connection is gone or the file has become shorter.
    static void send(int socketDescriptor, QFile *file, QObject *parent);

    ~FileSender();

private slots:
    void sendMore();

private:
    FileSender(int socketDescriptor, QFile *file, off_t offset, QObject *parent);

    QScopedPointer<QFile> m_file;
    off_t m_offset;
    int m_descriptor;
    QSocketNotifier *m_writable;
};

#endif
