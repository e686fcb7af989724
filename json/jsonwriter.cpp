#include "jsonwriter.h"

#include <QDebug>
#include <QStringList>

#include <cmath>

namespace
{

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

} // namespace

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
    if (!value.isValid()) {
        writeAscii("null");
        return;
    }
    switch (value.userType()) {
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        writeArray(value.toList(), level);
        break;
    case QMetaType::QVariantMap:
        writeObject(value.toMap(), level);
        break;
    case QMetaType::QString:
        writeString(value.toString());
        break;
    case QMetaType::QByteArray: // not toString(), whose codec depends on the Qt version
        writeString(QString::fromLatin1(value.toByteArray().constData()));
        break;
    case QMetaType::Double:
    case QMetaType::Float:
        writeDouble(value.toDouble());
        break;
    case QMetaType::Bool:
        writeAscii(value.toBool() ? "true" : "false");
        break;
    case QMetaType::ULongLong:
    case QMetaType::UInt:
        m_result += QString::number(value.toULongLong());
        break;
    case QMetaType::LongLong:
    case QMetaType::Int:
        m_result += QString::number(value.toLongLong());
        break;
    case QMetaType::QChar:
        writeChar(value.toChar());
        break;
    default:
        writeOther(value);
        break;
    }
}

void JsonWriter::setAutoFormattingIndent(int n)
{
    m_indent.fill(n < 0 ? QLatin1Char('\t') : QLatin1Char(' '), qAbs(n));
}

int JsonWriter::autoFormattingIndent() const
{
    return m_indent.count(QLatin1Char(' ')) - m_indent.count(QLatin1Char('\t'));
}

void JsonWriter::writeString(const QString &text)
{
    m_result.reserve(m_result.size() + text.size() + 2);
    m_result += QLatin1Char('"');
    const QChar *plain = text.constData();
    const QChar *const end = plain + text.size();
    for (const QChar *p = plain; p != end; ++p) {
        if (isPlain(p->unicode()))
            continue;
        m_result.insert(m_result.size(), plain, int(p - plain));
        writeEscape(p->unicode());
        plain = p + 1;
    }
    m_result.insert(m_result.size(), plain, int(end - plain));
    m_result += QLatin1Char('"');
}

void JsonWriter::writeEscape(ushort unit)
{
    m_result += QLatin1Char('\\');
    if (const char letter = shortEscape(unit)) {
        m_result += QLatin1Char(letter);
        return;
    }
    m_result += QLatin1Char('u');
    for (int shift = 12; shift >= 0; shift -= 4)
        m_result += QLatin1Char("0123456789abcdef"[unit >> shift & 15]);
}

// Meant: a quote or a backslash is not escaped here (tst_jsonwriter).
void JsonWriter::writeChar(QChar c)
{
    m_result += QLatin1Char('"');
    if (c.unicode() < 0x80)
        m_result += c;
    else
        writeEscape(c.unicode());
    m_result += QLatin1Char('"');
}

void JsonWriter::writeDouble(double number)
{
    if (std::isfinite(number))
        m_result += QString::number(number, 'g', 15);
    else
        writeAscii("null");
}

void JsonWriter::writeArray(const QVariantList &array, int level)
{
    const QLatin1String separator(m_autoFormatting ? ", " : ",");
    m_result += QLatin1Char('[');
    for (int i = 0; i < array.size(); ++i) {
        if (i > 0)
            m_result += separator;
        stringify(array.at(i), level + 1);
    }
    m_result += QLatin1Char(']');
}

// Meant: the values are written at the level of the object, so that only arrays indent (tst_jsonwriter).
void JsonWriter::writeObject(const QVariantMap &object, int level)
{
    if (m_autoFormatting && level > 0) {
        m_result += QLatin1Char('\n');
        writePad(level);
        writeAscii("{\n");
    } else {
        m_result += QLatin1Char('{');
    }
    for (QVariantMap::const_iterator i = object.constBegin(); i != object.constEnd(); ++i) {
        if (i != object.constBegin())
            writeAscii(m_autoFormatting ? ",\n" : ",");
        if (m_autoFormatting) {
            writePad(level);
            m_result += QLatin1Char(' ');
        }
        writeString(i.key());
        m_result += QLatin1Char(':');
        stringify(i.value(), level);
    }
    if (m_autoFormatting) {
        m_result += QLatin1Char('\n');
        writePad(level);
    }
    m_result += QLatin1Char('}');
}

void JsonWriter::writePad(int level)
{
    for (int i = 0; i < level; ++i)
        m_result += m_indent;
}

void JsonWriter::writeOther(const QVariant &value)
{
    if (value.canConvert(QVariant::LongLong))
        m_result += QString::number(value.toLongLong());
    else if (value.canConvert(QVariant::String))
        writeString(value.toString());
    else
        writeUnsupported(value);
}

void JsonWriter::writeUnsupported(const QVariant &value)
{
    const QString message = QString::fromLatin1("Unsupported type %1 (id: %2)")
                                .arg(QString::fromUtf8(value.typeName()), QString::number(value.userType()));
    if (!m_errorString.isEmpty())
        m_errorString += QLatin1Char('\n');
    m_errorString += message;
    qWarning() << "JsonWriter::stringify - " << message;
    writeAscii("null");
}
