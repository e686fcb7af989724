#include "jsonline.h"
#include "jsonreader.h"
#include "neighbour.h"

#include <QtCore/QStringList>
#include <QtTest/QtTest>

static QString utf8(const char *text)
{
    return QString::fromUtf8(text);
}

class TestCtlJson : public QObject
{
    Q_OBJECT

private slots:
    void values_data();
    void values();
    void everyUnitIsEscapedOrPlain();
    void deviceOfWhichNothingIsKnown();
};

void TestCtlJson::values_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("text");
    QVariantMap map;
    map.insert(utf8("b"), QVariant());
    map.insert(utf8("a"), QVariantList() << 1 << true << utf8("x"));
    QTest::newRow("nothing") << QVariant() << QByteArray("null");
    QTest::newRow("text") << QVariant(utf8("kelta")) << QByteArray("\"kelta\"");
    QTest::newRow("quotes") << QVariant(utf8("a\"b\\c/")) << QByteArray("\"a\\\"b\\\\c/\"");
    QTest::newRow("controls") << QVariant(utf8("\x1b\n\x7f")) << QByteArray("\"\\u001b\\u000a\\u007f\"");
    QTest::newRow("umlaut") << QVariant(utf8("ä")) << QByteArray("\"\\u00e4\"");
    QTest::newRow("beyond 16 bits") << QVariant(utf8("\360\235\204\236")) << QByteArray("\"\\ud834\\udd1e\"");
    QTest::newRow("false") << QVariant(false) << QByteArray("false");
    QTest::newRow("large") << QVariant(Q_UINT64_C(18446744073709551615)) << QByteArray("18446744073709551615");
    QTest::newRow("empty list") << QVariant(QVariantList()) << QByteArray("[]");
    QTest::newRow("texts") << QVariant(QStringList(utf8("x"))) << QByteArray("[\"x\"]");
    QTest::newRow("empty object") << QVariant(QVariantMap()) << QByteArray("{}");
    QTest::newRow("object") << QVariant(map) << QByteArray("{\"a\": [1, true, \"x\"], \"b\": null}");
}

void TestCtlJson::values()
{
    QFETCH(QVariant, value);
    QTEST(jsonLine(value), "text");
}

void TestCtlJson::everyUnitIsEscapedOrPlain()
{
    QString all;
    for (uint unit = 0; unit < 0xd800; ++unit)
        all += QChar(ushort(unit));
    const QByteArray line = jsonLine(all);
    for (int i = 0; i < line.size(); ++i)
        QVERIFY(line.at(i) >= 0x20 && line.at(i) < 0x7f);
    JsonReader reader;
    QVERIFY(reader.parse(QByteArray("[" + line + "]")));
    QCOMPARE(reader.result().toList().value(0).toString(), all);
}

void TestCtlJson::deviceOfWhichNothingIsKnown()
{
    QCOMPARE(jsonLine(objectOf(Neighbour())),
        QByteArray("{\"address\": null, \"addresses\": [], \"configured\": null, \"family\": null, \"firmware\": null, \"name\": null, "
                   "\"serial\": null, \"type\": null}"));
}

QTEST_MAIN(TestCtlJson)
#include "tst_ctljson.moc"
