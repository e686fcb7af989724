/* The least that a single-threaded program does to answer searches one by one: poll, recvfrom, the date formatted,
   sendto. Argument: the address of eth0. */
#include "answer.h"
#include "sockets.h"

#include <poll.h>
#include <sys/socket.h>

static void answer_one(int socket, const char *address)
{
    char datagram[4096];
    char text[1024];
    struct sockaddr_in from;
    socklen_t from_size = sizeof from;
    const ssize_t size = recvfrom(socket, datagram, sizeof datagram, 0, (struct sockaddr *)&from, &from_size);
    if (!is_search(datagram, size))
        return;
    const int length = format_answer(text, sizeof text, address);
    sendto(socket, text, (size_t)length, 0, (struct sockaddr *)&from, from_size);
}

int main(int argc, char **argv)
{
    const char *address = argc > 1 ? argv[1] : "0.0.0.0";
    struct pollfd waiting = { group_socket(SSDP_GROUP, SSDP_PORT, address), POLLIN, 0 };
    for (;;) {
        if (poll(&waiting, 1, -1) > 0)
            answer_one(waiting.fd, address);
    }
}
