/* Searches for the root device, each from a socket of its own, so that an answer belongs to its search.
     load_searches closed ADDRESS SECONDS NUMBER PID    NUMBER searches are under way, the next one follows an answer
     load_searches paced ADDRESS SECONDS RATE PID       RATE searches a second, however long the answers take
   ADDRESS is that of this side, PID the server whose processor time is read. Prints one line of JSON. */
#include "clocks.h"
#include "latencies.h"
#include "sockets.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#define MOST_SOCKETS 64

static const double patience = 3; /* seconds until an answer counts as lost */
static const char search[] = "M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nMAN: \"ssdp:discover\"\r\nMX: 1\r\n"
                             "ST: upnp:rootdevice\r\n\r\n";

struct Asker
{
    int socket;
    int is_waiting;
    double asked;
};

static struct Asker askers[MOST_SOCKETS];
static int asker_count;
static int poller;
static struct sockaddr_in group;

static long sent;
static long answers; /* copies included */
static long lost;
static long bytes;

static void prepare(const char *address, int count)
{
    group = socket_address(SSDP_GROUP, SSDP_PORT);
    poller = epoll_create1(EPOLL_CLOEXEC);
    asker_count = count < MOST_SOCKETS ? count : MOST_SOCKETS;
    for (int i = 0; i < asker_count; ++i) {
        askers[i].socket = sending_socket(address, 0);
        struct epoll_event event = { .events = EPOLLIN, .data.ptr = &askers[i] };
        epoll_ctl(poller, EPOLL_CTL_ADD, askers[i].socket, &event);
    }
}

static void ask(struct Asker *asker)
{
    asker->asked = now();
    asker->is_waiting = 1;
    ++sent;
    if (sendto(asker->socket, search, sizeof search - 1, 0, (const struct sockaddr *)&group, sizeof group) < 0)
        fail("sendto");
}

static void take_answers(struct Asker *asker)
{
    char text[4096];
    ssize_t size;
    while ((size = recv(asker->socket, text, sizeof text, 0)) > 0) {
        if (memcmp(text, "HTTP/1.1 200", 12) != 0)
            continue;
        ++answers;
        bytes += size;
        if (asker->is_waiting)
            keep_latency(now() - asker->asked);
        asker->is_waiting = 0;
    }
}

static void wait_for_answers(int milliseconds)
{
    struct epoll_event events[MOST_SOCKETS];
    const int count = epoll_wait(poller, events, MOST_SOCKETS, milliseconds);
    for (int i = 0; i < count; ++i)
        take_answers(events[i].data.ptr);
}

static int give_up_late_ones(void)
{
    int waiting = 0;
    const double time = now();
    for (int i = 0; i < asker_count; ++i) {
        if (askers[i].is_waiting && time - askers[i].asked > patience) {
            askers[i].is_waiting = 0;
            ++lost;
        }
        waiting += askers[i].is_waiting;
    }
    return waiting;
}

static void run_closed(double seconds)
{
    const double end = now() + seconds;
    do {
        for (int i = 0; i < asker_count && now() < end; ++i) {
            if (!askers[i].is_waiting)
                ask(&askers[i]);
        }
        wait_for_answers(50);
    } while (give_up_late_ones() > 0 || now() < end);
}

/* When one was late, the next ones are not sent together with it: two that are found together are answered for less. */
static void run_paced(double seconds, double rate)
{
    const long total = (long)(seconds * rate);
    double due = now();
    while (sent < total) {
        const double left = due - now();
        if (left > 0.001) {
            wait_for_answers((int)(left * 1000));
        } else if (left > 0) {
            sleep_until(due);
        } else {
            ask(&askers[sent % asker_count]);
            due += 1 / rate;
            if (due < now() + 0.5 / rate)
                due = now() + 0.5 / rate;
        }
    }
    const double end = now() + patience;
    while (answers < sent && now() < end)
        wait_for_answers(10);
    lost = answers < sent ? sent - answers : 0;
}

int main(int argc, char **argv)
{
    if (argc < 6) {
        fprintf(stderr, "usage: %s closed|paced ADDRESS SECONDS NUMBER|RATE PID\n", argv[0]);
        return 2;
    }
    const int is_paced = strcmp(argv[1], "paced") == 0;
    const double seconds = atof(argv[3]);
    const int pid = atoi(argv[5]);
    prepare(argv[2], is_paced ? MOST_SOCKETS : atoi(argv[4]));
    const double processor = processor_time(pid);
    const double start = now();
    if (is_paced)
        run_paced(seconds, atof(argv[4]));
    else
        run_closed(seconds);
    const double used = processor_time(pid) - processor;
    const double elapsed = now() - start;
    printf("{\"operations\": %ld, \"sent\": %ld, \"lost\": %ld, \"elapsed\": %.6f, \"processor\": %.9f, \"bytes\": %ld, "
           "\"median_latency\": %.9f}\n",
        answers, sent, lost, elapsed, used, answers > 0 ? bytes / answers : 0, median_latency());
    return 0;
}
