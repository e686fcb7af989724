#define _GNU_SOURCE
#include "listing.h"

#include "devicetable.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define BUS_NAME "com.zorv.upnpvelorn"

/* A part of an announcement. What is not there is empty. */
struct Text
{
    const char *begin;
    const char *end;
};

static struct Text behind(struct Text text, const char *key)
{
    const char *found = text.begin ? memmem(text.begin, (size_t)(text.end - text.begin), key, strlen(key)) : NULL;
    return found ? (struct Text){ found + strlen(key), text.end } : (struct Text){ text.end, text.end };
}

/* Copies the string behind the key; returns the text behind that string. */
static struct Text take_string(struct Text text, const char *key, char *copy, size_t size)
{
    copy[0] = '\0';
    text = behind(text, key);
    const char *opening = memchr(text.begin, '"', (size_t)(text.end - text.begin));
    const char *closing = opening ? memchr(opening + 1, '"', (size_t)(text.end - opening - 1)) : NULL;
    if (!closing || (size_t)(closing - opening) > size)
        return (struct Text){ text.end, text.end };
    memcpy(copy, opening + 1, (size_t)(closing - opening - 1));
    copy[closing - opening - 1] = '\0';
    return (struct Text){ closing, text.end };
}

static void put(DBusMessageIter *map, const char *key, int type, const void *value)
{
    DBusMessageIter entry;
    DBusMessageIter variant;
    const char signature[2] = { (char)type, '\0' };
    dbus_message_iter_open_container(map, DBUS_TYPE_DICT_ENTRY, NULL, &entry);
    dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &key);
    dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, signature, &variant);
    dbus_message_iter_append_basic(&variant, type, value);
    dbus_message_iter_close_container(&entry, &variant);
    dbus_message_iter_close_container(map, &entry);
}

static void put_string(DBusMessageIter *map, const char *key, const char *value)
{
    put(map, key, DBUS_TYPE_STRING, &value);
}

static void put_string_of(DBusMessageIter *map, const char *key, struct Text text, const char *quoted_key)
{
    char value[128];
    take_string(text, quoted_key, value, sizeof value);
    put_string(map, key, value);
}

/* One address of a list; returns the text behind it. */
static struct Text put_address(DBusMessageIter *list, struct Text text, const char *address, int is_ipv6)
{
    DBusMessageIter variant;
    DBusMessageIter map;
    dbus_message_iter_open_container(list, DBUS_TYPE_VARIANT, "a{sv}", &variant);
    dbus_message_iter_open_container(&variant, DBUS_TYPE_ARRAY, "{sv}", &map);
    put_string(&map, "address", address);
    if (is_ipv6) {
        text = behind(text, "\"prefix\":");
        const dbus_int64_t prefix = strtol(text.begin, NULL, 10);
        put(&map, "prefix", DBUS_TYPE_INT64, &prefix);
    } else {
        char netmask[128];
        text = take_string(text, "\"netmask\":", netmask, sizeof netmask);
        put_string(&map, "netmask", netmask);
    }
    dbus_message_iter_close_container(&variant, &map);
    dbus_message_iter_close_container(list, &variant);
    return text;
}

static void put_addresses(DBusMessageIter *map, const char *key, struct Text text, int is_ipv6)
{
    DBusMessageIter entry;
    DBusMessageIter variant;
    DBusMessageIter list;
    dbus_message_iter_open_container(map, DBUS_TYPE_DICT_ENTRY, NULL, &entry);
    dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &key);
    dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, "av", &variant);
    dbus_message_iter_open_container(&variant, DBUS_TYPE_ARRAY, "v", &list);
    for (;;) {
        char address[128];
        text = take_string(text, "\"address\":", address, sizeof address);
        if (address[0] == '\0')
            break;
        text = put_address(&list, text, address, is_ipv6);
    }
    dbus_message_iter_close_container(&variant, &list);
    dbus_message_iter_close_container(&entry, &variant);
    dbus_message_iter_close_container(map, &entry);
}

static void put_device(DBusMessageIter *list, const struct Device *known)
{
    DBusMessageIter variant;
    DBusMessageIter map;
    const struct Text whole = { known->announcement, known->announcement + known->size };
    const struct Text device = behind(whole, "\"device\"");
    const struct Text network = behind(device, "\"netSettings\"");
    const struct Text ipv6 = behind(network, "\"ipv6\":");
    const struct Text method = behind(network, "\"configurationMethod\"");
    const struct Text ipv4_only = { behind(network, "\"ipv4\":").begin, ipv6.begin };
    const struct Text ipv6_only = { ipv6.begin, method.begin };
    dbus_message_iter_open_container(list, DBUS_TYPE_VARIANT, "a{sv}", &variant);
    dbus_message_iter_open_container(&variant, DBUS_TYPE_ARRAY, "{sv}", &map);
    put_string_of(&map, "configurationMethod", network, "\"configurationMethod\":");
    put_string_of(&map, "familyType", device, "\"familyType\":");
    put_addresses(&map, "ipv4", ipv4_only, 0);
    put_addresses(&map, "ipv6", ipv6_only, 1);
    put_string_of(&map, "name", device, "\"name\":");
    put_string_of(&map, "type", device, "\"type\":");
    put_string(&map, "uuid", known->uuid);
    put_string_of(&map, "version", device, "\"firmwareVersion\":");
    dbus_message_iter_close_container(&variant, &map);
    dbus_message_iter_close_container(list, &variant);
}

static void answer(DBusConnection *bus, DBusMessage *call)
{
    DBusMessage *reply = dbus_message_new_method_return(call);
    DBusMessageIter arguments;
    DBusMessageIter list;
    dbus_message_iter_init_append(reply, &arguments);
    dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, "v", &list);
    for (size_t i = 0; i < device_count(); ++i)
        put_device(&list, device_at(i));
    dbus_message_iter_close_container(&arguments, &list);
    dbus_connection_send(bus, reply, NULL);
    dbus_connection_flush(bus);
    dbus_message_unref(reply);
}

DBusConnection *open_listing(void)
{
    DBusError error = DBUS_ERROR_INIT;
    DBusConnection *bus = getenv("DBUS_SYSTEM_BUS_ADDRESS") ? dbus_bus_get(DBUS_BUS_SYSTEM, &error) : NULL;
    if (bus && dbus_bus_request_name(bus, BUS_NAME, 0, &error) != DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER)
        fprintf(stderr, "%s: %s\n", BUS_NAME, error.message ? error.message : "has another owner");
    return bus;
}

void answer_listings(DBusConnection *bus)
{
    DBusMessage *message;
    dbus_connection_read_write(bus, 0);
    while ((message = dbus_connection_pop_message(bus))) {
        const char *member = dbus_message_get_member(message);
        if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL && member && strcmp(member, "allChilds") == 0)
            answer(bus, message);
        dbus_message_unref(message);
    }
}
