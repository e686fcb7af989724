#include "interfaces.h"

#include "bytes.h"

#include <QtTest/QtTest>

class TestInterfaces : public QObject
{
    Q_OBJECT

private slots:
    void loopbackIsAmongThem();
    void interfaceIsFoundByItsName();
    void unknownNameGivesAnInvalidOne();
};

void TestInterfaces::loopbackIsAmongThem()
{
    const QList<QNetworkInterface> all = networkInterfaces();
    int loopbacks = 0;
    for (int i = 0; i < all.size(); ++i)
        loopbacks += all.at(i).flags() & QNetworkInterface::IsLoopBack ? 1 : 0;
    QCOMPARE(loopbacks, 1);
}

void TestInterfaces::interfaceIsFoundByItsName()
{
    const QNetworkInterface found = networkInterface(text("lo"));
    QVERIFY(found.isValid());
    QCOMPARE(found.name(), text("lo"));
    QVERIFY(!found.addressEntries().isEmpty());
}

void TestInterfaces::unknownNameGivesAnInvalidOne()
{
    QVERIFY(!networkInterface(text("nothing0")).isValid());
    QVERIFY(!networkInterface(QString()).isValid());
}

QTEST_MAIN(TestInterfaces)

#include "tst_interfaces.moc"
