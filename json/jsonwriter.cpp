#include "jsonwriter.h"

#include "jsonnumber.h"

#include <QDebug>
#include <QStringList>

#include <cmath>
#include <cstring>
#include <limits>

namespace
{

const int longestEscape = 6; // \uXXXX

// The letter behind the backslash for characters that have a short escape, else 0.
inline char shortEscape(ushort unit)
{
    switch (unit) {
    case 8:
        return 'b';
    case 9:
        return 't';
    case 10:
        return 'n';
    case 12:
        return 'f';
    case 13:
        return 'r';
    case '"':
    case '\\':
    case '/': // Meant: the slash is escaped always, though it need not be (tst_jsonwriter).
        return char(unit);
    default:
        return 0;
    }
}

inline bool isPlain(ushort unit)
{
    return unit < 0x80 && !shortEscape(unit);
}

template <class Content>
inline const Content &contentOf(const QVariant &value)
{
    return *static_cast<const Content *>(value.constData());
}

} // namespace

/* The end of a text that is being extended.

   Units are stored into room that is made for many of them at once; QString's own appending looks at the room, at sharing
   and at the closing zero each time. Until the output is destroyed, the text is longer than what it holds. */
class JsonWriter::Output
{
public:
    explicit Output(QString *text);
    ~Output() { m_text->resize(int(m_next - m_begin)); }

    void ascii(char c);
    void ascii(const char *text, int size);
    void units(const QString &text);
    void string(const QString &text);
    void character(QChar c);
    void boolean(bool on) { on ? ascii("true", 4) : ascii("false", 5); }
    void null() { ascii("null", 4); }
    void number(qlonglong number);
    void number(qulonglong number);
    void number(double number);

private:
    Q_DISABLE_COPY(Output)

    void makeRoom(int size);
    void grow(int size);
    void escape(ushort unit);

    QString *m_text;
    ushort *m_begin;
    ushort *m_next;
    ushort *m_end; // of the room
};

JsonWriter::Output::Output(QString *text)
    : m_text(text)
    , m_begin(reinterpret_cast<ushort *>(text->data()))
    , m_next(m_begin + text->size())
    , m_end(m_next)
{
}

inline void JsonWriter::Output::makeRoom(int size)
{
    if (m_end - m_next < size)
        grow(size);
}

void JsonWriter::Output::grow(int size)
{
    const int leastRoom = 200;
    const int used = int(m_next - m_begin);
    m_text->resize(used + qMax(size, leastRoom));
    m_text->resize(m_text->capacity()); // Qt reserves more than it needs, so that a text grows in few steps
    m_begin = reinterpret_cast<ushort *>(m_text->data());
    m_next = m_begin + used;
    m_end = m_begin + m_text->size();
}

inline void JsonWriter::Output::ascii(char c)
{
    makeRoom(1);
    *m_next++ = uchar(c);
}

inline void JsonWriter::Output::ascii(const char *text, int size)
{
    makeRoom(size);
    for (int i = 0; i < size; ++i)
        *m_next++ = uchar(text[i]);
}

void JsonWriter::Output::units(const QString &text)
{
    makeRoom(text.size());
    std::memcpy(m_next, text.constData(), std::size_t(text.size()) * sizeof *m_next);
    m_next += text.size();
}

void JsonWriter::Output::string(const QString &text)
{
    const ushort *p = reinterpret_cast<const ushort *>(text.constData());
    const ushort *const end = p + text.size();
    makeRoom(text.size() + 2);
    *m_next++ = '"';
    for (; p != end; ++p) {
        if (isPlain(*p)) {
            *m_next++ = *p;
        } else {
            makeRoom(longestEscape + int(end - p));
            escape(*p);
        }
    }
    *m_next++ = '"';
}

// There is room for it.
void JsonWriter::Output::escape(ushort unit)
{
    *m_next++ = '\\';
    if (const char letter = shortEscape(unit)) {
        *m_next++ = uchar(letter);
        return;
    }
    *m_next++ = 'u';
    for (int shift = 12; shift >= 0; shift -= 4)
        *m_next++ = uchar("0123456789abcdef"[unit >> shift & 15]);
}

// Meant: a quote or a backslash is not escaped here (tst_jsonwriter).
void JsonWriter::Output::character(QChar c)
{
    makeRoom(longestEscape + 2);
    *m_next++ = '"';
    if (c.unicode() < 0x80)
        *m_next++ = c.unicode();
    else
        escape(c.unicode());
    *m_next++ = '"';
}

void JsonWriter::Output::number(qlonglong number)
{
    if (number < 0)
        ascii('-');
    this->number(number < 0 ? 0 - qulonglong(number) : qulonglong(number));
}

void JsonWriter::Output::number(qulonglong number)
{
    char text[jsonnumber::MaximumLength];
    ascii(text, jsonnumber::writeInteger(number, text));
}

void JsonWriter::Output::number(double number)
{
    char text[jsonnumber::MaximumLength];
    if (const int length = jsonnumber::writeShortDouble(number, text))
        ascii(text, length);
    else if (std::isfinite(number))
        units(QString::number(number, 'g', 15));
    else
        null();
}

JsonWriter::JsonWriter()
    : m_autoFormatting(false)
    , m_indent(4, QLatin1Char(' '))
{
}

bool JsonWriter::stringify(const QVariant &value)
{
    if (!m_errorString.isEmpty())
        m_errorString.clear();
    if (!m_result.isEmpty())
        m_result.clear();
    stringify(value, 0);
    return m_errorString.isEmpty();
}

void JsonWriter::stringify(const QVariant &value, int level)
{
    Output output(&m_result);
    write(value, level, &output);
}

void JsonWriter::setAutoFormattingIndent(int n)
{
    m_indent.fill(n < 0 ? QLatin1Char('\t') : QLatin1Char(' '), qAbs(n));
}

int JsonWriter::autoFormattingIndent() const
{
    return m_indent.count(QLatin1Char(' ')) - m_indent.count(QLatin1Char('\t'));
}

void JsonWriter::write(const QVariant &value, int level, Output *output)
{
    if (!value.isValid()) {
        output->null();
        return;
    }
    switch (value.userType()) {
    case QMetaType::QVariantList:
        writeArray(contentOf<QVariantList>(value), level, output);
        break;
    case QMetaType::QStringList:
        writeArray(value.toList(), level, output);
        break;
    case QMetaType::QVariantMap:
        writeObject(contentOf<QVariantMap>(value), level, output);
        break;
    case QMetaType::QString:
        output->string(contentOf<QString>(value));
        break;
    case QMetaType::QByteArray: // not toString(), whose codec depends on the Qt version
        output->string(QString::fromLatin1(value.toByteArray().constData()));
        break;
    case QMetaType::Double:
    case QMetaType::Float:
        output->number(value.toDouble());
        break;
    case QMetaType::Bool:
        output->boolean(value.toBool());
        break;
    case QMetaType::ULongLong:
    case QMetaType::UInt:
        output->number(value.toULongLong());
        break;
    case QMetaType::LongLong:
    case QMetaType::Int:
        output->number(value.toLongLong());
        break;
    case QMetaType::QChar:
        output->character(value.toChar());
        break;
    default:
        writeOther(value, output);
        break;
    }
}

void JsonWriter::writeArray(const QVariantList &array, int level, Output *output)
{
    const int levelWithin = level < std::numeric_limits<int>::max() ? level + 1 : level;
    output->ascii('[');
    for (int i = 0; i < array.size(); ++i) {
        if (i > 0)
            output->ascii(", ", m_autoFormatting ? 2 : 1);
        write(array.at(i), levelWithin, output);
    }
    output->ascii(']');
}

// Meant: the values are written at the level of the object, so that only arrays indent (tst_jsonwriter).
void JsonWriter::writeObject(const QVariantMap &object, int level, Output *output)
{
    if (m_autoFormatting && level != 0) {
        output->ascii('\n');
        writePad(level, output);
        output->ascii("{\n", 2);
    } else {
        output->ascii('{');
    }
    for (QVariantMap::const_iterator i = object.constBegin(); i != object.constEnd(); ++i) {
        if (i != object.constBegin())
            output->ascii(",\n", m_autoFormatting ? 2 : 1);
        if (m_autoFormatting) {
            writePad(level, output);
            output->ascii(' ');
        }
        output->string(i.key());
        output->ascii(':');
        write(i.value(), level, output);
    }
    if (m_autoFormatting) {
        output->ascii('\n');
        writePad(level, output);
    }
    output->ascii('}');
}

// Of a negative level there is none.
void JsonWriter::writePad(int level, Output *output) const
{
    for (int i = 0; i < level; ++i)
        output->units(m_indent);
}

void JsonWriter::writeOther(const QVariant &value, Output *output)
{
    if (value.canConvert(QVariant::LongLong))
        output->number(value.toLongLong());
    else if (value.canConvert(QVariant::String))
        output->string(value.toString());
    else
        writeUnsupported(value, output);
}

void JsonWriter::writeUnsupported(const QVariant &value, Output *output)
{
    const QString message = QString::fromLatin1("Unsupported type %1 (id: %2)")
                                .arg(QString::fromUtf8(value.typeName()), QString::number(value.userType()));
    if (!m_errorString.isEmpty())
        m_errorString += QLatin1Char('\n');
    m_errorString += message;
    qWarning() << "JsonWriter::stringify - " << message;
    output->null();
}
