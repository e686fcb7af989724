#ifndef INTERFACES_H
#define INTERFACES_H

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtNetwork/QNetworkInterface>

// The network interfaces of this machine. QNetworkInterface returns an incomplete list when it has no descriptor or no
// memory to ask the kernel. Every machine has a loopback interface with an address, so a list without one is asked for
// again, four times in all; then it is returned as it is, and may be empty.
QList<QNetworkInterface> networkInterfaces();

// The interface of that name, or an invalid one.
QNetworkInterface networkInterface(const QString &name);

#endif
