#include "sockets.h"

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>

void fail(const char *what)
{
    perror(what);
    exit(1);
}

struct sockaddr_in socket_address(const char *address, int port)
{
    struct sockaddr_in result = { .sin_family = AF_INET, .sin_port = htons((uint16_t)port) };
    if (inet_pton(AF_INET, address, &result.sin_addr) != 1) {
        fprintf(stderr, "not an IPv4 address: %s\n", address);
        exit(1);
    }
    return result;
}

static int udp_socket(const char *address, int port)
{
    const int made = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(made, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const struct sockaddr_in local = socket_address(address, port);
    if (bind(made, (const struct sockaddr *)&local, sizeof local) != 0)
        fail("bind");
    return made;
}

int group_socket(const char *group, int port, const char *address)
{
    const int made = udp_socket("0.0.0.0", port);
    const struct ip_mreq member = { socket_address(group, 0).sin_addr, socket_address(address, 0).sin_addr };
    if (setsockopt(made, IPPROTO_IP, IP_ADD_MEMBERSHIP, &member, sizeof member) != 0)
        fail("join");
    setsockopt(made, IPPROTO_IP, IP_MULTICAST_IF, &member.imr_interface, sizeof member.imr_interface);
    return made;
}

int sending_socket(const char *address, int port)
{
    const int made = udp_socket(address, port);
    const struct in_addr interface = socket_address(address, 0).sin_addr;
    const int large = 8 << 20;
    const int off = 0;
    const int hops = port == MDNS_PORT ? 255 : 4;
    setsockopt(made, SOL_SOCKET, SO_SNDBUFFORCE, &large, sizeof large);
    setsockopt(made, SOL_SOCKET, SO_RCVBUFFORCE, &large, sizeof large);
    setsockopt(made, IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface);
    setsockopt(made, IPPROTO_IP, IP_MULTICAST_LOOP, &off, sizeof off);
    setsockopt(made, IPPROTO_IP, IP_MULTICAST_TTL, &hops, sizeof hops);
    return made;
}
