#ifndef DEVICETABLE_H
#define DEVICETABLE_H

#include <stddef.h>
#include <time.h>

struct Device
{
    struct Device *next; /* in the same bucket */
    time_t seen;
    char uuid[64];
    char *announcement;
    size_t size;
    size_t capacity;
};

/* Keeps a copy of the announcement for the device that it names; ignores what is no announcement. */
void keep_announcement(const char *datagram, size_t size);

size_t device_count(void);
const struct Device *device_at(size_t index);

#endif
