// Usual numbers and escapes are read without leaving them to Qt, which gives each a text of its own first. The result is the
// same, so only the memory tells. Likewise short texts are widened on the stack.
#include "allocationcount.h"
#include "jsongrammar_p.h"
#include "jsonlexer.h"
#include "jsonreader.h"

#include <QtTest>

class tst_JsonAllocations : public QObject
{
    Q_OBJECT

private slots:
    void allocationsAreCounted();
    void numbersNeedNoMemory_data();
    void numbersNeedNoMemory();
    void unusualNumbersAreLeftToQt_data();
    void unusualNumbersAreLeftToQt();
    void escapedTextIsAllocatedOnce_data();
    void escapedTextIsAllocatedOnce();
    void plainAsciiNeedsNoBlockForItsCharacters_data();
    void plainAsciiNeedsNoBlockForItsCharacters();
    void otherTextsAreDecodedIntoABlock_data();
    void otherTextsAreDecodedIntoABlock();
};

static int allocationsForOneToken(const QByteArray &json, int token)
{
    JsonLexer lexer(QString::fromLatin1(json.constData()));
    const int before = allocationCount();
    const int found = lexer.lex();
    const int made = allocationCount() - before;
    return found == token ? made : -1;
}

void tst_JsonAllocations::allocationsAreCounted()
{
    const int before = allocationCount();
    delete new QByteArray(100, 'x'); // the object, and what is in it
    QCOMPARE(allocationCount() - before, 2);
}

void tst_JsonAllocations::numbersNeedNoMemory_data()
{
    QTest::addColumn<QByteArray>("number");
    const char *const numbers[] = {
        "7", "-12", "1.5", "-2.25", "0.1", "10.0", "3.14159265358979", "9007199254740.992", "100000000000000.5",
        "1e5", "1E5", "1e+5", "1E-5", "2.5e-3", "1e22", "1e-22", "9007199254740992e22", "1.5e23", "1.5e-21", "123456.0987654"
    };
    for (const char *number : numbers)
        QTest::newRow(number) << QByteArray(number);
}

void tst_JsonAllocations::numbersNeedNoMemory()
{
    QFETCH(QByteArray, number);
    QCOMPARE(allocationsForOneToken(number, JsonGrammar::T_NUMBER), 0);
    QCOMPARE(allocationsForOneToken(number + ']', JsonGrammar::T_NUMBER), 0);
}

// So the test above would notice it.
void tst_JsonAllocations::unusualNumbersAreLeftToQt_data()
{
    QTest::addColumn<QByteArray>("number");
    const char *const numbers[] = { "9007199254740.993", "9007199254740992.0", "1e23", "1e-23", "1.5.5", "1+1e5" };
    for (const char *number : numbers)
        QTest::newRow(number) << QByteArray(number);
}

void tst_JsonAllocations::unusualNumbersAreLeftToQt()
{
    QFETCH(QByteArray, number);
    QVERIFY(allocationsForOneToken(number, JsonGrammar::T_NUMBER) > 0);
}

void tst_JsonAllocations::escapedTextIsAllocatedOnce_data()
{
    QTest::addColumn<QByteArray>("escape");
    const char *const escapes[] = { "\\n", "\\u0000", "\\u00e9", "\\u09af", "\\uAF90", "\\u0f0F", "\\uA0a0" };
    for (const char *escape : escapes)
        QTest::newRow(escape) << QByteArray(escape);
}

void tst_JsonAllocations::escapedTextIsAllocatedOnce()
{
    QFETCH(QByteArray, escape);
    QCOMPARE(allocationsForOneToken('"' + escape + " \"", JsonGrammar::T_STRING), 1);
}

static std::size_t largestAllocationForReading(const QByteArray &json)
{
    JsonReader reader;
    takeLargestAllocation();
    const bool isRead = reader.parse(json);
    const std::size_t largest = takeLargestAllocation();
    return isRead ? largest : 0;
}

static QByteArray listOf(int size, const QByteArray &blanks)
{
    return '[' + blanks + QByteArray(size - blanks.size() - 3, ' ') + "7]";
}

void tst_JsonAllocations::plainAsciiNeedsNoBlockForItsCharacters_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("blanks");

    for (int size = 1000; size <= 1010; ++size) // with every remainder by eight
        QTest::newRow(QByteArray::number(size).constData()) << size << QByteArray();
    QTest::newRow("the largest") << 2048 << QByteArray();
    QTest::newRow("ends of lines") << 1000 << QByteArray("\r\n\t");
}

void tst_JsonAllocations::plainAsciiNeedsNoBlockForItsCharacters()
{
    QFETCH(int, size);
    QFETCH(QByteArray, blanks);
    const std::size_t largest = largestAllocationForReading(listOf(size, blanks));
    QVERIFY(largest > 0); // that of the list
    QVERIFY2(largest < 1000, QByteArray::number(qulonglong(largest)).constData());
}

// So the test above would notice it.
void tst_JsonAllocations::otherTextsAreDecodedIntoABlock_data()
{
    QTest::addColumn<QByteArray>("json");

    QTest::newRow("one more than the largest") << listOf(2049, QByteArray());
    QTest::newRow("other characters") << "[\"\303\251\"," + listOf(1000, QByteArray()) + ']';
}

void tst_JsonAllocations::otherTextsAreDecodedIntoABlock()
{
    QFETCH(QByteArray, json);
    QVERIFY(largestAllocationForReading(json) >= 2000);
}

QTEST_MAIN(tst_JsonAllocations)
#include "tst_jsonallocations.moc"
