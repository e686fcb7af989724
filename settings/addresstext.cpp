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

static char *writeDecimal(char *to, uint byte)
{
    if (byte >= 100)
        *to++ = char('0' + byte / 100);
    if (byte >= 10)
        *to++ = char('0' + byte / 10 % 10);
    *to++ = char('0' + byte % 10);
    return to;
}

// inet_ntop() takes several times as long.
void appendAddress(QByteArray *text, const QHostAddress &address)
{
    if (address.protocol() != QAbstractSocket::IPv4Protocol) {
        text->append(address.toString().toLatin1());
        return;
    }
    const quint32 ipv4 = address.toIPv4Address();
    char decimal[sizeof "255.255.255.255"];
    char *end = writeDecimal(decimal, ipv4 >> 24);
    for (int shift = 16; shift >= 0; shift -= 8) {
        *end++ = '.';
        end = writeDecimal(end, ipv4 >> shift & 0xff);
    }
    text->append(decimal, int(end - decimal));
}

bool isLinkLocalIpv4(const QHostAddress &address)
{
    return address.protocol() == QAbstractSocket::IPv4Protocol && address.toIPv4Address() >> 16 == 0xa9fe;
}
