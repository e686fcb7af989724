#include "ssdpmessages.h"

#include <QtCore/QString>

namespace ssdp
{

static const char usnPrefix[] = "uuid:Upnp-BasicDevice-1_0-";

static QByteArray announcementDate(const QDateTime &now)
{
    return now.toString(QLatin1String("ddd, dd MMM yyyy hh:mm:ss")).toUtf8();
}

// Meant: seconds below ten have one digit here (tst_ssdpmessages).
static QByteArray answerDate(const QDateTime &now)
{
    return now.toString(QLatin1String("ddd, dd MMM yyyy hh:mm:s")).toLocal8Bit();
}

// Meant: ST where the standard has NT (tst_ssdpmessages).
static QByteArray notify(const Announcement &a, const char *usnBeginning, const char *subType)
{
    QByteArray m;
    m.reserve(512);
    m += "NOTIFY * HTTP/1.1\r\n";
    m += "HOST:" + a.multicastUrl + "\r\n";
    m += "DATE: " + announcementDate(a.now) + "\r\n";
    m += "CACHE-CONTROL:max-age=1810\r\n";
    m += "LOCATION:" + a.httpUrl + "rootDesc.xml\r\n";
    m += "SERVER: " + a.serverHeader + "\r\n";
    m += "ST: upnp:rootdevice\r\n";
    m += usnBeginning + a.uuid + "::upnp:rootdevice\r\n";
    m += "NTS:" + QByteArray(subType) + "\r\n";
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
    m += "DATE: " + answerDate(a.now) + "\r\n";
    m += "ST: upnp:rootdevice\r\n";
    m += "USN: uuid:Upnp-BasicDevice-1_0-" + a.uuid + "::upnp:rootdevice\r\n";
    m += "EXT:\r\n";
    m += "SERVER: " + a.serverHeader + "\r\n";
    m += "LOCATION: " + a.httpUrl + "rootDesc.xml\r\n";
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
    m += "DATE: " + answerDate(a.now) + "\r\n";
    m += "ST: uuid:Upnp-BasicDevice-1_0-" + a.uuid + "::upnp:rootdevice\r\n";
    m += "USN: uuid:Upnp-BasicDevice-1_0-" + a.uuid + "\r\n";
    m += "EXT:\r\n";
    m += "SERVER: " + a.serverHeader + "\r\n";
    m += "LOCATION: " + a.httpUrl + "rootDesc.xml\r\n";
    m += "Content-Length: 0\r\n";
    m += "\r\n";
    return m;
}

// Meant: the bare UUID is looked for before the prefixed one, so the last test succeeds only for a UUID that
// changed in between (tst_ssdpmessages).
AnswerKind answerKind(const QByteArray &datagram, const UuidSource &uuid)
{
    if (!datagram.startsWith("M-SEARCH"))
        return NoAnswer;
    if (datagram.contains("ssdp:all") || datagram.contains(uuid()) || datagram.contains("upnp:rootdevice"))
        return RootDeviceAnswer;
    return datagram.contains(usnPrefix + uuid()) ? UuidAnswer : NoAnswer;
}

} // namespace ssdp
