#ifndef REPORT_H
#define REPORT_H

#include <QtCore/QString>

// A line for each thing that was looked at, printed at once.
class Report
{
public:
    Report();

    // seen: what was found.
    void right(const char *what, const QString &seen);
    // healthy: what a healthy device shows, and what to do.
    void wrong(const char *what, const QString &seen, const QString &healthy);
    // right() or wrong().
    void judge(bool isRight, const char *what, const QString &seen, const QString &healthy);
    // What could not be looked at, or need not be there.
    void skipped(const char *what, const QString &why);

    bool isAllRight() const { return m_allRight; }

private:
    bool m_allRight;
};

#endif
