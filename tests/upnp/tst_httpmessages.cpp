#include "bytes.h"
#include "httpmessages.h"

#include <QtTest/QtTest>

static const char serverHeader[] = "Kelta/1.4.2, UPnP/1.0";

static QByteArray marchFourth()
{
    return http::dateText(QDateTime(QDate(2026, 3, 4), QTime(9, 5, 7)).toMSecsSinceEpoch());
}

class TestHttpMessages : public QObject
{
    Q_OBJECT

private slots:
    void descriptionHeaderHasItsBytes();
    void serverAndDateOfTheDescriptionShareOneLine();
    void descriptionHeaderHasFiveLineEndsBeforeTheBlankLine();
    void iconHeaderHasItsBytes();
    void iconHeaderHasAnotherOrderThanTheDescription();
    void sizesOfIconsAre64Bit();
    void pathNotFoundHasItsBytesAndNoColonAfterServer();
    void iconNotFoundIsABareText();

    void requestLinesFallIntoWords_data();
    void requestLinesFallIntoWords();

    void requestEndsWithAnEmptyLine_data();
    void requestEndsWithAnEmptyLine();
    void whatIsBeforeTheBytesIsNoPartOfTheRequest();
    void endOfARequestIsLookedForInItsBytesAlone();
};

void TestHttpMessages::descriptionHeaderHasItsBytes()
{
    QVERIFY(compareBytes(http::descriptionHeader(924, serverHeader, marchFourth()), testData("description_header.msg")));
}

void TestHttpMessages::serverAndDateOfTheDescriptionShareOneLine()
{
    QVERIFY(http::descriptionHeader(1, "S", marchFourth()).contains("\r\nServer: SDate: Wed, 04 Mar 2026 09:05:07\r\n\r\n"));
}

void TestHttpMessages::descriptionHeaderHasFiveLineEndsBeforeTheBlankLine()
{
    const QByteArray header = http::descriptionHeader(1, serverHeader, marchFourth());
    QCOMPARE(header.count("\r\n"), 6);
    QCOMPARE(header.count('\n'), 6);
    QVERIFY(header.endsWith("\r\n\r\n"));
}

void TestHttpMessages::iconHeaderHasItsBytes()
{
    QVERIFY(compareBytes(http::iconHeader(3145728, serverHeader, marchFourth()), testData("icon_header.msg")));
}

static int position(const QByteArray &field, const QByteArray &header)
{
    return header.indexOf(field);
}

void TestHttpMessages::iconHeaderHasAnotherOrderThanTheDescription()
{
    const QByteArray description = http::descriptionHeader(1, serverHeader, marchFourth());
    QVERIFY(position("Connection: ", description) < position("Content-Length: ", description));
    QVERIFY(position("Server: ", description) < position("Date: ", description));
    const QByteArray icon = http::iconHeader(1, serverHeader, marchFourth());
    QVERIFY(position("Content-Length: ", icon) < position("Connection: ", icon));
    QVERIFY(position("Date: ", icon) < position("Server: ", icon));
}

void TestHttpMessages::sizesOfIconsAre64Bit()
{
    QVERIFY(http::iconHeader(Q_INT64_C(5000000000), serverHeader, marchFourth()).contains("\r\nContent-Length: 5000000000\r\n"));
}

void TestHttpMessages::pathNotFoundHasItsBytesAndNoColonAfterServer()
{
    QVERIFY(compareBytes(http::pathNotFound(serverHeader), testData("not_found.msg")));
}

void TestHttpMessages::iconNotFoundIsABareText()
{
    QVERIFY(compareBytes(http::iconNotFound(), testData("icon_not_found.msg")));
}

void TestHttpMessages::requestLinesFallIntoWords_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("path");

    QTest::newRow("customary") << QByteArray("GET /rootDesc.xml HTTP/1.1\r\n") << QByteArray("GET") << QByteArray("/rootDesc.xml");
    QTest::newRow("no protocol") << QByteArray("GET /rootDesc.xml\r\n") << QByteArray("GET") << QByteArray("/rootDesc.xml");
    QTest::newRow("line feed alone") << QByteArray("GET /rootDesc.xml\n") << QByteArray("GET") << QByteArray("/rootDesc.xml");
    QTest::newRow("two blanks") << QByteArray("GET  /rootDesc.xml  HTTP/1.1\r\n") << QByteArray("GET") << QByteArray("/rootDesc.xml");
    QTest::newRow("carriage returns as blanks") << QByteArray("GET\r\r /rootDesc.xml\rHTTP/1.1\r\n") << QByteArray("GET") << QByteArray("/rootDesc.xml");
    QTest::newRow("tab after the method") << QByteArray("GET\t/rootDesc.xml HTTP/1.1\r\n") << QByteArray("GET\t/rootDesc.xml") << QByteArray("HTTP/1.1");
    QTest::newRow("tab after the path") << QByteArray("GET /rootDesc.xml\tHTTP/1.1\r\n") << QByteArray("GET") << QByteArray("/rootDesc.xml\tHTTP/1.1");
    QTest::newRow("blank first") << QByteArray(" GET /rootDesc.xml\r\n") << QByteArray() << QByteArray("GET");
    QTest::newRow("query") << QByteArray("GET /rootDesc.xml?a=b HTTP/1.1\r\n") << QByteArray("GET") << QByteArray("/rootDesc.xml?a=b");
    QTest::newRow("cases are kept") << QByteArray("get /ROOTDESC.xml\r\n") << QByteArray("get") << QByteArray("/ROOTDESC.xml");
    QTest::newRow("method alone") << QByteArray("GET\r\n") << QByteArray("GET") << QByteArray();
    QTest::newRow("method and a blank") << QByteArray("GET \r\n") << QByteArray("GET") << QByteArray();
    QTest::newRow("empty line") << QByteArray("\r\n") << QByteArray() << QByteArray();
    QTest::newRow("nothing") << QByteArray() << QByteArray() << QByteArray();
    QTest::newRow("zero byte in the path") << QByteArray("GET /rootDesc.xml\0.bak HTTP/1.1\r\n", 33) << QByteArray("GET") << QByteArray("/rootDesc.xml");
    QTest::newRow("zero byte in the method") << QByteArray("GE\0T /rootDesc.xml\r\n", 20) << QByteArray("GE") << QByteArray();
    QTest::newRow("eight-bit path") << QByteArray("GET /\xe9\xff HTTP/1.1\r\n") << QByteArray("GET") << QByteArray("/\xe9\xff");
}

void TestHttpMessages::requestLinesFallIntoWords()
{
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, path);
    const http::Request request = http::parseRequestLine(line);
    QVERIFY(compareBytes(request.method, method));
    QVERIFY(compareBytes(request.path, path));
}

void TestHttpMessages::requestEndsWithAnEmptyLine_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("isEnd");
    QTest::newRow("usual") << QByteArray("GET / HTTP/1.1\r\nHost: a\r\n\r\n") << true;
    QTest::newRow("no header lines") << QByteArray("GET / HTTP/1.1\r\n\r\n") << true;
    QTest::newRow("line feeds alone") << QByteArray("GET /\n\n") << true;
    QTest::newRow("line feed, then both") << QByteArray("GET /\n\r\n") << true;
    QTest::newRow("one line") << QByteArray("GET / HTTP/1.1\r\n") << false;
    QTest::newRow("header line") << QByteArray("GET / HTTP/1.1\r\nHost: a\r\n") << false;
    QTest::newRow("bytes behind it") << QByteArray("GET / HTTP/1.1\r\n\r\nGET") << false;
    QTest::newRow("carriage returns") << QByteArray("GET /\r\r") << false;
    QTest::newRow("nothing") << QByteArray() << false;
}

void TestHttpMessages::requestEndsWithAnEmptyLine()
{
    QFETCH(QByteArray, bytes);
    QTEST(http::isRequestEnd(bytes.constData(), bytes.size()), "isEnd");
    // What lies behind the bytes does not count.
    const QByteArray more = bytes + "\n\nx";
    QTEST(http::isRequestEnd(more.constData(), bytes.size()), "isEnd");
    QTEST(http::isRequestEnd((bytes + 'x').constData(), bytes.size()), "isEnd");
}

void TestHttpMessages::whatIsBeforeTheBytesIsNoPartOfTheRequest()
{
    const char bytes[] = "\n\r\n\n";
    QVERIFY(http::isRequestEnd(bytes, 3));
    QVERIFY(!http::isRequestEnd(bytes + 1, 2));
    QVERIFY(!http::isRequestEnd(bytes + 2, 1));
    QVERIFY(!http::isRequestEnd(bytes + 3, 1));
    QVERIFY(!http::isRequestEnd(bytes + 4, 0));
    QVERIFY(http::isRequestEnd(bytes + 2, 2));
}

// Every text of up to four of the bytes that count, each between others that would end it.
void TestHttpMessages::endOfARequestIsLookedForInItsBytesAlone()
{
    static const char letters[] = { '\n', '\r', 'a' };
    static const char *const surroundings[] = { "\n", "\r", "\n\r\n", "\n\n", "a" };
    int number = 1;
    for (int size = 0; size <= 4; ++size, number *= 3) {
        for (int i = 0; i < number; ++i) {
            QByteArray text;
            for (int rest = i; text.size() < size; rest /= 3)
                text += letters[rest % 3];
            const bool isEnd = text.endsWith("\n\r\n") || text.endsWith("\n\n");
            for (const char *around : surroundings) {
                const QByteArray whole = around + text + around;
                QVERIFY2(http::isRequestEnd(whole.constData() + qstrlen(around), size) == isEnd, whole.toHex().constData());
            }
        }
    }
}

QTEST_APPLESS_MAIN(TestHttpMessages)

#include "tst_httpmessages.moc"
