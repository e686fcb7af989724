#include "siphash.h"

#include "fewerdescriptors.h"

#include <QtTest/QtTest>

// The bytes 0, 1, 2, ...
static QByteArray counting(int size)
{
    QByteArray bytes;
    for (int i = 0; i < size; ++i)
        bytes += char(i);
    return bytes;
}

class TestSipHash : public QObject
{
    Q_OBJECT

private slots:
    void vectorsOfItsAuthors_data();
    void vectorsOfItsAuthors();
    void fewerRounds_data();
    void fewerRounds();
    void anyKeyAndAnyAddress();
    void everyKeyIsAnother();
    void keysDifferWithoutRandomBytesToo();
};

// From the reference code, vectors_sip64; the one of 15 bytes is in the paper as well. The key is 0, 1, 2, ... 15.
void TestSipHash::vectorsOfItsAuthors_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<quint64>("expected");
    QTest::newRow("nothing") << 0 << Q_UINT64_C(0x726fdb47dd0e0e31);
    QTest::newRow("1 byte") << 1 << Q_UINT64_C(0x74f839c593dc67fd);
    QTest::newRow("7 bytes") << 7 << Q_UINT64_C(0xab0200f58b01d137);
    QTest::newRow("8 bytes") << 8 << Q_UINT64_C(0x93f5f5799a932462);
    QTest::newRow("15 bytes") << 15 << Q_UINT64_C(0xa129ca6149be45e5);
}

void TestSipHash::vectorsOfItsAuthors()
{
    QFETCH(int, size);
    QFETCH(quint64, expected);
    const siphash::Key key = { Q_UINT64_C(0x0706050403020100), Q_UINT64_C(0x0f0e0d0c0b0a0908) };
    const quint64 got = siphash::hash<2, 4>(key, counting(size));
    QCOMPARE(got, expected);
}

// From Python 3.11, which hashes bytes so: PYTHONHASHSEED=0 python3 -c 'print("%x" % (hash(bytes(range(7))) % 2**64))'
void TestSipHash::fewerRounds_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<quint64>("expected");
    QTest::newRow("1 byte") << 1 << Q_UINT64_C(0x68a914128e01e473);
    QTest::newRow("7 bytes") << 7 << Q_UINT64_C(0x2f098ab0c751325a);
    QTest::newRow("8 bytes") << 8 << Q_UINT64_C(0xead411e67ebe2eea);
    QTest::newRow("9 bytes") << 9 << Q_UINT64_C(0x75927f9d95124362);
    QTest::newRow("15 bytes") << 15 << Q_UINT64_C(0xf30eb725bb91c9ea);
    QTest::newRow("16 bytes") << 16 << Q_UINT64_C(0x8972188433a5c5b7);
    QTest::newRow("63 bytes") << 63 << Q_UINT64_C(0x385d3e39e5f37359);
}

void TestSipHash::fewerRounds()
{
    QFETCH(int, size);
    QFETCH(quint64, expected);
    const siphash::Key zeros = { 0, 0 };
    const quint64 got = siphash::hash<1, 3>(zeros, counting(size));
    QCOMPARE(got, expected);
}

void TestSipHash::anyKeyAndAnyAddress()
{
    const siphash::Key low = { 1, 0 };
    const siphash::Key high = { 0, 1 };
    const QByteArray text = counting(20);
    for (int i = 0; i < 8; ++i) {
        const QByteArray moved = QByteArray(i, 'x') + text;
        const quint64 got = siphash::hash<1, 3>(low, QByteArray::fromRawData(moved.constData() + i, text.size()));
        const quint64 expected = siphash::hash<1, 3>(low, text);
        QCOMPARE(got, expected);
    }
    QVERIFY((siphash::hash<1, 3>(low, text)) != (siphash::hash<1, 3>(high, text)));
}

void TestSipHash::everyKeyIsAnother()
{
    const siphash::Key one = siphash::randomKey();
    const siphash::Key other = siphash::randomKey();
    QVERIFY(one.low != other.low);
    QVERIFY(one.high != other.high);
    QVERIFY(one.low != one.high);
}

// Those cannot be had while no descriptor is free.
void TestSipHash::keysDifferWithoutRandomBytesToo()
{
    const FewerDescriptors none(0);
    const siphash::Key first = siphash::randomKey();
    const siphash::Key second = siphash::randomKey();
    QVERIFY(first.low != second.low);
    QVERIFY(first.low != 0);
    QVERIFY(first.high != 0);
}

QTEST_APPLESS_MAIN(TestSipHash)
#include "tst_siphash.moc"
