#ifndef INTERFACES_H
#define INTERFACES_H

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtNetwork/QNetworkInterface>

// The network interfaces of this machine. The kernel's answer can be lost, for want of a descriptor or of memory; every
// machine has a loopback interface with an address, so an answer without one is asked for again, a few times.
QList<QNetworkInterface> networkInterfaces();

// The interface of that name, or an invalid one.
QNetworkInterface networkInterface(const QString &name);

#endif
