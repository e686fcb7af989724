#ifndef DATECACHE_H
#define DATECACHE_H

#include <QtCore/QByteArray>

// The date of a message that is sent often: formatting one costs more than all the rest of the message, so each second's
// text is made once. It follows the wall clock wherever that goes, backwards too.
class DateCache
{
public:
    typedef QByteArray (*Format)(qint64 moment);

    explicit DateCache(Format format);

    // The text for this moment.
    QByteArray now();
    // The text for a moment, in milliseconds since 1970 (UTC).
    QByteArray at(qint64 moment);

private:
    Format m_format;
    qint64 m_second; // that of m_text, which is empty at first
    QByteArray m_text;
};

#endif
