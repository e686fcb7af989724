#include "httpget.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

static const int maximalSize = 256 * 1024;
static const struct timeval timeout = { 3, 0 };

static QByteArray everythingFrom(int descriptor)
{
    QByteArray all;
    char piece[4096];
    ssize_t size = 0;
    while (all.size() < maximalSize && (size = recv(descriptor, piece, sizeof piece, 0)) > 0)
        all.append(piece, int(size));
    return all;
}

static bool ask(int descriptor, const QString &address, quint16 port, const QByteArray &question)
{
    struct sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    inet_pton(AF_INET, address.toLatin1().constData(), &to.sin_addr);
    setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    return connect(descriptor, reinterpret_cast<const struct sockaddr *>(&to), sizeof to) == 0
        && send(descriptor, question.constData(), size_t(question.size()), MSG_NOSIGNAL) == question.size();
}

QByteArray httpGet(const QString &address, quint16 port, const char *path, QString *reason)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const QByteArray question = QByteArray("GET ") + path + " HTTP/1.0\r\n\r\n";
    errno = 0;
    const bool asked = descriptor != -1 && ask(descriptor, address, port, question);
    QByteArray answer = asked ? everythingFrom(descriptor) : QByteArray();
    if (answer.isEmpty())
        *reason = errno ? QString::fromLocal8Bit(std::strerror(errno)) : QString::fromLatin1("nothing is answered");
    if (descriptor != -1)
        close(descriptor);
    return answer;
}
