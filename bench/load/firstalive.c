/* Waits for the first "ssdp:alive" of a device.
     load_firstalive ADDRESS FROM SECONDS
   ADDRESS is that of this side, FROM the device's. Prints "ready", then the monotonic time, or -1. */
#define _GNU_SOURCE
#include "clocks.h"
#include "sockets.h"

#include <arpa/inet.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

static int is_alive_from(int socket, struct in_addr device)
{
    char text[4096];
    struct sockaddr_in from;
    socklen_t size = sizeof from;
    const ssize_t length = recvfrom(socket, text, sizeof text, 0, (struct sockaddr *)&from, &size);
    return length > 6 && from.sin_addr.s_addr == device.s_addr && memcmp(text, "NOTIFY", 6) == 0
        && memmem(text, (size_t)length, "ssdp:alive", 10);
}

int main(int argc, char **argv)
{
    if (argc < 4) {
        fprintf(stderr, "usage: %s ADDRESS FROM SECONDS\n", argv[0]);
        return 2;
    }
    struct pollfd waiting = { group_socket(SSDP_GROUP, SSDP_PORT, argv[1]), POLLIN, 0 };
    const struct in_addr device = socket_address(argv[2], 0).sin_addr;
    const double end = now() + atof(argv[3]);
    printf("ready\n");
    fflush(stdout);
    while (now() < end) {
        if (poll(&waiting, 1, 100) > 0 && is_alive_from(waiting.fd, device)) {
            printf("%.9f\n", now());
            return 0;
        }
    }
    printf("-1\n");
    return 0;
}
