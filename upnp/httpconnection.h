#ifndef HTTPCONNECTION_H
#define HTTPCONNECTION_H

#include <QtNetwork/QTcpSocket>

// The server's end of one connection: a socket that returns whole lines and keeps a bounded number of bytes of a peer.
//
// Of a line at most maximalLineLength is kept, the bytes behind that are discarded. While the lines of all connections
// together exceed maximalKept, a line grows to minimalLineLength only. All sizes are in bytes. Received bytes behind the first
// line wait in the socket's read buffer, which holds maximalReadAhead; behind that, TCP holds the peer back.
class HttpConnection : public QTcpSocket
{
public:
    enum {
        maximalLineLength = 1024 * 1024 + 4096,
        minimalLineLength = 4096,
        maximalKept = 32 * 1024 * 1024,
        maximalReadAhead = 64 * 1024
    };

    explicit HttpConnection(QObject *parent);
    ~HttpConnection();

    // Takes the next line, line end included. False when it is not complete yet.
    bool takeLine(QByteArray *line);

    // To be called after a line was taken: whether the bytes received so far end with an empty line, so that no more of the
    // request will come. Discards these bytes.
    bool takeEndOfRequest();

private:
    void keep(const QByteArray &piece);
    QByteArray takeLineBeginning();

    static int s_kept; // bytes of all line beginnings

    QByteArray m_lineBeginning;
};

#endif
