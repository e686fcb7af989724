#include "clocks.h"

#include <time.h>

static double seconds(const struct timespec *time)
{
    return (double)time->tv_sec + (double)time->tv_nsec * 1e-9;
}

double now(void)
{
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return seconds(&time);
}

void sleep_until(double time)
{
    struct timespec until;
    until.tv_sec = (time_t)time;
    until.tv_nsec = (long)((time - (double)until.tv_sec) * 1e9);
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, NULL);
}

double processor_time(int pid)
{
    clockid_t clock;
    struct timespec time;
    if (pid <= 0 || clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &time) != 0)
        return 0;
    return seconds(&time);
}
