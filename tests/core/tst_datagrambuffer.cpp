#include "datagrambuffer.h"

#include <QtTest/QtTest>

class TestDatagramBuffer : public QObject
{
    Q_OBJECT

private slots:
    void startsWithoutADatagram();
    void datagramIsWhatWasReceived();
    void failureAndEmptyDatagramAreNone();
    void longestDatagramFitsIn();
};

void TestDatagramBuffer::startsWithoutADatagram()
{
    const DatagramBuffer buffer;
    QVERIFY(buffer.datagram().isEmpty());
}

void TestDatagramBuffer::datagramIsWhatWasReceived()
{
    DatagramBuffer buffer;
    for (int size = 1; size < 10; ++size) {
        qstrncpy(buffer.bytes(), "datagram ", 10);
        QVERIFY(buffer.setSize(size));
        QCOMPARE(buffer.datagram(), QByteArray("datagram ").left(size));
        QVERIFY(buffer.datagram().constData() == buffer.bytes());
    }
}

void TestDatagramBuffer::failureAndEmptyDatagramAreNone()
{
    for (int size = -1; size <= 0; ++size) {
        DatagramBuffer buffer;
        QVERIFY(buffer.setSize(1));
        QVERIFY(!buffer.setSize(size));
        QCOMPARE(buffer.datagram().size(), 0);
    }
}

void TestDatagramBuffer::longestDatagramFitsIn()
{
    DatagramBuffer buffer;
    QVERIFY(DatagramBuffer::Size >= 65507); // over IPv4
    memset(buffer.bytes(), 'x', DatagramBuffer::Size);
    QVERIFY(buffer.setSize(DatagramBuffer::Size));
    QCOMPARE(buffer.datagram(), QByteArray(DatagramBuffer::Size, 'x'));
}

QTEST_APPLESS_MAIN(TestDatagramBuffer)

#include "tst_datagrambuffer.moc"
