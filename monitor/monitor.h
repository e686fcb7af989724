#ifndef MONITOR_H
#define MONITOR_H

#include "devicechanges.h"
#include "registrylistener.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>

class UpnpHttp;
class UpnpReceiver;
class ZorvScan;

// Tells other programs what the daemon does: which devices come, change and go, by a signal, and what it has served and
// refused, by properties. The objects count; it keeps only the changes of the present second, and when it started.
//
// Exported on the system bus with its signal and its properties. The introspection is written here, since Qt's own names no
// arguments, and does not tell clients that properties change without a signal.
class Monitor : public QObject, public RegistryListener
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.zorv.upnpvelorn.Monitor")
    Q_CLASSINFO("D-Bus Introspection",
        "  <interface name=\"com.zorv.upnpvelorn.Monitor\">\n"
        "    <annotation name=\"org.freedesktop.DBus.Property.EmitsChangedSignal\" value=\"false\"/>\n"
        "    <property name=\"Version\" type=\"s\" access=\"read\">\n"
        "      <annotation name=\"org.freedesktop.DBus.Property.EmitsChangedSignal\" value=\"const\"/>\n"
        "    </property>\n"
        "    <property name=\"Since\" type=\"t\" access=\"read\"/>\n"
        "    <property name=\"Devices\" type=\"u\" access=\"read\"/>\n"
        "    <property name=\"SearchesAnswered\" type=\"t\" access=\"read\"/>\n"
        "    <property name=\"DescriptionsServed\" type=\"t\" access=\"read\"/>\n"
        "    <property name=\"IconsServed\" type=\"t\" access=\"read\"/>\n"
        "    <property name=\"AnnouncementsTaken\" type=\"t\" access=\"read\"/>\n"
        "    <property name=\"AnnouncementsWithoutUuid\" type=\"t\" access=\"read\"/>\n"
        "    <property name=\"AnnouncementsUnusable\" type=\"t\" access=\"read\"/>\n"
        "    <property name=\"AnnouncementsWithoutRoom\" type=\"t\" access=\"read\"/>\n"
        "    <signal name=\"DevicesChanged\">\n"
        "      <arg name=\"appeared\" type=\"as\"/>\n"
        "      <arg name=\"changed\" type=\"as\"/>\n"
        "      <arg name=\"gone\" type=\"as\"/>\n"
        "      <arg name=\"more\" type=\"u\"/>\n"
        "    </signal>\n"
        "  </interface>\n")
    Q_PROPERTY(QString Version READ version)
    Q_PROPERTY(qulonglong Since READ since)
    Q_PROPERTY(uint Devices READ devices)
    Q_PROPERTY(qulonglong SearchesAnswered READ searchesAnswered)
    Q_PROPERTY(qulonglong DescriptionsServed READ descriptionsServed)
    Q_PROPERTY(qulonglong IconsServed READ iconsServed)
    Q_PROPERTY(qulonglong AnnouncementsTaken READ announcementsTaken)
    Q_PROPERTY(qulonglong AnnouncementsWithoutUuid READ announcementsWithoutUuid)
    Q_PROPERTY(qulonglong AnnouncementsUnusable READ announcementsUnusable)
    Q_PROPERTY(qulonglong AnnouncementsWithoutRoom READ announcementsWithoutRoom)

public:
    // The three objects are not owned and must exist as long as calls arrive.
    Monitor(const ZorvScan *scan, const UpnpReceiver *receiver, const UpnpHttp *http, QObject *parent);

    QString version() const;
    // When it started, in seconds since 1970: the present time of the wall clock less the time that it runs. So a clock that was
    // set meanwhile moves it.
    qulonglong since() const;
    uint devices() const;
    qulonglong searchesAnswered() const;
    qulonglong descriptionsServed() const;
    qulonglong iconsServed() const;
    qulonglong announcementsTaken() const;
    qulonglong announcementsWithoutUuid() const;
    qulonglong announcementsUnusable() const;
    qulonglong announcementsWithoutRoom() const;

    void deviceAppeared(const QString &uuid) override;
    void deviceChanged(const QString &uuid) override;
    void deviceGone(const QString &uuid) override;

signals:
    // The changes in the second since the first of them (DeviceChanges): uuids. more: the number of further changes, for which
    // the lists had no place.
    Q_SCRIPTABLE void DevicesChanged(const QStringList &appeared, const QStringList &changed, const QStringList &gone, uint more);

protected:
    void timerEvent(QTimerEvent *event) override;

private:
    void scheduleSignal();

    const ZorvScan *m_scan;
    const UpnpReceiver *m_receiver;
    const UpnpHttp *m_http;
    QElapsedTimer m_running;
    DeviceChanges m_changes;
    int m_timer; // 0: nothing has changed
};

#endif
