#include "jsonnumber.h"

#include <cmath>
#include <cstring>

namespace
{

const int maximumDigits = 15;

const char digitPairs[] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839404142434445464748"
                          "49505152535455565758596061626364656667686970717273747576777879808182838485868788899091929394959697"
                          "9899";

// Returns the first digit.
char *writeDigitsBefore(char *end, quint64 number)
{
    char *p = end;
    while (number >= 100) {
        p -= 2;
        std::memcpy(p, digitPairs + number % 100 * 2, 2);
        number /= 100;
    }
    if (number >= 10) {
        p -= 2;
        std::memcpy(p, digitPairs + number * 2, 2);
        return p;
    }
    *--p = char('0' + number);
    return p;
}

// The 15 digits of a decimal, and the power of ten that the first of them stands for.
struct Decimal
{
    quint64 digits;
    int exponent;
};

/* Finds the decimal of 15 digits that is read as this number, if there is one.

   Both the digits and the power of ten are exact as a double, so the division rounds as reading does. And there is but
   one such decimal: those of 15 digits lie farther apart than doubles do. So if the division gives the number back, no
   other decimal of 15 digits is nearer to it, however inexact the multiplication was. */
bool findDecimal(double number, Decimal *decimal)
{
    static const double powers[] = {
        1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11,
        1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22
    };
    const int maximumPower = int(sizeof powers / sizeof *powers) - 1;
    const double limit = 1e15;
    const double least = 1e-8; // times 10^22 it has 15 digits

    if (!(number >= least && number < limit)) // true for NaN
        return false;
    int binaryExponent = 0;
    std::frexp(number, &binaryExponent);
    const double log10Of2 = 0.30103;
    int power = qBound(0, maximumDigits - 1 - int(std::floor((binaryExponent - 1) * log10Of2)), maximumPower);
    double scaled = number * powers[power];
    if (scaled >= limit && power > 0)
        scaled = number * powers[--power];
    const double digits = std::floor(scaled + 0.5);
    if (digits >= limit || digits < limit / 10 || digits / powers[power] != number)
        return false;
    decimal->digits = quint64(qint64(digits));
    decimal->exponent = maximumDigits - 1 - power;
    return true;
}

int writeFixed(const char *digits, int count, int exponent, char *text)
{
    char *p = text;
    if (exponent < 0) {
        *p++ = '0';
        *p++ = '.';
        for (int i = exponent + 1; i < 0; ++i)
            *p++ = '0';
        std::memcpy(p, digits, std::size_t(count));
        return int(p - text) + count;
    }
    const int whole = exponent + 1;
    if (count <= whole) { // zeros at the end that belong to the whole number
        std::memcpy(p, digits, std::size_t(whole));
        return whole;
    }
    std::memcpy(p, digits, std::size_t(whole));
    p[whole] = '.';
    std::memcpy(p + whole + 1, digits + whole, std::size_t(count - whole));
    return count + 1;
}

// With an exponent of -1 to -9
int writeScientific(const char *digits, int count, int exponent, char *text)
{
    char *p = text;
    *p++ = digits[0];
    if (count > 1) {
        *p++ = '.';
        std::memcpy(p, digits + 1, std::size_t(count - 1));
        p += count - 1;
    }
    *p++ = 'e';
    *p++ = '-';
    *p++ = '0';
    *p++ = char('0' - exponent);
    return int(p - text);
}

} // namespace

int jsonnumber::writeInteger(quint64 number, char *text)
{
    char digits[MaximumLength];
    char *const end = digits + sizeof digits;
    const char *const begin = writeDigitsBefore(end, number);
    const int length = int(end - begin);
    std::memcpy(text, begin, std::size_t(length));
    return length;
}

int jsonnumber::writeShortDouble(double number, char *text)
{
    Decimal decimal = { 0, 0 };
    if (!findDecimal(std::fabs(number), &decimal))
        return 0;
    const int sign = number < 0;
    if (sign)
        *text++ = '-';
    char digits[maximumDigits];
    writeDigitsBefore(digits + maximumDigits, decimal.digits);
    int count = maximumDigits;
    while (digits[count - 1] == '0')
        --count;
    const int leastFixedExponent = -4;
    const int length = decimal.exponent < leastFixedExponent ? writeScientific(digits, count, decimal.exponent, text)
                                                             : writeFixed(digits, count, decimal.exponent, text);
    return sign + length;
}
