#ifndef PROCNET_H
#define PROCNET_H

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QStringList>

// What the kernel tells of sockets and groups, in the tables of /proc/net.
namespace procnet
{

struct Socket
{
    QString address; // IPv4, to which it is bound; 0.0.0.0: any
    quint16 port;
    bool isListening; // TCP
    qint64 user;
};

// One for each line of /proc/net/udp or /proc/net/tcp; lines that do not describe a socket are left out.
QList<Socket> sockets(const QByteArray &table);

// Of /proc/net/igmp: the groups that a program on this host has joined, by interface.
QMap<QString, QStringList> groups(const QByteArray &table);

// All of a file of /proc/net; empty when it cannot be read.
QByteArray table(const char *name);

} // namespace procnet

#endif
