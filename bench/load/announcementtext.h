#ifndef ANNOUNCEMENTTEXT_H
#define ANNOUNCEMENTTEXT_H

#include <stddef.h>

/* How device number `device` announces itself in the three protocols that are compared; each returns the length. */
int scan_announcement(long device, char *text, size_t size);
int ssdp_announcement(long device, char *text, size_t size);
/* Four records: PTR, SRV, TXT and A. It takes less than 1000 bytes. */
int mdns_announcement(long device, char *packet);

#endif
