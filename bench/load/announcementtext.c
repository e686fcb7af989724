#include "announcementtext.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>

int scan_announcement(long device, char *text, size_t size)
{
    return snprintf(text, size,
        " \t {\"jsonrpc\":\"2.0\",\"method\": \"announce\",\"params\":{\"apiVersion\":\"1.0\",\"device\":{"
        "\"name\":\"kelta-%06ld\",\"uuid\":\"%09ld\",\"type\":\"Kelta CODESYS\",\"familyType\":\"Kelta\","
        "\"firmwareVersion\":\"1.4.2.7\"},\"netSettings\":{\"interface\": {\"name\":\"eth0\",\"type\":\"ethernet\","
        "\"ipv4\":[{\"address\":\"172.16.%ld.%ld\",\"netmask\":\"255.255.0.0\"}],"
        "\"ipv6\":[{\"address\":\"fe80::211:22ff:fe%02lx:%lx\",\"prefix\":64},"
        "{\"address\":\"fd12:3456:789a::%lx\",\"prefix\":64}],\"configurationMethod\":\"dhcp\"},"
        "\"defaultGateway\":{\"ipv4Address\":\"172.16.0.1\"}},\"services\":[{\"type\":\"http\",\"port\":80},"
        "{\"type\":\"scpi\",\"port\":55000},{\"type\":\"daqStream\",\"port\":7411}],\"expiration\":2200}}",
        device, 900000000 + device, device / 250 % 250, device % 250 + 2, (unsigned long)device & 255,
        (unsigned long)device & 0xffff, (unsigned long)device);
}

int ssdp_announcement(long device, char *text, size_t size)
{
    return snprintf(text, size,
        "NOTIFY * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nCACHE-CONTROL: max-age=2200\r\n"
        "LOCATION: http://172.16.%ld.%ld:8200/rootDesc.xml\r\nSERVER: Kelta/1.4.2, UPnP/1.0\r\nNT: upnp:rootdevice\r\n"
        "USN: uuid:11112222-3333-4444-5555-%012ld::upnp:rootdevice\r\nNTS: ssdp:alive\r\n\r\n",
        device / 250 % 250, device % 250 + 2, device);
}

enum RecordType {
    A = 1,
    PTR = 12,
    TXT = 16,
    SRV = 33
};

enum RecordClass {
    INTERNET = 1,
    UNIQUE_INTERNET = 0x8001
};

static char *put_name(char *at, const char *dotted)
{
    while (*dotted) {
        const size_t length = strcspn(dotted, ".");
        *at++ = (char)length;
        memcpy(at, dotted, length);
        at += length;
        dotted += length + (dotted[length] == '.');
    }
    *at++ = '\0';
    return at;
}

static char *put_number(char *at, uint32_t number, int bytes)
{
    while (bytes-- > 0)
        *at++ = (char)(number >> (8 * bytes));
    return at;
}

static char *put_record(char *at, const char *name, int type, int category, const char *data, size_t size)
{
    at = put_name(at, name);
    at = put_number(at, (uint32_t)type, 2);
    at = put_number(at, (uint32_t)category, 2);
    at = put_number(at, 4500, 4); /* seconds to live */
    at = put_number(at, (uint32_t)size, 2);
    memcpy(at, data, size);
    return at + size;
}

static size_t texts(char *data)
{
    static const char *const all[] = { "type=Kelta CODESYS", "familyType=Kelta", "firmwareVersion=1.4.2.7",
        "configurationMethod=dhcp", "gateway=172.16.0.1", "netmask=255.255.0.0" };
    char *at = data;
    for (size_t i = 0; i < sizeof all / sizeof *all; ++i) {
        *at++ = (char)strlen(all[i]);
        memcpy(at, all[i], strlen(all[i]));
        at += strlen(all[i]);
    }
    return (size_t)(at - data);
}

int mdns_announcement(long device, char *packet)
{
    char instance[80];
    char host[64];
    char data[300];
    snprintf(instance, sizeof instance, "kelta-%06ld._kelta._tcp.local", device);
    snprintf(host, sizeof host, "kelta-%06ld.local", device);

    char *at = packet;
    at = put_number(at, 0, 2);
    at = put_number(at, 0x8400, 2); /* an authoritative answer */
    at = put_number(at, 0, 2);
    at = put_number(at, 4, 2); /* records */
    at = put_number(at, 0, 4);
    at = put_record(at, "_kelta._tcp.local", PTR, INTERNET, data, (size_t)(put_name(data, instance) - data));
    put_number(data, 0, 4); /* priority and weight */
    put_number(data + 4, 80, 2);
    at = put_record(at, instance, SRV, UNIQUE_INTERNET, data, (size_t)(put_name(data + 6, host) - data));
    at = put_record(at, instance, TXT, UNIQUE_INTERNET, data, texts(data));
    put_number(data, 0xac100000U + (uint32_t)(device / 250 % 250) * 256 + (uint32_t)(device % 250) + 2, 4);
    at = put_record(at, host, A, UNIQUE_INTERNET, data, 4);
    return (int)(at - packet);
}
