#include "jsonnumber.h"
#include "jsonparser.h"
#include "jsonreader.h"
#include "jsonwriter.h"
#include "qtversions.h"

#include <QtTest>

#include <cmath>
#include <limits>

class tst_JsonWriter : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void startsEmptyUnformattedWithFourBlanks();
    void values_data();
    void values();
    void numbers_data();
    void numbers();
    void objectsFormattedAndNot_data();
    void objectsFormattedAndNot();
    void membersAreWrittenInKeyOrder();
    void keysAreEscaped();
    void everyUnitIsEscapedByTheTable();
    void longTextsAreWrittenWhole();
    void textsOfEveryLengthAreWrittenWhole();
    void doublesAreWrittenAsQtDoes();
    void shortDoublesAreNotLeftToQt();
    void nanAndInfinityAreNullWithoutAnError();
    void indentIsBlanksOrTabs_data();
    void indentIsBlanksOrTabs();
    void tabIndentIsWrittenOncePerLevel();
    void levelsBelowTheOutermost_data();
    void levelsBelowTheOutermost();
    void unsupportedValueIsNullWithAWarning();
    void twoUnsupportedValuesGiveTwoLinesAndTwoWarnings();
    void nextRunClearsTextAndErrors();
    void workerAppendsAndClearsNothing();
    void resultIsACopy();
    void whatIsWrittenCanBeReadAgain();
    void deepestTextThatIsReadCanBeWritten_data();
    void deepestTextThatIsReadCanBeWritten();
};

// A type that QVariant converts neither to a number nor to a string
struct Opaque
{
};
Q_DECLARE_METATYPE(Opaque)

namespace
{

const char opaqueName[] = "Opaque";

QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

QVariantMap object(const char *key, const QVariant &value)
{
    QVariantMap map;
    map.insert(latin1(key), value);
    return map;
}

QVariantMap aAndB()
{
    QVariantMap map = object("a", 1);
    map.insert(latin1("b"), true);
    return map;
}

QString written(const QVariant &value, bool formatted = false)
{
    JsonWriter writer;
    writer.setAutoFormatting(formatted);
    return writer.stringify(value) ? writer.result() : latin1("error: ") + writer.errorString();
}

QString opaqueMessage()
{
    return latin1("Unsupported type Opaque (id: %1)").arg(qMetaTypeId<Opaque>());
}

// The warning as the debug stream puts it: a blank after each item, the message in quotes.
QByteArray opaqueWarning()
{
    return qtversions::streamed("JsonWriter::stringify -  \"" + opaqueMessage().toLatin1() + '"');
}

void compareWritten(const QVariant &value, const QString &text)
{
    JsonWriter writer;
    QVERIFY2(writer.stringify(value), qPrintable(writer.errorString()));
    QCOMPARE(writer.result(), text);
    QCOMPARE(writer.errorString(), QString());
}

} // namespace

void tst_JsonWriter::initTestCase()
{
    QCOMPARE(QMetaType::typeName(qMetaTypeId<Opaque>()), opaqueName);
}

void tst_JsonWriter::startsEmptyUnformattedWithFourBlanks()
{
    const JsonWriter writer;
    QCOMPARE(writer.result(), QString());
    QCOMPARE(writer.errorString(), QString());
    QCOMPARE(writer.autoFormatting(), false);
    QCOMPARE(writer.autoFormattingIndent(), 4);
}

void tst_JsonWriter::values_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("text");

    QTest::newRow("invalid") << QVariant() << latin1("null");
    QTest::newRow("true") << QVariant(true) << latin1("true");
    QTest::newRow("false") << QVariant(false) << latin1("false");

    QTest::newRow("string") << QVariant(latin1("abc")) << latin1("\"abc\"");
    QTest::newRow("empty string") << QVariant(latin1("")) << latin1("\"\"");
    QTest::newRow("null string") << QVariant(QString()) << latin1("\"\"");
    QTest::newRow("e acute, slash and the character of code 1")
        << QVariant(latin1("\xe9/\x01")) << latin1("\"\\u00e9\\/\x01\"");
    QTest::newRow("byte array") << QVariant(QByteArray("a/b")) << latin1("\"a\\/b\"");
    QTest::newRow("byte array is Latin-1") << QVariant(QByteArray("\xe9")) << latin1("\"\\u00e9\"");
    QTest::newRow("byte array ends at NUL") << QVariant(QByteArray("a\0b", 3)) << latin1("\"a\"");
    QTest::newRow("null byte array") << QVariant(QByteArray()) << latin1("\"\"");
    QTest::newRow("surrogate pair") << QVariant(QString(QChar(0xd83d)) + QChar(0xde00)) << latin1("\"\\ud83d\\ude00\"");

    QTest::newRow("character") << QVariant(QChar(QLatin1Char('a'))) << latin1("\"a\"");
    QTest::newRow("quote character is not escaped") << QVariant(QChar(QLatin1Char('"'))) << latin1("\"\"\"");
    QTest::newRow("backslash character is not escaped") << QVariant(QChar(QLatin1Char('\\'))) << latin1("\"\\\"");
    QTest::newRow("line feed character is not escaped") << QVariant(QChar(QLatin1Char('\n'))) << latin1("\"\n\"");
    QTest::newRow("last character that stands for itself") << QVariant(QChar(0x7f)) << latin1("\"\x7f\"");
    QTest::newRow("first character that is escaped") << QVariant(QChar(0x80)) << latin1("\"\\u0080\"");
    QTest::newRow("character beyond one byte") << QVariant(QChar(0x20ac)) << latin1("\"\\u20ac\"");

    if (qtversions::smallIntegersConvert()) {
        QTest::newRow("short converts to a number") << QVariant::fromValue<short>(-3) << latin1("-3");
        QTest::newRow("unsigned char converts to a number") << QVariant::fromValue<uchar>(200) << latin1("200");
    }
    QTest::newRow("date converts to a string") << QVariant(QDate(2024, 2, 29)) << latin1("\"2024-02-29\"");
    QTest::newRow("url converts to a string") << QVariant(QUrl(latin1("http://a/b"))) << latin1("\"http:\\/\\/a\\/b\"");

    QTest::newRow("empty list") << QVariant(QVariantList()) << latin1("[]");
    QTest::newRow("list") << QVariant(QVariantList() << 1 << latin1("a") << QVariant()) << latin1("[1,\"a\",null]");
    QTest::newRow("string list") << QVariant(QStringList() << latin1("a") << latin1("/")) << latin1("[\"a\",\"\\/\"]");
    QTest::newRow("string list of one is an array") << QVariant(QStringList() << latin1("5")) << latin1("[\"5\"]");
    QTest::newRow("empty string list") << QVariant(QStringList()) << latin1("[]");
    QTest::newRow("lists inside a list")
        << QVariant(QVariantList() << QVariant(QVariantList() << 1) << QVariant(QVariantList())) << latin1("[[1],[]]");
}

void tst_JsonWriter::values()
{
    QFETCH(QVariant, value);
    QFETCH(QString, text);

    compareWritten(value, text);
}

void tst_JsonWriter::numbers_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("text");

    QTest::newRow("int") << QVariant(-7) << latin1("-7");
    QTest::newRow("integer zero") << QVariant(0) << latin1("0");
    QTest::newRow("nine") << QVariant(9) << latin1("9");
    QTest::newRow("ten") << QVariant(10) << latin1("10");
    QTest::newRow("ninety-nine") << QVariant(99) << latin1("99");
    QTest::newRow("one hundred") << QVariant(100) << latin1("100");
    QTest::newRow("largest 64-bit integer") << QVariant(std::numeric_limits<qlonglong>::max()) << latin1("9223372036854775807");
    QTest::newRow("unsigned int") << QVariant(4294967295U) << latin1("4294967295");
    QTest::newRow("smallest 64-bit integer") << QVariant(std::numeric_limits<qlonglong>::min()) << latin1("-9223372036854775808");
    QTest::newRow("largest unsigned 64-bit integer") << QVariant(std::numeric_limits<qulonglong>::max()) << latin1("18446744073709551615");

    QTest::newRow("one tenth") << QVariant(0.1) << latin1("0.1");
    QTest::newRow("double without a fraction") << QVariant(100000.0) << latin1("100000");
    QTest::newRow("exponent form") << QVariant(1e20) << latin1("1e+20");
    QTest::newRow("fifteen digits") << QVariant(0.1 + 0.2) << latin1("0.3");
    QTest::newRow("one third") << QVariant(1.0 / 3) << latin1("0.333333333333333");
    QTest::newRow("small") << QVariant(1e-7) << latin1("1e-07");
    QTest::newRow("zero") << QVariant(0.0) << latin1("0");
    QTest::newRow("whole number") << QVariant(-42.0) << latin1("-42");
    QTest::newRow("fifteen nines") << QVariant(999999999999999.0) << latin1("999999999999999");
    QTest::newRow("fifteen nines and less than a half") << QVariant(999999999999999.375) << latin1("999999999999999");
    QTest::newRow("fifteen nines and a half") << QVariant(999999999999999.5) << latin1("1e+15");
    QTest::newRow("sixteen digits") << QVariant(1e15) << latin1("1e+15");
    QTest::newRow("sixteen digits, rounded") << QVariant(1234567890123456.0) << latin1("1.23456789012346e+15");
    QTest::newRow("fourteen zeros") << QVariant(100000000000000.0) << latin1("100000000000000");
    QTest::newRow("zeros inside") << QVariant(1000000.000001) << latin1("1000000.000001");
    QTest::newRow("smallest without an exponent") << QVariant(0.0001) << latin1("0.0001");
    QTest::newRow("digits behind three zeros") << QVariant(0.000123456789012345) << latin1("0.000123456789012345");
    QTest::newRow("rounded up to the smallest without an exponent") << QVariant(0.000099999999999999999) << latin1("0.0001");
    QTest::newRow("largest small with an exponent") << QVariant(0.0000999999999999999) << latin1("9.99999999999999e-05");
    QTest::newRow("eight zeros") << QVariant(-1e-8) << latin1("-1e-08");
    QTest::newRow("nine zeros") << QVariant(9.5e-9) << latin1("9.5e-09");
    QTest::newRow("smallest") << QVariant(std::numeric_limits<double>::denorm_min()) << latin1("4.94065645841247e-324");
    QTest::newRow("largest") << QVariant(std::numeric_limits<double>::max()) << latin1("1.79769313486232e+308");
    QTest::newRow("float") << QVariant(0.5f) << latin1("0.5");
    QTest::newRow("float has the digits of its double") << QVariant(0.1f) << latin1("0.100000001490116");
}

void tst_JsonWriter::numbers()
{
    QFETCH(QVariant, value);
    QFETCH(QString, text);

    compareWritten(value, text);
}

void tst_JsonWriter::objectsFormattedAndNot_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("compact");
    QTest::addColumn<QString>("formatted");

    QTest::newRow("empty object") << QVariant(QVariantMap()) << latin1("{}") << latin1("{\n}");
    QTest::newRow("empty list") << QVariant(QVariantList()) << latin1("[]") << latin1("[]");
    QTest::newRow("two members") << QVariant(aAndB()) << latin1("{\"a\":1,\"b\":true}") << latin1("{ \"a\":1,\n \"b\":true\n}");
    QTest::newRow("object in a list")
        << QVariant(QVariantList() << QVariant(aAndB()))
        << latin1("[{\"a\":1,\"b\":true}]")
        << latin1("[\n    {\n     \"a\":1,\n     \"b\":true\n    }]");
    QTest::newRow("list elements are set apart by a blank")
        << QVariant(QVariantList() << 1 << 2 << 3) << latin1("[1,2,3]") << latin1("[1, 2, 3]");
    QTest::newRow("object in an object stays at its level")
        << QVariant(object("o", object("a", 1)))
        << latin1("{\"o\":{\"a\":1}}")
        << latin1("{ \"o\":{ \"a\":1\n}\n}");
    QTest::newRow("object in an object in a list")
        << QVariant(QVariantList() << QVariant(object("o", object("a", 1))))
        << latin1("[{\"o\":{\"a\":1}}]")
        << latin1("[\n    {\n     \"o\":\n    {\n     \"a\":1\n    }\n    }]");
    QTest::newRow("list in an object raises the level")
        << QVariant(object("l", QVariantList() << 1 << QVariant(object("a", 1))))
        << latin1("{\"l\":[1,{\"a\":1}]}")
        << latin1("{ \"l\":[1, \n    {\n     \"a\":1\n    }]\n}");
    QTest::newRow("two lists deep")
        << QVariant(QVariantList() << QVariant(QVariantList() << QVariantMap()))
        << latin1("[[{}]]")
        << latin1("[[\n        {\n\n        }]]");
}

void tst_JsonWriter::objectsFormattedAndNot()
{
    QFETCH(QVariant, value);
    QFETCH(QString, compact);
    QFETCH(QString, formatted);

    QCOMPARE(written(value), compact);
    QCOMPARE(written(value, true), formatted);
}

void tst_JsonWriter::membersAreWrittenInKeyOrder()
{
    QVariantMap map;
    map.insert(latin1("b"), 1);
    map.insert(latin1("B"), 2);
    map.insert(latin1("a"), 3);
    map.insert(latin1(""), 4);
    map.insert(latin1("\xe9"), 5);
    QCOMPARE(written(map), latin1("{\"\":4,\"B\":2,\"a\":3,\"b\":1,\"\\u00e9\":5}"));
}

void tst_JsonWriter::keysAreEscaped()
{
    QCOMPARE(written(object("a/\"\\\n\xe9", 1)), latin1("{\"a\\/\\\"\\\\\\n\\u00e9\":1}"));
}

void tst_JsonWriter::everyUnitIsEscapedByTheTable()
{
    QMap<int, QString> table;
    table[0x08] = latin1("\\b");
    table[0x0c] = latin1("\\f");
    table[0x0a] = latin1("\\n");
    table[0x0d] = latin1("\\r");
    table[0x09] = latin1("\\t");
    table[0x22] = latin1("\\\"");
    table[0x5c] = latin1("\\\\");
    table[0x2f] = latin1("\\/");
    for (int unit = 0; unit <= 0xffff; ++unit) {
        QString content = QString(1, QChar(ushort(unit)));
        if (table.contains(unit))
            content = table.value(unit);
        else if (unit >= 0x80)
            content = latin1("\\u") + QString::number(unit, 16).rightJustified(4, QLatin1Char('0'));
        const QString text = latin1("x") + QChar(ushort(unit)) + latin1("y");
        QCOMPARE(written(text), latin1("\"x") + content + latin1("y\""));
    }
}

void tst_JsonWriter::longTextsAreWrittenWhole()
{
    const int count = 64 * 1024;
    QCOMPARE(written(latin1("ab\n\xe9").repeated(count)), QLatin1Char('"') + latin1("ab\\n\\u00e9").repeated(count) + QLatin1Char('"'));
}

// The room for the text ends at every place once.
void tst_JsonWriter::textsOfEveryLengthAreWrittenWhole()
{
    for (int length = 0; length < 1200; ++length) {
        const QString plain(length, QLatin1Char('a'));
        const QString escapes = latin1("/\xe9").repeated(length % 50);
        const QString escaped = latin1("\\/\\u00e9").repeated(length % 50);
        const QVariantList list = QVariantList() << plain << escapes << length << QVariant() << plain.left(3);
        const QString text = latin1("[\"") + plain + latin1("\",\"") + escaped + latin1("\",") + QString::number(length) + latin1(",null,\"");
        QCOMPARE(written(list), text + plain.left(3) + latin1("\"]"));
    }
}

// Decimals of every length and size and their neighbours, the same in every run
void tst_JsonWriter::doublesAreWrittenAsQtDoes()
{
    quint64 random = 1;
    for (int i = 0; i < 200000; ++i) {
        random = random * Q_UINT64_C(6364136223846793005) + Q_UINT64_C(1442695040888963407);
        const int digits = int(random >> 60);
        const QByteArray mantissa = QByteArray::number(random >> 8).left(digits + 1);
        double number = (mantissa + 'e' + QByteArray::number(i % 60 - 35)).toDouble();
        for (int neighbour = i / 60 % 3; neighbour > 0; --neighbour)
            number = std::nextafter(number, i % 2 ? 0 : 1e300);
        const double value = i % 7 ? number : -number;
        QCOMPARE(written(value), QString::number(value, 'g', 15));
    }
}

// Every decimal of up to 15 digits from 1e-8 on and below 1e15: Qt would write the same, at greater length.
void tst_JsonWriter::shortDoublesAreNotLeftToQt()
{
    quint64 random = 1;
    for (int i = 0; i < 100000; ++i) {
        random = random * Q_UINT64_C(6364136223846793005) + Q_UINT64_C(1442695040888963407);
        const int digits = 1 + i % 15;
        const int exponent = i / 15 % 23 - 8; // of the first digit
        const QByteArray mantissa = i % 2 ? QByteArray::number(random | (Q_UINT64_C(1) << 63)).left(digits) : QByteArray("1");
        const double number = (mantissa + 'e' + QByteArray::number(exponent + 1 - mantissa.size())).toDouble();
        char text[jsonnumber::MaximumLength];
        const int length = jsonnumber::writeShortDouble(number, text);
        QCOMPARE(QByteArray(text, length), QByteArray::number(number, 'g', 15));
    }
}

void tst_JsonWriter::nanAndInfinityAreNullWithoutAnError()
{
    const double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    QCOMPARE(written(QVariantList() << nan << infinity << -infinity), latin1("[null,null,null]"));
    QCOMPARE(written(QVariant(std::numeric_limits<float>::infinity())), latin1("null"));
}

void tst_JsonWriter::indentIsBlanksOrTabs_data()
{
    QTest::addColumn<int>("indent");
    QTest::addColumn<QString>("unit");

    QTest::newRow("none") << 0 << QString();
    QTest::newRow("two blanks") << 2 << latin1("  ");
    QTest::newRow("one tab") << -1 << latin1("\t");
    QTest::newRow("two tabs") << -2 << latin1("\t\t");
}

void tst_JsonWriter::indentIsBlanksOrTabs()
{
    QFETCH(int, indent);
    QFETCH(QString, unit);

    JsonWriter writer;
    writer.setAutoFormatting(true);
    QVERIFY(writer.autoFormatting());
    writer.setAutoFormattingIndent(indent);
    QCOMPARE(writer.autoFormattingIndent(), indent);
    QVERIFY(writer.stringify(QVariantList() << QVariantMap()));
    QCOMPARE(writer.result(), latin1("[\n") + unit + latin1("{\n\n") + unit + latin1("}]"));
}

void tst_JsonWriter::tabIndentIsWrittenOncePerLevel()
{
    JsonWriter writer;
    writer.setAutoFormatting(true);
    writer.setAutoFormattingIndent(-2);
    writer.stringify(object("a", 1), 2);
    QCOMPARE(writer.result(), latin1("\n\t\t\t\t{\n\t\t\t\t \"a\":1\n\t\t\t\t}"));
}

// They are no outermost ones, so their objects begin on a line of their own, but have no indent.
void tst_JsonWriter::levelsBelowTheOutermost_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("formatted");
    const QVariant a(object("a", 1));
    QTest::newRow("-1") << -1 << a << latin1("\n{\n \"a\":1\n}");
    QTest::newRow("-1, object in an object") << -1 << QVariant(object("o", a)) << latin1("\n{\n \"o\":\n{\n \"a\":1\n}\n}");
    QTest::newRow("-1, a list raises it to the outermost") << -1 << QVariant(QVariantList() << a) << latin1("[{ \"a\":1\n}]");
    QTest::newRow("-2, in a list") << -2 << QVariant(QVariantList() << a) << latin1("[\n{\n \"a\":1\n}]");
    QTest::newRow("-2, empty") << -2 << QVariant(QVariantMap()) << latin1("\n{\n\n}");
    QTest::newRow("least") << std::numeric_limits<int>::min() << a << latin1("\n{\n \"a\":1\n}");
}

void tst_JsonWriter::levelsBelowTheOutermost()
{
    QFETCH(int, level);
    QFETCH(QVariant, value);
    QFETCH(QString, formatted);
    JsonWriter writer;
    writer.setAutoFormatting(true);
    writer.stringify(value, level);
    QCOMPARE(writer.result(), formatted);
    JsonWriter compact;
    compact.stringify(value, level);
    QCOMPARE(compact.result(), written(value));
}

void tst_JsonWriter::unsupportedValueIsNullWithAWarning()
{
    QTest::ignoreMessage(QtWarningMsg, opaqueWarning().constData());
    JsonWriter writer;
    QVERIFY(!writer.stringify(QVariant::fromValue(Opaque())));
    QCOMPARE(writer.result(), latin1("null"));
    QCOMPARE(writer.errorString(), opaqueMessage());
}

void tst_JsonWriter::twoUnsupportedValuesGiveTwoLinesAndTwoWarnings()
{
    QTest::ignoreMessage(QtWarningMsg, opaqueWarning().constData());
    QTest::ignoreMessage(QtWarningMsg, opaqueWarning().constData());
    const QVariant opaque = QVariant::fromValue(Opaque());
    QVariantMap map = object("a", opaque);
    map.insert(latin1("b"), 1);
    JsonWriter writer;
    QVERIFY(!writer.stringify(QVariantList() << map << opaque << 2));
    QCOMPARE(writer.result(), latin1("[{\"a\":null,\"b\":1},null,2]"));
    QCOMPARE(writer.errorString(), opaqueMessage() + QLatin1Char('\n') + opaqueMessage());
}

void tst_JsonWriter::nextRunClearsTextAndErrors()
{
    QTest::ignoreMessage(QtWarningMsg, opaqueWarning().constData());
    JsonWriter writer;
    QVERIFY(!writer.stringify(QVariant::fromValue(Opaque())));
    QVERIFY(writer.stringify(1));
    QCOMPARE(writer.result(), latin1("1"));
    QCOMPARE(writer.errorString(), QString());
}

void tst_JsonWriter::workerAppendsAndClearsNothing()
{
    QTest::ignoreMessage(QtWarningMsg, opaqueWarning().constData());
    JsonWriter writer;
    writer.stringify(1, 0);
    writer.stringify(QVariant::fromValue(Opaque()), 0);
    writer.stringify(latin1("a"), 3);
    QCOMPARE(writer.result(), latin1("1null\"a\""));
    QCOMPARE(writer.errorString(), opaqueMessage());
}

void tst_JsonWriter::resultIsACopy()
{
    JsonWriter writer;
    writer.stringify(1);
    const QString first = writer.result();
    writer.stringify(QVariant(2), 0);
    QCOMPARE(first, latin1("1"));
    QCOMPARE(writer.result(), latin1("12"));
}

void tst_JsonWriter::whatIsWrittenCanBeReadAgain()
{
    QVariantMap map = object("text", latin1("a\"\\/\b\f\n\r\t\xe9") + QChar(0x20ac) + QChar(0xd800) + QChar(0));
    map.insert(latin1("list"), QVariantList() << Q_INT64_C(1) << -0.5 << 1e300 << QVariant() << true << false);
    map.insert(latin1("\xe9/"), QVariantMap());
    map.insert(latin1("empty"), QVariant(QVariantList()));
    for (int formatted = 0; formatted < 2; ++formatted) {
        JsonReader reader;
        QVERIFY2(reader.parse(written(map, formatted != 0)), qPrintable(reader.errorString()));
        QCOMPARE(reader.result(), QVariant(map));
    }
}

void tst_JsonWriter::deepestTextThatIsReadCanBeWritten_data()
{
    QTest::addColumn<QString>("opening");
    QTest::addColumn<QString>("closing");

    QTest::newRow("arrays") << latin1("[") << latin1("]");
    QTest::newRow("objects") << latin1("{\"a\":") << latin1("}");
}

void tst_JsonWriter::deepestTextThatIsReadCanBeWritten()
{
    QFETCH(QString, opening);
    QFETCH(QString, closing);

    const QString text = opening.repeated(JsonParser::MaximumDepth) + latin1("1") + closing.repeated(JsonParser::MaximumDepth);
    JsonReader reader;
    QVERIFY(reader.parse(text));
    QVERIFY(written(reader.result()) == text);
}

QTEST_APPLESS_MAIN(tst_JsonWriter)
#include "tst_jsonwriter.moc"
