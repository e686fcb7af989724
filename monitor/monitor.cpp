#include "monitor.h"

#include "qtcompat.h"
#include "upnphttp.h"
#include "upnpreceiver.h"
#include "zorvscan.h"

#include <QtCore/QDateTime>

static const int collectionPeriod = 1000; // ms

Monitor::Monitor(const ZorvScan *scan, const UpnpReceiver *receiver, const UpnpHttp *http, QObject *parent)
    : QObject(parent)
    , m_scan(scan)
    , m_receiver(receiver)
    , m_http(http)
    , m_timer(0)
{
    m_running.start();
}

QString Monitor::version() const
{
    return QLatin1String(DAEMON_VERSION);
}

qulonglong Monitor::since() const
{
    return qulonglong(qMax(Q_INT64_C(0), QDateTime::currentMSecsSinceEpoch() - m_running.elapsed()) / 1000);
}

uint Monitor::devices() const
{
    return uint(m_scan->deviceCount());
}

qulonglong Monitor::searchesAnswered() const
{
    return m_receiver->searchesAnswered();
}

qulonglong Monitor::descriptionsServed() const
{
    return m_http->descriptionsServed();
}

qulonglong Monitor::iconsServed() const
{
    return m_http->iconsServed();
}

qulonglong Monitor::announcementsTaken() const
{
    return m_scan->counts().taken;
}

qulonglong Monitor::announcementsWithoutUuid() const
{
    return m_scan->counts().withoutUuid;
}

qulonglong Monitor::announcementsUnusable() const
{
    return m_scan->counts().unusable;
}

qulonglong Monitor::announcementsWithoutRoom() const
{
    return m_scan->counts().withoutRoom;
}

void Monitor::deviceAppeared(const QString &uuid)
{
    m_changes.addAppeared(uuid);
    scheduleSignal();
}

void Monitor::deviceChanged(const QString &uuid)
{
    m_changes.addChanged(uuid);
    scheduleSignal();
}

void Monitor::deviceGone(const QString &uuid)
{
    m_changes.addGone(uuid);
    scheduleSignal();
}

// So a signal a second is the most there can be, and while nothing changes no timer runs.
void Monitor::scheduleSignal()
{
    if (m_timer == 0)
        m_timer = qtcompat::startExactTimer(this, collectionPeriod);
}

void Monitor::timerEvent(QTimerEvent *)
{
    killTimer(m_timer);
    m_timer = 0;
    const DeviceChanges changes = m_changes;
    m_changes = DeviceChanges();
    if (!changes.isEmpty())
        emit DevicesChanged(changes.appeared(), changes.changed(), changes.gone(), changes.more());
}
