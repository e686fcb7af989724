#ifndef DBUSMAP_H
#define DBUSMAP_H

#include <QtCore/QVariant>

// The entries of a D-Bus dictionary as it came in a message: a QDBusArgument of signature "a{sv}".
// Every other value, an argument of another signature included, gives an empty map: reading an argument
// as another type than it holds would end the process inside libdbus.
QVariantMap mapFromArgument(const QVariant &argument);

#endif
