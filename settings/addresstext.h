#ifndef ADDRESSTEXT_H
#define ADDRESSTEXT_H

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtNetwork/QHostAddress>

// The address that a text means, or the null address. An IPv4 text has exactly four decimal parts:
// unlike QHostAddress of Qt 5, "10.5", "5" and octal or hexadecimal parts are no short forms of anything.
QHostAddress addressFromText(const QString &text);

// Appends QHostAddress::toString() in ASCII: nothing for the null address. For IPv4 without a QString, since every answer contains
// an address.
void appendAddress(QByteArray *text, const QHostAddress &address);

// Whether the text of the address begins with "169.254": an IPv4 address in 169.254/16.
bool isLinkLocalIpv4(const QHostAddress &address);

#endif
