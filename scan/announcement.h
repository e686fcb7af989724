#ifndef ANNOUNCEMENT_H
#define ANNOUNCEMENT_H

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtNetwork/QHostAddress>

// The one datagram of the maker's own discovery protocol: a JSON-RPC 2.0 notification "announce".
// Its text is put together piece by piece; other devices know it byte for byte, white space included
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

// 8-bit texts are copied as they are: nothing is escaped.
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

// Valid JSON exactly when one interface is announced. Meant: with none or several the text is broken, and stays so
// (tst_announcement).
QByteArray text(const Values &values);

// The interfaces of this machine, in the order of the operating system.
QList<Interface> interfacesOfThisMachine();

// A part of a datagram. Size 0: there is none.
struct Span
{
    int begin;
    int size; // bytes
};

// The announcing device's uuid, found by the datagram's text alone: the first string behind the first "uuid" behind
// "params". Empty when there is none.
Span uuidIn(const QByteArray &datagram);

// Whether two JSON texts are the same but for the white space outside their strings. Takes no more time than reading them.
bool areSameButForBlanks(const QByteArray &a, const QByteArray &b);

} // namespace announcement

#endif
