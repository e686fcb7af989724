#include "fwconfigglobals.h"

#include "bytes.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtTest/QtTest>

using kelta::FwConfigGlobals;

static const char program[] = "/opt/codesys/bin/codesyscontrol.bin";

class TestFwConfigGlobals : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();

    void serviceIsFoundAtItsNames();
    void withoutTheProgramThereIsNoCodesys();
    void executableProgramIsCodesys();
    void everyCallLooksAgain();
    void programThatCannotBeExecutedIsNoCodesys();
    void linkToNothingIsNoCodesys();
};

static void installProgram(QFile::Permissions permissions)
{
    QVERIFY(QDir().mkpath(text("/opt/codesys/bin")));
    QFile file(QString::fromLatin1(program));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(file.setPermissions(permissions));
}

void TestFwConfigGlobals::cleanup()
{
    QFile::remove(QString::fromLatin1(program));
}

void TestFwConfigGlobals::serviceIsFoundAtItsNames()
{
    QCOMPARE(FwConfigGlobals::SERVICE_PATH_NAME, text("com.zorv.fwconfig"));
    QCOMPARE(FwConfigGlobals::SYSTEMVARIABLES_PATH, text("/systemvariables"));
    QCOMPARE(FwConfigGlobals::FW_VERSION_PATH, text("/fwversion"));
    QCOMPARE(FwConfigGlobals::SYSTEMCONSTANTS_PATH, text("/systemconstants"));
    QCOMPARE(FwConfigGlobals::FW_NETWORK_PATH, text("/network"));
    QCOMPARE(FwConfigGlobals::FW_NETWORK_INTERFACE, text("com.zorv.fwconfig.network"));
}

void TestFwConfigGlobals::withoutTheProgramThereIsNoCodesys()
{
    QVERIFY(!FwConfigGlobals::hasCodesys());
}

void TestFwConfigGlobals::executableProgramIsCodesys()
{
    installProgram(QFile::ReadOwner | QFile::ExeOwner);
    QVERIFY(FwConfigGlobals::hasCodesys());
}

void TestFwConfigGlobals::everyCallLooksAgain()
{
    QVERIFY(!FwConfigGlobals::hasCodesys());
    installProgram(QFile::ReadOwner | QFile::ExeOwner);
    QVERIFY(FwConfigGlobals::hasCodesys());
    QVERIFY(QFile::remove(QString::fromLatin1(program)));
    QVERIFY(!FwConfigGlobals::hasCodesys());
}

void TestFwConfigGlobals::programThatCannotBeExecutedIsNoCodesys()
{
    installProgram(QFile::ReadOwner | QFile::WriteOwner);
    QVERIFY(!FwConfigGlobals::hasCodesys());
}

void TestFwConfigGlobals::linkToNothingIsNoCodesys()
{
    QVERIFY(QDir().mkpath(text("/opt/codesys/bin")));
    QVERIFY(QFile::link(text("/opt/codesys/nothing"), QString::fromLatin1(program)));
    QVERIFY(!FwConfigGlobals::hasCodesys());
}

QTEST_APPLESS_MAIN(TestFwConfigGlobals)

#include "tst_fwconfigglobals.moc"
