#define _GNU_SOURCE
#include "devicetable.h"

#include <stdlib.h>
#include <string.h>

#define BUCKETS 65536

static struct Device *buckets[BUCKETS];
static struct Device **all;
static size_t count;
static size_t room;

static struct Device **bucket_of(const char *uuid, size_t length)
{
    unsigned hash = 2166136261U;
    for (size_t i = 0; i < length; ++i)
        hash = (hash ^ (unsigned char)uuid[i]) * 16777619U;
    return &buckets[(hash ^ hash >> 15) % BUCKETS];
}

static struct Device *add(struct Device **bucket, const char *uuid, size_t length)
{
    struct Device *made = calloc(1, sizeof *made);
    memcpy(made->uuid, uuid, length);
    made->next = *bucket;
    *bucket = made;
    if (count == room) {
        room = room > 0 ? room * 2 : 64;
        all = realloc(all, room * sizeof *all);
    }
    all[count++] = made;
    return made;
}

static struct Device *device_of(const char *uuid, size_t length)
{
    struct Device **bucket = bucket_of(uuid, length);
    struct Device *device = *bucket;
    while (device && (memcmp(device->uuid, uuid, length) != 0 || device->uuid[length] != '\0'))
        device = device->next;
    return device ? device : add(bucket, uuid, length);
}

/* The first string behind "uuid" behind "params" */
static const char *uuid_in(const char *datagram, size_t size, size_t *length)
{
    const char *end = datagram + size;
    const char *at = memmem(datagram, size, "\"params\"", 8);
    if (at)
        at = memmem(at, (size_t)(end - at), "\"uuid\"", 6);
    if (at)
        at = memchr(at + 6, ':', (size_t)(end - at - 6));
    if (at)
        at = memchr(at, '"', (size_t)(end - at));
    if (!at)
        return NULL;
    const char *closing = memchr(at + 1, '"', (size_t)(end - at - 1));
    *length = closing ? (size_t)(closing - at - 1) : 0;
    return at + 1;
}

void keep_announcement(const char *datagram, size_t size)
{
    size_t length = 0;
    const char *uuid = uuid_in(datagram, size, &length);
    if (!uuid || length == 0 || length >= sizeof(((struct Device *)NULL)->uuid))
        return;
    struct Device *device = device_of(uuid, length);
    if (device->capacity < size) {
        device->capacity = size + 64;
        device->announcement = realloc(device->announcement, device->capacity);
    }
    memcpy(device->announcement, datagram, size);
    device->size = size;
    device->seen = time(NULL);
}

size_t device_count(void)
{
    return count;
}

const struct Device *device_at(size_t index)
{
    return all[index];
}
