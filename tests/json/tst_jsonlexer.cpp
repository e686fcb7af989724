#include "jsongrammar_p.h"
#include "jsonlexer.h"

#include "guardedmemory.h"

#include <QThread>
#include <QtTest>

#include <cmath>
#include <limits>

class tst_JsonLexer : public QObject
{
    Q_OBJECT

private slots:
    void startsAtLineOneAndPositionZeroWithoutAValue();
    void tokenCodesAreTheTerminalsOfTheGrammar_data();
    void tokenCodesAreTheTerminalsOfTheGrammar();
    void emptyTextOrOnlyWhiteSpaceEndsAtOnce_data();
    void emptyTextOrOnlyWhiteSpaceEndsAtOnce();
    void tokensAreFoundOneAfterTheOther();
    void valueIsClearedByTheNextToken();
    void valueCanBeSwappedOut();
    void onlyLineFeedsBetweenTokensAdvanceTheLine_data();
    void onlyLineFeedsBetweenTokensAdvanceTheLine();
    void strayCharacterIsAnErrorAndIsNotPassed_data();
    void strayCharacterIsAnErrorAndIsNotPassed();
    void keywords_data();
    void keywords();
    void strings_data();
    void strings();
    void stringWithoutEscapesIsTakenInOnePiece();
    void unterminatedStringIsAnErrorAtTheEnd_data();
    void unterminatedStringIsAnErrorAtTheEnd();
    void everyPairOfAUnicodeEscapeIsReadAsQtReadsIt();
    void unicodeEscapeNeedsACharacterBehindItsDigits();
    void unicodeEscapeMaySwallowTheClosingQuote();
    void escapesFarBeyondTheLocalBuffer();
    void endOfAStringIsFoundAtEveryDistance();
    void highUnitsEndNoString();
    void stringsEndWithTheirTextWhateverIsBehind();
    void keysOfUpTo32CharactersAreSharedAmongTexts();
    void valuesAreNotShared();
    void emptyKeyIsNoNullText();
    void keysAreNotTakenForOneAnother_data();
    void keysAreNotTakenForOneAnother();
    void everyKeyIsToldFromItsBeginning();
    void integers_data();
    void integers();
    void floatingNumbers_data();
    void floatingNumbers();
    void onlyANumberCanBeMinusZero();
    void everyShortNumberIsReadByTheRule();
    void everyExponentIsReadAsQtReadsIt();
    void tokensEndWithTheirTextWhateverIsBehind();
    void nothingIsReadBehindTheText();
    void numberEndsAtTheFirstOtherCharacter_data();
    void numberEndsAtTheFirstOtherCharacter();
    void scannersStartAtTheCurrentPosition();
};

namespace
{

QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

QString quoted(const QString &content)
{
    return QLatin1Char('"') + content + QLatin1Char('"');
}

} // namespace

void tst_JsonLexer::startsAtLineOneAndPositionZeroWithoutAValue()
{
    const JsonLexer lexer(latin1("1"));
    QCOMPARE(lexer.line(), 1);
    QCOMPARE(lexer.pos(), 0);
    QVERIFY(!lexer.symbolValue().isValid());
}

void tst_JsonLexer::tokenCodesAreTheTerminalsOfTheGrammar_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("spelling");

    QTest::newRow("end of file") << QString() << 0 << latin1("end of file");
    QTest::newRow("string") << latin1("\"a\"") << 1 << latin1("string");
    QTest::newRow("number") << latin1("7") << 2 << latin1("number");
    QTest::newRow("left brace") << latin1("{") << 3 << latin1("{");
    QTest::newRow("right brace") << latin1("}") << 4 << latin1("}");
    QTest::newRow("left bracket") << latin1("[") << 5 << latin1("[");
    QTest::newRow("right bracket") << latin1("]") << 6 << latin1("]");
    QTest::newRow("colon") << latin1(":") << 7 << latin1(":");
    QTest::newRow("comma") << latin1(",") << 8 << latin1(",");
    QTest::newRow("false") << latin1("false") << 9 << latin1("false");
    QTest::newRow("true") << latin1("true") << 10 << latin1("true");
    QTest::newRow("null") << latin1("null") << 11 << latin1("null");
    QTest::newRow("error") << latin1("?") << 12 << latin1("error");
}

void tst_JsonLexer::tokenCodesAreTheTerminalsOfTheGrammar()
{
    QFETCH(QString, text);
    QFETCH(int, code);
    QFETCH(QString, spelling);

    QCOMPARE(JsonLexer(text).lex(), code);
    QCOMPARE(QString::fromLatin1(JsonGrammar::spell[code]), spelling);
}

void tst_JsonLexer::emptyTextOrOnlyWhiteSpaceEndsAtOnce_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("null text") << QString();
    QTest::newRow("empty text") << latin1("");
    QTest::newRow("all four kinds of white space") << latin1(" \t\r\n ");
}

void tst_JsonLexer::emptyTextOrOnlyWhiteSpaceEndsAtOnce()
{
    QFETCH(QString, text);

    JsonLexer lexer(text);
    QCOMPARE(lexer.lex(), 0);
    QCOMPARE(lexer.pos(), text.size());
    QCOMPARE(lexer.lex(), 0);
}

void tst_JsonLexer::tokensAreFoundOneAfterTheOther()
{
    JsonLexer lexer(latin1(" {\"a\" :[1,true]\t}"));
    const int codes[] = { 3, 1, 7, 5, 2, 8, 10, 6, 4, 0 };
    const int positions[] = { 2, 5, 7, 8, 9, 10, 14, 15, 17, 17 };
    for (int i = 0; i < 10; ++i) {
        QCOMPARE(lexer.lex(), codes[i]);
        QCOMPARE(lexer.pos(), positions[i]);
    }
}

void tst_JsonLexer::valueIsClearedByTheNextToken()
{
    JsonLexer lexer(latin1("\"a\",5 null"));
    lexer.lex();
    QCOMPARE(lexer.symbolValue(), QVariant(latin1("a")));
    lexer.lex();
    QVERIFY(!lexer.symbolValue().isValid());
    lexer.lex();
    QCOMPARE(lexer.symbolValue(), QVariant(Q_INT64_C(5)));
    QCOMPARE(lexer.lex(), 11);
    QVERIFY(!lexer.symbolValue().isValid());
}

void tst_JsonLexer::valueCanBeSwappedOut()
{
    JsonLexer lexer(latin1("\"a\" 1"));
    lexer.lex();
    QVariant value(17);
    lexer.swapSymbolValue(value);
    QCOMPARE(value, QVariant(latin1("a")));
    QCOMPARE(lexer.symbolValue(), QVariant(17));
    lexer.lex();
    QCOMPARE(lexer.symbolValue(), QVariant(Q_INT64_C(1)));
}

void tst_JsonLexer::onlyLineFeedsBetweenTokensAdvanceTheLine_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("line");

    QTest::newRow("line feed") << latin1("\n1") << 2;
    QTest::newRow("carriage return alone") << latin1("\r1") << 1;
    QTest::newRow("carriage return and line feed") << latin1("\r\n1") << 2;
    QTest::newRow("three line feeds with blanks") << latin1("\n \n\t\n1") << 4;
    QTest::newRow("line feed inside a string") << latin1("\"a\nb\"") << 1;
    QTest::newRow("line feed behind the token") << latin1("1\n") << 1;
}

void tst_JsonLexer::onlyLineFeedsBetweenTokensAdvanceTheLine()
{
    QFETCH(QString, text);
    QFETCH(int, line);

    JsonLexer lexer(text);
    lexer.lex();
    QCOMPARE(lexer.line(), line);
}

void tst_JsonLexer::strayCharacterIsAnErrorAndIsNotPassed_data()
{
    QTest::addColumn<QString>("stray");

    QTest::newRow("question mark") << latin1("?");
    QTest::newRow("upper-case letter") << latin1("T");
    QTest::newRow("capital True") << latin1("True");
    QTest::newRow("apostrophe") << latin1("'a'");
    QTest::newRow("point") << latin1(".5");
    QTest::newRow("slash") << latin1("//");
    QTest::newRow("backslash") << latin1("\\");
    QTest::newRow("NUL") << QString(1, QChar(0));
    QTest::newRow("form feed") << latin1("\f");
    QTest::newRow("vertical tab") << latin1("\v");
    QTest::newRow("no-break space") << QString(1, QChar(0xa0));
    QTest::newRow("byte-order mark") << QString(1, QChar(0xfeff));
    QTest::newRow("Arabic digit") << QString(1, QChar(0x0665));
    QTest::newRow("a with a high byte") << QString(1, QChar(0x0161));
    QTest::newRow("lone surrogate") << QString(1, QChar(0xd800));
}

void tst_JsonLexer::strayCharacterIsAnErrorAndIsNotPassed()
{
    QFETCH(QString, stray);

    JsonLexer lexer(latin1("  ") + stray);
    QCOMPARE(lexer.lex(), 12);
    QCOMPARE(lexer.pos(), 2);
    QCOMPARE(lexer.lex(), 12);
    QCOMPARE(lexer.pos(), 2);
}

void tst_JsonLexer::keywords_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("length");

    QTest::newRow("true") << latin1("true") << 10 << 4;
    QTest::newRow("null") << latin1("null") << 11 << 4;
    QTest::newRow("false") << latin1("false") << 9 << 5;
    QTest::newRow("tru") << latin1("tru") << 12 << 3;
    QTest::newRow("nulls") << latin1("nulls") << 12 << 5;
    QTest::newRow("truex is one run") << latin1("truex") << 12 << 5;
    QTest::newRow("truefalse is one run") << latin1("truefalse") << 12 << 9;
    QTest::newRow("four other letters") << latin1("trux") << 12 << 4;
    QTest::newRow("five other letters") << latin1("falsy") << 12 << 5;
    QTest::newRow("one letter") << latin1("a") << 12 << 1;
    QTest::newRow("z") << latin1("z") << 12 << 1;
    QTest::newRow("ends at an upper-case letter") << latin1("trueX") << 10 << 4;
    QTest::newRow("ends at a digit") << latin1("null0") << 11 << 4;
    QTest::newRow("ends at a bracket") << latin1("false]") << 9 << 5;
    QTest::newRow("ends at the character before a") << latin1("true`") << 10 << 4;
    QTest::newRow("ends at the character behind z") << latin1("true{") << 10 << 4;
    QTest::newRow("upper case inside") << latin1("tRue") << 12 << 1;
}

void tst_JsonLexer::keywords()
{
    QFETCH(QString, text);
    QFETCH(int, code);
    QFETCH(int, length);

    JsonLexer lexer(text);
    QCOMPARE(lexer.lex(), code);
    QCOMPARE(lexer.pos(), length);
    QVERIFY(!lexer.symbolValue().isValid());

    JsonLexer scanner(text);
    QCOMPARE(scanner.parseKeyword(), code);
    QCOMPARE(scanner.pos(), length);
}

void tst_JsonLexer::strings_data()
{
    QTest::addColumn<QString>("content");
    QTest::addColumn<QString>("value");

    QTest::newRow("empty") << latin1("") << latin1("");
    QTest::newRow("plain") << latin1("abc") << latin1("abc");
    QTest::newRow("brackets and commas") << latin1("[{,:}]") << latin1("[{,:}]");
    QTest::newRow("raw control characters") << latin1("a\n\t\x01z") << latin1("a\n\t\x01z");
    QTest::newRow("raw NUL") << QString(1, QChar(0)) << QString(1, QChar(0));
    QTest::newRow("escape for the unit 00e9 between a and b") << latin1("a\\u00e9b") << latin1("a\xe9"
                                                                                               "b");
    QTest::newRow("backspace") << latin1("\\b") << latin1("\b");
    QTest::newRow("form feed") << latin1("\\f") << latin1("\f");
    QTest::newRow("line feed") << latin1("\\n") << latin1("\n");
    QTest::newRow("carriage return") << latin1("\\r") << latin1("\r");
    QTest::newRow("tab") << latin1("\\t") << latin1("\t");
    QTest::newRow("backslash") << latin1("\\\\") << latin1("\\");
    QTest::newRow("double quote") << latin1("\\\"") << latin1("\"");
    QTest::newRow("slash") << latin1("\\/") << latin1("/");
    QTest::newRow("unknown escape drops the backslash") << latin1("\\q\\U\\0") << latin1("qU0");
    QTest::newRow("backslash before a line feed") << latin1("\\\n") << latin1("\n");
    QTest::newRow("plain before, between and behind") << latin1("ab\\ncd\\tef") << latin1("ab\ncd\tef");
    QTest::newRow("two backslashes before the quote") << latin1("a\\\\") << latin1("a\\");
    QTest::newRow("unit with upper-case digits") << latin1("\\u00E9") << latin1("\xe9");
    QTest::newRow("unit with high byte") << latin1("\\u20ac") << QString(1, QChar(0x20ac));
    QTest::newRow("unit zero") << latin1("\\u0000") << QString(1, QChar(0));
    QTest::newRow("unit ffff") << latin1("\\uffff") << QString(1, QChar(0xffff));
    QTest::newRow("surrogate pair") << latin1("\\ud83d\\ude00") << QString(QChar(0xd83d)) + QChar(0xde00);
    QTest::newRow("lone high surrogate") << latin1("\\ud83d") << QString(1, QChar(0xd83d));
    QTest::newRow("lone low surrogate") << latin1("\\ude00x") << QString(QChar(0xde00)) + QLatin1Char('x');
    QTest::newRow("fifth digit is a character") << latin1("\\u00e99") << latin1("\xe9"
                                                                                "9");
    QTest::newRow("invalid high pair counts as 0") << latin1("\\uzz41") << latin1("A");
    QTest::newRow("invalid low pair counts as 0") << latin1("\\u41zz") << QString(1, QChar(0x4100));
    QTest::newRow("both pairs invalid") << latin1("\\uwxyz") << QString(1, QChar(0));
    QTest::newRow("half-valid pair counts as 0") << latin1("\\u0g4h") << QString(1, QChar(0));
    QTest::newRow("minus sign in a pair counts as 0") << latin1("\\u-1-1") << QString(1, QChar(0));
    QTest::newRow("plus sign and blank in a pair are passed over") << latin1("\\u+1 2") << QString(1, QChar(0x0102));
    QTest::newRow("escapes next to each other") << latin1("\\n\\n\\\"\\\\\\n") << latin1("\n\n\"\\\n");
    QTest::newRow("non-ASCII as it is") << QString(3, QChar(0x4e2d)) << QString(3, QChar(0x4e2d));
}

void tst_JsonLexer::strings()
{
    QFETCH(QString, content);
    QFETCH(QString, value);

    const QString text = quoted(content);
    JsonLexer lexer(text + QLatin1Char(','));
    QCOMPARE(lexer.lex(), 1);
    QCOMPARE(lexer.symbolValue().userType(), int(QMetaType::QString));
    QCOMPARE(lexer.symbolValue().toString(), value);
    QVERIFY(!lexer.symbolValue().toString().isNull());
    QCOMPARE(lexer.pos(), text.size());
    QCOMPARE(lexer.line(), 1);
    QCOMPARE(lexer.lex(), 8);

    // The closing quote may be the last character of the text.
    JsonLexer atEnd(text);
    QCOMPARE(atEnd.lex(), 1);
    QCOMPARE(atEnd.symbolValue().toString(), value);
    QCOMPARE(atEnd.pos(), text.size());
}

void tst_JsonLexer::stringWithoutEscapesIsTakenInOnePiece()
{
    // The first quote ends the string even when a backslash comes right behind it.
    JsonLexer lexer(latin1("\"abc\"\\n\""));
    QCOMPARE(lexer.lex(), 1);
    QCOMPARE(lexer.symbolValue(), QVariant(latin1("abc")));
    QCOMPARE(lexer.pos(), 5);
}

void tst_JsonLexer::unterminatedStringIsAnErrorAtTheEnd_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("quote, abc and the end") << latin1("\"abc");
    QTest::newRow("quote alone") << latin1("\"");
    QTest::newRow("ends in a backslash") << latin1("\"abc\\");
    QTest::newRow("ends in an escaped quote") << latin1("\"abc\\\"");
    QTest::newRow("ends behind an escape") << latin1("\"\\nabc");
    QTest::newRow("ends in \\u") << latin1("\"\\u");
    QTest::newRow("ends in a short \\u") << latin1("\"\\u00e");
    QTest::newRow("ends in a whole \\u") << latin1("\"\\u00e9");
    QTest::newRow("line feeds") << latin1("\"\n\n");
}

void tst_JsonLexer::unterminatedStringIsAnErrorAtTheEnd()
{
    QFETCH(QString, text);

    JsonLexer lexer(text);
    QCOMPARE(lexer.lex(), 12);
    QCOMPARE(lexer.pos(), text.size());
    QVERIFY(!lexer.symbolValue().isValid());
    QCOMPARE(lexer.lex(), 0);
}

void tst_JsonLexer::everyPairOfAUnicodeEscapeIsReadAsQtReadsIt()
{
    for (ushort first = 1; first < 0x80; ++first) {
        QString content;
        QString expected;
        for (ushort second = 1; second < 0x80; ++second) {
            const QString pair = QString(QChar(first)) + QChar(second);
            content += latin1("\\u00") + pair;
            expected += QChar(pair.toUShort(0, 16));
        }
        JsonLexer lexer(quoted(content));
        QCOMPARE(lexer.lex(), 1);
        QCOMPARE(lexer.symbolValue(), QVariant(expected));
    }
}

void tst_JsonLexer::unicodeEscapeNeedsACharacterBehindItsDigits()
{
    // Three characters behind the u, the last being the quote: too few for four digits.
    JsonLexer tooShort(latin1("\"\\u41\""));
    QCOMPARE(tooShort.lex(), 1);
    QCOMPARE(tooShort.symbolValue(), QVariant(latin1("u41")));

    // The fourth character behind the u is the last one of the text, so it is no digit of the escape.
    JsonLexer lastIsQuote(latin1("\"\\u123\""));
    QCOMPARE(lastIsQuote.lex(), 1);
    QCOMPARE(lastIsQuote.symbolValue(), QVariant(latin1("u123")));

    JsonLexer enough(latin1("\"\\u0041\""));
    QCOMPARE(enough.lex(), 1);
    QCOMPARE(enough.symbolValue(), QVariant(latin1("A")));
}

void tst_JsonLexer::unicodeEscapeMaySwallowTheClosingQuote()
{
    // The four characters are 1 2 " and a comma: the second pair is no number, and the string goes on.
    JsonLexer lexer(latin1("\"\\u12\",x\""));
    QCOMPARE(lexer.lex(), 1);
    QCOMPARE(lexer.symbolValue(), QVariant(QString(QChar(0x1200)) + QLatin1Char('x')));
    QCOMPARE(lexer.pos(), 9);
}

void tst_JsonLexer::escapesFarBeyondTheLocalBuffer()
{
    const int count = 64 * 1024;
    JsonLexer lexer(quoted(latin1("\\nab\\u00e9").repeated(count)));
    QCOMPARE(lexer.lex(), 1);
    QCOMPARE(lexer.symbolValue(), QVariant(latin1("\nab\xe9").repeated(count)));
}

static void findEndsOfStrings(const QString &plain)
{
    JsonLexer lexer(quoted(plain) + quoted(plain + latin1("\\n") + plain) + latin1("\"") + plain);
    QCOMPARE(lexer.lex(), 1);
    QCOMPARE(lexer.symbolValue(), QVariant(plain));
    QCOMPARE(lexer.pos(), plain.size() + 2);
    QCOMPARE(lexer.lex(), 1);
    QCOMPARE(lexer.symbolValue(), QVariant(plain + QLatin1Char('\n') + plain));
    QCOMPARE(lexer.lex(), 12);
    QCOMPARE(lexer.pos(), plain.size() * 4 + 7);
}

void tst_JsonLexer::endOfAStringIsFoundAtEveryDistance()
{
    for (int length = 0; length < 40; ++length)
        findEndsOfStrings(QString(length, QLatin1Char('a')));
    for (ushort unit = 1; unit < 0x100; ++unit) {
        for (int length = 1; length < 9 && unit != '"' && unit != '\\'; ++length)
            findEndsOfStrings(QString(length, QChar(unit)));
    }
}

// Units whose top bit is set, and those that differ from a quote or a backslash only in their high byte
void tst_JsonLexer::highUnitsEndNoString()
{
    const ushort high[] = { 0x8000, 0x8022, 0x805c, 0x0122, 0x015c, 0x2200, 0x5c00, 0xffff, 0x0021, 0x0023, 0x005b, 0x005d };
    for (ushort unit : high) {
        const QString plain = QString(11, QChar(unit));
        JsonLexer lexer(quoted(plain) + latin1(",\""));
        QCOMPARE(lexer.lex(), 1);
        QCOMPARE(lexer.symbolValue(), QVariant(plain));
        QCOMPARE(lexer.lex(), 8);
    }
}

// Quotes and backslashes behind the end are not looked for, also behind units that look like them at first.
void tst_JsonLexer::stringsEndWithTheirTextWhateverIsBehind()
{
    const ushort units[] = { 'a', 0x8000, 0x8022, 0x805c, 0xffff };
    for (ushort unit : units) {
        for (int length = 0; length < 12; ++length) {
            const QString text = QLatin1Char('"') + QString(length, QChar(unit));
            const QString more = text + latin1("\"\\\"\\\"\\");
            JsonLexer lexer(QString::fromRawData(more.constData(), text.size()));
            QCOMPARE(lexer.lex(), 12);
            QCOMPARE(lexer.pos(), text.size());
        }
    }
}

static QString lexedText(const QString &text)
{
    JsonLexer lexer(text);
    lexer.lex();
    return lexer.symbolValue().toString();
}

void tst_JsonLexer::keysOfUpTo32CharactersAreSharedAmongTexts()
{
    for (int size = 1; size < 40; ++size) {
        const QString key(size, QLatin1Char('s'));
        const QString one = lexedText(quoted(key) + latin1(":1"));
        const QString other = lexedText(quoted(key) + latin1(":2"));
        QCOMPARE(one, key);
        QCOMPARE(other, key);
        QCOMPARE(one.constData() == other.constData(), size <= 32);
    }
}

void tst_JsonLexer::valuesAreNotShared()
{
    const char *const ends[] = { "", ",", " :", "}" };
    for (const char *end : ends) {
        const QString one = lexedText(latin1("\"value\"") + latin1(end));
        const QString other = lexedText(latin1("\"value\"") + latin1(end));
        QCOMPARE(one, other);
        QVERIFY(one.constData() != other.constData());
    }
    const QString text = latin1("\"value\":");
    const QString one = lexedText(QString::fromRawData(text.constData(), 7)); // without the colon
    const QString other = lexedText(QString::fromRawData(text.constData(), 7));
    QCOMPARE(one, other);
    QVERIFY(one.constData() != other.constData());
}

// In a thread of its own, where no key has been read before.
void tst_JsonLexer::emptyKeyIsNoNullText()
{
    class Reader : public QThread
    {
    public:
        QString key;

    protected:
        void run() override { key = lexedText(latin1("\"\":1")); }
    };
    Reader reader;
    reader.start();
    QVERIFY(reader.wait());
    QCOMPARE(reader.key, latin1(""));
    QVERIFY(!reader.key.isNull());
}

void tst_JsonLexer::keysAreNotTakenForOneAnother_data()
{
    QTest::addColumn<QString>("one");
    QTest::addColumn<QString>("other");

    QTest::newRow("different in the middle") << latin1("abcde") << latin1("abXde");
    QTest::newRow("one character") << latin1("a") << latin1("b");
    QTest::newRow("empty") << latin1("") << latin1("a");
    QTest::newRow("beginning of the other") << latin1("aa") << latin1("aaa");
    QTest::newRow("different in the high byte") << QString(3, QChar(0x0161)) << QString(3, QChar(0x0261));
    QTest::newRow("32 characters") << QString(32, QLatin1Char('k')) << QString(31, QLatin1Char('k'));
    QTest::newRow("33 characters") << QString(33, QLatin1Char('k')) << QString(32, QLatin1Char('k'));
}

void tst_JsonLexer::keysAreNotTakenForOneAnother()
{
    QFETCH(QString, one);
    QFETCH(QString, other);

    JsonLexer lexer((quoted(one) + QLatin1Char(':') + quoted(other) + QLatin1Char(':')).repeated(2));
    for (int i = 0; i < 2; ++i) {
        lexer.lex();
        QCOMPARE(lexer.symbolValue(), QVariant(one));
        QCOMPARE(lexer.lex(), 7);
        lexer.lex();
        QCOMPARE(lexer.symbolValue(), QVariant(other));
        QCOMPARE(lexer.lex(), 7);
    }
}

// Whatever has been read before: keys of which one is the beginning of the other may have the same place in the table.
void tst_JsonLexer::everyKeyIsToldFromItsBeginning()
{
    for (char second = ' '; second < 127; ++second) {
        for (char third = ' '; third < 127; ++third) {
            const QString whole = QLatin1Char('k') + QString(QLatin1Char(second)) + QLatin1Char(third);
            if (whole.contains(QLatin1Char('"')) || whole.contains(QLatin1Char('\\')))
                continue;
            const QString beginning = whole.left(2);
            QCOMPARE(lexedText(quoted(whole) + latin1(":")), whole);
            QCOMPARE(lexedText(quoted(beginning) + latin1(":")), beginning);
            QCOMPARE(lexedText(quoted(whole) + latin1(":")), whole);
        }
    }
}

void tst_JsonLexer::integers_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<qlonglong>("value");

    QTest::newRow("zero") << latin1("0") << Q_INT64_C(0);
    QTest::newRow("-5") << latin1("-5") << Q_INT64_C(-5);
    QTest::newRow("+5") << latin1("+5") << Q_INT64_C(5);
    QTest::newRow("lone minus") << latin1("-") << Q_INT64_C(0);
    QTest::newRow("lone plus") << latin1("+") << Q_INT64_C(0);
    QTest::newRow("minus zero") << latin1("-0") << Q_INT64_C(0);
    QTest::newRow("leading zero") << latin1("01") << Q_INT64_C(1);
    QTest::newRow("sign inside") << latin1("1-2") << Q_INT64_C(12);
    QTest::newRow("plus inside") << latin1("1+2") << Q_INT64_C(12);
    QTest::newRow("sign at the end") << latin1("12-") << Q_INT64_C(12);
    QTest::newRow("two minus signs") << latin1("--5") << Q_INT64_C(-5);
    QTest::newRow("plus before minus is positive") << latin1("+-5") << Q_INT64_C(5);
    QTest::newRow("minus before plus is negative") << latin1("-+5") << Q_INT64_C(-5);
    QTest::newRow("largest") << latin1("9223372036854775807") << std::numeric_limits<qlonglong>::max();
    QTest::newRow("smallest") << latin1("-9223372036854775808") << std::numeric_limits<qlonglong>::min();
    QTest::newRow("one too large wraps") << latin1("9223372036854775808") << std::numeric_limits<qlonglong>::min();
    QTest::newRow("2 to the 64th wraps to 0") << latin1("18446744073709551616") << Q_INT64_C(0);
    QTest::newRow("2 to the 64th and 7, negative") << latin1("-18446744073709551623") << Q_INT64_C(-7);
    QTest::newRow("a hundred zeros behind a one") << QLatin1Char('1') + QString(100, QLatin1Char('0')) << Q_INT64_C(0);
}

void tst_JsonLexer::integers()
{
    QFETCH(QString, text);
    QFETCH(qlonglong, value);

    JsonLexer lexer(text);
    QCOMPARE(lexer.lex(), 2);
    QCOMPARE(lexer.symbolValue().userType(), int(QMetaType::LongLong));
    QCOMPARE(lexer.symbolValue().toLongLong(), value);
    QCOMPARE(lexer.pos(), text.size());
}

void tst_JsonLexer::floatingNumbers_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<double>("value");

    QTest::newRow("-0.5") << latin1("-0.5") << -0.5;
    QTest::newRow("+1.5") << latin1("+1.5") << 1.5;
    QTest::newRow("1e5") << latin1("1e5") << 100000.0;
    QTest::newRow("1E5") << latin1("1E5") << 100000.0;
    QTest::newRow("1e+5") << latin1("1e+5") << 100000.0;
    QTest::newRow("25e-1") << latin1("25e-1") << 2.5;
    QTest::newRow("1.0 stays a double") << latin1("1.0") << 1.0;
    QTest::newRow("point at the end") << latin1("1.") << 1.0;
    QTest::newRow("point behind the sign") << latin1("-.5") << -0.5;
    QTest::newRow("two points do not convert") << latin1("1.2.3") << 0.0;
    QTest::newRow("sign inside does not convert") << latin1("1-2.5") << 0.0;
    QTest::newRow("two signs do not convert") << latin1("-+1.5") << 0.0;
    QTest::newRow("exponent without digits does not convert") << latin1("1e") << 0.0;
    QTest::newRow("two exponents do not convert") << latin1("1e5e5") << 0.0;
    QTest::newRow("too large does not convert") << latin1("1e400") << 0.0;
    QTest::newRow("too large and negative does not convert") << latin1("-1e400") << 0.0;
    QTest::newRow("largest") << latin1("1.7976931348623157e308") << std::numeric_limits<double>::max();
    QTest::newRow("seventeen digits") << latin1("0.30000000000000004") << 0.1 + 0.2;
    QTest::newRow("one tenth") << latin1("0.1") << 0.1;
    QTest::newRow("exactly representable with 22 powers") << latin1("1e22") << 1e22;
    QTest::newRow("just above the exact powers of ten") << latin1("1e23") << 1e23;
    QTest::newRow("just below the exact powers of ten") << latin1("3e-23") << 3e-23;
    QTest::newRow("2 to the 53rd and one") << latin1("9007199254740993.0") << 9007199254740992.0;
    QTest::newRow("digits beyond 64 bits") << latin1("123456789012345678901234567890.5") << 123456789012345678901234567890.5;
    QTest::newRow("zeros in front of the digits") << latin1("000000000000000000000000000001.5") << 1.5;
    QTest::newRow("long fraction") << latin1("0.") + QString(400, QLatin1Char('3')) << 1.0 / 3;
    QTest::newRow("2 to the 53rd with a fraction") << latin1("900719925474099.2") << 900719925474099.2;
    QTest::newRow("one more than that, a tenth") << latin1("900719925474099.3") << 900719925474099.3;
    QTest::newRow("2 to the 53rd and one, ten times") << latin1("9007199254740993e1") << 90071992547409930.0;
    QTest::newRow("nineteen digits") << latin1("1.000000000000000001") << 1.000000000000000001;
    QTest::newRow("nineteen digits, small whole") << latin1("0.000000000000000003") << 3e-18;
    QTest::newRow("twenty digits, nearly all of them zeros") << latin1("0.0000000000000000003") << 3e-19;
    QTest::newRow("twenty digits that wrap to a small number") << latin1("1844674407370955162.1") << 1844674407370955162.1;
    QTest::newRow("twenty-one digits that wrap to a small number") << latin1("18446744073709551617.0") << 18446744073709551617.0;
    QTest::newRow("exact power above, with a fraction") << latin1("1.5e23") << 1.5e23;
    QTest::newRow("exact power below, with a fraction") << latin1("1.5e-21") << 1.5e-21;
    QTest::newRow("beyond the exact power below, with a fraction") << latin1("1.5e-22") << 1.5e-22;
    QTest::newRow("point right before the exponent") << latin1("12.e1") << 120.0;
    QTest::newRow("exponent of three digits") << latin1("1e005") << 1e5;
    QTest::newRow("exponent of four digits") << latin1("1e0005") << 1e5;
    QTest::newRow("exponent of a sign alone") << latin1("1e+") << 0.0;
    QTest::newRow("point behind the exponent does not convert") << latin1("1e5.") << 0.0;
    QTest::newRow("sign behind the fraction does not convert") << latin1("1.5-") << 0.0;
    QTest::newRow("sign before the point does not convert") << latin1("1-.5") << 0.0;
    QTest::newRow("two signs in the exponent do not convert") << latin1("1e+-5") << 0.0;
    QTest::newRow("smallest") << latin1("4.9e-324") << std::numeric_limits<double>::denorm_min();
    QTest::newRow("huge exponent") << latin1("1e99999999999999999999") << 0.0;
    QTest::newRow("huge negative exponent") << latin1("1e-99999999999999999999") << 0.0;
}

void tst_JsonLexer::floatingNumbers()
{
    QFETCH(QString, text);
    QFETCH(double, value);

    JsonLexer lexer(text + QLatin1Char(']'));
    QCOMPARE(lexer.lex(), 2);
    QCOMPARE(lexer.symbolValue().userType(), int(QMetaType::Double));
    QVERIFY2(lexer.symbolValue().toDouble() == value, QByteArray::number(lexer.symbolValue().toDouble(), 'g', 17).constData());
    QCOMPARE(lexer.pos(), text.size());
}

void tst_JsonLexer::onlyANumberCanBeMinusZero()
{
    JsonLexer number(latin1("-0.0"));
    QCOMPARE(number.lex(), 2);
    QVERIFY(std::signbit(number.symbolValue().toDouble()));

    JsonLexer noDigits(latin1("-."));
    QCOMPARE(noDigits.lex(), 2);
    QCOMPARE(noDigits.symbolValue().userType(), int(QMetaType::Double));
    QVERIFY(noDigits.symbolValue().toDouble() == 0 && !std::signbit(noDigits.symbolValue().toDouble()));
}

// The rule without a fast way: a floating text is what Qt reads, an integer is its digits, negative by its first character.
static QVariant numberByTheRule(const QString &text)
{
    if (text.contains(QRegExp(latin1("[.eE]")))) {
        bool ok = false;
        const double value = text.toDouble(&ok);
        return QVariant(ok ? value : 0.0);
    }
    const qlonglong value = QString(text).remove(QRegExp(latin1("[-+]"))).toLongLong();
    return QVariant(text.startsWith(QLatin1Char('-')) ? -value : value);
}

static void compareNumber(const QString &text)
{
    const QVariant expected = numberByTheRule(text);
    JsonLexer lexer(text + QLatin1Char(','));
    const int token = lexer.lex();
    const QVariant value = lexer.symbolValue();
    const bool same = token == 2 && lexer.pos() == text.size() && value.userType() == expected.userType()
        && value.toLongLong() == expected.toLongLong() && value.toDouble() == expected.toDouble()
        && std::signbit(value.toDouble()) == std::signbit(expected.toDouble());
    QVERIFY2(same, qPrintable(text));
}

void tst_JsonLexer::everyShortNumberIsReadByTheRule()
{
    const QString characters = latin1("019.eE+-");
    for (int length = 1; length <= 5; ++length) {
        const int count = 1 << 3 * length; // eight characters at each place
        for (int number = 0; number < count; ++number) {
            QString text;
            for (int i = 0; i < length; ++i)
                text += characters.at(number >> 3 * i & 7);
            if (!text.contains(QRegExp(latin1("^[.eE]"))))
                compareNumber(text);
        }
    }
}

// Digits around the largest ones that a double and 64 bits hold, with each power of ten around those that a double holds
void tst_JsonLexer::everyExponentIsReadAsQtReadsIt()
{
    const char *const digits[] = {
        "1", "3", "7", "0003", "1234567", "123456789012345", "999999999999999", "9007199254740991", "9007199254740992",
        "9007199254740993", "9007199254740995", "9999999999999999", "12345678901234567", "18014398509481983", "18014398509481985",
        "999999999999999999", "1000000000000000001", "9999999999999999999", "10000000000000000001", "18446744073709551617",
        "18446744073709551626", "36893488147419103233", "184467440737095516170"
    };
    for (const char *whole : digits) {
        for (int exponent = -330; exponent <= 310; ++exponent) {
            const QString number = latin1(whole);
            const QString power = latin1("e%1").arg(exponent);
            compareNumber(number + power);
            compareNumber(QLatin1Char('-') + number.left(1) + QLatin1Char('.') + number.mid(1) + power);
        }
        for (int place = 0; place <= 30; ++place)
            compareNumber(latin1("0.") + QString(place, QLatin1Char('0')) + latin1(whole));
        for (int place = 1; place <= int(qstrlen(whole)); ++place)
            compareNumber(latin1(whole).insert(place, QLatin1Char('.')));
    }
}

static QStringList tokensOf(const QString &text)
{
    QStringList tokens;
    JsonLexer lexer(text);
    for (int token = -1; token != 0 && token != 12;) {
        token = lexer.lex();
        tokens << QString::number(token) << lexer.symbolValue().toString() << QString::number(lexer.pos()) << QString::number(lexer.line());
    }
    return tokens;
}

// Each of them has a beginning for nearly every way in which a token can be cut.
static const char *const textsToCut[] = {
    "{\"key\": [1, -22, +3.25, 4e5, 6.5E-1, 7e+22, 1-2, true ], \n\t\"other\" :null,\"a\\n\\u00e9\\\\b\":false}",
    "11111111", "........", "1.......", "1eeeeeee", "1e++++++", "1.555555", "1e555555", "--------", "tttttttt", "\"a\"::::", "        \n\n"
};

// A text need not have a zero behind its last character. Each beginning of a text is read as if it were alone.
void tst_JsonLexer::tokensEndWithTheirTextWhateverIsBehind()
{
    for (const char *text : textsToCut) {
        const QString whole = latin1(text);
        for (int size = 0; size < whole.size(); ++size)
            QCOMPARE(tokensOf(QString::fromRawData(whole.constData(), size)), tokensOf(whole.left(size)));
    }
}

// The memory ends with the text: reading one character more ends the program.
void tst_JsonLexer::nothingIsReadBehindTheText()
{
    GuardedMemory memory;
    for (const char *text : textsToCut) {
        const QString whole = latin1(text);
        for (int size = 0; size <= whole.size(); ++size) {
            const char *const copy = memory.copy(whole.constData(), size_t(size) * sizeof(QChar));
            QCOMPARE(tokensOf(QString::fromRawData(reinterpret_cast<const QChar *>(copy), size)), tokensOf(whole.left(size)));
        }
    }
}

void tst_JsonLexer::numberEndsAtTheFirstOtherCharacter_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("length");

    QTest::newRow("comma") << latin1("12,3") << 2;
    QTest::newRow("bracket") << latin1("12]") << 2;
    QTest::newRow("blank") << latin1("12 3") << 2;
    QTest::newRow("letter") << latin1("12x3") << 2;
    QTest::newRow("hexadecimal prefix") << latin1("0x12") << 1;
    QTest::newRow("quote") << latin1("12\"") << 2;
    QTest::newRow("fraction and letter") << latin1("1.5f") << 3;
    QTest::newRow("digit of another script") << latin1("12") + QChar(0x0665) << 2;
}

void tst_JsonLexer::numberEndsAtTheFirstOtherCharacter()
{
    QFETCH(QString, text);
    QFETCH(int, length);

    JsonLexer lexer(text);
    QCOMPARE(lexer.lex(), 2);
    QCOMPARE(lexer.pos(), length);
}

void tst_JsonLexer::scannersStartAtTheCurrentPosition()
{
    JsonLexer string(latin1("\"a\\tb\""));
    QCOMPARE(string.parseString(), 1);
    QCOMPARE(string.symbolValue(), QVariant(latin1("a\tb")));

    JsonLexer number(latin1("-42"));
    QCOMPARE(number.parseNumber(), 2);
    QCOMPARE(number.symbolValue(), QVariant(Q_INT64_C(-42)));

    JsonLexer later(latin1("[12"));
    QCOMPARE(later.lex(), 5);
    QCOMPARE(later.parseNumber(), 2);
    QCOMPARE(later.symbolValue(), QVariant(Q_INT64_C(12)));
    QCOMPARE(later.pos(), 3);
}

QTEST_APPLESS_MAIN(tst_JsonLexer)
#include "tst_jsonlexer.moc"
