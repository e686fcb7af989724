#include "sharedport.h"

#include "qtcompat.h"

#include <sys/socket.h>

static void shareByBothOptions(int descriptor)
{
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
}

// There is no descriptor to set an option on before Qt's bind(). When that succeeds, the other option lets programs bind the
// port that start later; when it fails because of programs that have the port already, a second try has both options.
bool bindShared(QUdpSocket *socket, quint16 port, QUdpSocket::BindMode mode)
{
    const QHostAddress anyAddress = qtcompat::anyIPv4<QHostAddress>();
    const bool isBound = socket->bind(anyAddress, port, mode);
    shareByBothOptions(int(socket->socketDescriptor()));
    return isBound || socket->bind(anyAddress, port, mode);
}
