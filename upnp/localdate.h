#ifndef LOCALDATE_H
#define LOCALDATE_H

#include <QtCore/QByteArray>

// The date lines of messages: "Sat, 21 Nov 2026 09:05:07", the local time without its time zone.
namespace localdate
{

enum Seconds {
    TwoDigits,
    NoLeadingZero // "09:05:7"
};

enum Encoding {
    Utf8,
    Local8Bit
};

// The text for a moment, in milliseconds since 1970 (UTC). The names of day and month are Qt's, in the language of the
// system; the encoding matters where that has other letters than ASCII.
QByteArray text(qint64 moment, Seconds seconds, Encoding encoding);

} // namespace localdate

#endif
