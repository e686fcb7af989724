#ifndef JSONNUMBER_H
#define JSONNUMBER_H

#include <QtGlobal>

// Numbers as text, as QString::number() writes them, but into the caller's memory: ASCII, without a zero at the end.
namespace jsonnumber
{

// Bytes that the caller's memory must have, for the longest text of each function
enum { MaximumLength = 24 };

// Decimal. Returns the length.
int writeInteger(quint64 number, char *text);

// As QString::number(number, 'g', 15), if the number is what a decimal of at most 15 digits is read as, and neither 0 nor
// very large nor very small. Returns the length; 0 for all other numbers.
int writeShortDouble(double number, char *text);

} // namespace jsonnumber

#endif
