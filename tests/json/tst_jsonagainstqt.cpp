// Random texts and values, the same in every run: what JsonReader makes of well-formed JSON is compared with
// Qt's own reader, and what JsonWriter writes is read again by both.
#include "jsonreader.h"
#include "jsonwriter.h"

#include <QJsonDocument>
#include <QtTest>

class tst_JsonAgainstQt : public QObject
{
    Q_OBJECT

private slots:
    void wellFormedTextsAreReadAlike();
    void writtenValuesAreReadAgain();
};

namespace
{

class Random
{
public:
    explicit Random(quint32 seed)
        : m_state(seed)
    {
    }

    int below(int bound)
    {
        m_state = m_state * 1664525u + 1013904223u;
        return int((m_state >> 8) % uint(bound));
    }

private:
    quint32 m_state;
};

QByteArray blank(Random *random)
{
    static const char *const blanks[] = { "", "", "", " ", "\n", "\t", "\r\n" };
    return blanks[random->below(7)];
}

QByteArray randomNumber(Random *random)
{
    QByteArray text(random->below(2) ? "-" : "");
    text += QByteArray::number(random->below(3) ? random->below(1 << 24) : random->below(10));
    if (random->below(3) == 0)
        text += '.' + QByteArray::number(random->below(1 << 24)) + QByteArray::number(random->below(1 << 24));
    if (random->below(4) == 0)
        text += QByteArray(random->below(2) ? "e" : "E") + (random->below(2) ? "-" : "+") + QByteArray::number(random->below(40));
    return text;
}

QByteArray randomStringText(Random *random, const QByteArray &end = QByteArray())
{
    static const char *const pieces[] = {
        "a", "key", "some longer piece", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\\n", "\\t", "\\r", "\\b", "\\f",
        "\\\"", "\\\\", "\\/", "/", "\\u0041", "\\u00E9", "\\u20ac", "\\ud83d\\ude00", "{", "]", ",", ":"
    };
    QByteArray text("\"");
    for (int i = random->below(8); i > 0; --i)
        text += pieces[random->below(int(sizeof pieces / sizeof *pieces))];
    return text + end + '"';
}

QByteArray randomText(Random *random, int depth)
{
    static const char *const words[] = { "true", "false", "null" };
    const int kind = random->below(depth > 0 ? 8 : 4);
    if (kind < 2)
        return randomNumber(random);
    if (kind == 2)
        return randomStringText(random);
    if (kind == 3)
        return words[random->below(3)];

    const bool isObject = kind < 6;
    QByteArray text(isObject ? "{" : "[");
    for (int i = 0, count = random->below(6); i < count; ++i) {
        text += i > 0 ? "," : "";
        if (isObject) // each key once: Qt 5.15 leaks containers when it drops one of two
            text += blank(random) + randomStringText(random, QByteArray::number(i)) + blank(random) + ':';
        text += blank(random) + randomText(random, depth - 1) + blank(random);
    }
    return text + blank(random) + (isObject ? '}' : ']');
}

QString randomString(Random *random)
{
    QString text;
    for (int i = random->below(12); i > 0; --i)
        text += QChar(ushort(random->below(3) ? random->below(0x80) : random->below(0xd800)));
    return text;
}

QVariant randomValue(Random *random, int depth)
{
    switch (random->below(depth > 0 ? 8 : 5)) {
    case 0:
        return QVariant();
    case 1:
        return random->below(2) == 1;
    case 2:
        return randomString(random);
    case 3:
        return (qlonglong(random->below(1 << 24)) << 39) * (random->below(2) ? 1 : -1) + random->below(1 << 24);
    case 4: // few enough digits to be written exactly
        return random->below(1 << 24) + (random->below(1023) + 1) / 1024.0;
    case 5: {
        QVariantList list;
        for (int i = random->below(6); i > 0; --i)
            list << randomValue(random, depth - 1);
        return list;
    }
    default: {
        QVariantMap map;
        for (int i = random->below(6); i > 0; --i)
            map.insert(randomString(random), randomValue(random, depth - 1));
        return map;
    }
    }
}

bool isNumber(const QVariant &value)
{
    return value.userType() == QMetaType::LongLong || value.userType() == QMetaType::Double;
}

// Qt decides by the value whether a number is an integer, and has a null of its own.
bool same(const QVariant &ours, const QVariant &theirs)
{
    if (!ours.isValid())
        return theirs.isNull();
    if (isNumber(ours))
        return isNumber(theirs) && ours.toDouble() == theirs.toDouble();
    if (ours.userType() != theirs.userType())
        return false;
    if (ours.userType() == QMetaType::QVariantList) {
        const QVariantList a = ours.toList();
        const QVariantList b = theirs.toList();
        return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), same);
    }
    if (ours.userType() == QMetaType::QVariantMap) {
        const QVariantMap a = ours.toMap();
        const QVariantMap b = theirs.toMap();
        return a.keys() == b.keys() && std::equal(a.begin(), a.end(), b.begin(), same);
    }
    return ours == theirs;
}

} // namespace

void tst_JsonAgainstQt::wellFormedTextsAreReadAlike()
{
    Random random(20240229);
    for (int i = 0; i < 5000; ++i) {
        const QByteArray text = '[' + randomText(&random, 6) + ']'; // Qt wants a container at the top
        QJsonParseError error;
        const QVariant expected = QJsonDocument::fromJson(text, &error).toVariant();
        QVERIFY2(error.error == QJsonParseError::NoError, text.constData());
        JsonReader reader;
        QVERIFY2(reader.parse(text), text.constData());
        QVERIFY2(same(reader.result(), expected), text.constData());

        JsonReader fromText;
        QVERIFY(fromText.parse(QString::fromUtf8(text)));
        QVERIFY(fromText.result() == reader.result());
    }
}

void tst_JsonAgainstQt::writtenValuesAreReadAgain()
{
    Random random(31416);
    for (int i = 0; i < 3000; ++i) {
        const QVariant value = QVariantList() << randomValue(&random, 5);
        JsonWriter writer;
        writer.setAutoFormatting(random.below(2) == 1);
        writer.setAutoFormattingIndent(random.below(7) - 3);
        QVERIFY(writer.stringify(value));
        JsonReader reader;
        QVERIFY2(reader.parse(writer.result()), qPrintable(writer.result()));
        QVERIFY2(reader.result() == value, qPrintable(writer.result()));
    }
}

QTEST_APPLESS_MAIN(tst_JsonAgainstQt)
#include "tst_jsonagainstqt.moc"
