#ifndef CAUGHTLOG_H
#define CAUGHTLOG_H

#include <QtCore/QStringList>

// While one of these lives, Qt's messages are kept instead of printed. One at a time. From the first one on,
// debug messages that nobody catches are dropped.
class CaughtLog
{
public:
    CaughtLog();
    ~CaughtLog();

    // "debug: sending alive", "warning: ...", "critical: ..."; in the order of arrival, from all threads.
    QStringList lines() const;
    // Without the level.
    QStringList debugLines() const;
    QStringList warnings() const;
    void clear();

private:
    Q_DISABLE_COPY(CaughtLog)

    QStringList withoutLevel(const char *level) const;
};

#endif
