#include "jsonlexer.h"

#include "jsongrammar_p.h"
#include "moveinto.h"

#include <QVarLengthArray>

#include <cstring>

namespace
{

// Holds nearly every string with escapes; longer ones move to the heap.
typedef QVarLengthArray<ushort, 256> Units;

inline const ushort *units(const QString &text)
{
    return reinterpret_cast<const ushort *>(text.constData());
}

inline QString toString(const ushort *units, int size)
{
    return QString(reinterpret_cast<const QChar *>(units), size);
}

inline bool isDigit(ushort c)
{
    return c >= '0' && c <= '9';
}

inline bool isLowerCase(ushort c)
{
    return c >= 'a' && c <= 'z';
}

inline bool endsPlain(ushort c)
{
    return c == '"' || c == '\\';
}

inline const ushort *plainEndOneByOne(const ushort *p, const ushort *end)
{
    while (p != end && !endsPlain(*p))
        ++p;
    return p;
}

// False only if none of the four units ends a plain run. A unit that does becomes 0 by the exclusive or, and the
// subtraction then sets its top bit; beside it, only units from 0x8000 on can have theirs set.
inline bool mayEndPlain(const ushort *four)
{
    const quint64 ones = Q_UINT64_C(0x0001000100010001);
    quint64 word;
    std::memcpy(&word, four, sizeof word);
    const quint64 quotes = (word ^ (ones * '"')) - ones;
    const quint64 backslashes = (word ^ (ones * '\\')) - ones;
    return ((quotes | backslashes) & (ones << 15)) != 0;
}

// The first quote or backslash, or the end
inline const ushort *plainEnd(const ushort *p, const ushort *end)
{
    const int step = 4; // most of a text is inside strings
    for (; end - p >= step; p += step) {
        if (!mayEndPlain(p))
            continue;
        const ushort *const found = plainEndOneByOne(p, p + step);
        if (found != p + step)
            return found;
    }
    return plainEndOneByOne(p, end);
}

inline int hexDigit(ushort c)
{
    if (isDigit(c))
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Two characters as a number. Qt decides about anything but two digits: a sign or a blank beside one
// digit is passed over, the rest is 0.
uint hexPair(const ushort *p)
{
    const int high = hexDigit(p[0]);
    const int low = hexDigit(p[1]);
    if (high >= 0 && low >= 0)
        return uint(high * 16 + low);
    return toString(p, 2).toUShort(0, 16);
}

ushort unescaped(ushort c)
{
    switch (c) {
    case 'b':
        return 8;
    case 'f':
        return 12;
    case 'n':
        return 10;
    case 'r':
        return 13;
    case 't':
        return 9;
    default:
        return c;
    }
}

// Appends what the escape stands for; p is behind the backslash and not at the end. Returns the first
// character behind the escape.
const ushort *appendEscape(const ushort *p, const ushort *end, Units *value)
{
    // Meant: a \u whose digits would reach the last character of the text is a plain u (tst_jsonlexer).
    const int digits = 4;
    if (*p == 'u' && end - p > digits + 1) {
        value->append(ushort(hexPair(p + 1) << 8 | hexPair(p + 3)));
        return p + 1 + digits;
    }
    value->append(unescaped(*p));
    return p + 1;
}

inline bool isSign(ushort c)
{
    return c == '+' || c == '-';
}

inline bool isFloating(ushort c)
{
    return c == '.' || c == 'e' || c == 'E';
}

// The text of a number as it is read: a whole number, and the power of ten that it is multiplied with.
struct Decimal
{
    quint64 mantissa; // may have wrapped if there are more than 19 digits
    int digits;
    int exponent;
};

// Takes digits in, and returns the first character behind them.
inline const ushort *takeDigits(const ushort *p, const ushort *end, Decimal *decimal)
{
    const ushort *const begin = p;
    for (; p != end && isDigit(*p); ++p)
        decimal->mantissa = decimal->mantissa * 10 + (*p - '0');
    decimal->digits += int(p - begin);
    return p;
}

// Takes in what is behind an e: perhaps a sign, and one to three digits. Returns the first character behind them, or
// null.
const ushort *takeExponent(const ushort *p, const ushort *end, Decimal *decimal)
{
    const bool negative = p != end && *p == '-';
    p += p != end && isSign(*p);
    Decimal power = { 0, 0, 0 };
    p = takeDigits(p, end, &power);
    if (power.digits < 1 || power.digits > 3)
        return 0;
    decimal->exponent += negative ? -int(power.mantissa) : int(power.mantissa);
    return p;
}

// Takes in [. digits] [e [sign] digits] behind the digits that are there. Returns the first character behind them,
// or null if they are not the whole of the number.
const ushort *takeFraction(const ushort *p, const ushort *end, Decimal *decimal)
{
    if (*p == '.') {
        const int whole = decimal->digits;
        p = takeDigits(p + 1, end, decimal);
        decimal->exponent = whole - decimal->digits;
    }
    if (p != end && (*p == 'e' || *p == 'E')) {
        p = takeExponent(p + 1, end, decimal);
        if (!p)
            return 0;
    }
    return p != end && (isFloating(*p) || isSign(*p)) ? 0 : p;
}

// A whole number and a power of ten that are both exact as a double: one multiplication or division then rounds
// correctly, as Qt does at greater length. False for all others.
bool exactDouble(const Decimal &decimal, double *value)
{
    static const double powers[] = {
        1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11,
        1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22
    };
    const int maximumPower = int(sizeof powers / sizeof *powers) - 1;
    const int digitsOf64Bits = 19;
    const quint64 maximumMantissa = Q_UINT64_C(1) << 53;

    const int exponent = decimal.exponent;
    if (decimal.digits == 0 || decimal.digits > digitsOf64Bits || decimal.mantissa > maximumMantissa || qAbs(exponent) > maximumPower)
        return false;
    const double whole = double(qint64(decimal.mantissa)); // converting from signed is shorter
    *value = exponent < 0 ? whole / powers[-exponent] : whole * powers[exponent];
    return true;
}

const ushort *numberEnd(const ushort *p, const ushort *end)
{
    while (p != end && (isDigit(*p) || isSign(*p) || isFloating(*p)))
        ++p;
    return p;
}

double toDouble(const ushort *begin, int size)
{
    bool ok = false;
    const double value = toString(begin, size).toDouble(&ok);
    return ok ? value : 0.0; // Qt 5 gives infinity for 1e400
}

// The keys met last, in this text and in others. Announcements have nearly all their keys in common, so most keys need
// no memory of their own, neither while a text is read nor as long as its value is kept.
class KeyTable
{
public:
    static bool canHold(int size) { return size >= 1 && size <= LongestKey; }

    // The units as a text that others may share; there is room for their number.
    const QString &key(const ushort *units, int size)
    {
        QString &slot = m_slots[((units[0] * 31u + units[size - 1]) * 31u + uint(size)) % Slots];
        if (slot.size() != size || std::memcmp(slot.constData(), units, std::size_t(size) * sizeof *units) != 0)
            slot = toString(units, size);
        return slot;
    }

private:
    // A stranger's keys may fill it, with some ten kilobytes.
    enum { Slots = 128 };
    enum { LongestKey = 32 };
    QString m_slots[Slots];
};

KeyTable &keyTable()
{
    static thread_local KeyTable table; // a QString may be shared among threads, the table may not
    return table;
}

} // namespace

JsonLexer::JsonLexer(const QString &text)
    : m_text(text)
    , m_line(1)
    , m_pos(0)
{
}

int JsonLexer::lex()
{
    if (m_symbolValue.isValid())
        m_symbolValue.clear();
    const ushort *const text = units(m_text);
    if (m_pos < m_text.size() && text[m_pos] <= ' ')
        skipWhiteSpace();
    if (m_pos >= m_text.size())
        return JsonGrammar::EOF_SYMBOL;

    const ushort c = text[m_pos];
    switch (c) {
    case ',':
        ++m_pos;
        return JsonGrammar::T_COMMA;
    case ':':
        ++m_pos;
        return JsonGrammar::T_COLON;
    case '[':
        ++m_pos;
        return JsonGrammar::T_LEFT_BRACKET;
    case ']':
        ++m_pos;
        return JsonGrammar::T_RIGHT_BRACKET;
    case '{':
        ++m_pos;
        return JsonGrammar::T_LEFT_BRACE;
    case '}':
        ++m_pos;
        return JsonGrammar::T_RIGHT_BRACE;
    case '"':
        return parseString();
    case '+':
    case '-':
        return parseNumber();
    default:
        if (isDigit(c))
            return parseNumber();
        return parseKeyword();
    }
}

void JsonLexer::skipWhiteSpace()
{
    const ushort *const text = units(m_text);
    const int size = m_text.size();
    int pos = m_pos;
    for (; pos < size; ++pos) {
        const ushort c = text[pos];
        if (c > ' ')
            break;
        if (c == '\n')
            ++m_line;
        else if (c != ' ' && c != '\t' && c != '\r')
            break;
    }
    m_pos = pos;
}

int JsonLexer::parseString()
{
    const ushort *const text = units(m_text);
    const ushort *const end = text + m_text.size();
    const int start = m_pos + 1;
    const ushort *const p = plainEnd(text + start, end);
    if (p != end && *p == '\\')
        return parseEscapedString(start, int(p - text));

    m_pos = int(p - text);
    if (p == end)
        return JsonGrammar::T_ERROR;
    const int size = m_pos - start;
    ++m_pos;
    const bool isKey = m_pos < m_text.size() && text[m_pos] == ':';
    if (isKey && KeyTable::canHold(size)) {
        m_symbolValue = QVariant(keyTable().key(text + start, size));
    } else {
        QString string = toString(text + start, size);
        moveInto(string, m_symbolValue);
    }
    return JsonGrammar::T_STRING;
}

int JsonLexer::parseEscapedString(int start, int backslash)
{
    const ushort *const text = units(m_text);
    const ushort *const end = text + m_text.size();
    const ushort *plain = text + start;
    const ushort *p = text + backslash;
    Units value;
    while (p != end && *p == '\\') {
        value.append(plain, int(p - plain));
        if (++p == end)
            break;
        plain = appendEscape(p, end, &value);
        p = plainEnd(plain, end);
    }

    m_pos = int(p - text);
    if (p == end)
        return JsonGrammar::T_ERROR;
    value.append(plain, int(p - plain));
    QString string = toString(value.constData(), value.size());
    moveInto(string, m_symbolValue);
    ++m_pos;
    return JsonGrammar::T_STRING;
}

int JsonLexer::parseNumber()
{
    const ushort *const begin = units(m_text) + m_pos;
    const ushort *const end = units(m_text) + m_text.size();
    const bool negative = *begin == '-';
    Decimal decimal = { 0, 0, 0 };
    const ushort *p = takeDigits(begin + isSign(*begin), end, &decimal);
    bool plain = true; // no sign but the first
    while (p != end && isSign(*p)) {
        plain = false;
        p = takeDigits(p + 1, end, &decimal);
    }

    if (p == end || !isFloating(*p)) {
        m_symbolValue = QVariant(qlonglong(negative ? 0 - decimal.mantissa : decimal.mantissa));
    } else {
        double value = 0;
        const ushort *const fractionEnd = plain ? takeFraction(p, end, &decimal) : 0;
        if (fractionEnd && exactDouble(decimal, &value)) {
            p = fractionEnd;
            m_symbolValue = QVariant(negative ? -value : value);
        } else {
            p = numberEnd(p, end);
            m_symbolValue = QVariant(toDouble(begin, int(p - begin)));
        }
    }
    m_pos += int(p - begin);
    return JsonGrammar::T_NUMBER;
}

int JsonLexer::parseKeyword()
{
    const int start = m_pos;
    const ushort *const text = units(m_text);
    while (m_pos < m_text.size() && isLowerCase(text[m_pos]))
        ++m_pos;

    const QString word = QString::fromRawData(m_text.constData() + start, m_pos - start);
    if (word == QLatin1String("true"))
        return JsonGrammar::T_TRUE;
    if (word == QLatin1String("null"))
        return JsonGrammar::T_NULL;
    if (word == QLatin1String("false"))
        return JsonGrammar::T_FALSE;
    return JsonGrammar::T_ERROR;
}
