#include "pngsize.h"
#include "procnet.h"

#include <QtTest/QtTest>

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

class TestCtlNetwork : public QObject
{
    Q_OBJECT

private slots:
    void udpSockets();
    void tcpSockets();
    void tablesThatAreNone();
    void groups();
    void pictures_data();
    void pictures();
};

// As Linux 6.1 writes them
static const char udp[]
    = "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode ref pointer drops             \n"
      " 1202: 00000000:076C 00000000:0000 07 00000000:00000000 00:00000000 00000000   997        0 77193 2 0000000000000000 0           \n"
      " 3214: 0100007F:7AB8 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 77190 2 0000000000000000 0           \n";
static const char tcp[]
    = "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode                                    "
      "                 \n"
      "   0: 00000000:2008 00000000:0000 0A 00000000:00000000 00:00000000 00000000   997        0 77196 1 0000000000000000 100 0 0 10 0  \n"
      "   1: 02004D0A:2008 03004D0A:D431 01 00000000:00000000 00:00000000 00000000   997        0 77310 1 0000000000000000 20 4 0 10 -1  \n";
static const char igmp[]
    = "Idx\tDevice    : Count Querier\tGroup    Users Timer\tReporter\n"
      "1\tlo        :     1      V3\n"
      "\t\t\t\t010000E0     1 0:00000000\t\t0\n"
      "2\teth0      :     3      V3\n"
      "\t\t\t\tFAFFFFEF     1 0:00000000\t\t0\n"
      "\t\t\t\t4C4DFFEF     2 0:00000000\t\t0\n"
      "\t\t\t\t010000E0     1 0:00000000\t\t0\n";

void TestCtlNetwork::udpSockets()
{
    const QList<procnet::Socket> sockets = procnet::sockets(udp);
    QCOMPARE(sockets.size(), 2);
    QCOMPARE(sockets.at(0).address, latin1("0.0.0.0"));
    QCOMPARE(int(sockets.at(0).port), 1900);
    QCOMPARE(sockets.at(0).user, qint64(997));
    QVERIFY(!sockets.at(0).isListening);
    QCOMPARE(sockets.at(1).address, latin1("127.0.0.1"));
    QCOMPARE(int(sockets.at(1).port), 31416);
    QCOMPARE(sockets.at(1).user, qint64(0));
}

void TestCtlNetwork::tcpSockets()
{
    const QList<procnet::Socket> sockets = procnet::sockets(tcp);
    QCOMPARE(sockets.size(), 2);
    QCOMPARE(int(sockets.at(0).port), 8200);
    QVERIFY(sockets.at(0).isListening);
    QCOMPARE(sockets.at(1).address, latin1("10.77.0.2"));
    QVERIFY(!sockets.at(1).isListening);
}

void TestCtlNetwork::tablesThatAreNone()
{
    QVERIFY(procnet::sockets(QByteArray()).isEmpty());
    QVERIFY(procnet::sockets("head\n\n 1: x\n 2: 3 4 5 6 7 8 9\n").isEmpty());
    QVERIFY(procnet::groups(QByteArray()).isEmpty());
    QCOMPARE(procnet::table("nothing"), QByteArray());
    QVERIFY(procnet::table("udp").startsWith("  "));
}

void TestCtlNetwork::groups()
{
    const QMap<QString, QStringList> found = procnet::groups(igmp);
    QCOMPARE(QStringList(found.keys()), QStringList() << latin1("eth0") << latin1("lo"));
    QCOMPARE(found.value(latin1("eth0")), QStringList() << latin1("239.255.255.250") << latin1("239.255.77.76") << latin1("224.0.0.1"));
    QCOMPARE(found.value(latin1("lo")), QStringList() << latin1("224.0.0.1"));
}

void TestCtlNetwork::pictures_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<bool>("isPng");
    const QByteArray png("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\x30\0\0\1\2", 24);
    QTest::newRow("PNG") << png << true;
    QTest::newRow("more behind") << png + "x" << true;
    QTest::newRow("cut") << png.left(23) << false;
    QTest::newRow("empty") << QByteArray() << false;
    QTest::newRow("another") << QByteArray(24, 'x') << false;
}

void TestCtlNetwork::pictures()
{
    QFETCH(QByteArray, file);
    QFETCH(bool, isPng);
    const PngSize size = pngSize(file);
    QCOMPARE(size.isPng, isPng);
    QCOMPARE(size.width, isPng ? 48u : 0u);
    QCOMPARE(size.height, isPng ? 258u : 0u);
}

QTEST_MAIN(TestCtlNetwork)
#include "tst_ctlnetwork.moc"
