/* The least that a registry of devices takes: receive an announcement, find the uuid by text search, copy the datagram into
   a hash table; and list the devices over D-Bus, whose values are found by text search as well.
   Argument: the address of eth0. */
#include "devicetable.h"
#include "listing.h"
#include "sockets.h"

#include <poll.h>
#include <sys/socket.h>

static void receive(int socket)
{
    static char datagram[65536];
    const ssize_t size = recv(socket, datagram, sizeof datagram, 0);
    if (size > 0)
        keep_announcement(datagram, (size_t)size);
}

int main(int argc, char **argv)
{
    struct pollfd waiting[2] = { { -1, POLLIN, 0 }, { -1, POLLIN, 0 } };
    DBusConnection *bus = open_listing();
    waiting[0].fd = group_socket(SCAN_GROUP, SCAN_PORT, argc > 1 ? argv[1] : "0.0.0.0");
    if (bus)
        dbus_connection_get_unix_fd(bus, &waiting[1].fd);
    for (;;) {
        if (poll(waiting, 2, -1) < 1)
            continue;
        if (waiting[0].revents)
            receive(waiting[0].fd);
        if (waiting[1].revents)
            answer_listings(bus);
    }
}
