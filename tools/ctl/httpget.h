#ifndef HTTPGET_H
#define HTTPGET_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

// What the server at an IPv4 address of this machine answers to a GET, up to the end of the connection; at most 256 KiB, within three
// seconds for each step. Empty with a reason when there is no answer.
QByteArray httpGet(const QString &address, quint16 port, const char *path, QString *reason);

#endif
