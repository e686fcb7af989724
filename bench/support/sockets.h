#ifndef SOCKETS_H
#define SOCKETS_H

#include <netinet/in.h>

#define SSDP_GROUP "239.255.255.250"
#define SSDP_PORT 1900
#define SCAN_GROUP "239.255.77.76"
#define SCAN_PORT 31416
#define MDNS_GROUP "224.0.0.251"
#define MDNS_PORT 5353

/* None of these returns after an error: it is printed and the program ends. */

void fail(const char *what);

struct sockaddr_in socket_address(const char *address, int port);

/* A non-blocking socket on all addresses and that port, shared, and a member of the group on the interface with `address` */
int group_socket(const char *group, int port, const char *address);

/* A non-blocking socket at `address` that sends to groups through its interface; port 0 takes any */
int sending_socket(const char *address, int port);

#endif
