#ifndef RECEIVEQUEUE_H
#define RECEIVEQUEUE_H

/* What the kernel keeps for the sockets of one UDP port, in the network of process `pid` */
struct ReceiveQueue
{
    long bytes; /* not yet read */
    long drops; /* since the sockets exist */
};

struct ReceiveQueue receive_queue(int pid, int port);

#endif
