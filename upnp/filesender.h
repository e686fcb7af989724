#ifndef FILESENDER_H
#define FILESENDER_H

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QSharedPointer>

#include <sys/types.h>

class QFile;
class QSocketNotifier;

// Sends a head and a file over a stream socket, the file inside the kernel, from file to socket (sendfile(2)).
// A peer that reads slowly gets every byte while the event loop goes on.
class FileSender : public QObject
{
    Q_OBJECT

public:
    // Sends the head and then the first size bytes of the open file through a non-blocking socket.
    // True when that is finished: everything is sent, or sending has failed, since the connection is gone, the file has
    // become shorter, or no descriptor is left for what is still to be sent. False when the socket did not take everything:
    // a FileSender, a child of parent, sends the remaining bytes later, through a duplicate of the descriptor, which
    // LingeringClose closes afterwards. In both cases the caller's descriptor stays the caller's, which should close it now.
    static bool send(int socketDescriptor, const QByteArray &head, const QSharedPointer<QFile> &file, off_t size, QObject *parent);

    ~FileSender();

private slots:
    void sendMore();

private:
    // What is still to be sent.
    struct Rest
    {
        QByteArray head;
        QSharedPointer<QFile> file;
        off_t offset;
        off_t size;
    };

    // These send what the socket takes.
    enum Outcome {
        Done, // or impossible for good
        Blocked
    };
    static Outcome sendSome(int socketDescriptor, Rest *rest);
    static Outcome sendHead(int socketDescriptor, QByteArray *head);
    static Outcome sendFile(int socketDescriptor, Rest *rest);

    FileSender(int socketDescriptor, const Rest &rest, QObject *parent);

    Rest m_rest;
    int m_descriptor;
    QSocketNotifier *m_writable;
};

#endif
