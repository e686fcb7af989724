#ifndef SOCKETROOM_H
#define SOCKETROOM_H

#include <sys/socket.h>

// Lets more than 2,000 small datagrams wait in a socket, which otherwise holds some hundreds. False where that is not allowed:
// beyond the limit of the system it is root's alone.
inline bool holdsManyDatagrams(int descriptor)
{
    const int wanted = 2 * 1024 * 1024; // bytes; the kernel takes twice as much, and 768 at least for each
    if (setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &wanted, sizeof wanted) == 0)
        return true;
    setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &wanted, sizeof wanted);
    int got = 0;
    socklen_t size = sizeof got;
    return getsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &got, &size) == 0 && got >= 2 * wanted;
}

#endif
