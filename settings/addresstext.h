#ifndef ADDRESSTEXT_H
#define ADDRESSTEXT_H

#include <QtCore/QString>
#include <QtNetwork/QHostAddress>

// The address that a text means, or the null address. An IPv4 text has exactly four decimal parts:
// unlike QHostAddress of Qt 5, "10.5", "5" and octal or hexadecimal parts are no short forms of anything.
QHostAddress addressFromText(const QString &text);

#endif
