#include "table.h"

#include "text.h"

#include <QtCore/QVector>

static const char gap[] = "  ";
static const int gapColumns = 2;

static QString shown(const QString &cell)
{
    return cell.isEmpty() ? QString::fromLatin1("-") : cell;
}

static QVector<int> widthsOf(const QList<QStringList> &rows)
{
    QVector<int> widths(rows.isEmpty() ? 0 : rows.first().size());
    for (int i = 0; i < rows.size(); ++i) {
        for (int column = 0; column < widths.size(); ++column)
            widths[column] = qMax(widths.at(column), text::columns(shown(rows.at(i).at(column))));
    }
    return widths;
}

static int widest(const QVector<int> &widths)
{
    int found = 0;
    for (int i = 1; i < widths.size(); ++i) {
        if (widths.at(i) > widths.at(found))
            found = i;
    }
    return found;
}

static int lineWidth(const QVector<int> &widths)
{
    int sum = gapColumns * (widths.size() - 1);
    for (int i = 0; i < widths.size(); ++i)
        sum += widths.at(i);
    return sum;
}

static QVector<int> fitted(QVector<int> widths, int width)
{
    for (int over = lineWidth(widths) - width; over > 0; --over) {
        int &most = widths[widest(widths)];
        most = qMax(1, most - 1);
    }
    return widths;
}

static QString line(const QStringList &row, const QVector<int> &widths)
{
    QStringList cells;
    for (int column = 0; column < widths.size(); ++column)
        cells += text::padded(text::cut(shown(row.at(column)), widths.at(column)), widths.at(column));
    QString joined = cells.join(QLatin1String(gap));
    while (joined.endsWith(QLatin1Char(' ')))
        joined.chop(1);
    return joined;
}

QStringList tableLines(const QList<QStringList> &rows, int width)
{
    if (rows.isEmpty())
        return QStringList();
    const QVector<int> all = widthsOf(rows);
    const QVector<int> widths = width > 0 ? fitted(all, width) : all;
    QStringList lines;
    for (int i = 0; i < rows.size(); ++i)
        lines += width > 0 ? text::cut(line(rows.at(i), widths), width) : line(rows.at(i), widths);
    return lines;
}
