#include "qtcompat.h"

#include "qtversions.h"

#include <QtNetwork/QHostAddress>
#include <QtNetwork/QUdpSocket>
#include <QtTest/QtTest>

static QList<QByteArray> received;

static void receive(QtMsgType type, const char *text)
{
    received << QByteArray::number(int(type)) + ' ' + text;
}

class TestQtCompat : public QObject
{
    Q_OBJECT

private slots:
    void sinkReceivesEveryMessageOnce();
    void lastSinkReceivesTheMessages();
    void watcherSeesMessagesAfterTheSink();
    void anyIPv4IsTheWildcardOfIPv4Alone();
    void exactTimersDoNotDrift();
    void messagesPassWhileTheEarlyBusIsConnectedToAndAfterwards();
};

static QByteArray typed(QtMsgType type, const char *text)
{
    return QByteArray::number(int(type)) + ' ' + text;
}

void TestQtCompat::sinkReceivesEveryMessageOnce()
{
    received.clear();
    qtcompat::installMessageSink(receive);
    qDebug("some %s", "debug");
    qWarning("some warning");
    qCritical("some %d", 7);
    const QList<QByteArray> seen = received;
    QCOMPARE(seen, QList<QByteArray>() << typed(QtDebugMsg, "some debug") << typed(QtWarningMsg, "some warning") << typed(QtCriticalMsg, "some 7"));
}

static void refuse(QtMsgType, const char *)
{
    received << "refused";
}

void TestQtCompat::lastSinkReceivesTheMessages()
{
    received.clear();
    qtcompat::installMessageSink(refuse);
    qtcompat::installMessageSink(receive);
    qWarning("once");
    QCOMPARE(received, QList<QByteArray>() << typed(QtWarningMsg, "once"));
}

static void watch(QtMsgType type, const char *text)
{
    received << "watched " + typed(type, text);
}

void TestQtCompat::watcherSeesMessagesAfterTheSink()
{
    received.clear();
    qtcompat::installMessageSink(receive);
    qtcompat::watchMessages(watch);
    qWarning("once");
    QCOMPARE(received, QList<QByteArray>() << typed(QtWarningMsg, "once") << "watched " + typed(QtWarningMsg, "once"));
}

void TestQtCompat::anyIPv4IsTheWildcardOfIPv4Alone()
{
    QUdpSocket socket;
    QVERIFY(socket.bind(qtcompat::anyIPv4<QHostAddress>(), 0));
    QCOMPARE(socket.localAddress().protocol(), QAbstractSocket::IPv4Protocol);
    QCOMPARE(socket.localAddress().toString(), QString::fromLatin1("0.0.0.0"));
}

void TestQtCompat::exactTimersDoNotDrift()
{
    QObject object;
    QVERIFY(qtcompat::startExactTimer(&object, 100000) != 0);
    QCOMPARE(qtversions::timerPeriods(&object), QList<int>() << 100000);
}

// In the place of QDBusConnection
struct TalkativeBus
{
    static TalkativeBus systemBus()
    {
        qWarning("the bus says something");
        return TalkativeBus();
    }
};

// That Qt 4's own warning does not pass is held by the tests of the daemon whose log stays empty.
void TestQtCompat::messagesPassWhileTheEarlyBusIsConnectedToAndAfterwards()
{
    received.clear();
    qtcompat::installMessageSink(receive);
    qtcompat::earlySystemBus<TalkativeBus>();
    qDebug("afterwards");
    QCOMPARE(received, QList<QByteArray>() << typed(QtWarningMsg, "the bus says something") << typed(QtDebugMsg, "afterwards"));
}

QTEST_MAIN(TestQtCompat)

#include "tst_qtcompat.moc"
