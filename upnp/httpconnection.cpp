#include "httpconnection.h"

#include "httpmessages.h"

int HttpConnection::s_kept = 0;

HttpConnection::HttpConnection(QObject *parent)
    : QTcpSocket(parent)
{
    setReadBufferSize(maximalReadAhead);
}

HttpConnection::~HttpConnection()
{
    takeLineBeginning();
}

bool HttpConnection::takeLine(QByteArray *line)
{
    // Pieces without a line end are moved out of the read buffer, so that each byte is searched for it only once.
    if (!canReadLine()) {
        keep(readAll());
        return false;
    }
    keep(readLine());
    *line = takeLineBeginning();
    return true;
}

bool HttpConnection::takeEndOfRequest()
{
    const QByteArray rest = '\n' + readAll();
    return http::isRequestEnd(rest.constData(), rest.size());
}

void HttpConnection::keep(const QByteArray &piece)
{
    const int limit = s_kept > maximalKept ? int(minimalLineLength) : int(maximalLineLength);
    const int room = qBound(0, limit - m_lineBeginning.size(), piece.size());
    if (m_lineBeginning.isEmpty())
        m_lineBeginning = piece.left(room);
    else
        m_lineBeginning.append(piece.constData(), room);
    s_kept += room;
}

QByteArray HttpConnection::takeLineBeginning()
{
    QByteArray kept = m_lineBeginning;
    m_lineBeginning = QByteArray();
    s_kept -= kept.size();
    return kept;
}
