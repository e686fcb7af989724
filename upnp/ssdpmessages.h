#ifndef SSDPMESSAGES_H
#define SSDPMESSAGES_H

#include <QtCore/QByteArray>

#include <functional>

// The datagrams of the Simple Service Discovery Protocol (UPnP Device Architecture 1.0, section 1) as this device
// writes them. They depart from the standard in spacing, header names and dates; every departure is meant
// and is held byte by byte by tst_ssdpmessages.
//
// All texts are 8-bit and are copied as they are; an empty value leaves its place empty.
namespace ssdp
{

// What an announcement says, for one address of the device.
struct Announcement
{
    QByteArray multicastUrl; // "239.255.255.250:1900"
    QByteArray httpUrl; // "http://192.168.1.20:8200/"
    QByteArray serverHeader; // "Kelta/1.4.2, UPnP/1.0"
    QByteArray uuid; // without any prefix
    qint64 now; // milliseconds since 1970 (UTC)
};

QByteArray alive(const Announcement &announcement);
QByteArray byeBye(const Announcement &announcement);
// The byebye for the device's link-local address, whose USN has another form.
QByteArray autoipByeBye(const Announcement &announcement);

// What an answer says to one requester.
struct Answer
{
    QByteArray httpUrl;
    QByteArray serverHeader;
    QByteArray uuid;
    QByteArray date; // answerDate()
};

// The date of an answer at a moment, in milliseconds since 1970 (UTC).
QByteArray answerDate(qint64 now);

QByteArray rootDeviceAnswer(const Answer &answer);
QByteArray uuidAnswer(const Answer &answer);

enum AnswerKind {
    NoAnswer,
    RootDeviceAnswer,
    UuidAnswer
};

// Gives the device's UUID for the requester; asked once per comparison.
typedef std::function<QByteArray()> UuidSource;

// Which answer a received datagram gets: by its bytes alone, wherever in it they stand.
AnswerKind answerKind(const QByteArray &datagram, const UuidSource &uuid);

} // namespace ssdp

#endif
