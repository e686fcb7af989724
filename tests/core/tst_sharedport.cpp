#include "sharedport.h"

#include "fewerdescriptors.h"

#include <QtTest/QtTest>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

static const quint16 port = 31416;
static const QUdpSocket::BindMode mode = QUdpSocket::ShareAddress;

typedef QList<int> Options;
Q_DECLARE_METATYPE(Options)

// A program that has the port, with these socket options.
class Other
{
public:
    explicit Other(const Options &options)
        : m_descriptor(socket(AF_INET, SOCK_DGRAM, 0))
    {
        const int on = 1;
        for (int i = 0; i < options.size(); ++i)
            setsockopt(m_descriptor, SOL_SOCKET, options.at(i), &on, sizeof on);
        struct sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        m_isBound = bind(m_descriptor, reinterpret_cast<struct sockaddr *>(&address), sizeof address) == 0;
    }
    ~Other() { close(m_descriptor); }

    bool isBound() const { return m_isBound; }

private:
    Q_DISABLE_COPY(Other)

    int m_descriptor;
    bool m_isBound;
};

class TestSharedPort : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void isSharedWhoeverIsFirst_data();
    void isSharedWhoeverIsFirst();
    void unsharedPortIsAnError();
    void portThatBecomesFreeIsHadLater();
    void missingDescriptorIsAnError();
};

static Options options(int first = 0, int second = 0)
{
    Options both;
    if (first)
        both << first;
    if (second)
        both << second;
    return both;
}

void TestSharedPort::initTestCase()
{
    qRegisterMetaType<Options>("Options");
}

void TestSharedPort::isSharedWhoeverIsFirst_data()
{
    QTest::addColumn<Options>("options");

    QTest::newRow("SO_REUSEADDR") << options(SO_REUSEADDR);
    QTest::newRow("SO_REUSEPORT") << options(SO_REUSEPORT);
    QTest::newRow("both") << options(SO_REUSEADDR, SO_REUSEPORT);
}

void TestSharedPort::isSharedWhoeverIsFirst()
{
    QFETCH(Options, options);
    {
        const Other first(options);
        QVERIFY(first.isBound());
        QUdpSocket socket;
        QVERIFY(bindShared(&socket, port, mode));
        QCOMPARE(socket.state(), QAbstractSocket::BoundState);
        QCOMPARE(socket.localPort(), port);
        QCOMPARE(socket.localAddress(), QHostAddress(QLatin1String("0.0.0.0")));
    }
    QUdpSocket socket;
    QVERIFY(bindShared(&socket, port, mode));
    const Other second(options);
    QVERIFY(second.isBound());
}

void TestSharedPort::unsharedPortIsAnError()
{
    const Other other((Options()));
    QVERIFY(other.isBound());
    QUdpSocket socket;
    QVERIFY(!bindShared(&socket, port, mode));
    QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(socket.error(), QAbstractSocket::AddressInUseError);
    QCOMPARE(socket.errorString(), QString::fromLatin1("The bound address is already in use"));
}

void TestSharedPort::portThatBecomesFreeIsHadLater()
{
    QUdpSocket socket;
    {
        const Other other((Options()));
        QVERIFY(!bindShared(&socket, port, mode));
    }
    QVERIFY(bindShared(&socket, port, mode));
    const Other second(options(SO_REUSEPORT));
    QVERIFY(second.isBound());
}

void TestSharedPort::missingDescriptorIsAnError()
{
    QUdpSocket socket;
    {
        const FewerDescriptors none(0);
        QVERIFY(!bindShared(&socket, port, mode));
    }
    QVERIFY(bindShared(&socket, port, mode));
}

QTEST_MAIN(TestSharedPort)
#include "tst_sharedport.moc"
