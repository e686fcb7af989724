#include "latencies.h"

#include <stdlib.h>

#define MOST (1 << 20)

static double latencies[MOST];
static size_t count;

void keep_latency(double seconds)
{
    if (count < MOST)
        latencies[count++] = seconds;
}

static int compare(const void *a, const void *b)
{
    const double x = *(const double *)a;
    const double y = *(const double *)b;
    return (x > y) - (x < y);
}

double median_latency(void)
{
    if (count == 0)
        return -1;
    qsort(latencies, count, sizeof *latencies, compare);
    return latencies[count / 2];
}
