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
// refused, by properties. It keeps nothing of this itself but the changes of the present second.
//
// Exported on the system bus with its signal and its properties. What it says of itself there stands here, since Qt names
// no arguments and would have clients keep the values of properties that change without a word.
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
    // Those that it reads from are not owned and must be there as long as calls arrive.
    Monitor(const ZorvScan *scan, const UpnpReceiver *receiver, const UpnpHttp *http, QObject *parent);

    QString version() const;
    // Seconds since 1970 by the present clock, which may have been another one then.
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
    // What has happened in the second since the first of these changes (DeviceChanges). more: how many further changes found
    // no place in the lists.
    Q_SCRIPTABLE void DevicesChanged(const QStringList &appeared, const QStringList &changed, const QStringList &gone, uint more);

protected:
    void timerEvent(QTimerEvent *event) override;

private:
    void tellLater();

    const ZorvScan *m_scan;
    const UpnpReceiver *m_receiver;
    const UpnpHttp *m_http;
    QElapsedTimer m_running;
    DeviceChanges m_changes;
    int m_timer; // 0: nothing has changed
};

#endif
