// What the tests of ZorvDevice share.
#ifndef DEVICETEST_H
#define DEVICETEST_H

#include "zorvdevice.h"

#include <QtCore/QObject>
#include <QtCore/QPointer>

static const int defaultExpiration = 10;

class DeviceTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

protected:
    DeviceTest();

    ZorvDevice *make(const QByteArray &json);

    QPointer<ZorvDevice> m_device;

private:
    QObject *m_owner;
};

inline QByteArray announcing(const QByteArray &expiration)
{
    return "{\"params\":{\"device\":{\"uuid\":\"A\"},\"expiration\":" + expiration + "}}";
}

#endif
