// Values of every type, written as JSON in both layouts, read again and compared with what the reader is bound to get.
// Input: what Builder makes of its bytes.
#include "identical.h"
#include "input.h"
#include "jsonreader.h"
#include "jsonwriter.h"
#include "qtcompat.h"
#include "require.h"

#include <QtCore/QSize>
#include <QtCore/QStringList>

#include <cmath>
#include <cstring>

namespace
{

const int maximalDepth = 100;

// Turns bytes into a value to write and into the value that is read from its text. Behind the end of the bytes
// come zeros.
class Builder
{
public:
    explicit Builder(const QByteArray &input)
        : m_input(input)
        , m_pos(0)
        , m_unsupported(0)
    {
    }

    int below(int bound) { return (m_pos < m_input.size() ? uchar(m_input.at(m_pos++)) : 0) % bound; }
    int unsupported() const { return m_unsupported; }
    void value(QVariant *written, QVariant *read, int depth);

private:
    template <class Number>
    Number number()
    {
        char raw[sizeof(Number)] = {};
        const QByteArray taken = m_input.mid(m_pos, int(sizeof raw));
        m_pos += taken.size();
        std::memcpy(raw, taken.constData(), std::size_t(taken.size()));
        Number result;
        std::memcpy(&result, raw, sizeof raw);
        return result;
    }

    QString text();
    QByteArray byteText();
    void scalar(int kind, QVariant *written, QVariant *read);
    void list(QVariant *written, QVariant *read, int depth);
    void map(QVariant *written, QVariant *read, int depth);

    QByteArray m_input;
    int m_pos;
    int m_unsupported;
};

// Up to 15 units, each of one byte or, behind a byte 255, of two
QString Builder::text()
{
    QString result;
    for (int size = below(16); size > 0; --size) {
        const ushort unit = ushort(below(256));
        result += QChar(unit == 255 ? number<ushort>() : unit);
    }
    return result;
}

QByteArray Builder::byteText()
{
    QByteArray result;
    for (int size = below(16); size > 0; --size)
        result += char(below(256));
    return result;
}

// 15 digits; whole numbers lose their fraction, and what rounds beyond the largest double is read as 0.
QVariant readDouble(double value)
{
    if (!std::isfinite(value))
        return QVariant();
    const QString text = QString::number(value, 'g', 15);
    if (!text.contains(QLatin1Char('.')) && !text.contains(QLatin1Char('e')))
        return text.toLongLong();
    bool fits = false;
    const double read = text.toDouble(&fits);
    return fits ? read : 0.0;
}

template <class Value>
void set(const Value &value, QVariant *written, QVariant *read)
{
    *written = value;
    *read = value;
}

void Builder::value(QVariant *written, QVariant *read, int depth)
{
    const int kind = below(14);
    if (kind == 12 && depth < maximalDepth)
        list(written, read, depth + 1);
    else if (kind == 13 && depth < maximalDepth)
        map(written, read, depth + 1);
    else
        scalar(kind, written, read);
}

void Builder::scalar(int kind, QVariant *written, QVariant *read)
{
    switch (kind) {
    case 1:
        set(below(2) == 1, written, read);
        break;
    case 2:
        set(text(), written, read);
        break;
    case 3:
        set(number<qlonglong>(), written, read);
        break;
    case 4:
        *written = number<qulonglong>();
        *read = qlonglong(written->toULongLong()); // wraps
        break;
    case 5:
        *written = number<int>();
        *read = qlonglong(written->toInt());
        break;
    case 6:
        *written = number<uint>();
        *read = qlonglong(written->toUInt());
        break;
    case 7:
        *written = number<double>();
        *read = readDouble(written->toDouble());
        break;
    case 8:
        *written = QVariant::fromValue(number<float>());
        *read = readDouble(double(written->toFloat()));
        break;
    case 9:
        *written = byteText();
        *read = QString::fromLatin1(written->toByteArray().constData());
        break;
    case 10: { // a quote or a backslash alone makes broken JSON
        const QChar c(number<ushort>());
        const bool breaks = c == QLatin1Char('"') || c == QLatin1Char('\\');
        *written = breaks ? QChar(QLatin1Char('/')) : c;
        *read = QString(written->toChar());
        break;
    }
    case 11:
        ++m_unsupported;
        *written = QSize(1, 2);
        break;
    default: // null
        break;
    }
}

void Builder::list(QVariant *written, QVariant *read, int depth)
{
    QVariantList writtenList;
    QVariantList readList;
    if (below(8) == 7) {
        const QStringList texts = QStringList() << text() << text();
        *written = texts;
        *read = QVariantList() << texts.at(0) << texts.at(1);
        return;
    }
    for (int size = below(6); size > 0; --size) {
        writtenList.append(QVariant());
        readList.append(QVariant());
        value(&writtenList.last(), &readList.last(), depth);
    }
    *written = writtenList;
    *read = readList;
}

void Builder::map(QVariant *written, QVariant *read, int depth)
{
    QVariantMap writtenMap;
    QVariantMap readMap;
    for (int size = below(6); size > 0; --size) {
        const QString key = text();
        if (!writtenMap.contains(key))
            value(&writtenMap[key], &readMap[key], depth);
    }
    *written = writtenMap;
    *read = readMap;
}

// The text without the blanks, tabs and line feeds that stand between its tokens.
QString withoutLayout(const QString &text)
{
    QString result;
    bool inString = false;
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (!inString && (c == QLatin1Char(' ') || c == QLatin1Char('\t') || c == QLatin1Char('\n')))
            continue;
        result += c;
        if (c == QLatin1Char('"'))
            inString = !inString;
        else if (inString && c == QLatin1Char('\\'))
            result += text.at(++i);
    }
    return result;
}

bool isAscii(const QString &text)
{
    bool ascii = true;
    for (int i = 0; i < text.size(); ++i)
        ascii = ascii && text.at(i).unicode() < 0x80;
    return ascii;
}

template <class Text>
void checkRead(const Text &text, const QVariant &expected)
{
    JsonReader reader;
    REQUIRE(reader.parse(text));
    REQUIRE(identical(reader.result(), expected));
}

void checkErrors(bool ok, const JsonWriter &writer, int unsupported)
{
    const QString line = QString::fromLatin1("Unsupported type QSize (id: %1)").arg(int(QMetaType::QSize));
    QStringList lines;
    for (int i = 0; i < unsupported; ++i)
        lines << line;
    REQUIRE(ok == lines.isEmpty());
    REQUIRE(writer.errorString() == lines.join(QLatin1String("\n")));
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***)
{
    qtcompat::installMessageSink([](QtMsgType, const char *) {}); // each unsupported type is a warning
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Builder builder(bytes(data, size));
    const int indent = builder.below(17) - 8;
    QVariant value;
    QVariant expected;
    builder.value(&value, &expected, 0);

    JsonWriter writer;
    checkErrors(writer.stringify(value), writer, builder.unsupported());
    const QString compact = writer.result();
    REQUIRE(isAscii(compact));
    checkRead(compact, expected);
    if (!compact.contains(QChar(0))) // among the first bytes it would mean another encoding
        checkRead(compact.toLatin1(), expected);

    writer.setAutoFormatting(true);
    writer.setAutoFormattingIndent(indent);
    REQUIRE(writer.autoFormattingIndent() == indent);
    checkErrors(writer.stringify(value), writer, builder.unsupported());
    checkRead(writer.result(), expected);
    REQUIRE(withoutLayout(writer.result()) == compact);
    return 0;
}
