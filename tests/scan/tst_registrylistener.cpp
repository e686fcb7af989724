#include "announcement.h"
#include "guardedmemory.h"
#include "zorvdevice.h"

#include <QtTest/QtTest>

// What counts as a change of a device, and what as its repetition.
class TestRegistryListener : public QObject
{
    Q_OBJECT

private slots:
    void blanks_data();
    void blanks();
    void blanksOfEveryShortText();
    void nothingBehindTheShorterTextIsRead();
    void devicesThatLeave_data();
    void devicesThatLeave();
    void expiredOnce();
};

void TestRegistryListener::blanks_data()
{
    QTest::addColumn<QByteArray>("a");
    QTest::addColumn<QByteArray>("b");
    QTest::addColumn<bool>("same");
    QTest::newRow("empty") << QByteArray() << QByteArray() << true;
    QTest::newRow("equal") << QByteArray("{\"a\":1}") << QByteArray("{\"a\":1}") << true;
    QTest::newRow("between tokens") << QByteArray("{\"a\":[1,2]}") << QByteArray(" { \"a\" :\t[1,\r\n2 ] }\n") << true;
    QTest::newRow("only blanks") << QByteArray(" \n") << QByteArray() << true;
    QTest::newRow("in a text") << QByteArray("{\"a\":\"x y\"}") << QByteArray("{\"a\":\"xy\"}") << false;
    QTest::newRow("in a key") << QByteArray("{\"a \":1}") << QByteArray("{\"a\":1}") << false;
    QTest::newRow("behind an escaped quote") << QByteArray("[\"a\\\" b\"]") << QByteArray("[\"a\\\"b\"]") << false;
    QTest::newRow("behind an escaped backslash") << QByteArray("[\"a\\\\\" ,1]") << QByteArray("[\"a\\\\\",1]") << true;
    QTest::newRow("another value") << QByteArray("{\"a\":1}") << QByteArray("{\"a\":2}") << false;
    QTest::newRow("another type") << QByteArray("{\"a\":1}") << QByteArray("{\"a\":\"1\"}") << false;
    QTest::newRow("one begins the other") << QByteArray("{\"a\":1}") << QByteArray("{\"a\":1} x") << false;
    QTest::newRow("a text without an end") << QByteArray("[\"a b") << QByteArray("[\"a  b") << false;
    const QByteArray beginning("{\"a\":\"" + QByteArray(200, 'x') + "\",");
    QTest::newRow("long, blank behind") << beginning + "\"b\":1}" << beginning + " \"b\":1}" << true;
    QTest::newRow("long, blank before") << " " + beginning + "\"b\":1}" << beginning + "\"b\":1} " << true;
    QTest::newRow("long, value behind") << beginning + "\"b\":1}" << beginning + "\"b\":2}" << false;
    QTest::newRow("long, blank in a text behind") << beginning + "\"b c\":1}" << beginning + "\"bc\":1}" << false;
    QTest::newRow("8-bit") << QByteArray("[\"\xe9\xa0\"]") << QByteArray("[\"\xe9\x20\"]") << false;
    QTest::newRow("zero byte") << QByteArray("a\0b", 3) << QByteArray("a\0c", 3) << false;
}

void TestRegistryListener::blanks()
{
    QFETCH(QByteArray, a);
    QFETCH(QByteArray, b);
    QTEST(announcement::areSameButForBlanks(a, b), "same");
    QTEST(announcement::areSameButForBlanks(b, a), "same");
    ZorvDevice device(QLatin1String("x"), a, 10, nullptr);
    QTEST(device.isRepeatedBy(b), "same");
}

// Without the blanks that stand outside of texts
static QByteArray withoutBlanks(const QByteArray &json)
{
    QByteArray result;
    bool isInText = false;
    for (int i = 0; i < json.size(); ++i) {
        if (isInText && json.at(i) == '\\') {
            result += json.mid(i, 2);
            ++i;
            continue;
        }
        if (json.at(i) == '"')
            isInText = !isInText;
        if (isInText || !QByteArray(" \t\n\r").contains(json.at(i)))
            result += json.at(i);
    }
    return result;
}

// Each of up to three characters against each, behind beginnings around the sizes that are compared at once.
void TestRegistryListener::blanksOfEveryShortText()
{
    static const char letters[] = { '"', '\\', ' ', 'a' };
    QList<QByteArray> ends;
    ends << QByteArray();
    for (int i = 0; ends.at(i).size() < 3; ++i) {
        for (char letter : letters)
            ends << ends.at(i) + letter;
    }
    QCOMPARE(ends.size(), 1 + 4 + 16 + 64);
    const int sizes[] = { 0, 1, 61, 62, 63, 64, 65, 127, 128 };
    for (int size : sizes) {
        for (int isText = 0; isText < 2; ++isText) {
            const QByteArray beginning = (isText ? "\"" : "") + QByteArray(size, 'x');
            QList<QByteArray> whole;
            QList<QByteArray> plain;
            for (int i = 0; i < ends.size(); ++i) {
                whole << beginning + ends.at(i);
                plain << withoutBlanks(whole.at(i));
            }
            for (int i = 0; i < whole.size(); ++i) {
                for (int k = 0; k < whole.size(); ++k)
                    QVERIFY2(announcement::areSameButForBlanks(whole.at(i), whole.at(k)) == (plain.at(i) == plain.at(k)),
                        (whole.at(i) + '|' + whole.at(k)).constData());
            }
        }
    }
}

void TestRegistryListener::nothingBehindTheShorterTextIsRead()
{
    const QByteArray longer(300, 'x');
    GuardedMemory memory;
    for (int size = 0; size < longer.size(); ++size) {
        const QByteArray shorter = QByteArray::fromRawData(memory.copy(longer.constData(), size_t(size)), size);
        QVERIFY(!announcement::areSameButForBlanks(shorter, longer));
        QVERIFY(!announcement::areSameButForBlanks(longer, shorter));
    }
}

void TestRegistryListener::devicesThatLeave_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("isLeaving");
    QTest::newRow("usable") << QByteArray("{\"params\":{\"expiration\":22}}") << false;
    QTest::newRow("no expiration") << QByteArray("{\"params\":{}}") << true;
    QTest::newRow("fraction") << QByteArray("{\"params\":{\"expiration\":6.6}}") << true;
    QTest::newRow("does not parse") << QByteArray("{\"params\":{\"expiration\":22}") << true;
}

void TestRegistryListener::devicesThatLeave()
{
    QFETCH(QByteArray, json);
    const ZorvDevice device(QLatin1String("x"), json, 10, nullptr);
    QTEST(device.isLeaving(), "isLeaving");
}

void TestRegistryListener::expiredOnce()
{
    ZorvDevice device(QLatin1String("x"), "{\"params\":{\"expiration\":-1}}", 10, nullptr);
    QVERIFY(!device.isLeaving());
    QVERIFY(device.checkExpired());
    QVERIFY(device.isLeaving());
    QVERIFY(!device.checkExpired());
    ZorvDevice staying(QLatin1String("y"), "{\"params\":{\"expiration\":22}}", 10, nullptr);
    QVERIFY(!staying.checkExpired());
    QVERIFY(!staying.isLeaving());
}

QTEST_MAIN(TestRegistryListener)
#include "tst_registrylistener.moc"
