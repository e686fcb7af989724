#ifndef MISSINGTHREAD_H
#define MISSINGTHREAD_H

// From now on a thread that the system does not give ends the process, with a critical line in the log and status 255.
// Qt itself writes a line and goes on, to wait for ever for what the thread was to do.
// To be called once the log is open.
void endWhenThreadIsMissing();

#endif
