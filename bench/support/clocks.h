#ifndef CLOCKS_H
#define CLOCKS_H

/* All times are in seconds. */

/* Monotonic time */
double now(void);
void sleep_until(double time);

/* Processor time, user and system, that all threads of another process have used; 0 when there is no such process */
double processor_time(int pid);

#endif
