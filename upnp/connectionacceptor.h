#ifndef CONNECTIONACCEPTOR_H
#define CONNECTIONACCEPTOR_H

#include <QtCore/QBasicTimer>
#include <QtCore/QObject>

class IdleConnections;
class QSocketNotifier;

// Who serves the connections that a ConnectionAcceptor has accepted.
class ConnectionServer
{
public:
    enum Outcome {
        Closed, // the descriptor is closed
        TakenOver, // the descriptor is the server's, until it closes it
        NothingReceived // the descriptor is still the acceptor's
    };

    virtual ~ConnectionServer() { }

    // A connection was accepted, or bytes have come on it, or its peer has closed it. The descriptor is non-blocking.
    virtual Outcome serve(int descriptor) = 0;
    // Nothing has come yet, and IdleConnections could not add the descriptor: the server has to wait for its bytes.
    virtual void takeOver(int descriptor) = 0;
};

// Accepts the connections of a listening socket and keeps those on which nothing has come yet. It handles descriptors only.
//
// When the descriptors of the process become scarce, further connections wait in the kernel. Whether one is free again is
// checked five times a second, and at once when descriptorClosed() is called.
class ConnectionAcceptor : public QObject
{
    Q_OBJECT

public:
    // The listening socket is non-blocking and not owned, the server is not owned; both must outlive the acceptor.
    ConnectionAcceptor(int listeningDescriptor, ConnectionServer *server, QObject *parent);

    // For a server that has closed a descriptor: where accepting pauses, it goes on at once if enough are free, and not only
    // at the next check.
    void descriptorClosed();

protected:
    void timerEvent(QTimerEvent *event) override;

private slots:
    void acceptConnections();
    void serveReadable(int descriptor);

private:
    ConnectionServer::Outcome serve(int descriptor);
    void keep(int descriptor);
    void pause();
    void resumeIfPossible();

    int m_listeningDescriptor;
    ConnectionServer *m_server;
    QSocketNotifier *m_acceptable;
    IdleConnections *m_idle;
    QBasicTimer m_pause; // runs while nothing is accepted
};

#endif
