/* Announcements of many devices, in scattered order.
     load_announcements KIND ADDRESS FIRST DEVICES COUNT RATE PID [VERSION]
   KIND     scan, ssdp or mdns: the protocol
   ADDRESS  that of this side
   FIRST, DEVICES   the numbers of the devices that announce themselves
   COUNT    datagrams in all
   RATE     one at a time, and at most so many a second; 0: up to 32 at a time, as soon as the receiver has read those before
   PID      the receiver, whose processor time and receive queue are read
   VERSION  of the scan protocol: the devices change with every announcement, to the firmware of this number and further on,
            modulo 10. Without it they repeat the same text, as devices mostly do.
   Prints one line of JSON. */
#define _GNU_SOURCE
#include "announcementtext.h"
#include "clocks.h"
#include "receivequeue.h"
#include "sockets.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#define WINDOW 32

struct Protocol
{
    const char *name;
    const char *group;
    int port;
};

static const struct Protocol protocols[] = {
    { "scan", SCAN_GROUP, SCAN_PORT },
    { "ssdp", SSDP_GROUP, SSDP_PORT },
    { "mdns", MDNS_GROUP, MDNS_PORT },
};

struct Datagram
{
    char *text;
    size_t size;
};

static const double patience = 5; /* seconds for the receiver to read what was sent */

static struct sockaddr_in group;
static int sender;
static int receiver;
static int port;
static struct Datagram *datagrams;
static long device_count;
static long version = -1; /* none */
static long sent;

static void prepare(const char *kind, const char *address)
{
    const struct Protocol *protocol = &protocols[0];
    while (strcmp(protocol->name, kind) != 0) {
        if (++protocol == protocols + sizeof protocols / sizeof *protocols) {
            fprintf(stderr, "unknown protocol: %s\n", kind);
            exit(2);
        }
    }
    port = protocol->port;
    group = socket_address(protocol->group, port);
    /* What does not come from its port is no announcement of mDNS. */
    sender = sending_socket(address, port == MDNS_PORT ? MDNS_PORT : 0);
}

static int build_one(long device, char *text, size_t size)
{
    if (port == SCAN_PORT)
        return scan_announcement(device, text, size);
    if (port == SSDP_PORT)
        return ssdp_announcement(device, text, size);
    return mdns_announcement(device, text);
}

static void build(long first)
{
    char text[4096];
    datagrams = calloc((size_t)device_count, sizeof *datagrams);
    for (long i = 0; i < device_count; ++i) {
        const int size = build_one(first + i, text, sizeof text);
        datagrams[i] = (struct Datagram){ malloc((size_t)size), (size_t)size };
        memcpy(datagrams[i].text, text, (size_t)size);
    }
}

/* The last digit of the firmware's version */
static char *version_in(const struct Datagram *datagram)
{
    static const char before[] = "\"firmwareVersion\":\"1.4.2.";
    char *found = memmem(datagram->text, datagram->size, before, sizeof before - 1);
    if (!found) {
        fprintf(stderr, "only announcements of the scan protocol have a version\n");
        exit(2);
    }
    return found + sizeof before - 1;
}

/* 7919 is prime and divides no number of devices in use, so every device has its turn. */
static void send_next(void)
{
    const struct Datagram *datagram = &datagrams[sent * 7919 % device_count];
    if (version >= 0)
        *version_in(datagram) = (char)('0' + (version + sent / device_count) % 10);
    if (sendto(sender, datagram->text, datagram->size, 0, (const struct sockaddr *)&group, sizeof group) < 0)
        fail("sendto");
    ++sent;
}

/* False when the receiver has stopped reading. */
static int wait_until_read(void)
{
    const double end = now() + patience;
    while (receive_queue(receiver, port).bytes > 0) {
        if (now() > end)
            return 0;
        usleep(20);
    }
    return 1;
}

static void run_as_read(long count)
{
    do {
        for (int i = 0; i < WINDOW && sent < count; ++i)
            send_next();
    } while (wait_until_read() && sent < count);
}

/* The receiver has time after each: one that finds two together takes them in for less. */
static void run_paced(long count, double rate)
{
    while (sent < count) {
        send_next();
        if (!wait_until_read())
            return;
        sleep_until(now() + 1 / rate);
    }
}

int main(int argc, char **argv)
{
    if (argc < 8) {
        fprintf(stderr, "usage: %s scan|ssdp|mdns ADDRESS FIRST DEVICES COUNT RATE PID [VERSION]\n", argv[0]);
        return 2;
    }
    const double rate = atof(argv[6]);
    device_count = atol(argv[4]);
    receiver = atoi(argv[7]);
    if (argc > 8)
        version = atol(argv[8]);
    prepare(argv[1], argv[2]);
    build(atol(argv[3]));
    const struct ReceiveQueue before = receive_queue(receiver, port);
    const double processor = processor_time(receiver);
    const double start = now();
    if (rate > 0)
        run_paced(atol(argv[5]), rate);
    else
        run_as_read(atol(argv[5]));
    const double elapsed = now() - start;
    usleep(20000); /* the last datagram has left the queue, but may be in work */
    const double used = processor_time(receiver) - processor;
    const struct ReceiveQueue after = receive_queue(receiver, port);
    printf("{\"operations\": %ld, \"sent\": %ld, \"lost\": %ld, \"unread\": %ld, \"bytes\": %zu, \"elapsed\": %.6f, "
           "\"processor\": %.9f}\n",
        sent - (after.drops - before.drops), sent, after.drops - before.drops, after.bytes, datagrams[0].size, elapsed, used);
    return 0;
}
