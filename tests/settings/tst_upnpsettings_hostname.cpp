#include "bytes.h"
#include "caughtlog.h"
#include "qtversions.h"
#include "settingstest.h"
#include "upnpsettings.h"
#include "waitfor.h"

#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtTest/QtTest>

// The host name while the program runs.
class TestUpnpSettingsHostname : public SettingsTest
{
    Q_OBJECT

private slots:
    void changedHostNameFileIsFollowed();
    void hostNameIsLoggedAfterTheSignal();
    void sameHostNameIsToldAgain();
    void hostNameIsTrimmed();
    void hostNameFileThatCannotBeReadIsIgnored();
    void hostNameAsTextEndsAtAZeroByte();
    void hostNameAsTextIsLatin1();
};

void TestUpnpSettingsHostname::changedHostNameFileIsFollowed()
{
    makeSettings();
    Listener listener(m_settings.data(), hostnameOf);
    CaughtLog log;
    QVERIFY(writeHostname("dev2"));
    QVERIFY(waitFor([&] { return listener.seen.size() >= 2; }));
    QVERIFY(listener.seen.size() == 2 || qtversions::mayReportAWriteTwice());
    QCOMPARE(QStringList(listener.seen.mid(0, 2)), QStringList() << text("aboutToChange dev1") << text("changed dev2"));
    QCOMPARE(log.lines().mid(0, 1), QList<QString>() << text("debug: new hostname: \"dev2\""));
    QVERIFY(log.lines().size() == 1 || qtversions::mayReportAWriteTwice());
    QCOMPARE(m_settings->strHostname(), text("dev2"));
    // And again: the file stays watched.
    QVERIFY(writeHostname("dev3"));
    QVERIFY(waitFor([&] { return listener.seen.last() == text("changed dev3"); }));
    QVERIFY(listener.seen.size() == 4 || qtversions::mayReportAWriteTwice());
}

void TestUpnpSettingsHostname::hostNameIsLoggedAfterTheSignal()
{
    makeSettings();
    Listener listener(m_settings.data(), hostnameOf);
    listener.speaks = true;
    CaughtLog log;
    QVERIFY(writeHostname("dev2"));
    QVERIFY(waitFor([&] { return log.lines().size() >= 3; }));
    QCOMPARE(QStringList(log.lines().mid(0, 3)), QStringList() << text("debug: heard aboutToChange()") << text("debug: heard changed()") << text("debug: new hostname: \"dev2\""));
}

void TestUpnpSettingsHostname::sameHostNameIsToldAgain()
{
    QVERIFY(writeHostname("dev1"));
    makeSettings();
    Listener listener(m_settings.data(), hostnameOf);
    QVERIFY(writeHostname("dev1"));
    QVERIFY(waitFor([&] { return listener.seen.size() >= 2; }));
    QVERIFY(listener.seen.size() == 2 || qtversions::mayReportAWriteTwice());
    QCOMPARE(QStringList(listener.seen.mid(0, 2)), QStringList() << text("aboutToChange dev1") << text("changed dev1"));
}

void TestUpnpSettingsHostname::hostNameIsTrimmed()
{
    makeSettings();
    QVERIFY(writeHostname("  dev4\t"));
    QVERIFY(QMetaObject::invokeMethod(m_settings.data(), "hostnameChanged"));
    QCOMPARE(m_settings->getHostname(), QByteArray("dev4"));
}

// A mount over the file makes it unreadable, also for root.
void TestUpnpSettingsHostname::hostNameFileThatCannotBeReadIsIgnored()
{
    makeSettings();
    Listener listener(m_settings.data(), hostnameOf);
    CaughtLog log;
    QCOMPARE(QProcess::execute(text("mount"), QStringList() << text("-t") << text("tmpfs") << text("none") << text("/proc/sys/kernel")), 0);
    const bool invoked = QMetaObject::invokeMethod(m_settings.data(), "hostnameChanged");
    QCOMPARE(QProcess::execute(text("umount"), QStringList(text("/proc/sys/kernel"))), 0);
    QVERIFY(invoked);
    QCOMPARE(listener.seen, QStringList());
    QCOMPARE(log.lines(), QStringList());
    QCOMPARE(m_settings->getHostname(), QByteArray("dev1"));
}

void TestUpnpSettingsHostname::hostNameAsTextEndsAtAZeroByte()
{
    makeSettings();
    QFile file(text("/run/hostname"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("dev5\0x\n", 7);
    file.close();
    QCOMPARE(QProcess::execute(text("mount"), QStringList() << text("--bind") << text("/run/hostname") << text(hostnameFile)), 0);
    const bool invoked = QMetaObject::invokeMethod(m_settings.data(), "hostnameChanged");
    QCOMPARE(QProcess::execute(text("umount"), QStringList(text(hostnameFile))), 0);
    QVERIFY(invoked);
    QCOMPARE(m_settings->getHostname(), QByteArray("dev5\0x", 6));
    QCOMPARE(m_settings->strHostname(), text("dev5"));
}

void TestUpnpSettingsHostname::hostNameAsTextIsLatin1()
{
    makeSettings();
    QVERIFY(writeHostname("d\xe9v"));
    QVERIFY(QMetaObject::invokeMethod(m_settings.data(), "hostnameChanged"));
    QCOMPARE(m_settings->getHostname(), QByteArray("d\xe9v"));
    QCOMPARE(m_settings->strHostname(), text("d\xe9v"));
}

QTEST_MAIN(TestUpnpSettingsHostname)
#include "tst_upnpsettings_hostname.moc"
