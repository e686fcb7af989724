#ifndef ANNOUNCEMENT_H
#define ANNOUNCEMENT_H

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtNetwork/QHostAddress>

// The one datagram of the maker's own discovery protocol: a JSON-RPC 2.0 notification "announce".
// Its text is appended piece by piece; other devices expect exactly these bytes, white space included
// (tst_announcement).
namespace announcement
{

struct Ipv4Address
{
    QString address;
    QString netmask;
};

struct Ipv6Address
{
    QString address; // may end in a scope, "fe80::1%eth0"
    int prefixLength;
};

struct Interface
{
    QString name;
    bool isLoopback;
    QList<Ipv4Address> ipv4;
    QList<Ipv6Address> ipv6;
};

// Byte arrays are copied as they are, the other texts as Latin-1: nothing is escaped.
struct Values
{
    QByteArray hostname;
    QByteArray serial;
    QByteArray modelName;
    bool hasCodesys;
    QByteArray firmwareVersion;
    QList<Interface> interfaces; // all of them; loopback and CAN interfaces are not announced
    QString configurationMethod;
    QHostAddress gateway;
    int interval; // seconds between two announcements
};

// Valid JSON only when exactly one interface is announced, and when no text needs escaping. Meant: with none or several
// interfaces it is no JSON, and stays so (tst_announcement).
QByteArray text(const Values &values);

// The interfaces of this machine, in the order of the operating system; empty if the kernel does not tell them.
QList<Interface> interfacesOfThisMachine();

// A part of a datagram. Size 0: there is none.
struct Span
{
    int begin; // index of its first byte
    int size; // bytes
};

// The announcing device's uuid, found without reading JSON: the first string after the first "uuid" after "params".
// Empty when there is none. Meant: without the key "uuid" a string behind a colon may be found all the same (tst_announcement).
Span uuidIn(const QByteArray &datagram);

// Whether two JSON texts are the same but for the white space outside their strings. Takes no more time than reading them.
bool areSameButForBlanks(const QByteArray &a, const QByteArray &b);

} // namespace announcement

#endif
