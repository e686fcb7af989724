// What the tests of UpnpSettings share.
#ifndef SETTINGSTEST_H
#define SETTINGSTEST_H

#include "fakefwconfig.h"
#include "upnpsettings.h"

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QScopedPointer>

static const char hostnameFile[] = "/proc/sys/kernel/hostname";
static const char readUuid[] = "/systemvariables get UUID";
static const char readSerial[] = "/systemconstants get SERIALNUMBER";

// Writes down each signal together with the host name at that moment.
class Listener : public QObject
{
    Q_OBJECT

public:
    explicit Listener(UpnpSettings *sender)
        : speaks(false)
        , settings(sender)
    {
        connect(settings, SIGNAL(aboutToChange()), this, SLOT(aboutToChange()));
        connect(settings, SIGNAL(changed()), this, SLOT(changed()));
        connect(settings, SIGNAL(networkReady()), this, SLOT(networkReady()));
    }

    QList<QByteArray> seen;
    bool speaks; // of changed(), in the log

public slots:
    void aboutToChange() { seen << "aboutToChange " + settings->getHostname(); }
    void changed()
    {
        seen << "changed " + settings->getHostname();
        if (speaks)
            qDebug("heard changed()");
    }
    void networkReady() { seen << "networkReady"; }

private:
    UpnpSettings *settings;
};

// Before each test the network is as at first, and the configuration service knows the device.
class SettingsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

protected:
    SettingsTest();
    ~SettingsTest();

    void makeSettings();
    void addLinkLocalAddress();

    QScopedPointer<FakeFwConfig> m_service;
    QScopedPointer<UpnpSettings> m_settings;
};

UpnpSettings *newSettings();
bool writeHostname(const QByteArray &name);

#endif
