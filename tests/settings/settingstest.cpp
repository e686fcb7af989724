#include "settingstest.h"

#include "bytes.h"
#include "dbustypes.h"
#include "network.h"

#include <QtCore/QFile>
#include <QtTest/QtTest>

Listener::Listener(UpnpSettings *settings, State state)
    : speaks(false)
    , m_settings(settings)
    , m_state(state)
{
    connect(settings, SIGNAL(aboutToChange()), this, SLOT(aboutToChange()));
    connect(settings, SIGNAL(changed()), this, SLOT(changed()));
    connect(settings, SIGNAL(networkReady()), this, SLOT(networkReady()));
}

void Listener::aboutToChange()
{
    seen << text("aboutToChange ") + m_state(*m_settings);
    speak("heard aboutToChange()");
}

void Listener::changed()
{
    seen << text("changed ") + m_state(*m_settings);
    speak("heard changed()");
}

void Listener::networkReady()
{
    seen << text("networkReady");
    speak("heard networkReady()");
}

void Listener::speak(const char *line) const
{
    if (speaks)
        qDebug("%s", line);
}

QString hostnameOf(const UpnpSettings &settings)
{
    return QString::fromLatin1(settings.getHostname().constData());
}

SettingsTest::SettingsTest() = default;

SettingsTest::~SettingsTest() = default;

UpnpSettings *newSettings()
{
    return new UpnpSettings("Zorv", "http://www.zorv.example", "Kelta", "Zorv Kelta industrial measurement", "http://www.zorv.example/kelta", nullptr);
}

bool writeHostname(const QByteArray &name)
{
    QFile file(QString::fromLatin1(hostnameFile));
    return file.open(QIODevice::WriteOnly) && file.write(name + '\n') == name.size() + 1;
}

void SettingsTest::initTestCase()
{
    registerDbusTypes();
}

void SettingsTest::init()
{
    QVERIFY(network::reset());
    QVERIFY(writeHostname("kelta"));
    m_service.reset(new FakeFwConfig);
    m_service->answer(readUuid, text("abc"));
    m_service->answer(readSerial, text("K-000123"));
    m_service->answerProperty("hostname", text("dev1"));
    m_service->answerProperty("zorvversion", text("1.4.2"));
    m_service->start();
}

void SettingsTest::cleanup()
{
    m_settings.reset();
    m_service.reset();
}

void SettingsTest::makeSettings()
{
    m_settings.reset(newSettings());
    m_service->forgetCalls();
}

void SettingsTest::addLinkLocalAddress()
{
    QVERIFY(network::ip("address add 169.254.1.2/16 dev eth0"));
    m_settings->configureIp();
    QCOMPARE(m_settings->getAutoipAddressStr(), text("169.254.1.2"));
}
