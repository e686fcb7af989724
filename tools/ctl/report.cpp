#include "report.h"

#include "output.h"

static const QChar checkMark(0x2713);
static const QChar cross(0x2717);
static const QChar dash(0x2013);

Report::Report()
    : m_allRight(true)
{
}

static void print(output::Style style, QChar mark, const char *what, const QString &text)
{
    output::say(output::styled(style, QString(mark)) + QLatin1Char(' ') + QString::fromLatin1(what) + QLatin1String(": ") + text);
}

void Report::right(const char *what, const QString &seen)
{
    print(output::Green, checkMark, what, seen);
}

void Report::wrong(const char *what, const QString &seen, const QString &healthy)
{
    m_allRight = false;
    print(output::Red, cross, what, seen + QLatin1String("; ") + healthy);
}

void Report::judge(bool isRight, const char *what, const QString &seen, const QString &healthy)
{
    if (isRight)
        right(what, seen);
    else
        wrong(what, seen, healthy);
}

void Report::skipped(const char *what, const QString &why)
{
    print(output::Yellow, dash, what, why);
}
