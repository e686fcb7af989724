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
    // Sends the head and then the first size bytes of the open file. What the socket does not take at once follows later,
    // through a duplicate of its descriptor: the caller may close its own at any time, and is to close it now. The
    // duplicate is closed by LingeringClose.
    // Sending ends early when the connection is gone or the file has become shorter.
    // False when something follows later; the connection lives on until then.
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
