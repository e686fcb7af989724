#include "httpmessages.h"

#include "localdate.h"

#include <cstring>

namespace http
{

static const char separators[] = " \r\n";

static QByteArray takeWord(const char **text)
{
    QByteArray word(*text, int(std::strcspn(*text, separators)));
    *text += word.size();
    *text += std::strspn(*text, separators);
    return word;
}

Request parseRequestLine(const QByteArray &line)
{
    const char *text = line.constData();
    Request request;
    request.method = takeWord(&text);
    request.path = takeWord(&text);
    return request;
}

bool isRequestEnd(const char *bytes, int size)
{
    const char *const end = bytes + size;
    return (size >= 3 && std::memcmp(end - 3, "\n\r\n", 3) == 0) || (size >= 2 && std::memcmp(end - 2, "\n\n", 2) == 0);
}

QByteArray dateText(qint64 now)
{
    return localdate::text(now, localdate::TwoDigits, localdate::Local8Bit);
}

QByteArray descriptionHeader(int contentLength, const QByteArray &serverHeader, const QByteArray &date)
{
    QByteArray h;
    h.reserve(256);
    h += "HTTP/1.1 200 OK\r\n";
    h += "Content-Type: text/xml; charset=\"utf-8\"\r\n";
    h += "Connection: close\r\n";
    h.append("Content-Length: ").append(QByteArray::number(contentLength)).append("\r\n");
    // Meant: Server and Date share one line (tst_httpmessages).
    h.append("Server: ").append(serverHeader);
    h.append("Date: ").append(date).append("\r\n");
    h += "\r\n";
    return h;
}

// Meant: another order than that of the description (tst_httpmessages).
QByteArray iconHeader(qint64 contentLength, const QByteArray &serverHeader, const QByteArray &date)
{
    QByteArray h;
    h.reserve(256);
    h += "HTTP/1.1 200 OK\r\n";
    h += "Content-Type: image/png\r\n";
    h.append("Content-Length: ").append(QByteArray::number(contentLength)).append("\r\n");
    h += "Connection: close\r\n";
    h.append("Date: ").append(date).append("\r\n");
    h.append("Server: ").append(serverHeader).append("\r\n");
    h += "\r\n";
    return h;
}

QByteArray pathNotFound(const QByteArray &serverHeader)
{
    QByteArray h;
    h += "HTTP/1.1 404 Not Found\r\n";
    // Meant: no colon (tst_httpmessages).
    h.append("Server ").append(serverHeader).append("\r\n");
    h += "Content-Length: 0\r\n";
    h += "\r\n";
    return h;
}

// Meant: neither a status line nor any header (tst_httpmessages).
QByteArray iconNotFound()
{
    return "404 Not Found\r\n\r\n";
}

} // namespace http
