/* As floor_search, but takes up to 32 searches with one system call, formats the date once a second, and sends the answers
   with one system call: what is possible while searches come faster than they are answered.
   Argument: the address of eth0. */
#define _GNU_SOURCE
#include "answer.h"
#include "sockets.h"

#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

#define BATCH 32

static char datagrams[BATCH][2048];
static struct sockaddr_in senders[BATCH];
static char text[1024];
static struct iovec answer = { text, 0 };

static struct msghdr header(struct sockaddr_in *peer, struct iovec *part)
{
    const struct msghdr made = { .msg_name = peer, .msg_namelen = sizeof *peer, .msg_iov = part, .msg_iovlen = 1 };
    return made;
}

static int receive(int socket, struct mmsghdr *received)
{
    static struct iovec places[BATCH];
    memset(received, 0, BATCH * sizeof *received);
    for (int i = 0; i < BATCH; ++i) {
        places[i] = (struct iovec){ datagrams[i], sizeof datagrams[i] };
        received[i].msg_hdr = header(&senders[i], &places[i]);
    }
    return recvmmsg(socket, received, BATCH, MSG_DONTWAIT, NULL);
}

static void renew_answer(const char *address)
{
    static time_t last = 0;
    const time_t seconds = time(NULL);
    if (seconds != last)
        answer.iov_len = (size_t)format_answer(text, sizeof text, address);
    last = seconds;
}

static void answer_all(int socket, const char *address)
{
    struct mmsghdr received[BATCH];
    struct mmsghdr answers[BATCH];
    unsigned count = 0;
    const int all = receive(socket, received);
    renew_answer(address);
    memset(answers, 0, sizeof answers);
    for (int i = 0; i < all; ++i) {
        if (is_search(datagrams[i], received[i].msg_len))
            answers[count++].msg_hdr = header(&senders[i], &answer);
    }
    if (count > 0)
        sendmmsg(socket, answers, count, 0);
}

int main(int argc, char **argv)
{
    const char *address = argc > 1 ? argv[1] : "0.0.0.0";
    struct pollfd waiting = { group_socket(SSDP_GROUP, SSDP_PORT, address), POLLIN, 0 };
    for (;;) {
        if (poll(&waiting, 1, -1) > 0)
            answer_all(waiting.fd, address);
    }
}
