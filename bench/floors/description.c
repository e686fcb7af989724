/* The least that serving a description takes: epoll, accept4, one read, one write of a text that lies ready (the date
   formatted), close. Arguments: the port, the file with the description. */
#define _GNU_SOURCE
#include "answer.h"
#include "sockets.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

static char body[65536];
static size_t body_size;

static void read_body(const char *name)
{
    FILE *file = fopen(name, "r");
    if (!file)
        fail(name);
    body_size = fread(body, 1, sizeof body, file);
    fclose(file);
}

static int listen_at(int port)
{
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int on = 1;
    const struct sockaddr_in local = socket_address("0.0.0.0", port);
    setsockopt(made, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(made, (const struct sockaddr *)&local, sizeof local) != 0 || listen(made, 128) != 0)
        fail("listen");
    return made;
}

static void write_answer(int connection)
{
    static char answer[sizeof body + 1024];
    char date[64];
    format_date(date, sizeof date);
    const int header = snprintf(answer, 1024,
        "HTTP/1.1 200 OK\r\nContent-Type: text/xml; charset=\"utf-8\"\r\nConnection: close\r\n"
        "Content-Length: %zu\r\nServer: Kelta/1.4.2, UPnP/1.0\r\nDate: %s\r\n\r\n",
        body_size, date);
    memcpy(answer + header, body, body_size);
    if (write(connection, answer, (size_t)header + body_size) < 0)
        perror("write");
}

static void watch(int poller, int descriptor)
{
    struct epoll_event event = { .events = EPOLLIN, .data.fd = descriptor };
    epoll_ctl(poller, EPOLL_CTL_ADD, descriptor, &event);
}

/* Answers the request if it is there. False when it is still to come. */
static int serve(int connection)
{
    char request[4096];
    const ssize_t size = read(connection, request, sizeof request);
    if (size < 0 && errno == EAGAIN)
        return 0;
    if (size > 0 && memchr(request, '\n', (size_t)size))
        write_answer(connection);
    close(connection);
    return 1;
}

/* One accept for each event, without a further one that only learns that nobody is there; and the request has often come
   together with the connection. */
static void accept_one(int poller, int listener)
{
    const int connection = accept4(listener, NULL, NULL, SOCK_NONBLOCK);
    if (connection >= 0 && !serve(connection))
        watch(poller, connection);
}

int main(int argc, char **argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: %s PORT FILE\n", argv[0]);
        return 2;
    }
    read_body(argv[2]);
    const int listener = listen_at(atoi(argv[1]));
    const int poller = epoll_create1(EPOLL_CLOEXEC);
    watch(poller, listener);
    for (;;) {
        struct epoll_event events[64];
        const int count = epoll_wait(poller, events, 64, -1);
        for (int i = 0; i < count; ++i) {
            if (events[i].data.fd == listener)
                accept_one(poller, listener);
            else
                serve(events[i].data.fd);
        }
    }
}
