#include "bytes.h"
#include "ssdpmessages.h"

#include <QtTest/QtTest>

static const char uuid[] = "4b1c9d3e-7a52-4f0e-9c1d-2f6f3a7b8e90";
static const char otherUuid[] = "00000000-1111-2222-3333-444444444444";

static qint64 marchFourth(int hour, int minute, int second)
{
    return QDateTime(QDate(2026, 3, 4), QTime(hour, minute, second)).toMSecsSinceEpoch();
}

static ssdp::Announcement announcement()
{
    return ssdp::Announcement{ "239.255.255.250:1900", "http://192.168.1.20:8200/", "Kelta/1.4.2, UPnP/1.0", uuid, marchFourth(12, 3, 7) };
}

static ssdp::Announcement autoipAnnouncement()
{
    return ssdp::Announcement{ "239.255.255.250:1900", "http://169.254.7.8:8200/", "Kelta/1.4.2, UPnP/1.0", QByteArray(uuid) + '0', marchFourth(12, 3, 7) };
}

static ssdp::Answer answer()
{
    return ssdp::Answer{ "http://192.168.1.20:8200/", "Kelta/1.4.2, UPnP/1.0", uuid, ssdp::answerDate(marchFourth(12, 3, 7)) };
}

static QByteArray lineBeginningWith(const QByteArray &beginning, const QByteArray &message)
{
    const QList<QByteArray> lines = message.split('\n');
    for (int i = 0; i < lines.size(); ++i) {
        if (lines.at(i).startsWith(beginning))
            return lines.at(i);
    }
    return QByteArray();
}

class TestSsdpMessages : public QObject
{
    Q_OBJECT

private slots:
    void aliveHasItsBytes();
    void byeByeHasItsBytes();
    void secondaryAliveKeepsTheFormOfThePrimary();
    void secondaryByeByeHasAnotherUsn();
    void rootDeviceAnswerHasItsBytes();
    void uuidAnswerCrossesStAndUsn();
    void emptyValuesLeaveEmptyPlaces();
    void valuesAreCopiedByteByByte();

    void secondsBelowTenKeepTwoDigitsInAnnouncements_data();
    void secondsBelowTenKeepTwoDigitsInAnnouncements();
    void secondsBelowTenKeepOneDigitInAnswers_data();
    void secondsBelowTenKeepOneDigitInAnswers();

    void announcementsHaveNeitherNtNorExtNorContentLength();
    void answersHaveAnEmptyExtAndNoContent();

    void searchesAreAnsweredByTheirBytes_data();
    void searchesAreAnsweredByTheirBytes();
    void uuidAnswerNeedsAUuidThatChangesBetweenTheTests();
    void uuidThatChangesNeedsItsPrefix_data();
    void uuidThatChangesNeedsItsPrefix();
    void uuidIsAskedForOncePerComparison();
    void unansweredMessagesNeverAskForTheUuid();
    void emptyUuidIsInEverySearch();
};

void TestSsdpMessages::aliveHasItsBytes()
{
    QVERIFY(compareBytes(ssdp::alive(announcement()), testData("alive.msg")));
}

void TestSsdpMessages::byeByeHasItsBytes()
{
    QVERIFY(compareBytes(ssdp::byeBye(announcement()), testData("byebye.msg")));
}

void TestSsdpMessages::secondaryAliveKeepsTheFormOfThePrimary()
{
    QVERIFY(compareBytes(ssdp::alive(autoipAnnouncement()), testData("autoip_alive.msg")));
}

void TestSsdpMessages::secondaryByeByeHasAnotherUsn()
{
    QVERIFY(compareBytes(ssdp::autoipByeBye(autoipAnnouncement()), testData("autoip_byebye.msg")));
}

void TestSsdpMessages::rootDeviceAnswerHasItsBytes()
{
    QVERIFY(compareBytes(ssdp::rootDeviceAnswer(answer()), testData("rootdevice_answer.msg")));
}

void TestSsdpMessages::uuidAnswerCrossesStAndUsn()
{
    QVERIFY(compareBytes(ssdp::uuidAnswer(answer()), testData("uuid_answer.msg")));
}

void TestSsdpMessages::emptyValuesLeaveEmptyPlaces()
{
    const ssdp::Announcement nothing = { QByteArray(), QByteArray(), QByteArray(), QByteArray(), marchFourth(9, 5, 7) };
    QVERIFY(compareBytes(ssdp::alive(nothing), testData("empty_alive.msg")));
}

void TestSsdpMessages::valuesAreCopiedByteByByte()
{
    ssdp::Answer a = answer();
    a.serverHeader = "M\xe9t\xc3\xa9o <&>\t/1";
    QVERIFY(compareBytes(lineBeginningWith("SERVER", ssdp::rootDeviceAnswer(a)), "SERVER: M\xe9t\xc3\xa9o <&>\t/1\r"));
}

void TestSsdpMessages::secondsBelowTenKeepTwoDigitsInAnnouncements_data()
{
    QTest::addColumn<qint64>("now");
    QTest::addColumn<QByteArray>("line");

    QTest::newRow("seven seconds") << marchFourth(12, 3, 7) << QByteArray("DATE: Wed, 04 Mar 2026 12:03:07\r");
    QTest::newRow("hour and minute below ten") << marchFourth(9, 5, 7) << QByteArray("DATE: Wed, 04 Mar 2026 09:05:07\r");
    QTest::newRow("no seconds") << marchFourth(9, 5, 0) << QByteArray("DATE: Wed, 04 Mar 2026 09:05:00\r");
    QTest::newRow("afternoon") << marchFourth(23, 59, 59) << QByteArray("DATE: Wed, 04 Mar 2026 23:59:59\r");
    const QDateTime yearEnds(QDate(2027, 12, 31), QTime(0, 0, 10));
    QTest::newRow("end of the year") << yearEnds.toMSecsSinceEpoch() << QByteArray("DATE: Fri, 31 Dec 2027 00:00:10\r");
}

void TestSsdpMessages::secondsBelowTenKeepTwoDigitsInAnnouncements()
{
    QFETCH(qint64, now);
    QFETCH(QByteArray, line);
    ssdp::Announcement a = announcement();
    a.now = now;
    QCOMPARE(lineBeginningWith("DATE", ssdp::alive(a)), line);
    QCOMPARE(lineBeginningWith("DATE", ssdp::byeBye(a)), line);
    QCOMPARE(lineBeginningWith("DATE", ssdp::autoipByeBye(a)), line);
}

void TestSsdpMessages::secondsBelowTenKeepOneDigitInAnswers_data()
{
    QTest::addColumn<qint64>("now");
    QTest::addColumn<QByteArray>("line");

    QTest::newRow("seven seconds") << marchFourth(12, 3, 7) << QByteArray("DATE: Wed, 04 Mar 2026 12:03:7\r");
    QTest::newRow("hour and minute below ten") << marchFourth(9, 5, 7) << QByteArray("DATE: Wed, 04 Mar 2026 09:05:7\r");
    QTest::newRow("no seconds") << marchFourth(9, 5, 0) << QByteArray("DATE: Wed, 04 Mar 2026 09:05:0\r");
    QTest::newRow("ten seconds") << marchFourth(9, 5, 10) << QByteArray("DATE: Wed, 04 Mar 2026 09:05:10\r");
    QTest::newRow("afternoon") << marchFourth(23, 59, 59) << QByteArray("DATE: Wed, 04 Mar 2026 23:59:59\r");
}

void TestSsdpMessages::secondsBelowTenKeepOneDigitInAnswers()
{
    QFETCH(qint64, now);
    QFETCH(QByteArray, line);
    ssdp::Answer a = answer();
    a.date = ssdp::answerDate(now);
    QCOMPARE(lineBeginningWith("DATE", ssdp::rootDeviceAnswer(a)), line);
    QCOMPARE(lineBeginningWith("DATE", ssdp::uuidAnswer(a)), line);
}

void TestSsdpMessages::announcementsHaveNeitherNtNorExtNorContentLength()
{
    const QList<QByteArray> messages = QList<QByteArray>()
        << ssdp::alive(announcement()) << ssdp::byeBye(announcement()) << ssdp::autoipByeBye(autoipAnnouncement());
    for (int i = 0; i < messages.size(); ++i) {
        QVERIFY(messages.at(i).contains("\r\nST: upnp:rootdevice\r\n"));
        QVERIFY(!messages.at(i).contains("\r\nNT:"));
        QVERIFY(!messages.at(i).contains("\r\nEXT:"));
        QVERIFY(!messages.at(i).contains("Content-Length"));
    }
}

void TestSsdpMessages::answersHaveAnEmptyExtAndNoContent()
{
    const QList<QByteArray> messages = QList<QByteArray>() << ssdp::rootDeviceAnswer(answer()) << ssdp::uuidAnswer(answer());
    for (int i = 0; i < messages.size(); ++i) {
        QVERIFY(messages.at(i).contains("\r\nEXT:\r\n"));
        QVERIFY(messages.at(i).endsWith("\r\nContent-Length: 0\r\n\r\n"));
    }
}

void TestSsdpMessages::searchesAreAnsweredByTheirBytes_data()
{
    QTest::addColumn<QByteArray>("datagram");
    QTest::addColumn<int>("kind");

    const QByteArray id = uuid;
    const int none = ssdp::NoAnswer;
    const int rootDevice = ssdp::RootDeviceAnswer;
    QTest::newRow("ssdp:all without MAN and MX") << QByteArray("M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nST: ssdp:all\r\n\r\n") << rootDevice;
    QTest::newRow("as control points write it") << QByteArray("M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nMAN: \"ssdp:discover\"\r\nMX: 3\r\nST: upnp:rootdevice\r\n\r\n") << rootDevice;
    QTest::newRow("upnp:rootdevice in another header") << QByteArray("M-SEARCH * HTTP/1.1\r\nUSER-AGENT: upnp:rootdevice\r\nST: urn:x\r\n\r\n") << rootDevice;
    QTest::newRow("ssdp:all in the body") << QByteArray("M-SEARCH * HTTP/1.1\r\nST: urn:x\r\n\r\nssdp:all") << rootDevice;
    QTest::newRow("bare UUID") << "M-SEARCH * HTTP/1.1\r\nST: " + id + "\r\n\r\n"
                               << rootDevice;
    QTest::newRow("UUID as customary") << "M-SEARCH * HTTP/1.1\r\nST: uuid:" + id + "\r\n\r\n"
                                       << rootDevice;
    QTest::newRow("UUID with the device's prefix") << "M-SEARCH * HTTP/1.1\r\nST: uuid:Upnp-BasicDevice-1_0-" + id + "\r\n\r\n"
                                                   << rootDevice;
    QTest::newRow("UUID across a zero byte") << QByteArray("M-SEARCH\0", 9) + id << rootDevice;
    QTest::newRow("request line alone") << QByteArray("M-SEARCHssdp:all") << rootDevice;
    QTest::newRow("longer method name") << QByteArray("M-SEARCHING ssdp:all") << rootDevice;

    QTest::newRow("standard basic device") << QByteArray("M-SEARCH * HTTP/1.1\r\nST: urn:schemas-upnp-org:device:Basic:1\r\n\r\n") << none;
    QTest::newRow("upper-case UUID") << "M-SEARCH * HTTP/1.1\r\nST: uuid:" + id.toUpper() + "\r\n\r\n"
                                     << none;
    QTest::newRow("UUID cut short") << "M-SEARCH * HTTP/1.1\r\nST: uuid:" + id.left(35) + "\r\n\r\n"
                                    << none;
    QTest::newRow("foreign UUID") << QByteArray("M-SEARCH * HTTP/1.1\r\nST: uuid:") + otherUuid + "\r\n\r\n"
                                  << none;
    QTest::newRow("prefix without UUID") << QByteArray("M-SEARCH * HTTP/1.1\r\nST: uuid:Upnp-BasicDevice-1_0-\r\n\r\n") << none;
    QTest::newRow("search terms in upper case") << QByteArray("M-SEARCH * HTTP/1.1\r\nST: SSDP:ALL\r\nX: UPNP:ROOTDEVICE\r\n\r\n") << none;
    QTest::newRow("method in lower case") << QByteArray("m-search * HTTP/1.1\r\nST: ssdp:all\r\n\r\n") << none;
    QTest::newRow("blank before the method") << QByteArray(" M-SEARCH * HTTP/1.1\r\nST: ssdp:all\r\n\r\n") << none;
    QTest::newRow("line end before the method") << QByteArray("\r\nM-SEARCH * HTTP/1.1\r\nST: ssdp:all\r\n\r\n") << none;
    QTest::newRow("method cut short") << QByteArray("M-SEARC") << none;
    QTest::newRow("NOTIFY of another device") << QByteArray("NOTIFY * HTTP/1.1\r\nNT: upnp:rootdevice\r\nNTS: ssdp:alive\r\n\r\n") << none;
    QTest::newRow("our own announcement") << ssdp::alive(announcement()) << none;
    QTest::newRow("empty") << QByteArray() << none;
    QTest::newRow("a zero byte") << QByteArray(1, '\0') << none;
}

void TestSsdpMessages::searchesAreAnsweredByTheirBytes()
{
    QFETCH(QByteArray, datagram);
    QFETCH(int, kind);
    QCOMPARE(int(ssdp::answerKind(datagram, [] { return QByteArray(uuid); })), kind);
}

void TestSsdpMessages::uuidAnswerNeedsAUuidThatChangesBetweenTheTests()
{
    const QByteArray datagram = QByteArray("M-SEARCH * HTTP/1.1\r\nST: uuid:Upnp-BasicDevice-1_0-") + uuid + "\r\n\r\n";
    QByteArray next = otherUuid;
    const auto changing = [&next] {
        const QByteArray now = next;
        next = uuid;
        return now;
    };
    QCOMPARE(ssdp::answerKind(datagram, changing), ssdp::UuidAnswer);
    // Now it stays the same.
    QCOMPARE(ssdp::answerKind(datagram, changing), ssdp::RootDeviceAnswer);
}

void TestSsdpMessages::uuidThatChangesNeedsItsPrefix_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<int>("kind");

    const QByteArray prefix = "uuid:Upnp-BasicDevice-1_0-";
    QTest::newRow("whole") << prefix << int(ssdp::UuidAnswer);
    for (int missing = 1; missing <= prefix.size(); ++missing) {
        const QByteArray end = prefix.mid(missing);
        QTest::newRow(("only " + end).constData()) << end << int(ssdp::NoAnswer);
    }
    QTest::newRow("another end") << QByteArray("uuid:Upnp-BasicDevice-1_0_") << int(ssdp::NoAnswer);
    QTest::newRow("other cases") << QByteArray("uuid:upnp-basicdevice-1_0-") << int(ssdp::NoAnswer);
}

void TestSsdpMessages::uuidThatChangesNeedsItsPrefix()
{
    QFETCH(QByteArray, before);
    const QByteArray datagram = "M-SEARCH * HTTP/1.1\r\nST: " + before + uuid + "\r\n\r\n";
    int asked = 0;
    const auto changing = [&asked] { return QByteArray(asked++ == 0 ? otherUuid : uuid); };
    QTEST(int(ssdp::answerKind(datagram, changing)), "kind");
}

void TestSsdpMessages::uuidIsAskedForOncePerComparison()
{
    int asked = 0;
    const auto counting = [&asked] {
        ++asked;
        return QByteArray(uuid);
    };
    QCOMPARE(ssdp::answerKind("M-SEARCH * HTTP/1.1\r\nST: urn:x\r\n\r\n", counting), ssdp::NoAnswer);
    QCOMPARE(asked, 2);
}

void TestSsdpMessages::unansweredMessagesNeverAskForTheUuid()
{
    int asked = 0;
    const auto counting = [&asked] {
        ++asked;
        return QByteArray(uuid);
    };
    QCOMPARE(ssdp::answerKind("NOTIFY * HTTP/1.1\r\n\r\n", counting), ssdp::NoAnswer);
    QCOMPARE(asked, 0);
}

void TestSsdpMessages::emptyUuidIsInEverySearch()
{
    QCOMPARE(ssdp::answerKind("M-SEARCH * HTTP/1.1\r\nST: urn:x\r\n\r\n", [] { return QByteArray(); }), ssdp::RootDeviceAnswer);
}

QTEST_APPLESS_MAIN(TestSsdpMessages)

#include "tst_ssdpmessages.moc"
