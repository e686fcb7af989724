#include "dbusmap.h"

#include "bytes.h"
#include "dbustypes.h"
#include "waitfor.h"

#include <QtCore/QCoreApplication>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtTest/QtTest>

// Sends values over the bus and keeps them as they arrive.
class TestDbusMap : public QObject
{
    Q_OBJECT

public slots:
    void take(const QDBusMessage &message) { m_received << message.arguments(); }

private slots:
    void initTestCase();

    void dictionaryOfVariantsIsReadWhole();
    void emptyDictionaryGivesAnEmptyMap();
    void wrappedDictionaryIsReadLikeABareOne();
    void otherSignaturesGiveAnEmptyMap_data();
    void otherSignaturesGiveAnEmptyMap();
    void valuesThatAreNoArgumentGiveAnEmptyMap_data();
    void valuesThatAreNoArgumentGiveAnEmptyMap();

private:
    QVariant throughTheBus(const QVariant &value);

    QVariantList m_received;
};

void TestDbusMap::initTestCase()
{
    registerDbusTypes();
    QVERIFY(QDBusConnection::systemBus().connect(QString(), text("/test"), text("test.Values"), text("Value"), this, SLOT(take(QDBusMessage))));
}

QVariant TestDbusMap::throughTheBus(const QVariant &value)
{
    m_received.clear();
    QDBusMessage signal = QDBusMessage::createSignal(text("/test"), text("test.Values"), text("Value"));
    signal << value;
    if (!QDBusConnection::systemBus().send(signal) || !waitFor([this] { return !m_received.isEmpty(); }))
        qFatal("a value did not come back from the bus");
    return m_received.first();
}

void TestDbusMap::dictionaryOfVariantsIsReadWhole()
{
    QVariantMap map;
    map.insert(text("Address"), text("10.0.0.5"));
    map.insert(text("dhcp"), true);
    map.insert(text("number"), 7);
    QCOMPARE(mapFromArgument(throughTheBus(map)), map);
}

void TestDbusMap::emptyDictionaryGivesAnEmptyMap()
{
    const QVariant argument = throughTheBus(QVariantMap());
    QCOMPARE(argument.userType(), qMetaTypeId<QDBusArgument>());
    QCOMPARE(mapFromArgument(argument), QVariantMap());
}

void TestDbusMap::wrappedDictionaryIsReadLikeABareOne()
{
    QVariantMap map;
    map.insert(text("Method"), text("dhcp"));
    const QVariant wrapped = throughTheBus(QVariant::fromValue(QDBusVariant(map)));
    QCOMPARE(mapFromArgument(wrapped.value<QDBusVariant>().variant()), map);
}

void TestDbusMap::otherSignaturesGiveAnEmptyMap_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("signature");

    TextMap texts;
    texts.insert(text("Address"), text("10.0.0.5"));
    QTest::newRow("texts by name") << QVariant::fromValue(texts) << text("a{ss}");
    NumberedMap numbered;
    numbered.insert(1, QDBusVariant(text("10.0.0.5")));
    QTest::newRow("variants by number") << QVariant::fromValue(numbered) << text("a{iv}");
    QTest::newRow("list of numbers") << QVariant::fromValue(QList<int>() << 1 << 2) << text("ai");
    QTest::newRow("list of variants") << QVariant(QVariantList() << text("Address") << text("10.0.0.5")) << text("av");
    const TextPair pair = { text("Address"), text("10.0.0.5") };
    QTest::newRow("structure") << QVariant::fromValue(pair) << text("(ss)");
}

void TestDbusMap::otherSignaturesGiveAnEmptyMap()
{
    QFETCH(QVariant, value);
    QFETCH(QString, signature);
    const QVariant argument = throughTheBus(value);
    QCOMPARE(argument.userType(), qMetaTypeId<QDBusArgument>());
    QCOMPARE(argument.value<QDBusArgument>().currentSignature(), signature);
    QCOMPARE(mapFromArgument(argument), QVariantMap());
}

void TestDbusMap::valuesThatAreNoArgumentGiveAnEmptyMap_data()
{
    QTest::addColumn<QVariant>("value");

    QVariantMap map;
    map.insert(text("Address"), text("10.0.0.5"));
    QTest::newRow("nothing") << QVariant();
    QTest::newRow("text") << QVariant(text("10.0.0.5"));
    QTest::newRow("number") << QVariant(5);
    QTest::newRow("list of texts") << QVariant(QStringList(text("Address")));
    QTest::newRow("wrapped in one variant too many") << QVariant::fromValue(QDBusVariant(map));
    QTest::newRow("empty argument") << QVariant::fromValue(QDBusArgument());
}

void TestDbusMap::valuesThatAreNoArgumentGiveAnEmptyMap()
{
    QFETCH(QVariant, value);
    QCOMPARE(mapFromArgument(value), QVariantMap());
}

QTEST_MAIN(TestDbusMap)

#include "tst_dbusmap.moc"
