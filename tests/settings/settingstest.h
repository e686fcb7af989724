// What the tests of UpnpSettings share.
#ifndef SETTINGSTEST_H
#define SETTINGSTEST_H

#include "fakefwconfig.h"
#include "upnpsettings.h"

#include <QtCore/QObject>
#include <QtCore/QScopedPointer>
#include <QtCore/QStringList>

static const char hostnameFile[] = "/proc/sys/kernel/hostname";
static const char readUuid[] = "/systemvariables get UUID";
static const char readSerial[] = "/systemconstants get SERIALNUMBER";

// Writes down each signal together with the state of the settings at that moment.
class Listener : public QObject
{
    Q_OBJECT

public:
    typedef QString (*State)(const UpnpSettings &settings);

    Listener(UpnpSettings *settings, State state);

    QStringList seen;
    bool speaks; // of the signals, in the log

public slots:
    void aboutToChange();
    void changed();
    void networkReady();

private:
    void speak(const char *line) const;

    UpnpSettings *m_settings;
    State m_state;
};

// A state for Listener.
QString hostnameOf(const UpnpSettings &settings);

// Before each test the network is as at first, and the configuration service knows the device.
class SettingsTest : public QObject
{
    Q_OBJECT

protected slots:
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
