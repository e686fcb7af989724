#include "jsonparser.h"
#include "jsonreader.h"

#include "guardedmemory.h"
#include "qtversions.h"

#include <QtTest>

class tst_JsonReader : public QObject
{
    Q_OBJECT

private slots:
    void startsWithoutValueAndError();
    void announcementIsRead();
    void errorSaysWhere_data();
    void errorSaysWhere();
    void successClearsTheErrorAndFailureTheResult();
    void encodings_data();
    void encodings();
    void byteOrderMarkIsNotCountedInPositions_data();
    void byteOrderMarkIsNotCountedInPositions();
    void byteOrderMarkAloneIsAnEmptyText_data();
    void byteOrderMarkAloneIsAnEmptyText();
    void secondByteOrderMarkIsAStrayCharacter();
    void charactersBeyondTheBasicPlaneAreTwoUnits_data();
    void charactersBeyondTheBasicPlaneAreTwoUnits();
    void threeBytesAndFewerAreUtf8_data();
    void threeBytesAndFewerAreUtf8();
    void everyOneAndTwoByteTextEndsInAValueOrAnError();
    void nulCharactersDoNotEndTheText();
    void invalidUtf8IsKeptAsReplacementCharacters();
    void cutAnnouncementIsAnErrorAtEveryLength();
    void damagedAnnouncementEndsInAValueOrAnError_data();
    void damagedAnnouncementEndsInAValueOrAnError();
    void positionCountsUtf16Units();
    void deepNestingIsAnErrorWithItsPosition_data();
    void deepNestingIsAnErrorWithItsPosition();
    void textsAroundTheSizeThatIsWidenedOnTheStack();
    void nothingIsReadBehindTheTextThatIsWidenedOnTheStack();
    void nothingIsReadBehindTheBytes();
    void longHostileTextsAreReadToTheirEnd_data();
    void longHostileTextsAreReadToTheirEnd();
};

namespace
{

QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

QByteArray announcement()
{
    return " \t {\"jsonrpc\":\"2.0\",\"method\": \"announce\",\"params\":{\"apiVersion\":\"1.0\","
           "\"device\":{\"name\":\"kelta-1\",\"uuid\":\"900000001\",\"type\":\"Kelta \\u00e9\\n\"},"
           "\"netSettings\":{\"interface\": {\"name\":\"eth0\",\"ipv4\":[{\"address\":\"172.16.0.9\"}],"
           "\"ipv6\":[{\"address\":\"fe80::1\",\"prefix\":64},{\"address\":\"fd12::1\",\"prefix\":-0.5e1}]}},"
           "\"services\":[true,false,null,[],{}],\"expiration\":22}}";
}

// Bytes of the text in units of this many bytes
QByteArray encoded(const QVector<uint> &units, int width, bool bigEndian)
{
    QByteArray data;
    for (int i = 0; i < units.size(); ++i) {
        for (int byte = 0; byte < width; ++byte)
            data += char(units.at(i) >> 8 * (bigEndian ? width - 1 - byte : byte));
    }
    return data;
}

QByteArray utf16(const QString &text, bool bigEndian)
{
    QVector<uint> units;
    for (int i = 0; i < text.size(); ++i)
        units << text.at(i).unicode();
    return encoded(units, 2, bigEndian);
}

QByteArray utf32(const QString &text, bool bigEndian)
{
    return encoded(qtversions::toUcs4(text), 4, bigEndian);
}

const QByteArray utf8Mark("\xef\xbb\xbf", 3);
const QByteArray utf16BigMark("\xfe\xff", 2);
const QByteArray utf16LittleMark("\xff\xfe", 2);
const QByteArray utf32BigMark("\0\0\xfe\xff", 4);
const QByteArray utf32LittleMark("\xff\xfe\0\0", 4);

void addEncodings(const QString &text)
{
    QTest::addColumn<QByteArray>("data");

    QTest::newRow("UTF-8") << text.toUtf8();
    QTest::newRow("UTF-16, big-endian") << utf16(text, true);
    QTest::newRow("UTF-16, little-endian") << utf16(text, false);
    QTest::newRow("UTF-32, big-endian") << utf32(text, true);
    QTest::newRow("UTF-32, little-endian") << utf32(text, false);
    QTest::newRow("UTF-8 with mark") << utf8Mark + text.toUtf8();
    QTest::newRow("UTF-16 with mark, big-endian") << utf16BigMark + utf16(text, true);
    QTest::newRow("UTF-16 with mark, little-endian") << utf16LittleMark + utf16(text, false);
    QTest::newRow("UTF-32 with mark, big-endian") << utf32BigMark + utf32(text, true);
    QTest::newRow("UTF-32 with mark, little-endian") << utf32LittleMark + utf32(text, false);
}

// Holds after every parse, whatever was read.
bool isConsistent(bool ok, const JsonReader &reader)
{
    if (ok)
        return reader.errorString().isEmpty();
    return !reader.result().isValid() && reader.errorString().contains(latin1(" at line "));
}

} // namespace

void tst_JsonReader::startsWithoutValueAndError()
{
    const JsonReader reader;
    QVERIFY(!reader.result().isValid());
    QCOMPARE(reader.errorString(), QString());
}

void tst_JsonReader::announcementIsRead()
{
    JsonReader reader;
    QVERIFY2(reader.parse(announcement()), qPrintable(reader.errorString()));
    const QVariantMap root = reader.result().toMap();
    QCOMPARE(QStringList(root.keys()).join(latin1(" ")), latin1("jsonrpc method params"));
    const QVariantMap params = root.value(latin1("params")).toMap();
    QCOMPARE(params.value(latin1("expiration")), QVariant(Q_INT64_C(22)));
    QCOMPARE(params.value(latin1("expiration")).toString(), latin1("22"));
    QCOMPARE(params.value(latin1("device")).toMap().value(latin1("type")), QVariant(latin1("Kelta \xe9\n")));
    const QVariantMap interface = params.value(latin1("netSettings")).toMap().value(latin1("interface")).toMap();
    QCOMPARE(interface.value(latin1("ipv6")).toList().at(1).toMap().value(latin1("prefix")), QVariant(-5.0));
    const QVariantList services = params.value(latin1("services")).toList();
    QCOMPARE(services, QVariantList() << true << false << QVariant() << QVariant(QVariantList()) << QVariantMap());
}

void tst_JsonReader::errorSaysWhere_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("error");

    QTest::newRow("empty data") << QByteArray("") << latin1(" at line 1 pos 0");
    QTest::newRow("null data") << QByteArray() << latin1(" at line 1 pos 0");
    QTest::newRow("white space") << QByteArray(" \n ") << latin1(" at line 2 pos 3");
    QTest::newRow("two tokens expected") << QByteArray("{\"a\":1\n") << latin1("Expected '}', ',' at line 2 pos 7");
    QTest::newRow("one token expected") << QByteArray("{\"a\" 1}") << latin1("Expected ':' at line 1 pos 6");
    QTest::newRow("end expected") << QByteArray("{} {}") << latin1("Expected 'end of file' at line 1 pos 4");
    QTest::newRow("more tokens expected begins with the blank") << QByteArray("[1,]") << latin1(" at line 1 pos 4");
    QTest::newRow("column is not reset by lines") << QByteArray("[\n1,\n2,\n?]") << latin1(" at line 4 pos 8");
}

void tst_JsonReader::errorSaysWhere()
{
    QFETCH(QByteArray, data);
    QFETCH(QString, error);

    JsonReader reader;
    QVERIFY(!reader.parse(data));
    QVERIFY(!reader.result().isValid());
    QCOMPARE(reader.errorString(), error);

    JsonReader fromText;
    QVERIFY(!fromText.parse(QString::fromLatin1(data.constData(), data.size())));
    QCOMPARE(fromText.errorString(), error);
}

void tst_JsonReader::successClearsTheErrorAndFailureTheResult()
{
    JsonReader reader;
    QVERIFY(!reader.parse(latin1("[")));
    QVERIFY(!reader.errorString().isEmpty());
    QVERIFY(reader.parse(latin1("[1]")));
    QCOMPARE(reader.errorString(), QString());
    QCOMPARE(reader.result(), QVariant(QVariantList() << Q_INT64_C(1)));
    QVERIFY(!reader.parse(latin1("[1}")));
    QVERIFY(!reader.result().isValid());
    QVERIFY(reader.parse(latin1("null")));
    QVERIFY(!reader.result().isValid());
    QCOMPARE(reader.errorString(), QString());
}

void tst_JsonReader::encodings_data()
{
    addEncodings(latin1("[\"") + QChar(0xe9) + QChar(0x20ac) + QChar(0xfeff) + latin1("\"]"));
}

void tst_JsonReader::encodings()
{
    QFETCH(QByteArray, data);

    JsonReader reader;
    QVERIFY2(reader.parse(data), qPrintable(reader.errorString()));
    const QString inside = QString(QChar(0xe9)) + QChar(0x20ac) + QChar(0xfeff);
    const bool isUtf32 = QByteArray(QTest::currentDataTag()).startsWith("UTF-32");
    QCOMPARE(reader.result(), QVariant(QVariantList() << (isUtf32 ? qtversions::afterUtf32(inside) : inside)));
}

void tst_JsonReader::byteOrderMarkIsNotCountedInPositions_data()
{
    addEncodings(latin1("[1?"));
}

void tst_JsonReader::byteOrderMarkIsNotCountedInPositions()
{
    QFETCH(QByteArray, data);

    JsonReader reader;
    QVERIFY(!reader.parse(data));
    QCOMPARE(reader.errorString(), latin1("Expected ']', ',' at line 1 pos 2"));
}

void tst_JsonReader::byteOrderMarkAloneIsAnEmptyText_data()
{
    QTest::addColumn<QByteArray>("data");

    QTest::newRow("UTF-8") << utf8Mark;
    QTest::newRow("UTF-16, big-endian") << utf16BigMark;
    QTest::newRow("UTF-16, little-endian") << utf16LittleMark;
    QTest::newRow("UTF-32, big-endian") << utf32BigMark;
    QTest::newRow("UTF-32, little-endian") << utf32LittleMark;
}

void tst_JsonReader::byteOrderMarkAloneIsAnEmptyText()
{
    QFETCH(QByteArray, data);

    JsonReader reader;
    QVERIFY(!reader.parse(data));
    QCOMPARE(reader.errorString(), latin1(" at line 1 pos 0"));
}

void tst_JsonReader::secondByteOrderMarkIsAStrayCharacter()
{
    JsonReader reader;
    QVERIFY(!reader.parse(utf16LittleMark + utf16LittleMark + utf16(latin1("[1]"), false)));
    QCOMPARE(reader.errorString(), latin1(" at line 1 pos 0"));
    QVERIFY(!reader.parse(QString(1, QChar(0xfeff)) + latin1("[1]")));
    QCOMPARE(reader.errorString(), latin1(" at line 1 pos 0"));
}

void tst_JsonReader::charactersBeyondTheBasicPlaneAreTwoUnits_data()
{
    addEncodings(latin1("[\"") + QChar(0xd83d) + QChar(0xde00) + latin1("\"]"));
}

void tst_JsonReader::charactersBeyondTheBasicPlaneAreTwoUnits()
{
    QFETCH(QByteArray, data);

    JsonReader reader;
    QVERIFY2(reader.parse(data), qPrintable(reader.errorString()));
    const QString face = reader.result().toList().value(0).toString();
    QCOMPARE(face, QString(QChar(0xd83d)) + QChar(0xde00));
}

void tst_JsonReader::threeBytesAndFewerAreUtf8_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("one digit") << QByteArray("1") << QVariant(Q_INT64_C(1));
    QTest::newRow("two digits") << QByteArray("12") << QVariant(Q_INT64_C(12));
    QTest::newRow("three digits") << QByteArray("123") << QVariant(Q_INT64_C(123));
    QTest::newRow("empty object") << QByteArray("{}") << QVariant(QVariantMap());
    QTest::newRow("empty array and a blank") << QByteArray("[] ") << QVariant(QVariantList());
    QTest::newRow("string of one character") << QByteArray("\"a\"") << QVariant(latin1("a"));
    QTest::newRow("UTF-16 digit, big-endian, is not recognised") << QByteArray("\0001", 2) << QVariant();
    QTest::newRow("UTF-16 digit, little-endian, is not recognised") << QByteArray("1\0", 2) << QVariant();
    QTest::newRow("digit behind a mark") << QByteArray("\xfe\xff\0001", 4) << QVariant(Q_INT64_C(1));
    QTest::newRow("four bytes are recognised") << QByteArray("1\0002\0", 4) << QVariant(Q_INT64_C(12));
}

void tst_JsonReader::threeBytesAndFewerAreUtf8()
{
    QFETCH(QByteArray, data);
    QFETCH(QVariant, value);

    JsonReader reader;
    QCOMPARE(reader.parse(data), value.isValid());
    QCOMPARE(reader.result(), value);
}

void tst_JsonReader::everyOneAndTwoByteTextEndsInAValueOrAnError()
{
    int read = 0;
    for (int i = 0; i < 0x10000 + 0x100; ++i) {
        QByteArray data(1, char(i));
        if (i >= 0x100)
            data += char(i >> 8);
        JsonReader reader;
        const bool ok = reader.parse(data);
        QVERIFY(isConsistent(ok, reader));
        read += ok;
    }
    const int digitsAndSigns = 12;
    const int whiteSpaces = 4; // may stand before or behind
    const int numberCharacters = digitsAndSigns + 3; // a point and two letters for the exponent
    const int bracketsAndQuotes = 3; // {}, [] and the empty string
    QCOMPARE(read, digitsAndSigns * (1 + numberCharacters + 2 * whiteSpaces) + bracketsAndQuotes);
}

void tst_JsonReader::nulCharactersDoNotEndTheText()
{
    JsonReader reader;
    QVERIFY(!reader.parse(QByteArray("[12]\0", 5)));
    QCOMPARE(reader.errorString(), latin1("Expected 'end of file' at line 1 pos 4"));
    QVERIFY(reader.parse(QByteArray("[\"a\0b\"]", 7)));
    QCOMPARE(reader.result().toList().value(0).toString().size(), 3);
    QVERIFY(!reader.parse(QByteArray("[[[[\0]]]]", 9)));
    QCOMPARE(reader.errorString(), latin1("Expected ']', ',' at line 1 pos 4"));
}

void tst_JsonReader::invalidUtf8IsKeptAsReplacementCharacters()
{
    JsonReader reader;
    QVERIFY(reader.parse(QByteArray("[\"a\xff\"]")));
    QCOMPARE(reader.result().toList().value(0).toString(), latin1("a") + QChar(0xfffd));
    QVERIFY(reader.parse(QByteArray("[\"a\x80\"]")));
    QCOMPARE(reader.result().toList().value(0).toString(), latin1("a") + QChar(0xfffd));
    QVERIFY(reader.parse(QByteArray("[\"\xc3\"]")));
    QVERIFY(!reader.parse(QByteArray("[\xff]")));
    QCOMPARE(reader.errorString(), latin1("Expected ']', ',' at line 1 pos 1"));
}

void tst_JsonReader::cutAnnouncementIsAnErrorAtEveryLength()
{
    const QByteArray whole = announcement();
    for (int size = 0; size < whole.size(); ++size) {
        JsonReader reader;
        const bool ok = reader.parse(whole.left(size));
        QVERIFY2(!ok, QByteArray::number(size).constData());
        QVERIFY(!reader.result().isValid());
        QVERIFY(reader.errorString().endsWith(latin1(" at line 1 pos %1").arg(size)));
    }
}

void tst_JsonReader::damagedAnnouncementEndsInAValueOrAnError_data()
{
    QTest::addColumn<QByteArray>("replacement");

    QTest::newRow("byte left out") << QByteArray();
    QTest::newRow("NUL") << QByteArray(1, '\0');
    QTest::newRow("quote") << QByteArray("\"");
    QTest::newRow("backslash") << QByteArray("\\");
    QTest::newRow("left brace") << QByteArray("{");
    QTest::newRow("right bracket") << QByteArray("]");
    QTest::newRow("comma") << QByteArray(",");
    QTest::newRow("minus") << QByteArray("-");
    QTest::newRow("begun UTF-8 sequence") << QByteArray("\xc3");
    QTest::newRow("byte that UTF-8 never has") << QByteArray("\xff");
    QTest::newRow("surrogate escape") << QByteArray("\\ud800");
    QTest::newRow("short unit escape") << QByteArray("\\u1");
}

void tst_JsonReader::damagedAnnouncementEndsInAValueOrAnError()
{
    QFETCH(QByteArray, replacement);

    const QByteArray whole = announcement();
    int failed = 0;
    for (int i = 0; i < whole.size(); ++i) {
        QByteArray data = whole;
        data.replace(i, 1, replacement);
        JsonReader reader;
        const bool ok = reader.parse(data);
        QVERIFY2(isConsistent(ok, reader), data.constData());
        failed += !ok;
    }
    QVERIFY(failed > 0);
}

void tst_JsonReader::positionCountsUtf16Units()
{
    JsonReader reader;
    QVERIFY(!reader.parse(QByteArray("[\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\" x]")));
    // [ " and four units " blank and the word x, which is passed
    QCOMPARE(reader.errorString(), latin1("Expected ']', ',' at line 1 pos 9"));
}

void tst_JsonReader::deepNestingIsAnErrorWithItsPosition_data()
{
    QTest::addColumn<QByteArray>("opening");
    QTest::addColumn<QByteArray>("closing");

    QTest::newRow("arrays") << QByteArray("[") << QByteArray("]");
    QTest::newRow("objects") << QByteArray("{\"a\":") << QByteArray("}");
}

void tst_JsonReader::deepNestingIsAnErrorWithItsPosition()
{
    QFETCH(QByteArray, opening);
    QFETCH(QByteArray, closing);

    const int deepest = JsonParser::MaximumDepth;
    const QString tooDeep = latin1(" at line 1 pos %1").arg(deepest * opening.size() + 1);
    JsonReader reader;
    QVERIFY(reader.parse(opening.repeated(deepest) + "1" + closing.repeated(deepest)));
    QVERIFY(!reader.parse(opening.repeated(deepest + 1) + "1" + closing.repeated(deepest + 1)));
    QCOMPARE(reader.errorString(), tooDeep);
    QVERIFY(!reader.parse(opening.repeated(64000)));
    QCOMPARE(reader.errorString(), tooDeep);
    QVERIFY(!reader.parse(opening.repeated(64000) + closing.repeated(64000)));
    QCOMPARE(reader.errorString(), tooDeep);
}

// Under the address sanitizer one unit too many is an error.
void tst_JsonReader::textsAroundTheSizeThatIsWidenedOnTheStack()
{
    for (int size = 2030; size <= 2070; ++size) {
        const QByteArray content(size - 2, 'a');
        JsonReader reader;
        QVERIFY(reader.parse('"' + content + '"'));
        QCOMPARE(reader.result(), QVariant(QString::fromLatin1(content.constData())));
    }
}

void tst_JsonReader::nothingIsReadBehindTheTextThatIsWidenedOnTheStack()
{
    const char *const ends[] = { "12", "-3", "1.5", "1.", "1e5", "1.5e-1", "1e", "1e+", "+", "1-2", "true", "\"a\\n\"", "\"a", "\"\\", "\"\\u00" };
    for (const char *end : ends) {
        JsonReader alone;
        alone.parse(QByteArray(end));
        JsonReader reader;
        reader.parse(QByteArray(end).rightJustified(2048, ' '));
        QCOMPARE(reader.result(), alone.result());
        QCOMPARE(reader.errorString().isEmpty(), alone.errorString().isEmpty());
    }
}

// The memory ends with the bytes: reading one more ends the program.
void tst_JsonReader::nothingIsReadBehindTheBytes()
{
    GuardedMemory memory;
    for (int length = 0; length < 40; ++length) {
        const QByteArray content = QByteArray(length, 'a') + (length % 2 ? "" : "\xc3\xa9");
        const QByteArray text = '"' + content + '"';
        const char *const begin = memory.copy(text.constData(), size_t(text.size()));
        JsonReader reader;
        QVERIFY(reader.parse(QByteArray::fromRawData(begin, text.size())));
        QCOMPARE(reader.result(), QVariant(QString::fromUtf8(content.constData())));
        JsonReader cut;
        QVERIFY(!cut.parse(QByteArray::fromRawData(begin + 1, text.size() - 1)));
    }
}

void tst_JsonReader::longHostileTextsAreReadToTheirEnd_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<int>("size"); // characters of the string or elements of the list

    const int count = 64 * 1024;
    QTest::newRow("escaped quotes") << '"' + QByteArray("\\\"").repeated(count) + '"' << true << count;
    QTest::newRow("escaped backslashes") << '"' + QByteArray("\\\\").repeated(count) + '"' << true << count;
    QTest::newRow("units") << '"' + QByteArray("\\ud800").repeated(count) + '"' << true << count;
    QTest::newRow("escapes without an end") << '"' + QByteArray("\\n").repeated(count) << false << 0;
    QTest::newRow("strings that never end") << '[' + QByteArray("\"\\\",").repeated(count) << false << 0;
    QTest::newRow("short strings") << '[' + QByteArray("\"\",").repeated(count) + "1]" << true << count + 1;
    QTest::newRow("digits") << QByteArray("7").repeated(count) << true << 0;
    QTest::newRow("digits of a fraction") << '0' + QByteArray(".") + QByteArray("7").repeated(count) << true << 0;
    QTest::newRow("signs") << QByteArray("-").repeated(count) << true << 0;
    QTest::newRow("points") << QByteArray("1.").repeated(count) << true << 0;
    QTest::newRow("letters") << QByteArray("a").repeated(count) << false << 0;
    QTest::newRow("line feeds") << QByteArray("\n").repeated(count) + "[1]" << true << 1;
    QTest::newRow("commas") << '[' + QByteArray(",").repeated(count) << false << 0;
    QTest::newRow("one key again and again") << '{' + QByteArray("\"a\":[],").repeated(count) + "\"a\":1}" << true << 0;
}

void tst_JsonReader::longHostileTextsAreReadToTheirEnd()
{
    QFETCH(QByteArray, data);
    QFETCH(bool, ok);
    QFETCH(int, size);

    JsonReader reader;
    QCOMPARE(reader.parse(data), ok);
    QVERIFY(isConsistent(ok, reader));
    const QVariant value = reader.result();
    if (value.userType() == QMetaType::QString)
        QCOMPARE(value.toString().size(), size);
    else
        QCOMPARE(value.toList().size(), size);
}

QTEST_APPLESS_MAIN(tst_JsonReader)
#include "tst_jsonreader.moc"
