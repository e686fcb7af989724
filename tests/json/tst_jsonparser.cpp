#include "jsongrammar_p.h"
#include "jsonlexer.h"
#include "jsonparser.h"

#include <QtTest>

class tst_JsonParser : public QObject
{
    Q_OBJECT

private slots:
    void rulesAreNumberedAsTheActionsExpect_data();
    void rulesAreNumberedAsTheActionsExpect();
    void symbolsAreNamed();
    void values_data();
    void values();
    void errors_data();
    void errors();
    void nothingIsKnownBeforeParsing();
    void resultIsInvalidAfterAnErrorBehindAWholeValue();
    void parserCanBeUsedAgain();
    void nothingIsLeftOverFromABrokenText_data();
    void nothingIsLeftOverFromABrokenText();
    void oldValuesAreNotTouchedByTheNextText();
    void stacksBeginWith128EntriesAndDouble();
    void stacksGrowWithNesting();
    void stacksDoNotGrowWithTheNumberOfElements();
    void deepestAllowedNestingIsReadCopiedAndDestroyed_data();
    void deepestAllowedNestingIsReadCopiedAndDestroyed();
    void oneLevelTooDeepIsAnError_data();
    void oneLevelTooDeepIsAnError();
    void depthCountsOnlyOpenContainers();
};

namespace
{

QString latin1(const char *text)
{
    return QString::fromLatin1(text);
}

QVariant number(qlonglong n)
{
    return QVariant(n);
}

QVariantMap object(const char *key, const QVariant &value)
{
    QVariantMap map;
    map.insert(latin1(key), value);
    return map;
}

struct Outcome
{
    bool ok;
    QVariant value;
    QString message;
    int line;
    int column;
};

Outcome parsed(const QString &text)
{
    JsonLexer lexer(text);
    JsonParser parser;
    const bool ok = parser.parse(&lexer);
    const Outcome outcome = { ok, parser.result(), parser.errorMessage(), parser.errorLine(), parser.errorColumn() };
    return outcome;
}

// The single way down a value nested like [[...]] or {"a":{"a":...}}: the number of its containers.
int depthOf(QVariant value)
{
    int depth = 0;
    for (; value.isValid(); ++depth) {
        const bool isList = value.userType() == QMetaType::QVariantList;
        if (!isList && value.userType() != QMetaType::QVariantMap)
            break;
        const QVariant inner = isList ? value.toList().value(0) : value.toMap().value(latin1("a"));
        value = inner;
    }
    return depth;
}

} // namespace

void tst_JsonParser::rulesAreNumberedAsTheActionsExpect_data()
{
    QTest::addColumn<int>("rule");
    QTest::addColumn<QString>("production");

    const char *const productions[] = {
        "Root: Value",
        "Object: { Members }",
        "Members: string : Value",
        "Members: Members , string : Value",
        "Members:",
        "Value: false",
        "Value: true",
        "Value: null",
        "Value: Object",
        "Value: Array",
        "Value: number",
        "Value: string",
        "Array: [ Values ]",
        "Values: Value",
        "Values: Values , Value",
        "Values:",
        "$accept: Root end of file",
    };
    QCOMPARE(int(sizeof productions / sizeof *productions), int(JsonGrammar::RULE_COUNT));
    for (int rule = 0; rule < JsonGrammar::RULE_COUNT; ++rule)
        QTest::newRow(productions[rule]) << rule << latin1(productions[rule]);
}

void tst_JsonParser::rulesAreNumberedAsTheActionsExpect()
{
    QFETCH(int, rule);
    QFETCH(QString, production);

    const int *const symbols = JsonGrammar::rule_info + JsonGrammar::rule_index[rule];
    QCOMPARE(symbols[0], int(JsonGrammar::lhs[rule]));
    QString text = latin1(JsonGrammar::spell[symbols[0]]) + QLatin1Char(':');
    for (int i = 1; i <= JsonGrammar::rhs[rule]; ++i)
        text += QLatin1Char(' ') + latin1(JsonGrammar::spell[symbols[i]]);
    QCOMPARE(text, production);
}

void tst_JsonParser::symbolsAreNamed()
{
    const char *const names[] = {
        "end of file", "string", "number", "{", "}", "[", "]", ":", ",", "false", "true", "null", "error",
        "Root", "Value", "Object", "Members", "Array", "Values", "$accept"
    };
    QCOMPARE(int(JsonGrammar::TERMINAL_COUNT), 13);
    QCOMPARE(JsonGrammar::TERMINAL_COUNT + JsonGrammar::NON_TERMINAL_COUNT, 20);
    for (int symbol = 0; symbol < 20; ++symbol)
        QCOMPARE(JsonGrammar::spell[symbol], names[symbol]);
}

void tst_JsonParser::values_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QVariant>("value");

    const QVariantList one = QVariantList() << number(1);
    QTest::newRow("lone number") << latin1("1") << number(1);
    QTest::newRow("lone double") << latin1("1.5") << QVariant(1.5);
    QTest::newRow("lone string") << latin1("\"a\"") << QVariant(latin1("a"));
    QTest::newRow("lone true") << latin1("true") << QVariant(true);
    QTest::newRow("lone false") << latin1("false") << QVariant(false);
    QTest::newRow("lone null") << latin1("null") << QVariant();
    QTest::newRow("white space around") << latin1(" \r\n\t1 ") << number(1);
    QTest::newRow("empty object") << latin1("{}") << QVariant(QVariantMap());
    QTest::newRow("empty array") << latin1("[]") << QVariant(QVariantList());
    QTest::newRow("one member") << latin1("{\"a\":1}") << QVariant(object("a", number(1)));
    QTest::newRow("one element") << latin1("[1]") << QVariant(one);
    QTest::newRow("leading comma in an array") << latin1("[,1]") << QVariant(one);
    QTest::newRow("leading comma in an object") << latin1("{,\"a\":1}") << QVariant(object("a", number(1)));
    QTest::newRow("repeated key keeps the last value") << latin1("{\"a\":1,\"a\":2,\"a\":3}") << QVariant(object("a", number(3)));
    QTest::newRow("repeated key keeps the last null") << latin1("{\"a\":[1],\"a\":null}") << QVariant(object("a", QVariant()));
    QTest::newRow("empty key") << latin1("{\"\":1}") << QVariant(object("", number(1)));
    QTest::newRow("null inside") << latin1("[null,1]") << QVariant(QVariantList() << QVariant() << number(1));
    QTest::newRow("null behind a string") << latin1("[\"a\",null]") << QVariant(QVariantList() << latin1("a") << QVariant());
    QTest::newRow("keywords inside") << latin1("[true,false,true]") << QVariant(QVariantList() << true << false << true);
    QTest::newRow("empty containers side by side")
        << latin1("[{},[],{},[]]")
        << QVariant(QVariantList() << QVariantMap() << QVariant(QVariantList()) << QVariantMap() << QVariant(QVariantList()));

    QVariantMap three = object("a", number(1));
    three.insert(latin1("b"), QVariantList() << number(2) << QVariant(object("c", QVariant())));
    three.insert(latin1("d"), object("a", latin1("x")));
    QTest::newRow("objects and arrays inside each other")
        << latin1("{\"d\":{\"a\":\"x\"},\"b\":[2,{\"c\":null}],\"a\":1}") << QVariant(three);
    QTest::newRow("nothing is left over from the sibling before")
        << latin1("[[1,2],[],[3],{\"a\":1},{}]")
        << QVariant(QVariantList() << QVariant(QVariantList() << number(1) << number(2)) << QVariant(QVariantList())
                                   << QVariant(QVariantList() << number(3)) << QVariant(object("a", number(1))) << QVariantMap());
}

void tst_JsonParser::values()
{
    QFETCH(QString, text);
    QFETCH(QVariant, value);

    const Outcome outcome = parsed(text);
    QVERIFY2(outcome.ok, qPrintable(outcome.message));
    QCOMPARE(outcome.value.userType(), value.userType());
    QCOMPARE(outcome.value, value);
    QCOMPARE(outcome.message, QString());
}

void tst_JsonParser::errors_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("message");
    QTest::addColumn<int>("line");
    QTest::addColumn<int>("column");

    const QString none;
    QTest::newRow("empty text") << none << none << 1 << 0;
    QTest::newRow("only white space counts its lines") << latin1(" \n\n ") << none << 3 << 4;
    QTest::newRow("trailing comma in an array") << latin1("[1,]") << none << 1 << 4;
    QTest::newRow("trailing comma in an object") << latin1("{\"a\":1,}") << latin1("Expected 'string'") << 1 << 8;
    QTest::newRow("comma alone in an array") << latin1("[,]") << none << 1 << 3;
    QTest::newRow("comma alone in an object") << latin1("{,}") << latin1("Expected 'string'") << 1 << 3;
    QTest::newRow("two commas") << latin1("[1,,2]") << none << 1 << 4;
    QTest::newRow("end behind a member") << latin1("{\"a\":1") << latin1("Expected '}', ','") << 1 << 6;
    QTest::newRow("end behind the left brace") << latin1("{") << latin1("Expected '}', ','") << 1 << 1;
    QTest::newRow("end behind a key") << latin1("{\"a\"") << latin1("Expected ':'") << 1 << 4;
    QTest::newRow("end behind a colon lists nothing") << latin1("{\"a\":") << none << 1 << 5;
    QTest::newRow("end behind a comma in an object") << latin1("{\"a\":1,") << latin1("Expected 'string'") << 1 << 7;
    QTest::newRow("end behind a second key") << latin1("{\"a\":1,\"b\"") << latin1("Expected ':'") << 1 << 10;
    QTest::newRow("end behind the left bracket") << latin1("[") << latin1("Expected ']', ','") << 1 << 1;
    QTest::newRow("end behind an element") << latin1("[1") << latin1("Expected ']', ','") << 1 << 2;
    QTest::newRow("end behind a comma in an array lists nothing") << latin1("[1,") << none << 1 << 3;
    QTest::newRow("two values") << latin1("1 2") << latin1("Expected 'end of file'") << 1 << 3;
    QTest::newRow("second object") << latin1("{}{}") << latin1("Expected 'end of file'") << 1 << 3;
    QTest::newRow("right brace alone") << latin1("}") << none << 1 << 1;
    QTest::newRow("brackets crossed") << latin1("[1}") << latin1("Expected ']', ','") << 1 << 3;
    QTest::newRow("key is a number") << latin1("{1:2}") << latin1("Expected '}', ','") << 1 << 2;
    QTest::newRow("key is null") << latin1("{\"a\":1,null:2}") << latin1("Expected 'string'") << 1 << 11;
    QTest::newRow("missing comma") << latin1("[1 2]") << latin1("Expected ']', ','") << 1 << 4;
    QTest::newRow("missing colon") << latin1("{\"a\" 1}") << latin1("Expected ':'") << 1 << 6;
    QTest::newRow("stray character is not passed") << latin1("[1?]") << latin1("Expected ']', ','") << 1 << 2;
    QTest::newRow("unknown word is passed") << latin1("[1,truth]") << none << 1 << 8;
    QTest::newRow("capital True") << latin1("True") << none << 1 << 0;
    QTest::newRow("unterminated string") << latin1("[\"abc") << latin1("Expected ']', ','") << 1 << 5;
    QTest::newRow("column counts from the start of the text") << latin1("[1,\n2,\n}") << none << 3 << 8;
    QTest::newRow("line feeds in a string do not count") << latin1("[\"\n\n\"}") << latin1("Expected ']', ','") << 1 << 6;
}

void tst_JsonParser::errors()
{
    QFETCH(QString, text);
    QFETCH(QString, message);
    QFETCH(int, line);
    QFETCH(int, column);

    const Outcome outcome = parsed(text);
    QVERIFY(!outcome.ok);
    QVERIFY(!outcome.value.isValid());
    QCOMPARE(outcome.message, message);
    QCOMPARE(outcome.line, line);
    QCOMPARE(outcome.column, column);
}

void tst_JsonParser::nothingIsKnownBeforeParsing()
{
    const JsonParser parser;
    QVERIFY(!parser.result().isValid());
    QCOMPARE(parser.stackCapacity(), 0);
    QCOMPARE(parser.errorMessage(), QString());
    QCOMPARE(parser.errorLine(), 0);
    QCOMPARE(parser.errorColumn(), 0);
}

void tst_JsonParser::resultIsInvalidAfterAnErrorBehindAWholeValue()
{
    const Outcome outcome = parsed(latin1("[1] x"));
    QVERIFY(!outcome.ok);
    QVERIFY(!outcome.value.isValid());
}

void tst_JsonParser::parserCanBeUsedAgain()
{
    JsonParser parser;
    JsonLexer broken(latin1("{\"a\":[1,{\"b\":[2"));
    QVERIFY(!parser.parse(&broken));
    QCOMPARE(parser.errorMessage(), latin1("Expected ']', ','"));

    JsonLexer whole(latin1("[{},[]]"));
    QVERIFY(parser.parse(&whole));
    QCOMPARE(parser.result(), QVariant(QVariantList() << QVariantMap() << QVariant(QVariantList())));

    JsonLexer null(latin1("null"));
    QVERIFY(parser.parse(&null));
    QVERIFY(!parser.result().isValid());
}

void tst_JsonParser::nothingIsLeftOverFromABrokenText_data()
{
    QTest::addColumn<QString>("broken");
    QTest::addColumn<QString>("whole");
    QTest::addColumn<QVariant>("value");

    const QVariantList one = QVariantList() << number(1);
    QTest::newRow("members before an empty object") << latin1("{\"x\":1,") << latin1("{}") << QVariant(QVariantMap());
    QTest::newRow("members before a leading comma")
        << latin1("{\"x\":1,") << latin1("{,\"a\":1}") << QVariant(object("a", number(1)));
    QTest::newRow("members before a member") << latin1("{\"x\":1,") << latin1("{\"a\":1}") << QVariant(object("a", number(1)));
    QTest::newRow("elements before an empty array") << latin1("[9,") << latin1("[]") << QVariant(QVariantList());
    QTest::newRow("elements before a leading comma") << latin1("[9,") << latin1("[,1]") << QVariant(one);
    QTest::newRow("elements before an element") << latin1("[9,") << latin1("[1]") << QVariant(one);
    QTest::newRow("a string before null") << latin1("\"x\",") << latin1("null") << QVariant();
    QTest::newRow("open arrays do not count any more")
        << latin1("[").repeated(JsonParser::MaximumDepth + 1) << latin1("[1]") << QVariant(one);
}

void tst_JsonParser::nothingIsLeftOverFromABrokenText()
{
    QFETCH(QString, broken);
    QFETCH(QString, whole);
    QFETCH(QVariant, value);

    JsonParser parser;
    JsonLexer first(broken);
    QVERIFY(!parser.parse(&first));
    JsonLexer second(whole);
    QVERIFY(parser.parse(&second));
    QCOMPARE(parser.result(), value);
}

void tst_JsonParser::oldValuesAreNotTouchedByTheNextText()
{
    JsonParser parser;
    JsonLexer first(latin1("[1,{\"a\":2}]"));
    QVERIFY(parser.parse(&first));
    const QVariant kept = parser.result();
    JsonLexer second(latin1("[3,{\"a\":4}]"));
    QVERIFY(parser.parse(&second));
    QCOMPARE(kept, QVariant(QVariantList() << number(1) << QVariant(object("a", number(2)))));
    QCOMPARE(parser.result(), QVariant(QVariantList() << number(3) << QVariant(object("a", number(4)))));
}

void tst_JsonParser::stacksBeginWith128EntriesAndDouble()
{
    JsonParser parser;
    parser.reallocateStack();
    QCOMPARE(parser.stackCapacity(), 128);
    parser.reallocateStack();
    QCOMPARE(parser.stackCapacity(), 256);
    parser.reallocateStack();
    QCOMPARE(parser.stackCapacity(), 512);
}

void tst_JsonParser::stacksGrowWithNesting()
{
    // One entry for the bottom, two for each array but the innermost, which is still waiting for its end.
    JsonParser parser;
    JsonLexer shallow(latin1("[[[[1]]]]"));
    QVERIFY(parser.parse(&shallow));
    QCOMPARE(parser.stackCapacity(), 128);

    const int depth = 400;
    JsonLexer deep(latin1("[1,").repeated(depth) + latin1("2") + QString(depth, QLatin1Char(']')));
    QVERIFY(parser.parse(&deep));
    QCOMPARE(parser.stackCapacity(), 2048);
    QVariant value = parser.result();
    for (int i = 0; i < depth; ++i) {
        const QVariantList list = value.toList();
        QCOMPARE(list.size(), 2);
        QCOMPARE(list.at(0), number(1));
        value = list.at(1);
    }
    QCOMPARE(value, number(2));
}

void tst_JsonParser::stacksDoNotGrowWithTheNumberOfElements()
{
    JsonParser parser;
    JsonLexer lexer(QLatin1Char('[') + latin1("{\"a\":1,\"b\":[]},").repeated(10000) + latin1("1]"));
    QVERIFY(parser.parse(&lexer));
    QCOMPARE(parser.result().toList().size(), 10001);
    QCOMPARE(parser.stackCapacity(), 128);
}

void tst_JsonParser::deepestAllowedNestingIsReadCopiedAndDestroyed_data()
{
    QTest::addColumn<QString>("opening");
    QTest::addColumn<QString>("closing");
    QTest::addColumn<int>("levels");

    QTest::newRow("arrays") << latin1("[") << latin1("]") << 1;
    QTest::newRow("objects") << latin1("{\"a\":") << latin1("}") << 1;
    QTest::newRow("arrays and objects in turn") << latin1("[{\"a\":") << latin1("}]") << 2;
}

void tst_JsonParser::deepestAllowedNestingIsReadCopiedAndDestroyed()
{
    QFETCH(QString, opening);
    QFETCH(QString, closing);
    QFETCH(int, levels);

    const int count = JsonParser::MaximumDepth / levels;
    const QString text = opening.repeated(count) + latin1("1") + closing.repeated(count);
    Outcome outcome = parsed(text);
    QVERIFY(outcome.ok);
    QCOMPARE(depthOf(outcome.value), int(JsonParser::MaximumDepth));

    // Comparing walks both trees; they share nothing, so both are destroyed level by level.
    Outcome second = parsed(text);
    QVERIFY(outcome.value == second.value);
    outcome.value.clear();
    QCOMPARE(depthOf(second.value), int(JsonParser::MaximumDepth));
}

void tst_JsonParser::oneLevelTooDeepIsAnError_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("column");

    const int count = JsonParser::MaximumDepth + 1;
    QTest::newRow("arrays") << QString(count, QLatin1Char('[')) + QString(count, QLatin1Char(']')) << count;
    QTest::newRow("objects") << latin1("{\"a\":").repeated(count) + latin1("1") + latin1("}").repeated(count) << (count - 1) * 5 + 1;
    QTest::newRow("64000 left brackets") << QString(64000, QLatin1Char('[')) << count;
    QTest::newRow("64000 objects") << latin1("{\"a\":").repeated(64000) << (count - 1) * 5 + 1;
    QTest::newRow("leading commas") << latin1("[,").repeated(64000) << (count - 1) * 2 + 1;
}

void tst_JsonParser::oneLevelTooDeepIsAnError()
{
    QFETCH(QString, text);
    QFETCH(int, column);

    const Outcome outcome = parsed(text);
    QVERIFY(!outcome.ok);
    QVERIFY(!outcome.value.isValid());
    QCOMPARE(outcome.message, QString());
    QCOMPARE(outcome.line, 1);
    QCOMPARE(outcome.column, column);
}

void tst_JsonParser::depthCountsOnlyOpenContainers()
{
    const int count = JsonParser::MaximumDepth * 2;
    const Outcome outcome = parsed(QLatin1Char('[') + latin1("[],{\"a\":{}},").repeated(count) + latin1("1]"));
    QVERIFY(outcome.ok);
    QCOMPARE(outcome.value.toList().size(), count * 2 + 1);
}

QTEST_APPLESS_MAIN(tst_JsonParser)
#include "tst_jsonparser.moc"
