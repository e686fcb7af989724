#ifndef DATECACHE_H
#define DATECACHE_H

#include <QtCore/QByteArray>

// The date of a message that is sent often: formatting one costs more than the whole message without it, so each second's
// text is made once. When the wall clock is set, also backwards, the text follows.
class DateCache
{
public:
    // Makes the text for a moment, in milliseconds since 1970 (UTC).
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
