#ifndef TEXT_H
#define TEXT_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

// Texts on their way to a person.
namespace text
{

enum { most = 256 }; // characters of one value

// Harmless in a line: U+FFFD for every control character (line ends among them), every mark that turns the direction of writing,
// and everything else that is no visible character; not longer than most, cut with an ellipsis.
QString clean(const QString &text);

// Bytes that should be UTF-8, as a text; what is not UTF-8 is taken for Latin-1.
QString fromBytes(const QByteArray &bytes);

// How many columns of a terminal it takes.
int columns(const QString &text);
// What of it fits into so many columns, with an ellipsis if that is not all.
QString cut(const QString &text, int columns);
// With blanks up to so many columns.
QString padded(const QString &text, int columns);

// To sort by: kelta-2 comes before kelta-10, whatever the case of the letters.
QString sortingKey(const QString &text);

// "3 minutes", "2 days": in the largest unit of which there are at least two.
QString duration(qint64 seconds);

} // namespace text

#endif
