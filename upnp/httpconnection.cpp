#include "httpconnection.h"

HttpConnection::HttpConnection(QObject *parent)
    : QTcpSocket(parent)
{
    setReadBufferSize(maximalReadAhead);
}

bool HttpConnection::takeLine(QByteArray *line)
{
    // Pieces without a line end are moved out of the read buffer, so that each byte is searched for it only once.
    if (!canReadLine()) {
        keep(readAll());
        return false;
    }
    keep(readLine());
    *line = m_lineBeginning;
    m_lineBeginning = QByteArray();
    return true;
}

void HttpConnection::keep(const QByteArray &piece)
{
    if (m_lineBeginning.isEmpty())
        m_lineBeginning = piece;
    else
        m_lineBeginning += piece.left(maximalLineLength - m_lineBeginning.size());
}
