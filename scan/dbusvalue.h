#ifndef DBUSVALUE_H
#define DBUSVALUE_H

#include <QtCore/QVariant>

// The part of a JSON value that a D-Bus message can carry.
namespace dbusvalue
{

// The object without the entries that the bus cannot carry: nulls, and lists and objects nested so deeply that the
// bus would drop the connection. Such elements of lists are left out too; zero characters, surrogates without their
// other half and Unicode's noncharacters (U+FFFE, U+FFFF, ...) are left out of texts.
QVariantMap sanitized(const QVariantMap &object);

// The text without the characters that a D-Bus string cannot hold.
QString sanitized(const QString &text);

// An upper bound of the bytes that the value takes in a message.
int marshalledSize(const QVariant &value);

} // namespace dbusvalue

#endif
