#ifndef DEVICESERVICES_H
#define DEVICESERVICES_H

#include "qtversions.h"

#include <QtCore/QProcess>
#include <QtCore/QStringList>

// The device's configuration service, as the simulated device has it, on the system bus of this test.
class DeviceServices
{
public:
    bool start()
    {
        qtversions::showErrors(&m_process);
        m_process.start(QLatin1String("/usr/bin/python3"),
            QStringList() << QLatin1String("-E") << QLatin1String("-s")
                          << QLatin1String(SOURCE_ROOT) + QLatin1String("simdevice/fwconfigservice.py")
                          << QString::fromLocal8Bit(qgetenv("DBUS_SYSTEM_BUS_ADDRESS").constData()));
        return answer() == "ready\n" && set("\"hostname\":\"kelta\"");
    }

    ~DeviceServices()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    // One of the identity's values in JSON, the others stay as they are at first.
    bool set(const QByteArray &value)
    {
        m_process.write("{\"values\":{\"systemvariables\":{\"UUID\":\"9a1b0c7e-52f4-4d0b-8c6e-2f7d10a4b3c5\"},"
                        "\"systemconstants\":{\"SERIALNUMBER\":\"KM-2044817\"},\"zorvversion\":\"1.4.2\","
                        "\"network\":{\"dhcp\":true,\"gateway\":\"10.77.0.1\"},"
            + value + "}}\n");
        return !answer().isEmpty();
    }

private:
    QByteArray answer()
    {
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead(20000))
                return QByteArray();
        }
        return m_process.readLine();
    }

    QProcess m_process;
};

#endif
