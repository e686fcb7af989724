#ifndef FAKECLOCK_H
#define FAKECLOCK_H

#include <QtCore/QtGlobal>

#include <ctime>
#include <sys/time.h>

// The date and time of this test program: stands still until it is told to go on. QDateTime asks gettimeofday() and the log
// asks time(), and the program's own come before those of the C library. Timers and deadlines use another clock.
namespace fakeclock
{

static qint64 milliseconds = Q_INT64_C(1700000000000);

inline void advance(qint64 by)
{
    milliseconds += by;
}

} // namespace fakeclock

extern "C" int gettimeofday(struct timeval *now, void *) noexcept
{
    now->tv_sec = time_t(fakeclock::milliseconds / 1000);
    now->tv_usec = suseconds_t(fakeclock::milliseconds % 1000 * 1000);
    return 0;
}

extern "C" time_t time(time_t *now) noexcept
{
    const time_t seconds = time_t(fakeclock::milliseconds / 1000);
    if (now)
        *now = seconds;
    return seconds;
}

#endif
