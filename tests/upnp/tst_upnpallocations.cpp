// A search must not come to cost more heap allocations unnoticed: next to the system calls they are most of its work.
#include "allocationcount.h"
#include "fakeclock.h" // how much a date takes depends on its digits
#include "fakedevice.h"
#include "localdate.h"
#include "udp.h"
#include "upnpreceiver.h"

#include <QtCore/QScopedPointer>
#include <QtTest/QtTest>

// What it takes today. When it takes less, the limit goes down with it.
static const int mostForAnAnswer = 8;
static const int mostForNoAnswer = 4;
static const int mostForADate = 1;

static const char deviceAddress[] = "10.77.0.2";
static const quint16 ssdpPort = 1900;
static const char search[] = "M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nMAN: \"ssdp:discover\"\r\nMX: 1\r\n"
                             "ST: upnp:rootdevice\r\n\r\n";
static const char announcementOfAnother[] = "NOTIFY * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nNTS: ssdp:alive\r\n\r\n";

class Receiver : public UpnpReceiver
{
public:
    explicit Receiver(UpnpSettings *deviceSettings)
        : UpnpReceiver(deviceSettings, nullptr)
    {
    }

    using UpnpReceiver::processDatagrams;
};

class TestUpnpAllocations : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void allocationsAreCounted();
    void searchIsAnsweredWithFew();
    void whatIsNoSearchIsDroppedWithFew();
    void dateIsMadeWithoutTheTablesOfOtherLanguages();

private:
    int allocationsFor(const char *datagram);

    QScopedPointer<FakeDevice> m_device;
    QScopedPointer<Udp> m_peer;
    QScopedPointer<Receiver> m_receiver;
    QByteArray m_answer;
};

void TestUpnpAllocations::initTestCase()
{
    qputenv("TZ", "UTC0");
    m_device.reset(new FakeDevice);
    m_peer.reset(new Udp(deviceAddress));
    m_receiver.reset(new Receiver(m_device->settings()));
    m_receiver->processDatagrams(); // its own announcements, which come back to it
    for (int i = 0; i < 3; ++i)
        allocationsFor(search); // what is made once is made
}

void TestUpnpAllocations::cleanupTestCase()
{
    m_receiver.reset();
    m_peer.reset();
    m_device.reset();
}

// A datagram to an address of this host lies in the receiver's socket as soon as it is sent.
int TestUpnpAllocations::allocationsFor(const char *datagram)
{
    if (!m_peer->send(datagram, deviceAddress, ssdpPort))
        qFatal("the datagram could not be sent");
    const int before = allocationCount();
    m_receiver->processDatagrams();
    const int made = allocationCount() - before;
    m_answer = m_peer->receiveNow();
    return made;
}

void TestUpnpAllocations::allocationsAreCounted()
{
    const int before = allocationCount();
    const QScopedPointer<QByteArray> text(new QByteArray(100, 'x')); // the object, and what is in it
    QCOMPARE(allocationCount() - before, 2);
    text->resize(5000);
    QCOMPARE(allocationCount() - before, 3);
}

void TestUpnpAllocations::searchIsAnsweredWithFew()
{
    // The least of some: a text that is kept for a second, as a date may be, is made anew in one of them at most.
    int made = allocationsFor(search);
    for (int i = 0; i < 2; ++i)
        made = qMin(made, allocationsFor(search));
    QVERIFY(m_answer.startsWith("HTTP/1.1 200 OK\r\n"));
    QVERIFY2(made <= mostForAnAnswer, QByteArray::number(made).constData());
}

void TestUpnpAllocations::whatIsNoSearchIsDroppedWithFew()
{
    const int made = allocationsFor(announcementOfAnother);
    QVERIFY(m_answer.isEmpty());
    QVERIFY2(made <= mostForNoAnswer, QByteArray::number(made).constData());
}

void TestUpnpAllocations::dateIsMadeWithoutTheTablesOfOtherLanguages()
{
    localdate::text(0, localdate::TwoDigits, localdate::Utf8); // what is made once is made
    for (qint64 moment = 0; moment < Q_INT64_C(2000000000000); moment += Q_INT64_C(99999999999)) {
        const int before = allocationCount();
        localdate::text(moment, localdate::NoLeadingZero, localdate::Local8Bit);
        const int made = allocationCount() - before;
        QVERIFY2(made <= mostForADate, QByteArray::number(made).constData());
    }
}

QTEST_MAIN(TestUpnpAllocations)
#include "tst_upnpallocations.moc"
