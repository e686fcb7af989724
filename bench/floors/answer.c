#define _GNU_SOURCE
#include "answer.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

void format_date(char *text, size_t size)
{
    const time_t seconds = time(NULL);
    struct tm parts;
    localtime_r(&seconds, &parts);
    strftime(text, size, "%a, %d %b %Y %H:%M:%S", &parts);
}

int is_search(const char *datagram, ssize_t size)
{
    if (size < 8 || memcmp(datagram, "M-SEARCH", 8) != 0)
        return 0;
    return memmem(datagram, (size_t)size, "ssdp:all", 8) || memmem(datagram, (size_t)size, "upnp:rootdevice", 15);
}

int format_answer(char *text, size_t size, const char *address)
{
    char date[64];
    format_date(date, sizeof date);
    return snprintf(text, size,
        "HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age=1810\r\nDATE: %s\r\nST: upnp:rootdevice\r\n"
        "USN: uuid:Upnp-BasicDevice-1_0-9a1b0c7e-52f4-4d0b-8c6e-2f7d10a4b3c5::upnp:rootdevice\r\nEXT:\r\n"
        "SERVER: Kelta/1.4.2, UPnP/1.0\r\nLOCATION: http://%s:8200/rootDesc.xml\r\nContent-Length: 0\r\n\r\n",
        date, address);
}
