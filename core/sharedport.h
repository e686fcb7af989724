#ifndef SHAREDPORT_H
#define SHAREDPORT_H

#include <QtNetwork/QUdpSocket>

// Binds the socket to the port on every IPv4 address, shared with all programs that share it by SO_REUSEADDR or by
// SO_REUSEPORT (socket(7)), whoever starts first. Qt sets only one of the two: Qt 5 the former, Qt 4 the latter.
// Linux accepts SO_REUSEPORT only among programs of the same user.
// False when the port cannot be bound; the socket's error() and errorString() say why, and bindShared() may be called again.
bool bindShared(QUdpSocket *socket, quint16 port, QUdpSocket::BindMode mode);

#endif
