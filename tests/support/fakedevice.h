#ifndef FAKEDEVICE_H
#define FAKEDEVICE_H

#include "fakefwconfig.h"

#include <QtCore/QScopedPointer>

class UpnpSettings;

// Settings of the device that the expected texts in tests/upnp/data speak of: Kelta 1.4.2 called dev1, with the
// address 192.168.1.20 on eth0 (where 10.77.0.2 stays, too).
class FakeDevice
{
public:
    FakeDevice();
    ~FakeDevice();

    // The link-local address 169.254.7.8 comes and goes; it is known to the settings at once.
    bool addLinkLocalAddress();

    UpnpSettings *settings() const { return m_settings.data(); }

private:
    Q_DISABLE_COPY(FakeDevice)

    FakeFwConfig m_service;
    QScopedPointer<UpnpSettings> m_settings;
};

// The text with its one date replaced by that of the device's message, which stands between `before` and "\r".
// As it is when the device's message has no such date, or one that is not from the last minute.
QByteArray withDateOf(const QByteArray &message, const char *before, const char *format, QByteArray expected);

#endif
