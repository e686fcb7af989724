#ifndef OWNNETWORK_H
#define OWNNETWORK_H

#include <QtCore/QStringList>

// This machine's network as the kernel has it.
namespace ownnetwork
{

bool hasInterface(const char *name);
// Of an interface, without scopes; IPv4 first.
QStringList addresses(const char *interface);
// Twelve upper-case hexadecimal digits; empty without the interface.
QString macAddress(const char *interface);
QString hostname();
// The name of a user; the number where no user has it.
QString userName(qint64 number);

} // namespace ownnetwork

#endif
