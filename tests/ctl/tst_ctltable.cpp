#include "neighbour.h"
#include "neighbourwatch.h"
#include "table.h"
#include "text.h"

#include <QtTest/QtTest>

static QString utf8(const char *text)
{
    return QString::fromUtf8(text);
}

static QStringList words(const char *text)
{
    return utf8(text).split(QLatin1Char('|'));
}

static QVariantMap address(const char *text)
{
    QVariantMap map;
    map.insert(utf8("address"), utf8(text));
    return map;
}

class TestCtlTable : public QObject
{
    Q_OBJECT

private slots:
    void nothing();
    void aligned();
    void emptyCells();
    void wideCharacters();
    void theWidestColumnsGiveWay();
    void everyWidth();
    void cellsOfADevice();
    void summaryOfAnyTypes();
    void controlCharactersAreInNoCell();
    void whatHasChanged();
};

void TestCtlTable::nothing()
{
    QCOMPARE(tableLines(QList<QStringList>(), 80), QStringList());
}

void TestCtlTable::aligned()
{
    const QList<QStringList> rows = QList<QStringList>() << words("NAME|TYPE") << words("kelta-1|Kelta") << words("k|K");
    QCOMPARE(tableLines(rows, 0), words("NAME     TYPE|kelta-1  Kelta|k        K"));
}

void TestCtlTable::emptyCells()
{
    QCOMPARE(tableLines(QList<QStringList>() << words("A|B|C") << words("||x"), 0), words("A  B  C|-  -  x"));
}

void TestCtlTable::wideCharacters()
{
    QCOMPARE(tableLines(QList<QStringList>() << words("设备|x") << words("a|y"), 0), words("设备  x|a     y"));
}

void TestCtlTable::theWidestColumnsGiveWay()
{
    const QList<QStringList> rows = QList<QStringList>() << words("aaaaaaaaaa|bb|cccccc");
    QCOMPARE(tableLines(rows, 22), words("aaaaaaaaaa  bb  cccccc"));
    QCOMPARE(tableLines(rows, 18), words("aaaaa…  bb  cccccc"));
    QCOMPARE(tableLines(rows, 14), words("aaa…  bb  ccc…"));
}

void TestCtlTable::everyWidth()
{
    const QList<QStringList> rows = QList<QStringList>() << columnNames() << words("kelta-1|912345701|Kelta CODESYS|1.4.2|10.77.0.11, fd00::1|dhcp");
    for (int width = 1; width < 120; ++width) {
        const QStringList lines = tableLines(rows, width);
        QCOMPARE(lines.size(), 2);
        for (int i = 0; i < lines.size(); ++i)
            QVERIFY(text::columns(lines.at(i)) <= width);
    }
}

void TestCtlTable::cellsOfADevice()
{
    QVariantMap summary;
    summary.insert(utf8("name"), utf8("kelta"));
    summary.insert(utf8("uuid"), utf8("912345678"));
    summary.insert(utf8("type"), utf8("Kelta CODESYS"));
    summary.insert(utf8("familyType"), utf8("Kelta"));
    summary.insert(utf8("version"), utf8("1.4.2"));
    summary.insert(utf8("configurationMethod"), utf8("dhcp"));
    summary.insert(utf8("ipv4"), QVariantList() << address("10.77.0.2") << address("169.254.1.2"));
    summary.insert(utf8("ipv6"), QVariantList() << address("fe80::1%eth0") << address("FD00::7"));
    QCOMPARE(cellsOf(neighbourOf(summary)),
        words("kelta|912345678|Kelta CODESYS|1.4.2|10.77.0.2, 169.254.1.2 (link-local), fe80::1 (link-local), FD00::7|dhcp"));
    QCOMPARE(neighbourOf(summary).family, utf8("Kelta"));
}

void TestCtlTable::summaryOfAnyTypes()
{
    const QVariantList strange = QVariantList() << QVariant() << 7 << utf8("10.0.0.1") << true << QVariant(QVariantList())
                                                << QVariant(QVariantMap()) << address("nowhere") << address("") << address("10.9.9.9");
    QVariantMap summary;
    summary.insert(utf8("name"), 7);
    summary.insert(utf8("configurationMethod"), QVariantList() << 1);
    summary.insert(utf8("ipv4"), strange);
    summary.insert(utf8("ipv6"), utf8("fd00::1"));
    QCOMPARE(cellsOf(neighbourOf(summary)), words("||||10.9.9.9|"));
}

void TestCtlTable::controlCharactersAreInNoCell()
{
    QVariantMap summary;
    const QStringList keys = words("name|uuid|type|familyType|version|configurationMethod");
    for (int i = 0; i < keys.size(); ++i)
        summary.insert(keys.at(i), utf8("\x1b[31m\n\xc2\x9b\xe2\x80\xae"));
    const QStringList cells = cellsOf(neighbourOf(summary));
    for (int i = 0; i < cells.size(); ++i)
        QCOMPARE(cells.at(i), i == 4 ? QString() : utf8("�[31m���"));
}

void TestCtlTable::whatHasChanged()
{
    const QStringList before = words("kelta|1|Kelta|1.4.2|10.0.0.1|dhcp");
    QCOMPARE(differences(before, words("kelta|1|Kelta|1.4.3|10.0.0.1|")), utf8("firmware 1.4.2 → 1.4.3, configured dhcp → -"));
    QCOMPARE(differences(before, before), utf8("another value that only \"show\" has"));
}

QTEST_MAIN(TestCtlTable)
#include "tst_ctltable.moc"
