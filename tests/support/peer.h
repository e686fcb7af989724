#ifndef PEER_H
#define PEER_H

#include <QtCore/QByteArray>

// A client of a TCP server: a plain non-blocking socket, so that a test decides when it reads.
class Peer
{
public:
    // Connects from the local address `from` to 10.77.0.2, port 8200.
    explicit Peer(const char *from = "10.77.0.2");
    ~Peer();

    bool isConnected() const { return m_descriptor != -1; }
    // Sends all of it while the event loop runs; false when the connection breaks or nothing moves any more.
    bool send(const QByteArray &bytes);
    // Takes what has come, at most so many bytes.
    void read(int maximum = 65536);
    // All that was read so far.
    const QByteArray &received() const { return m_received; }
    // The server closed the connection. True only after everything before was read.
    bool isAtEnd();
    // The server reset the connection instead. Known once everything before was read.
    bool wasReset() const { return m_wasReset; }
    // Reads while the event loop runs until the server closes; false when it does not, or resets the connection.
    bool readToEnd();
    // Sends nothing more, which the server is told.
    void endWriting();
    // Ends the connection with a reset instead of a close.
    void reset();

private:
    Peer(const Peer &);
    Peer &operator=(const Peer &);

    int m_descriptor;
    bool m_atEnd;
    bool m_wasReset;
    QByteArray m_received;
};

#endif
