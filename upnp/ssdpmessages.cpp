#include "ssdpmessages.h"

#include "localdate.h"

#include <cstring>

namespace ssdp
{

static const char usnPrefix[] = "uuid:Upnp-BasicDevice-1_0-";

// Meant: seconds below ten have one digit here (tst_ssdpmessages).
QByteArray answerDate(qint64 now)
{
    return localdate::text(now, localdate::NoLeadingZero, localdate::Local8Bit);
}

// Meant: ST where the standard has NT (tst_ssdpmessages).
static QByteArray notify(const Announcement &a, const char *usnBeginning, const char *subType)
{
    QByteArray m;
    m.reserve(512);
    m += "NOTIFY * HTTP/1.1\r\n";
    m.append("HOST:").append(a.multicastUrl).append("\r\n");
    m.append("DATE: ").append(localdate::text(a.now, localdate::TwoDigits, localdate::Utf8)).append("\r\n");
    m += "CACHE-CONTROL:max-age=1810\r\n";
    m.append("LOCATION:").append(a.httpUrl).append("rootDesc.xml\r\n");
    m.append("SERVER: ").append(a.serverHeader).append("\r\n");
    m += "ST: upnp:rootdevice\r\n";
    m.append(usnBeginning).append(a.uuid).append("::upnp:rootdevice\r\n");
    m.append("NTS:").append(subType).append("\r\n");
    m += "\r\n";
    return m;
}

QByteArray alive(const Announcement &announcement)
{
    return notify(announcement, "USN: uuid:Upnp-BasicDevice-1_0-", "ssdp:alive");
}

QByteArray byeBye(const Announcement &announcement)
{
    return notify(announcement, "USN: uuid:Upnp-BasicDevice-1_0-", "ssdp:byebye");
}

// Meant: no blank and no device type in this USN, and only in this one (tst_ssdpmessages).
QByteArray autoipByeBye(const Announcement &announcement)
{
    return notify(announcement, "USN:uuid:", "ssdp:byebye");
}

QByteArray rootDeviceAnswer(const Answer &a)
{
    QByteArray m;
    m.reserve(512);
    m += "HTTP/1.1 200 OK\r\n";
    m += "CACHE-CONTROL: max-age=1810\r\n";
    m.append("DATE: ").append(a.date).append("\r\n");
    m += "ST: upnp:rootdevice\r\n";
    m.append("USN: uuid:Upnp-BasicDevice-1_0-").append(a.uuid).append("::upnp:rootdevice\r\n");
    m += "EXT:\r\n";
    m.append("SERVER: ").append(a.serverHeader).append("\r\n");
    m.append("LOCATION: ").append(a.httpUrl).append("rootDesc.xml\r\n");
    m += "Content-Length: 0\r\n";
    m += "\r\n";
    return m;
}

// Meant: ST and USN are crossed, compared with what UPnP says (tst_ssdpmessages).
QByteArray uuidAnswer(const Answer &a)
{
    QByteArray m;
    m.reserve(512);
    m += "HTTP/1.1 200 OK\r\n";
    m += "CACHE-CONTROL: max-age=1810\r\n";
    m.append("DATE: ").append(a.date).append("\r\n");
    m.append("ST: uuid:Upnp-BasicDevice-1_0-").append(a.uuid).append("::upnp:rootdevice\r\n");
    m.append("USN: uuid:Upnp-BasicDevice-1_0-").append(a.uuid).append("\r\n");
    m += "EXT:\r\n";
    m.append("SERVER: ").append(a.serverHeader).append("\r\n");
    m.append("LOCATION: ").append(a.httpUrl).append("rootDesc.xml\r\n");
    m += "Content-Length: 0\r\n";
    m += "\r\n";
    return m;
}

// memmem() is several times as fast as QByteArray::contains().
static bool contains(const QByteArray &datagram, const char *text, size_t size)
{
    return memmem(datagram.constData(), size_t(datagram.size()), text, size) != nullptr;
}

static bool contains(const QByteArray &datagram, const char *text)
{
    return contains(datagram, text, std::strlen(text));
}

static bool contains(const QByteArray &datagram, const QByteArray &text)
{
    return contains(datagram, text.constData(), size_t(text.size()));
}

// Meant: the bare UUID is looked for before the prefixed one, so the last test succeeds only for a UUID that
// changed in between (tst_ssdpmessages).
AnswerKind answerKind(const QByteArray &datagram, const UuidSource &uuid)
{
    if (!datagram.startsWith("M-SEARCH"))
        return NoAnswer;
    if (contains(datagram, "ssdp:all") || contains(datagram, uuid()) || contains(datagram, "upnp:rootdevice"))
        return RootDeviceAnswer;
    return contains(datagram, usnPrefix + uuid()) ? UuidAnswer : NoAnswer;
}

} // namespace ssdp
