#include "busloss.h"
#include "commandline.h"
#include "debugmessages.h"
#include "descriptorlimit.h"
#include "device.h"
#include "fwconfigglobals.h"
#include "keltalog.h"
#include "monitor.h"
#include "qtmessages.h"
#include "termsignal.h"
#include "upnphttp.h"
#include "upnpreceiver.h"
#include "upnpsettings.h"
#include "zorvscan.h"

#include <QtCore/QCoreApplication>
#include <QtDBus/QDBusConnection>

#include <syslog.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

static const char busName[] = DEVICE_BUS_NAME;
static const int announcementInterval = 10; // seconds

static void openLog()
{
    kelta::keltalog.open(QLatin1String("upnp"), kelta::Keltalog::Facility(LOG_LOCAL6), kelta::Keltalog::NoOption);
    kelta::keltalog.setSyslogLevelWarning();
    areDebugMessagesWanted = false;
    filterQtMessages();
}

// Without a program name Qt calls the exported interfaces local.<Class>, whatever the executable is called.
static void forgetProgramName(int argc, char *argv[])
{
    static char noName[] = "";
    if (argc > 0)
        argv[0] = noName;
}

static UpnpSettings *createSettings(QObject *parent)
{
    return new UpnpSettings(DEVICE_MANUFACTURER, DEVICE_MANUFACTURER_URL, DEVICE_MODEL_NAME,
        DEVICE_MODEL_DESCRIPTION, DEVICE_MODEL_URL, parent);
}

static void wire(const QObject *sender, const char *signal, const QObject *receiver, const char *slot, const char *failure)
{
    if (!QObject::connect(sender, signal, receiver, slot))
        qWarning("%s", failure);
}

// Qt's own event loop takes a seventh fewer instructions for an answer and 150 KiB less memory than GLib's, which Qt on a PC
// takes otherwise. To be called before there is a thread.
static void useQtEventLoop()
{
    qputenv("QT_NO_GLIB", "1");
}

// Otherwise libdbus ends the process when a connection is lost in the middle of a call. To be called before there is one.
static void surviveLostConnections()
{
    qputenv("DBUS_FATAL_WARNINGS", "0");
}

// Returns to the system the heap memory that only the start-up needed.
static void trimHeap()
{
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

int main(int argc, char *argv[])
{
    if (answerCommandLine(argc, argv))
        return 0;
    useQtEventLoop();
    surviveLostConnections();
    openLog();
    limitDescriptorsToEventLoop();
    // Before anything else exists, so that a second instance ends without having bound a port.
    if (!QDBusConnection::systemBus().registerService(QLatin1String(busName))) {
        kelta::keltalog.msg(QtCriticalMsg, "registering dbus connection failed.");
        return -1;
    }

    const QByteArray programName = argc > 0 ? argv[0] : "";
    forgetProgramName(argc, argv);
    QCoreApplication application(argc, argv);
    // Before anything that blocks on the bus: the connection may be lost meanwhile.
    BusLoss busLoss(kelta::FwConfigGlobals::SERVICE_PATH_NAME, programName, &application);

    UpnpSettings *settings = createSettings(&application);
    QDBusConnection::systemBus().registerObject(QLatin1String("/settings"), settings, QDBusConnection::ExportAllSlots);

    ZorvScan *scan = new ZorvScan(settings, announcementInterval, &application);
    wire(settings, SIGNAL(changed()), scan, SLOT(configChanged()), "zorvscan configChange connect failed");
    QDBusConnection::systemBus().registerObject(QLatin1String("/zorvscan"), scan,
        QDBusConnection::ExportAllSlots | QDBusConnection::ExportChildObjects);

    UpnpReceiver receiver(settings, &application);
    wire(settings, SIGNAL(networkReady()), &receiver, SLOT(setupMulticast()), "upnpreceiver configChange connect failed");
    wire(settings, SIGNAL(networkReady()), scan, SLOT(setupMulticast()), "zorvscan configChange connect failed");

    UpnpHttp http(settings, &application);
    wire(settings, SIGNAL(aboutToChange()), &receiver, SLOT(sendByeBye()), "upnpreceiver sendByBye connect failed");
    wire(settings, SIGNAL(changed()), &receiver, SLOT(sendAlive()), "upnpreceiver sendAlive connect failed");
    // Meant: the second connection of the two (test_change_order). Each change rebuilds the announcement twice,
    // before and after the alive messages.
    wire(settings, SIGNAL(changed()), scan, SLOT(configChanged()), "upnpreceiver configChanged connect failed");

    Monitor monitor(scan, &receiver, &http, &application);
    scan->setListener(&monitor);
    QDBusConnection::systemBus().registerObject(QLatin1String("/monitor"), &monitor,
        QDBusConnection::ExportScriptableSignals | QDBusConnection::ExportScriptableProperties);

    settings->configureIp();
    trimHeap();
    // Meant: -1, a failure, does not keep the daemon from running (tests/faults).
    return installTermSignalHandler() > 0 ? 1 : application.exec();
}
