#include "dbusvalue.h"

#include "testbus.h"
#include "waitfor.h"

#include <QtDBus/QtDBus>
#include <QtTest/QtTest>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

Q_DECLARE_METATYPE(QVariantMap)

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

static QVariantMap object(const char *key, const QVariant &value)
{
    QVariantMap result;
    result.insert(latin1(key), value);
    return result;
}

static QVariantList list(const QVariant &element)
{
    QVariantList result;
    result.append(element);
    return result;
}

// The innermost value is a number, so that nothing but the nesting decides.
static QVariant nestedLists(int depth)
{
    QVariant value(1);
    for (int i = 0; i < depth; ++i)
        value = list(value);
    return value;
}

static QVariant nestedObjects(int depth)
{
    QVariant value(1);
    for (int i = 0; i < depth; ++i)
        value = object("k", value);
    return value;
}

static QVariant nestedInTurn(int depth)
{
    QVariant value(1);
    for (int i = 0; i < depth; ++i)
        value = i % 2 ? QVariant(list(value)) : QVariant(object("k", value));
    return value;
}

static int depthOf(QVariant value)
{
    int depth = 0;
    for (;; ++depth) {
        if (value.userType() == QMetaType::QVariantList && !value.toList().isEmpty())
            value = QVariant(value.toList().first());
        else if (value.userType() == QMetaType::QVariantMap && !value.toMap().isEmpty())
            value = QVariant(value.toMap().begin().value());
        else
            return value.userType() == QMetaType::Int ? depth : -1;
    }
}

// What a client reads, with dictionaries and lists as plain values.
static QVariant plain(const QVariant &value)
{
    if (value.userType() == qMetaTypeId<QDBusVariant>())
        return plain(value.value<QDBusVariant>().variant());
    if (value.userType() == qMetaTypeId<QDBusArgument>()) {
        const QDBusArgument argument = value.value<QDBusArgument>();
        if (argument.currentType() == QDBusArgument::MapType)
            return plain(QVariant(qdbus_cast<QVariantMap>(argument)));
        return plain(QVariant(qdbus_cast<QVariantList>(argument)));
    }
    if (value.userType() == QMetaType::QVariantMap) {
        QVariantMap result;
        const QVariantMap read = value.toMap();
        for (QVariantMap::const_iterator i = read.begin(); i != read.end(); ++i)
            result.insert(i.key(), plain(i.value()));
        return result;
    }
    if (value.userType() == QMetaType::QVariantList) {
        QVariantList result;
        const QVariantList read = value.toList();
        for (int i = 0; i < read.size(); ++i)
            result.append(plain(read.at(i)));
        return result;
    }
    return value;
}

// Answers with a list of objects, as the list of discovered devices is one.
class Answering : public QObject
{
    Q_OBJECT

public slots:
    QVariantList all() const { return m_summaries; }

public:
    QVariantList m_summaries;
};

// A program of its own on the bus, and another one that asks it.
class Conversation
{
public:
    Conversation()
        : m_server(connectToTestBus(latin1("server")))
        , m_client(connectToTestBus(latin1("client")))
    {
        m_server.registerObject(latin1("/"), &m_answering, QDBusConnection::ExportAllSlots);
    }
    ~Conversation()
    {
        QDBusConnection::disconnectFromBus(latin1("server"));
        QDBusConnection::disconnectFromBus(latin1("client"));
    }

    // Null when the bus has thrown the answering program off.
    QVariant answer(const QVariantMap &summary)
    {
        m_answering.m_summaries = list(summary);
        const QDBusMessage call = QDBusMessage::createMethodCall(m_server.baseService(), latin1("/"), QString(), latin1("all"));
        QDBusPendingCallWatcher watcher(m_client.asyncCall(call, 10000));
        QEventLoop untilFinished;
        QObject::connect(&watcher, SIGNAL(finished(QDBusPendingCallWatcher *)), &untilFinished, SLOT(quit()));
        untilFinished.exec();
        if (watcher.isError())
            return QVariant();
        const QVariantList summaries = plain(watcher.reply().arguments().value(0)).toList();
        return summaries.size() == 1 ? summaries.first() : QVariant();
    }
    bool isConnected() const { return m_server.isConnected(); }

private:
    Answering m_answering;
    QDBusConnection m_server;
    QDBusConnection m_client;
};

// A program that one talks to without a bus: it sees the messages as they are on the wire.
class Wire
{
public:
    Wire()
        : m_listening(socket(AF_UNIX, SOCK_STREAM, 0))
        , m_connected(-1)
    {
        const QByteArray name = "tst_dbusvalue-" + QByteArray::number(getpid());
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path + 1, name.constData(), size_t(name.size()));
        const socklen_t size = socklen_t(offsetof(sockaddr_un, sun_path) + 1 + size_t(name.size()));
        const bool listens = bind(m_listening, reinterpret_cast<sockaddr *>(&address), size) == 0 && listen(m_listening, 1) == 0;
        if (!listens)
            return;
        QDBusConnection peer = QDBusConnection::connectToPeer(latin1("unix:abstract=") + latin1(name.constData()), latin1("wire"));
        m_connected = accept(m_listening, 0, 0);
    }
    ~Wire()
    {
        QDBusConnection::disconnectFromPeer(latin1("wire"));
        close(m_connected);
        close(m_listening);
    }

    // The size of the body of a message with this one argument, -1 when no message came.
    int bodySize(const QVariant &argument)
    {
        QDBusMessage signal = QDBusMessage::createSignal(latin1("/"), latin1("a.b"), latin1("c"));
        signal << argument;
        QDBusConnection(latin1("wire")).send(signal);
        if (!m_greeted && !greet())
            return -1;
        const QByteArray head = read(16);
        if (head.size() != 16)
            return -1;
        quint32 body = 0;
        quint32 fields = 0;
        memcpy(&body, head.constData() + 4, 4);
        memcpy(&fields, head.constData() + 12, 4);
        const int rest = int((fields + 7) / 8 * 8 + body);
        return read(rest).size() == rest ? int(body) : -1;
    }

private:
    bool greet()
    {
        read(1); // a NUL comes before the first line
        for (;;) {
            const QByteArray line = readLine();
            if (line.startsWith("AUTH EXTERNAL "))
                write("OK 0123456789abcdef0123456789abcdef\r\n");
            else if (line.startsWith("AUTH"))
                write("REJECTED EXTERNAL\r\n");
            else if (line.startsWith("NEGOTIATE_UNIX_FD"))
                write("ERROR\r\n");
            else
                return m_greeted = line.startsWith("BEGIN");
        }
    }
    QByteArray readLine()
    {
        QByteArray line;
        for (QByteArray next = read(1); next.size() == 1; next = read(1)) {
            line += next;
            if (line.endsWith("\r\n"))
                break;
        }
        return line;
    }
    QByteArray read(int size)
    {
        QByteArray data;
        waitFor([&] { // in Qt 4 it is the event loop that sends
            QByteArray piece(size - data.size(), '\0');
            const ssize_t got = recv(m_connected, piece.data(), size_t(piece.size()), MSG_DONTWAIT);
            data += piece.left(int(qMax(got, ssize_t(0))));
            return data.size() == size;
        });
        return data;
    }
    void write(const char *text)
    {
        send(m_connected, text, strlen(text), MSG_NOSIGNAL);
    }

    int m_listening;
    int m_connected;
    bool m_greeted = false;
};

typedef QVariant (*Nesting)(int);

class tst_DbusValue : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void leavesOutWhatTheBusCannotCarry_data();
    void leavesOutWhatTheBusCannotCarry();
    void texts_data();
    void texts();
    void whatCanBeCarriedIsNotCopied();
    void whatIsLeftArrivesUnchanged();
    void nestingUpToWhatTheBusCarries_data();
    void nestingUpToWhatTheBusCarries();
    void deeperNestingIsLeftOutAlone();
    void thousandsOfLevelsAreLeftOut();
    void sizeIsNeverBelowTheMarshalledOne_data();
    void sizeIsNeverBelowTheMarshalledOne();
    void sizeOfATextGrowsWithItsBytes();
};

void tst_DbusValue::initTestCase()
{
    QVERIFY2(!qgetenv("DBUS_SYSTEM_BUS_ADDRESS").isEmpty(), "to be started with a bus of its own");
}

void tst_DbusValue::leavesOutWhatTheBusCannotCarry_data()
{
    QTest::addColumn<QVariantMap>("value");
    QTest::addColumn<QVariantMap>("expected");
    const QVariant null;
    const QVariantMap number = object("n", 1);
    const QVariantList numbers = list(1);

    QTest::newRow("empty") << QVariantMap() << QVariantMap();
    QTest::newRow("null") << object("a", null) << QVariantMap();
    QVariantMap besideNull = number;
    besideNull.insert(latin1("a"), null);
    QTest::newRow("null beside a number") << besideNull << number;
    QTest::newRow("null in an object") << object("o", besideNull) << object("o", number);
    QTest::newRow("null alone in an object") << object("o", object("a", null)) << object("o", QVariantMap());
    QTest::newRow("null in a list") << object("l", QVariantList() << null << 1 << null) << object("l", numbers);
    QTest::newRow("null alone in a list") << object("l", list(null)) << object("l", QVariantList());
    QTest::newRow("null in an object in a list") << object("l", list(besideNull)) << object("l", list(number));
    QTest::newRow("null in a list in a list") << object("l", list(QVariantList() << 1 << null)) << object("l", list(numbers));
    QTest::newRow("null in a list in an object") << object("o", object("l", list(null))) << object("o", object("l", QVariantList()));

    QVariantMap scalars;
    scalars.insert(latin1("yes"), true);
    scalars.insert(latin1("long"), Q_INT64_C(-9007199254740993));
    scalars.insert(latin1("double"), 0.1);
    scalars.insert(latin1("text"), latin1("t\351"));
    scalars.insert(latin1("empty"), latin1(""));
    scalars.insert(QString(), 1);
    QTest::newRow("what can be carried stays") << scalars << scalars;
}

void tst_DbusValue::leavesOutWhatTheBusCannotCarry()
{
    QFETCH(QVariantMap, value);
    QFETCH(QVariantMap, expected);
    QCOMPARE(dbusvalue::sanitized(value), expected);
    Conversation conversation;
    QCOMPARE(conversation.answer(dbusvalue::sanitized(value)).toMap(), expected);
}

void tst_DbusValue::texts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    const QString a = latin1("a");
    const QString b = latin1("b");
    const QString high(QChar(0xd83d));
    const QString low(QChar(0xde00));
    QTest::newRow("empty") << QString() << QString();
    QTest::newRow("plain") << a + b << a + b;
    QTest::newRow("control characters") << latin1("\001\t\n\177\200") << latin1("\001\t\n\177\200");
    QTest::newRow("NUL") << a + QChar(0) + b << a + b;
    QTest::newRow("U+FFFE") << a + QChar(0xfffe) + b << a + b;
    QTest::newRow("U+FFFF") << a + QChar(0xffff) + b << a + b;
    QTest::newRow("U+FFFD") << a + QChar(0xfffd) + b << a + QChar(0xfffd) + b;
    QTest::newRow("byte-order mark") << a + QChar(0xfeff) + b << a + QChar(0xfeff) + b;
    QTest::newRow("pair of surrogates") << a + high + low + b << a + high + low + b;
    QTest::newRow("high surrogate alone") << a + high + b << a + b;
    QTest::newRow("high surrogate at the end") << a + high << a;
    QTest::newRow("low surrogate alone") << a + low + b << a + b;
    QTest::newRow("low surrogate at the beginning") << low + b << b;
    QTest::newRow("low surrogate behind U+E000") << QString(QChar(0xe000)) + low + b << QString(QChar(0xe000)) + b;
    QTest::newRow("low surrogate behind NUL") << a + QChar(0) + low + b << a + b;
    QTest::newRow("first surrogate alone") << a + QChar(0xd800) + b << a + b;
    QTest::newRow("last surrogate alone") << a + QChar(0xdfff) + b << a + b;
    QTest::newRow("beside the surrogates") << QString(QChar(0xd7ff)) + QChar(0xe000) << QString(QChar(0xd7ff)) + QChar(0xe000);
    QTest::newRow("surrogates in the wrong order") << low + high << QString();
    QTest::newRow("two high ones, one low one") << high + high + low << high + low;
    QTest::newRow("one high one, two low ones") << high + low + low << high + low;
    QTest::newRow("U+FDD0") << a + QChar(0xfdd0) + b << a + b;
    QTest::newRow("U+FDEF") << a + QChar(0xfdef) + b << a + b;
    QTest::newRow("beside U+FDD0 and U+FDEF") << QString(QChar(0xfdcf)) + QChar(0xfdf0) << QString(QChar(0xfdcf)) + QChar(0xfdf0);
    QTest::newRow("U+1FFFE") << a + QChar(0xd83f) + QChar(0xdffe) + b << a + b;
    QTest::newRow("U+10FFFF") << a + QChar(0xdbff) + QChar(0xdfff) + b << a + b;
    QTest::newRow("last character of all") << QString(QChar(0xdbff)) + QChar(0xdffd) << QString(QChar(0xdbff)) + QChar(0xdffd);
    QTest::newRow("nothing that can be carried") << QString(QChar(0xffff)) + QChar(0) << QString();
}

void tst_DbusValue::texts()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QCOMPARE(dbusvalue::sanitized(text), expected);
    // Beside nothing else
    QVariantMap alone;
    alone.insert(text, text);
    QVariantMap aloneKept;
    aloneKept.insert(expected, expected);
    QCOMPARE(dbusvalue::sanitized(alone), aloneKept);
    QVariantMap named;
    named.insert(text, 1);
    QVariantMap namedKept;
    namedKept.insert(expected, 1);
    QCOMPARE(dbusvalue::sanitized(named), namedKept);
    QVariantMap value;
    value.insert(text, QVariantList() << text << object("k", text));
    QVariantMap kept;
    kept.insert(expected, QVariantList() << expected << object("k", expected));
    QCOMPARE(dbusvalue::sanitized(value), kept);
    Conversation conversation;
    QCOMPARE(conversation.answer(dbusvalue::sanitized(value)).toMap(), kept);
}

// All devices are listed together: a copy of every text would be a multiple of the work.
void tst_DbusValue::whatCanBeCarriedIsNotCopied()
{
    const QString text = latin1("a text") + QChar(0xd83d) + QChar(0xde00) + QChar(0xe000);
    QVERIFY(dbusvalue::sanitized(text).constData() == text.constData());
    const QVariantMap value = object("list", list(object("k", text)));
    const QVariantMap carried = dbusvalue::sanitized(value);
    QCOMPARE(carried, value);
    QVERIFY(carried.isSharedWith(value));
    QVERIFY(carried.constBegin().key().constData() == value.constBegin().key().constData());
    const QVariantMap inner = carried.value(latin1("list")).toList().first().toMap();
    QVERIFY(inner.value(latin1("k")).toString().constData() == text.constData());
}

void tst_DbusValue::whatIsLeftArrivesUnchanged()
{
    QVariantMap address = object("address", latin1("10.77.0.2"));
    address.insert(latin1("netmask"), latin1("255.255.255.0"));
    QVariantMap value = object("ipv4", list(address));
    value.insert(latin1("ipv6"), QVariantList());
    value.insert(latin1("more"), QVariantList() << true << Q_INT64_C(1) << 0.5 << latin1("t") << QVariant(list(false)));
    QCOMPARE(dbusvalue::sanitized(value), value);
    Conversation conversation;
    QCOMPARE(conversation.answer(value).toMap(), value);
}

void tst_DbusValue::nestingUpToWhatTheBusCarries_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("lists") << 0;
    QTest::newRow("objects") << 1;
    QTest::newRow("lists and objects in turn") << 2;
}

// Where the bus draws the line is found by asking it with connections that may be lost.
void tst_DbusValue::nestingUpToWhatTheBusCarries()
{
    QFETCH(int, kind);
    const Nesting nestings[] = { nestedLists, nestedObjects, nestedInTurn };
    const Nesting nesting = nestings[kind];
    int carried = 1;
    for (;; ++carried) {
        Conversation conversation;
        const QVariant answer = conversation.answer(object("deep", nesting(carried + 1)));
        if (!answer.isValid())
            break;
        QVERIFY(carried < 100);
    }
    QVERIFY2(carried >= 15, QByteArray::number(carried).constData());

    for (int depth = 1; depth <= carried + 5; ++depth) {
        const QVariantMap value = object("deep", nesting(depth));
        Conversation conversation;
        const QVariant answer = conversation.answer(dbusvalue::sanitized(value));
        QVERIFY(answer.isValid());
        QVERIFY(conversation.isConnected());
        QCOMPARE(depthOf(answer), depth <= carried ? depth + 1 : -1);
    }
}

void tst_DbusValue::deeperNestingIsLeftOutAlone()
{
    const Nesting nestings[] = { nestedLists, nestedObjects, nestedInTurn };
    Conversation conversation;
    for (int depth = 10; depth <= 100; ++depth) {
        for (int kind = 0; kind < 3; ++kind) {
            QVariantMap value = object("name", latin1("n"));
            value.insert(latin1("deep"), nestings[kind](depth));
            value.insert(latin1("list"), QVariantList() << 1 << nestings[kind](depth) << 2);
            const QVariantMap answer = conversation.answer(dbusvalue::sanitized(value)).toMap();
            QCOMPARE(answer.value(latin1("name")), QVariant(latin1("n")));
            const QVariantList elements = answer.value(latin1("list")).toList();
            QVERIFY(elements.size() == 2 || elements.size() == 3);
            QCOMPARE(elements.first(), QVariant(1));
            QCOMPARE(elements.last(), QVariant(2));
        }
    }
    QVERIFY(conversation.isConnected());
}

void tst_DbusValue::thousandsOfLevelsAreLeftOut()
{
    Conversation conversation;
    QVariantMap value = object("deep", nestedLists(4090));
    value.insert(latin1("objects"), nestedObjects(4090));
    value.insert(latin1("name"), latin1("n"));
    QCOMPARE(conversation.answer(dbusvalue::sanitized(value)).toMap().value(latin1("name")), QVariant(latin1("n")));
    QVERIFY(conversation.isConnected());
}

void tst_DbusValue::sizeIsNeverBelowTheMarshalledOne_data()
{
    QTest::addColumn<QVariantMap>("value");
    QTest::newRow("empty") << QVariantMap();
    const QVariant scalars[] = { true, Q_INT64_C(1), 0.5, latin1(""), latin1("text"), QVariantList(), QVariantMap() };
    for (int i = 0; i < 7; ++i) {
        QVariantList many;
        for (int n = 0; n < 1000; ++n)
            many.append(scalars[i]);
        QTest::newRow(("many of " + QByteArray::number(i)).constData()) << object("k", many);
        QVariantMap members;
        for (int n = 0; n < 1000; ++n)
            members.insert(QString::number(n), scalars[i]);
        QTest::newRow(("members of " + QByteArray::number(i)).constData()) << members;
    }
    QTest::newRow("three bytes each") << object("k", QString(10000, QChar(0x20ac)));
    QTest::newRow("pairs of surrogates") << object("k", (QString(QChar(0xd83d)) + QChar(0xde00)).repeated(10000));
    QTest::newRow("one byte each") << object("k", QString(10000, QLatin1Char('a')));
    QVariantMap longKey;
    longKey.insert(QString(10000, QChar(0xffee)), 1);
    QTest::newRow("long key") << longKey;
    QTest::newRow("nested lists") << object("k", nestedLists(25));
    QTest::newRow("nested objects") << object("k", nestedObjects(18));
    QVariantList rows;
    for (int n = 0; n < 200; ++n)
        rows.append(nestedInTurn(n % 20 + 1));
    QTest::newRow("many nested") << object("k", rows);
}

void tst_DbusValue::sizeIsNeverBelowTheMarshalledOne()
{
    QFETCH(QVariantMap, value);
    Wire wire;
    const int single = wire.bodySize(QVariant(value));
    QVERIFY(single > 0);
    QVERIFY2(dbusvalue::marshalledSize(value) >= single, QByteArray::number(single).constData());

    // As one of a list, which is what counts: what each adds at most
    QVariantList ten;
    for (int i = 0; i < 10; ++i)
        ten.append(value);
    const int more = wire.bodySize(QVariant(ten));
    QVERIFY(more >= 10 * (single - 8));
    QVERIFY2(dbusvalue::marshalledSize(value) * 10 >= more - 4, QByteArray::number(more).constData());
    QVERIFY2(dbusvalue::marshalledSize(value) <= single * 20 + 100, "not that much too large");
}

void tst_DbusValue::sizeOfATextGrowsWithItsBytes()
{
    const int empty = dbusvalue::marshalledSize(latin1(""));
    QCOMPARE(empty, dbusvalue::marshalledSize(1));
    QCOMPARE(dbusvalue::marshalledSize(latin1("a\177")), empty + 2);
    QCOMPARE(dbusvalue::marshalledSize(latin1("a\200")), empty + 4);
    QCOMPARE(dbusvalue::marshalledSize(object("k", latin1("ab"))), 3 * empty + 1 + 2);
}

QTEST_MAIN(tst_DbusValue)
#include "tst_dbusvalue.moc"
