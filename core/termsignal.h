// The way of SIGTERM into the event loop: the handler writes one byte into a pair of connected sockets,
// and a socket notifier watches the other end.
#ifndef TERMSIGNAL_H
#define TERMSIGNAL_H

// Element 0 is written by the handler, element 1 is watched. Both live as long as the process.
extern int termSocketPair[2];

// Fills termSocketPair. Ends the process with a fatal message when socketpair(2) fails.
void createTermSocketPair();

// Whether SIGTERM has arrived: whether element 1 is readable. False before createTermSocketPair().
bool hasTermSignalArrived();

// Async-signal-safe: one write() of the byte 1 to element 0; errno stays. The signal number is not used.
void termSignalHandler(int signalNumber);

// Makes termSignalHandler() the handler of SIGTERM; interrupted system calls are restarted.
// Returns what sigaction() returned.
int installTermSignalHandler();

#endif
