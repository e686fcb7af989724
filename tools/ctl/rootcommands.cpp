#include "bus.h"
#include "commands.h"
#include "daemon.h"
#include "device.h"
#include "output.h"

static bool isDone(const char *path, const char *interface, const char *member)
{
    const bus::Answer answer = bus::call(DEVICE_BUS_NAME, path, interface, member);
    if (!answer.isGood())
        output::note(answer.problem);
    return answer.isGood();
}

static QString self()
{
    QString problem;
    const QString name = daemon::setting("strHostname", &problem);
    const QString address = daemon::setting("getAddressStr", &problem);
    return name + (address.isEmpty() ? QString::fromLatin1(", without an address") : QString::fromLatin1(", ") + address);
}

static bool sendAnnouncement()
{
    return isDone("/zorvscan", "local.ZorvScan", "configChanged") && isDone("/zorvscan", "local.ZorvScan", "sendAnnouncement");
}

int announce()
{
    if (!sendAnnouncement())
        return 1;
    output::say(QString::fromLatin1("Announced: ") + self());
    return 0;
}

// configureIp sends the alive; sendAnnouncement() makes the two calls for the announcement.
int reconfigure()
{
    if (!isDone("/settings", "local.UpnpSettings", "configureIp") || !sendAnnouncement())
        return 1;
    output::say(QString::fromLatin1("Read again and announced: ") + self());
    return 0;
}
