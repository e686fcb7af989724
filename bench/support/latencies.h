#ifndef LATENCIES_H
#define LATENCIES_H

/* Of the operations so far, in seconds. Those beyond the first million are not kept. */
void keep_latency(double seconds);

/* -1 when there are none */
double median_latency(void);

#endif
