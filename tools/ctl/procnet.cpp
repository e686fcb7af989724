#include "procnet.h"

#include <QtCore/QFile>

#include <arpa/inet.h>

static const int listening = 0x0a;

// Addresses are the four bytes as they lie in memory, written as one number.
static QString addressText(const QByteArray &hexadecimal)
{
    const struct in_addr address = { hexadecimal.toUInt(nullptr, 16) };
    char text[INET_ADDRSTRLEN] = "";
    return QString::fromLatin1(inet_ntop(AF_INET, &address, text, sizeof text));
}

// "  12: 00000000:076C 00000000:0000 07 00000000:00000000 00:00000000 00000000   997 ..."
QList<procnet::Socket> procnet::sockets(const QByteArray &table)
{
    QList<Socket> found;
    const QList<QByteArray> lines = table.split('\n');
    for (int i = 1; i < lines.size(); ++i) {
        const QList<QByteArray> words = lines.at(i).simplified().split(' ');
        const QList<QByteArray> local = words.value(1).split(':');
        if (words.size() < 8 || local.size() != 2)
            continue;
        const Socket socket = { addressText(local.at(0)), quint16(local.at(1).toUInt(nullptr, 16)),
            words.at(3).toInt(nullptr, 16) == listening, words.at(7).toLongLong() };
        found.append(socket);
    }
    return found;
}

// "2	eth0      :     3      V3", then indented "FAFFFFEF     1 0:00000000		0" for each group
QMap<QString, QStringList> procnet::groups(const QByteArray &table)
{
    QMap<QString, QStringList> found;
    QString interface;
    const QList<QByteArray> lines = table.split('\n');
    for (int i = 1; i < lines.size(); ++i) {
        const QList<QByteArray> words = lines.at(i).simplified().split(' ');
        const bool isGroup = lines.at(i).startsWith('\t') || lines.at(i).startsWith(' ');
        if (!isGroup)
            interface = QString::fromLatin1(words.value(1).replace(':', "").constData());
        else
            found[interface].append(addressText(words.first()));
    }
    return found;
}

QByteArray procnet::table(const char *name)
{
    QFile file(QLatin1String("/proc/net/") + QLatin1String(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
