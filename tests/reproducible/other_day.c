/* SPDX-License-Identifier: MIT */
/*
 * Another day, to be preloaded: the clock of the host says OTHER_DAY, a number of seconds since 1970. Answers to
 * every way in which the C library or the C++ library asks for the time of the day.
 */

#include <errno.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

static time_t other_day(void)
{
    const char *text = getenv("OTHER_DAY");
    return text ? (time_t)atoll(text) : 0;
}

time_t time(time_t *result)
{
    time_t now = other_day();
    if (result) {
        *result = now;
    }
    return now;
}

int gettimeofday(struct timeval *restrict result, void *restrict zone)
{
    (void)zone;
    result->tv_sec = other_day();
    result->tv_usec = 0;
    return 0;
}

int clock_gettime(clockid_t clock, struct timespec *result)
{
    if (clock != CLOCK_REALTIME && clock != CLOCK_REALTIME_COARSE) {
        return (int)syscall(SYS_clock_gettime, clock, result);
    }
    result->tv_sec = other_day();
    result->tv_nsec = 0;
    return 0;
}
