#ifndef LISTING_H
#define LISTING_H

#include <dbus/dbus.h>

/* The connection to the system bus, under the daemon's name there. NULL without a bus. */
DBusConnection *open_listing(void);

/* Answers the calls of allChilds() that have come, with as many and the same values as the daemon. */
void answer_listings(DBusConnection *bus);

#endif
