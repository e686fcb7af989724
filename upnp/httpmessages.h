#ifndef HTTPMESSAGES_H
#define HTTPMESSAGES_H

#include <QtCore/QByteArray>

// What the description server reads and writes: the little of HTTP/1.1 (RFC 2616) that it needs. Its departures
// from the standard are meant and are held by tst_httpmessages.
namespace http
{

struct Request
{
    QByteArray method;
    QByteArray path;
};

// The first two words of a request line, which ends at its first zero byte. Any run of blanks, carriage returns
// and line feeds separates the words; a tab does not. A missing word is empty.
Request parseRequestLine(const QByteArray &line);

// Whether these last bytes of a request end with an empty line, and so the request. If not, more of it may come.
bool isRequestEnd(const char *bytes, int size);

// The text of a Date field at a moment, in milliseconds since 1970 (UTC).
QByteArray dateText(qint64 now);

// All that is sent before the body. contentLength is in bytes. serverHeader and date are 8-bit texts, copied as they are.
QByteArray descriptionHeader(int contentLength, const QByteArray &serverHeader, const QByteArray &date);
QByteArray iconHeader(qint64 contentLength, const QByteArray &serverHeader, const QByteArray &date);

// Whole answers.
QByteArray pathNotFound(const QByteArray &serverHeader);
QByteArray iconNotFound();

} // namespace http

#endif
