#ifndef HTTPGET_H
#define HTTPGET_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

// What the server at an IPv4 address answers to a GET, headers included, up to the end of the connection; reads no further once
// it has 256 KiB. Each system call waits at most three seconds. Empty with a reason when there is no answer.
QByteArray httpGet(const QString &address, quint16 port, const char *path, QString *reason);

#endif
