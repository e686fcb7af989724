#include "datecache.h"

#include <QtCore/QDateTime>

DateCache::DateCache(Format format)
    : m_format(format)
    , m_second(0)
{
}

QByteArray DateCache::now()
{
    return at(QDateTime::currentMSecsSinceEpoch());
}

QByteArray DateCache::at(qint64 moment)
{
    const qint64 second = moment / 1000;
    if (second != m_second || m_text.isEmpty()) {
        m_text = m_format(moment);
        m_second = second;
    }
    return m_text;
}
