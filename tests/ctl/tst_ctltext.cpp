#include "text.h"

#include <QtTest/QtTest>

#include <algorithm>

static QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

static QString utf8(const char *text)
{
    return QString::fromUtf8(text);
}

class TestCtlText : public QObject
{
    Q_OBJECT

private slots:
    void everyControlCharacter();
    void charactersThatTurnTheWritingAround();
    void visibleTextStays_data();
    void visibleTextStays();
    void halfPairs();
    void longTexts();
    void bytes_data();
    void bytes();
    void columns_data();
    void columns();
    void cut_data();
    void cut();
    void padded();
    void sorting();
    void durations_data();
    void durations();
};

void TestCtlText::everyControlCharacter()
{
    for (ushort unit = 0; unit < 0xa0; ++unit) {
        if (unit == 0x20)
            unit = 0x7f;
        QCOMPARE(text::clean(latin1("a") + QChar(unit) + latin1("b")), utf8("a\357\277\275b"));
    }
}

void TestCtlText::charactersThatTurnTheWritingAround()
{
    static const ushort units[] = { 0x00ad, 0x061c, 0x200b, 0x200e, 0x200f, 0x2028, 0x2029, 0x202a, 0x202b, 0x202c, 0x202d, 0x202e,
        0x2066, 0x2067, 0x2068, 0x2069, 0xfeff, 0xe000, 0xffff };
    for (const ushort unit : units)
        QCOMPARE(text::clean(QString(QChar(unit))), utf8("\357\277\275"));
}

void TestCtlText::visibleTextStays_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << QString();
    QTest::newRow("ASCII") << latin1(" !\"#$%&'()*+,-./0123456789:;<=>?@AZ[\\]^_`az{|}~");
    QTest::newRow("Latin-1") << utf8("Gerät № 5");
    QTest::newRow("beyond 16 bits") << utf8("\360\235\204\236");
    QTest::newRow("Chinese") << utf8("设备");
}

void TestCtlText::visibleTextStays()
{
    QFETCH(QString, text);
    QCOMPARE(text::clean(text), text);
}

void TestCtlText::halfPairs()
{
    QCOMPARE(text::clean(latin1("a") + QChar(0xd800) + latin1("b")), utf8("a\357\277\275b"));
    QCOMPARE(text::clean(QString(QChar(0xdc00))), utf8("\357\277\275"));
}

void TestCtlText::longTexts()
{
    QCOMPARE(text::clean(QString(256, QLatin1Char('x'))), QString(256, QLatin1Char('x')));
    QCOMPARE(text::clean(QString(1000000, QLatin1Char('x'))), QString(255, QLatin1Char('x')) + utf8("…"));
}

void TestCtlText::bytes_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << QByteArray() << QString();
    QTest::newRow("ASCII") << QByteArray("Kelta/1.4.2") << latin1("Kelta/1.4.2");
    QTest::newRow("UTF-8") << QByteArray("ger\303\244t") << utf8("ger\303\244t");
    QTest::newRow("Latin-1") << QByteArray("ger\344t") << utf8("ger\303\244t");
    QTest::newRow("NUL") << QByteArray("a\0b", 3) << QString(latin1("a") + QChar(0) + latin1("b"));
}

void TestCtlText::bytes()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, text);
    QCOMPARE(text::fromBytes(bytes), text);
}

void TestCtlText::columns_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("columns");
    QTest::newRow("empty") << QString() << 0;
    QTest::newRow("ASCII") << latin1("kelta") << 5;
    QTest::newRow("umlaut") << utf8("ä") << 1;
    QTest::newRow("combining") << utf8("a\314\210") << 1;
    QTest::newRow("Chinese") << utf8("设备") << 4;
    QTest::newRow("picture") << utf8("\360\237\230\200") << 2;
}

void TestCtlText::columns()
{
    QFETCH(QString, text);
    QTEST(text::columns(text), "columns");
}

void TestCtlText::cut_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("columns");
    QTest::addColumn<QString>("result");
    QTest::newRow("fits") << latin1("kelta") << 5 << latin1("kelta");
    QTest::newRow("one too many") << latin1("kelta") << 4 << utf8("kel…");
    QTest::newRow("one column") << latin1("kelta") << 1 << utf8("…");
    QTest::newRow("no column") << latin1("kelta") << 0 << QString();
    QTest::newRow("wide ones are whole") << utf8("设备") << 3 << utf8("设…");
    QTest::newRow("half of a wide one") << utf8("设备") << 2 << utf8("…");
}

void TestCtlText::cut()
{
    QFETCH(QString, text);
    QFETCH(int, columns);
    QTEST(text::cut(text, columns), "result");
}

void TestCtlText::padded()
{
    QCOMPARE(text::padded(latin1("a"), 3), latin1("a  "));
    QCOMPARE(text::padded(utf8("设"), 3), utf8("设 "));
    QCOMPARE(text::padded(latin1("abcd"), 3), latin1("abcd"));
}

static bool isBefore(const QString &a, const QString &b)
{
    return text::sortingKey(a) < text::sortingKey(b);
}

void TestCtlText::sorting()
{
    QStringList names = latin1("kelta-10 Kelta-2 kelta-1 alpha kelta kelta-1a").split(QLatin1Char(' '));
    std::sort(names.begin(), names.end(), isBefore);
    QCOMPARE(names.join(latin1(" ")), latin1("alpha kelta kelta-1 kelta-1a Kelta-2 kelta-10"));
}

void TestCtlText::durations_data()
{
    QTest::addColumn<qint64>("seconds");
    QTest::addColumn<QString>("text");
    QTest::newRow("none") << qint64(0) << latin1("0 seconds");
    QTest::newRow("one") << qint64(1) << latin1("1 second");
    QTest::newRow("below two minutes") << qint64(119) << latin1("119 seconds");
    QTest::newRow("two minutes") << qint64(120) << latin1("2 minutes");
    QTest::newRow("below two hours") << qint64(7199) << latin1("119 minutes");
    QTest::newRow("hours") << qint64(7200) << latin1("2 hours");
    QTest::newRow("days") << qint64(3 * 86400) << latin1("3 days");
}

void TestCtlText::durations()
{
    QFETCH(qint64, seconds);
    QTEST(text::duration(seconds), "text");
}

QTEST_MAIN(TestCtlText)
#include "tst_ctltext.moc"
