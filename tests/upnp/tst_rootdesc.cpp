#include "bytes.h"
#include "rootdesc.h"

#include <QtTest/QtTest>

static rootdesc::Values values()
{
    rootdesc::Values v;
    v.presentationUrl = "http://192.168.1.20";
    v.hostname = "dev1";
    v.manufacturer = "Zorv";
    v.manufacturerUrl = "http://www.zorv.example";
    v.modelDescription = "Zorv Kelta industrial measurement";
    v.modelName = "Kelta";
    v.modelNumber = "1.4.2";
    v.modelUrl = "http://www.zorv.example/kelta";
    v.serialNumber = "K-000123";
    v.uuid = "4b1c9d3e-7a52-4f0e-9c1d-2f6f3a7b8e90";
    return v;
}

class TestRootDesc : public QObject
{
    Q_OBJECT

private slots:
    void documentHasItsBytes();
    void linkLocalValuesStandInTheirPlaces();
    void emptyValuesLeaveEmptyElements();
    void nothingIsEscaped();
    void thereIsNoLineBreak();
};

void TestRootDesc::documentHasItsBytes()
{
    QVERIFY(compareBytes(rootdesc::document(values()), testData("rootdesc.xml")));
}

void TestRootDesc::linkLocalValuesStandInTheirPlaces()
{
    rootdesc::Values v = values();
    v.presentationUrl = "http://169.254.7.8";
    v.uuid += '0';
    QVERIFY(compareBytes(rootdesc::document(v), testData("rootdesc_autoip.xml")));
}

void TestRootDesc::emptyValuesLeaveEmptyElements()
{
    QVERIFY(compareBytes(rootdesc::document(rootdesc::Values()), testData("rootdesc_empty.xml")));
}

void TestRootDesc::nothingIsEscaped()
{
    rootdesc::Values v = values();
    v.hostname = "a&b<c>\"'\xe9";
    v.serialNumber = "<&amp;>";
    const QByteArray document = rootdesc::document(v);
    QVERIFY(document.contains("<friendlyName>a&b<c>\"'\xe9</friendlyName>"));
    QVERIFY(document.contains("<serialNumber><&amp;></serialNumber>"));
}

void TestRootDesc::thereIsNoLineBreak()
{
    const QByteArray document = rootdesc::document(values());
    QVERIFY(!document.contains('\n'));
    QVERIFY(!document.contains('\r'));
    QVERIFY(document.endsWith("</root>"));
}

QTEST_APPLESS_MAIN(TestRootDesc)

#include "tst_rootdesc.moc"
