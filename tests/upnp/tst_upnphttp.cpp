#include "upnphttp.h"

#include "bytes.h"
#include "caughtlog.h"
#include "fakedevice.h"
#include "fewerdescriptors.h"
#include "filesender.h"
#include "network.h"
#include "ownprogram.h"
#include "peer.h"
#include "qtversions.h"
#include "upnpsettings.h"
#include "waitfor.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QScopedPointer>
#include <QtCore/QSocketNotifier>
#include <QtCore/QTimerEvent>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QtTest>

#include <cerrno>
#include <cstdio>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

static const char descriptionRequest[] = "GET /rootDesc.xml HTTP/1.1\r\nHost: 10.77.0.2:8200\r\n\r\n";
static const char iconRequest[] = "GET /icons/kelta_icon48.png HTTP/1.1\r\n\r\n";
static const char iconFile[] = "/var/www/icons/kelta_icon48.png";

static int errorOfAnswer = 0;

// The program's own comes before that of the C library. Only the next answer meets the error.
extern "C" ssize_t send(int descriptor, const void *bytes, size_t size, int flags)
{
    if (errorOfAnswer != 0 && QByteArray(static_cast<const char *>(bytes), int(size)).startsWith("HTTP/1.1 200")) {
        errno = errorOfAnswer;
        errorOfAnswer = 0;
        return -1;
    }
    return ssize_t(syscall(SYS_sendto, descriptor, bytes, size, flags, nullptr, 0));
}

class TestUpnpHttp : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void descriptionIsServed_data();
    void descriptionIsServed();
    void linkLocalPeersGetTheLinkLocalDescription_data();
    void linkLocalPeersGetTheLinkLocalDescription();
    void valuesAreThoseOfTheMoment();
    void requestThatComesWholeNeedsNoSocketOfQt_data();
    void requestThatComesWholeNeedsNoSocketOfQt();
    void connectionThatEndedWithoutARequestNeedsNoSocketOfQt_data();
    void connectionThatEndedWithoutARequestNeedsNoSocketOfQt();
    void requestInTwoSegmentsIsAnsweredAfterTheSecond();
    void otherMethodsAreNeverAnsweredAndStayOpen_data();
    void otherMethodsAreNeverAnsweredAndStayOpen();
    void otherPathsAreNotFound_data();
    void otherPathsAreNotFound();
    void oneLineIsJudgedPerSignal();
    void everyGetIsLoggedWithItsPeer();
    void onlyGetsAreLogged();
    void connectionsAreForgottenWhenThePeerLeaves();
    void quietConnectionIsServedWhenItsRequestComes();
    void quietConnectionsAreForgottenWhenThePeerLeaves();
    void quietConnectionsEndWithTheServer();
    void requestOfWhichThePeerIsDoneWritingIsAnswered();
    void answerLargerThanTheSendBufferArrivesWhole();
    void answerThatFindsNoRoomIsSentLater();
    void answerThatCannotBeSentEndsTheConnection();

    void missingIconIsABareText();
    void iconIsServed_data();
    void iconIsServed();
    void pausingReaderGetsTheWholeIconWhileOthersAreServed();
    void peersThatReadTheSameIconShareItsDescriptor();
    void iconOfAnotherFileSystemIsAnotherIcon();
    void whatIsNoRegularFileIsNoIcon_data();
    void whatIsNoRegularFileIsNoIcon();
    void servedIconsLeaveNoDescriptors();
    void answersAreCounted();
    void peersThatResetAreNoMatter_data();
    void peersThatResetAreNoMatter();
    void lineWithoutEndIsAnsweredAtItsEnd();
    void whatFollowsTheRequestIsIgnored();
    void requestsOfEverySizeAreServed_data();
    void requestsOfEverySizeAreServed();
    void whatStandsBehindTheLargestShortRequestResetsNothing();
    void headersThatComeAfterTheAnswerResetNothing_data();
    void headersThatComeAfterTheAnswerResetNothing();
    void peersWaitWhenDescriptorsAreScarceAndAreServedLater();
    void requestsLeaveDescriptorsFree_data();
    void requestsLeaveDescriptorsFree();
    void answersSentInPartsLeaveDescriptorsFree();
    void takenPortGoesUnnoticed();
    void listeningIsTriedAgainEverySecondUntilItSucceeds();
    void listeningIsNotTriedAgainOnceThePortIsTaken();
    void qtDoesNotAcceptByItself();

private:
    bool isServed();
    bool isSilentAndOpen(Peer *peer);
    void checkThatDescriptorsStayFree(const QByteArray &holder);
    void writeIcon(const QByteArray &content);

    QScopedPointer<FakeDevice> m_device;
    QScopedPointer<UpnpHttp> m_server;
};

void TestUpnpHttp::init()
{
    m_device.reset(new FakeDevice);
    m_server.reset(new UpnpHttp(m_device->settings(), nullptr));
}

void TestUpnpHttp::cleanup()
{
    m_server.reset();
    m_device.reset();
    QFile::remove(QLatin1String(iconFile));
}

static QByteArray descriptionAnswer(const QByteArray &answer)
{
    return withDateOf(answer, "Date: ", "ddd, dd MMM yyyy hh:mm:ss", testData("description_header.msg")) + testData("rootdesc.xml");
}

static QByteArray iconAnswer(const QByteArray &answer, const QByteArray &icon)
{
    QByteArray header = withDateOf(answer, "Date: ", "ddd, dd MMM yyyy hh:mm:ss", testData("icon_header.msg"));
    return header.replace("3145728", QByteArray::number(icon.size())) + icon;
}

// A whole exchange with another peer; when it is over, the server has seen everything that was sent before.
bool TestUpnpHttp::isServed()
{
    Peer peer;
    return peer.isConnected() && peer.send(descriptionRequest) && peer.readToEnd()
        && compareBytes(peer.received(), descriptionAnswer(peer.received()));
}

bool TestUpnpHttp::isSilentAndOpen(Peer *peer)
{
    return isServed() && !peer->isAtEnd() && peer->received().isEmpty();
}

void TestUpnpHttp::writeIcon(const QByteArray &content)
{
    QVERIFY(QDir().mkpath(text("/var/www/icons")));
    QFile file(QString::fromLatin1(iconFile));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), qint64(content.size()));
}

void TestUpnpHttp::descriptionIsServed_data()
{
    QTest::addColumn<QByteArray>("request");

    QTest::newRow("customary") << QByteArray(descriptionRequest);
    QTest::newRow("first line alone") << QByteArray("GET /rootDesc.xml HTTP/1.1\r\n");
    QTest::newRow("older protocol") << QByteArray("GET /rootDesc.xml HTTP/1.0\r\n\r\n");
    QTest::newRow("no protocol") << QByteArray("GET /rootDesc.xml\r\n");
    QTest::newRow("line feed alone") << QByteArray("GET /rootDesc.xml HTTP/1.1\n");
    QTest::newRow("two blanks") << QByteArray("GET  /rootDesc.xml HTTP/1.1\r\n");
    QTest::newRow("blanks and carriage returns") << QByteArray("GET \r \r/rootDesc.xml\r\r HTTP/1.1\r\n");
    QTest::newRow("zero byte behind the path") << QByteArray("GET /rootDesc.xml\0?a HTTP/1.1\r\n", 31);
}

void TestUpnpHttp::descriptionIsServed()
{
    QFETCH(QByteArray, request);
    Peer peer;
    QVERIFY(peer.send(request));
    QVERIFY(peer.readToEnd());
    QVERIFY(compareBytes(peer.received(), descriptionAnswer(peer.received())));
}

void TestUpnpHttp::linkLocalPeersGetTheLinkLocalDescription_data()
{
    QTest::addColumn<int>("firstPiece");

    QTest::newRow("whole request") << 0;
    QTest::newRow("in two pieces") << 11;
}

void TestUpnpHttp::linkLocalPeersGetTheLinkLocalDescription()
{
    QFETCH(int, firstPiece);
    const QByteArray request = descriptionRequest;
    QVERIFY(m_device->addLinkLocalAddress());
    Peer peer("169.254.7.8");
    if (firstPiece > 0) {
        QVERIFY(peer.send(request.left(firstPiece)));
        QVERIFY(isSilentAndOpen(&peer));
    }
    QVERIFY(peer.send(request.mid(firstPiece)));
    QVERIFY(peer.readToEnd());
    QByteArray header = withDateOf(peer.received(), "Date: ", "ddd, dd MMM yyyy hh:mm:ss", testData("description_header.msg"));
    QVERIFY(compareBytes(peer.received(), header.replace("Content-Length: 924\r\n", "Content-Length: 923\r\n") + testData("rootdesc_autoip.xml")));
    // Everybody else still gets the regular one.
    QVERIFY(isServed());
}

void TestUpnpHttp::valuesAreThoseOfTheMoment()
{
    QVERIFY(isServed());
    QVERIFY(network::ip("address del 192.168.1.20/24 dev eth0"));
    m_device->settings()->configureIp();
    Peer peer;
    QVERIFY(peer.send(descriptionRequest));
    QVERIFY(peer.readToEnd());
    QVERIFY(peer.received().contains("<URLBase>http://10.77.0.2/</URLBase>"));
    QVERIFY(peer.received().contains("Content-Length: 918\r\n"));
}

// Counts the children that an object gets.
class ChildCounter : public QObject
{
public:
    explicit ChildCounter(QObject *parent)
        : added(0)
    {
        parent->installEventFilter(this);
    }

    int added;

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        added += event->type() == QEvent::ChildAdded;
        return false;
    }
};

void TestUpnpHttp::requestThatComesWholeNeedsNoSocketOfQt_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<int>("sockets");

    QTest::newRow("description") << QByteArray(descriptionRequest) << 0;
    QTest::newRow("unknown path") << QByteArray("GET / HTTP/1.1\r\n\r\n") << 0;
    QTest::newRow("icon") << QByteArray(iconRequest) << 1;
}

// Such a socket costs several times as much as everything else.
void TestUpnpHttp::requestThatComesWholeNeedsNoSocketOfQt()
{
    QFETCH(QByteArray, request);
    QFETCH(int, sockets);
    const ChildCounter children(m_server.data());
    Peer peer;
    QVERIFY(peer.send(request));
    QVERIFY(peer.readToEnd());
    QVERIFY(!peer.received().isEmpty());
    QCOMPARE(children.added, sockets);
}

void TestUpnpHttp::connectionThatEndedWithoutARequestNeedsNoSocketOfQt_data()
{
    QTest::addColumn<bool>("isReset");

    QTest::newRow("closed") << false;
    QTest::newRow("reset") << true;
}

// Its end is known before the server looks for a request.
void TestUpnpHttp::connectionThatEndedWithoutARequestNeedsNoSocketOfQt()
{
    QFETCH(bool, isReset);
    const ChildCounter children(m_server.data());
    {
        Peer peer;
        QVERIFY(peer.isConnected());
        if (isReset)
            peer.reset();
    }
    QVERIFY(isServed());
    QCOMPARE(children.added, 0);
}

void TestUpnpHttp::requestInTwoSegmentsIsAnsweredAfterTheSecond()
{
    Peer peer;
    QVERIFY(peer.send("GET /rootDesc.xml HT"));
    QVERIFY(isSilentAndOpen(&peer));
    QVERIFY(peer.send("TP/1.1\r\n\r\n"));
    QVERIFY(peer.readToEnd());
    QVERIFY(compareBytes(peer.received(), descriptionAnswer(peer.received())));
}

void TestUpnpHttp::otherMethodsAreNeverAnsweredAndStayOpen_data()
{
    QTest::addColumn<QByteArray>("request");

    QTest::newRow("HEAD") << QByteArray("HEAD /rootDesc.xml HTTP/1.1\r\n\r\n");
    QTest::newRow("lower case") << QByteArray("get /rootDesc.xml HTTP/1.1\r\n\r\n");
    QTest::newRow("POST") << QByteArray("POST /rootDesc.xml HTTP/1.1\r\nContent-Length: 1\r\n\r\nx");
    QTest::newRow("longer method") << QByteArray("GETX /rootDesc.xml HTTP/1.1\r\n\r\n");
    QTest::newRow("tab after the method") << QByteArray("GET\t/rootDesc.xml HTTP/1.1\r\n\r\n");
    QTest::newRow("blank before the method") << QByteArray(" GET /rootDesc.xml HTTP/1.1\r\n\r\n");
    QTest::newRow("empty line first") << QByteArray("\r\nGET /rootDesc.xml HTTP/1.1\r\n");
    QTest::newRow("zero byte in the method") << QByteArray("GE\0T /rootDesc.xml HTTP/1.1\r\n", 29);
    QTest::newRow("no line end") << QByteArray("GET /rootDesc.xml HTTP/1.1\r");
}

void TestUpnpHttp::otherMethodsAreNeverAnsweredAndStayOpen()
{
    QFETCH(QByteArray, request);
    Peer peer;
    QVERIFY(peer.send(request));
    QVERIFY(isSilentAndOpen(&peer));
}

void TestUpnpHttp::otherPathsAreNotFound_data()
{
    QTest::addColumn<QByteArray>("request");

    QTest::newRow("query") << QByteArray("GET /rootDesc.xml?a=b HTTP/1.1\r\n");
    QTest::newRow("slash at the end") << QByteArray("GET /rootDesc.xml/ HTTP/1.1\r\n");
    QTest::newRow("lower case") << QByteArray("GET /rootdesc.xml HTTP/1.1\r\n");
    QTest::newRow("no slash") << QByteArray("GET rootDesc.xml HTTP/1.1\r\n");
    QTest::newRow("two slashes") << QByteArray("GET //rootDesc.xml HTTP/1.1\r\n");
    QTest::newRow("whole address") << QByteArray("GET http://10.77.0.2:8200/rootDesc.xml HTTP/1.1\r\n");
    QTest::newRow("tab behind the path") << QByteArray("GET /rootDesc.xml\tHTTP/1.1\r\n");
    QTest::newRow("root") << QByteArray("GET / HTTP/1.1\r\n");
    QTest::newRow("no path") << QByteArray("GET\r\n");
    QTest::newRow("other icon") << QByteArray("GET /icons/other.png HTTP/1.1\r\n");
    QTest::newRow("way out of the folder") << QByteArray("GET /icons/../../../etc/passwd HTTP/1.1\r\n");
}

void TestUpnpHttp::otherPathsAreNotFound()
{
    QFETCH(QByteArray, request);
    Peer peer;
    QVERIFY(peer.send(request));
    QVERIFY(peer.readToEnd());
    QVERIFY(compareBytes(peer.received(), testData("not_found.msg")));
}

void TestUpnpHttp::oneLineIsJudgedPerSignal()
{
    Peer peer;
    QVERIFY(peer.send("HEAD / HTTP/1.1\r\nPOST / HTTP/1.1\r\nGET /rootDesc.xml HTTP/1.1\r\n"));
    QVERIFY(isSilentAndOpen(&peer));
    QVERIFY(peer.send("x"));
    QVERIFY(isSilentAndOpen(&peer));
    QVERIFY(peer.send("x"));
    QVERIFY(peer.readToEnd());
    QVERIFY(compareBytes(peer.received(), descriptionAnswer(peer.received())));
}

void TestUpnpHttp::everyGetIsLoggedWithItsPeer()
{
    QVERIFY(m_device->addLinkLocalAddress());
    CaughtLog log;
    const char *const requests[] = { descriptionRequest, iconRequest, "GET /a?b HTTP/1.1\r\n", "GET\r\n" };
    for (const char *request : requests) {
        Peer peer("169.254.7.8");
        QVERIFY(peer.send(request));
        QVERIFY(peer.readToEnd());
    }
    QCOMPARE(log.lines(), QStringList() << text("debug: \"169.254.7.8\" \"/rootDesc.xml\"") << text("debug: \"169.254.7.8\" \"/icons/kelta_icon48.png\"") << text("debug: \"169.254.7.8\" \"/a?b\"") << text("debug: \"169.254.7.8\" \"\""));
}

void TestUpnpHttp::onlyGetsAreLogged()
{
    CaughtLog log;
    Peer peer;
    QVERIFY(peer.send("HEAD /rootDesc.xml HTTP/1.1\r\n"));
    QVERIFY(isSilentAndOpen(&peer));
    QCOMPARE(log.lines(), QStringList(text("debug: \"10.77.0.2\" \"/rootDesc.xml\"")));
}

void TestUpnpHttp::connectionsAreForgottenWhenThePeerLeaves()
{
    QVERIFY(isServed());
    {
        Peer peer;
        QVERIFY(peer.send("HEAD / HTTP/1.1\r\n"));
        QVERIFY(isSilentAndOpen(&peer));
        QVERIFY(waitFor([this] { return m_server->findChildren<QTcpSocket *>().size() == 1; }));
    }
    QVERIFY(waitFor([this] { return m_server->findChildren<QTcpSocket *>().isEmpty(); }));
}

static int openDescriptors()
{
    return int(QDir(text("/proc/self/fd")).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size());
}

void TestUpnpHttp::quietConnectionIsServedWhenItsRequestComes()
{
    Peer peer;
    QVERIFY(isSilentAndOpen(&peer));
    QVERIFY(peer.send(descriptionRequest));
    QVERIFY(peer.readToEnd());
    QVERIFY(compareBytes(peer.received(), descriptionAnswer(peer.received())));
}

void TestUpnpHttp::quietConnectionsAreForgottenWhenThePeerLeaves()
{
    QVERIFY(isServed());
    const int before = openDescriptors();
    {
        Peer closed;
        Peer reset;
        QVERIFY(isSilentAndOpen(&closed));
        QVERIFY(isSilentAndOpen(&reset));
        QCOMPARE(openDescriptors(), before + 4);
        reset.reset();
    }
    QVERIFY(waitFor([&] { return openDescriptors() == before; }));
    QVERIFY(isServed());
}

void TestUpnpHttp::quietConnectionsEndWithTheServer()
{
    Peer peer;
    QVERIFY(isSilentAndOpen(&peer));
    m_server.reset();
    QVERIFY(peer.readToEnd());
    QCOMPARE(peer.received(), QByteArray());
}

void TestUpnpHttp::requestOfWhichThePeerIsDoneWritingIsAnswered()
{
    Peer peer;
    QVERIFY(peer.send(descriptionRequest));
    peer.endWriting();
    QVERIFY(peer.readToEnd());
    QVERIFY(compareBytes(peer.received(), descriptionAnswer(peer.received())));
}

void TestUpnpHttp::answerLargerThanTheSendBufferArrivesWhole()
{
    m_server.reset();
    const QByteArray manufacturer(16 * 1024 * 1024, 'z');
    UpnpSettings settings(manufacturer, QByteArray(), QByteArray(), QByteArray(), QByteArray(), nullptr);
    m_server.reset(new UpnpHttp(&settings, nullptr));
    Peer peer;
    QVERIFY(peer.send(descriptionRequest));
    QVERIFY(peer.readToEnd());
    QVERIFY(peer.received().contains("<manufacturer>" + manufacturer + "</manufacturer>"));
    QVERIFY(peer.received().endsWith("</root>"));
    m_server.reset();
}

void TestUpnpHttp::answerThatFindsNoRoomIsSentLater()
{
    errorOfAnswer = EAGAIN;
    QVERIFY(isServed());
    QCOMPARE(errorOfAnswer, 0);
}

void TestUpnpHttp::answerThatCannotBeSentEndsTheConnection()
{
    errorOfAnswer = EPIPE;
    Peer peer;
    QVERIFY(peer.send(descriptionRequest));
    QVERIFY(peer.readToEnd());
    QCOMPARE(peer.received(), QByteArray());
    QCOMPARE(errorOfAnswer, 0);
    QVERIFY(isServed());
}

void TestUpnpHttp::missingIconIsABareText()
{
    Peer peer;
    QVERIFY(peer.send(iconRequest));
    QVERIFY(peer.readToEnd());
    QVERIFY(compareBytes(peer.received(), testData("icon_not_found.msg")));
}

void TestUpnpHttp::iconIsServed_data()
{
    QTest::addColumn<QByteArray>("icon");

    QTest::newRow("a few bytes") << QByteArray("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("zero bytes") << QByteArray(3000, '\0');
    QTest::newRow("a hundred kilobytes") << QByteArray(100000, 'i');
}

void TestUpnpHttp::iconIsServed()
{
    QFETCH(QByteArray, icon);
    writeIcon(icon);
    Peer peer;
    QVERIFY(peer.send(iconRequest));
    QVERIFY(peer.readToEnd());
    QVERIFY(compareBytes(peer.received(), iconAnswer(peer.received(), icon)));
}

void TestUpnpHttp::pausingReaderGetsTheWholeIconWhileOthersAreServed()
{
    QByteArray icon(24 * 1024 * 1024, '\0');
    for (int i = 0; i < icon.size(); ++i)
        icon[i] = char(i ^ (i >> 8) ^ (i >> 16));
    writeIcon(icon);
    Peer peer;
    QVERIFY(peer.send(iconRequest));
    for (int i = 0; i < 3; ++i) {
        QVERIFY(isServed());
        peer.read(1000);
    }
    QVERIFY(peer.received().size() <= 3000);
    QVERIFY(peer.readToEnd());
    QVERIFY(peer.received() == iconAnswer(peer.received(), icon));
}

void TestUpnpHttp::peersThatReadTheSameIconShareItsDescriptor()
{
    writeIcon(QByteArray(24 * 1024 * 1024, 'i'));
    QVERIFY(isServed());
    const int before = openDescriptors();
    Peer first;
    Peer second;
    QVERIFY(first.send(iconRequest));
    QVERIFY(second.send(iconRequest));
    QVERIFY(waitFor([this] { return m_server->findChildren<FileSender *>().size() == 2 && m_server->findChildren<QTcpSocket *>().isEmpty(); }));
    QCOMPARE(openDescriptors(), before + 5); // both ends of both connections, and the icon
    // Another file in its place is another icon.
    QVERIFY(QFile::remove(QLatin1String(iconFile)));
    writeIcon(QByteArray(24 * 1024 * 1024, 'j'));
    Peer third;
    QVERIFY(third.send(iconRequest));
    QVERIFY(waitFor([this] { return m_server->findChildren<FileSender *>().size() == 3 && m_server->findChildren<QTcpSocket *>().isEmpty(); }));
    QCOMPARE(openDescriptors(), before + 8);
}

// A file system in memory gives its first file the same number as another such.
void TestUpnpHttp::iconOfAnotherFileSystemIsAnotherIcon()
{
    QVERIFY(QDir().mkpath(text("/var/www/icons")));
    QByteArray icons[2];
    Peer peers[2];
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(mount("none", "/var/www/icons", "tmpfs", 0, nullptr), 0);
        icons[i] = QByteArray(24 * 1024 * 1024, char('i' + i));
        writeIcon(icons[i]);
        QVERIFY(peers[i].send(iconRequest));
        QVERIFY(waitFor([&] { return m_server->findChildren<FileSender *>().size() == i + 1; }));
    }
    for (int i = 0; i < 2; ++i) {
        QVERIFY(peers[i].readToEnd());
        QVERIFY(peers[i].received() == iconAnswer(peers[i].received(), icons[i]));
        QCOMPARE(umount2("/var/www/icons", MNT_DETACH), 0);
    }
}

void TestUpnpHttp::whatIsNoRegularFileIsNoIcon_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("folder") << int(S_IFDIR);
    QTest::newRow("pipe") << int(S_IFIFO);
    QTest::newRow("nothing") << 0;
}

void TestUpnpHttp::whatIsNoRegularFileIsNoIcon()
{
    QFETCH(int, type);
    QVERIFY(QDir().mkpath(text("/var/www/icons")));
    if (type == S_IFDIR)
        QCOMPARE(mkdir(iconFile, 0777), 0);
    else if (type == S_IFIFO)
        QCOMPARE(mkfifo(iconFile, 0777), 0);
    QVERIFY(isServed());
    const int before = openDescriptors();
    for (int i = 0; i < 3; ++i) {
        Peer peer;
        QVERIFY(peer.send(iconRequest));
        QVERIFY(peer.readToEnd());
        QVERIFY(compareBytes(peer.received(), testData("icon_not_found.msg")));
    }
    QVERIFY(waitFor([&] { return openDescriptors() == before; }));
    QCOMPARE(m_server->iconsServed(), Q_UINT64_C(0));
    std::remove(iconFile);
}

void TestUpnpHttp::servedIconsLeaveNoDescriptors()
{
    writeIcon(QByteArray(100000, 'i'));
    QVERIFY(isServed());
    const int before = openDescriptors();
    for (int i = 0; i < 3; ++i) {
        Peer peer;
        QVERIFY(peer.send(iconRequest));
        QVERIFY(peer.readToEnd());
    }
    QVERIFY(waitFor([&] { return openDescriptors() == before; }));
}

void TestUpnpHttp::answersAreCounted()
{
    QCOMPARE(m_server->descriptionsServed(), Q_UINT64_C(0));
    QCOMPARE(m_server->iconsServed(), Q_UINT64_C(0));
    writeIcon("icon");
    const char *const requests[] = { descriptionRequest, iconRequest, "GET / HTTP/1.1\r\n\r\n", iconRequest };
    for (const char *request : requests) {
        Peer peer;
        QVERIFY(peer.send(request));
        QVERIFY(peer.readToEnd());
    }
    QCOMPARE(m_server->descriptionsServed(), Q_UINT64_C(1));
    QCOMPARE(m_server->iconsServed(), Q_UINT64_C(2));
}

void TestUpnpHttp::peersThatResetAreNoMatter_data()
{
    QTest::addColumn<QByteArray>("request");

    QTest::newRow("description") << QByteArray(descriptionRequest);
    QTest::newRow("icon") << QByteArray(iconRequest);
    QTest::newRow("not found") << QByteArray("GET / HTTP/1.1\r\n");
    QTest::newRow("not answered") << QByteArray("HEAD / HTTP/1.1\r\n");
    QTest::newRow("half a line") << QByteArray("GET /roo");
    QTest::newRow("nothing") << QByteArray();
}

void TestUpnpHttp::peersThatResetAreNoMatter()
{
    QFETCH(QByteArray, request);
    writeIcon(QByteArray(24 * 1024 * 1024, 'i'));
    for (int i = 0; i < 5; ++i) {
        // At once, and after the server had its turn.
        Peer early;
        QVERIFY(early.send(request));
        early.reset();
        Peer late;
        QVERIFY(late.send(request));
        QVERIFY(isServed());
        late.reset();
    }
    QVERIFY(isServed());
    QVERIFY(waitFor([this] { return m_server->findChildren<QTcpSocket *>().isEmpty() && m_server->findChildren<FileSender *>().isEmpty(); }));
}

void TestUpnpHttp::lineWithoutEndIsAnsweredAtItsEnd()
{
    Peer peer;
    QVERIFY(peer.send("GET /" + QByteArray(8 * 1024 * 1024, 'a')));
    QVERIFY(isSilentAndOpen(&peer));
    QVERIFY(peer.send("\r\n"));
    QVERIFY(peer.readToEnd());
    QVERIFY(compareBytes(peer.received(), testData("not_found.msg")));
}

void TestUpnpHttp::whatFollowsTheRequestIsIgnored()
{
    Peer peer;
    QVERIFY(peer.send("GET /rootDesc.xml HTTP/1.1\r\nGET / HTTP/1.1\r\n\r\n"));
    QVERIFY(waitFor([&] {
        peer.read();
        return peer.received().endsWith("</root>");
    }));
    QVERIFY(compareBytes(peer.received(), descriptionAnswer(peer.received())));
}

// Up to 4095 bytes are answered without a QTcpSocket, from 4096 bytes on it is left to one.
void TestUpnpHttp::requestsOfEverySizeAreServed_data()
{
    QTest::addColumn<QByteArray>("request");

    const QByteArray end = " /rootDesc.xml\r\n";
    for (int size = 4095; size <= 4097; ++size) {
        const QByteArray line = "GET" + QByteArray(size - 3 - end.size(), ' ') + end;
        const QByteArray header = "GET /rootDesc.xml\r\nA:";
        QTest::newRow(qPrintable(QString::fromLatin1("line of %1 bytes").arg(size))) << line;
        QTest::newRow(qPrintable(QString::fromLatin1("line and header of %1 bytes").arg(size)))
            << header + QByteArray(size - header.size() - 2, 'x') + "\r\n";
    }
}

void TestUpnpHttp::requestsOfEverySizeAreServed()
{
    QFETCH(QByteArray, request);
    Peer peer;
    QVERIFY(peer.send(request));
    QVERIFY(peer.readToEnd());
    QVERIFY(compareBytes(peer.received(), descriptionAnswer(peer.received())));
}

// Its first 4096 bytes end like a request, and there is more: whoever closes behind them resets the connection.
void TestUpnpHttp::whatStandsBehindTheLargestShortRequestResetsNothing()
{
    const QByteArray line = "GET /rootDesc.xml\r\nA:";
    for (int more = 0; more <= 2; ++more) {
        Peer peer;
        QVERIFY(peer.send(line + QByteArray(4096 - line.size() - 4, 'x') + "\r\n\r\n" + QByteArray(more, 'x')));
        QVERIFY(peer.readToEnd());
        QVERIFY(compareBytes(peer.received(), descriptionAnswer(peer.received())));
    }
}

void TestUpnpHttp::headersThatComeAfterTheAnswerResetNothing_data()
{
    QTest::addColumn<QByteArray>("beginning");
    QTest::newRow("first line in one piece") << QByteArray();
    QTest::newRow("first line in two pieces") << QByteArray("GET /rootD");
}

void TestUpnpHttp::headersThatComeAfterTheAnswerResetNothing()
{
    QFETCH(QByteArray, beginning);
    Peer peer;
    QVERIFY(peer.send(beginning));
    QVERIFY(isSilentAndOpen(&peer));
    QVERIFY(peer.send(QByteArray("GET /rootDesc.xml HTTP/1.1\r\n").mid(beginning.size())));
    QVERIFY(waitFor([&] {
        peer.read();
        return peer.received().endsWith("</root>");
    }));
    for (int line = 0; line < 10; ++line)
        QVERIFY(peer.send("Accept: text/xml\r\n"));
    QVERIFY(peer.readToEnd());
    QVERIFY(compareBytes(peer.received(), descriptionAnswer(peer.received())));
}

void TestUpnpHttp::peersWaitWhenDescriptorsAreScarceAndAreServedLater()
{
    QProcess others;
    startOwnProgram(&others, "--hold-connections");
    QVERIFY(others.waitForStarted());
    const int before = openDescriptors();
    const int limit = before + 80;
    const FewerDescriptors lowered(limit);
    QVERIFY(waitFor([&] { return others.canReadLine(); }));
    QCOMPARE(others.readLine(), QByteArray("connected\n"));
    // The first of the last 16 numbers shows where they begin, the others stay free. Whoever looks takes one.
    const int taken = limit - 15 + 1;
    QVERIFY(waitFor([&] { return openDescriptors() >= taken; }));
    QCOMPARE(openDescriptors(), taken);

    Peer waiting;
    QVERIFY(waiting.isConnected());
    QVERIFY(waiting.send(descriptionRequest));
    QVERIFY(openDescriptors() < limit);
    others.closeWriteChannel();
    QVERIFY(waiting.readToEnd());
    QVERIFY(compareBytes(waiting.received(), descriptionAnswer(waiting.received())));
    QVERIFY(waitFor([&] { return others.state() == QProcess::NotRunning; }));
    QVERIFY(isServed());
}

// Their bytes are there when they are accepted, and their descriptors are held for what may follow.
void TestUpnpHttp::requestsLeaveDescriptorsFree_data()
{
    QTest::addColumn<QByteArray>("holder");
    QTest::newRow("answered, without an end") << QByteArray("--hold-gets");
    QTest::newRow("never answered") << QByteArray("--hold-posts");
}

void TestUpnpHttp::requestsLeaveDescriptorsFree()
{
    QFETCH(QByteArray, holder);
    checkThatDescriptorsStayFree(holder);
    QVERIFY(isServed());
}

void TestUpnpHttp::answersSentInPartsLeaveDescriptorsFree()
{
    m_server.reset();
    UpnpSettings settings(QByteArray(8 * 1024 * 1024, 'z'), QByteArray(), QByteArray(), QByteArray(), QByteArray(), nullptr);
    m_server.reset(new UpnpHttp(&settings, nullptr));
    checkThatDescriptorsStayFree("--hold-descriptions");
    m_server.reset();
}

void TestUpnpHttp::checkThatDescriptorsStayFree(const QByteArray &holder)
{
    QProcess others;
    startOwnProgram(&others, holder.constData());
    QVERIFY(others.waitForStarted());
    const int limit = openDescriptors() + 30;
    const FewerDescriptors lowered(limit);
    QVERIFY(others.waitForReadyRead()); // nothing is accepted meanwhile
    QCOMPARE(others.readLine(), QByteArray("sent\n"));
    const int taken = limit - limit / 4 + 1 + 1; // of so few a quarter stays free, but for the first of them
    QVERIFY(waitFor([&] { return openDescriptors() >= taken; }));
    QCOMPARE(openDescriptors(), taken);
    others.closeWriteChannel();
    QVERIFY(waitFor([&] { return others.state() == QProcess::NotRunning; }));
}

void TestUpnpHttp::takenPortGoesUnnoticed()
{
    CaughtLog log;
    const UpnpHttp second(m_device->settings(), nullptr);
    QVERIFY(!second.isListening());
    QVERIFY(m_server->isListening());
    QCOMPARE(m_server->serverPort(), quint16(8200));
    QCOMPARE(m_server->serverAddress().protocol(), QAbstractSocket::IPv4Protocol);
    QCOMPARE(log.lines(), QStringList());
}

void TestUpnpHttp::listeningIsTriedAgainEverySecondUntilItSucceeds()
{
    QTimerEvent itsTimer(0); // not made where there are no descriptors: the sanitizers need some to look at it
    QCOMPARE(qtversions::timerPeriods(m_server.data()), QList<int>());
    m_server.reset();
    CaughtLog log;
    {
        const FewerDescriptors none(0);
        m_server.reset(new UpnpHttp(m_device->settings(), nullptr));
        QCOMPARE(qtversions::timerPeriods(m_server.data()), QList<int>() << 1000);
        QCoreApplication::sendEvent(m_server.data(), &itsTimer);
        QCOMPARE(qtversions::timerPeriods(m_server.data()), QList<int>() << 1000);
    }
    QVERIFY(!m_server->isListening());
    QCoreApplication::sendEvent(m_server.data(), &itsTimer);
    QVERIFY(m_server->isListening());
    QCOMPARE(qtversions::timerPeriods(m_server.data()), QList<int>());
    QCOMPARE(log.lines(), QStringList());
    QVERIFY(isServed());
}

void TestUpnpHttp::listeningIsNotTriedAgainOnceThePortIsTaken()
{
    QTimerEvent itsTimer(0);
    QScopedPointer<UpnpHttp> second;
    {
        const FewerDescriptors none(0);
        second.reset(new UpnpHttp(m_device->settings(), nullptr));
    }
    QCOMPARE(qtversions::timerPeriods(second.data()), QList<int>() << 1000);
    QCoreApplication::sendEvent(second.data(), &itsTimer);
    QVERIFY(!second->isListening());
    QCOMPARE(qtversions::timerPeriods(second.data()), QList<int>());
    QVERIFY(isServed());
}

void TestUpnpHttp::qtDoesNotAcceptByItself()
{
    const QList<QSocketNotifier *> ofQt = m_server->findChildren<QSocketNotifier *>();
    QCOMPARE(ofQt.size(), 1);
    QCOMPARE(qint64(ofQt.first()->socket()), qint64(m_server->socketDescriptor()));
    QVERIFY(isServed());
    QVERIFY(!ofQt.first()->isEnabled());
}

// Another process tells that it holds connections to the server, and holds them until its standard input ends.
static int holdUntilTheEnd(const char *told)
{
    std::puts(told);
    std::fflush(stdout);
    while (std::getchar() != EOF) { }
    return 0;
}

static int holdConnections()
{
    Peer peers[100];
    for (const Peer &peer : peers) {
        if (!peer.isConnected())
            return 1;
    }
    return holdUntilTheEnd("connected");
}

static int holdRequests(const QByteArray &request)
{
    Peer peers[40]; // fewer than wait in the kernel while nobody accepts them
    for (Peer &peer : peers) {
        if (!peer.isConnected() || !peer.send(request))
            return 1;
    }
    return holdUntilTheEnd("sent");
}

int main(int argc, char *argv[])
{
    if (argc == 2 && QByteArray(argv[1]) == "--hold-connections")
        return holdConnections();
    if (argc == 2 && QByteArray(argv[1]) == "--hold-gets")
        return holdRequests("GET / HTTP/1.1\r\n");
    if (argc == 2 && QByteArray(argv[1]) == "--hold-descriptions")
        return holdRequests(descriptionRequest);
    if (argc == 2 && QByteArray(argv[1]) == "--hold-posts")
        return holdRequests("POST / HTTP/1.1\r\n");
    const QCoreApplication application(argc, argv);
    TestUpnpHttp test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_upnphttp.moc"
