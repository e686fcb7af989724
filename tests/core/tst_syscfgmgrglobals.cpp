#include "syscfgmgrglobals.h"

#include "bytes.h"

#include <QtCore/QRegExp>
#include <QtCore/QSet>
#include <QtTest/QtTest>

using kelta::SysCfgMgrGlobals;

class TestSysCfgMgrGlobals : public QObject
{
    Q_OBJECT

private slots:
    void secondEntryIsTheSerialNumber();
    void all24NamesDiffer();
};

void TestSysCfgMgrGlobals::secondEntryIsTheSerialNumber()
{
    QCOMPARE(SysCfgMgrGlobals::SYSINFOTYPE_STR[2], text("SERIALNUMBER"));
}

void TestSysCfgMgrGlobals::all24NamesDiffer()
{
    QSet<QString> names;
    for (const QString &name : SysCfgMgrGlobals::SYSINFOTYPE_STR) {
        QVERIFY(QRegExp(text("[A-Z]+")).exactMatch(name));
        names.insert(name);
    }
    QCOMPARE(names.size(), 24);
}

QTEST_APPLESS_MAIN(TestSysCfgMgrGlobals)

#include "tst_syscfgmgrglobals.moc"
