/* Calls of allChilds("") of /zorvscan, one after the other.
     load_listings COUNT PID    PID is the server whose processor time is read
   Prints one line of JSON. */
#include "clocks.h"
#include "latencies.h"

#include <dbus/dbus.h>
#include <stdio.h>
#include <stdlib.h>

static const int patience = 120000; /* ms */

/* No interface is named: that of the daemon follows from the name of its class, the floor has none. */
static DBusMessage *list(DBusConnection *bus)
{
    const char *type = "";
    DBusError error = DBUS_ERROR_INIT;
    DBusMessage *call = dbus_message_new_method_call("com.zorv.upnpvelorn", "/zorvscan", NULL, "allChilds");
    dbus_message_append_args(call, DBUS_TYPE_STRING, &type, DBUS_TYPE_INVALID);
    DBusMessage *reply = dbus_connection_send_with_reply_and_block(bus, call, patience, &error);
    dbus_message_unref(call);
    if (!reply) {
        fprintf(stderr, "allChilds: %s\n", error.message);
        exit(1);
    }
    return reply;
}

static int devices_in(DBusMessage *reply)
{
    DBusMessageIter arguments;
    DBusMessageIter list;
    int count = 0;
    dbus_message_iter_init(reply, &arguments);
    if (dbus_message_iter_get_arg_type(&arguments) != DBUS_TYPE_ARRAY)
        return 0;
    dbus_message_iter_recurse(&arguments, &list);
    for (; dbus_message_iter_get_arg_type(&list) != DBUS_TYPE_INVALID; dbus_message_iter_next(&list))
        ++count;
    return count;
}

static int bytes_of(DBusMessage *reply)
{
    char *marshalled;
    int size = 0;
    if (dbus_message_marshal(reply, &marshalled, &size))
        dbus_free(marshalled);
    return size;
}

int main(int argc, char **argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: %s COUNT PID\n", argv[0]);
        return 2;
    }
    DBusError error = DBUS_ERROR_INIT;
    DBusConnection *bus = dbus_bus_get(DBUS_BUS_SYSTEM, &error);
    if (!bus) {
        fprintf(stderr, "the system bus: %s\n", error.message);
        return 1;
    }
    const int count = atoi(argv[1]);
    const int pid = atoi(argv[2]);
    int devices = 0;
    int bytes = 0;
    const double processor = processor_time(pid);
    const double start = now();
    for (int i = 0; i < count; ++i) {
        const double asked = now();
        DBusMessage *reply = list(bus);
        keep_latency(now() - asked);
        devices = devices_in(reply);
        bytes = bytes_of(reply);
        dbus_message_unref(reply);
    }
    printf("{\"operations\": %d, \"devices\": %d, \"bytes\": %d, \"elapsed\": %.6f, \"processor\": %.9f, "
           "\"median_latency\": %.9f}\n",
        count, devices, bytes, now() - start, processor_time(pid) - processor, median_latency());
    return 0;
}
