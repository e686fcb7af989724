#ifndef DAEMON_H
#define DAEMON_H

#include "bus.h"
#include "neighbour.h"

// The daemon, as its objects on the bus show it. A function that fails writes a sentence to problem, unless there is one from an
// earlier failure; a function that succeeds does not touch it.
namespace daemon
{

// Of /monitor; the same whatever the device's bus name is
static const char monitorInterface[] = "com.zorv.upnpvelorn.Monitor";

// At /settings: a text, from bytes or from a text.
QString setting(const char *getter, QString *problem);

// At /monitor, by their names.
QVariantMap properties(QString *problem);

// Of one family; of every family where that is empty. Sorted.
QList<Neighbour> neighbours(const QString &family, QString *problem);

// The last announcement as it came; empty where the device has no object of its own on the bus, which only those have whose uuid
// is made of letters, digits and underscores.
QByteArray announcementOf(const QString &uuid);

} // namespace daemon

#endif
