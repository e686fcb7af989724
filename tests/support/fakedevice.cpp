#include "fakedevice.h"

#include "bytes.h"
#include "network.h"
#include "upnpsettings.h"

#include <QtCore/QDateTime>

FakeDevice::FakeDevice()
{
    m_service.answer("/systemvariables get UUID", text("4b1c9d3e-7a52-4f0e-9c1d-2f6f3a7b8e90"));
    m_service.answer("/systemconstants get SERIALNUMBER", text("K-000123"));
    m_service.answerProperty("hostname", text("dev1"));
    m_service.answerProperty("zorvversion", text("1.4.2"));
    m_service.start();
    m_settings.reset(new UpnpSettings("Zorv", "http://www.zorv.example", "Kelta", "Zorv Kelta industrial measurement", "http://www.zorv.example/kelta", nullptr));
    if (!network::reset() || !network::ip("address add 192.168.1.20/24 dev eth0"))
        qFatal("eth0 cannot be set up");
    m_settings->configureIp();
}

FakeDevice::~FakeDevice()
{
}

bool FakeDevice::addLinkLocalAddress()
{
    if (!network::ip("address add 169.254.7.8/16 dev eth0"))
        return false;
    m_settings->configureIp();
    return m_settings->getAutoipAddressStr() == text("169.254.7.8");
}

static QByteArray valueBehind(const QByteArray &beginning, const QByteArray &message)
{
    const int begin = message.indexOf(beginning);
    if (begin < 0)
        return QByteArray();
    const int valueBegin = begin + beginning.size();
    return message.mid(valueBegin, message.indexOf('\r', valueBegin) - valueBegin);
}

QByteArray withDateOf(const QByteArray &message, const char *before, const char *format, QByteArray expected)
{
    const QByteArray date = valueBehind(before, message);
    const QDateTime now = QDateTime::currentDateTime();
    for (int seconds = 0; seconds < 60; ++seconds) {
        if (now.addSecs(-seconds).toString(QLatin1String(format)).toLatin1() == date)
            return expected.replace(valueBehind(before, expected), date);
    }
    return expected; // nothing at all would equal a message that has not come
}
