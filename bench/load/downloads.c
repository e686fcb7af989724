/* GETs of a description, each over a connection of its own.
     load_downloads ADDRESS PORT PATH SECONDS NUMBER PID    NUMBER connections at a time
   PID is the server whose processor time is read. Prints one line of JSON. */
#include "clocks.h"
#include "latencies.h"
#include "sockets.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#define MOST_CLIENTS 64

struct Client
{
    int socket;
    int has_asked;
    int is_good; /* the answer began with 200 */
    double started;
};

static struct sockaddr_in server;
static char request[512];
static size_t request_size;
static int poller;

static long done;
static long failed;
static long bytes;

static void start(struct Client *client)
{
    client->socket = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    client->has_asked = 0;
    client->is_good = 0;
    client->started = now();
    /* Closing after the server's end frees the port at once. */
    const struct linger at_once = { 1, 0 };
    setsockopt(client->socket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    if (connect(client->socket, (const struct sockaddr *)&server, sizeof server) != 0 && errno != EINPROGRESS)
        fail("connect");
    struct epoll_event event = { .events = EPOLLOUT, .data.ptr = client };
    epoll_ctl(poller, EPOLL_CTL_ADD, client->socket, &event);
}

static void send_request(struct Client *client)
{
    struct epoll_event event = { .events = EPOLLIN, .data.ptr = client };
    client->has_asked = 1;
    if (write(client->socket, request, request_size) != (ssize_t)request_size)
        ++failed;
    epoll_ctl(poller, EPOLL_CTL_MOD, client->socket, &event);
}

/* True at the end of the connection */
static int read_answer(struct Client *client)
{
    char text[65536];
    ssize_t size;
    while ((size = read(client->socket, text, sizeof text)) > 0) {
        if (size > 12 && memcmp(text, "HTTP/1.1 200", 12) == 0)
            client->is_good = 1;
        bytes += size;
    }
    return size == 0 || errno != EAGAIN;
}

static void finish(struct Client *client)
{
    close(client->socket);
    if (!client->is_good) {
        ++failed;
        return;
    }
    keep_latency(now() - client->started);
    ++done;
}

static void run(double seconds, int count)
{
    static struct Client clients[MOST_CLIENTS];
    const double end = now() + seconds;
    int active = count < MOST_CLIENTS ? count : MOST_CLIENTS;
    for (int i = 0; i < active; ++i)
        start(&clients[i]);
    while (active > 0 && now() < end + 3) {
        struct epoll_event events[MOST_CLIENTS];
        const int ready = epoll_wait(poller, events, MOST_CLIENTS, 1000);
        for (int i = 0; i < ready; ++i) {
            struct Client *client = events[i].data.ptr;
            if (!client->has_asked) {
                send_request(client);
                continue;
            }
            if (!read_answer(client))
                continue;
            finish(client);
            if (now() < end)
                start(client);
            else
                --active;
        }
    }
}

int main(int argc, char **argv)
{
    if (argc < 7) {
        fprintf(stderr, "usage: %s ADDRESS PORT PATH SECONDS NUMBER PID\n", argv[0]);
        return 2;
    }
    server = socket_address(argv[1], atoi(argv[2]));
    request_size = (size_t)snprintf(request, sizeof request,
        "GET %s HTTP/1.1\r\nHost: %s:%s\r\nConnection: close\r\nUser-Agent: Linux UPnP/1.0\r\n\r\n", argv[3], argv[1], argv[2]);
    const int pid = atoi(argv[6]);
    poller = epoll_create1(EPOLL_CLOEXEC);
    const double processor = processor_time(pid);
    const double started = now();
    run(atof(argv[4]), atoi(argv[5]));
    const double used = processor_time(pid) - processor;
    const double elapsed = now() - started;
    printf("{\"operations\": %ld, \"failed\": %ld, \"elapsed\": %.6f, \"processor\": %.9f, \"bytes\": %ld, "
           "\"median_latency\": %.9f}\n",
        done, failed, elapsed, used, done > 0 ? bytes / done : 0, median_latency());
    return 0;
}
