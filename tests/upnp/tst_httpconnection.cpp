#include "httpconnection.h"

#include "bytes.h"
#include "qtcompat.h"
#include "waitfor.h"

#include <QtCore/QScopedPointer>
#include <QtNetwork/QTcpServer>
#include <QtTest/QtTest>

// Keeps the one connection that it accepts.
class Server : public QTcpServer
{
public:
    Server()
        : connection(new HttpConnection(this))
    {
    }

    HttpConnection *connection;

protected:
    void incomingConnection(qtcompat::SocketDescriptor descriptor) override { connection->setSocketDescriptor(descriptor); }
};

class TestHttpConnection : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void lineIsTakenWithItsEnd_data();
    void lineIsTakenWithItsEnd();
    void lineInPiecesIsTakenWhole();
    void linesAreTakenOneByOne();
    void withoutALineEndThereIsNothing();
    void nextLineStartsAfresh();
    void zeroBytesAreKept();
    void lineOfTheGreatestLengthIsKeptWhole();
    void ofALongerLineTheBeginningIsKept();
    void lineAfterALongOneIsTaken();
    void peerIsHeldBackWhenNobodyTakes();
    void whatAllKeepTogetherDecidesHowLongALineMayGrow();

private:
    void send(const QByteArray &bytes);
    bool takeWhenThere(QByteArray *line);

    QScopedPointer<Server> m_server;
    QScopedPointer<QTcpSocket> m_peer;
    HttpConnection *m_connection;
};

void TestHttpConnection::init()
{
    m_server.reset(new Server);
    m_connection = m_server->connection;
    QVERIFY(m_server->listen(QHostAddress::LocalHost));
    m_peer.reset(new QTcpSocket);
    m_peer->connectToHost(QHostAddress::LocalHost, m_server->serverPort());
    QVERIFY(waitFor([this] { return m_peer->state() == QAbstractSocket::ConnectedState && m_connection->state() == QAbstractSocket::ConnectedState; }));
}

void TestHttpConnection::cleanup()
{
    m_peer.reset();
    m_server.reset();
}

void TestHttpConnection::send(const QByteArray &bytes)
{
    QCOMPARE(m_peer->write(bytes), qint64(bytes.size()));
}

bool TestHttpConnection::takeWhenThere(QByteArray *line)
{
    return waitFor([&] { return m_connection->takeLine(line); });
}

void TestHttpConnection::lineIsTakenWithItsEnd_data()
{
    QTest::addColumn<QByteArray>("line");

    QTest::newRow("customary") << QByteArray("GET / HTTP/1.1\r\n");
    QTest::newRow("line feed alone") << QByteArray("GET /\n");
    QTest::newRow("empty") << QByteArray("\r\n");
    QTest::newRow("nothing but the end") << QByteArray("\n");
    QTest::newRow("carriage returns inside") << QByteArray("GET\r\r/\r\n");
}

void TestHttpConnection::lineIsTakenWithItsEnd()
{
    QFETCH(QByteArray, line);
    send(line);
    QByteArray taken;
    QVERIFY(takeWhenThere(&taken));
    QVERIFY(compareBytes(taken, line));
}

void TestHttpConnection::lineInPiecesIsTakenWhole()
{
    QByteArray taken = "untouched";
    const char *const pieces[] = { "GET /root", "Desc.xml HT", "TP/1.1\r" };
    int sent = 0;
    for (const char *piece : pieces) {
        send(piece);
        sent += int(qstrlen(piece));
        QVERIFY(waitFor([&] { return m_connection->bytesAvailable() > 0; }));
        QVERIFY(!m_connection->takeLine(&taken));
        QCOMPARE(taken, QByteArray("untouched"));
    }
    QCOMPARE(sent, 27);
    send("\n");
    QVERIFY(takeWhenThere(&taken));
    QVERIFY(compareBytes(taken, "GET /rootDesc.xml HTTP/1.1\r\n"));
}

void TestHttpConnection::linesAreTakenOneByOne()
{
    send("HEAD / HTTP/1.1\r\nGET / HTTP/1.1\r\nrest");
    QByteArray taken;
    QVERIFY(takeWhenThere(&taken));
    QVERIFY(compareBytes(taken, "HEAD / HTTP/1.1\r\n"));
    QVERIFY(m_connection->takeLine(&taken));
    QVERIFY(compareBytes(taken, "GET / HTTP/1.1\r\n"));
    QVERIFY(!m_connection->takeLine(&taken));
}

void TestHttpConnection::withoutALineEndThereIsNothing()
{
    QByteArray taken = "untouched";
    QVERIFY(!m_connection->takeLine(&taken));
    send("GET / HTTP/1.1\r");
    QVERIFY(waitFor([this] { return m_connection->bytesAvailable() == 15; }));
    QVERIFY(!m_connection->takeLine(&taken));
    QCOMPARE(taken, QByteArray("untouched"));
}

void TestHttpConnection::nextLineStartsAfresh()
{
    QByteArray taken;
    send("first");
    QVERIFY(waitFor([this] { return m_connection->bytesAvailable() == 5; }));
    QVERIFY(!m_connection->takeLine(&taken));
    send(" line\n");
    QVERIFY(takeWhenThere(&taken));
    send("second line\n");
    QVERIFY(takeWhenThere(&taken));
    QVERIFY(compareBytes(taken, "second line\n"));
}

void TestHttpConnection::zeroBytesAreKept()
{
    const QByteArray line("GET /\0x HTTP/1.1\r\n", 18);
    send(line);
    QByteArray taken;
    QVERIFY(takeWhenThere(&taken));
    QVERIFY(compareBytes(taken, line));
}

void TestHttpConnection::lineOfTheGreatestLengthIsKeptWhole()
{
    const QByteArray line = QByteArray(1024 * 1024 + 4095, 'a') + '\n';
    send(line);
    QByteArray taken;
    QVERIFY(takeWhenThere(&taken));
    QCOMPARE(taken.size(), line.size());
    QVERIFY(taken == line);
}

void TestHttpConnection::ofALongerLineTheBeginningIsKept()
{
    const QByteArray beginning = "GET /rootDesc.xml ";
    send(beginning + QByteArray(8 * 1024 * 1024, 'a') + "\r\n");
    QByteArray taken;
    qint64 mostWaiting = 0;
    QVERIFY(waitFor([&] {
        mostWaiting = qMax(mostWaiting, m_connection->bytesAvailable());
        return m_connection->takeLine(&taken);
    }));
    QVERIFY(mostWaiting <= 64 * 1024);
    QCOMPARE(taken.size(), 1024 * 1024 + 4096);
    QVERIFY(taken.startsWith(beginning + "aaaa"));
    QCOMPARE(m_connection->bytesAvailable(), qint64(0));
}

void TestHttpConnection::lineAfterALongOneIsTaken()
{
    send(QByteArray(3 * 1024 * 1024, 'a') + "\r\nGET / HTTP/1.1\r\n");
    QByteArray taken;
    QVERIFY(takeWhenThere(&taken));
    QVERIFY(takeWhenThere(&taken));
    QVERIFY(compareBytes(taken, "GET / HTTP/1.1\r\n"));
}

void TestHttpConnection::peerIsHeldBackWhenNobodyTakes()
{
    // Far more than what the kernel holds for both ends.
    const int size = 64 * 1024 * 1024;
    send(QByteArray(size, 'a') + '\n');
    QVERIFY(waitFor([this] { return m_connection->bytesAvailable() == 64 * 1024; }));
    QVERIFY(m_peer->bytesToWrite() > 0);
    QByteArray taken;
    QVERIFY(takeWhenThere(&taken));
    QCOMPARE(taken.size(), 1024 * 1024 + 4096);
    QCOMPARE(m_peer->bytesToWrite(), qint64(0));
}

// Each connection has one line that never ends.
class ManyLines : public QTcpServer
{
public:
    // Has another connection keep so many bytes; returns false when it does not get them.
    bool add(int bytes)
    {
        QTcpSocket *peer = new QTcpSocket(this);
        const int before = m_connections.size();
        peer->connectToHost(QHostAddress::LocalHost, serverPort());
        if (!waitFor([&] { return m_connections.size() > before && peer->state() == QAbstractSocket::ConnectedState; }))
            return false;
        m_peers.append(peer);
        peer->write(QByteArray(bytes, 'a'));
        int left = bytes;
        return waitFor([&] {
            const int ready = int(m_connections.last()->bytesAvailable());
            if (ready < qMin(left, 4097)) // a short line in one piece
                return false;
            QByteArray none;
            if (m_connections.last()->takeLine(&none))
                return false;
            left -= ready;
            return left == 0;
        });
    }

    // How many bytes the line of the last one has, line end not included.
    int lineOfTheLast()
    {
        m_peers.last()->write("\n");
        QByteArray line;
        if (!waitFor([&] { return m_connections.last()->takeLine(&line); }))
            return -1;
        return line.count('a');
    }

protected:
    void incomingConnection(qtcompat::SocketDescriptor descriptor) override
    {
        m_connections.append(new HttpConnection(this));
        m_connections.last()->setSocketDescriptor(descriptor);
    }

private:
    QList<HttpConnection *> m_connections;
    QList<QTcpSocket *> m_peers;
};

void TestHttpConnection::whatAllKeepTogetherDecidesHowLongALineMayGrow()
{
    const int most = 1024 * 1024 + 4096;
    const int together = 32 * 1024 * 1024;
    for (int round = 0; round < 2; ++round) { // connections that are gone keep nothing
        ManyLines lines;
        QVERIFY(lines.listen(QHostAddress::LocalHost));
        for (int left = together; left > 0; left -= most)
            QVERIFY(lines.add(qMin(left, most)));
        // The bound itself is not exceeded; with one byte more it is.
        QVERIFY(lines.add(4097));
        QCOMPARE(lines.lineOfTheLast(), 4097);
        QVERIFY(lines.add(1));
        QVERIFY(lines.add(4097));
        QCOMPARE(lines.lineOfTheLast(), 4096);
    }
}

QTEST_MAIN(TestHttpConnection)

#include "tst_httpconnection.moc"
