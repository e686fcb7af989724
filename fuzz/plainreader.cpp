#include "plainreader.h"

#include "jsonparser.h"

PlainReader::PlainReader(const QString &text)
    : m_text(text)
    , m_line(1)
    , m_pos(0)
    , m_depth(0)
    , m_token(Wrong)
    , m_ok(false)
    , m_expected("")
{
    next();
    m_ok = readValue(&m_result, "") && isToken(End, "Expected 'end of file'");
}

QString PlainReader::error() const
{
    if (m_ok)
        return QString();
    return QLatin1String(m_expected) + QString::fromLatin1(" at line %1 pos %2").arg(m_line).arg(m_pos);
}

void PlainReader::next()
{
    for (; at(m_pos) == ' ' || at(m_pos) == '\t' || at(m_pos) == '\r' || at(m_pos) == '\n'; ++m_pos)
        m_line += at(m_pos) == '\n';
    m_token = Wrong;
    m_tokenValue = QVariant();
    const ushort c = at(m_pos);
    if (m_pos == m_text.size()) {
        m_token = End;
    } else if (c == '[' || c == ']' || c == '{' || c == '}' || c == ',' || c == ':') {
        m_token = c;
        ++m_pos;
    } else if (c == '"') {
        readString();
    } else if (c == '+' || c == '-' || isDigit(m_pos)) {
        readNumber();
    } else if (isLetter(m_pos)) {
        readWord();
    }
}

void PlainReader::readString()
{
    QString value;
    for (++m_pos; m_pos < m_text.size(); ++m_pos) {
        if (at(m_pos) == '"') {
            ++m_pos;
            m_token = String;
            m_tokenValue = value;
            return;
        }
        if (at(m_pos) != '\\')
            value += m_text.at(m_pos);
        else if (++m_pos < m_text.size())
            value += readEscape();
        else
            return;
    }
}

// Ends on the last character of the escape.
QString PlainReader::readEscape()
{
    const QString letters = QLatin1String("bfnrt");
    const QString meanings = QLatin1String("\b\f\n\r\t");
    const QChar c = m_text.at(m_pos);
    if (letters.contains(c))
        return meanings.at(letters.indexOf(c));
    const bool hasDigits = m_pos + 4 < m_text.size() - 1;
    if (c != QLatin1Char('u') || !hasDigits)
        return c;
    const ushort high = m_text.mid(m_pos + 1, 2).toUShort(nullptr, 16);
    const ushort low = m_text.mid(m_pos + 3, 2).toUShort(nullptr, 16);
    m_pos += 4;
    return QChar(ushort(high * 256 + low));
}

void PlainReader::readNumber()
{
    QString text;
    for (; isDigit(m_pos) || at(m_pos) == '+' || at(m_pos) == '-' || at(m_pos) == '.' || at(m_pos) == 'e' || at(m_pos) == 'E'; ++m_pos)
        text += m_text.at(m_pos);
    m_token = Value;
    if (text.contains(QLatin1Char('.')) || text.contains(QLatin1Char('e'), Qt::CaseInsensitive)) {
        bool isNumber = false;
        const double number = text.toDouble(&isNumber);
        m_tokenValue = isNumber ? number : 0.0;
        return;
    }
    quint64 number = 0;
    for (int i = 0; i < text.size(); ++i) {
        if (text.at(i).isDigit())
            number = number * 10 + quint64(text.at(i).digitValue());
    }
    m_tokenValue = qlonglong(text.startsWith(QLatin1Char('-')) ? ~number + 1 : number);
}

void PlainReader::readWord()
{
    QString word;
    for (; isLetter(m_pos); ++m_pos)
        word += m_text.at(m_pos);
    if (word == QLatin1String("true") || word == QLatin1String("false"))
        m_tokenValue = word == QLatin1String("true");
    if (m_tokenValue.isValid() || word == QLatin1String("null"))
        m_token = Value;
}

// Whether the token is this one. If not, this is what could have stood here.
bool PlainReader::isToken(int token, const char *expected)
{
    m_expected = expected;
    return m_token == token;
}

// expected: the error when no value begins here
bool PlainReader::readValue(QVariant *value, const char *expected)
{
    m_expected = expected;
    if (m_token == '[' || m_token == '{') {
        m_expected = "";
        if (++m_depth > JsonParser::MaximumDepth)
            return false;
        if (!(m_token == '[' ? readArray(value) : readObject(value)))
            return false;
        --m_depth;
    } else if (m_token == Value || m_token == String) {
        *value = m_tokenValue;
    } else {
        return false;
    }
    next();
    return true;
}

// A comma may stand before the first element.
bool PlainReader::readArray(QVariant *value)
{
    static const char expected[] = "Expected ']', ','";
    QVariantList array;
    next();
    if (m_token != ']' && m_token != ',') {
        array.append(QVariant());
        if (!readValue(&array.last(), expected))
            return false;
    }
    while (m_token == ',') {
        next();
        array.append(QVariant());
        if (!readValue(&array.last(), ""))
            return false;
    }
    *value = array;
    return isToken(']', expected);
}

bool PlainReader::readObject(QVariant *value)
{
    static const char expected[] = "Expected '}', ','";
    QVariantMap object;
    next();
    if (m_token == String && !readMember(&object))
        return false;
    while (m_token == ',') {
        next();
        if (!isToken(String, "Expected 'string'") || !readMember(&object))
            return false;
    }
    *value = object;
    return isToken('}', expected);
}

bool PlainReader::readMember(QVariantMap *object)
{
    const QString key = m_tokenValue.toString();
    next();
    if (!isToken(':', "Expected ':'"))
        return false;
    next();
    QVariant value;
    if (!readValue(&value, ""))
        return false;
    object->insert(key, value);
    return true;
}
