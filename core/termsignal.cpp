#include "termsignal.h"

#include <QtCore/QtGlobal>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

int termSocketPair[2] = { -1, -1 };

void createTermSocketPair()
{
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, termSocketPair) != 0)
        qFatal("Couldn't create TERM socketpair");
    // Nobody reads the bytes, so the pair can fill up: the handler must then lose its byte, not wait.
    fcntl(termSocketPair[0], F_SETFL, fcntl(termSocketPair[0], F_GETFL) | O_NONBLOCK);
    fcntl(termSocketPair[0], F_SETFD, FD_CLOEXEC);
    fcntl(termSocketPair[1], F_SETFD, FD_CLOEXEC);
}

bool hasTermSignalArrived()
{
    struct pollfd watched = { termSocketPair[1], POLLIN, 0 };
    return poll(&watched, 1, 0) == 1;
}

void termSignalHandler(int)
{
    const int interrupted = errno;
    const char byte = 1;
    const ssize_t written = write(termSocketPair[0], &byte, sizeof byte);
    static_cast<void>(written);
    errno = interrupted;
}

int installTermSignalHandler()
{
    struct sigaction action = {};
    action.sa_handler = termSignalHandler;
    sigemptyset(&action.sa_mask);
    action.sa_flags |= SA_RESTART;
    return sigaction(SIGTERM, &action, nullptr);
}
