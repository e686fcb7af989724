#include "addresstext.h"

#include <QtCore/QStringList>

static QHostAddress ipv4FromText(const QString &text)
{
    const QStringList parts = text.split(QLatin1Char('.'));
    if (parts.size() != 4)
        return QHostAddress();
    quint32 address = 0;
    for (int i = 0; i < parts.size(); ++i) {
        bool isNumber = false;
        const uint part = parts.at(i).toUInt(&isNumber, 10);
        if (!isNumber || part > 255)
            return QHostAddress();
        address = (address << 8) | part;
    }
    return QHostAddress(address);
}

QHostAddress addressFromText(const QString &text)
{
    const QString trimmed = text.simplified();
    if (trimmed.contains(QLatin1Char(':')))
        return QHostAddress(trimmed);
    return ipv4FromText(trimmed);
}

// inet_ntop() and QByteArray::number() take several times as long.
static void appendDecimal(QByteArray *text, uint number)
{
    if (number >= 100)
        text->append(char('0' + number / 100));
    if (number >= 10)
        text->append(char('0' + number / 10 % 10));
    text->append(char('0' + number % 10));
}

QByteArray bytesOfAddress(const QHostAddress &address)
{
    if (address.protocol() != QAbstractSocket::IPv4Protocol)
        return address.toString().toLatin1();
    const quint32 ipv4 = address.toIPv4Address();
    QByteArray text;
    text.reserve(int(sizeof "255.255.255.255"));
    for (int shift = 24; shift > 0; shift -= 8) {
        appendDecimal(&text, ipv4 >> shift & 0xff);
        text.append('.');
    }
    appendDecimal(&text, ipv4 & 0xff);
    return text;
}

bool isLinkLocalIpv4(const QHostAddress &address)
{
    return address.protocol() == QAbstractSocket::IPv4Protocol && address.toIPv4Address() >> 16 == 0xa9fe;
}
