#ifndef HTTPCONNECTION_H
#define HTTPCONNECTION_H

#include <QtNetwork/QTcpSocket>

// The server's end of one connection: a socket that gives whole lines and holds only so much of what a peer sends.
//
// Of a line longer than maximalLineLength the beginning is kept and the rest is swallowed; when the lines of all
// connections together exceed maximalKept, already of one longer than minimalLineLength. Received bytes behind the first
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

    // To be asked after a line was taken: whether an empty line follows as the last thing that has come, so that no more
    // of the request will. What has come is gone afterwards.
    bool takeEndOfRequest();

private:
    void keep(const QByteArray &piece);
    QByteArray takeLineBeginning();

    static int s_kept; // bytes of all line beginnings

    QByteArray m_lineBeginning;
};

#endif
