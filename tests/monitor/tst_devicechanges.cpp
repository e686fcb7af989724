#include "devicechanges.h"

#include <QtTest/QtTest>

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

static QString uuid(int number)
{
    return latin1("D%1").arg(number, 5, 10, QLatin1Char('0'));
}

// "a" appeared, "c" changed, "g" gone: what happens to one device
static void apply(DeviceChanges *changes, const QString &name, const char *events)
{
    for (const char *event = events; *event; ++event) {
        if (*event == 'a')
            changes->addAppeared(name);
        else if (*event == 'c')
            changes->addChanged(name);
        else
            changes->addGone(name);
    }
}

class TestDeviceChanges : public QObject
{
    Q_OBJECT

private slots:
    void nothingAtFirst();
    void oneDevice_data();
    void oneDevice();
    void sorted();
    void listsAreBoundedEach();
    void whatFindsNoPlaceIsCounted();
    void aPlaceThatIsFreeAgainIsTaken();
    void listsAreThoseOfAPlainStatementOfTheRule();
    void longUuids();
    void whatTheBusCannotCarry();
};

void TestDeviceChanges::nothingAtFirst()
{
    const DeviceChanges changes;
    QVERIFY(changes.isEmpty());
    QCOMPARE(changes.appeared() + changes.changed() + changes.gone(), QStringList());
    QCOMPARE(changes.more(), 0u);
}

void TestDeviceChanges::oneDevice_data()
{
    QTest::addColumn<QString>("events");
    QTest::addColumn<QString>("list");
    const char *const cases[][2] = { { "a", "a" }, { "c", "c" }, { "g", "g" }, { "ac", "a" }, { "acc", "a" }, { "ag", "" },
        { "acg", "" }, { "aga", "a" }, { "cc", "c" }, { "cg", "g" }, { "ga", "c" }, { "gac", "c" }, { "gag", "g" }, { "cga", "c" } };
    for (const auto &one : cases)
        QTest::newRow(one[0]) << latin1(one[0]) << latin1(one[1]);
}

void TestDeviceChanges::oneDevice()
{
    QFETCH(QString, events);
    QFETCH(QString, list);
    DeviceChanges changes;
    apply(&changes, latin1("x"), events.toLatin1().constData());
    const QStringList x(latin1("x"));
    QCOMPARE(changes.appeared(), list == latin1("a") ? x : QStringList());
    QCOMPARE(changes.changed(), list == latin1("c") ? x : QStringList());
    QCOMPARE(changes.gone(), list == latin1("g") ? x : QStringList());
    QCOMPARE(changes.more(), 0u);
    QCOMPARE(changes.isEmpty(), list.isEmpty());
}

void TestDeviceChanges::sorted()
{
    DeviceChanges changes;
    apply(&changes, latin1("b"), "a");
    apply(&changes, latin1("a"), "a");
    QCOMPARE(changes.appeared(), QStringList() << latin1("a") << latin1("b"));
}

void TestDeviceChanges::listsAreBoundedEach()
{
    DeviceChanges changes;
    for (int i = 0; i < 20000; ++i) {
        apply(&changes, latin1("a") + uuid(i), "a");
        apply(&changes, latin1("c") + uuid(i), "c");
        apply(&changes, latin1("g") + uuid(i), "g");
    }
    QCOMPARE(changes.appeared().size(), 100);
    QCOMPARE(changes.changed().size(), 100);
    QCOMPARE(changes.gone().size(), 100);
    QCOMPARE(changes.more(), 3 * 19900u);
}

void TestDeviceChanges::whatFindsNoPlaceIsCounted()
{
    DeviceChanges changes;
    for (int i = 0; i < 101; ++i)
        apply(&changes, uuid(i), "a");
    apply(&changes, uuid(0), "c");
    QCOMPARE(changes.more(), 1u);
    apply(&changes, uuid(100), "g"); // nobody knows any more that it appeared
    QCOMPARE(changes.more(), 1u);
    QCOMPARE(changes.gone(), QStringList(uuid(100)));
}

void TestDeviceChanges::aPlaceThatIsFreeAgainIsTaken()
{
    DeviceChanges changes;
    for (int i = 0; i < 100; ++i)
        apply(&changes, uuid(i), "a");
    apply(&changes, uuid(0), "g");
    apply(&changes, uuid(100), "a");
    QCOMPARE(changes.appeared().size(), 100);
    QCOMPARE(changes.more(), 0u);
    for (int i = 200; i < 300; ++i)
        apply(&changes, uuid(i), "g");
    apply(&changes, uuid(300), "cg"); // leaves the list of the changed, and that of the gone is full
    QCOMPARE(changes.changed(), QStringList());
    QCOMPARE(changes.more(), 1u);
}

// The same rule without any sizes that are kept: letters as in apply(), and what found no place.
class PlainChanges
{
public:
    PlainChanges()
        : more(0)
    {
    }

    void apply(const QString &name, char event)
    {
        const char before = m_letters.value(name, ' ');
        if (before == ' ')
            enter(name, event);
        else if (before != event && !(before == 'a' && event == 'c')) {
            m_letters.remove(name);
            if (before != 'a')
                enter(name, event == 'g' ? 'g' : 'c');
        }
    }

    QStringList listed(char letter) const { return m_letters.keys(letter); }

    uint more;

private:
    void enter(const QString &name, char letter)
    {
        if (listed(letter).size() < 100)
            m_letters.insert(name, letter);
        else
            ++more;
    }

    QMap<QString, char> m_letters;
};

void TestDeviceChanges::listsAreThoseOfAPlainStatementOfTheRule()
{
    DeviceChanges changes;
    PlainChanges plain;
    quint32 random = 1;
    for (int i = 0; i < 6000; ++i) {
        random = random * 1664525u + 1013904223u;
        // For some time nearly all come, then nearly all change, and so on: each list is full at times, and empty at others.
        const char *const events[] = { "aaaac", "cccca", "ggggc", "aggga" };
        const char event[] = { events[i / 500 % 4][(random >> 8) % 5], 0 };
        const QString name = uuid(int((random >> 16) % 320));
        ::apply(&changes, name, event);
        plain.apply(name, event[0]);
        QCOMPARE(changes.appeared(), plain.listed('a'));
        QCOMPARE(changes.changed(), plain.listed('c'));
        QCOMPARE(changes.gone(), plain.listed('g'));
        QCOMPARE(changes.more(), plain.more);
    }
    QVERIFY(plain.more > 100);
}

void TestDeviceChanges::longUuids()
{
    DeviceChanges changes;
    apply(&changes, QString(255, QLatin1Char('x')), "a");
    apply(&changes, QString(256, QLatin1Char('x')), "a");
    QCOMPARE(changes.appeared(), QStringList(QString(255, QLatin1Char('x'))));
    QCOMPARE(changes.more(), 1u);
    DeviceChanges others;
    apply(&others, QString(256, QLatin1Char('x')), "g");
    QVERIFY(!others.isEmpty()); // what finds no place is told of as well
}

void TestDeviceChanges::whatTheBusCannotCarry()
{
    DeviceChanges changes;
    apply(&changes, latin1("a") + QChar(0) + latin1("b\x1b\xe9"), "a");
    QCOMPARE(changes.appeared(), QStringList(latin1("ab\x1b\xe9")));
}

QTEST_MAIN(TestDeviceChanges)
#include "tst_devicechanges.moc"
