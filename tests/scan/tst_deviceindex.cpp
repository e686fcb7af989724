#include "deviceindex.h"

#include "allocationcount.h"
#include "zorvdevice.h"

#include <QtTest/QtTest>

static const int interval = 10; // seconds

static QByteArray announcing(const QByteArray &uuid)
{
    return "{\"params\":{\"device\":{\"uuid\":\"" + uuid + "\"},\"expiration\":22}}";
}

static QString latin1(const QByteArray &text)
{
    return QString::fromLatin1(text.constData(), text.size());
}

class TestDeviceIndex : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_index.reset(new DeviceIndex); }
    void cleanup() { qDeleteAll(m_owner.children()); }

    void foundByUuid();
    void foundByText();
    void uuidsOfAnyBytes_data();
    void uuidsOfAnyBytes();
    void twoOfOneNameAreKeptApart();
    void removedByHand();
    void removedByItsEnd();
    void renamedDeviceIsFoundByItsNewName();
    void renamedDeviceLeavesNothingBehind();
    void textsOfAllDevices();
    void devicesMayOutliveTheIndex();
    void manyComeAndGo();
    void oneThatComesAndGoesAmongManyMovesNoOther();
    void nameThatHasNotChangedIsNotEnteredAgain();

private:
    ZorvDevice *add(const QByteArray &uuid);

    QObject m_owner;
    QScopedPointer<DeviceIndex> m_index;
};

ZorvDevice *TestDeviceIndex::add(const QByteArray &uuid)
{
    ZorvDevice *device = new ZorvDevice(latin1(uuid), announcing(uuid), interval, &m_owner);
    m_index->enter(device);
    return device;
}

void TestDeviceIndex::foundByUuid()
{
    ZorvDevice *device = add("A");
    QCOMPARE(m_index->find("A"), device);
    QVERIFY(!m_index->find("B"));
    QVERIFY(!m_index->find("AA"));
    QVERIFY(!m_index->find(""));
    QCOMPARE(m_index->size(), 1);
    m_index->enter(device);
    QCOMPARE(m_index->size(), 1);
}

void TestDeviceIndex::foundByText()
{
    ZorvDevice *device = add("A");
    QCOMPARE(m_index->findUnchanged("A", announcing("A")), device);
    QVERIFY(!m_index->findUnchanged("A", announcing("A") + ' '));
    QVERIFY(!m_index->findUnchanged("B", announcing("A")));
    device->update(announcing("A") + ' ');
    QVERIFY(!m_index->findUnchanged("A", announcing("A")));
    QCOMPARE(m_index->findUnchanged("A", announcing("A") + ' '), device);
}

void TestDeviceIndex::uuidsOfAnyBytes_data()
{
    QTest::addColumn<QByteArray>("uuid");
    QTest::addColumn<QByteArray>("other");
    QTest::newRow("zeros in it") << QByteArray("a\0b", 3) << QByteArray("a\0c", 3);
    QTest::newRow("zeros only") << QByteArray("\0", 1) << QByteArray("\0\0", 2);
    QTest::newRow("no ASCII") << QByteArray("\351\377") << QByteArray("\351\376");
    QTest::newRow("no ASCII, and a question mark") << QByteArray("\351") << QByteArray("?");
    QTest::newRow("seven bytes") << QByteArray("1234567") << QByteArray("1234568");
    QTest::newRow("eight bytes") << QByteArray("12345678") << QByteArray("12345679");
    QTest::newRow("nine bytes") << QByteArray("123456789") << QByteArray("123456780");
    QTest::newRow("long") << QByteArray(60000, 'u') << QByteArray(59999, 'u') + 'v';
}

void TestDeviceIndex::uuidsOfAnyBytes()
{
    QFETCH(QByteArray, uuid);
    QFETCH(QByteArray, other);
    ZorvDevice *device = add(uuid);
    QCOMPARE(m_index->find(uuid), device);
    QVERIFY(!m_index->find(other));
}

// They have one hash as well.
void TestDeviceIndex::twoOfOneNameAreKeptApart()
{
    ZorvDevice *first = add("A");
    ZorvDevice *second = add("A");
    QCOMPARE(m_index->size(), 2);
    delete m_index->find("A");
    ZorvDevice *other = m_index->find("A");
    QVERIFY(other == first || other == second);
    delete other;
    QVERIFY(!m_index->find("A"));
}

void TestDeviceIndex::removedByHand()
{
    ZorvDevice *first = add("A");
    ZorvDevice *second = add("B");
    m_index->remove(first);
    QCOMPARE(m_index->size(), 1);
    m_index->remove(first);
    QCOMPARE(m_index->size(), 1);
    QVERIFY(!m_index->find("A"));
    QCOMPARE(m_index->find("B"), second);
}

void TestDeviceIndex::removedByItsEnd()
{
    ZorvDevice *first = add("A");
    ZorvDevice *second = add("B");
    delete first;
    QVERIFY(!m_index->find("A"));
    QCOMPARE(m_index->find("B"), second);
    QCOMPARE(m_index->size(), 1);
    second->deleteLater();
    QCOMPARE(m_index->find("B"), second);
    QCoreApplication::sendPostedEvents(second, QEvent::DeferredDelete);
    QVERIFY(!m_index->find("B"));
    QCOMPARE(m_index->size(), 0);
}

void TestDeviceIndex::renamedDeviceIsFoundByItsNewName()
{
    ZorvDevice *device = add("A");
    device->setObjectName(latin1("B"));
    QVERIFY(!m_index->find("A"));
    QVERIFY(!m_index->findUnchanged("A", announcing("A")));
    ZorvDevice *successor = add("A");
    QCOMPARE(m_index->find("A"), successor);
    m_index->enter(device);
    QCOMPARE(m_index->find("B"), device);
    QCOMPARE(m_index->find("A"), successor);
    QCOMPARE(m_index->size(), 2);
}

void TestDeviceIndex::renamedDeviceLeavesNothingBehind()
{
    ZorvDevice *device = add("A");
    device->setObjectName(QString(QChar(0x20ac)));
    delete device;
    QVERIFY(!m_index->find("A"));
    QVERIFY(!m_index->find("?"));
    QCOMPARE(m_index->size(), 0);
    QCOMPARE(m_index->textSize(), 0);
}

void TestDeviceIndex::textsOfAllDevices()
{
    const int each = announcing("A").size();
    ZorvDevice *first = add("A");
    ZorvDevice *second = add("B");
    QCOMPARE(m_index->textSize(), 2 * each);
    first->update(announcing("A") + "   ");
    QCOMPARE(m_index->textSize(), 2 * each + 3);
    first->touch();
    second->update("");
    QCOMPARE(m_index->textSize(), each + 3);
    delete first;
    QCOMPARE(m_index->textSize(), 0);
    m_index->remove(second);
    second->update(announcing("B"));
    QCOMPARE(m_index->textSize(), 0);
}

void TestDeviceIndex::devicesMayOutliveTheIndex()
{
    ZorvDevice *device = add("A");
    m_index.reset(new DeviceIndex);
    QVERIFY(!m_index->find("A"));
    device->update(announcing("AAA"));
    m_index->enter(device);
    QCOMPARE(m_index->find("A"), device);
    QCOMPARE(m_index->textSize(), announcing("AAA").size());
}

// Enough of them for slots that several want, also across the end of the table, and for every size of it.
void TestDeviceIndex::manyComeAndGo()
{
    const int many = 600;
    QMap<QByteArray, ZorvDevice *> model;
    quint32 random = 1;
    for (int step = 0; step < 20000; ++step) {
        random = random * 1664525 + 1013904223;
        const QByteArray uuid = QByteArray::number(random >> 8 & (step < 10000 ? many - 1 : 15));
        if (ZorvDevice *known = model.take(uuid)) {
            QCOMPARE(m_index->find(uuid), known);
            delete known;
        } else {
            model.insert(uuid, add(uuid));
        }
        QVERIFY(m_index->find(uuid) == model.value(uuid));
        QCOMPARE(m_index->size(), model.size());
    }
    for (int i = 0; i < many; ++i)
        QVERIFY(m_index->find(QByteArray::number(i)) == model.value(QByteArray::number(i)));
}

// A table that grew too early would shrink at once.
void TestDeviceIndex::oneThatComesAndGoesAmongManyMovesNoOther()
{
    ZorvDevice *last = nullptr;
    for (int i = 0; i < 100; ++i)
        last = add(QByteArray::number(i));
    const int before = allocationCount();
    m_index->remove(last);
    QCOMPARE(allocationCount() - before, 0);
    m_index->enter(last);
    QCOMPARE(allocationCount() - before, 1); // its name in Latin-1
    QCOMPARE(m_index->find("99"), last);
}

void TestDeviceIndex::nameThatHasNotChangedIsNotEnteredAgain()
{
    ZorvDevice *device = add("A");
    const int before = allocationCount();
    m_index->enter(device);
    QCOMPARE(allocationCount() - before, 0);
    device->setObjectName(latin1("B"));
    for (int i = 0; i < 2; ++i) {
        const int beforeItsName = allocationCount();
        m_index->enter(device);
        QCOMPARE(allocationCount() - beforeItsName, i == 0 ? 1 : 0);
    }
    QCOMPARE(m_index->find("B"), device);
}

QTEST_MAIN(TestDeviceIndex)
#include "tst_deviceindex.moc"
