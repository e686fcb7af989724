#include "devicetest.h"

#include "bytes.h"

DeviceTest::DeviceTest()
    : m_owner(nullptr)
{
}

void DeviceTest::init()
{
    m_owner = new QObject;
}

void DeviceTest::cleanup()
{
    delete m_owner;
}

ZorvDevice *DeviceTest::make(const QByteArray &json)
{
    m_device = new ZorvDevice(text("A"), json, defaultExpiration, m_owner);
    return m_device;
}
