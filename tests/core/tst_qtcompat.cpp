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
    void filteredMessagesReachNobody();
    void anyIPv4IsTheWildcardOfIPv4Alone();
    void exactTimersDoNotDrift();
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

static bool isHarmless(const char *text)
{
    return qstrcmp(text, "harmful") != 0;
}

void TestQtCompat::filteredMessagesReachNobody()
{
    received.clear();
    qtcompat::installMessageSink(receive);
    qtcompat::filterMessages(isHarmless);
    qWarning("before");
    qWarning("harmful");
    qDebug("behind");
    QCOMPARE(received, QList<QByteArray>() << typed(QtWarningMsg, "before") << typed(QtDebugMsg, "behind"));
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
    QCOMPARE(qtversions::exactTimerPeriods(&object), QList<int>() << 100000);
}

QTEST_MAIN(TestQtCompat)

#include "tst_qtcompat.moc"
